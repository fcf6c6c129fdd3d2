// Renders a store statistics report as a readable text summary that fits one screen: the header fields,
// the store totals and one table of the collections that hold data (messages, bytes, average, largest,
// and how mail bytes divide into header, bodies and attachments); on request also the main histograms
// of those collections as small text bars. The totals, the table and the bars are also built as plain
// data here, so the HTML page shows the same figures. Sizes are shown in decimal units (kB = 1000 B)
// because the histogram limits of the report are decimal, so bucket labels stay exact ("15 kB").
// Pure functions; texts from the report are returned raw and made terminal-safe only by renderSummary.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "report_model.h"

namespace vorlane {
namespace cli {

struct SummaryOptions {
  unsigned barWidth = 24;       // characters of the longest bar in a histogram
  bool showHistograms = false;  // true: also a bar chart of every histogram with data
};

// "0", "999", "1,234", "18,446,744,073,709,551,615".
std::string formatCount(unsigned long long n);

// Human-readable size with three significant digits: "512 B", "1.50 kB", "56.7 MB", "123 GB".
std::string formatSize(unsigned long long bytes);

// Exact label of a histogram limit: "100 B", "15 kB", "500 MB" for sizes, "20,000" for counts.
std::string formatLimit(unsigned long long limit, bool bytes);

// Store totals as label and value ("Messages", "1,004"); "n/a" where the report lacks the counter.
struct TotalLine {
  std::string label;
  std::string value;
};
std::vector<TotalLine> storeTotals(const Report& report);

// One row per collection with data; the cells under kTableHeadings.
struct TableRow {
  std::string name;
  std::vector<std::string> cells;
};
extern const char* const kTableHeadings[9];
std::vector<TableRow> collectionTable(const Report& report);

// The buckets of a histogram worth drawing: from the first to the last that holds samples, labelled
// "<= 15 kB", "> 500 MB" (the catch-all bucket) or "0". Empty when no bucket holds a sample.
struct Bar {
  std::string label;
  unsigned long long count;
};
std::vector<Bar> histogramBars(const ReportCounter& histogram);

// Whether any counter of the collection holds a sample.
bool hasData(const ReportCollection& collection);

// The histograms shown per collection, in this order.
extern const char* const kMainHistograms[4];

void renderSummary(std::ostream& out, const Report& report, const SummaryOptions& options = SummaryOptions());

}  // namespace cli
}  // namespace vorlane
