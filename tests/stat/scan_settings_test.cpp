#include "stat/scan_settings.h"

#include <gtest/gtest.h>

#include <cstdlib>

// VSTAT_THREADS takes a whole number from 1 to 64, anything else gives the CPU default; only "1" makes
// VSTAT_GENTLE gentle. Each case sets both variables to its value.
TEST(ScanSettings, ThreadsAndGentleModeComeFromTheEnvironment) {
  const unsigned fallback = defaultParserThreads();
  ASSERT_GE(fallback, 1u);
  ASSERT_LE(fallback, 8u);
  struct Case {
    const char* value;
    unsigned threads;
    bool gentle;
  };
  for (const Case& c : {Case{nullptr, fallback, false}, Case{"", fallback, false}, Case{"1", 1, true},
                        Case{"3", 3, false}, Case{"64", 64, false}, Case{"65", fallback, false},
                        Case{"0", fallback, false}, Case{"-2", fallback, false}, Case{" 2", fallback, false},
                        Case{"2x", fallback, false}, Case{"yes", fallback, false},
                        Case{"99999999999999999999", fallback, false}}) {
    for (const char* name : {"VSTAT_THREADS", "VSTAT_GENTLE"}) {
      if (c.value) setenv(name, c.value, 1); else unsetenv(name);
    }
    const ScanSettings settings = scanSettingsFromEnvironment();
    EXPECT_EQ(settings.threads, c.threads) << (c.value ? c.value : "(unset)");
    EXPECT_EQ(settings.gentle, c.gentle) << (c.value ? c.value : "(unset)");
  }
  unsetenv("VSTAT_THREADS");
  unsetenv("VSTAT_GENTLE");
}
