#include "stat/scan_settings.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

// Sets or removes one variable for its scope and puts the previous state back.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const char* value) : name_(name) {
    const char* old = getenv(name);
    hadOld_ = old != nullptr;
    if (old) old_ = old;
    if (value) setenv(name, value, 1); else unsetenv(name);
  }
  ~ScopedVariable() {
    if (hadOld_) setenv(name_, old_.c_str(), 1); else unsetenv(name_);
  }

 private:
  const char* name_;
  std::string old_;
  bool hadOld_;
};

}  // namespace

TEST(ScanSettings, ThreadsFromTheEnvironmentOrTheCpuDefault) {
  const unsigned fallback = defaultParserThreads();
  ASSERT_GE(fallback, 1u);
  ASSERT_LE(fallback, 8u);
  struct Case {
    const char* value;
    unsigned threads;
  };
  for (const Case& c : {Case{nullptr, fallback}, Case{"", fallback}, Case{"1", 1}, Case{"3", 3}, Case{"64", 64},
                        Case{"65", fallback}, Case{"0", fallback}, Case{"-2", fallback}, Case{" 2", fallback},
                        Case{"2x", fallback}, Case{"99999999999999999999", fallback}}) {
    ScopedVariable threads("VSTAT_THREADS", c.value);
    EXPECT_EQ(scanSettingsFromEnvironment().threads, c.threads) << (c.value ? c.value : "(unset)");
  }
}

TEST(ScanSettings, GentleOnlyWhenSetToOne) {
  struct Case {
    const char* value;
    bool gentle;
  };
  for (const Case& c : {Case{nullptr, false}, Case{"1", true}, Case{"0", false}, Case{"yes", false}, Case{"", false}}) {
    ScopedVariable gentle("VSTAT_GENTLE", c.value);
    EXPECT_EQ(scanSettingsFromEnvironment().gentle, c.gentle) << (c.value ? c.value : "(unset)");
  }
}
