#include "tiny/period_guard.h"

#include "tiny/time_utils.h"

namespace vorlane {
namespace tiny {

PeriodGuard::PeriodGuard(long period, PgMode mode) : mode_(mode), period_(period), start_(0) {}

PeriodGuard::PeriodGuard(const PeriodGuard& other) : mode_(PgPeriodic), period_(0), start_(0) {
  VMutexGuard guard(other.mutex_);
  mode_ = other.mode_;
  period_ = other.period_;
  start_ = other.start_;
}

PeriodGuard& PeriodGuard::operator=(const PeriodGuard& other) {
  if (this == &other) return *this;
  PgMode mode;
  long period;
  uint64_t start;
  {
    VMutexGuard guard(other.mutex_);
    mode = other.mode_;
    period = other.period_;
    start = other.start_;
  }
  // The two mutexes are never held together, so two threads assigning crosswise cannot deadlock.
  VMutexGuard guard(mutex_);
  mode_ = mode;
  period_ = period;
  start_ = start;
  return *this;
}

PeriodGuard::~PeriodGuard() {}

void PeriodGuard::start() {
  VMutexGuard guard(mutex_);
  start_ = now();
}

void PeriodGuard::stop() {
  VMutexGuard guard(mutex_);
  start_ = 0;
}

long PeriodGuard::getElapsedTime() {
  VMutexGuard guard(mutex_);
  return elapsedSecondsLocked();
}

long PeriodGuard::getRemainingTime() {
  VMutexGuard guard(mutex_);
  return period_ - elapsedSecondsLocked();
}

bool PeriodGuard::hasPeriodOccured(long* elapsed) {
  VMutexGuard guard(mutex_);
  if (start_ == 0) {
    if (elapsed) *elapsed = 0;
    return false;
  }
  long seconds = elapsedSecondsLocked();
  if (elapsed) *elapsed = seconds;
  if (seconds >= period_) {
    if (mode_ == PgPeriodic) start_ += static_cast<uint64_t>(period_) * 1000u;
    return true;
  }
  if (mode_ == PgQuietPeriod) start_ = now();
  return false;
}

void PeriodGuard::changePeriod(long period) {
  VMutexGuard guard(mutex_);
  period_ = period;
}

uint64_t PeriodGuard::now() const { return getMs64(); }

long PeriodGuard::elapsedSecondsLocked() const {
  if (start_ == 0) return 0;
  uint64_t t = now();
  // A clock reading behind the start (a substituted clock, a start set just now) is no time at all.
  return t > start_ ? static_cast<long>((t - start_) / 1000u) : 0;
}

}  // namespace tiny
}  // namespace vorlane
