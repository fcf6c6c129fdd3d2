#include "utils/idle_priority.h"

#include <linux/ioprio.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>

using vorlane::utils::enterIdlePriority;

namespace {

// Exit-status bits of the child: which thread missed which setting.
enum : int { kCallFailed = 1, kCallerIo = 2, kCallerCpu = 4, kOtherIo = 8, kOtherCpu = 16 };

int missedSettings(int ioBit, int cpuBit) {
  int missed = 0;
  const long io = ::syscall(SYS_ioprio_get, IOPRIO_WHO_PROCESS, 0);
  if (io < 0 || IOPRIO_PRIO_CLASS(io) != IOPRIO_CLASS_IDLE) missed |= ioBit;
  errno = 0;
  if (::getpriority(PRIO_PROCESS, 0) != 19) missed |= cpuBit;
  return missed;
}

}  // namespace

// Runs in a child so that the test process keeps its priority. A thread that already runs when the
// priority is lowered is lowered too, not only the calling thread.
TEST(IdlePriority, LowersEveryThreadOfTheProcess) {
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) ::_exit(kCallFailed);
    int otherMissed = 0;
    std::thread other([&] {
      char go;
      if (::read(pipeFds[0], &go, 1) != 1) otherMissed = kOtherIo | kOtherCpu;
      else otherMissed = missedSettings(kOtherIo, kOtherCpu);
    });
    std::string error;
    int status = enterIdlePriority(error) ? 0 : kCallFailed;
    if (::write(pipeFds[1], "g", 1) != 1) status |= kCallFailed;
    other.join();
    ::_exit(status | otherMissed | missedSettings(kCallerIo, kCallerCpu));
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "bits: 1 call failed, 2/4 caller io/cpu, 8/16 other thread io/cpu";
}
