#include "tiny/period_guard.h"

#include <gtest/gtest.h>

using namespace vorlane::tiny;

namespace {

// A guard on a clock the test sets by hand, in seconds after an origin away from 0 ("stopped").
class ManualClockGuard : public PeriodGuard {
 public:
  ManualClockGuard(long period, PgMode mode) : PeriodGuard(period, mode) {}
  void at(uint64_t seconds) { now_ = 1000000 + seconds * 1000; }

 protected:
  uint64_t now() const override { return now_; }

 private:
  uint64_t now_ = 1000000;
};

struct Check {
  uint64_t atSecond;
  bool expected;
  long elapsed;
};

}  // namespace

TEST(PeriodGuard, EachModeAppliesItsRule) {
  struct Case {
    PgMode mode;
    std::vector<Check> checks;
  };
  const Case cases[] = {
      // The start moves to T+5, then T+10: the repeated check at T+12 passes twice, then not.
      {PgPeriodic, {{4, false, 4}, {12, true, 12}, {12, true, 7}, {12, false, 2}}},
      {PgOneShot, {{4, false, 4}, {5, true, 5}, {100, true, 100}}},
      // Every early check restarts the timer, so checks 4 s apart never see the period pass.
      {PgQuietPeriod, {{4, false, 4}, {8, false, 4}, {12, false, 4}, {17, true, 5}}},
  };
  for (const Case& c : cases) {
    ManualClockGuard g(5, c.mode);
    g.start();
    for (const Check& k : c.checks) {
      g.at(k.atSecond);
      long elapsed = -1;
      EXPECT_EQ(g.hasPeriodOccured(&elapsed), k.expected) << "mode " << c.mode << " at T+" << k.atSecond;
      EXPECT_EQ(elapsed, k.elapsed) << "mode " << c.mode << " at T+" << k.atSecond;
    }
  }
}

TEST(PeriodGuard, StoppedGuardReportsNothing) {
  ManualClockGuard g(5, PgOneShot);
  g.start();
  g.stop();
  g.at(10);
  long elapsed = -1;
  EXPECT_FALSE(g.hasPeriodOccured(&elapsed));
  EXPECT_EQ(elapsed, 0);
}
