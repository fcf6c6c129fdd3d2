#include "stat/histogram_counter.h"

#include <algorithm>

HistogramCounter::HistogramCounter(const std::string& name, const unsigned long long* limits,
                                   unsigned int limitCount)
    : Counter(name, false) {
  items.reserve(limitCount);
  for (unsigned int i = 0; i < limitCount; ++i) items.push_back(HistogramItem{limits[i], 0});
}

void HistogramCounter::add(unsigned long long value) {
  // First bucket whose limit is not below the value: limits are inclusive upper bounds.
  const auto bucket = std::lower_bound(items.begin(), items.end(), HistogramItem{value, 0}, test);
  if (bucket != items.end()) ++bucket->count;
  Counter::add(value);
}

void HistogramCounter::report(std::ostream& out) {
  out << "\t\t\t<histogramCounter name='" << getName() << "'>" << std::endl;
  reportAggregates(out);
  for (const HistogramItem& item : items)
    out << "\t\t\t\t<histValue max='" << item.max << "'>" << item.count << "</histValue>" << std::endl;
  out << "\t\t\t</histogramCounter>" << std::endl;
}
