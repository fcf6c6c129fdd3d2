#include "tiny/time_utils.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

using namespace vorlane::tiny;

TEST(TimeNames, OutOfRangeIndexesFallBackToTheFirstName) {
  struct Case {
    int index;
    const char* month;
    const char* day;
  };
  for (const Case& c : {Case{0, "Jan", "Sun"}, Case{6, "Jul", "Sat"}, Case{7, "Aug", "Sun"}, Case{11, "Dec", "Sun"},
                        Case{12, "Jan", "Sun"}, Case{-1, "Jan", "Sun"}}) {
    EXPECT_STREQ(getMonthName(c.index), c.month) << c.index;
    EXPECT_STREQ(getDayName(c.index), c.day) << c.index;
  }
}

TEST(TimeNames, MonthNumbersIgnoreCaseAndDefaultToJanuary) {
  struct Case {
    const char* name;
    int expected;
  };
  for (const Case& c : {Case{"Jan", 0}, Case{"mar", 2}, Case{"DEC", 11}, Case{"xyz", 0}, Case{"", 0},
                        Case{"March", 0}, Case{nullptr, 2147483647}}) {
    EXPECT_EQ(getMonthNum(c.name), c.expected) << (c.name ? c.name : "(null)");
  }
}

namespace {

// Sets TZ for the scope and restores the previous value.
class ZoneScope {
 public:
  explicit ZoneScope(const char* zone) {
    const char* old = getenv("TZ");
    hadOld_ = old != nullptr;
    if (old) old_ = old;
    setenv("TZ", zone, 1);
    tzset();
  }
  ~ZoneScope() {
    if (hadOld_) {
      setenv("TZ", old_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  bool hadOld_;
  std::string old_;
};

}  // namespace

// The day and year corrections: local and UTC dates differ around midnight and New Year.
TEST(TimezoneOffset, AccountsForDatesOnEitherSideOfUtc) {
  const long newYearsEve2330 = 1704065400;  // 2023-12-31 23:30:00 UTC
  const long newYear0200 = 1704074400;      // 2024-01-01 02:00:00 UTC
  const long midYearNoon = 1718452800;      // 2024-06-15 12:00:00 UTC
  struct Case {
    const char* zone;  // POSIX TZ: the sign is west-positive
    long t;
    long expected;
  };
  for (const Case& c : {Case{"UTC0", newYearsEve2330, 0}, Case{"XXX-1", newYearsEve2330, 60},
                        Case{"XXX-5:30", newYearsEve2330, 330}, Case{"XXX5", newYear0200, -300},
                        Case{"XXX-14", midYearNoon, 840}, Case{"XXX12", midYearNoon, -720}}) {
    ZoneScope zone(c.zone);
    EXPECT_EQ(timezoneOffset(c.t), c.expected) << c.zone << " at " << c.t;
  }
}

TEST(MsWrapExtender, CarriesOnAcrossThe32BitWrap) {
  MsWrapExtender clock;
  EXPECT_EQ(clock.extend(2147483000), 2147483000);
  EXPECT_EQ(clock.extend(2147483647), 2147483647);
  EXPECT_EQ(clock.extend(-2147483647 - 1), 2147483648LL) << "signed wrap continues upwards";
  EXPECT_EQ(clock.extend(-5), 4294967291LL);
  EXPECT_EQ(clock.extend(10), 4294967306LL);
  EXPECT_EQ(clock.extend(10), 4294967306LL) << "an equal reading is no wrap";
}

TEST(MsWrapExtender, ANegativeFirstReadingStillGivesAPositiveClock) {
  MsWrapExtender clock;
  EXPECT_EQ(clock.extend(-1000), 4294966296LL);
  EXPECT_EQ(clock.extend(-999), 4294966297LL);
}

TEST(Clocks, MonotonicClockNeverGoesBackAndWallClockAgreesWithTime) {
  uint64_t last = getMs64();
  for (int i = 0; i < 1000; ++i) {
    uint64_t now = getMs64();
    ASSERT_GE(now, last);
    last = now;
  }
  uint64_t wall = millisec64();
  uint64_t seconds = static_cast<uint64_t>(time(nullptr));
  EXPECT_LE(wall / 1000, seconds);
  EXPECT_GE(wall / 1000 + 1, seconds);
}

TEST(TimeConversions, ReentrantFormsMatchTheCLibrary) {
  time_t t = 1704065400;
  tm utc;
  ASSERT_NE(v_gmtime_r(&t, &utc), nullptr);
  EXPECT_EQ(utc.tm_year, 123);
  EXPECT_EQ(utc.tm_yday, 364);
  char buf[32];
  ASSERT_NE(v_asctime_r(&utc, buf), nullptr);
  EXPECT_STREQ(buf, "Sun Dec 31 23:30:00 2023\n");
  ZoneScope zone("UTC0");
  ASSERT_NE(v_ctime_r(&t, buf), nullptr);
  EXPECT_STREQ(buf, "Sun Dec 31 23:30:00 2023\n");
}
