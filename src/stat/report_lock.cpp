#include "stat/report_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

ReportLock::ReportLock(std::string lockPath) : path_(std::move(lockPath)) {}

ReportLock::~ReportLock() { release(); }

ReportLock::Result ReportLock::tryAcquire(std::string& error) {
  if (fd_ < 0) {
    // Readable by all: another user's scan must be able to open the same file to wait for us.
    fd_ = ::open(path_.c_str(), O_RDONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0644);
    if (fd_ < 0) {
      error = "cannot open the report lock " + path_ + ": " + std::strerror(errno);
      return Failed;
    }
  }
  int result;
  do {
    result = ::flock(fd_, LOCK_EX | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  if (result == 0) return Acquired;
  if (errno == EWOULDBLOCK) return Busy;
  error = "cannot lock " + path_ + ": " + std::strerror(errno);
  return Failed;
}

ReportLock::Result ReportLock::waitFor(const std::atomic<bool>& stop, std::string& error) {
  for (;;) {
    const Result result = tryAcquire(error);
    if (result != Busy) return result;
    if (stop) return Stopped;
    std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
  }
}

void ReportLock::release() {
  if (fd_ < 0) return;
  ::close(fd_);  // closing the only descriptor releases the lock
  fd_ = -1;
}
