// Ends the process with a given status unless a stretch of code finishes in time. For shutting down a
// server whose threads may be stuck in a system call (a job blocked on a file), which can never be
// joined: the shutdown runs as usual, and if it is still under way when the limit passes the process
// ends without it. Construction arms the deadline on a thread of its own; destruction disarms it and
// joins that thread. If the thread cannot be started, there is no deadline.
// Threading: one object is made and destroyed by one thread.
#pragma once

#include <condition_variable>
#include <mutex>

namespace vorlane {
namespace vcom {

class ExitDeadline {
 public:
  ExitDeadline(long limitMs, int status);
  ExitDeadline(const ExitDeadline&) = delete;
  ExitDeadline& operator=(const ExitDeadline&) = delete;
  ~ExitDeadline();

 private:
  static void watch(void* self);

  const long limitMs_;
  const int status_;
  std::mutex mutex_;
  std::condition_variable disarmed_;
  bool done_ = false;
  unsigned long thread_ = 0;
};

}  // namespace vcom
}  // namespace vorlane
