// The parent's side of vcom: starts a server program as a child over two pipes, exactly as the mail
// server does (UnixMsgPipe::initClient, fork, closeUnusedFdsChild, exec with the child's read and write
// descriptor numbers as its two arguments, closeUnusedFdsParent), then sends requests and receives
// messages with time-outs, and learns how the child ended.
//
// Guarantees: no call blocks without a limit unless asked to with a negative time-out; the parent is
// never killed by SIGPIPE (writes go through writeNoSigpipe); a malformed or oversized frame from the
// child is reported as kError, never read past. The destructor closes both ends, gives the child
// kExitGraceMs to end by itself, then kills it with SIGKILL and reaps it, so no zombie is left.
// By default the child runs in its own process group, so that a Ctrl-C at the terminal reaches only
// the parent, which decides whether to ask for a stop or to kill the child.
//
// Not thread-safe: one thread drives one ServerProcess. Independent objects may be used from
// different threads (all descriptors are close-on-exec, so concurrent starts do not leak pipe ends
// into each other's children).
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include <boost/noncopyable.hpp>

#include "vcom/msg.h"
#include "vcom/unix_msg_pipe.h"

namespace vorlane {
namespace vcom {

// How a child ended, with its resource usage (ru_maxrss is its peak resident size in KiB).
struct ChildExit {
  bool exited = false;    // ended through exit(); code holds the status
  int code = 0;
  bool signaled = false;  // killed by a signal; signal holds it
  int signal = 0;
  struct rusage usage = {};
};

struct ServerProcessOptions {
  bool ownProcessGroup = true;
  // Frames larger than this from the child are protocol errors (the largest real one is 1056 bytes).
  uint64_t maxMessageSize = 1 << 20;
  // Messages kept aside by waitForAnswer for later receive calls; more is an error.
  size_t maxBacklog = 100000;
};

class ServerProcess : private boost::noncopyable {
 public:
  enum Result { kOk, kTimeout, kClosed, kError };

  typedef ServerProcessOptions Options;

  static const long kExitGraceMs = 2000;

  ServerProcess();
  ~ServerProcess();

  // Starts `path` as the child. False, with lastError() naming the path and the system error, when the
  // pipes cannot be made, the fork fails or the program cannot be executed.
  bool start(const std::string& path, const Options& options = Options());
  pid_t pid() const { return pid_; }
  const std::string& lastError() const { return error_; }

  // A fresh sequence number for a request, never 0.
  uint32_t nextSeq();
  // Writes one message (header converted to wire order). kClosed when the child's input is gone.
  Result send(const Msg& msg, long timeoutMs);
  // Builds and sends a request with a fresh sequence number; returns it, or 0 on failure.
  uint32_t sendRequest(uint32_t type, const void* payload, size_t len, long timeoutMs);
  // Writes raw bytes as they are (tests use it for malformed headers).
  Result sendRaw(const void* bytes, size_t len, long timeoutMs);

  // The next message (messages set aside by waitForAnswer first). kTimeout when none arrived in time,
  // kClosed at the end of the child's output, kError on a malformed frame or a read error.
  // A negative time-out waits without limit.
  Result receive(MsgPtr& out, long timeoutMs);
  // The answer to request `seq`: the first message carrying seq whose type is `type` or GenericResp.
  // Heartbeats and log records on the way are dropped; other messages are kept for receive().
  Result waitForAnswer(uint32_t type, uint32_t seq, MsgPtr& out, long timeoutMs);

  // Closing the write end is the normal way to end the server; closing the read end makes its next
  // write fail.
  void closeWriteEnd();
  void closeReadEnd();

  // Waits up to timeoutMs (negative: without limit) for the child to end; true once it has, with *out
  // filled (also on later calls).
  bool waitExit(long timeoutMs, ChildExit* out);
  // Sends sig to the child; false when there is no child to signal.
  bool kill(int sig);

 private:
  Result fail(Result r, const std::string& text);
  Result writeAll(const char* bytes, size_t len, long timeoutMs);
  // Takes one complete frame from the input buffer; kTimeout when none is complete yet.
  Result extract(MsgPtr& out);

  Options options_;
  std::unique_ptr<UnixMsgPipe> pipe_;
  pid_t pid_;
  bool reaped_;
  ChildExit exit_;
  uint32_t seq_;
  std::vector<char> in_;
  size_t inStart_;
  bool eof_;
  bool broken_;
  std::deque<MsgPtr> backlog_;
  std::string error_;
};

}  // namespace vcom
}  // namespace vorlane
