#include "utils/vfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace vorlane {
namespace utils {

namespace {

int accessMode(VFile::AccessFlags access) {
  switch (access) {
    case VFile::AccessWrite:
      return O_WRONLY;
    case VFile::AccessReadWrite:
      return O_RDWR;
    default:
      return O_RDONLY;
  }
}

int creationMode(VFile::CreationFlags creation) {
  switch (creation) {
    case VFile::CreateNew:
      return O_CREAT | O_EXCL;
    case VFile::CreateAlways:
      return O_CREAT | O_TRUNC;
    case VFile::OpenAlways:
      return O_CREAT;
    case VFile::TruncateExisting:
      return O_TRUNC;
    case VFile::OpenAppend:
      return O_CREAT | O_APPEND;
    default:
      return 0;
  }
}

}  // namespace

VFile::VFile() : fd_(-1), offset_(-1) {}

VFile::~VFile() { close(); }

bool VFile::open(const char* name, const char* mode) {
  int flags;
  switch (mode[0]) {
    case 'w':
      flags = O_WRONLY | O_CREAT | O_TRUNC;
      break;
    case 'a':
      flags = O_WRONLY | O_CREAT | O_APPEND;
      break;
    default:
      flags = O_RDONLY;
      break;
  }
  if (mode[0] != '\0') {
    for (int i = 1; i <= 4 && mode[i] != '\0'; ++i) {
      if (mode[i] == '+') {
        flags = (flags & ~O_ACCMODE) | O_RDWR;
        break;
      }
    }
  }
  return doOpen(name, flags);
}

bool VFile::open(const char* name, AccessFlags access, CreationFlags creation) {
  // Truncating a file that cannot be written is refused before it is touched.
  if (creation == TruncateExisting && accessMode(access) == O_RDONLY) return false;
  return doOpen(name, accessMode(access) | creationMode(creation));
}

bool VFile::wOpen(const char* name, const char* mode) { return open(name, mode); }

bool VFile::wOpen(const char* name, AccessFlags access, CreationFlags creation) {
  return open(name, access, creation);
}

bool VFile::doOpen(const char* name, int flags) { return doOpenAt(AT_FDCWD, name, flags); }

bool VFile::doOpenAt(int dirFd, const char* name, int flags) {
  if (fd_ != -1) {
    errno = EBUSY;
    return false;
  }
  int fd = openat64(dirFd, name, flags, 0600);
  if (fd == -1) return false;
  fd_ = fd;
  offset_ = 0;
  lock_.init(fd);
  return postOpenOp(fd, (flags & O_ACCMODE) == O_RDONLY ? "r" : "w");
}

void VFile::close() {
  if (fd_ == -1) return;
  flush();
  lock_.detach();
  ::close(fd_);
  fd_ = -1;
  offset_ = -1;
  // Bytes buffered from this descriptor must not be served after a later open.
  resetBuffers();
}

bool VFile::truncate() {
  const long long pos = i_tell64();
  if (pos == -1) return false;
  return ftruncate64(fd_, pos) == 0;
}

bool VFile::lock() { return lock_.lock(); }
bool VFile::writeLock() { return lock_.writeLock(); }
bool VFile::tryLock() { return lock_.tryLock(); }
bool VFile::tryWriteLock() { return lock_.tryWriteLock(); }
bool VFile::readLock() { return lock_.readLock(); }
bool VFile::tryReadLock() { return lock_.tryReadLock(); }
void VFile::unlock() { lock_.unlock(); }

bool VFile::isClosed() const { return fd_ == -1; }

int VFile::i_read(char* buf, unsigned len) {
  const ssize_t n = ::read(fd_, buf, len);
  if (n > 0 && offset_ >= 0) offset_ += n;
  return static_cast<int>(n);
}

int VFile::i_write(const char* buf, unsigned len) {
  offset_ = -1;
  return static_cast<int>(::write(fd_, buf, len));
}

int VFile::i_seek(long offset, int whence) { return i_seek64(offset, whence); }

long VFile::i_tell() { return static_cast<long>(static_cast<int32_t>(i_tell64())); }

int VFile::i_seek64(long long offset, int whence) {
  offset_ = lseek64(fd_, offset, whence);
  return offset_ == -1 ? -1 : 0;
}

long long VFile::i_tell64() {
  if (offset_ < 0) offset_ = lseek64(fd_, 0, SEEK_CUR);
  return offset_;
}

bool VFile::postOpenOp(int, const char*) { return true; }

}  // namespace utils
}  // namespace vorlane
