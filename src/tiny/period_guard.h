// A lock-protected timer that tells whether a period (in seconds) has passed, on the monotonic
// millisecond clock. Modes: periodic (after a period has passed the start moves forward by exactly
// one period), one-shot (the start stays, so every later check reports the period as passed) and
// quiet period (every check before the period has passed restarts the timer). The guard is stopped
// until start(). Thread-safe: every operation takes the guard's own mutex; a copy gets its own.
#pragma once

#include <cstdint>

#include "tiny/vmutex.h"

namespace vorlane {
namespace tiny {

enum PgMode { PgPeriodic = 0, PgOneShot = 1, PgQuietPeriod = 2 };

class PeriodGuard {
 public:
  PeriodGuard(long period, PgMode mode);
  PeriodGuard(const PeriodGuard& other);
  PeriodGuard& operator=(const PeriodGuard& other);
  virtual ~PeriodGuard();

  void start();
  void stop();
  // Whole seconds since the start; 0 while stopped.
  long getElapsedTime();
  long getRemainingTime();
  // Whether the period has passed, applying the mode's rule; the elapsed seconds go to *elapsed
  // when given (0 while stopped).
  bool hasPeriodOccured(long* elapsed);
  void changePeriod(long period);

 protected:
  // Monotonic milliseconds; tests substitute their own clock.
  virtual uint64_t now() const;

 private:
  long elapsedSecondsLocked() const;

  PgMode mode_;
  long period_;
  uint64_t start_;  // 0 = not running
  mutable VMutex mutex_;
};

}  // namespace tiny
}  // namespace vorlane
