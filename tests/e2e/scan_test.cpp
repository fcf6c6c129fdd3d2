// The statistics job end to end: the real vstatserver, started as the mail server starts it, scans a
// store written by the sample-store generator. The answers, the event stream and the report's totals
// must agree with what the generator says it wrote.

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../support/temp_dir.h"
#include "mkstore/report_check.h"
#include "mkstore/store_generator.h"
#include "stat/vstat_messages.h"
#include "vcom/server_process.h"

using namespace vorlane;
using vcom::MsgPtr;
using vcom::ServerProcess;

namespace {

const char* const kServer = VSTAT_BIN_DIR "/vstatserver";
const long kJobMs = 60000;
// Answers come at once; the generous bound only matters on a machine loaded by sanitizer builds.
const long kAnswerMs = 20000;

// Writes a sample store of `messages` messages into `dir`.
bool generate(const vorlane::testing::TempDir& dir, uint64_t messages, mkstore::Manifest& manifest) {
  mkstore::StoreOptions options;
  options.messages = messages;
  options.seed = 7;
  options.outDir = dir.path();
  options.force = true;
  std::string error;
  const bool ok = mkstore::generateStore(options, manifest, error);
  EXPECT_TRUE(ok) << error;
  return ok;
}

uint32_t sendProcessStore(ServerProcess& server, const std::string& storeDir) {
  vstat::ProcessStoreReqBuffT request{};
  storeDir.copy(request.storeDir, sizeof request.storeDir - 1);
  std::string("9.1.0").copy(request.productVersion, sizeof request.productVersion - 1);
  request.build = 4711;
  std::string("Linux").copy(request.osName, sizeof request.osName - 1);
  request.osCode = 3;
  char payload[vstat::kProcessStoreReqWireSize];
  vstat::encodeProcessStoreRequest(request, payload);
  return server.sendRequest(vstat::ProcessStore, payload, sizeof payload, kAnswerMs);
}

TEST(Scan, JobOnAGeneratedStoreReportsWhatTheGeneratorWrote) {
  vorlane::testing::TempDir store;
  mkstore::Manifest m;
  ASSERT_TRUE(generate(store, 600, m));
  ServerProcess server;
  ASSERT_TRUE(server.start(kServer)) << server.lastError();
  uint32_t seq = sendProcessStore(server, store.path());
  ASSERT_NE(seq, 0u);

  MsgPtr answer;
  ASSERT_EQ(server.waitForAnswer(vstat::ProcessStoreResp, seq, answer, kAnswerMs), ServerProcess::kOk);
  ASSERT_EQ(answer->type, vstat::ProcessStoreResp);
  EXPECT_EQ(vcom::getU32(answer->payload()), 1u);

  std::vector<vstat::EventBuffT> events;
  for (;;) {
    MsgPtr msg;
    ServerProcess::Result r = server.receive(msg, kJobMs);
    if (r != ServerProcess::kOk) break;
    if (msg->type != vstat::ProgressAsync) continue;
    vstat::EventBuffT event;
    ASSERT_TRUE(vstat::decodeEvent(msg->payload(), msg->payloadSize(), event));
    events.push_back(event);
  }
  vcom::ChildExit exit;
  ASSERT_TRUE(server.waitExit(kJobMs, &exit));
  EXPECT_TRUE(exit.exited && exit.code == 0) << "signal " << exit.signal;

  ASSERT_FALSE(events.empty());
  for (size_t i = 0; i + 1 < events.size(); ++i) {
    EXPECT_EQ(events[i].run, 1u);
    EXPECT_EQ(events[i].mailboxes, m.mailboxes);
    if (i > 0) {
      EXPECT_GE(events[i].processed, events[i - 1].processed);
    }
  }
  EXPECT_EQ(events.back().run, 0u);
  EXPECT_EQ(events.back().done, 1u);
  EXPECT_EQ(events.back().processed, m.mailboxes);

  std::ifstream in("/tmp/VStatReport.xml");
  std::stringstream text;
  text << in.rdbuf();
  const std::string report = text.str();
  EXPECT_NE(report.find("\t<productVersion>9.1.0</productVersion>\n\t<build>4711</build>\n"
                        "\t<osName>Linux</osName>\n\t<osCode>3</osCode>\n"),
            std::string::npos);
  std::vector<mkstore::ReportFigure> figures;
  std::string error;
  ASSERT_TRUE(mkstore::compareReport(report, m, figures, error)) << error;
  for (const mkstore::ReportFigure& f : figures) {
    EXPECT_EQ(f.found, f.expected) << f.collection << " / " << f.counter;
  }
}

TEST(Scan, EmptyStoreDirectoryIsAnsweredTwiceAndStartsNoJob) {
  ServerProcess server;
  ASSERT_TRUE(server.start(kServer)) << server.lastError();
  uint32_t seq = sendProcessStore(server, "");
  std::vector<int32_t> codes;
  for (int i = 0; i < 2; ++i) {
    MsgPtr answer;
    ASSERT_EQ(server.waitForAnswer(vstat::ProcessStoreResp, seq, answer, kAnswerMs), ServerProcess::kOk);
    ASSERT_EQ(answer->type, 0u);  // GenericResp
    codes.push_back(static_cast<int32_t>(vcom::getU32(answer->payload() + 256)));
  }
  EXPECT_EQ(codes, (std::vector<int32_t>{2, 5}));
  server.closeWriteEnd();
  vcom::ChildExit exit;
  ASSERT_TRUE(server.waitExit(kAnswerMs, &exit));
  EXPECT_TRUE(exit.exited && exit.code == 0);
}

TEST(Scan, StopProcessingEndsTheJobWhichStillReports) {
  vorlane::testing::TempDir store;
  mkstore::Manifest m;
  ASSERT_TRUE(generate(store, 3000, m));
  ServerProcess server;
  ASSERT_TRUE(server.start(kServer)) << server.lastError();
  uint32_t seq = sendProcessStore(server, store.path());
  MsgPtr answer;
  ASSERT_EQ(server.waitForAnswer(vstat::ProcessStoreResp, seq, answer, kAnswerMs), ServerProcess::kOk);
  ASSERT_NE(server.sendRequest(vstat::StopProcessing, nullptr, 0, kAnswerMs), 0u);

  vstat::EventBuffT last{};
  for (;;) {
    MsgPtr msg;
    if (server.receive(msg, kJobMs) != ServerProcess::kOk) break;
    if (msg->type == vstat::ProgressAsync) vstat::decodeEvent(msg->payload(), msg->payloadSize(), last);
  }
  vcom::ChildExit exit;
  ASSERT_TRUE(server.waitExit(kJobMs, &exit));
  EXPECT_TRUE(exit.exited && exit.code == 0);
  EXPECT_EQ(last.run, 0u);
  EXPECT_EQ(last.done, 1u);
}

}  // namespace
