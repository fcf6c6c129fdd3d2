#include "server_entry.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "stat/scan_settings.h"
#include "stat/vstat_server.h"
#include "utils/idle_priority.h"
#include "vcom/exit_deadline.h"
#include "vcom/line_text.h"

namespace {

// The queue's grace for a parent that takes nothing, then as long again for a stopped job to end.
const long kShutdownLimitMs = 2 * vorlane::vcom::ServerDispatcher::kSendStallMs;

// Opens the debug file at path for appending: never through a link, never blocking on a FIFO, and only
// a regular file of this user, so that another user's file planted at the path never receives what the
// server writes. -1 with *why set when refused.
int openDebugFile(const char* path, std::string* why) {
  const int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
  if (fd < 0) {
    *why = strerror(errno);
    return -1;
  }
  struct stat st;
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != geteuid()) {
    *why = "not a regular file owned by this user";
    close(fd);
    return -1;
  }
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  return fd;
}

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
    std::string why;
    const int fd = openDebugFile(target, &why);
    if (fd >= 0) {
      stream_ = fdopen(fd, "a");
      if (!stream_) {
        why = strerror(errno);
        close(fd);
      }
    }
    if (!stream_) {
      fprintf(stderr, "vstatserver: debug file %s refused: %s; running without debug lines\n",
              vorlane::vcom::escapeControls(target).c_str(), why.c_str());
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
  std::unique_ptr<VStatServer> server(new VStatServer(cmdLine, debug.get()));
  if (!server->init()) return -1;
  server->run();
  // Ending the server sends what is queued while the parent takes it, then stops a running job and
  // joins every thread. A job stuck in a system call can never be joined, so the process ends anyway
  // once the limit has passed.
  vorlane::vcom::ExitDeadline deadline(kShutdownLimitMs, 0);
  server.reset();
  return 0;
}
