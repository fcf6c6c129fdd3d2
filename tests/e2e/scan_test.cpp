// The statistics job end to end: the real vstatserver, started as the mail server starts it, scans a
// store written by the sample-store generator. The answers, the event stream and the report's totals
// must agree with what the generator says it wrote.
//
// tests/data/report_seed1_3000.xml is the report the job wrote on `mkstore --messages 3000 --seed 1`
// with the request below, saved before the job was taken apart from the walk; its totals agree with the
// generator's manifest. Any change of its bytes is a change of what the service reports.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "../support/generated_store.h"
#include "../support/temp_dir.h"
#include "mkstore/report_check.h"
#include "server_job.h"
#include "stat/job_facts.h"
#include "stat/report_lock.h"

namespace vstat = vorlane::vstat;
namespace mkstore = vorlane::mkstore;
using namespace vorlane::testing;

namespace {

const char* const kVstat = VSTAT_BIN_DIR "/vstat";

// The generator's totals are all in the report.
void expectFigures(const std::string& report, const mkstore::Manifest& manifest, const std::string& what) {
  std::vector<mkstore::ReportFigure> figures;
  std::string error;
  ASSERT_TRUE(mkstore::compareReport(report, manifest, figures, error)) << what << ": " << error;
  for (const mkstore::ReportFigure& f : figures) {
    EXPECT_EQ(f.found, f.expected) << what << ": " << f.collection << " / " << f.counter;
  }
}

TEST(Scan, JobOnAGeneratedStoreReportsWhatTheGeneratorWrote) {
  TempDir store(TempDir::InMemory);
  mkstore::Manifest m;
  ASSERT_TRUE(generateStore(store.path(), 3000, 1, m));
  ServerJob job(store.path());
  ASSERT_TRUE(job.startRunning(store.path()));
  const std::vector<vstat::EventBuffT> seen = job.events();
  job.expectCleanExit();
  ASSERT_FALSE(seen.empty());
  for (size_t i = 0; i + 1 < seen.size(); ++i) {
    EXPECT_EQ(seen[i].run, 1u);
    EXPECT_EQ(seen[i].mailboxes, m.mailboxes);
    if (i > 0) {
      EXPECT_GE(seen[i].processed, seen[i - 1].processed);
    }
  }
  EXPECT_EQ(seen.back().run, 0u);
  EXPECT_EQ(seen.back().done, 1u);
  EXPECT_EQ(seen.back().processed, m.mailboxes);

  const std::string report = readFile(vstat::kReportPath);
  expectFigures(report, m, "seed 1");
  EXPECT_TRUE(report == readFile(VSTAT_TEST_DATA_DIR "/report_seed1_3000.xml")) << "the report bytes changed";
}

TEST(Scan, EmptyStoreDirectoryIsAnsweredTwiceAndStartsNoJob) {
  TempDir scratch;
  ServerJob job(scratch.path());
  ASSERT_TRUE(job.start(""));
  std::vector<int32_t> codes;
  vstat::JobMessage msg;
  while (codes.size() < 2 && job.client().next(msg, kAnswerMs) == vorlane::vcom::ServerProcess::kOk) {
    EXPECT_NE(msg.kind, vstat::JobMessage::Progress);
    if (msg.kind == vstat::JobMessage::Refused) codes.push_back(msg.code);
  }
  EXPECT_EQ(codes, (std::vector<int32_t>{2, 5}));
  job.client().process().closeWriteEnd();
  job.expectCleanExit();
}

// `vstat scan` as a user runs it, with its output in a file.
class ScanProcess {
 public:
  ScanProcess(const std::vector<std::string>& args, const std::string& outputPath) : output_(outputPath) {
    std::vector<std::string> all = {kVstat, "scan"};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : all) argv.push_back(&a[0]);
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, output_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    if (posix_spawn(&pid_, kVstat, &actions, nullptr, argv.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
  }
  ~ScanProcess() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
  }

  // The exit status, or -1 when it did not end normally within kJobMs.
  int wait() {
    for (int waited = 0; pid_ > 0 && waited < kJobMs; waited += 50) {
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return -1;
  }
  bool running() const { return pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == 0; }
  std::string output() const { return readFile(output_); }

 private:
  std::string output_;
  pid_t pid_ = -1;
};

// Two scans of different stores at the same time: each shows and copies the report of its own store.
TEST(Scan, ConcurrentScansEachGetTheReportOfTheirOwnStore) {
  TempDir work, first(TempDir::InMemory), second(TempDir::InMemory);
  mkstore::Manifest manifests[2];
  ASSERT_TRUE(generateStore(first.path(), 300, 21, manifests[0]));
  ASSERT_TRUE(generateStore(second.path(), 500, 22, manifests[1]));
  const std::string stores[2] = {first.path(), second.path()};
  for (int round = 0; round < 4; ++round) {
    std::vector<std::unique_ptr<ScanProcess>> scans;
    for (int i = 0; i < 2; ++i) {
      const std::string name = std::to_string(i);
      scans.emplace_back(new ScanProcess({stores[i], "--server", kServer, "--report", work.file(name + ".xml")},
                                         work.file(name + ".out")));
    }
    for (int i = 0; i < 2; ++i) {
      ASSERT_EQ(scans[i]->wait(), 0) << scans[i]->output();
      expectFigures(work.read(std::to_string(i) + ".xml"), manifests[i],
                    "round " + std::to_string(round) + ", store " + std::to_string(i));
    }
  }
}

// While the report lock is taken, `vstat scan --no-wait` gives up with status 7, `vstat scan` says it
// waits and goes on once the lock is free, and a server started without a client's lock waits too:
// stopped while waiting, it ends without a report and says why.
TEST(Scan, HeldReportLockMakesScansWaitOrGiveUp) {
  TempDir work, store(TempDir::InMemory);
  mkstore::Manifest manifest;
  ASSERT_TRUE(generateStore(store.path(), 50, 23, manifest));
  ReportLock held(vstat::kReportLockPath);
  std::string error;
  ASSERT_EQ(held.tryAcquire(error), ReportLock::Acquired) << error;

  ScanProcess impatient({store.path(), "--server", kServer, "--no-wait"}, work.file("impatient.out"));
  EXPECT_EQ(impatient.wait(), 7);
  EXPECT_NE(impatient.output().find("another scan is running"), std::string::npos) << impatient.output();

  ServerJob job(work.path());
  ASSERT_TRUE(job.start(store.path(), false));
  ASSERT_TRUE(job.client().awaitStarted(kAnswerMs));

  ScanProcess patient({store.path(), "--server", kServer}, work.file("patient.out"));
  const std::string waiting = "waiting for another scan to finish";
  for (int waited = 0; waited < kAnswerMs && patient.output().find(waiting) == std::string::npos; waited += 50) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  EXPECT_NE(patient.output().find(waiting), std::string::npos) << patient.output();

  ASSERT_TRUE(job.client().requestStop(kAnswerMs));
  const std::vector<vstat::EventBuffT> seen = job.events();
  job.expectCleanExit();
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].run, 0u);
  EXPECT_EQ(seen[0].done, 0u);
  EXPECT_NE(job.lastErrorRecord().find("stopped while another job held"), std::string::npos) << job.lastErrorRecord();
  EXPECT_TRUE(patient.running()) << patient.output();

  held.release();
  EXPECT_EQ(patient.wait(), 0) << patient.output();
}

}  // namespace
