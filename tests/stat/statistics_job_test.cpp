// The statistics job over small hand-made stores: what reaches the statistic, which progress events go
// out in which order, and how the walk treats odd entries and a stop request.
#include "stat/statistics_job.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../support/temp_dir.h"

using vorlane::testing::TempDir;

namespace {

struct Event {
  std::string dom, mbox;
  unsigned processed, mailboxes, run, done;
};

class FakeChannel : public JobChannel {
 public:
  int sendProgressMsg(vorlane::vstat::EventBuffT& ev) override {
    events.push_back({ev.dom, ev.mbox, ev.processed, ev.mailboxes, ev.run, ev.done});
    if (!stopInMailbox.empty() && stopInMailbox == ev.mbox) stopRequested = true;
    return 0;
  }
  void sendErrMsg(const std::string& text) override { lines.push_back(text); }
  void reportFailure(const std::string& text) override { lines.push_back("failure: " + text); }

  bool logged(const std::string& text) const {
    for (const std::string& line : lines) {
      if (line.find(text) != std::string::npos) return true;
    }
    return false;
  }

  std::vector<Event> events;
  std::vector<std::string> lines;
  std::string stopInMailbox;  // the stop is requested as the walk enters this mailbox
};

const char kMessage[] = "Subject: a\n\nhello\n";  // 18 bytes, a plain-text body of 18

class Job : public ::testing::Test {
 protected:
  // Runs the whole job over `storeDir`/mail and keeps the report next to the store.
  void run(const std::string& storeDir) {
    vorlane::vstat::ProcessStoreReqBuffT request{};
    storeDir.copy(request.storeDir, sizeof request.storeDir - 1);
    job.reset(new StatisticsJob(request, channel, reportPath));
    job->run();
  }
  void run() { run(store.path()); }

  unsigned long long value(const std::string& collection, Counter::Type type, bool sum = false) const {
    for (const Statistic::CollectionPtr& c : job->statistic().getMessageCollections()) {
      if (c->name != collection) continue;
      Collection::CounterPtr counter = c->getCounter(type);
      if (!counter) break;
      return sum ? counter->getSum() : counter->getCount();
    }
    ADD_FAILURE() << "no counter " << type << " in " << collection;
    return 0;
  }
  unsigned long long anyFolder(Counter::Type type, bool sum = false) const {
    return value("Any folder class - any folder type", type, sum);
  }

  TempDir store;
  FakeChannel channel;
  std::unique_ptr<StatisticsJob> job;
  std::string reportPath = store.path() + "/report.xml";
};

TEST_F(Job, CountsFoldersMessagesAndIndexesOfEveryKind) {
  store.write("mail/a.com/john/INBOX/status.fld", "T0\nM2\nS300\n");
  store.write("mail/a.com/john/INBOX/#msgs/1.eml", kMessage);
  store.write("mail/a.com/john/INBOX/#msgs/2.EML", kMessage);
  store.write("mail/a.com/john/INBOX/#msgs/notes.txt", "not a message");
  store.write("mail/a.com/john/INBOX/index.fld", "S999\n");  // a mail folder's index is not trusted
  store.write("mail/a.com/john/Contacts/status.fld", "T1\nM2\nS50\n");
  store.write("mail/a.com/john/Contacts/index.fld", "CIPM.DistList S20\n\nS30");  // an empty line is a message
  store.write("mail/a.com/john/Contacts/#msgs/3.eml", kMessage);  // other folders are not opened
  store.write("mail/a.com/john/NoStatus/#msgs/4.eml", kMessage);
  for (const char* skipped : {"#assoc", "Reminders", "search root", "IPM_VIEWS", "#sync"}) {
    store.write(std::string("mail/a.com/john/") + skipped + "/status.fld", "T0\n");
    store.write(std::string("mail/a.com/john/") + skipped + "/#msgs/9.eml", kMessage);
  }
  store.write("mail/#public/Shared/status.fld", "T0\nM1\nS18\n");
  store.write("mail/#public/Shared/#msgs/5.eml", kMessage);
  run();

  EXPECT_EQ(job->mailboxCount(), 2u);
  EXPECT_EQ(anyFolder(Counter::MessageCount), 7u);  // 2 INBOX + 3 index lines + NoStatus + Shared
  EXPECT_EQ(anyFolder(Counter::MessageSize, true), 4 * 18u + 20 + 30);
  EXPECT_EQ(anyFolder(Counter::FolderCount), 3u);  // a folder without status.fld is not a folder
  EXPECT_EQ(anyFolder(Counter::DomainCount), 1u);
  EXPECT_EQ(value("IPF.Contact - any folder type", Counter::DistributionListCount), 1u);
  EXPECT_EQ(value("IPF.Note - folder INBOX", Counter::PlainTextBodySize, true), 2 * 18u);
  EXPECT_EQ(value("IPF.Note - public folders", Counter::MessageCount), 1u);
  EXPECT_TRUE(job->reportWritten());
  EXPECT_EQ(::access(reportPath.c_str(), R_OK), 0);
}

TEST_F(Job, ProgressEventsFollowDomainsAndMailboxes) {
  store.write("mail/a.com/john/INBOX/status.fld", "T0\n");
  store.mkdirs("mail/#public/Shared");
  run();

  // Per domain, in order: entering the mailbox level, then for a user mailbox one event before and one
  // after it; the public tree reports once more when it is finished. Domains come in listing order.
  std::vector<std::string> aCom, pub;
  for (size_t i = 0; i + 1 < channel.events.size(); ++i) {
    const Event& e = channel.events[i];
    EXPECT_EQ(e.mailboxes, 2u);
    EXPECT_EQ(e.run, 1u);
    (e.dom == "a.com" ? aCom : pub).push_back(e.mbox + "@" + std::to_string(e.processed));
  }
  ASSERT_EQ(aCom.size(), 3u);
  EXPECT_EQ(aCom[0].substr(0, 1), "@");
  EXPECT_EQ(aCom[1].substr(0, 5), "john@");
  EXPECT_EQ(aCom[2], "john@" + std::to_string(std::stoi(aCom[1].substr(5)) + 1));
  ASSERT_EQ(pub.size(), 2u);
  EXPECT_EQ(pub[1], "@" + std::to_string(std::stoi(pub[0].substr(1)) + 1));

  const Event& last = channel.events.back();
  EXPECT_EQ(last.dom + last.mbox, "");
  EXPECT_EQ(last.processed, 2u);
  EXPECT_EQ(last.run, 0u);
  EXPECT_EQ(last.done, 1u);
}

TEST_F(Job, StopDuringAMailboxUnwindsWithoutMergingAndStillReports) {
  store.write("mail/a.com/john/INBOX/status.fld", "T0\n");
  for (const char* name : {"1.eml", "2.eml", "3.eml"})
    store.write(std::string("mail/a.com/john/INBOX/#msgs/") + name, kMessage);
  channel.stopInMailbox = "john";  // seen at the poll after the first message file
  run();

  EXPECT_EQ(anyFolder(Counter::MessageCount), 1u);
  EXPECT_EQ(value("Any folder class - user folders", Counter::FolderCountPerUser), 0u);  // no merge
  ASSERT_EQ(channel.events.size(), 3u);  // entering a.com, entering john, final
  EXPECT_EQ(channel.events[1].mbox, "john");
  EXPECT_EQ(channel.events.back().processed, 0u);
  EXPECT_EQ(channel.events.back().run, 0u);
  EXPECT_EQ(channel.events.back().done, 1u);
}

// FIFOs and devices could block the walk and are skipped; a directory named like a message (or a link
// to one) opens and reads as an empty stream, so it counts with its stat size and nothing else.
TEST_F(Job, DirectoriesCountAsEmptyMessagesAndEntriesThatCouldBlockAreSkipped) {
  std::string msgs = store.mkdirs("mail/a.com/john/INBOX/#msgs");
  store.write("mail/a.com/john/INBOX/status.fld", "T0\n");
  store.write("mail/a.com/john/INBOX/#msgs/1.eml", kMessage);
  ASSERT_EQ(::mkfifo((msgs + "/fifo.eml").c_str(), 0644), 0);
  ASSERT_EQ(::symlink((msgs + "/fifo.eml").c_str(), (msgs + "/link.eml").c_str()), 0);
  ASSERT_EQ(::symlink("/dev/zero", (msgs + "/device.eml").c_str()), 0);
  const std::string dir = store.mkdirs("mail/a.com/john/INBOX/#msgs/dir.eml");
  store.write("mail/a.com/john/INBOX/#msgs/dir.eml/inside", std::string(5000, 'x'));
  ASSERT_EQ(::symlink(dir.c_str(), (msgs + "/dirlink.eml").c_str()), 0);
  struct stat dirInfo;
  ASSERT_EQ(::stat(dir.c_str(), &dirInfo), 0);
  run();

  EXPECT_EQ(anyFolder(Counter::MessageCount), 3u);
  EXPECT_EQ(anyFolder(Counter::MessageSize, true), 18u + 2 * static_cast<unsigned long long>(dirInfo.st_size));
  EXPECT_EQ(value("IPF.Note - folder INBOX", Counter::PlainTextBodySize, true), 18u);
  for (const char* name : {"/fifo.eml", "/link.eml", "/device.eml"}) {
    EXPECT_TRUE(channel.logged("Skipping " + msgs + name + ": not a regular file")) << name;
  }
  EXPECT_FALSE(channel.logged("dir.eml")) << "a directory message is no error";
  EXPECT_FALSE(channel.logged("dirlink.eml"));
}

// A message listed as a plain file but gone by the time it is opened (the mail server expunged it).
TEST(MessageFile, MessageGoneBeforeItIsOpenedIsReportedAsWithoutFileInfo) {
  TempDir dir;
  const std::string path = dir.path() + "/gone.eml";
  MessageFacts facts;
  std::string error;
  EXPECT_FALSE(readMessage(MessageEntry{AT_FDCWD, path.c_str(), DT_REG, path}, facts, error));
  EXPECT_EQ(error, "Error obtaining file info " + path + "\n");
}

TEST_F(Job, SymlinkedFoldersAreNotEntered) {
  std::string inbox = store.mkdirs("mail/a.com/john/INBOX");
  store.write("mail/a.com/john/INBOX/status.fld", "T0\n");
  store.write("mail/a.com/john/INBOX/#msgs/1.eml", kMessage);
  ASSERT_EQ(::symlink(inbox.c_str(), (store.path() + "/mail/a.com/john/Again").c_str()), 0);
  ASSERT_EQ(::symlink(inbox.c_str(), (store.path() + "/mail/b.com").c_str()), 0);
  run();
  EXPECT_EQ(anyFolder(Counter::MessageCount), 1u);
  EXPECT_EQ(anyFolder(Counter::DomainCount), 1u);
  EXPECT_EQ(job->mailboxCount(), 1u);
}

// The final event and the first error line are checked through the real server; here the reason.
TEST_F(Job, UnwritableReportIsReportedWithItsReason) {
  store.mkdirs("mail/a.com/john");
  reportPath = store.mkdirs("report-is-a-directory");
  run();
  EXPECT_FALSE(job->reportWritten());
  EXPECT_TRUE(channel.logged("failure: no report written: cannot rename report over " + reportPath +
                             ": Is a directory"));
}

TEST_F(Job, UnreadableDirectoryIsReportedAndSkipped) {
  run(store.path() + "/no-such-store");
  EXPECT_TRUE(channel.logged("Unable to open directory " + store.path() + "/no-such-store/mail\n"));
  EXPECT_TRUE(job->reportWritten());
}

// A tree deeper than the descriptor limit would allow if every level kept its directory open.
TEST_F(Job, FolderTreesDeeperThanTheDescriptorLimitAreWalkedToTheBottom) {
  struct rlimit old;
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &old), 0);
  struct rlimit low = old;
  low.rlim_cur = 48;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
  const int depth = 120;
  std::string relative = "mail/a.com/john";
  for (int i = 0; i < depth; ++i) relative += "/d";
  store.write(relative + "/status.fld", "T0\n");
  store.write(relative + "/#msgs/1.eml", kMessage);
  run();
  ::setrlimit(RLIMIT_NOFILE, &old);
  EXPECT_EQ(anyFolder(Counter::MessageCount), 1u);
  EXPECT_EQ(anyFolder(Counter::FolderCount), 1u);
  EXPECT_FALSE(channel.logged("Unable to open directory"));
}

}  // namespace
