// The report reader and writer: tests/data/expected_report_small.xml is the server's own report of a
// fixed small store (see tests/stat/report_test.cpp) and tests/data/sample_report.xml one of a larger
// store; both must read and write back byte for byte. Damaged and hostile files must be refused with
// the element and the line named.
#include "report_reader.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "report_writer.h"
#include "vstat_test_support.h"

namespace vorlane {
namespace cli {
namespace {

std::string rewritten(const Report& report) {
  std::ostringstream out;
  writeReportXml(out, report);
  return out.str();
}

TEST(ReportReader, ServerReportsReadAndWriteBackByteForByte) {
  for (const char* name : {"expected_report_small.xml", "sample_report.xml"}) {
    const std::string text = testing::readFile(std::string(VSTAT_TEST_DATA_DIR) + "/" + name);
    ASSERT_FALSE(text.empty()) << name;
    Report report;
    std::string error;
    ASSERT_TRUE(readReport(std::string(VSTAT_TEST_DATA_DIR) + "/" + name, report, error)) << error;
    EXPECT_EQ(report.collections.size(), 25u) << name;
    EXPECT_EQ(rewritten(report), text) << name;
  }
}

// A pretty-printer's layout, CRLF line ends, double quotes, character references and a UTF-8 name read
// the same as the server's own layout.
TEST(ReportReader, ForeignLayoutReadsTheSame) {
  const std::string foreign =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<vlsStoreStatistic version=\"0.3\">\r\n"
      "  <productVersion>7&#46;2</productVersion> <build> 12 </build><osName>L\xc3\xbcnux</osName>\r\n"
      "  <osCode>3</osCode>\r\n  <collection comparison=\"1\" folderType=\"999\" publicType=\"-1\" name=\"A &amp; B\">\r\n"
      "    <histogramCounter name=\"Message size\"><value>2</value><sum>3</sum><max>2</max><avg>1.5</avg>\r\n"
      "      <histValue max=\"1\">1</histValue><histValue max=\"18446744073709551615\">1</histValue>\r\n"
      "    </histogramCounter>\r\n    <counter name=\"Message count\"><value>2</value></counter>\r\n"
      "  </collection>\r\n</vlsStoreStatistic>\r\n";
  Report report;
  std::string error;
  ASSERT_TRUE(parseReport(foreign, report, error)) << error;
  EXPECT_EQ(rewritten(report),
            "<!-- Vorlane MailHub message store statistical data -->\n"
            "<!-- this report includes only statistical data that will be used only for internal purposes of "
            "Vorlane Works -->\n\n<vlsStoreStatistic version='0.3'>\n\t<productVersion>7.2</productVersion>\n"
            "\t<build>12</build>\n\t<osName>L\xc3\xbcnux</osName>\n\t<osCode>3</osCode>\n"
            "<collection name='A &amp; B' publicType='-1' folderType='999' comparison='1'>\n"
            "\t\t\t<histogramCounter name='Message size'>\n\t\t\t\t<value>2</value>\n\t\t\t\t<sum>3</sum>\n"
            "\t\t\t\t<max>2</max>\n\t\t\t\t<avg>1.50</avg>\n\t\t\t\t<histValue max='1'>1</histValue>\n"
            "\t\t\t\t<histValue max='18446744073709551615'>1</histValue>\n\t\t\t</histogramCounter>\n"
            "\t\t\t<counter name='Message count'>\n\t\t\t\t<value>2</value>\n\t\t\t</counter>\n"
            "</collection>\n</vlsStoreStatistic>\n");
}

// Each damaged variant of a small valid report is refused with the line and the element named.
TEST(ReportReader, DamagedReportsAreRefusedNamingElementAndLine) {
  const std::string head = "<vlsStoreStatistic version='0.3'>\n<productVersion>1</productVersion><build>2</build>"
                           "<osName>x</osName><osCode>3</osCode>\n<collection name='C' publicType='0' folderType='0' "
                           "comparison='0'>\n";
  const std::string tail = "</collection>\n</vlsStoreStatistic>\n";
  struct Case { std::string text; std::string error; };
  const Case cases[] = {
      {head + "<counter name='N'>\n<value>18446744073709551616</value></counter>\n" + tail,
       "line 5: <value> of counter 'N' in collection 'C': '18446744073709551616' is not a number of at most 64 bits"},
      {head + "<counter name='N'>\n<value>-1</value></counter>\n" + tail, "line 5: <value> of counter 'N'"},
      {head + "<counter name='N'><value>1</value><sum>2</sum></counter>\n" + tail, "line 4: counter 'N' has only some"},
      {head + "<counter name='N'><sum>2</sum></counter>\n" + tail, "line 4: counter 'N' has no <value>"},
      {head + "<counter name='N'><value>1</value><value>1</value></counter>\n" + tail, "line 4: <value> of counter 'N'"
       " in collection 'C' appears twice"},
      {head + "<histogramCounter name='H'><value>1</value><sum>1</sum><max>1</max><avg>1.00</avg>\n"
              "<histValue max='9'>1</histValue><histValue max='9'>0</histValue></histogramCounter>" + tail,
       "line 5: <histValue> of counter 'H' in collection 'C': the limit 9 does not ascend"},
      {head + "<histogramCounter name='H'><value>1</value><sum>1</sum><max>1</max><avg>x</avg>" + tail,
       "line 4: <avg> of counter 'H' in collection 'C': 'x' is not an average"},
      {head + "<counter name='N'><value>1</value><extra/></counter>\n" + tail, "line 4: unexpected element <extra>"},
      {head + "<counter><value>1</value></counter>\n" + tail, "line 4: <counter> in collection 'C' has no name attribute"},
      {head + tail.substr(0, 14), "line 5: the report ends early"},
      {head.substr(0, head.find("<osCode>")) + "\n<collection name='C' publicType='0' folderType='0' comparison='0'>"
              "</collection></vlsStoreStatistic>",
       "line 3: the report lacks one of"},
      {"<html><p>vlsStoreStatistic</p></html>", "line 1: <html> is not a store statistics report"},
      {"<?xml version='1.0'?>\n<!DOCTYPE r [<!ENTITY a 'aaaa'>]>\n<vlsStoreStatistic version='0.3'/>",
       "line 2: a DOCTYPE declaration is not allowed"},
      {"", "line 1: the report ends early"},
      {std::string("<vlsStoreStatistic version='0.3'>\n\x01"), "line 2: not well-formed"},
      {head + "<counter name='" + std::string(kMaxTextBytes + 1, 'n') + "'>", "line 4: attribute name of <counter>"},
  };
  for (const Case& c : cases) {
    Report report;
    std::string error;
    EXPECT_FALSE(parseReport(c.text, report, error)) << c.text;
    EXPECT_EQ(error.compare(0, c.error.size(), c.error), 0) << error;
  }
}

// Deep nesting and many elements end at the first element out of place or over a limit, not after
// reading everything into memory.
TEST(ReportReader, HostileShapesStopAtALimit) {
  const std::string head = "<vlsStoreStatistic version='0.3'>";
  std::string deep = head;
  for (int i = 0; i < 100000; ++i) deep += "<collection name='c' publicType='0' folderType='0' comparison='0'>";
  std::string many = head;
  for (size_t i = 0; i <= kMaxCollections; ++i) many += "<collection name='c' publicType='0' folderType='0' comparison='0'/>";
  struct Case { std::string text; const char* error; };
  for (const Case& c : {Case{deep, "unexpected element <collection> in collection 'c'"},
                        Case{many, "more than 1000 collections"}}) {
    Report report;
    std::string error;
    EXPECT_FALSE(parseReport(c.text, report, error));
    EXPECT_NE(error.find(c.error), std::string::npos) << error;
    EXPECT_LE(report.collections.size(), kMaxCollections);
  }
}

TEST(ReportReader, FilesThatAreNotRegularOrTooLargeAreRefusedUnread) {
  const testing::TempDir dir;
  const std::string fifo = dir.file("fifo.xml");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string big = dir.file("big.xml");
  ASSERT_EQ(truncate(dir.write("big.xml", "").c_str(), static_cast<off_t>(kMaxReportBytes) + 1), 0);
  struct Case { std::string path; const char* reason; };
  for (const Case& c : {Case{dir.file("missing.xml"), "No such file or directory"}, Case{fifo, "is not a regular file"},
                        Case{dir.path(), "is not a regular file"}, Case{big, "larger than 64 MiB"}}) {
    Report report;
    std::string error;
    EXPECT_FALSE(readReport(c.path, report, error)) << c.path;
    EXPECT_NE(error.find("'" + c.path + "'"), std::string::npos) << error;
    EXPECT_NE(error.find(c.reason), std::string::npos) << error;
  }
}

}  // namespace
}  // namespace cli
}  // namespace vorlane
