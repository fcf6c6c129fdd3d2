// The history commands end to end in one process: details files made by the scan's own writer, reports
// by the statistic's own writer, imported into a database under a temporary directory and queried.
// Expected figures are worked out by hand from the folders each test lays out.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <vector>

#include <nlohmann/json.hpp>

#include "../support/temp_dir.h"
#include "details_reader.h"
#include "history_command.h"
#include "history_import.h"
#include "history_section.h"
#include "report_html.h"
#include "stat/counter_catalogue.h"
#include "stat/folder_details.h"
#include "stat/statistic.h"
#include "top_command.h"
#include "utils/base64.h"

namespace vorlane {
namespace cli {
namespace {

using vorlane::testing::TempDir;

FolderDetails folder(const std::string& domain, const std::string& mailbox, const std::string& name,
                     std::vector<unsigned long long> sizes) {
  FolderDetails f = folderDetailsAt(domain, mailbox, name, Collection::MailFolder, true);
  for (unsigned long long size : sizes) {
    MessageFacts message;
    message.size = size;
    f.addMessage(message);
  }
  return f;
}

// One scan's files as the job writes them: the report (through the statistic) and the details.
struct Scan {
  std::string report;
  std::string details;
};

Scan writeScan(const TempDir& dir, const std::string& name, const std::vector<FolderDetails>& folders,
               std::time_t date, bool partial = false) {
  Statistic statistic;
  defineCounters(statistic);
  for (const FolderDetails& f : folders) {
    statistic.addFolderInfo(f.domain, f.mailbox, f.folder, f.type, f.bytes, f.messages);
  }
  vstat::ProcessStoreReqBuffT request{};
  std::snprintf(request.productVersion, sizeof request.productVersion, "9.1");
  request.build = 7;
  std::snprintf(request.osName, sizeof request.osName, "Linux");
  std::ostringstream report;
  statistic.report(report, request);
  Scan scan{dir.write(name + ".xml", report.str()), dir.file(name + ".jsonl")};

  DetailsHeader header;
  header.productVersion = "9.1";
  header.build = 7;
  header.osName = "Linux";
  header.date = date;
  FolderDetailsWriter writer;
  std::string error;
  EXPECT_TRUE(writer.open(scan.details, header, error)) << error;
  for (const FolderDetails& f : folders) writer.write(f);
  EXPECT_TRUE(writer.finish(partial, error)) << error;
  return scan;
}

bool import(const Scan& scan, const std::string& db, const std::string& node, std::string& error,
            int busyTimeoutMs = kDefaultBusyTimeoutMs) {
  ImportOptions options;
  options.report = scan.report;
  options.details = scan.details;
  options.db = db;
  options.node = node;
  options.busyTimeoutMs = busyTimeoutMs;
  long long id = 0;
  return importScan(options, id, error);
}

long long countRows(const std::string& db, const char* table) {
  HistoryDb h;
  std::string error;
  EXPECT_TRUE(h.open(db, false, error)) << error;
  Statement s;
  EXPECT_TRUE(h.prepare((std::string("SELECT COUNT(*) FROM ") + table).c_str(), s, error)) << error;
  return s.step() == SQLITE_ROW ? s.integer(0) : -1;
}

// What `vstat top` or `vstat history` writes with --format json.
template <typename Options>
nlohmann::json commandJson(bool (*run)(const Options&, std::ostream&, std::string&), Options options) {
  options.format = OutputFormat::Json;
  std::ostringstream out;
  std::string error;
  EXPECT_TRUE(run(options, out, error)) << error;
  return nlohmann::json::parse(out.str(), nullptr, false);
}

nlohmann::json topJson(const TopOptions& options) { return commandJson(runTop, options); }
nlohmann::json historyJson(const HistoryOptions& options) { return commandJson(runHistory, options); }

// "node:bytes " for every scan of a history.
std::string scanBytes(const nlohmann::json& history) {
  std::string list;
  for (const auto& s : history["scans"]) {
    list += s["node"].get<std::string>() + ":" + std::to_string(s["bytes"].get<long long>()) + " ";
  }
  return list;
}

// "domain/mailbox:growth " for every mailbox of a history's growth table.
std::string growthOf(const nlohmann::json& history) {
  std::string list;
  for (const auto& m : history["growth"]["mailboxes"]) {
    list += m["domain"].get<std::string>() + "/" + m["mailbox"].get<std::string>() + ":" +
            std::to_string(m["bytes_now"].get<long long>() - m["bytes_before"].get<long long>()) + " ";
  }
  return list;
}

std::string names(const nlohmann::json& top) {
  std::string list;
  for (const auto& row : top["rows"]) {
    list += (list.empty() ? "" : " ") + row["domain"].get<std::string>();
    for (const char* key : {"mailbox", "folder"}) {
      if (!row[key].get<std::string>().empty()) list += "/" + row[key].get<std::string>();
    }
    list += "=" + std::to_string(row["bytes"].get<unsigned long long>());
  }
  return list;
}

const std::time_t kDay = 86400;

// Two nodes share one database; each holds an older and a newer scan.
class TwoNodes : public ::testing::Test {
 protected:
  void SetUp() override {
    db = dir.file("history.sqlite");
    std::string error;
    const Scan a1 = writeScan(dir, "a1", {folder("a.org", "ann", "INBOX", {100, 200})}, 10 * kDay);
    // ann's folders are not all in one run: her sums gather the two.
    const Scan a2 = writeScan(dir, "a2",
                              {folder("a.org", "ann", "INBOX", {100, 200, 4000}), folder("a.org", "bob", "INBOX", {1000}),
                               folder("a.org", "ann", "Sent", {50})},
                              20 * kDay);
    const Scan b1 = writeScan(dir, "b1", {folder("b.net", "cy", "INBOX", {3000})}, 11 * kDay);
    const Scan b2 = writeScan(dir, "b2", {folder("b.net", "cy", "INBOX", {3000, 10}), folder("#public", "News", "", {600})},
                              21 * kDay);
    for (const auto& s : {std::make_pair(a1, "mx-a"), std::make_pair(b1, "mx-b"), std::make_pair(a2, "mx-a"),
                          std::make_pair(b2, "mx-b")}) {
      ASSERT_TRUE(import(s.first, db, s.second, error)) << error;
    }
  }

  TempDir dir;
  std::string db;
};

TEST_F(TwoNodes, TopRanksTheNewestScanOfEveryNodeAtEachLevel) {
  struct Case {
    TopLevel level;
    TopOrder order;
    std::string node;
    long long scan;
    std::string expected;
  };
  for (const Case& c : {
           Case{TopLevel::Mailbox, TopOrder::Bytes, "", 0, "a.org/ann=4350 b.net/cy=3010 a.org/bob=1000 #public=600"},
           Case{TopLevel::Domain, TopOrder::Bytes, "", 0, "a.org=5350 b.net=3010 #public=600"},
           Case{TopLevel::Folder, TopOrder::Messages, "", 0,
                "a.org/ann/INBOX=4300 b.net/cy/INBOX=3010 #public/News=600 a.org/ann/Sent=50"},
           Case{TopLevel::Folder, TopOrder::Largest, "mx-b", 0, "b.net/cy/INBOX=3010 #public/News=600"},
           Case{TopLevel::Mailbox, TopOrder::Bytes, "", 1, "a.org/ann=300"},
       }) {
    TopOptions options;
    options.db = db;
    options.level = c.level;
    options.order = c.order;
    options.node = c.node;
    options.scan = c.scan;
    options.limit = 4;
    EXPECT_EQ(names(topJson(options)), c.expected) << static_cast<int>(c.level) << " " << c.node << " " << c.scan;
  }
}

TEST_F(TwoNodes, HistoryShowsEveryScanAndWhoGrewSinceTheScanBefore) {
  HistoryOptions options;
  options.db = db;
  const nlohmann::json h = historyJson(options);
  EXPECT_EQ(scanBytes(h), "mx-a:300 mx-b:3000 mx-a:5350 mx-b:3610 ");
  EXPECT_EQ(growthOf(h), "a.org/ann:4050 a.org/bob:1000 #public/:600 b.net/cy:10 ");

  // Before every scan, each node's oldest scan is the base; after them all, there is nothing to compare.
  // Only a.org's mailboxes count, in the totals too.
  struct Case {
    const char* since;
    std::string growth;
  };
  for (const Case& c : {Case{"1970-01-05", "a.org/ann:4050 a.org/bob:1000 "}, Case{"1970-12-31", ""}}) {
    options.filter.domain = "a.org";
    options.since = c.since;
    const nlohmann::json result = historyJson(options);
    EXPECT_EQ(scanBytes(result), "mx-a:300 mx-b:0 mx-a:5350 mx-b:0 ");
    EXPECT_EQ(growthOf(result), c.growth) << c.since;
  }
}

TEST_F(TwoNodes, ReportPageSectionRanksTheNewestScansAndChartsEachNode) {
  std::string section, error;
  ASSERT_TRUE(historySectionHtml(db, section, error)) << error;
  auto rowNames = [&](const char* from, const char* to) {
    const size_t begin = section.find(from), end = section.find(to, begin);
    const std::string table = section.substr(begin, end == std::string::npos ? end : end - begin);
    std::string list;
    const std::regex cell("<tr><td>([^<]*)</td>");
    for (std::sregex_iterator it(table.begin(), table.end(), cell), last; it != last; ++it) list += (*it)[1].str() + " ";
    return list;
  };
  // The newest scans are a2 and b2; the older ones only feed the charts. The public tree has no mailbox.
  EXPECT_EQ(rowNames("Largest mailboxes", "Largest folders"), "a.org/ann b.net/cy a.org/bob #public ");
  EXPECT_EQ(rowNames("Largest folders", "Growth"),
            "a.org/ann/INBOX b.net/cy/INBOX a.org/bob/INBOX #public/News a.org/ann/Sent ");
  const std::regex polyline("<polyline");
  EXPECT_EQ(std::distance(std::sregex_iterator(section.begin(), section.end(), polyline), std::sregex_iterator()), 4);

  std::ostringstream page;
  writeHtml(page, Report(), section);
  EXPECT_NE(page.str().find(section + "</body></html>\n"), std::string::npos);
  EXPECT_FALSE(historySectionHtml(dir.file("missing.sqlite"), section, error));
}

// Every way a details file can be damaged is refused with its line, and the database keeps what it had.
TEST_F(TwoNodes, DamagedDetailsAreRefusedWithTheirLineAndImportNothing) {
  const Scan good = writeScan(dir, "good", {folder("a.org", "ann", "INBOX", {1}), folder("a.org", "ann", "X", {2})}, 30 * kDay);
  std::ifstream in(good.details);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  ASSERT_EQ(lines.size(), 4u);
  const long long folders = countRows(db, "folder");
  struct Case {
    std::string text;
    std::string where;
  };
  const std::string head = lines[0] + "\n" + lines[1] + "\n";
  for (const Case& c : {
           Case{head + lines[2].substr(0, 20), ":3: truncated"},
           Case{head + lines[2] + "\n" + lines[3], ":4: truncated"},
           Case{head + "not json\n" + lines[3] + "\n", ":3: not a JSON object"},
           Case{"{\"format\":\"vstat-details\",\"version\":2}\n", ":1: unsupported details version 2"},
           Case{"{\"format\":\"other\",\"version\":1}\n", ":1: not a details file"},
           Case{head + "{\"domain\":\"a.org\"}\n", ":3: field"},
           Case{head + lines[3] + "\n", ":3: end line counts 2 folders, the file holds 1"},
           Case{head + lines[2] + "\n", ":3: no end line"},
           Case{head + lines[2] + "\n" + lines[3] + "\n" + lines[2] + "\n", ":5: line after the end line"},
           Case{"", ":0: empty file"},
           Case{std::regex_replace(head, std::regex("\"build\":7"), "\"build\":8"), ":1: the details file is not from"},
       }) {
    std::ofstream(good.details, std::ios::binary | std::ios::trunc) << c.text;
    std::string error;
    EXPECT_FALSE(import(good, db, "mx-a", error)) << c.where;
    EXPECT_NE(error.find(good.details + c.where), std::string::npos) << error;
    EXPECT_EQ(countRows(db, "scan"), 4);
    EXPECT_EQ(countRows(db, "folder"), folders);
  }
}

// Folder lines in the writer's own shape are read by a direct scanner, others by the JSON parser: what a
// line holds, or that it is refused, must not depend on which of them read it. Expected values follow
// JSON's grammar (RFC 8259) and well-formed UTF-8 (RFC 3629).
TEST(DetailsReader, LinesReadAsJsonHasThemWhicheverParserTakesThem) {
  TempDir dir;
  const Scan scan = writeScan(dir, "s", {}, kDay);
  std::string header;
  std::getline(std::ifstream(scan.details), header);
  // One folder line whose folder and messages members are `members`; true when the file is read.
  auto readLine = [&](const std::string& members, FolderDetails& read, std::string& error) {
    std::ofstream(scan.details, std::ios::binary | std::ios::trunc)
        << header << "\n{\"domain\":\"a.org\",\"mailbox\":\"ann\"," << members
        << ",\"class\":\"IPF.Note\",\"type\":0,\"public\":false,\"status\":true,\"bytes\":1,\"largest\":1,"
           "\"header_bytes\":0,\"plain_bytes\":0,\"html_bytes\":0,\"rtf_bytes\":0,\"signed\":0,\"encrypted\":0}\n"
           "{\"end\":true,\"folders\":1,\"partial\":false}\n";
    DetailsCallbacks callbacks;
    callbacks.header = [](const DetailsFileHeader&, std::string&) { return true; };
    callbacks.folder = [&](const FolderDetails& f, std::string&) {
      read = f;
      return true;
    };
    bool partial = false;
    return readDetailsFile(scan.details, callbacks, partial, error);
  };
  struct Read {
    std::string members;
    std::string folder;
    unsigned long long messages;
  };
  for (const Read& c : {
           Read{"\"folder\":\"caf\xc3\xa9\",\"messages\":18446744073709551615", "caf\xc3\xa9", 18446744073709551615ULL},
           Read{"\"folder\":\"a\\\"b\\u00e9\",\"messages\":0", "a\"b\xc3\xa9", 0},
           Read{" \"folder\" : \"INBOX\" , \"messages\" : 7 ,\"messages\":5", "INBOX", 5},
           Read{"\"folder\":\"INBOX\",\"x\":{\"messages\":5},\"y\":[1,null,-2.5e3],\"messages\":7", "INBOX", 7},
       }) {
    FolderDetails read;
    std::string error;
    ASSERT_TRUE(readLine(c.members, read, error)) << c.members << ": " << error;
    EXPECT_EQ(read.folder, c.folder) << c.members;
    EXPECT_EQ(read.messages, c.messages) << c.members;
  }
  const std::pair<const char*, std::vector<std::string>> refused[] = {
      {":2: not a JSON object",
       {"\"folder\":\"INBOX\",\"messages\":01", "\"folder\":\"INBOX\",\"messages\":tru", "\"folder\":\"INBOX\",\"messages\":7,",
        "\"folder\":\"INBOX\",\"messages\":7}", "\"folder\":\"caf\xe9\",\"messages\":7", "\"folder\":\"\xc0\xaf\",\"messages\":7",
        "\"folder\":\"\xed\xa0\x80\",\"messages\":7", "\"folder\":\"\xf4\x90\x80\x80\",\"messages\":7",
        "\"folder\":\"tab\there\",\"messages\":7"}},
      {":2: field \"messages\" missing or not a non-negative integer",
       {"\"folder\":\"INBOX\",\"messages\":1.0", "\"folder\":\"INBOX\",\"messages\":1e2", "\"folder\":\"INBOX\",\"messages\":-1",
        "\"folder\":\"INBOX\",\"messages\":18446744073709551616"}},
  };
  for (const auto& reason : refused) {
    for (const std::string& members : reason.second) {
      FolderDetails read;
      std::string error;
      EXPECT_FALSE(readLine(members, read, error)) << members;
      EXPECT_NE(error.find(scan.details + reason.first), std::string::npos) << members << ": " << error;
    }
  }
}

TEST(HistoryDb, IsPrivateRefusesNewerSchemasAndGivesUpOnALockInBoundedTime) {
  TempDir dir;
  const std::string db = dir.file("h.sqlite");
  const Scan scan = writeScan(dir, "s", {folder("a.org", "ann", "INBOX", {1})}, kDay);
  std::string error;
  ASSERT_TRUE(import(scan, db, "n", error)) << error;
  struct stat info;
  ASSERT_EQ(::stat(db.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);

  {
    HistoryDb writer;
    ASSERT_TRUE(writer.open(db, false, error)) << error;
    ASSERT_TRUE(writer.exec("BEGIN IMMEDIATE", error)) << error;
    EXPECT_FALSE(import(scan, db, "n", error, 100));
    EXPECT_NE(error.find("locked by another writer; gave up after 100 ms"), std::string::npos) << error;
    const std::string newer = std::to_string(kHistorySchemaVersion + 1);
    ASSERT_TRUE(writer.exec(("PRAGMA user_version = " + newer + "; COMMIT").c_str(), error)) << error;
    EXPECT_FALSE(import(scan, db, "n", error));
    EXPECT_NE(error.find("schema version " + newer + ", newer"), std::string::npos) << error;
  }

  dir.write("not.sqlite", "plain text, not a database at all");
  HistoryDb other;
  EXPECT_FALSE(other.open(dir.file("not.sqlite"), true, error));
}

// The first schema kept folder rows by row id and no sums per scan; such a database is upgraded in place
// when opened and answers as before. Its rows here: scan 1 with ann's two folders and cy's, scan 2 with
// ann's inbox, the scans' rows interleaved as two importers may leave them.
TEST(HistoryDb, VersionOneDatabaseIsUpgradedInPlace) {
  TempDir dir;
  const std::string db = dir.file("v1.sqlite");
  sqlite3* raw = nullptr;
  ASSERT_EQ(sqlite3_open(db.c_str(), &raw), SQLITE_OK);
  const std::string kVersion1 = "PRAGMA application_id = " + std::to_string(kApplicationId) + R"(;
    PRAGMA user_version = 1;
    CREATE TABLE scan (id INTEGER PRIMARY KEY, node TEXT NOT NULL, date TEXT NOT NULL, imported TEXT NOT NULL,
      store BLOB NOT NULL, product_version BLOB NOT NULL, build INTEGER NOT NULL, os_name BLOB NOT NULL,
      os_code INTEGER NOT NULL, partial INTEGER NOT NULL, report_messages INTEGER NOT NULL,
      report_bytes INTEGER NOT NULL, report_largest INTEGER NOT NULL, report_folders INTEGER NOT NULL,
      report_domains INTEGER NOT NULL);
    CREATE INDEX scan_by_node_date ON scan(node, date);
    CREATE TABLE folder (scan INTEGER NOT NULL REFERENCES scan(id), domain BLOB NOT NULL, mailbox BLOB NOT NULL,
      folder BLOB NOT NULL, type INTEGER NOT NULL, public INTEGER NOT NULL, status INTEGER NOT NULL,
      messages INTEGER NOT NULL, bytes INTEGER NOT NULL, largest INTEGER NOT NULL, header_bytes INTEGER NOT NULL,
      plain_bytes INTEGER NOT NULL, html_bytes INTEGER NOT NULL, rtf_bytes INTEGER NOT NULL,
      signed INTEGER NOT NULL, encrypted INTEGER NOT NULL);
    CREATE INDEX folder_by_scan ON folder(scan);
    CREATE TABLE mailbox (scan INTEGER NOT NULL REFERENCES scan(id), domain BLOB NOT NULL, mailbox BLOB NOT NULL,
      folders INTEGER NOT NULL, messages INTEGER NOT NULL, bytes INTEGER NOT NULL, largest INTEGER NOT NULL,
      PRIMARY KEY (scan, domain, mailbox)) WITHOUT ROWID;
    INSERT INTO scan VALUES (1, 'n', '1970-01-02T00:00:00Z', '', '', '', 0, '', 0, 0, 4, 3350, 3000, 3, 2),
                            (2, 'n', '1970-01-03T00:00:00Z', '', '', '', 0, '', 0, 0, 3, 4300, 4000, 1, 1);
    INSERT INTO folder VALUES (1, 'a.org', 'ann', 'INBOX', 0, 0, 1, 2, 300, 200, 0, 0, 0, 0, 0, 0),
                              (2, 'a.org', 'ann', 'INBOX', 0, 0, 1, 3, 4300, 4000, 0, 0, 0, 0, 0, 0),
                              (1, 'a.org', 'ann', 'Sent', 0, 0, 1, 1, 50, 50, 0, 0, 0, 0, 0, 0),
                              (1, 'b.net', 'cy', 'INBOX', 0, 0, 1, 1, 3000, 3000, 0, 0, 0, 0, 0, 0);
    INSERT INTO mailbox VALUES (1, 'a.org', 'ann', 2, 3, 350, 200), (1, 'b.net', 'cy', 1, 1, 3000, 3000),
                               (2, 'a.org', 'ann', 1, 3, 4300, 4000);
  )";
  ASSERT_EQ(sqlite3_exec(raw, kVersion1.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(raw);
  sqlite3_close(raw);

  TopOptions top;
  top.db = db;
  top.level = TopLevel::Folder;
  top.scan = 1;
  EXPECT_EQ(names(topJson(top)), "b.net/cy/INBOX=3000 a.org/ann/INBOX=300 a.org/ann/Sent=50");

  HistoryOptions options;
  options.db = db;
  const nlohmann::json h = historyJson(options);
  EXPECT_EQ(scanBytes(h), "n:3350 n:4300 ");
  EXPECT_EQ(h["scans"][0]["folders"], 3);

  std::string error;
  HistoryDb upgraded;
  ASSERT_TRUE(upgraded.open(db, false, error)) << error;
  Statement s;
  // Each scan's folders keep the order they were imported in.
  ASSERT_TRUE(upgraded.prepare("SELECT (SELECT user_version FROM pragma_user_version), group_concat(f, ' ') FROM "
                               "(SELECT seq || ':' || mailbox || '/' || folder AS f FROM folder ORDER BY scan, seq)",
                               s, error))
      << error;
  ASSERT_EQ(s.step(), SQLITE_ROW);
  EXPECT_EQ(s.integer(0), kHistorySchemaVersion);
  EXPECT_EQ(s.bytes(1), "1:ann/INBOX 2:ann/Sent 3:cy/INBOX 1:ann/INBOX");
}

// Folder names are bytes: whatever the disk holds comes back from the database unchanged.
TEST(HistoryDb, OddNamesRoundTripThroughFileAndDatabase) {
  TempDir dir;
  const std::vector<std::string> odd = {"caf\xe9", "line\nbreak", "quote\"d,comma", "\xff\xfe\xfd", "\xe2\x82",
                                        "Ord\xc3\xa9"};
  std::vector<FolderDetails> folders;
  for (size_t i = 0; i < odd.size(); ++i) folders.push_back(folder("d" + odd[i], odd[i], odd[i], {100 + i}));
  const Scan scan = writeScan(dir, "s", folders, kDay);
  std::string error;
  ASSERT_TRUE(import(scan, dir.file("h.sqlite"), "n", error)) << error;

  TopOptions options;
  options.db = dir.file("h.sqlite");
  options.level = TopLevel::Folder;
  options.order = TopOrder::Largest;
  const nlohmann::json top = topJson(options);
  ASSERT_EQ(top["rows"].size(), odd.size());
  for (size_t i = 0; i < odd.size(); ++i) {
    const nlohmann::json& row = top["rows"][odd.size() - 1 - i];  // largest first
    for (const char* key : {"mailbox", "folder"}) {
      std::string bytes = row[key].get<std::string>();
      if (row.contains(std::string(key) + "_base64")) {
        ASSERT_TRUE(utils::base64Decode(row[std::string(key) + "_base64"].get<std::string>(), bytes));
      }
      EXPECT_EQ(bytes, odd[i]) << key << " " << i;
    }
  }
}

}  // namespace
}  // namespace cli
}  // namespace vorlane
