// A counter that also sorts every sample into a fixed list of ascending, inclusive upper limits.
// A value above the last limit is counted in count, sum and maximum but lands in no bucket (the
// catalogue's tables all end with the all-ones value, so in practice every sample has a bucket).
// The limits are copied and not checked; they must be ascending. Not thread-safe.
#pragma once

#include <string>
#include <vector>

#include "stat/counter.h"

struct HistogramItem {
  unsigned long long max;    // inclusive upper limit of the bucket
  unsigned long long count;  // samples that fell into it
};

class HistogramCounter : public Counter {
 public:
  HistogramCounter(const std::string& name, const unsigned long long* limits, unsigned int limitCount);

  void add(unsigned long long value) override;
  void report(std::ostream& out) override;

  // Counter::reset() clears count, sum and maximum only: bucket counts, once added, stay.
  const std::vector<HistogramItem>& getHistogramData() const { return items; }

  // Ordering of buckets by limit, the predicate of the bucket search.
  static bool test(HistogramItem a, HistogramItem b) { return a.max < b.max; }

 private:
  std::vector<HistogramItem> items;
};
