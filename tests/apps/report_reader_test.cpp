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

#include <unistd.h>

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
  EXPECT_EQ(r.version, "0.3");
  EXPECT_EQ(r.productVersion, "9.4.2");
  EXPECT_EQ(r.build, "5123");
  EXPECT_EQ(r.osName, "Linux");
  EXPECT_EQ(r.osCode, "0");
  ASSERT_EQ(r.collections.size(), 25u);
  EXPECT_EQ(r.collections.front().name, "IPF.Note - folder INBOX");
  EXPECT_EQ(r.collections.back().name, "Any folder class - user folders");

  const CollectionSummary* all = r.find("Any folder class - any folder type");
  ASSERT_NE(all, nullptr);
  EXPECT_EQ(all->publicType, 2);
  EXPECT_EQ(all->folderType, 999);
  EXPECT_EQ(all->comparison, 0);
  const CounterSummary* domains = all->find("Domain count");
  ASSERT_NE(domains, nullptr);
  EXPECT_EQ(domains->count, 3u);
  EXPECT_FALSE(domains->hasSum);
  const CounterSummary* size = all->find("Message size");
  ASSERT_NE(size, nullptr);
  EXPECT_FALSE(size->histogram);
  EXPECT_TRUE(size->hasSum);
  EXPECT_EQ(size->sum, 361743502u);

  // Every sample of a catalogue histogram lands in a bucket, so the buckets add up to the count.
  const CounterSummary* inboxSizes = r.collections.front().find("Message size");
  ASSERT_NE(inboxSizes, nullptr);
  ASSERT_TRUE(inboxSizes->histogram);
  ASSERT_EQ(inboxSizes->buckets.size(), 28u);
  EXPECT_EQ(inboxSizes->buckets.front().max, 100u);
  EXPECT_EQ(inboxSizes->buckets.back().max, kAllBits);
  unsigned long long inBuckets = 0;
  for (const HistogramBucket& b : inboxSizes->buckets) inBuckets += b.count;
  EXPECT_EQ(inBuckets, inboxSizes->count);
}

// A report cut anywhere after its root element still yields what came before the cut; a cut before it is
// not a report. Cutting inside a number must not produce a wrong figure, only a missing one.
TEST(ReportReader, TruncatedReportsYieldTheirPrefixAndAreFlagged) {
  const std::string text = sampleText();
  const size_t root = text.find("<vlsStoreStatistic");
  ASSERT_NE(root, std::string::npos);
  ReportSummary full;
  std::string error;
  ASSERT_TRUE(parseReport(text, full, error));

  size_t previousCollections = 0;
  for (size_t cut = 0; cut < text.size(); cut += 997) {
    ReportSummary r;
    const bool ok = parseReport(text.substr(0, cut), r, error);
    if (cut <= root) {
      EXPECT_FALSE(ok) << "cut " << cut;
      continue;
    }
    ASSERT_TRUE(ok) << "cut " << cut;
    EXPECT_FALSE(r.complete) << "cut " << cut;
    EXPECT_GE(r.collections.size(), previousCollections);
    previousCollections = r.collections.size();
    for (size_t i = 0; i < r.collections.size(); ++i) {
      const CollectionSummary& got = r.collections[i];
      const CollectionSummary& want = full.collections[i];
      EXPECT_EQ(got.name.empty() ? want.name : got.name, want.name);
      for (size_t j = 0; j < got.counters.size(); ++j) {
        EXPECT_LE(got.counters[j].count, want.counters[j].count) << "cut " << cut;
        EXPECT_LE(got.counters[j].buckets.size(), want.counters[j].buckets.size()) << "cut " << cut;
      }
    }
  }
}

TEST(ReportReader, ForeignTextIsRefused) {
  std::string binary;
  for (int i = 0; i < 4096; ++i) binary.push_back(static_cast<char>((i * 7919) & 0xff));
  const std::string cases[] = {
      "",
      "\n\n\n",
      binary,
      "<html><body><p>vlsStoreStatistic</p></body></html>",
      "<?xml version='1.0'?>\n<report><collection name='x'></collection></report>\n",
  };
  for (const std::string& text : cases) {
    ReportSummary r;
    std::string error;
    EXPECT_FALSE(parseReport(text, r, error)) << text.substr(0, 40);
    EXPECT_FALSE(error.empty());
  }
}

// Damaged lines inside a report are skipped: bad numbers leave the field alone, stray lines are ignored.
TEST(ReportReader, DamagedLinesAreSkipped) {
  const std::string text =
      "<vlsStoreStatistic version='0.3'>\r\n"
      "\t<build>12</build>\r\n"
      "<collection name='It's odd' publicType='x' folderType='-1' comparison='3'>\r\n"
      "\t\t\t<counter name='Message count'>\r\n"
      "\t\t\t\t<value>99999999999999999999999</value>\r\n"
      "\t\t\t</counter>\r\n"
      "\t\t\t<histogramCounter name='Odd 'name''>\r\n"
      "\t\t\t\t<value>5</value>\r\n"
      "\t\t\t\t<sum>-5</sum>\r\n"
      "\t\t\t\t<histValue max='100'>2</histValue>\r\n"
      "\t\t\t\t<histValue max='2x'>1</histValue>\r\n"
      "\t\t\t\t<histValue max='200'>3\r\n"
      "\t\t\t\t<histValue max='18446744073709551615'>3</histValue>\r\n"
      "\t\t\t\t<histValue max='18446744073709551616'>3</histValue>\r\n"
      "\t\t\t\tjunk\r\n"
      "\t\t\t</histogramCounter>\r\n"
      "</collection>\r\n"
      "\t\t\t\t<value>7</value>\r\n"
      "</vlsStoreStatistic>\r\n";
  ReportSummary r;
  std::string error;
  ASSERT_TRUE(parseReport(text, r, error)) << error;
  EXPECT_TRUE(r.complete);
  EXPECT_EQ(r.build, "12");
  ASSERT_EQ(r.collections.size(), 1u);
  const CollectionSummary& c = r.collections[0];
  EXPECT_EQ(c.name, "It's odd");
  EXPECT_EQ(c.publicType, -1);
  EXPECT_EQ(c.folderType, -1);
  EXPECT_EQ(c.comparison, 3);
  ASSERT_EQ(c.counters.size(), 2u);
  EXPECT_EQ(c.counters[0].count, 0u);
  EXPECT_EQ(c.counters[1].name, "Odd 'name'");
  EXPECT_EQ(c.counters[1].count, 5u);
  EXPECT_FALSE(c.counters[1].hasSum);
  ASSERT_EQ(c.counters[1].buckets.size(), 2u);
  EXPECT_EQ(c.counters[1].buckets[0].max, 100u);
  EXPECT_EQ(c.counters[1].buckets[1].max, kAllBits);
}

TEST(ReportReader, CollectionsCountersAndBucketsAreBounded) {
  std::string text = "<vlsStoreStatistic version='0.3'>\n";
  for (size_t i = 0; i < kMaxCollections + 5; ++i) text += "<collection name='c'>\n</collection>\n";
  text += "<collection name='big'>\n";
  for (size_t i = 0; i < kMaxCountersPerCollection + 5; ++i) text += "<counter name='n'>\n</counter>\n";
  text += "</collection>\n";
  ReportSummary r;
  std::string error;
  ASSERT_TRUE(parseReport(text, r, error));
  EXPECT_EQ(r.collections.size(), kMaxCollections);

  text = "<vlsStoreStatistic version='0.3'>\n<collection name='big'>\n";
  for (size_t i = 0; i < kMaxCountersPerCollection + 5; ++i) text += "<counter name='n'>\n</counter>\n";
  text += "<histogramCounter name='h'>\n";
  for (size_t i = 0; i < kMaxBucketsPerHistogram + 5; ++i) text += "<histValue max='1'>1</histValue>\n";
  text += "</histogramCounter>\n</collection>\n";
  ASSERT_TRUE(parseReport(text, r, error));
  ASSERT_EQ(r.collections.size(), 1u);
  EXPECT_EQ(r.collections[0].counters.size(), kMaxCountersPerCollection);

  text = "<vlsStoreStatistic version='0.3'>\n<collection name='h'>\n<histogramCounter name='h'>\n";
  for (size_t i = 0; i < kMaxBucketsPerHistogram + 5; ++i) text += "<histValue max='1'>1</histValue>\n";
  text += "</histogramCounter>\n</collection>\n";
  ASSERT_TRUE(parseReport(text, r, error));
  ASSERT_EQ(r.collections[0].counters.size(), 1u);
  EXPECT_EQ(r.collections[0].counters[0].buckets.size(), kMaxBucketsPerHistogram);
}

class ReportFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char dir[] = "/tmp/vstat_reader_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
  }
  void TearDown() override {
    std::remove((dir_ + "/big.xml").c_str());
    rmdir(dir_.c_str());
  }
  std::string dir_;
};

TEST_F(ReportFileTest, FileErrorsNameThePathAndTheReason) {
  struct Case { std::string path; const char* reason; };
  {
    std::ofstream big(dir_ + "/big.xml", std::ios::binary);
    big << "<vlsStoreStatistic version='0.3'>\n" << std::string(kMaxReportBytes, ' ');
  }
  for (const Case& c : {Case{dir_ + "/missing.xml", "No such file or directory"}, Case{dir_, "Is a directory"},
                        Case{dir_ + "/big.xml", "larger than"}}) {
    ReportSummary r;
    std::string error;
    EXPECT_FALSE(readReport(c.path, r, error)) << c.path;
    EXPECT_NE(error.find(c.path), std::string::npos) << error;
    EXPECT_NE(error.find(c.reason), std::string::npos) << error;
  }
}

}  // namespace
}  // namespace cli
}  // namespace vorlane
