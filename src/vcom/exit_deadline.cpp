#include "vcom/exit_deadline.h"

#include <unistd.h>

#include <chrono>

#include "tiny/thread.h"

namespace vorlane {
namespace vcom {

ExitDeadline::ExitDeadline(long limitMs, int status) : limitMs_(limitMs), status_(status) {
  if (!tiny::createThread(&ExitDeadline::watch, this, &thread_)) thread_ = 0;
}

ExitDeadline::~ExitDeadline() {
  if (thread_ == 0) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    done_ = true;
  }
  disarmed_.notify_one();
  tiny::waitForThread(thread_);
}

void ExitDeadline::watch(void* selfArg) {
  ExitDeadline* self = static_cast<ExitDeadline*>(selfArg);
  std::unique_lock<std::mutex> lock(self->mutex_);
  if (self->disarmed_.wait_for(lock, std::chrono::milliseconds(self->limitMs_), [self] { return self->done_; }))
    return;
  // Other threads may hold locks of the C library and of this program: end at once, running nothing.
  ::_exit(self->status_);
}

}  // namespace vcom
}  // namespace vorlane
