// The report file text, byte for byte.
//
// tests/data/expected_report_small.xml is the complete report (all 25 collections) for the fixed
// facts fed by feedSmallStore() below, written out by hand from the report layout, not produced by
// this code. How its values follow from the facts:
//   * Domain "example.com" once: "Domain count" 1, only in "Any folder class - any folder type".
//   * alice, INBOX (mail, 7000 bytes, 2 messages):
//       M1 5000 bytes, header 1000, plain 2000: attachment 5000-3000 = 2000, only plain text;
//       M2 2000 bytes, header 500, plain 300, HTML 1000, signed: 2000-1800 = 200 is no attachment,
//          plain text with HTML.
//     INBOX collection: Message count 2; Message size 5000+2000 (buckets 5000, 2000), avg 3500.00;
//     header 1000+500 (buckets 1000, 500); plain 2000+300 (buckets 2000, 300), avg 1150.00; HTML
//     1000; RTF empty, avg undef; attachment 2000; folder size 7000 (bucket 20000); messages per
//     folder 2 (bucket 2).
//   * alice, Sent Items (mail, 0 bytes, 0 messages): folder size left out; messages per folder 0
//     lands in bucket "1" (no 0 bucket).
//   * alice, Contacts (contacts, 1500 bytes, 1 message) with one "IPM.DistList" message of 1500
//     bytes and no parts: Contacts collection message 1500 (bucket 2000), folder size 1500 (bucket
//     20000), per folder 1; "IPF.Contact - any folder type" distribution lists 1. Its attachment of
//     1500 has no counter to go to in contact collections.
//   * alice's per-user samples: 1 in INBOX, Sent Items and Contacts, 3 in "user folders", 0 in
//     every other user collection. bob has no folder: 0 everywhere. So those collections hold
//     samples {1, 0} (avg 0.50, buckets 0 and 1), {0, 0} (bucket 0 twice), and {3, 0} (avg 1.50).
//   * Public tree (domain "#public", one user-like bracket): folder "#public/Projects" (mail, 30000
//     bytes, 1 message) with one message of 30000 bytes, header 800, HTML 4000, encrypted:
//     attachment 30000-4800 = 25200 (bucket 50000), only HTML. Public mail: per-user sample 1;
//     the other five public collections get a 0 sample.
//   * Summaries: note summary 3 messages (M1, M2, public), one each only plain / only HTML / plain
//     with HTML, signed 1 of 2000, encrypted 1 of 30000; any folder: 4 messages, size 38500, max
//     30000, avg 9625.00, 4 folders; user folders: 3 messages, 8500, avg 2833.33.
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../support/temp_dir.h"
#include "stat/counter_catalogue.h"
#include "stat/statistic.h"

namespace {

vorlane::vstat::ProcessStoreReqBuffT makeRequest(const char* productVersion, uint32_t build, const char* osName,
                                                 uint32_t osCode) {
  vorlane::vstat::ProcessStoreReqBuffT request;
  std::memset(&request, 0, sizeof request);
  std::strcpy(request.storeDir, "/var/store");
  std::strncpy(request.productVersion, productVersion, sizeof request.productVersion - 1);
  request.build = build;
  std::strncpy(request.osName, osName, sizeof request.osName - 1);
  request.osCode = osCode;
  return request;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

void feedSmallStore(Statistic& statistic) {
  const Collection::FolderType mail = Collection::MailFolder;
  statistic.addDomainInfo();
  statistic.resetUserCounters("example.com", "alice");
  statistic.addFolderInfo("example.com", "alice", "INBOX", mail, 7000, 2);
  statistic.addMessageInfo({"example.com", "alice", "INBOX", mail}, {"IPM.Note", 5000, 1000, 2000, 0, 0, false, false});
  statistic.addMessageInfo({"example.com", "alice", "INBOX", mail}, {"IPM.Note", 2000, 500, 300, 1000, 0, true, false});
  statistic.addFolderInfo("example.com", "alice", "Sent Items", mail, 0, 0);
  statistic.addFolderInfo("example.com", "alice", "Contacts", Collection::ContactsFolder, 1500, 1);
  statistic.addMessageInfo({"example.com", "alice", "Contacts", Collection::ContactsFolder}, {"IPM.DistList", 1500});
  statistic.mergeUserCounters("example.com", "alice");
  statistic.resetUserCounters("example.com", "bob");
  statistic.mergeUserCounters("example.com", "bob");
  statistic.resetUserCounters("#public", "");
  statistic.addFolderInfo("#public", "Projects", "", mail, 30000, 1);
  statistic.addMessageInfo({"#public", "Projects", "", mail}, {"IPM.Note", 30000, 800, 0, 4000, 0, false, true});
  statistic.mergeUserCounters("#public", "");
}

}  // namespace

// Texts are written as they stand; a field that fills its whole array is cut at the array's end.
TEST(Report, RequestTextsAreUnescapedAndBounded) {
  vorlane::vstat::ProcessStoreReqBuffT request = makeRequest("", 4294967295u, "<Linux & 'x'>", 0);
  std::memset(request.productVersion, 'v', sizeof request.productVersion);
  Statistic statistic;
  std::ostringstream out;
  statistic.report(out, request);
  const std::vector<std::string> lines = linesOf(out.str());
  ASSERT_GE(lines.size(), 8u);
  EXPECT_EQ(lines[4], "\t<productVersion>" + std::string(28, 'v') + "</productVersion>");
  EXPECT_EQ(lines[5], "\t<build>4294967295</build>");
  EXPECT_EQ(lines[6], "\t<osName><Linux & 'x'></osName>");
  EXPECT_EQ(lines[7], "\t<osCode>0</osCode>");
}

TEST(Report, SmallStoreMatchesTheExpectedFile) {
  const std::string expected = vorlane::testing::readFile(VSTAT_TEST_DATA_DIR "/expected_report_small.xml");
  ASSERT_FALSE(expected.empty()) << "cannot read " VSTAT_TEST_DATA_DIR "/expected_report_small.xml";
  Statistic statistic;
  defineCounters(statistic);
  feedSmallStore(statistic);
  std::ostringstream out;
  statistic.report(out, makeRequest("7.2.1", 4711, "Linux", 3));
  EXPECT_EQ(out.str(), expected);  // same bytes, line ends included; a failure shows the lines that differ
  EXPECT_EQ(out.str().find("temporary"), std::string::npos);
}
