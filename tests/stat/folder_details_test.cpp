#include "stat/folder_details.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <vector>

#include <nlohmann/json.hpp>

#include "../support/temp_dir.h"
#include "mkstore/store_generator.h"
#include "stat/statistics_job.h"
#include "utils/base64.h"

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
  DetailsHeader header;
  header.store = "/srv/store";
  header.productVersion = "9.1";
  header.build = 4711;
  header.osName = "Linux";
  header.osCode = 3;
  header.date = 86400 + 3661;  // 1970-01-02 01:01:01 UTC
  std::string error;
  FolderDetailsWriter writer;
  ASSERT_TRUE(writer.open(path, header, error)) << error;
  EXPECT_FALSE(std::filesystem::exists(path)) << "visible before the job ends";

  FolderDetails inbox = folderDetailsAt("example.com", "anna", "INBOX", Collection::MailFolder, true);
  MessageFacts signedMessage;
  signedMessage.size = 5000;
  signedMessage.headerSize = 1000;
  signedMessage.plainTextSize = 2000;
  signedMessage.isSigned = true;
  MessageFacts encryptedMessage;
  encryptedMessage.size = 300;
  encryptedMessage.headerSize = 100;
  encryptedMessage.htmlSize = 150;
  encryptedMessage.isEncrypted = true;
  inbox.addMessage(signedMessage);
  inbox.addMessage(encryptedMessage);
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

TEST(FolderDetailsWriter, NamesOfAnyBytesRoundTrip) {
  TempDir dir;
  const std::string path = dir.file("details.jsonl");
  const std::vector<std::string> names = {"Posteingang", "caf\xc3\xa9", "line\nbreak \"quoted\" back\\slash\t",
                                          "latin1 caf\xe9", "\xff\xfe", "cut \xe2\x82", std::string("\x01\x1f", 2)};
  std::string error;
  FolderDetailsWriter writer;
  ASSERT_TRUE(writer.open(path, DetailsHeader{}, error)) << error;
  for (const std::string& name : names) writer.write(folderDetailsAt(name, name, name, Collection::MailFolder, true));
  ASSERT_TRUE(writer.finish(false, error)) << error;

  const std::vector<nlohmann::json> lines = readLines(path);
  ASSERT_EQ(lines.size(), names.size() + 2);
  for (size_t i = 0; i < names.size(); ++i) {
    for (const char* key : {"domain", "mailbox", "folder"}) {
      EXPECT_EQ(nameOf(lines[i + 1], key), names[i]) << key << " of line " << i + 1;
    }
  }
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

namespace {

// Stops the job when the walk has entered `stopAfter` mailboxes (0: never).
class CountingChannel : public JobChannel {
 public:
  int sendProgressMsg(vorlane::vstat::EventBuffT& ev) override {
    if (ev.mbox[0] != '\0' && stopAfter != 0 && ++entered == stopAfter) stopRequested = true;
    return 0;
  }
  void sendErrMsg(const std::string&) override {}
  void reportFailure(const std::string&) override {}

  unsigned stopAfter = 0;
  unsigned entered = 0;
};

// A generated store and one folder whose names are not UTF-8 and hold a newline and quotes.
const std::string kOddMailbox = "m\xfcller";
const std::string kOddFolder = "caf\xe9\n\"quoted\"";

class JobDetails : public ::testing::Test {
 protected:
  void SetUp() override {
    const vorlane::mkstore::StoreOptions options{400, 5, dir.file("store"), false};
    vorlane::mkstore::Manifest manifest;
    std::string error;
    ASSERT_TRUE(vorlane::mkstore::generateStore(options, manifest, error)) << error;
    dir.write("store/mail/odd.example/" + kOddMailbox + "/" + kOddFolder + "/status.fld", "T0\n");
    dir.write("store/mail/odd.example/" + kOddMailbox + "/" + kOddFolder + "/#msgs/1.eml", "Subject: x\n\nbody\n");
  }

  // Runs one job, with details when `details` is not empty; returns the report's text.
  std::string run(const std::string& details, unsigned stopAfter = 0) {
    vorlane::vstat::ProcessStoreReqBuffT request{};
    dir.file("store").copy(request.storeDir, sizeof request.storeDir - 1);
    CountingChannel channel;
    channel.stopAfter = stopAfter;
    job.reset(new StatisticsJob(request, channel, dir.file("report.xml")));
    job->setDetailsPath(details);
    job->run();
    return dir.read("report.xml");
  }

  const Counter& total(Counter::Type type) const {
    for (const Statistic::CollectionPtr& c : job->statistic().getMessageCollections()) {
      if (c->name == "Any folder class - any folder type") return *c->getCounter(type);
    }
    throw std::logic_error("no totals collection");
  }

  // The folder lines add up to the report's totals of the whole store.
  void expectSumsEqualTotals(const std::vector<nlohmann::json>& lines) {
    unsigned long long messages = 0, bytes = 0, largest = 0;
    for (size_t i = 1; i + 1 < lines.size(); ++i) {
      messages += lines[i]["messages"].get<unsigned long long>();
      bytes += lines[i]["bytes"].get<unsigned long long>();
      largest = std::max(largest, lines[i]["largest"].get<unsigned long long>());
    }
    EXPECT_EQ(messages, total(Counter::MessageCount).getCount());
    EXPECT_EQ(bytes, total(Counter::MessageSize).getSum());
    EXPECT_EQ(largest, total(Counter::MessageSize).getMax());
  }

  TempDir dir;
  std::unique_ptr<StatisticsJob> job;
};

}  // namespace

TEST_F(JobDetails, FolderLinesAddUpToTheReportAndLeaveItUnchanged) {
  const std::string plain = run("");
  EXPECT_FALSE(std::filesystem::exists(dir.file("details.jsonl")));
  EXPECT_EQ(run(dir.file("details.jsonl")), plain);

  const std::vector<nlohmann::json> lines = readLines(dir.file("details.jsonl"));
  ASSERT_GT(lines.size(), 20u);
  EXPECT_EQ(lines.back()["partial"], false);
  expectSumsEqualTotals(lines);
  const auto odd = std::find_if(lines.begin(), lines.end(), [](const nlohmann::json& line) {
    return line.contains("folder") && nameOf(line, "folder") == kOddFolder;
  });
  ASSERT_NE(odd, lines.end());
  EXPECT_EQ(nameOf(*odd, "mailbox"), kOddMailbox);
  EXPECT_EQ((*odd)["messages"], 1);
}

TEST_F(JobDetails, StoppedJobEndsItsDetailsAsPartial) {
  run(dir.file("details.jsonl"), 3);
  const std::vector<nlohmann::json> lines = readLines(dir.file("details.jsonl"));
  ASSERT_GE(lines.size(), 3u);
  EXPECT_EQ(lines.back()["partial"], true);
  EXPECT_EQ(lines.back()["folders"], lines.size() - 2);
  expectSumsEqualTotals(lines);
}
