#include "tiny/period_guard.h"

#include <gtest/gtest.h>

using vorlane::tiny::PeriodGuard;
using vorlane::tiny::PgMode;
using vorlane::tiny::PgOneShot;
using vorlane::tiny::PgPeriodic;
using vorlane::tiny::PgQuietPeriod;

namespace {

// A guard on a clock the test moves by hand (milliseconds; starts well away from 0, which means
// "stopped").
class ManualClockGuard : public PeriodGuard {
 public:
  ManualClockGuard(long period, PgMode mode) : PeriodGuard(period, mode) {}
  void at(uint64_t seconds, uint64_t ms = 0) { now_ = kOrigin + seconds * 1000 + ms; }

 protected:
  uint64_t now() const override { return now_; }

 private:
  static const uint64_t kOrigin = 1000000;
  uint64_t now_ = kOrigin;
};

struct Check {
  uint64_t atSecond;
  bool expected;
  long elapsed;
};

void runChecks(ManualClockGuard& g, std::initializer_list<Check> checks, const char* what) {
  for (const Check& c : checks) {
    g.at(c.atSecond);
    long elapsed = -1;
    EXPECT_EQ(g.hasPeriodOccured(&elapsed), c.expected) << what << " at T+" << c.atSecond;
    EXPECT_EQ(elapsed, c.elapsed) << what << " at T+" << c.atSecond;
  }
}

}  // namespace

TEST(PeriodGuard, PeriodicModeMovesTheStartByExactlyOnePeriod) {
  ManualClockGuard g(5, PgPeriodic);
  g.at(0);
  g.start();
  // T+12: passed, start moves to T+5; again at T+12 (7 s): passed, start T+10; T+12 (2 s): not yet.
  runChecks(g, {{4, false, 4}, {12, true, 12}, {12, true, 7}, {12, false, 2}, {15, true, 5}}, "periodic");
}

TEST(PeriodGuard, OneShotModeStaysPassed) {
  ManualClockGuard g(5, PgOneShot);
  g.at(0);
  g.start();
  runChecks(g, {{4, false, 4}, {5, true, 5}, {6, true, 6}, {100, true, 100}}, "one-shot");
}

TEST(PeriodGuard, QuietModeRestartsOnEveryEarlyCheck) {
  ManualClockGuard g(5, PgQuietPeriod);
  g.at(0);
  g.start();
  // Each early check restarts the timer, so checks 4 s apart never see the period pass.
  runChecks(g, {{4, false, 4}, {8, false, 4}, {12, false, 4}, {17, true, 5}, {18, true, 6}}, "quiet");
}

TEST(PeriodGuard, StoppedGuardReportsNothing) {
  ManualClockGuard g(5, PgOneShot);
  g.at(100);
  long elapsed = -1;
  EXPECT_FALSE(g.hasPeriodOccured(&elapsed));
  EXPECT_EQ(elapsed, 0);
  g.at(0);
  g.start();
  g.at(10);
  EXPECT_TRUE(g.hasPeriodOccured(nullptr));
  g.stop();
  EXPECT_FALSE(g.hasPeriodOccured(&elapsed));
  EXPECT_EQ(elapsed, 0);
  EXPECT_EQ(g.getElapsedTime(), 0);
}

TEST(PeriodGuard, ElapsedAndRemainingCountWholeSeconds) {
  ManualClockGuard g(10, PgPeriodic);
  g.at(0);
  g.start();
  g.at(3, 999);
  EXPECT_EQ(g.getElapsedTime(), 3);
  EXPECT_EQ(g.getRemainingTime(), 7);
  g.changePeriod(2);
  EXPECT_EQ(g.getRemainingTime(), -1);
  EXPECT_TRUE(g.hasPeriodOccured(nullptr));
}

TEST(PeriodGuard, ACopyKeepsTheStateAndRunsOnItsOwn) {
  ManualClockGuard g(5, PgOneShot);
  g.at(0);
  g.start();
  ManualClockGuard copy(g);
  copy.at(6);
  EXPECT_TRUE(copy.hasPeriodOccured(nullptr)) << "start time and period were copied";
  copy.stop();
  g.at(6);
  EXPECT_TRUE(g.hasPeriodOccured(nullptr)) << "stopping the copy leaves the original running";

  ManualClockGuard assigned(100, PgPeriodic);
  assigned = g;
  assigned.at(6);
  EXPECT_TRUE(assigned.hasPeriodOccured(nullptr));
  EXPECT_TRUE(assigned.hasPeriodOccured(nullptr)) << "one-shot mode was assigned too";
}

TEST(PeriodGuard, RealClockGuardDoesNotFireEarly) {
  PeriodGuard g(3600, PgPeriodic);
  g.start();
  EXPECT_FALSE(g.hasPeriodOccured(nullptr));
  EXPECT_EQ(g.getElapsedTime(), 0);
}
