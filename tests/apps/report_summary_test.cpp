#include "report_summary.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace vorlane {
namespace cli {
namespace {

const unsigned long long kAllBits = ~0ull;

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) out.push_back(line);
  return out;
}

bool hasLineContaining(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(ReportSummary, CountsAreGroupedByThousands) {
  struct Case { unsigned long long n; const char* text; };
  for (const Case& c : {Case{0, "0"}, Case{999, "999"}, Case{1000, "1,000"}, Case{123456, "123,456"},
                        Case{1234567, "1,234,567"}, Case{kAllBits, "18,446,744,073,709,551,615"}}) {
    EXPECT_EQ(formatCount(c.n), c.text);
  }
}

TEST(ReportSummary, SizesKeepThreeSignificantDigitsAndNeverShowAThousandOfAUnit) {
  struct Case { unsigned long long bytes; const char* text; };
  for (const Case& c : {Case{0, "0 B"}, Case{999, "999 B"}, Case{1000, "1.00 kB"}, Case{1500, "1.50 kB"},
                        Case{56700000, "56.7 MB"}, Case{123456789012ull, "123 GB"}, Case{999499, "999 kB"},
                        Case{999500, "1.00 MB"}, Case{kAllBits, "18.4 EB"}}) {
    EXPECT_EQ(formatSize(c.bytes), c.text) << c.bytes;
  }
}

TEST(ReportSummary, LimitLabelsAreExact) {
  struct Case { unsigned long long limit; bool bytes; const char* text; };
  for (const Case& c : {Case{0, true, "0 B"}, Case{100, true, "100 B"}, Case{1500, true, "1,500 B"},
                        Case{15000, true, "15 kB"}, Case{500000000, true, "500 MB"},
                        Case{10000000000ull, true, "10 GB"}, Case{20000, false, "20,000"}}) {
    EXPECT_EQ(formatLimit(c.limit, c.bytes), c.text);
  }
}

CounterSummary histogram(const std::string& name, const std::vector<HistogramBucket>& buckets) {
  CounterSummary h;
  h.name = name;
  h.histogram = true;
  h.hasSum = true;
  for (const HistogramBucket& b : buckets) {
    h.count += b.count;
    h.sum += b.count * (b.max == kAllBits ? 1000 : b.max);
  }
  h.max = 1;
  h.buckets = buckets;
  return h;
}

ReportSummary oneCollection(const CounterSummary& counter) {
  ReportSummary r;
  r.complete = true;
  CollectionSummary c;
  c.name = "IPF.Note - folder INBOX";
  c.counters.push_back(counter);
  r.collections.push_back(c);
  return r;
}

// Empty buckets before the first and after the last sample are left out, inner ones stay; bars are
// scaled to the fullest bucket and a bucket with any sample shows at least one mark.
TEST(ReportSummary, HistogramBarsAreTrimmedAndScaled) {
  const ReportSummary r = oneCollection(histogram(
      "Message count per folder", {{1, 0}, {2, 1}, {3, 0}, {5, 200}, {10, 100}, {20, 0}, {kAllBits, 0}}));
  SummaryOptions options;
  options.barWidth = 10;
  std::ostringstream out;
  renderSummary(out, r, options);
  std::vector<std::string> bars;
  for (const std::string& l : lines(out.str())) {
    if (l.find(" |") != std::string::npos) bars.push_back(l);
  }
  ASSERT_EQ(bars.size(), 4u) << out.str();
  EXPECT_NE(bars[0].find("<= 2 |#         |"), std::string::npos) << bars[0];
  EXPECT_NE(bars[1].find("<= 3 |          |"), std::string::npos) << bars[1];
  EXPECT_NE(bars[2].find("<= 5 |##########|"), std::string::npos) << bars[2];
  EXPECT_NE(bars[3].find("<= 10 |#####     |"), std::string::npos) << bars[3];
  EXPECT_NE(bars[2].find("66.4%"), std::string::npos) << bars[2];
}

TEST(ReportSummary, LastBucketIsLabelledAboveThePreviousLimitAndZeroBucketAsZero) {
  const ReportSummary sizes =
      oneCollection(histogram("Message size", {{100, 0}, {500000000, 1}, {kAllBits, 2}}));
  std::ostringstream out;
  renderSummary(out, sizes);
  EXPECT_TRUE(hasLineContaining(out.str(), "> 500 MB |")) << out.str();
  EXPECT_TRUE(hasLineContaining(out.str(), "<= 500 MB |")) << out.str();

  const ReportSummary users = oneCollection(histogram("Folder count per user", {{0, 4}, {1, 1}, {kAllBits, 0}}));
  std::ostringstream out2;
  renderSummary(out2, users);
  EXPECT_TRUE(hasLineContaining(out2.str(), " 0 |")) << out2.str();
  EXPECT_TRUE(hasLineContaining(out2.str(), "<= 1 |")) << out2.str();
}

TEST(ReportSummary, SampleReportShowsTotalsTableAndOnlyCollectionsWithData) {
  ReportSummary r;
  std::string error;
  ASSERT_TRUE(readReport(std::string(VSTAT_TEST_DATA_DIR) + "/sample_report.xml", r, error)) << error;
  std::ostringstream out;
  renderSummary(out, r);
  const std::string text = out.str();
  for (const char* expected : {"Messages         1,004", "Total size       362 MB", "Folders          46",
                               "Domains          3", "Mailboxes        4", "Product 9.4.2 build 5123 on Linux"}) {
    EXPECT_TRUE(hasLineContaining(text, expected)) << expected << "\n" << text;
  }
  EXPECT_FALSE(hasLineContaining(text, "incomplete"));

  // Every collection has a table row; only those with samples get a distribution section.
  const std::string distributions = text.substr(text.find("Distributions"));
  for (const CollectionSummary& c : r.collections) {
    EXPECT_TRUE(hasLineContaining(text, "  " + c.name + " ")) << c.name;
    bool any = false;
    for (const CounterSummary& counter : c.counters) any = any || counter.count != 0;
    EXPECT_EQ(hasLineContaining(distributions, "\n  " + c.name + "\n"), any) << c.name;
  }
}

TEST(ReportSummary, MissingTotalsAndIncompleteReportsAreSaidSo) {
  ReportSummary r;
  std::ostringstream out;
  renderSummary(out, r);
  EXPECT_TRUE(hasLineContaining(out.str(), "incomplete"));
  EXPECT_TRUE(hasLineContaining(out.str(), "Messages         n/a"));
  EXPECT_TRUE(hasLineContaining(out.str(), "no collections"));
}

TEST(ReportSummary, HistogramsCanBeLeftOut) {
  const ReportSummary r = oneCollection(histogram("Message size", {{100, 3}}));
  SummaryOptions options;
  options.showHistograms = false;
  std::ostringstream out;
  renderSummary(out, r, options);
  EXPECT_FALSE(hasLineContaining(out.str(), "|"));
  EXPECT_TRUE(hasLineContaining(out.str(), "IPF.Note - folder INBOX"));
}

}  // namespace
}  // namespace cli
}  // namespace vorlane
