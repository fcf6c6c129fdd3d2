// The statistics job over small hand-made stores: what reaches the statistic, which progress events go
// out in which order, and how the walk treats odd entries, deep trees and a stop request.
#include "stat/statistics_job.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../support/temp_dir.h"
#include "recording_channel.h"

using vorlane::testing::counterIn;
using vorlane::testing::RecordingChannel;
using vorlane::testing::TempDir;

namespace {

const char kMessage[] = "Subject: a\n\nhello\n";  // 18 bytes, a plain-text body of 18

class Job : public ::testing::Test {
 protected:
  void run(const std::string& storeDir) { job = vorlane::testing::runJob(storeDir, channel, store.file("report.xml")); }
  void run() { run(store.path()); }

  unsigned long long count(const std::string& collection, Counter::Type type) const {
    return counterIn(job->statistic(), collection, type).getCount();
  }
  unsigned long long sum(const std::string& collection, Counter::Type type) const {
    return counterIn(job->statistic(), collection, type).getSum();
  }

  const std::string kAny = "Any folder class - any folder type";
  TempDir store{TempDir::InMemory};  // the deep tree is removed quickly there
  RecordingChannel channel;
  std::unique_ptr<StatisticsJob> job;
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
  EXPECT_EQ(count(kAny, Counter::MessageCount), 7u);  // 2 INBOX + 3 index lines + NoStatus + Shared
  EXPECT_EQ(sum(kAny, Counter::MessageSize), 4 * 18u + 20 + 30);
  EXPECT_EQ(count(kAny, Counter::FolderCount), 3u);  // a folder without status.fld is not a folder
  EXPECT_EQ(count(kAny, Counter::DomainCount), 1u);
  EXPECT_EQ(count("IPF.Contact - any folder type", Counter::DistributionListCount), 1u);
  EXPECT_EQ(sum("IPF.Note - folder INBOX", Counter::PlainTextBodySize), 2 * 18u);
  EXPECT_EQ(count("IPF.Note - public folders", Counter::MessageCount), 1u);
  EXPECT_TRUE(job->reportWritten());
  EXPECT_EQ(::access(store.file("report.xml").c_str(), R_OK), 0);
}

// Entering a domain's mailboxes sends an event, a user mailbox one before and one after it; the public
// tree sends one when it is finished. The final event has left the domains, with the report written.
TEST_F(Job, ProgressEventsFollowDomainsAndMailboxes) {
  store.write("mail/a.com/john/INBOX/status.fld", "T0\n");
  store.mkdirs("mail/#public/Shared");
  run();
  const std::vector<std::string> aComFirst = {"a.com||0/2|10",   "a.com|john|0/2|10", "a.com|john|1/2|10",
                                              "#public||1/2|10", "#public||2/2|10",   "||2/2|01"};
  const std::vector<std::string> publicFirst = {"#public||0/2|10",   "#public||1/2|10",   "a.com||1/2|10",
                                                "a.com|john|1/2|10", "a.com|john|2/2|10", "||2/2|01"};
  ASSERT_FALSE(channel.events.empty());
  // The listing order decides which domain comes first.
  EXPECT_EQ(channel.events, channel.events[0][0] == 'a' ? aComFirst : publicFirst);
}

// The stop is seen at the poll after the first message file: the mailbox is not merged, no event
// follows but the final one, and the report is still written.
TEST_F(Job, StopDuringAMailboxUnwindsWithoutMergingAndStillReports) {
  store.write("mail/a.com/john/INBOX/status.fld", "T0\n");
  for (const char* name : {"1.eml", "2.eml", "3.eml"})
    store.write(std::string("mail/a.com/john/INBOX/#msgs/") + name, kMessage);
  channel.onEvent = [](const vorlane::vstat::EventBuffT& ev, RecordingChannel& c) {
    if (std::string(ev.mbox) == "john") c.stopRequested = true;
  };
  run();

  EXPECT_EQ(count(kAny, Counter::MessageCount), 1u);
  EXPECT_EQ(count("Any folder class - user folders", Counter::FolderCountPerUser), 0u);
  EXPECT_EQ(channel.events, (std::vector<std::string>{"a.com||0/1|10", "a.com|john|0/1|10", "a.com|john|0/1|01"}));
}

// FIFOs and devices could block the walk for ever, as messages and as status.fld or index.fld (or links
// to them): each is skipped with a line naming it. A directory named like a message (or a link to one)
// opens and reads as an empty stream, so it counts with its stat size and nothing else.
TEST_F(Job, EntriesThatCouldBlockAreSkippedAndDirectoriesCountAsEmptyMessages) {
  const std::string msgs = store.mkdirs("mail/a.com/john/INBOX/#msgs");
  store.write("mail/a.com/john/INBOX/status.fld", "T0\n");
  store.write("mail/a.com/john/INBOX/#msgs/1.eml", kMessage);
  const std::string fifo = msgs + "/fifo.eml";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0644), 0);
  ASSERT_EQ(::symlink(fifo.c_str(), (msgs + "/link.eml").c_str()), 0);
  ASSERT_EQ(::symlink("/dev/zero", (msgs + "/device.eml").c_str()), 0);
  const std::string dir = store.mkdirs("mail/a.com/john/INBOX/#msgs/dir.eml");
  store.write("mail/a.com/john/INBOX/#msgs/dir.eml/inside", std::string(5000, 'x'));
  ASSERT_EQ(::symlink(dir.c_str(), (msgs + "/dirlink.eml").c_str()), 0);
  std::vector<std::string> skipped = {msgs + "/fifo.eml", msgs + "/link.eml", msgs + "/device.eml"};
  for (const char* folder : {"FifoStatus", "LinkStatus", "FifoIndex", "LinkIndex"}) {
    const bool index = std::string(folder).find("Index") != std::string::npos;
    const std::string base = store.mkdirs(std::string("mail/a.com/john/") + folder);
    if (index) store.write(std::string("mail/a.com/john/") + folder + "/status.fld", "T1\n");
    skipped.push_back(base + (index ? "/index.fld" : "/status.fld"));
    if (folder[0] == 'F') {
      ASSERT_EQ(::mkfifo(skipped.back().c_str(), 0600), 0);
    } else {
      ASSERT_EQ(::symlink(fifo.c_str(), skipped.back().c_str()), 0);
    }
  }
  struct stat dirInfo;
  ASSERT_EQ(::stat(dir.c_str(), &dirInfo), 0);
  run();

  EXPECT_EQ(count(kAny, Counter::MessageCount), 3u);
  EXPECT_EQ(sum(kAny, Counter::MessageSize), 18u + 2 * static_cast<unsigned long long>(dirInfo.st_size));
  EXPECT_EQ(sum("IPF.Note - folder INBOX", Counter::PlainTextBodySize), 18u);
  for (const std::string& path : skipped) EXPECT_TRUE(channel.logged("Skipping " + path + ": not a regular file\n"));
  EXPECT_FALSE(channel.logged("dir.eml")) << "a directory message is no error";
  EXPECT_FALSE(channel.logged("dirlink.eml"));
}

TEST_F(Job, SymlinkedFoldersAreNotEntered) {
  std::string inbox = store.mkdirs("mail/a.com/john/INBOX");
  store.write("mail/a.com/john/INBOX/status.fld", "T0\n");
  store.write("mail/a.com/john/INBOX/#msgs/1.eml", kMessage);
  ASSERT_EQ(::symlink(inbox.c_str(), store.file("mail/a.com/john/Again").c_str()), 0);
  ASSERT_EQ(::symlink(inbox.c_str(), store.file("mail/b.com").c_str()), 0);
  run();
  EXPECT_EQ(count(kAny, Counter::MessageCount), 1u);
  EXPECT_EQ(count(kAny, Counter::DomainCount), 1u);
  EXPECT_EQ(job->mailboxCount(), 1u);
}

TEST_F(Job, UnreadableDirectoryIsReportedAndSkipped) {
  run(store.file("no-such-store"));
  EXPECT_TRUE(channel.logged("Unable to open directory " + store.file("no-such-store/mail") + "\n"));
  EXPECT_TRUE(job->reportWritten());
}

// 1500 nested folders under a descriptor limit of 48: no level may keep its directory open, the
// recursion must not exhaust the stack, and the paths at the bottom, longer than PATH_MAX, must not end
// the walk. The folder 120 levels down and the other mailbox are counted, both mailboxes are finished.
TEST_F(Job, FolderTreesDeeperThanTheDescriptorLimitAndPathMaxAreWalked) {
  std::string relative = "mail/a.com/diver";
  for (int i = 0; i < 120; ++i) relative += "/dd";
  store.write(relative + "/status.fld", "T0\n");
  store.write(relative + "/#msgs/1.eml", kMessage);
  int fd = ::open(store.file(relative).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (int level = 120; level < 1500 && fd >= 0; ++level) {
    ASSERT_EQ(::mkdirat(fd, "dd", 0700), 0) << level;
    const int next = ::openat(fd, "dd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::close(fd);
    fd = next;
  }
  ASSERT_GE(fd, 0);
  ::close(fd);
  store.write("mail/a.com/other/INBOX/status.fld", "T0\n");
  store.write("mail/a.com/other/INBOX/#msgs/1.eml", kMessage);
  struct rlimit old;
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &old), 0);
  struct rlimit low = old;
  low.rlim_cur = 48;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
  run();
  ::setrlimit(RLIMIT_NOFILE, &old);
  EXPECT_EQ(count(kAny, Counter::MessageCount), 2u);
  EXPECT_EQ(count(kAny, Counter::FolderCount), 2u);
  ASSERT_FALSE(channel.events.empty());
  EXPECT_EQ(channel.events.back(), "||2/2|01");
}

}  // namespace
