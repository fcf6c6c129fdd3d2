// Auto-reset event with an optional millisecond time-out.
// signal() sets the flag and wakes one waiter; a signal with nobody waiting is kept and releases the
// next wait at once, and several signals before a wait count as one. A wait waits at most once on
// the condition and then consumes the flag: a spurious wake-up returns as if signalled, so callers
// recheck their own condition. Thread-safe; not copyable.
#pragma once

#include <pthread.h>

#include <boost/noncopyable.hpp>

namespace vorlane {
namespace tiny {

class VEvent : private boost::noncopyable {
 public:
  VEvent();
  ~VEvent();

  void signal();
  void wait();
  // ms == -1 waits like wait(). Returns false on a time-out, with errno set to ETIMEDOUT.
  bool timedwait(long ms);

 private:
  pthread_mutex_t mutex_;
  pthread_cond_t cond_;
  int signalled_;
};

}  // namespace tiny
}  // namespace vorlane
