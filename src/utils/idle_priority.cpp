#include "utils/idle_priority.h"

#include <linux/ioprio.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "tiny/dir.h"

namespace vorlane {
namespace utils {

namespace {

const int kLowestCpuPriority = 19;

// A thread that ended since the listing (ESRCH) needs no setting.
bool makeThreadIdle(int tid, std::string& error) {
  if (::syscall(SYS_ioprio_set, IOPRIO_WHO_PROCESS, tid, IOPRIO_PRIO_VALUE(IOPRIO_CLASS_IDLE, 0)) != 0 &&
      errno != ESRCH) {
    error = "ioprio_set(idle) for thread " + std::to_string(tid) + ": " + strerror(errno);
    return false;
  }
  // On Linux the nice value belongs to the thread, so PRIO_PROCESS with a thread id sets just that one.
  if (::setpriority(PRIO_PROCESS, static_cast<id_t>(tid), kLowestCpuPriority) != 0 && errno != ESRCH) {
    error = "setpriority(19) for thread " + std::to_string(tid) + ": " + strerror(errno);
    return false;
  }
  return true;
}

}  // namespace

bool enterIdlePriority(std::string& error) {
  tiny::DirStreamGuard tasks("/proc/self/task");
  // Without /proc only the calling thread (and those it starts) can be reached.
  if (!tasks.getDir()) return makeThreadIdle(0, error);
  bool ok = true;
  while (const dirent* entry = ::readdir(tasks.getDir()->stream)) {
    const int tid = atoi(entry->d_name);
    if (tid > 0) ok = makeThreadIdle(tid, error) && ok;
  }
  return ok;
}

}  // namespace utils
}  // namespace vorlane
