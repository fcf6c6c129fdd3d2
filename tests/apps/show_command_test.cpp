// vstat show through the program's parser: the formats, the atomic -o, and the files it must refuse.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "vstat_test_support.h"
#include "report_json.h"

namespace vorlane {
namespace cli {
namespace {

const std::string kSample = std::string(VSTAT_TEST_DATA_DIR) + "/sample_report.xml";

VstatRun show(std::vector<std::string> args) {
  args.insert(args.begin(), "show");
  return runVstatWith(args);
}

// Figures from tests/data/sample_report.xml: the first collection's "Message size" histogram.
TEST(ShowCommand, JsonCarriesEveryFigureUnderTheReportsNames) {
  const testing::TempDir dir;
  const std::string file = dir.file("report.json");
  const VstatRun r = show({kSample, "--format", "json", "-o", file});
  ASSERT_EQ(r.status, 0) << r.err;
  const Json j = Json::parse(testing::readFile(file), nullptr, false);
  ASSERT_FALSE(j.is_discarded());
  EXPECT_EQ(j["build"], 5123);
  ASSERT_EQ(j["collections"].size(), 25u);
  const Json& sizes = j["collections"][0]["counters"][1];
  EXPECT_EQ(sizes["name"], "Message size");
  EXPECT_EQ(sizes["kind"], "histogramCounter");
  EXPECT_EQ(sizes["sum"], 73191110u);
  EXPECT_EQ(sizes["avg"], 481520.46);
  EXPECT_EQ(sizes["histValues"].size(), 28u);
  EXPECT_EQ(sizes["histValues"][27]["max"].get<unsigned long long>(), ~0ull);
  EXPECT_FALSE(j["collections"][0]["counters"][0].contains("sum"));  // "Message count" is value-only
}

TEST(ShowCommand, AverageIsTheReportsTwoDecimalsOrNull) {
  struct Case { unsigned long long sum, count; const char* json; };
  for (const Case& c : {Case{3, 2, "1.5"}, Case{1, 3, "0.33"}, Case{2, 3, "0.67"}, Case{0, 0, "null"},
                        Case{~0ull, 1, "1.8446744073709552e+19"}}) {
    EXPECT_EQ(jsonLine(averageJson(c.sum, c.count)), c.json) << c.sum << "/" << c.count;
  }
}

// What the reader refuses is in report_reader_test.cpp; here the command passes it on.
TEST(ShowCommand, UnreadableReportsAndUnwritableOutputsFailWithOne) {
  const testing::TempDir dir;
  const std::string damaged = dir.write("damaged.xml", "<vlsStoreStatistic version='0.3'>\n<build>x</build>");
  struct Case { std::vector<std::string> args; std::string error; };
  for (const Case& c : {Case{{damaged}, "vstat show: report '" + damaged + "': line 2: <build>: 'x' is not a number"},
                        Case{{kSample, "-o", dir.file("none/out.txt")}, "vstat show: " }}) {
    const VstatRun r = show(c.args);
    EXPECT_EQ(r.status, 1) << c.error;
    EXPECT_EQ(r.err.compare(0, c.error.size(), c.error), 0) << r.err;
    EXPECT_NE(r.err.find(c.args.back()), std::string::npos) << r.err;
  }
  EXPECT_EQ(show({kSample, "--format", "yaml"}).status, 2);
}

}  // namespace
}  // namespace cli
}  // namespace vorlane
