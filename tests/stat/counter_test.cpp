#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "stat/counter.h"
#include "stat/histogram_counter.h"

namespace {

const unsigned long long kAllOnes = std::numeric_limits<unsigned long long>::max();
const size_t kNone = ~size_t{0};  // no bucket

std::string reportOf(Counter& counter) {
  std::ostringstream out;
  counter.report(out);
  return out.str();
}

}  // namespace

// The average is written with two decimals, rounded, from the unsigned sum and count.
TEST(Counter, AverageIsWrittenWithTwoDecimals) {
  struct Case {
    std::vector<unsigned long long> samples;
    const char* avg;
  };
  const Case cases[] = {
      {{1, 2}, "1.50"},
      {{7}, "7.00"},
      {{1, 1, 2}, "1.33"},
      {{0}, "0.00"},
      {{2, 3, 3}, "2.67"},
      {{1ULL << 63}, "9223372036854775808.00"},
  };
  for (const Case& c : cases) {
    Counter counter("Message size", false);
    for (unsigned long long v : c.samples) counter.add(v);
    EXPECT_NE(reportOf(counter).find(std::string("<avg>") + c.avg + "</avg>"), std::string::npos) << c.avg;
  }
}

TEST(Counter, AllOnesSampleKeepsMaxAndSumWrapsSilently) {
  Counter counter("Message size", false);
  counter.add(kAllOnes);
  EXPECT_EQ(counter.getMax(), kAllOnes);
  EXPECT_EQ(counter.getSum(), kAllOnes);
  counter.add(2);
  EXPECT_EQ(counter.getCount(), 2u);
  EXPECT_EQ(counter.getSum(), 1u);
  EXPECT_EQ(counter.getMax(), kAllOnes);
  EXPECT_NE(reportOf(counter).find("<max>18446744073709551615</max>"), std::string::npos);
}

// Inclusive upper limits: a value equal to a limit belongs to that limit's bucket; a value above the last
// limit is counted, summed and kept as maximum, but lands in no bucket.
TEST(HistogramCounter, ValuesLandInTheirInclusiveBucket) {
  struct Case {
    std::vector<unsigned long long> limits;
    unsigned long long value;
    size_t bucket;
  };
  const Case cases[] = {
      {{100, 200, 300}, 0, 0},       {{100, 200, 300}, 100, 0},          {{100, 200, 300}, 101, 1},
      {{100, 200, 300}, 200, 1},     {{100, 200, 300}, 300, 2},          {{0, 1, 2}, 0, 0},
      {{0, 1, 2}, 1, 1},             {{1, 2, kAllOnes}, 0, 0},           {{1, 2, kAllOnes}, 3, 2},
      {{1, 2, kAllOnes}, kAllOnes, 2}, {{1, 2, kAllOnes}, kAllOnes - 1, 2}, {{100, 200, 300}, 301, kNone},
  };
  for (const Case& c : cases) {
    HistogramCounter h("Message size", c.limits.data(), static_cast<unsigned int>(c.limits.size()));
    h.add(c.value);
    const std::vector<HistogramItem>& items = h.getHistogramData();
    for (size_t i = 0; i < items.size(); ++i)
      EXPECT_EQ(items[i].count, i == c.bucket ? 1u : 0u) << "value " << c.value << " bucket " << i;
    EXPECT_EQ(h.getCount(), 1u);
    EXPECT_EQ(h.getSum(), c.value);
    EXPECT_EQ(h.getMax(), c.value);
  }
}
