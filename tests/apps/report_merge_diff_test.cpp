// Merging reports (figures add, maxima take the larger, the structure must match) and comparing them
// (every figure, largest per-cent changes first).
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "vstat_test_support.h"
#include "report_diff.h"
#include "report_merge.h"
#include "report_writer.h"

namespace vorlane {
namespace cli {
namespace {

// One collection with a value-only counter and a two-bucket histogram.
Report small(unsigned long long messages, unsigned long long sum, unsigned long long max,
             unsigned long long firstBucket) {
  Report r;
  r.version = "0.3";
  r.productVersion = "7.2";
  r.build = 1;
  r.osName = "Linux";
  ReportCollection c;
  c.name = "IPF.Note - folder INBOX";
  ReportCounter count;
  count.name = "Message count";
  count.valueOnly = true;
  count.count = messages;
  ReportCounter size;
  size.name = "Message size";
  size.histogram = true;
  size.count = messages;
  size.sum = sum;
  size.max = max;
  size.buckets = {{100, firstBucket}, {~0ull, messages - firstBucket}};
  c.counters = {count, size};
  r.collections = {c};
  return r;
}

TEST(ReportMerge, FiguresAddAndMaximaTakeTheLarger) {
  Report merged = small(3, 600, 400, 1);
  std::string error;
  ASSERT_TRUE(mergeReport(merged, small(2, ~0ull - 99, 150, 2), false, error)) << error;
  const ReportCounter& size = merged.collections[0].counters[1];
  EXPECT_EQ(merged.collections[0].counters[0].count, 5u);
  EXPECT_EQ(size.count, 5u);
  EXPECT_EQ(size.sum, 500u);  // wraps at 64 bits as the server's counter does
  EXPECT_EQ(size.max, 400u);
  EXPECT_EQ(size.buckets[0].count, 3u);
  EXPECT_EQ(size.buckets[1].count, 2u);
  std::ostringstream xml;
  writeReportXml(xml, merged);
  EXPECT_NE(xml.str().find("<avg>100.00</avg>"), std::string::npos);
}

TEST(ReportMerge, ReportsThatDoNotFitAreRefused) {
  struct Case { std::function<void(Report&)> change; bool force; const char* error; };
  const Case cases[] = {
      {[](Report& r) { r.osName = "BSD"; }, false, "the header field osName differs"},
      {[](Report& r) { r.collections[0].counters[1].buckets[0].max = 99; }, true, "bucket limits of 'Message size'"},
      {[](Report& r) { r.collections[0].comparison = 3; }, true, "collection 1 ('IPF.Note - folder INBOX') does not"},
      {[](Report& r) { r.collections.push_back(r.collections[0]); }, true, "hold 1 and 2 collections"},
      {[](Report& r) { r.collections[0].counters[0].valueOnly = false; }, true, "counter 'Message count' does not"},
  };
  for (const Case& c : cases) {
    Report other = small(1, 1, 1, 1);
    c.change(other);
    Report merged = small(1, 1, 1, 1);
    std::string error;
    EXPECT_FALSE(mergeReport(merged, other, c.force, error)) << c.error;
    EXPECT_NE(error.find(c.error), std::string::npos) << error;
  }
  Report merged = small(1, 1, 1, 1);
  Report other = small(1, 1, 1, 1);
  other.build = 2;
  std::string error;
  EXPECT_TRUE(mergeReport(merged, other, true, error)) << error;
  EXPECT_EQ(merged.build, 1u);
}

// Messages 4 -> 5 (+25%), sum 1000 -> 500 (-50%), max 900 -> 400 (-55.6%), a bucket figure is not a
// figure of its own; a counter only the newer report has comes first.
TEST(ReportDiff, LargestPerCentChangesComeFirst) {
  Report before = small(4, 1000, 900, 1);
  Report after = small(5, 500, 400, 1);
  ReportCounter signedCount;
  signedCount.name = "Signed message count";
  signedCount.valueOnly = true;
  signedCount.count = 2;
  after.collections[0].counters.push_back(signedCount);

  const std::vector<FigureChange> all = diffReports(before, after);
  EXPECT_EQ(all.size(), 5u);
  std::vector<std::string> order;
  for (const FigureChange& c : largestChangesFirst(all)) order.push_back(c.counter + " " + c.figure);
  EXPECT_EQ(order, (std::vector<std::string>{"Signed message count value", "Message size max", "Message size sum",
                                             "Message count value", "Message size value"}));

  const Json json = diffJson(all);
  EXPECT_EQ(jsonLine(json[2]), "{\"collection\":\"IPF.Note - folder INBOX\",\"counter\":\"Message size\","
                               "\"figure\":\"sum\",\"old\":1000,\"new\":500,\"change\":-500,\"percent\":-50.0}");
  EXPECT_EQ(jsonLine(json[4]["old"]) + jsonLine(json[4]["percent"]), "nullnull");
}

TEST(ReportDiff, CommandShowsChangesLargestFirst) {
  const testing::TempDir dir;
  std::ostringstream before;
  std::ostringstream after;
  writeReportXml(before, small(4, 1000, 900, 1));
  writeReportXml(after, small(5, 1000, 900, 1));
  const VstatRun r = runVstatWith({"diff", dir.write("old.xml", before.str()), dir.write("new.xml", after.str())});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            "2 of 4 figures changed, largest changes first:\n"
            "     +25.0%               +1  IPF.Note - folder INBOX / Message count / value: 4 -> 5\n"
            "     +25.0%               +1  IPF.Note - folder INBOX / Message size / value: 4 -> 5\n");
}

}  // namespace
}  // namespace cli
}  // namespace vorlane
