// The server dispatcher's receive path on arbitrary byte streams from the parent, through real pipes:
// for every input a fresh dispatcher is built on two new pipes, the input is written to its read end
// and that end closed, and whatever the dispatcher answers is drained by a reader thread. The
// dispatcher must come to the end of its input (or of the conversation) by itself, answer without
// crashing, and give back every thread and descriptor when destroyed.
//
// handleMessage refuses everything, as for an unknown request: the statistics requests would start a
// real job. SetWorkDir frames change the process's directory, which is restored after every input.
// Inputs above one pipe buffer are skipped, so writing them never waits for the dispatcher.
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <thread>

#include "fuzz_scratch.h"
#include "vcom/server_dispatcher.h"

namespace {

const size_t kMaxInput = 65536;

class RefusingDispatcher : public vorlane::vcom::ServerDispatcher {
 public:
  explicit RefusingDispatcher(const char* cmdLine) : ServerDispatcher(cmdLine) {}
  unsigned getProtocolVersion() const override { return 301; }
  int handleMessage(vorlane::vcom::Msg*) override { return -1; }
};

void makePipe(int ends[2]) {
  if (pipe2(ends, O_CLOEXEC) != 0) fuzzscratch::die("cannot create", "pipe");
}

void drain(int fd) {
  char buf[65536];
  for (;;) {
    const ssize_t n = read(fd, buf, sizeof buf);
    if (n > 0) continue;
    if (n < 0 && errno == EINTR) continue;
    break;
  }
  close(fd);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // A dispatcher that has stopped reading closes its end under the writer.
  signal(SIGPIPE, SIG_IGN);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kMaxInput) return 0;
  static const int startDir = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (startDir < 0) fuzzscratch::die("cannot open", ".");

  int toServer[2], fromServer[2];
  makePipe(toServer);
  makePipe(fromServer);
  std::thread reader(drain, fromServer[0]);
  {
    // The dispatcher owns toServer[0] and fromServer[1] and closes them when destroyed.
    RefusingDispatcher dispatcher((std::to_string(toServer[0]) + " " + std::to_string(fromServer[1])).c_str());
    if (!dispatcher.init()) fuzzscratch::die("cannot start", "dispatcher");
    size_t done = 0;
    while (done < size) {
      const ssize_t n = write(toServer[1], data + done, size - done);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;  // the dispatcher ended the conversation early
      done += static_cast<size_t>(n);
    }
    close(toServer[1]);
    dispatcher.run();
  }
  reader.join();
  if (fchdir(startDir) != 0) fuzzscratch::die("cannot return to", "the start directory");
  return 0;
}
