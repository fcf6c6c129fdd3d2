#include "stat/counter.h"

#include <iomanip>

Counter::Counter(const std::string& name, bool valueOnly) : Named(name), valueOnly(valueOnly) {}

void Counter::add(unsigned long long value) {
  ++count;
  sum += value;  // wraps silently; a sum beyond 2^64 bytes is not a real store
  if (max < value) max = value;
}

void Counter::reset() {
  count = 0;
  sum = 0;
  max = 0;
}

float Counter::getAverage() const { return static_cast<float>(sum) / static_cast<float>(count); }

void Counter::reportAggregates(std::ostream& out) const {
  out << "\t\t\t\t<value>" << count << "</value>" << std::endl;
  if (valueOnly) return;
  out << "\t\t\t\t<sum>" << sum << "</sum>" << std::endl;
  out << "\t\t\t\t<max>" << max << "</max>" << std::endl;
  out << "\t\t\t\t<avg>";
  if (count == 0) {
    out << "undef";
  } else {
    // Fixed notation with two decimals is left set on the stream; the report writes nothing else
    // in floating point after the first counter, and integers are not affected.
    out << std::fixed << std::setprecision(2)
        << static_cast<double>(sum) / static_cast<double>(count);
  }
  out << "</avg>" << std::endl;
}

void Counter::report(std::ostream& out) {
  out << "\t\t\t<counter name='" << getName() << "'>" << std::endl;
  reportAggregates(out);
  out << "\t\t\t</counter>" << std::endl;
}
