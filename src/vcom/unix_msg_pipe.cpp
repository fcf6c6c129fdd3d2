#include "vcom/unix_msg_pipe.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <memory>

#include "vcom/safe_write.h"

namespace vorlane {
namespace vcom {

namespace {

enum { kP2CRead = 0, kP2CWrite = 1, kC2PRead = 2, kC2PWrite = 3 };

const unsigned kDropChunk = 65535;

void closeIfOpen(int& fd) {
  if (fd != -1) {
    ::close(fd);
    fd = -1;
  }
}

}  // namespace

UnixMsgPipe::UnixMsgPipe() : readFd_(-1), writeFd_(-1), fdLimit_(1024), wakeRead_(-1), wakeWrite_(-1) {
  std::fill(pipeEnds_, pipeEnds_ + 4, -1);
  struct rlimit lim;
  if (getrlimit(RLIMIT_NOFILE, &lim) == 0)
    fdLimit_ = lim.rlim_cur > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int>(lim.rlim_cur);
}

UnixMsgPipe::UnixMsgPipe(const char* cmdLine) : UnixMsgPipe() {
  if (!processCmdLineArgs(cmdLine)) {
    readFd_ = -1;
    writeFd_ = -1;
  }
}

UnixMsgPipe::~UnixMsgPipe() {
  close();
  closeDuplexPipe();
  closeIfOpen(wakeRead_);
  closeIfOpen(wakeWrite_);
}

bool UnixMsgPipe::enableInterrupt() {
  if (wakeRead_ != -1) return true;
  int fds[2];
  if (pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) return false;
  wakeRead_ = fds[0];
  wakeWrite_ = fds[1];
  return true;
}

void UnixMsgPipe::interrupt() {
  if (wakeWrite_ == -1) return;
  // The byte is never read, so every later transfer fails at once too; a full pipe already wakes.
  const char byte = 1;
  ssize_t ignored = ::write(wakeWrite_, &byte, 1);
  (void)ignored;
}

bool UnixMsgPipe::waitReady(int fd, short events) {
  if (wakeRead_ == -1) return true;
  for (;;) {
    struct pollfd fds[2] = {{fd, events, 0}, {wakeRead_, POLLIN, 0}};
    const int ready = poll(fds, 2, -1);
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) return false;
    if (fds[1].revents) {
      errno = ECANCELED;
      return false;
    }
    if (fds[0].revents) return true;
  }
}

bool UnixMsgPipe::inputEnded() const {
  struct pollfd fd = {readFd_, POLLIN, 0};
  return poll(&fd, 1, 0) == 1 && (fd.revents & (POLLHUP | POLLERR | POLLNVAL));
}

bool UnixMsgPipe::getFdNum(const char* s, int* fd) {
  if (!s || !fd) return false;
  *fd = 0;
  const unsigned char* p = reinterpret_cast<const unsigned char*>(s);
  while (isspace(*p)) ++p;
  int sign = 1;
  if (*p == '-') {
    sign = -1;
    ++p;
    while (isspace(*p)) ++p;
  }
  if (!isdigit(*p)) return false;
  // Descriptor numbers are small; saturate instead of overflowing on a garbage word.
  long long value = 0;
  for (; isdigit(*p); ++p) value = std::min(value * 10 + (*p - '0'), 0x7FFFFFFFLL);
  *fd = static_cast<int>(value) * sign;
  return true;
}

bool UnixMsgPipe::processCmdLineArgs(const char* cmdLine) {
  if (!cmdLine) return false;
  if (!getFdNum(cmdLine, &readFd_)) return false;
  const unsigned char* p = reinterpret_cast<const unsigned char*>(cmdLine);
  while (isspace(*p)) ++p;
  while (*p && !isspace(*p)) ++p;
  return getFdNum(reinterpret_cast<const char*>(p), &writeFd_);
}

bool UnixMsgPipe::initServer() { return readFd_ != -1 && writeFd_ != -1; }

bool UnixMsgPipe::initClient() {
  int toChild[2] = {-1, -1};
  int toParent[2] = {-1, -1};
  if (pipe2(toChild, O_CLOEXEC) != 0 || pipe2(toParent, O_CLOEXEC) != 0) {
    setError(IOError::kPipeFailed, "Unable to open duplex pipe");
    for (int& fd : toChild) closeIfOpen(fd);
    for (int& fd : toParent) closeIfOpen(fd);
    return readFd_ != -1 && writeFd_ != -1;
  }
  readFd_ = toParent[0];
  writeFd_ = toChild[1];
  pipeEnds_[kP2CRead] = toChild[0];
  pipeEnds_[kP2CWrite] = -1;
  pipeEnds_[kC2PRead] = -1;
  pipeEnds_[kC2PWrite] = toParent[1];
  char num[16];
  snprintf(num, sizeof num, "%d", pipeEnds_[kP2CRead]);
  childReadArg_ = num;
  snprintf(num, sizeof num, "%d", pipeEnds_[kC2PWrite]);
  childWriteArg_ = num;
  return readFd_ != -1 && writeFd_ != -1;
}

bool UnixMsgPipe::waitForConn(unsigned, std::string& err) {
  err.clear();
  return true;
}

bool UnixMsgPipe::getCmdLineArgs(std::string& args) {
  args += " ";
  args += childReadArg_;
  args += " ";
  args += childWriteArg_;
  return true;
}

bool UnixMsgPipe::getCmdLineArgs(std::string& readArg, std::string& writeArg) {
  readArg = childReadArg_;
  writeArg = childWriteArg_;
  return true;
}

void UnixMsgPipe::closeUnusedFdsChild(int keepFd) {
  for (int end : {pipeEnds_[kP2CRead], pipeEnds_[kC2PWrite]}) {
    if (end >= 0) fcntl(end, F_SETFD, 0);
  }
  int keep[3] = {pipeEnds_[kP2CRead], pipeEnds_[kC2PWrite], keepFd};
  std::sort(keep, keep + 3);
  // close_range closes whole spans in one call; the loop up to the limit is the fallback for kernels
  // without it. Both are async-signal-safe.
  unsigned from = 3;
  bool ranged = true;
  for (int k : keep) {
    if (k < static_cast<int>(from)) continue;
    if (static_cast<unsigned>(k) > from && close_range(from, static_cast<unsigned>(k) - 1, 0) != 0) ranged = false;
    from = static_cast<unsigned>(k) + 1;
  }
  if (ranged && close_range(from, ~0U, 0) == 0) return;
  for (int fd = 3; fd <= fdLimit_; ++fd) {
    if (fd != keep[0] && fd != keep[1] && fd != keep[2]) ::close(fd);
  }
}

void UnixMsgPipe::closeUnusedFdsParent() { closeDuplexPipe(); }

void UnixMsgPipe::closeDuplexPipe() {
  for (int& fd : pipeEnds_) closeIfOpen(fd);
}

void UnixMsgPipe::closeReadFd() { closeIfOpen(readFd_); }

void UnixMsgPipe::closeWriteFd() { closeIfOpen(writeFd_); }

void UnixMsgPipe::close() {
  closeIfOpen(readFd_);
  closeIfOpen(writeFd_);
}

int UnixMsgPipe::send(const char* buf, unsigned len) {
  while (len > 0) {
    // Once the pipe has room, a write of at most PIPE_BUF bytes never blocks, so a stalled parent
    // leaves the sender waiting in poll, where an interrupt reaches it.
    if (!waitReady(writeFd_, POLLOUT)) return -1;
    const ssize_t n = writeNoSigpipe(writeFd_, buf, std::min(len, static_cast<unsigned>(PIPE_BUF)));
    const int writeErrno = errno;
    // Kept from the original transport: harmless on a pipe (EINVAL), a real flush when the write end
    // has been redirected to a file. The write's error is what callers report, not fsync's.
    fsync(writeFd_);
    errno = writeErrno;
    if (n <= 0) return -1;
    buf += n;
    len -= static_cast<unsigned>(n);
  }
  return 0;
}

bool UnixMsgPipe::recv(char* buf, unsigned len) {
  if (!buf) return false;
  while (len > 0) {
    if (!waitReady(readFd_, POLLIN)) return false;
    const ssize_t n = ::read(readFd_, buf, len);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    buf += n;
    len -= static_cast<unsigned>(n);
  }
  return true;
}

int UnixMsgPipe::drop(unsigned long long len) {
  if (len == 0) return 0;
  std::unique_ptr<char[]> sink(new (std::nothrow) char[65536]);
  if (!sink) {
    setError(IOError::kRecvFailed, "Unable to drop complete message");
    return -1;
  }
  while (len > 0) {
    const unsigned chunk = len > kDropChunk ? kDropChunk : static_cast<unsigned>(len);
    if (!waitReady(readFd_, POLLIN)) {
      setError(IOError::kRecvFailed, "Unable to drop complete message");
      return -1;
    }
    const ssize_t n = ::read(readFd_, sink.get(), chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      setError(IOError::kRecvFailed, "Unable to drop complete message");
      return -1;
    }
    len -= static_cast<unsigned long long>(n);
  }
  return 0;
}

}  // namespace vcom
}  // namespace vorlane
