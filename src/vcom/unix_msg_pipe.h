// The vcom byte transport over two anonymous pipes, one per direction.
// Server side: the read and write descriptor numbers come from the command line ("7 8": two decimal
// numbers separated by white space; leading blanks and anything after a number inside its word are
// tolerated, further words ignored). Client side (the parent): initClient creates both pipes, the
// child's two descriptor numbers go onto the child's command line (getCmdLineArgs), the child calls
// closeUnusedFdsChild after fork and before exec, the parent closeUnusedFdsParent after fork.
// All pipe ends are created close-on-exec, so that no other program the parent starts inherits them
// (an inherited write end would keep the server from ever seeing the end of its input);
// closeUnusedFdsChild makes the child's two ends inheritable again.
// Threading: send is used by one thread and recv/drop by another; the descriptors are set up before
// those threads start and closed after they end. interrupt may be called from any thread, so a thread
// blocked on either direction can always be ended and joined before the pipe goes away.
#pragma once

#include <string>

#include "vcom/msg_pipe.h"

namespace vorlane {
namespace vcom {

class UnixMsgPipe : public MsgPipe {
 public:
  // Client side: no descriptors yet; reads the soft limit on open files for closeUnusedFdsChild.
  UnixMsgPipe();
  // Server side: descriptors from cmdLine; both -1 when it does not parse.
  explicit UnixMsgPipe(const char* cmdLine);

  // Writes all len bytes (fsync after each write, a no-op on pipes kept for descriptors that are
  // files). 0 on success, -1 when a write fails or writes nothing. Never raises SIGPIPE.
  int send(const char* buf, unsigned len) override;
  // True when len bytes were read; false at the end of the stream or on a read error.
  bool recv(char* buf, unsigned len) override;
  // Reads and discards len bytes in chunks of at most 65535; -1 with code 2 when the stream ends first.
  int drop(unsigned long long len) override;
  ~UnixMsgPipe() override;
  bool initClient() override;
  // A pipe needs no connection step: clears err and returns true.
  bool waitForConn(unsigned timeout, std::string& err) override;
  // True when both descriptors are known; opens nothing.
  bool initServer() override;
  // Appends " <child read fd> <child write fd>" to args.
  bool getCmdLineArgs(std::string& args) override;
  void close() override;

  bool getCmdLineArgs(std::string& readArg, std::string& writeArg);
  bool processCmdLineArgs(const char* cmdLine);
  // Parses an optionally signed decimal number after white space; trailing characters are ignored.
  static bool getFdNum(const char* s, int* fd);

  // In the child between fork and exec (async-signal-safe): closes every descriptor from 3 up, except
  // the child's two pipe ends and keepFd (-1 for none), and makes the two ends survive exec.
  void closeUnusedFdsChild(int keepFd = -1);
  // In the parent after fork: closes the child's ends.
  void closeUnusedFdsParent();
  void closeDuplexPipe();

  // Makes blocking transfers interruptible: creates a private wake-up pipe that send, recv and drop
  // watch beside their descriptor. False when it cannot be created (transfers then stay
  // uninterruptible).
  bool enableInterrupt();
  // Ends a transfer in progress in either direction, and every later one, with failure (errno
  // ECANCELED). Callable from any thread and from signal handlers.
  void interrupt();

  // Every writer of the input has closed it (bytes may still be unread). Does not block.
  bool inputEnded() const;

  // Close one direction only (the parent ends the conversation by closing its write end).
  void closeReadFd();
  void closeWriteFd();
  int getReadFd() const { return readFd_; }
  int getWriteFd() const { return writeFd_; }

 private:
  int readFd_;
  int writeFd_;
  std::string childReadArg_;
  std::string childWriteArg_;
  // Parent-to-child read and write end, then child-to-parent read and write end.
  int pipeEnds_[4];
  int fdLimit_;
  int wakeRead_;
  int wakeWrite_;

  // Waits until fd is ready for events (or has reached its end); false once interrupted.
  bool waitReady(int fd, short events);
};

}  // namespace vcom
}  // namespace vorlane
