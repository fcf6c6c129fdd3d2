#include "utils/read_ahead.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "utils/page_cache.h"

namespace vorlane {
namespace utils {

ReadAheadResult announceRead(int dirFd, const char* name, unsigned char listedType, bool checkResidency) {
  ReadAheadResult result;
  struct stat info;
  // Opening a FIFO or a device could block or have side effects, even without blocking reads.
  if (listedType != DT_REG && (::fstatat(dirFd, name, &info, 0) != 0 || !S_ISREG(info.st_mode))) return result;
  const int fd = ::openat(dirFd, name, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) return result;
  if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode)) {
    if (checkResidency) result.resident = anyPageResident(fd, info.st_size);
    result.advised = ::posix_fadvise(fd, 0, 0, POSIX_FADV_WILLNEED) == 0;
  }
  ::close(fd);
  return result;
}

}  // namespace utils
}  // namespace vorlane
