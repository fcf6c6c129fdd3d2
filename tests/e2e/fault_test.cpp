// Faults from outside, through the real vstatserver started as the mail server starts it: the parent
// going away in the middle of a job, message files vanishing or shrinking under the walk, a folder tree
// deeper than 1000 levels, 100,000 entries in one folder, and the fixed report path blocked by a
// directory or planted with a symbolic link. Whatever happens, the process must end by itself, with
// status 0 and not by a signal, and a job that runs to its end must send its final progress event.
//
// Stores are built in a private temporary directory. The tests replace the fixed report path, so the
// binary holds a CTest resource lock on that path (tests/e2e/CMakeLists.txt).
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "../support/temp_dir.h"
#include "mkstore/store_generator.h"
#include "stat/job_facts.h"
#include "stat/stat_job_client.h"
#include "stat/store_walk.h"
#include "vcom/message_types.h"

using namespace vorlane;
using vcom::ServerProcess;

namespace {

const char* const kServer = VSTAT_BIN_DIR "/vstatserver";
using vstat::kReportPath;
const long kAnswerMs = 5000;
// A whole job on the stores below takes a few seconds under the sanitizers; this only bounds a hang.
const long kJobMs = 60000;
// Once its parent is gone the server has to notice at its next read or write and end without
// finishing the walk.
const long kPromptExitMs = 5000;

const char kSmallMessage[] = "From: a@example.com\nSubject: hi\n\nbody\n";

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

void writeFile(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  ASSERT_TRUE(out.good()) << "cannot write " << path;
}

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

// The scratch directory of one test, with the mailboxes of its store.
class Scratch : public vorlane::testing::TempDir {
 public:
  bool ok() const { return !path().empty(); }
  std::string mail() const { return file("mail"); }

  // Creates mail/domain/mailbox/#msgs and returns the mailbox directory.
  std::string mailbox(const std::string& domain, const std::string& name) const {
    return mkdirs("mail/" + domain + "/" + name + "/#msgs").empty() ? "" : mail() + "/" + domain + "/" + name;
  }
};

// One vstatserver child running one statistics job. Local debug lines (where the walk's error lines go)
// are written to a file in the scratch directory, and so is the child's standard error: a sanitizer
// report from the child fails the test even when the child still manages to exit with status 0.
class Job {
 public:
  explicit Job(const Scratch& scratch)
      : debugPath_(scratch.path() + "/debug.log"), stderrPath_(scratch.path() + "/stderr.log") {}

  // Starts the server and the job on `storeDir`; true once the server answered "started".
  bool start(const std::string& storeDir) {
    setenv("VSTAT_DEBUG", debugPath_.c_str(), 1);
    const int savedStderr = dup(2);
    const int childStderr = open(stderrPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (savedStderr < 0 || childStderr < 0 || dup2(childStderr, 2) < 0) {
      ADD_FAILURE() << "cannot redirect standard error to " << stderrPath_ << ": " << strerror(errno);
      return false;
    }
    const bool started = client_.start(kServer);
    dup2(savedStderr, 2);
    close(savedStderr);
    close(childStderr);
    unsetenv("VSTAT_DEBUG");
    if (!started) {
      ADD_FAILURE() << client_.lastError();
      return false;
    }
    vstat::ProcessStoreReqBuffT request = {};
    strncpy(request.storeDir, storeDir.c_str(), sizeof request.storeDir - 1);
    strcpy(request.productVersion, "9.1");
    strcpy(request.osName, "Linux");
    if (!client_.startJob(request, kAnswerMs) || !client_.awaitStarted(kAnswerMs)) {
      ADD_FAILURE() << "the job did not start: " << client_.lastError();
      return false;
    }
    return true;
  }

  // The next progress event; false at the end of the server's output or after timeoutMs.
  bool nextEvent(vstat::EventBuffT& event, long timeoutMs) {
    vstat::JobMessage msg;
    while (client_.next(msg, timeoutMs) == ServerProcess::kOk) {
      if (msg.kind == vstat::JobMessage::Progress) {
        event = msg.event;
        return true;
      }
      if (msg.kind == vstat::JobMessage::Log && msg.logType == vcom::LogErr) lastErrorRecord_ = msg.text;
    }
    return false;
  }

  // Reads events up to the final one (run 0); false when the output ended or time ran out before it.
  bool finalEvent(vstat::EventBuffT& event) {
    while (nextEvent(event, kJobMs)) {
      if (event.run == 0) return true;
    }
    return false;
  }

  // Waits for the first event inside a mailbox, when the walk is under way.
  bool walkUnderWay() {
    vstat::EventBuffT event;
    while (nextEvent(event, kJobMs)) {
      if (event.run == 1 && event.mbox[0] != '\0') return true;
    }
    return false;
  }

  // Reads and drops what the server still sends, as a parent that keeps reading would, until it
  // closes its output or `ms` have passed.
  void drainFor(long ms) {
    vstat::JobMessage msg;
    while (client_.next(msg, ms) == ServerProcess::kOk) {
    }
  }

  // The child's end: it must exit by itself with status 0 within timeoutMs.
  void expectCleanExit(long timeoutMs) {
    vcom::ChildExit how;
    ASSERT_TRUE(client_.process().waitExit(timeoutMs, &how)) << "the server did not end within " << timeoutMs << " ms";
    EXPECT_FALSE(how.signaled) << "killed by signal " << how.signal;
    EXPECT_TRUE(how.exited);
    EXPECT_EQ(how.code, 0);
    EXPECT_EQ(readFile(stderrPath_), "") << "the server wrote to standard error";
  }

  std::string debugLines() const { return readFile(debugPath_); }
  // The text of the last error log record the server sent.
  const std::string& lastErrorRecord() const { return lastErrorRecord_; }
  ServerProcess& server() { return client_.process(); }

 private:
  std::string debugPath_;
  std::string stderrPath_;
  std::string lastErrorRecord_;
  vstat::StatJobClient client_;
};

class Fault : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(scratch.ok()) << "cannot create a temporary directory: " << strerror(errno);
    clearReportPath();
  }
  void TearDown() override { clearReportPath(); }

  // A store whose full walk takes far longer than kPromptExitMs: many mailboxes, each with many links
  // to one large message, so a progress event (and with it a write to the parent) comes often.
  void buildSlowStore(int mailboxes, int messagesPerMailbox) {
    const std::string original = scratch.path() + "/large.eml";
    writeFile(original, largeMessage(512 * 1024));
    for (int m = 0; m < mailboxes; ++m) {
      const std::string msgs = scratch.mailbox("slow.example.com", "user" + std::to_string(m)) + "/#msgs/";
      for (int i = 0; i < messagesPerMailbox; ++i) {
        const std::string name = msgs + std::to_string(i) + ".eml";
        ASSERT_EQ(0, link(original.c_str(), name.c_str())) << name << ": " << strerror(errno);
      }
    }
  }

  Scratch scratch;
};

// The parent ends the conversation in the middle of a walk in each of the ways it can: the server
// must stop the walk and end on its own, never by SIGPIPE or a crash while its threads unwind.
TEST_F(Fault, ParentGoingAwayMidJobEndsTheServerPromptly) {
  buildSlowStore(40, 100);
  enum Close { WriteEnd, ReadEnd, BothEnds };
  for (Close close : {WriteEnd, ReadEnd, BothEnds}) {
    SCOPED_TRACE(close == WriteEnd ? "write end closed" : close == ReadEnd ? "read end closed" : "both closed");
    Job job(scratch);
    ASSERT_TRUE(job.start(scratch.path()));
    ASSERT_TRUE(job.walkUnderWay());
    if (close != ReadEnd) job.server().closeWriteEnd();
    if (close != WriteEnd) job.server().closeReadEnd();
    if (close == WriteEnd) job.drainFor(kPromptExitMs);
    job.expectCleanExit(kPromptExitMs);
  }
}

// Files disappear, shrink or become empty while the walk reads them. The job still runs to its end and
// writes its report.
TEST_F(Fault, MessagesVanishingOrShrinkingDuringTheWalkDoNotStopTheJob) {
  const std::string body = largeMessage(32 * 1024);
  std::vector<std::string> files;
  for (int m = 0; m < 4; ++m) {
    const std::string msgs = scratch.mailbox("busy.example.com", "user" + std::to_string(m)) + "/#msgs/";
    for (int i = 0; i < 250; ++i) {
      files.push_back(msgs + std::to_string(i) + ".eml");
      writeFile(files.back(), body);
    }
  }

  Job job(scratch);
  ASSERT_TRUE(job.start(scratch.path()));
  std::atomic<bool> jobEnded(false);
  std::thread mutator([&] {
    for (size_t round = 0; !jobEnded; ++round) {
      for (size_t i = 0; i < files.size() && !jobEnded; ++i) {
        const std::string& path = files[i];
        switch ((i + round) % 4) {
          case 0:
            unlink(path.c_str());
            break;
          case 1:
            truncate(path.c_str(), static_cast<off_t>(body.size() / 3));
            break;
          case 2:
            truncate(path.c_str(), 0);
            break;
          default:
            // Back again, so later rounds find files to remove and cut.
            writeFile(path, body);
            break;
        }
      }
    }
  });
  vstat::EventBuffT final;
  const bool finished = job.finalEvent(final);
  jobEnded = true;
  mutator.join();
  ASSERT_TRUE(finished) << "no final progress event";
  EXPECT_EQ(final.done, 1u);
  EXPECT_EQ(final.processed, 4u);
  job.expectCleanExit(kAnswerMs);
}

// A FIFO under the name of a folder's status.fld or index.fld, or a link to one, would block an open or
// read for ever. Each is passed over with an error line naming it, and the job ends with its report.
TEST_F(Fault, SpecialFilesAsFolderStatusOrIndexDoNotBlockTheJob) {
  mkstore::StoreOptions options;
  options.messages = 300;
  options.seed = 5;
  options.outDir = scratch.path();
  options.force = true;
  mkstore::Manifest manifest;
  std::string error;
  ASSERT_TRUE(mkstore::generateStore(options, manifest, error)) << error;

  // Folders whose index is read (type other than 0) and mail folders, in a stable order.
  std::vector<std::string> indexFolders, mailFolders;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(scratch.mail())) {
    if (entry.path().filename() != "status.fld" || !entry.is_regular_file()) continue;
    const std::filesystem::path relative = entry.path().parent_path().lexically_relative(scratch.mail());
    if (std::any_of(relative.begin(), relative.end(), [](const auto& name) { return isForbiddenDir(name.c_str()); })) {
      continue;
    }
    const std::string folder = entry.path().parent_path().string();
    (readFile(entry.path()).rfind("T0", 0) == 0 ? mailFolders : indexFolders).push_back(folder);
  }
  std::sort(indexFolders.begin(), indexFolders.end());
  std::sort(mailFolders.begin(), mailFolders.end());
  ASSERT_GE(indexFolders.size(), 2u);
  ASSERT_GE(mailFolders.size(), 2u);
  const std::string fifo = scratch.path() + "/fifo";
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  const std::vector<std::string> planted = {mailFolders[0] + "/status.fld", mailFolders[1] + "/status.fld",
                                            indexFolders[0] + "/index.fld", indexFolders[1] + "/index.fld"};
  for (size_t i = 0; i < planted.size(); ++i) {
    ASSERT_EQ(0, unlink(planted[i].c_str())) << planted[i];
    // Half of them FIFOs of their own, half links to the shared one.
    if (i % 2 == 0) {
      ASSERT_EQ(0, mkfifo(planted[i].c_str(), 0600)) << planted[i];
    } else {
      ASSERT_EQ(0, symlink(fifo.c_str(), planted[i].c_str())) << planted[i];
    }
  }

  Job job(scratch);
  ASSERT_TRUE(job.start(scratch.path()));
  vstat::EventBuffT final;
  ASSERT_TRUE(job.finalEvent(final)) << "no final progress event";
  EXPECT_EQ(final.done, 1u);
  EXPECT_EQ(final.processed, manifest.mailboxes);
  job.expectCleanExit(kAnswerMs);
  const std::string lines = job.debugLines();
  for (const std::string& path : planted) {
    EXPECT_NE(lines.find("Skipping " + path + ": not a regular file\n"), std::string::npos) << path;
  }
}

// 1500 nested folders: the paths of the deepest ones are longer than PATH_MAX. The walk must neither
// exhaust its stack or its descriptors nor give up on the rest of the store.
TEST_F(Fault, FolderTreeDeeperThanAThousandLevelsIsWalkedToTheEnd) {
  const std::string top = scratch.mailbox("deep.example.com", "diver");
  writeFile(top + "/#msgs/1.eml", kSmallMessage);
  int fd = open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  for (int level = 0; level < 1500; ++level) {
    ASSERT_EQ(0, mkdirat(fd, "dd", 0700)) << "level " << level << ": " << strerror(errno);
    const int next = openat(fd, "dd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    close(fd);
    ASSERT_GE(next, 0) << "level " << level;
    fd = next;
  }
  close(fd);
  // A second mailbox after the deep one shows the walk went on.
  writeFile(scratch.mailbox("deep.example.com", "other") + "/#msgs/1.eml", kSmallMessage);

  Job job(scratch);
  ASSERT_TRUE(job.start(scratch.path()));
  vstat::EventBuffT final;
  ASSERT_TRUE(job.finalEvent(final)) << "no final progress event";
  EXPECT_EQ(final.done, 1u);
  EXPECT_EQ(final.processed, 2u);
  EXPECT_EQ(final.mailboxes, 2u);
  job.expectCleanExit(kAnswerMs);
}

// 100,000 message entries in one folder: hard links, which are quick to make, to a few files (a file
// takes at most 65,000 links on ext4).
TEST_F(Fault, HundredThousandEntriesInOneFolderAreAllCounted) {
  const std::string msgs = scratch.mailbox("big.example.com", "hoarder") + "/#msgs/";
  const int kFiles = 4;
  for (int f = 0; f < kFiles; ++f) writeFile(scratch.path() + "/" + std::to_string(f) + ".eml", kSmallMessage);
  for (int i = 0; i < 100000; ++i) {
    const std::string original = scratch.path() + "/" + std::to_string(i % kFiles) + ".eml";
    const std::string name = msgs + std::to_string(i) + ".eml";
    ASSERT_EQ(0, link(original.c_str(), name.c_str())) << name << ": " << strerror(errno);
  }

  Job job(scratch);
  ASSERT_TRUE(job.start(scratch.path()));
  vstat::EventBuffT final;
  ASSERT_TRUE(job.finalEvent(final)) << "no final progress event";
  EXPECT_EQ(final.done, 1u);
  EXPECT_EQ(final.processed, 1u);
  job.expectCleanExit(kAnswerMs);
  // Every message went into the statistic: the message count shows up in the report.
  EXPECT_NE(readFile(kReportPath).find("<value>100000</value>"), std::string::npos);
}

// A directory where the report belongs: the job says so in an error line, sends its final event with
// report-written 0 and still ends normally.
TEST_F(Fault, ReportPathBlockedByADirectoryIsReportedAndTheJobEnds) {
  writeFile(scratch.mailbox("a.example.com", "john") + "/#msgs/1.eml", kSmallMessage);
  ASSERT_EQ(0, mkdir(kReportPath, 0700)) << strerror(errno);

  Job job(scratch);
  ASSERT_TRUE(job.start(scratch.path()));
  vstat::EventBuffT final;
  ASSERT_TRUE(job.finalEvent(final)) << "no final progress event";
  EXPECT_EQ(final.done, 0u);
  EXPECT_EQ(final.run, 0u);
  job.expectCleanExit(kAnswerMs);
  struct stat info;
  ASSERT_EQ(0, lstat(kReportPath, &info));
  EXPECT_TRUE(S_ISDIR(info.st_mode)) << "the blocking directory was touched";
  const std::string lines = job.debugLines();
  EXPECT_NE(lines.find("Open report file " + std::string(kReportPath) + " failed.\n"), std::string::npos) << lines;
  EXPECT_EQ(job.lastErrorRecord(), "no report written: cannot rename report over " + std::string(kReportPath) +
                                       ": Is a directory");
}

// A symbolic link planted at the report path is replaced by the report; the file it pointed to is
// left as it was.
TEST_F(Fault, SymbolicLinkAtTheReportPathIsReplacedNotFollowed) {
  writeFile(scratch.mailbox("a.example.com", "john") + "/#msgs/1.eml", kSmallMessage);
  const std::string target = scratch.path() + "/precious";
  writeFile(target, "keep me\n");
  ASSERT_EQ(0, symlink(target.c_str(), kReportPath)) << strerror(errno);

  Job job(scratch);
  ASSERT_TRUE(job.start(scratch.path()));
  vstat::EventBuffT final;
  ASSERT_TRUE(job.finalEvent(final)) << "no final progress event";
  EXPECT_EQ(final.done, 1u);
  job.expectCleanExit(kAnswerMs);
  struct stat info;
  ASSERT_EQ(0, lstat(kReportPath, &info));
  EXPECT_TRUE(S_ISREG(info.st_mode)) << "the report path is not a regular file";
  EXPECT_EQ(readFile(target), "keep me\n");
  EXPECT_NE(readFile(kReportPath).find("vlsStoreStatistic"), std::string::npos);
}

}  // namespace
