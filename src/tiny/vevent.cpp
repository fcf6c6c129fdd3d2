#include "tiny/vevent.h"

#include <cerrno>
#include <ctime>

namespace vorlane {
namespace tiny {

VEvent::VEvent() : signalled_(0) {
  pthread_mutex_init(&mutex_, nullptr);
  // The monotonic clock keeps time-outs right when the wall clock is set back or forward.
  pthread_condattr_t attr;
  pthread_condattr_init(&attr);
  pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
  pthread_cond_init(&cond_, &attr);
  pthread_condattr_destroy(&attr);
}

VEvent::~VEvent() {
  pthread_cond_destroy(&cond_);
  pthread_mutex_destroy(&mutex_);
}

void VEvent::signal() {
  pthread_mutex_lock(&mutex_);
  signalled_ = 1;
  pthread_cond_signal(&cond_);
  pthread_mutex_unlock(&mutex_);
}

void VEvent::wait() {
  pthread_mutex_lock(&mutex_);
  if (signalled_ == 0) pthread_cond_wait(&cond_, &mutex_);
  signalled_ = 0;
  pthread_mutex_unlock(&mutex_);
}

bool VEvent::timedwait(long ms) {
  if (ms == -1) {
    wait();
    return true;
  }
  if (ms < 0) ms = 0;
  timespec deadline;
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += ms / 1000;
  deadline.tv_nsec += (ms % 1000) * 1000000L;
  if (deadline.tv_nsec >= 1000000000L) {
    deadline.tv_sec += 1;
    deadline.tv_nsec -= 1000000000L;
  }
  int rc = 0;
  pthread_mutex_lock(&mutex_);
  if (signalled_ == 0) rc = pthread_cond_timedwait(&cond_, &mutex_, &deadline);
  signalled_ = 0;
  pthread_mutex_unlock(&mutex_);
  if (rc == ETIMEDOUT) {
    errno = rc;
    return false;
  }
  return true;
}

}  // namespace tiny
}  // namespace vorlane
