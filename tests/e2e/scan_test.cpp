// The statistics job end to end: the real vstatserver, started as the mail server starts it, scans a
// store written by the sample-store generator. The answers, the event stream and the report's totals
// must agree with what the generator says it wrote.
//
// tests/data/report_seed1_3000.xml is the report the job wrote on `mkstore --messages 3000 --seed 1`
// with the request below, saved before the job was taken apart from the walk; its totals agree with the
// generator's manifest. Any change of its bytes is a change of what the service reports.
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../support/temp_dir.h"
#include "mkstore/report_check.h"
#include "mkstore/store_generator.h"
#include "stat/job_facts.h"
#include "stat/stat_job_client.h"

using namespace vorlane;
using vcom::ServerProcess;
using vstat::JobMessage;

namespace {

const char* const kServer = VSTAT_BIN_DIR "/vstatserver";
const long kJobMs = 60000;
// Answers come at once; the generous bound only matters on a machine loaded by sanitizer builds.
const long kAnswerMs = 20000;

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Writes a sample store of 3000 messages from `seed` into `dir`.
bool generate(const vorlane::testing::TempDir& dir, uint64_t seed, mkstore::Manifest& manifest) {
  mkstore::StoreOptions options;
  options.messages = 3000;
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

}  // namespace
