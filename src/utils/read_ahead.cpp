#include "utils/read_ahead.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "utils/page_cache.h"

namespace vorlane {
namespace utils {

namespace {

// The file open read-only if it is a regular file, for the scope of the object.
class RegularFile {
 public:
  RegularFile(int dirFd, const char* name, unsigned char listedType) {
    // Opening a FIFO or a device could block or have side effects, even without blocking reads.
    if (listedType != DT_REG && (::fstatat(dirFd, name, &info_, 0) != 0 || !S_ISREG(info_.st_mode))) return;
    fd_ = ::openat(dirFd, name, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd_ >= 0 && (::fstat(fd_, &info_) != 0 || !S_ISREG(info_.st_mode))) {
      ::close(fd_);
      fd_ = -1;
    }
  }
  ~RegularFile() {
    if (fd_ >= 0) ::close(fd_);
  }
  RegularFile(const RegularFile&) = delete;
  RegularFile& operator=(const RegularFile&) = delete;

  int fd() const { return fd_; }
  off_t size() const { return info_.st_size; }

 private:
  int fd_ = -1;
  struct stat info_ {};
};

}  // namespace

ReadAheadResult announceRead(int dirFd, const char* name, unsigned char listedType, bool checkResidency) {
  ReadAheadResult result;
  const RegularFile file(dirFd, name, listedType);
  if (file.fd() < 0) return result;
  if (checkResidency) result.resident = anyPageResident(file.fd(), file.size());
  result.advised = ::posix_fadvise(file.fd(), 0, 0, POSIX_FADV_WILLNEED) == 0;
  return result;
}

void releaseReadPages(int dirFd, const char* name, unsigned char listedType) {
  const RegularFile file(dirFd, name, listedType);
  if (file.fd() >= 0) releaseCachedPages(file.fd());
}

}  // namespace utils
}  // namespace vorlane
