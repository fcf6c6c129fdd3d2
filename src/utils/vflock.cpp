#include "utils/vflock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstring>

#include "tiny/thread.h"
#include "utils/string_utils.h"

namespace vorlane {
namespace utils {

VFLock::VFLock()
    : valid_(false), counter_(0), ownsFd_(false), fd_(0), ownerThread_(tiny::threadID()) {
  memset(path_, 0, sizeof(path_));
}

VFLock::~VFLock() {
  releaseAll();
  if (ownsFd_) ::close(fd_);
}

bool VFLock::init(const char* name, bool create) {
  if (!name) return false;
  strncpys(path_, name, sizeof(path_));
  if (valid_) return false;
  int fd = open64(path_, create ? O_RDWR | O_CREAT : O_RDWR, 0600);
  if (fd != -1) {
    fd_ = fd;
    valid_ = true;
    ownsFd_ = true;
  }
  counter_ = 0;
  return valid_;
}

bool VFLock::init(int fd) {
  fd_ = fd;
  valid_ = true;
  counter_ = 0;
  return true;
}

bool VFLock::lock() { return writeLockInternal(false); }
bool VFLock::writeLock() { return writeLockInternal(false); }
bool VFLock::tryLock() { return writeLockInternal(true); }
bool VFLock::tryWriteLock() { return writeLockInternal(true); }
bool VFLock::readLock() { return readLockInternal(false); }
bool VFLock::tryReadLock() { return readLockInternal(true); }

void VFLock::unlock() {
  if (!valid_) return;
  decrementLockCounter();
  if (counter_ == 0) flock(fd_, LOCK_UN);
}

void VFLock::decrementLockCounter() {
  if (counter_ > 0) {
    --counter_;
  } else if (counter_ < 0) {
    ++counter_;
  }
}

bool VFLock::testThreadID() const { return tiny::threadID() == ownerThread_; }

void VFLock::detach() {
  releaseAll();
  valid_ = false;
  fd_ = 0;
  ownsFd_ = false;
}

void VFLock::releaseAll() {
  // The descriptor may live on (it is owned elsewhere) or be shared by a dup, so a nested lock
  // is released whole here rather than stepped down once and left held.
  if (!valid_ || counter_ == 0) return;
  counter_ = 0;
  flock(fd_, LOCK_UN);
}

bool VFLock::writeLockInternal(bool tryOnly) {
  if (!testThreadID()) return false;
  if (counter_ > 0) return false;
  if (counter_ < 0) {
    --counter_;
    return true;
  }
  if (!lockInternal(true, tryOnly)) return false;
  counter_ = -1;
  return true;
}

bool VFLock::readLockInternal(bool tryOnly) {
  if (!testThreadID()) return false;
  if (counter_ > 0) {
    ++counter_;
    return true;
  }
  // A shared request under a held exclusive lock only deepens the exclusive nesting.
  if (counter_ < 0) {
    --counter_;
    return true;
  }
  if (!lockInternal(false, tryOnly)) return false;
  counter_ = 1;
  return true;
}

bool VFLock::lockInternal(bool exclusive, bool tryOnly) {
  if (!valid_) return false;
  int op = (exclusive ? LOCK_EX : LOCK_SH) | (tryOnly ? LOCK_NB : 0);
  return flock(fd_, op) == 0;
}

}  // namespace utils
}  // namespace vorlane
