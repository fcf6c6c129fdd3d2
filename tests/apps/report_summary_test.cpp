#include "report_summary.h"

#include "report_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

namespace vorlane {
namespace cli {
namespace {

const unsigned long long kAllBits = ~0ull;

TEST(Report, FiguresAreFormattedForPeople) {
  struct Case { unsigned long long n; const char* count; const char* size; };
  for (const Case& c : {Case{0, "0", "0 B"}, Case{999, "999", "999 B"}, Case{1000, "1,000", "1.00 kB"},
                        Case{1500, "1,500", "1.50 kB"}, Case{56700000, "56,700,000", "56.7 MB"},
                        Case{123456789012ull, "123,456,789,012", "123 GB"}, Case{999499, "999,499", "999 kB"},
                        Case{999500, "999,500", "1.00 MB"}, Case{kAllBits, "18,446,744,073,709,551,615", "18.4 EB"}}) {
    EXPECT_EQ(formatCount(c.n), c.count);
    EXPECT_EQ(formatSize(c.n), c.size);
  }
  // Limit labels are exact: the largest unit that divides the limit.
  struct Limit { unsigned long long limit; bool bytes; const char* text; };
  for (const Limit& c : {Limit{0, true, "0 B"}, Limit{1500, true, "1,500 B"}, Limit{15000, true, "15 kB"},
                         Limit{10000000000ull, true, "10 GB"}, Limit{20000, false, "20,000"}}) {
    EXPECT_EQ(formatLimit(c.limit, c.bytes), c.text);
  }
}

Report oneHistogram(const std::string& name, const std::vector<ReportBucket>& buckets) {
  ReportCounter h;
  h.name = name;
  h.histogram = true;
  for (const ReportBucket& b : buckets) h.count += b.count;
  h.buckets = buckets;
  ReportCollection c;
  c.name = "IPF.Note - folder INBOX";
  c.counters.push_back(h);
  Report r;
  r.collections.push_back(c);
  return r;
}

std::vector<std::string> barLines(const Report& r, unsigned barWidth) {
  SummaryOptions options;
  options.barWidth = barWidth;
  options.showHistograms = true;
  std::ostringstream out;
  renderSummary(out, r, options);
  std::vector<std::string> bars;
  std::istringstream in(out.str());
  std::string line;
  while (std::getline(in, line)) {
    if (line.find(" |") != std::string::npos) bars.push_back(line);
  }
  return bars;
}

// Empty buckets before the first and after the last sample are left out, inner ones stay; bars are
// scaled to the fullest bucket and a bucket with any sample shows at least one mark. The catch-all
// bucket is labelled by the limit below it.
TEST(Report, HistogramBarsAreTrimmedScaledAndLabelled) {
  std::vector<std::string> bars = barLines(
      oneHistogram("Message count per folder", {{1, 0}, {2, 1}, {3, 0}, {5, 200}, {10, 100}, {20, 0}, {kAllBits, 0}}),
      10);
  ASSERT_EQ(bars.size(), 4u);
  EXPECT_NE(bars[0].find(" <= 2 |#         |"), std::string::npos) << bars[0];
  EXPECT_NE(bars[1].find(" <= 3 |          |"), std::string::npos) << bars[1];
  EXPECT_NE(bars[2].find(" <= 5 |##########|       200  66.4%"), std::string::npos) << bars[2];
  EXPECT_NE(bars[3].find("<= 10 |#####     |"), std::string::npos) << bars[3];

  bars = barLines(oneHistogram("Message size", {{0, 1}, {500000000, 1}, {kAllBits, 2}}), 4);
  ASSERT_EQ(bars.size(), 3u);
  EXPECT_NE(bars[0].find("        0 |"), std::string::npos) << bars[0];
  EXPECT_NE(bars[1].find("<= 500 MB |"), std::string::npos) << bars[1];
  EXPECT_NE(bars[2].find(" > 500 MB |"), std::string::npos) << bars[2];
}

// Figures worked out from tests/data/sample_report.xml: INBOX holds 152 messages of 73,191,110 bytes
// (481,520 on average, 2,992,060 the largest), 257,445 of them in headers (0.35%); the public task
// folders hold no message and no folder, so they have no row.
TEST(Report, SampleReportFitsOneScreenWithTotalsAndTheCollectionsWithData) {
  Report r;
  std::string error;
  ASSERT_TRUE(readReport(std::string(VSTAT_TEST_DATA_DIR) + "/sample_report.xml", r, error)) << error;
  std::ostringstream out;
  renderSummary(out, r);
  const std::string text = out.str();
  for (const char* expected :
       {"Product 9.4.2, build 5123, on Linux (os code 0)\n", "  Domains          3\n  Mailboxes        4\n"
        "  Folders          46\n  Messages         1,004\n  Total size       362 MB\n  Largest message  3.02 MB\n",
        "  IPF.Note - folder INBOX                  152   73.2 MB    482 kB   2.99 MB    0.4%"}) {
    EXPECT_NE(text.find(expected), std::string::npos) << expected << "\n" << text;
  }
  EXPECT_EQ(text.find("IPF.Task - public folders"), std::string::npos);
  EXPECT_EQ(text.find("Distributions"), std::string::npos);
  EXPECT_LE(std::count(text.begin(), text.end(), '\n'), 40);
}

TEST(Report, MissingTotalsAreSaidSo) {
  std::ostringstream out;
  renderSummary(out, Report());
  EXPECT_NE(out.str().find("Messages         n/a"), std::string::npos);
  EXPECT_NE(out.str().find("No collection holds data."), std::string::npos);
}

// Header fields and names come from a file anyone may have written, and so may any sum: the largest
// must not overflow the average's conversion.
TEST(Report, DamagedReportsReachTheTerminalEscapedAndWithoutOverflow) {
  Report r = oneHistogram("Message size", {{kAllBits, 1}});
  r.collections[0].counters[0].sum = kAllBits;
  r.version = "0.3\x1b]0;t\x07";
  r.productVersion = "\x9b" "31m";
  r.osName = "Linux\r\n";
  r.collections[0].name = "INBOX\x1b[1A";
  SummaryOptions options;
  options.showHistograms = true;
  std::ostringstream out;
  renderSummary(out, r, options);
  const std::string text = out.str();
  for (const char* control : {"\x1b", "\x07", "\x9b", "\r"}) EXPECT_EQ(text.find(control), std::string::npos) << text;
  for (const char* shown :
       {"0.3\\x1b]0;t\\x07", "\\x9b31m", "Linux\\x0d\\x0a", "INBOX\\x1b[1A", "1 samples, avg 18.4 EB, max"}) {
    EXPECT_NE(text.find(shown), std::string::npos) << shown << "\n" << text;
  }
}

}  // namespace
}  // namespace cli
}  // namespace vorlane
