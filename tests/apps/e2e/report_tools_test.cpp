// vstat's report tools on real reports: a store from the sample-store generator is scanned whole by the
// real vstat and vstatserver, then split by domains into two stores (the public tree in the second),
// each scanned on its own. The whole store's report must read and write back byte for byte, and the
// merge of the two halves must give exactly the whole store's report. A scan can also write its
// metrics file in one step.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>

#include "mkstore/store_generator.h"
#include "report_reader.h"
#include "report_writer.h"
#include "../vstat_test_support.h"

namespace vorlane {
namespace cli {
namespace {

const std::string kVstat = VSTAT_BIN_DIR "/vstat";

// The paths are the test's own temporary names, free of shell characters.
int vstat(const std::string& arguments) {
  return std::system((kVstat + " " + arguments + " >/dev/null").c_str());
}

TEST(ReportTools, HalvesOfAStoreMergeIntoTheWholeStoresReport) {
  const testing::TempDir dir;
  mkstore::StoreOptions options;
  options.messages = 600;
  options.seed = 11;
  options.outDir = dir.file("whole");
  mkstore::Manifest manifest;
  std::string error;
  ASSERT_TRUE(mkstore::generateStore(options, manifest, error)) << error;
  ASSERT_EQ(vstat("scan " + dir.file("whole") + " --report " + dir.file("whole.xml")), 0);

  const std::string whole = testing::readFile(dir.file("whole.xml"));
  Report report;
  ASSERT_TRUE(readReport(dir.file("whole.xml"), report, error)) << error;
  std::ostringstream rewritten;
  writeReportXml(rewritten, report);
  EXPECT_EQ(rewritten.str(), whole);

  // The first domain goes to one store; the other domains, the public tree and everything else stay.
  namespace fs = std::filesystem;
  const fs::path first = fs::path(dir.file("first/mail"));
  fs::create_directories(first);
  std::string moved;
  for (const fs::directory_entry& e : fs::directory_iterator(dir.file("whole/mail"))) {
    const std::string name = e.path().filename().string();
    if (e.is_directory() && name[0] != '#' && (moved.empty() || name < moved)) moved = name;
  }
  ASSERT_FALSE(moved.empty());
  fs::rename(dir.file("whole/mail/" + moved), first / moved);
  ASSERT_EQ(vstat("scan " + dir.file("first") + " --report " + dir.file("first.xml")), 0);
  ASSERT_EQ(vstat("scan " + dir.file("whole") + " --report " + dir.file("rest.xml") + " --format openmetrics -o " +
                  dir.file("rest.prom")),
            0);
  const std::string metrics = testing::readFile(dir.file("rest.prom"));
  EXPECT_EQ(metrics.substr(metrics.size() - 7), "\n# EOF\n");
  EXPECT_NE(testing::readFile(dir.file("first.xml")), whole);

  ASSERT_EQ(vstat("merge " + dir.file("first.xml") + " " + dir.file("rest.xml") + " -o " + dir.file("merged.xml")), 0);
  EXPECT_EQ(testing::readFile(dir.file("merged.xml")), whole);
}

}  // namespace
}  // namespace cli
}  // namespace vorlane
