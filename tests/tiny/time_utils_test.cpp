#include "tiny/time_utils.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

using namespace vorlane::tiny;

TEST(TimeNames, OutOfRangeFallsBackAndMonthLookupIgnoresCase) {
  EXPECT_STREQ(getMonthName(11), "Dec");
  EXPECT_STREQ(getMonthName(12), "Jan");
  EXPECT_STREQ(getDayName(6), "Sat");
  EXPECT_STREQ(getDayName(-1), "Sun");
  struct Case {
    const char* name;
    int expected;
  };
  for (const Case& c : {Case{"mar", 2}, Case{"DEC", 11}, Case{"xyz", 0}, Case{nullptr, 2147483647}}) {
    EXPECT_EQ(getMonthNum(c.name), c.expected) << (c.name ? c.name : "(null)");
  }
}

// Local and UTC dates differ around midnight and New Year; the day correction must follow.
TEST(TimezoneOffset, AccountsForDatesOnEitherSideOfUtc) {
  const long newYearsEve2330 = 1704065400;  // 2023-12-31 23:30 UTC
  const long newYear0200 = 1704074400;      // 2024-01-01 02:00 UTC
  struct Case {
    const char* zone;  // POSIX TZ: west-positive
    long t, expected;
  };
  const char* old = getenv("TZ");
  std::string saved = old ? old : "";
  for (const Case& c : {Case{"XXX-1", newYearsEve2330, 60}, Case{"XXX-5:30", newYearsEve2330, 330},
                        Case{"XXX5", newYear0200, -300}, Case{"UTC0", newYear0200, 0}}) {
    setenv("TZ", c.zone, 1);
    tzset();
    EXPECT_EQ(timezoneOffset(c.t), c.expected) << c.zone;
  }
  if (old) setenv("TZ", saved.c_str(), 1); else unsetenv("TZ");
  tzset();
}

TEST(MsWrapExtender, CarriesOnAcrossThe32BitWrap) {
  MsWrapExtender clock;
  EXPECT_EQ(clock.extend(2147483647), 2147483647);
  EXPECT_EQ(clock.extend(-2147483647 - 1), 2147483648LL);
  EXPECT_EQ(clock.extend(10), 4294967306LL);
  EXPECT_EQ(clock.extend(10), 4294967306LL) << "an equal reading is no wrap";
  MsWrapExtender startsNegative;
  EXPECT_EQ(startsNegative.extend(-1000), 4294966296LL) << "the clock never starts below zero";
}
