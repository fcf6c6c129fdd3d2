// tests/data/sample_report.xml is a complete report in the server's format for a small store (two
// domains, four mailboxes with the standard folders, a public tree): it was produced by running a
// scripted store of random-sized messages through the 25 collections of the counter catalogue and
// writing them exactly as the statistics server does.
#include "report_reader.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "../support/temp_dir.h"

namespace vorlane {
namespace cli {
namespace {

std::string sampleText() {
  std::ifstream in(std::string(VSTAT_TEST_DATA_DIR) + "/sample_report.xml", std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

const unsigned long long kAllBits = ~0ull;

TEST(ReportReader, ReadsTheSampleReportCompletely) {
  ReportSummary r;
  std::string error;
  ASSERT_TRUE(readReport(std::string(VSTAT_TEST_DATA_DIR) + "/sample_report.xml", r, error)) << error;
  EXPECT_TRUE(r.complete);
  EXPECT_EQ(r.version + r.productVersion + "/" + r.build + r.osName + r.osCode, "0.39.4.2/5123Linux0");
  ASSERT_EQ(r.collections.size(), 25u);
  EXPECT_EQ(r.collections.back().name, "Any folder class - user folders");

  const CollectionSummary* all = r.find("Any folder class - any folder type");
  ASSERT_NE(all, nullptr);
  EXPECT_EQ(all->publicType * 10000 + all->folderType * 10 + all->comparison, 2 * 10000 + 999 * 10 + 0);
  ASSERT_NE(all->find("Domain count"), nullptr);
  EXPECT_EQ(all->find("Domain count")->count, 3u);
  EXPECT_FALSE(all->find("Domain count")->hasSum);
  ASSERT_NE(all->find("Message size"), nullptr);
  EXPECT_EQ(all->find("Message size")->sum, 361743502u);

  // Every sample of a catalogue histogram lands in a bucket, so the buckets add up to the count.
  const CounterSummary* sizes = r.collections.front().find("Message size");
  ASSERT_TRUE(sizes && sizes->histogram);
  ASSERT_EQ(sizes->buckets.size(), 28u);
  EXPECT_EQ(sizes->buckets.back().max, kAllBits);
  unsigned long long inBuckets = 0;
  for (const HistogramBucket& b : sizes->buckets) inBuckets += b.count;
  EXPECT_EQ(inBuckets, sizes->count);
}

// A report cut anywhere after its root element still yields what came before the cut; a cut before it is
// not a report. Cutting inside a number must not produce a wrong figure, only a missing one.
TEST(ReportReader, TruncatedReportsYieldTheirPrefixAndAreFlagged) {
  const std::string text = sampleText();
  const size_t root = text.find("<vlsStoreStatistic");
  ReportSummary full;
  std::string error;
  ASSERT_TRUE(parseReport(text, full, error));
  for (size_t cut = 0; cut < text.size(); cut += 997) {
    ReportSummary r;
    const bool ok = parseReport(text.substr(0, cut), r, error);
    EXPECT_EQ(ok, cut > root) << "cut " << cut;
    EXPECT_FALSE(r.complete) << "cut " << cut;
    for (size_t i = 0; i < r.collections.size(); ++i) {
      for (size_t j = 0; j < r.collections[i].counters.size(); ++j) {
        const CounterSummary& got = r.collections[i].counters[j];
        const CounterSummary& want = full.collections[i].counters[j];
        EXPECT_TRUE(got.count == want.count || got.count == 0) << "cut " << cut;
        EXPECT_LE(got.buckets.size(), want.buckets.size()) << "cut " << cut;
      }
    }
  }
}

TEST(ReportReader, ForeignTextIsRefused) {
  std::string binary;
  for (int i = 0; i < 4096; ++i) binary.push_back(static_cast<char>((i * 7919) & 0xff));
  for (const std::string& text : {std::string(), binary, std::string("<html><p>vlsStoreStatistic</p></html>"),
                                  std::string("<report>\n<collection name='x'>\n</collection>\n</report>\n")}) {
    ReportSummary r;
    std::string error;
    EXPECT_FALSE(parseReport(text, r, error)) << text.substr(0, 40);
    EXPECT_FALSE(error.empty());
  }
}

// Damaged lines inside a report are skipped: bad numbers leave the field alone, stray lines are ignored,
// unescaped quotes stay part of names.
TEST(ReportReader, DamagedLinesAreSkipped) {
  const std::string text =
      "<vlsStoreStatistic version='0.3'>\r\n"
      "<collection name='It's odd' publicType='x' folderType='1' comparison='3'>\r\n"
      "<counter name='Message count'>\r\n"
      "<value>99999999999999999999999</value>\r\n"
      "<histogramCounter name='Odd 'name''>\r\n"
      "\t<value>5</value>\r\n"
      "\t<sum>-5</sum>\r\n"
      "\t<histValue max='2x'>1</histValue>\r\n"
      "\t<histValue max='200'>3\r\n"
      "\t<histValue max='18446744073709551616'>3</histValue>\r\n"
      "\t<histValue max='18446744073709551615'>3</histValue>\r\n"
      "junk\r\n"
      "</collection>\r\n"
      "<value>7</value>\r\n"
      "</vlsStoreStatistic>\r\n";
  ReportSummary r;
  std::string error;
  ASSERT_TRUE(parseReport(text, r, error)) << error;
  EXPECT_TRUE(r.complete);
  ASSERT_EQ(r.collections.size(), 1u);
  const CollectionSummary& c = r.collections[0];
  EXPECT_EQ(c.name, "It's odd");
  EXPECT_EQ(c.publicType * 100 + c.folderType * 10 + c.comparison, -100 + 10 + 3);
  ASSERT_EQ(c.counters.size(), 2u);
  EXPECT_EQ(c.counters[0].count, 0u);
  EXPECT_EQ(c.counters[1].name, "Odd 'name'");
  EXPECT_EQ(c.counters[1].count, 5u);
  EXPECT_FALSE(c.counters[1].hasSum);
  ASSERT_EQ(c.counters[1].buckets.size(), 1u);
  EXPECT_EQ(c.counters[1].buckets[0].max, kAllBits);
}

TEST(ReportReader, CollectionsAreBounded) {
  std::string text = "<vlsStoreStatistic version='0.3'>\n";
  for (size_t i = 0; i < kMaxCollections + 1; ++i) text += "<collection name='c'>\n";
  ReportSummary r;
  std::string error;
  ASSERT_TRUE(parseReport(text, r, error));
  ASSERT_EQ(r.collections.size(), kMaxCollections);
}

TEST(ReportReader, FileErrorsNameThePathAndTheReason) {
  const testing::TempDir dir;
  const std::string big = dir.write("big.xml", "<vlsStoreStatistic version='0.3'>\n" + std::string(kMaxReportBytes, ' '));
  struct Case { std::string path; const char* reason; };
  for (const Case& c : {Case{dir.file("missing.xml"), "No such file or directory"},
                        Case{dir.path(), "Is a directory"}, Case{big, "larger than"}}) {
    ReportSummary r;
    std::string error;
    EXPECT_FALSE(readReport(c.path, r, error)) << c.path;
    EXPECT_NE(error.find("'" + c.path + "'"), std::string::npos) << error;
    EXPECT_NE(error.find(c.reason), std::string::npos) << error;
  }
}

}  // namespace
}  // namespace cli
}  // namespace vorlane
