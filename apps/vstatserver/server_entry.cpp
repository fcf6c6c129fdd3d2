#include "server_entry.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "stat/scan_settings.h"
#include "stat/vstat_server.h"
#include "utils/idle_priority.h"

namespace {

// Owns the debug stream named by VSTAT_DEBUG; standard error is borrowed, never closed.
class DebugStream {
 public:
  DebugStream() : stream_(nullptr), owned_(false) {
    const char* target = getenv("VSTAT_DEBUG");
    if (!target || !*target) return;
    if (strcmp(target, "-") == 0) {
      stream_ = stderr;
      return;
    }
    const int fd = open(target, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd >= 0) stream_ = fdopen(fd, "a");
    if (!stream_) {
      fprintf(stderr, "vstatserver: cannot open debug file %s: %s\n", target, strerror(errno));
      if (fd >= 0) close(fd);
      return;
    }
    owned_ = true;
  }
  ~DebugStream() {
    if (owned_) fclose(stream_);
  }
  DebugStream(const DebugStream&) = delete;
  DebugStream& operator=(const DebugStream&) = delete;

  FILE* get() const { return stream_; }

 private:
  FILE* stream_;
  bool owned_;
};

}  // namespace

std::string joinArguments(int argc, char** argv) {
  std::string cmdLine;
  for (int i = 1; i < argc; ++i) {
    cmdLine += argv[i];
    cmdLine += ' ';
  }
  return cmdLine;
}

int run(const char* cmdLine) {
  signal(SIGPIPE, SIG_IGN);
  DebugStream debug;
  // Before any thread starts, so that every thread of the server inherits the lower priorities.
  std::string error;
  if (scanSettingsFromEnvironment().gentle && !vorlane::utils::enterIdlePriority(error) && debug.get()) {
    fprintf(debug.get(), "vstatserver: gentle mode: %s\n", error.c_str());
  }
  VStatServer server(cmdLine, debug.get());
  if (!server.init()) return -1;
  server.run();
  return 0;
}
