// Renders a store statistics report (as read by report_reader) as a readable text summary: the product
// lines, the store totals, a table of every collection (messages, size, folders) and, for collections
// with data, their main histograms as small text bars. Sizes are shown in decimal units (kB = 1000 B)
// because the histogram limits of the report are decimal, so bucket labels stay exact ("15 kB").
// Pure functions writing to the given stream; no shared state.
#pragma once

#include <ostream>
#include <string>

#include "report_reader.h"

namespace vorlane {
namespace cli {

struct SummaryOptions {
  unsigned barWidth = 24;       // characters of the longest bar in a histogram
  bool showHistograms = true;   // false: totals and the collection table only
};

// "0", "999", "1,234", "18,446,744,073,709,551,615".
std::string formatCount(unsigned long long n);

// Human-readable size with three significant digits: "512 B", "1.50 kB", "56.7 MB", "123 GB".
std::string formatSize(unsigned long long bytes);

// Exact label of a histogram limit: "100 B", "15 kB", "500 MB" for sizes, "20,000" for counts.
std::string formatLimit(unsigned long long limit, bool bytes);

void renderSummary(std::ostream& out, const Report& report, const SummaryOptions& options = SummaryOptions());

}  // namespace cli
}  // namespace vorlane
