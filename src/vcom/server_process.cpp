#include "vcom/server_process.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "vcom/message_types.h"
#include "vcom/safe_write.h"

namespace vorlane {
namespace vcom {

namespace {

const size_t kReadChunk = 65536;

long long nowMs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Milliseconds left until deadline for poll: -1 for no deadline, 0 once it has passed.
int remainingMs(long long deadline) {
  if (deadline < 0) return -1;
  const long long left = deadline - nowMs();
  return left <= 0 ? 0 : static_cast<int>(std::min(left, 0x7FFFFFFFLL));
}

long long deadlineAfter(long timeoutMs) { return timeoutMs < 0 ? -1 : nowMs() + timeoutMs; }

std::string errnoText(const char* what, int err) { return std::string(what) + ": " + strerror(err); }

bool isUnsolicitedNoise(const Msg& msg) {
  return msg.seq == 0 && (msg.type == HeartBeat || msg.type == LogDbg || msg.type == LogWrn || msg.type == LogErr);
}

}  // namespace

ServerProcess::ServerProcess()
    : pid_(-1), reaped_(false), seq_(0), inStart_(0), eof_(false), broken_(false) {}

ServerProcess::~ServerProcess() {
  if (pipe_) {
    pipe_->close();
    pipe_->closeDuplexPipe();
  }
  if (pid_ > 0 && !reaped_ && !waitExit(kExitGraceMs, nullptr)) {
    kill(SIGKILL);
    waitExit(-1, nullptr);
  }
}

ServerProcess::Result ServerProcess::fail(Result r, const std::string& text) {
  error_ = text;
  return r;
}

bool ServerProcess::start(const std::string& path, const Options& options) {
  if (pid_ > 0 && !reaped_) {
    error_ = "start " + path + ": a child is already running (pid " + std::to_string(pid_) + ")";
    return false;
  }
  options_ = options;
  pid_ = -1;
  reaped_ = false;
  exit_ = ChildExit();
  in_.clear();
  inStart_ = 0;
  eof_ = broken_ = false;
  backlog_.clear();

  pipe_.reset(new UnixMsgPipe());
  if (!pipe_->initClient()) {
    error_ = errnoText("start: Unable to open duplex pipe", errno);
    return false;
  }
  // Reports a failed exec to the parent: closed by a successful exec, or carrying the child's errno.
  int status[2];
  if (pipe2(status, O_CLOEXEC) != 0) {
    error_ = errnoText("start: status pipe", errno);
    pipe_.reset();
    return false;
  }
  std::string readArg, writeArg;
  pipe_->getCmdLineArgs(readArg, writeArg);
  // Everything the child needs is built before fork: after it only async-signal-safe calls are allowed.
  std::vector<char*> argv = {const_cast<char*>(path.c_str()), const_cast<char*>(readArg.c_str()),
                             const_cast<char*>(writeArg.c_str()), nullptr};
  sigset_t none;
  sigemptyset(&none);

  const pid_t child = fork();
  if (child < 0) {
    const int err = errno;
    ::close(status[0]);
    ::close(status[1]);
    pipe_.reset();
    error_ = errnoText("start: fork", err);
    return false;
  }
  if (child == 0) {
    if (options_.ownProcessGroup) setpgid(0, 0);
    // A mask the parent set for its own threads must not follow the server into exec.
    sigprocmask(SIG_SETMASK, &none, nullptr);
    pipe_->closeUnusedFdsChild(status[1]);
    execv(path.c_str(), argv.data());
    const int err = errno;
    ssize_t ignored = ::write(status[1], &err, sizeof err);
    (void)ignored;
    _exit(127);
  }

  pid_ = child;
  if (options_.ownProcessGroup) setpgid(child, child);  // both sides, so no race with an early kill
  pipe_->closeUnusedFdsParent();
  ::close(status[1]);
  int childErr = 0;
  ssize_t n;
  do {
    n = ::read(status[0], &childErr, sizeof childErr);
  } while (n < 0 && errno == EINTR);
  ::close(status[0]);
  if (n == static_cast<ssize_t>(sizeof childErr)) {
    waitExit(-1, nullptr);
    pipe_.reset();
    error_ = errnoText(("start: cannot execute " + path).c_str(), childErr);
    return false;
  }
  fcntl(pipe_->getReadFd(), F_SETFL, fcntl(pipe_->getReadFd(), F_GETFL) | O_NONBLOCK);
  fcntl(pipe_->getWriteFd(), F_SETFL, fcntl(pipe_->getWriteFd(), F_GETFL) | O_NONBLOCK);
  return true;
}

uint32_t ServerProcess::nextSeq() {
  if (++seq_ == 0) seq_ = 1;
  return seq_;
}

ServerProcess::Result ServerProcess::writeAll(const char* bytes, size_t len, long timeoutMs) {
  const int fd = pipe_ ? pipe_->getWriteFd() : -1;
  if (fd < 0) return fail(kClosed, "send: the write end is closed");
  const long long deadline = deadlineAfter(timeoutMs);
  while (len > 0) {
    const ssize_t n = writeNoSigpipe(fd, bytes, len);
    if (n > 0) {
      bytes += n;
      len -= static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno == EPIPE) return fail(kClosed, "send: the server's input is closed (EPIPE)");
    if (n < 0 && errno != EAGAIN) return fail(kError, errnoText("send: write", errno));
    struct pollfd pfd = {fd, POLLOUT, 0};
    const int ready = poll(&pfd, 1, remainingMs(deadline));
    if (ready == 0) return fail(kTimeout, "send: the server does not read its input");
    if (ready < 0 && errno != EINTR) return fail(kError, errnoText("send: poll", errno));
  }
  return kOk;
}

ServerProcess::Result ServerProcess::send(const Msg& msg, long timeoutMs) {
  if (msg.size < Msg::kHeaderSize || msg.size > Msg::kMaxWireSize)
    return fail(kError, "send: message size " + std::to_string(msg.size) + " cannot be framed");
  std::vector<char> wire(static_cast<size_t>(msg.size));
  encodeHeader(msg, reinterpret_cast<unsigned char*>(wire.data()));
  std::memcpy(wire.data() + Msg::kHeaderSize, msg.payload(), msg.payloadSize());
  return writeAll(wire.data(), wire.size(), timeoutMs);
}

uint32_t ServerProcess::sendRequest(uint32_t type, const void* payload, size_t len, long timeoutMs) {
  const uint32_t seq = nextSeq();
  MsgPtr msg(Msg::create(Msg::kHeaderSize + len, type, seq));
  if (!msg) {
    error_ = "send: cannot allocate a message of " + std::to_string(len) + " payload bytes";
    return 0;
  }
  if (len) std::memcpy(msg->payload(), payload, len);
  return send(*msg, timeoutMs) == kOk ? seq : 0;
}

ServerProcess::Result ServerProcess::sendRaw(const void* bytes, size_t len, long timeoutMs) {
  return writeAll(static_cast<const char*>(bytes), len, timeoutMs);
}

ServerProcess::Result ServerProcess::extract(MsgPtr& out) {
  const size_t avail = in_.size() - inStart_;
  if (avail < Msg::kHeaderSize) return kTimeout;
  Msg hdr;
  decodeHeader(reinterpret_cast<const unsigned char*>(in_.data() + inStart_), hdr);
  if (hdr.size < Msg::kHeaderSize || hdr.size > options_.maxMessageSize) {
    broken_ = true;
    return fail(kError, "receive: malformed frame from the server (size " + std::to_string(hdr.size) +
                            ", type " + std::to_string(hdr.type) + ")");
  }
  if (avail < hdr.size) return kTimeout;
  Msg* msg = Msg::createFor(hdr);
  if (!msg) return fail(kError, "receive: cannot allocate " + std::to_string(hdr.size) + " bytes");
  std::memcpy(msg->payload(), in_.data() + inStart_ + Msg::kHeaderSize, msg->payloadSize());
  inStart_ += static_cast<size_t>(hdr.size);
  if (inStart_ == in_.size()) {
    in_.clear();
    inStart_ = 0;
  }
  out.reset(msg);
  return kOk;
}

ServerProcess::Result ServerProcess::receive(MsgPtr& out, long timeoutMs) {
  if (!backlog_.empty()) {
    out = std::move(backlog_.front());
    backlog_.pop_front();
    return kOk;
  }
  if (broken_) return fail(kError, "receive: the stream from the server is unusable after a bad frame");
  const int fd = pipe_ ? pipe_->getReadFd() : -1;
  const long long deadline = deadlineAfter(timeoutMs);
  for (;;) {
    const Result r = extract(out);
    if (r != kTimeout) return r;
    if (eof_ || fd < 0) {
      if (in_.size() > inStart_) return fail(kClosed, "receive: the server ended in the middle of a message");
      return fail(kClosed, "receive: the server closed its output");
    }
    if (inStart_ > 0 && inStart_ >= in_.size() / 2) {
      in_.erase(in_.begin(), in_.begin() + static_cast<std::ptrdiff_t>(inStart_));
      inStart_ = 0;
    }
    const size_t old = in_.size();
    in_.resize(old + kReadChunk);
    const ssize_t n = ::read(fd, in_.data() + old, kReadChunk);
    in_.resize(old + (n > 0 ? static_cast<size_t>(n) : 0));
    if (n > 0) continue;
    if (n == 0) {
      eof_ = true;
      continue;
    }
    if (errno != EAGAIN && errno != EINTR) return fail(kError, errnoText("receive: read", errno));
    struct pollfd pfd = {fd, POLLIN, 0};
    const int ready = poll(&pfd, 1, remainingMs(deadline));
    if (ready == 0) return fail(kTimeout, "receive: no message within the time-out");
    if (ready < 0 && errno != EINTR) return fail(kError, errnoText("receive: poll", errno));
  }
}

ServerProcess::Result ServerProcess::waitForAnswer(uint32_t type, uint32_t seq, MsgPtr& out, long timeoutMs) {
  const long long deadline = deadlineAfter(timeoutMs);
  // A message set aside while another answer was awaited may be this one.
  for (auto it = backlog_.begin(); it != backlog_.end(); ++it) {
    if ((*it)->seq == seq && ((*it)->type == type || (*it)->type == GenericResp)) {
      out = std::move(*it);
      backlog_.erase(it);
      return kOk;
    }
  }
  std::deque<MsgPtr> keep;
  keep.swap(backlog_);
  Result r;
  for (;;) {
    MsgPtr msg;
    r = receive(msg, deadline < 0 ? -1 : remainingMs(deadline));
    if (r != kOk) break;
    if (msg->seq == seq && (msg->type == type || msg->type == GenericResp)) {
      out = std::move(msg);
      break;
    }
    if (isUnsolicitedNoise(*msg)) continue;
    if (keep.size() >= options_.maxBacklog) {
      r = fail(kError, "receive: too many messages while waiting for an answer");
      break;
    }
    keep.push_back(std::move(msg));
  }
  keep.swap(backlog_);
  return r;
}

void ServerProcess::closeWriteEnd() {
  if (pipe_) pipe_->closeWriteFd();
}

void ServerProcess::closeReadEnd() {
  if (pipe_) pipe_->closeReadFd();
}

bool ServerProcess::waitExit(long timeoutMs, ChildExit* out) {
  if (pid_ <= 0) return false;
  const long long deadline = deadlineAfter(timeoutMs);
  int step = 1;
  while (!reaped_) {
    int status = 0;
    struct rusage usage;
    const pid_t r = wait4(pid_, &status, timeoutMs < 0 ? 0 : WNOHANG, &usage);
    if (r == pid_) {
      reaped_ = true;
      exit_.exited = WIFEXITED(status);
      exit_.code = exit_.exited ? WEXITSTATUS(status) : 0;
      exit_.signaled = WIFSIGNALED(status);
      exit_.signal = exit_.signaled ? WTERMSIG(status) : 0;
      exit_.usage = usage;
      break;
    }
    if (r < 0 && errno == EINTR) continue;
    if (r < 0) {
      error_ = errnoText("wait for the server", errno);
      return false;
    }
    const int left = remainingMs(deadline);
    if (left == 0) return false;
    // Children of a front end end within milliseconds of closing their pipe; poll often at first.
    poll(nullptr, 0, std::min(step, left));
    step = std::min(step * 2, 50);
  }
  if (out) *out = exit_;
  return true;
}

bool ServerProcess::kill(int sig) {
  if (pid_ <= 0 || reaped_) return false;
  return ::kill(pid_, sig) == 0;
}

}  // namespace vcom
}  // namespace vorlane
