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
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "../support/temp_dir.h"
#include "mkstore/report_check.h"
#include "mkstore/store_generator.h"
#include "stat/job_facts.h"
#include "stat/report_lock.h"
#include "stat/stat_job_client.h"
#include "vcom/message_types.h"

using namespace vorlane;
using vcom::ServerProcess;
using vstat::JobMessage;

namespace {

const char* const kServer = VSTAT_BIN_DIR "/vstatserver";
const char* const kVstat = VSTAT_BIN_DIR "/vstat";
const long kJobMs = 60000;
// Answers come at once; the generous bound only matters on a machine loaded by sanitizer builds.
const long kAnswerMs = 20000;

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Writes a sample store of `messages` messages from `seed` into `dir`.
bool generate(const vorlane::testing::TempDir& dir, uint64_t seed, mkstore::Manifest& manifest,
              uint64_t messages = 3000) {
  mkstore::StoreOptions options;
  options.messages = messages;
  options.seed = seed;
  options.outDir = dir.path();
  options.force = true;
  std::string error;
  const bool ok = mkstore::generateStore(options, manifest, error);
  EXPECT_TRUE(ok) << error;
  return ok;
}

bool startJob(vstat::StatJobClient& client, const std::string& storeDir) {
  vstat::ProcessStoreReqBuffT request{};
  storeDir.copy(request.storeDir, sizeof request.storeDir - 1);
  std::string("9.1").copy(request.productVersion, sizeof request.productVersion - 1);
  request.build = 4711;
  std::string("Linux").copy(request.osName, sizeof request.osName - 1);
  request.osCode = 3;
  EXPECT_TRUE(client.start(kServer)) << client.lastError();
  return client.startJob(request, kAnswerMs);
}

// Every progress event up to the end of the server's output.
std::vector<vstat::EventBuffT> events(vstat::StatJobClient& client) {
  std::vector<vstat::EventBuffT> events;
  JobMessage msg;
  while (client.next(msg, kJobMs) == ServerProcess::kOk) {
    if (msg.kind == JobMessage::Progress) events.push_back(msg.event);
  }
  return events;
}

void expectCleanExit(vstat::StatJobClient& client) {
  vcom::ChildExit exit;
  EXPECT_TRUE(client.finish(kJobMs, exit)) << "the server did not end";
  EXPECT_TRUE(exit.exited && exit.code == 0) << "signal " << exit.signal;
}

// Generates a store of 3000 messages from `seed` and runs one job on it to its end, asking for a stop
// as soon as it runs when `stop`; returns its progress events (none when the store cannot be made).
std::vector<vstat::EventBuffT> runJob(uint64_t seed, bool stop, mkstore::Manifest& manifest) {
  vorlane::testing::TempDir store;
  if (!generate(store, seed, manifest)) return {};
  vstat::StatJobClient client;
  if (!startJob(client, store.path()) || !client.awaitStarted(kAnswerMs)) {
    ADD_FAILURE() << "the job did not start: " << client.lastError();
    return {};
  }
  EXPECT_TRUE(!stop || client.requestStop(kAnswerMs));
  const std::vector<vstat::EventBuffT> seen = events(client);
  expectCleanExit(client);
  return seen;
}

TEST(Scan, JobOnAGeneratedStoreReportsWhatTheGeneratorWrote) {
  mkstore::Manifest m;
  const std::vector<vstat::EventBuffT> seen = runJob(1, false, m);
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
  std::vector<mkstore::ReportFigure> figures;
  std::string error;
  ASSERT_TRUE(mkstore::compareReport(report, m, figures, error)) << error;
  for (const mkstore::ReportFigure& f : figures) {
    EXPECT_EQ(f.found, f.expected) << f.collection << " / " << f.counter;
  }
  EXPECT_TRUE(report == readFile(VSTAT_TEST_DATA_DIR "/report_seed1_3000.xml")) << "the report bytes changed";
}

TEST(Scan, EmptyStoreDirectoryIsAnsweredTwiceAndStartsNoJob) {
  vstat::StatJobClient client;
  ASSERT_TRUE(startJob(client, ""));
  std::vector<int32_t> codes;
  JobMessage msg;
  while (codes.size() < 2 && client.next(msg, kAnswerMs) == ServerProcess::kOk) {
    EXPECT_NE(msg.kind, JobMessage::Progress);
    if (msg.kind == JobMessage::Refused) codes.push_back(msg.code);
  }
  EXPECT_EQ(codes, (std::vector<int32_t>{2, 5}));
  expectCleanExit(client);
}

TEST(Scan, StopProcessingEndsTheJobWhichStillReports) {
  mkstore::Manifest m;
  const std::vector<vstat::EventBuffT> seen = runJob(7, true, m);
  ASSERT_FALSE(seen.empty());
  EXPECT_EQ(seen.back().run, 0u);
  EXPECT_EQ(seen.back().done, 1u);
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
  vorlane::testing::TempDir work, first, second;
  mkstore::Manifest manifests[2];
  ASSERT_TRUE(generate(first, 21, manifests[0], 300));
  ASSERT_TRUE(generate(second, 22, manifests[1], 500));
  const std::string stores[2] = {first.path(), second.path()};
  for (int round = 0; round < 4; ++round) {
    std::vector<std::unique_ptr<ScanProcess>> scans;
    for (int i = 0; i < 2; ++i) {
      scans.emplace_back(
          new ScanProcess({stores[i], "--server", kServer, "--report", work.file(std::to_string(i)) + ".xml"},
                          work.file(std::to_string(i) + ".out")));
    }
    for (int i = 0; i < 2; ++i) {
      ASSERT_EQ(scans[i]->wait(), 0) << scans[i]->output();
      std::vector<mkstore::ReportFigure> figures;
      std::string error;
      ASSERT_TRUE(mkstore::compareReport(readFile(work.file(std::to_string(i)) + ".xml"), manifests[i], figures, error))
          << error;
      for (const mkstore::ReportFigure& f : figures) {
        EXPECT_EQ(f.found, f.expected) << "round " << round << ", store " << i << ": " << f.collection << " / "
                                       << f.counter;
      }
    }
  }
}

// While the report lock is taken, `vstat scan --no-wait` gives up with status 7, `vstat scan` says it
// waits and goes on once the lock is free, and a server started without a client's lock waits too:
// stopped while waiting, it ends without a report and says why.
TEST(Scan, HeldReportLockMakesScansWaitOrGiveUp) {
  vorlane::testing::TempDir work, store;
  mkstore::Manifest manifest;
  ASSERT_TRUE(generate(store, 23, manifest, 50));
  ReportLock held(vstat::kReportLockPath);
  std::string error;
  ASSERT_EQ(held.tryAcquire(error), ReportLock::Acquired) << error;

  ScanProcess impatient({store.path(), "--server", kServer, "--no-wait"}, work.file("impatient.out"));
  EXPECT_EQ(impatient.wait(), 7);
  EXPECT_NE(impatient.output().find("another scan is running"), std::string::npos) << impatient.output();

  vstat::StatJobClient client;
  ASSERT_TRUE(startJob(client, store.path()));
  ASSERT_TRUE(client.awaitStarted(kAnswerMs));

  ScanProcess patient({store.path(), "--server", kServer}, work.file("patient.out"));
  for (int waited = 0; waited < kAnswerMs && patient.output().find("waiting for another scan to finish") ==
                                                 std::string::npos;
       waited += 50) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  EXPECT_NE(patient.output().find("waiting for another scan to finish"), std::string::npos) << patient.output();

  ASSERT_TRUE(client.requestStop(kAnswerMs));
  std::vector<vstat::EventBuffT> seen;
  std::string reason;
  JobMessage msg;
  while (client.next(msg, kJobMs) == ServerProcess::kOk) {
    if (msg.kind == JobMessage::Progress) seen.push_back(msg.event);
    if (msg.kind == JobMessage::Log && msg.logType == vcom::LogErr) reason = msg.text;
  }
  expectCleanExit(client);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].run, 0u);
  EXPECT_EQ(seen[0].done, 0u);
  EXPECT_NE(reason.find("stopped while another job held"), std::string::npos) << reason;
  EXPECT_TRUE(patient.running()) << patient.output();

  held.release();
  EXPECT_EQ(patient.wait(), 0) << patient.output();
}

}  // namespace
