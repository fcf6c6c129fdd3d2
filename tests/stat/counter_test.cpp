#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "stat/counter.h"
#include "stat/histogram_counter.h"

namespace {

const unsigned long long kAllOnes = std::numeric_limits<unsigned long long>::max();

std::string reportOf(Counter& counter) {
  std::ostringstream out;
  counter.report(out);
  return out.str();
}

}  // namespace

TEST(Counter, EmptyCounterReportsZerosAndUndef) {
  Counter counter("Size of signed messages", false);
  EXPECT_EQ(reportOf(counter),
            "\t\t\t<counter name='Size of signed messages'>\n"
            "\t\t\t\t<value>0</value>\n"
            "\t\t\t\t<sum>0</sum>\n"
            "\t\t\t\t<max>0</max>\n"
            "\t\t\t\t<avg>undef</avg>\n"
            "\t\t\t</counter>\n");
}

TEST(Counter, ValueOnlyCounterWritesOnlyItsCount) {
  Counter counter("Message count", true);
  counter.add(5);
  counter.add(9);
  EXPECT_EQ(reportOf(counter),
            "\t\t\t<counter name='Message count'>\n"
            "\t\t\t\t<value>2</value>\n"
            "\t\t\t</counter>\n");
}

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

// Inclusive upper limits: a value equal to a limit belongs to that limit's bucket.
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
      {{1, 2, kAllOnes}, kAllOnes, 2}, {{1, 2, kAllOnes}, kAllOnes - 1, 2},
  };
  for (const Case& c : cases) {
    HistogramCounter h("Message size", c.limits.data(), static_cast<unsigned int>(c.limits.size()));
    h.add(c.value);
    const std::vector<HistogramItem>& items = h.getHistogramData();
    for (size_t i = 0; i < items.size(); ++i)
      EXPECT_EQ(items[i].count, i == c.bucket ? 1u : 0u) << "value " << c.value << " bucket " << i;
    EXPECT_EQ(h.getCount(), 1u);
  }
}

TEST(HistogramCounter, ValueAboveLastLimitIsCountedInNoBucket) {
  const unsigned long long limits[] = {100, 200, 300};
  HistogramCounter h("Message size", limits, 3);
  h.add(301);
  EXPECT_EQ(h.getCount(), 1u);
  EXPECT_EQ(h.getSum(), 301u);
  EXPECT_EQ(h.getMax(), 301u);
  for (const HistogramItem& item : h.getHistogramData()) EXPECT_EQ(item.count, 0u) << item.max;
}

TEST(HistogramCounter, ResetKeepsTheBucketCounts) {
  const unsigned long long limits[] = {10, 20};
  HistogramCounter h("Folder count per user", limits, 2);
  h.add(15);
  h.add(15);
  h.reset();
  EXPECT_EQ(h.getCount(), 0u);
  EXPECT_EQ(h.getSum(), 0u);
  EXPECT_EQ(h.getMax(), 0u);
  EXPECT_EQ(h.getHistogramData()[1].count, 2u);
}

TEST(HistogramCounter, ReportWritesAggregatesAndEveryBucket) {
  const unsigned long long limits[] = {0, 5, kAllOnes};
  HistogramCounter h("Folder count per user", limits, 3);
  h.add(3);
  h.add(4);
  EXPECT_EQ(reportOf(h),
            "\t\t\t<histogramCounter name='Folder count per user'>\n"
            "\t\t\t\t<value>2</value>\n"
            "\t\t\t\t<sum>7</sum>\n"
            "\t\t\t\t<max>4</max>\n"
            "\t\t\t\t<avg>3.50</avg>\n"
            "\t\t\t\t<histValue max='0'>0</histValue>\n"
            "\t\t\t\t<histValue max='5'>2</histValue>\n"
            "\t\t\t\t<histValue max='18446744073709551615'>0</histValue>\n"
            "\t\t\t</histogramCounter>\n");
}

// The limits are copied: the caller's array may go away after construction.
TEST(HistogramCounter, LimitsAreCopied) {
  std::vector<unsigned long long> limits = {10, 20};
  HistogramCounter h("Message size", limits.data(), 2);
  limits.assign(2, 0);
  h.add(15);
  EXPECT_EQ(h.getHistogramData()[1].max, 20u);
  EXPECT_EQ(h.getHistogramData()[1].count, 1u);
}
