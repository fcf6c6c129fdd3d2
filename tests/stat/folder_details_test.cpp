#include "stat/folder_details.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <vector>

#include <nlohmann/json.hpp>

#include "../support/generated_store.h"
#include "../support/temp_dir.h"
#include "recording_channel.h"
#include "utils/base64.h"

using vorlane::testing::counterIn;
using vorlane::testing::RecordingChannel;
using vorlane::testing::TempDir;

namespace {

std::vector<nlohmann::json> readLines(const std::string& path) {
  std::vector<nlohmann::json> lines;
  std::ifstream in(path, std::ios::binary);
  for (std::string line; std::getline(in, line);) lines.push_back(nlohmann::json::parse(line));
  return lines;
}

// A name field as a reader must take it: the exact bytes when they are given, the text otherwise.
std::string nameOf(const nlohmann::json& line, const std::string& key) {
  if (!line.contains(key + "_base64")) return line.at(key).get<std::string>();
  std::string bytes;
  EXPECT_TRUE(vorlane::utils::base64Decode(line.at(key + "_base64").get<std::string>(), bytes));
  return bytes;
}

std::vector<std::string> directoryEntries(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) names.push_back(entry.path().filename());
  return names;
}

}  // namespace

TEST(FolderDetailsWriter, WritesHeaderFoldersAndEndLineInto0600File) {
  TempDir dir;
  const std::string path = dir.file("details.jsonl");
  const DetailsHeader header{"/srv/store", "9.1", 4711, "Linux", 3, 86400 + 3661};  // 1970-01-02 01:01:01 UTC
  std::string error;
  FolderDetailsWriter writer;
  ASSERT_TRUE(writer.open(path, header, error)) << error;
  EXPECT_FALSE(std::filesystem::exists(path)) << "visible before the job ends";

  FolderDetails inbox = folderDetailsAt("example.com", "anna", "INBOX", Collection::MailFolder, true);
  inbox.addMessage(MessageFacts{"", 5000, 1000, 2000, 0, 0, true, false});
  inbox.addMessage(MessageFacts{"", 300, 100, 0, 150, 0, false, true});
  writer.write(inbox);
  writer.write(folderDetailsAt("example.com", "anna", "Tasks", static_cast<Collection::FolderType>(42), false));
  ASSERT_TRUE(writer.finish(true, error)) << error;

  struct stat info;
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  EXPECT_EQ(directoryEntries(dir.path()), std::vector<std::string>{"details.jsonl"});

  const std::vector<nlohmann::json> lines = readLines(path);
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0], nlohmann::json::parse(R"({"format":"vstat-details","version":1,"date":"1970-01-02T01:01:01Z",
      "store":"/srv/store","product_version":"9.1","build":4711,"os_name":"Linux","os_code":3})"));
  EXPECT_EQ(lines[1], nlohmann::json::parse(R"({"domain":"example.com","mailbox":"anna","folder":"INBOX",
      "class":"IPF.Note","type":0,"public":false,"status":true,"messages":2,"bytes":5300,"largest":5000,
      "header_bytes":1100,"plain_bytes":2000,"html_bytes":150,"rtf_bytes":0,"signed":1,"encrypted":1})"));
  EXPECT_EQ(lines[2]["class"], "");
  EXPECT_EQ(lines[2]["type"], 42);
  EXPECT_EQ(lines[2]["status"], false);
  EXPECT_EQ(lines[3], nlohmann::json::parse(R"({"end":true,"folders":2,"partial":true})"));
}

// The walk keeps the first folder of the public tree where a mailbox would be; the record does not.
TEST(FolderDetails, PublicTreeHasNoMailbox) {
  struct Case {
    const char* domain;
    const char* walkMailbox;
    const char* relativePath;
    const char* mailbox;
    const char* folder;
    bool isPublic;
  };
  for (const Case& c : {Case{"example.com", "anna", "", "anna", "", false},
                        Case{"example.com", "anna", "INBOX/2024", "anna", "INBOX/2024", false},
                        Case{"#public", "", "", "", "", true}, Case{"#public", "Shared", "", "", "Shared", true},
                        Case{"#public", "Shared", "Team/Plans", "", "Shared/Team/Plans", true},
                        Case{"#Public", "Shared", "", "Shared", "", false}}) {
    const FolderDetails d = folderDetailsAt(c.domain, c.walkMailbox, c.relativePath, Collection::MailFolder, true);
    EXPECT_EQ(d.mailbox, c.mailbox) << c.domain << "/" << c.walkMailbox << "/" << c.relativePath;
    EXPECT_EQ(d.folder, c.folder) << c.domain << "/" << c.walkMailbox << "/" << c.relativePath;
    EXPECT_EQ(d.isPublic, c.isPublic) << c.domain;
  }
}

TEST(FolderDetailsWriter, UnfinishedOrFailedFileLeavesNothingBehind) {
  TempDir dir;
  {
    FolderDetailsWriter writer;
    std::string error;
    ASSERT_TRUE(writer.open(dir.file("details.jsonl"), DetailsHeader{}, error)) << error;
    writer.write(FolderDetails{});
  }
  EXPECT_TRUE(directoryEntries(dir.path()).empty());

  FolderDetailsWriter writer;
  std::string error;
  EXPECT_FALSE(writer.open(dir.file("missing/details.jsonl"), DetailsHeader{}, error));
  EXPECT_NE(error.find(dir.file("missing/details.jsonl")), std::string::npos) << error;

  // A directory standing where the file should go: everything is written, the rename fails.
  ASSERT_FALSE(dir.mkdirs("taken/sub").empty());
  ASSERT_TRUE(writer.open(dir.file("taken"), DetailsHeader{}, error)) << error;
  EXPECT_FALSE(writer.finish(false, error));
  EXPECT_NE(error.find("rename"), std::string::npos) << error;
  EXPECT_EQ(directoryEntries(dir.path()), std::vector<std::string>{"taken"});
}

// A generated store with one more folder whose names are not UTF-8 and hold a line end, quotes, a
// backslash, a control character and a cut sequence. The details leave the report as it is and their
// folder lines add up to its totals; a stopped job ends them as partial, adding up to what it counted.
TEST(JobDetails, FolderLinesAddUpToTheReportAndAStoppedJobEndsThemAsPartial) {
  TempDir dir(TempDir::InMemory);
  vorlane::mkstore::Manifest manifest;
  ASSERT_TRUE(vorlane::testing::generateStore(dir.file("store"), 400, 5, manifest));
  const std::string oddDomain = "caf\xc3\xa9.example", oddMailbox = "m\xfcller";
  const std::string oddFolder = std::string("caf\xe9\n\"quoted\" back\\slash\t\x01 \xe2\x82 \xff");
  const std::string odd = "store/mail/" + oddDomain + "/" + oddMailbox + "/" + oddFolder;
  dir.write(odd + "/status.fld", "T0\n");
  dir.write(odd + "/#msgs/1.eml", "Subject: x\n\nbody\n");
  const std::string report = dir.file("report.xml"), details = dir.file("details.jsonl");
  RecordingChannel plainChannel;
  vorlane::testing::runJob(dir.file("store"), plainChannel, report);
  const std::string plain = dir.read("report.xml");
  EXPECT_FALSE(std::filesystem::exists(details));

  for (unsigned stopAfter : {0u, 3u}) {
    SCOPED_TRACE(stopAfter ? "stopped" : "whole store");
    RecordingChannel channel;
    unsigned entered = 0;
    channel.onEvent = [&](const vorlane::vstat::EventBuffT& ev, RecordingChannel& c) {
      if (ev.mbox[0] != '\0' && ++entered == stopAfter) c.stopRequested = true;
    };
    const std::unique_ptr<StatisticsJob> job =
        vorlane::testing::runJob(dir.file("store"), channel, report, ScanSettings(), details);
    const std::vector<nlohmann::json> lines = readLines(details);
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines.back()["partial"], stopAfter != 0);
    EXPECT_EQ(lines.back()["folders"], lines.size() - 2);
    unsigned long long messages = 0, bytes = 0, largest = 0;
    for (size_t i = 1; i + 1 < lines.size(); ++i) {
      messages += lines[i]["messages"].get<unsigned long long>();
      bytes += lines[i]["bytes"].get<unsigned long long>();
      largest = std::max(largest, lines[i]["largest"].get<unsigned long long>());
    }
    const Counter& size = counterIn(job->statistic(), "Any folder class - any folder type", Counter::MessageSize);
    EXPECT_EQ(messages, size.getCount());
    EXPECT_EQ(bytes, size.getSum());
    EXPECT_EQ(largest, size.getMax());
    if (stopAfter != 0) continue;

    EXPECT_EQ(dir.read("report.xml"), plain);
    const auto found = std::find_if(lines.begin(), lines.end(), [&](const nlohmann::json& line) {
      return line.contains("folder") && nameOf(line, "folder") == oddFolder;
    });
    ASSERT_NE(found, lines.end());
    EXPECT_EQ(nameOf(*found, "domain"), oddDomain);
    EXPECT_EQ(nameOf(*found, "mailbox"), oddMailbox);
    EXPECT_EQ((*found)["messages"], 1);
  }
}
