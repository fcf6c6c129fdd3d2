// The shutdown deadline in a forked child: a shutdown that joins a thread blocked in read(2) (which never
// returns) is cut short with the deadline's status; one that finishes disarms it.
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include <gtest/gtest.h>

#include "tiny/thread.h"
#include "vcom/exit_deadline.h"

using vorlane::vcom::ExitDeadline;

namespace {

void readForever(void* fd) {
  char byte;
  ssize_t ignored = read(*static_cast<int*>(fd), &byte, 1);
  (void)ignored;
}

TEST(ExitDeadline, EndsAShutdownStuckOnABlockedThreadAndOnlyThat) {
  const long kLimitMs = 200;
  struct Case { bool stuck; int status; };
  for (const Case& c : {Case{true, 7}, Case{false, 0}}) {
    int never[2];
    ASSERT_EQ(0, pipe(never));
    const auto start = std::chrono::steady_clock::now();
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      unsigned long blocked = 0;
      {
        ExitDeadline deadline(kLimitMs, 7);
        if (c.stuck && vorlane::tiny::createThread(readForever, &never[0], &blocked))
          vorlane::tiny::waitForThread(blocked);
      }
      poll(nullptr, 0, 2 * kLimitMs);  // a disarmed deadline must not fire later
      _exit(0);
    }
    close(never[0]);
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    close(never[1]);
    ASSERT_TRUE(WIFEXITED(status)) << "stuck " << c.stuck;
    EXPECT_EQ(WEXITSTATUS(status), c.status) << "stuck " << c.stuck;
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(kLimitMs));
  }
}

}  // namespace
