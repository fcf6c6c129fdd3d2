// Faults from outside, through the real vstatserver started as the mail server starts it: a stop or the
// parent going away in the middle of a job, message files vanishing or shrinking under the walk, 100,000
// entries in one folder, and the fixed report path blocked by a directory. Whatever happens, the process
// must end by itself, with status 0 and not by a signal, and a job that runs to its end must send its
// final progress event. (Odd entries in the store and deep trees are walked in process by the job's own
// tests; a link at the report path is replaced by the report file's.)
//
// Stores are built in a private temporary directory. The tests replace the fixed report path, so the
// binary holds a CTest resource lock on that path (tests/e2e/CMakeLists.txt).
#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "../support/temp_dir.h"
#include "server_job.h"
#include "stat/job_facts.h"

namespace vstat = vorlane::vstat;
using namespace vorlane::testing;
using vstat::kReportPath;

namespace {

// Once its parent is gone or a stop was asked for, the server has to notice at its next read, write or
// poll and end without finishing the walk.
const long kPromptExitMs = 5000;

const char kSmallMessage[] = "From: a@example.com\nSubject: hi\n\nbody\n";

// A multipart message of about `bytes` bytes, so that parsing it takes measurable time.
std::string largeMessage(size_t bytes) {
  std::string text =
      "From: a@example.com\nSubject: large\nContent-Type: multipart/mixed; boundary=b\n\n--b\n"
      "Content-Type: text/plain\n\n";
  const std::string line(75, 'x');
  while (text.size() < bytes) text += line + "\n";
  return text + "--b--\n";
}

// Removes whatever is at the report path, so each test starts from a known state.
void clearReportPath() {
  if (unlink(kReportPath) != 0 && errno != ENOENT) rmdir(kReportPath);
}

class Fault : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(scratch.path().empty()) << "cannot create a temporary directory: " << strerror(errno);
    clearReportPath();
  }
  void TearDown() override { clearReportPath(); }

  // Creates mail/domain/mailbox/#msgs and returns it with a trailing slash.
  std::string messageDir(const std::string& domain, const std::string& mailbox) const {
    return scratch.mkdirs("mail/" + domain + "/" + mailbox + "/#msgs") + "/";
  }

  TempDir scratch{TempDir::InMemory};
};

// A stop, or the parent ending the conversation in each of the ways it can, in the middle of a walk
// that would take far longer than kPromptExitMs: the server must stop the walk and end on its own,
// never by SIGPIPE or a crash while its threads unwind. A stopped job still reports what it counted.
TEST_F(Fault, StopOrParentGoingAwayMidJobEndsTheServerPromptly) {
  // Many mailboxes, each with many links to one large message, so that progress events (and with them
  // writes to the parent) come often.
  const std::string original = scratch.write("large.eml", largeMessage(512 * 1024));
  const int kMailboxes = 40;
  for (int m = 0; m < kMailboxes; ++m) {
    const std::string msgs = messageDir("slow.example.com", "user" + std::to_string(m));
    for (int i = 0; i < 100; ++i) ASSERT_EQ(0, link(original.c_str(), (msgs + std::to_string(i) + ".eml").c_str()));
  }
  enum Way { Stop, WriteEnd, ReadEnd, BothEnds };
  for (Way way : {Stop, WriteEnd, ReadEnd, BothEnds}) {
    SCOPED_TRACE(way == Stop ? "stop" : way == WriteEnd ? "write end closed" : way == ReadEnd ? "read end closed"
                                                                                             : "both closed");
    ServerJob job(scratch.path());
    ASSERT_TRUE(job.startRunning(scratch.path()));
    ASSERT_TRUE(job.walkUnderWay());
    if (way == Stop) {
      ASSERT_TRUE(job.client().requestStop(kAnswerMs));
      vstat::EventBuffT final;
      ASSERT_TRUE(job.finalEvent(final));
      EXPECT_EQ(final.done, 1u);
      EXPECT_LT(final.processed, static_cast<unsigned>(kMailboxes));
    }
    if (way == WriteEnd || way == BothEnds) job.client().process().closeWriteEnd();
    if (way == ReadEnd || way == BothEnds) job.client().process().closeReadEnd();
    // A parent that closed only its writing end keeps reading, until the server closes its output.
    vstat::EventBuffT ignored;
    while (way == WriteEnd && job.nextEvent(ignored, kPromptExitMs)) {
    }
    job.expectCleanExit(kPromptExitMs);
  }
}

// Files disappear, shrink or become empty while the walk reads them. The job still runs to its end and
// writes its report.
TEST_F(Fault, MessagesVanishingOrShrinkingDuringTheWalkDoNotStopTheJob) {
  const std::string body = largeMessage(32 * 1024);
  std::vector<std::string> files;
  for (int m = 0; m < 4; ++m) {
    const std::string msgs = messageDir("busy.example.com", "user" + std::to_string(m));
    for (int i = 0; i < 250; ++i) {
      files.push_back(msgs + std::to_string(i) + ".eml");
      std::ofstream(files.back()) << body;
    }
  }

  ServerJob job(scratch.path());
  ASSERT_TRUE(job.startRunning(scratch.path()));
  std::atomic<bool> jobEnded(false);
  std::thread mutator([&] {
    for (size_t round = 0; !jobEnded; ++round) {
      for (size_t i = 0; i < files.size() && !jobEnded; ++i) {
        const char* path = files[i].c_str();
        switch ((i + round) % 4) {
          case 0:
            unlink(path);
            break;
          case 1:
          case 2: {
            // A file removed in an earlier round cannot be cut: the truncate may fail.
            const int cut = truncate(path, (i + round) % 4 == 1 ? static_cast<off_t>(body.size() / 3) : 0);
            (void)cut;
            break;
          }
          default:
            // Back again, so later rounds find files to remove and cut.
            std::ofstream(files[i]) << body;
            break;
        }
      }
    }
  });
  vstat::EventBuffT final;
  const bool finished = job.finalEvent(final);
  jobEnded = true;
  mutator.join();
  ASSERT_TRUE(finished);
  EXPECT_EQ(final.done, 1u);
  EXPECT_EQ(final.processed, 4u);
  job.expectCleanExit();
}

// 100,000 message entries in one folder: hard links, which are quick to make, to a few files (a file
// takes at most 65,000 links on ext4).
TEST_F(Fault, HundredThousandEntriesInOneFolderAreAllCounted) {
  const std::string msgs = messageDir("big.example.com", "hoarder");
  const int kFiles = 4;
  for (int f = 0; f < kFiles; ++f) scratch.write(std::to_string(f) + ".eml", kSmallMessage);
  for (int i = 0; i < 100000; ++i) {
    const std::string original = scratch.file(std::to_string(i % kFiles) + ".eml");
    const std::string name = msgs + std::to_string(i) + ".eml";
    ASSERT_EQ(0, link(original.c_str(), name.c_str())) << name << ": " << strerror(errno);
  }

  ServerJob job(scratch.path());
  ASSERT_TRUE(job.startRunning(scratch.path()));
  vstat::EventBuffT final;
  ASSERT_TRUE(job.finalEvent(final));
  EXPECT_EQ(final.done, 1u);
  EXPECT_EQ(final.processed, 1u);
  job.expectCleanExit();
  // Every message went into the statistic: the message count shows up in the report.
  EXPECT_NE(readFile(kReportPath).find("<value>100000</value>"), std::string::npos);
}

// A directory where the report belongs: the job says so in a debug line and an error record, sends its
// final event with report-written 0 and still ends normally, leaving the directory as it was.
TEST_F(Fault, ReportPathBlockedByADirectoryIsReportedAndTheJobEnds) {
  scratch.write("mail/a.example.com/john/#msgs/1.eml", kSmallMessage);
  ASSERT_EQ(0, mkdir(kReportPath, 0700)) << strerror(errno);

  ServerJob job(scratch.path());
  ASSERT_TRUE(job.startRunning(scratch.path()));
  vstat::EventBuffT final;
  ASSERT_TRUE(job.finalEvent(final));
  EXPECT_EQ(final.done, 0u);
  job.expectCleanExit();
  struct stat info;
  ASSERT_EQ(0, lstat(kReportPath, &info));
  EXPECT_TRUE(S_ISDIR(info.st_mode)) << "the blocking directory was touched";
  const std::string lines = job.debugLines();
  EXPECT_NE(lines.find("Open report file " + std::string(kReportPath) + " failed.\n"), std::string::npos) << lines;
  EXPECT_EQ(job.lastErrorRecord(), "no report written: cannot rename report over " + std::string(kReportPath) +
                                       ": Is a directory");
}

}  // namespace
