// VStatServer's own messages: payload wire layouts and progress events as they leave the server
// (in-process over real pipes), and the local debug lines switched on through VSTAT_DEBUG.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "../support/temp_dir.h"
#include "stat/vstat_messages.h"
#include "stat/vstat_server.h"
#include "server_job.h"
#include "vcom/server_process.h"

using namespace vorlane;
using vcom::Msg;
using vcom::MsgPtr;
using vorlane::testing::readFile;
using vorlane::testing::ServerJob;

namespace {

TEST(VstatPayloads, RequestRoundTripsWithBigEndianIntegersAndCutStrings) {
  vstat::ProcessStoreReqBuffT req;
  std::memset(&req, 'q', sizeof req);  // unterminated fields must still be cut to width - 1
  req.build = 0x01020304;
  req.osCode = 7;
  char wire[vstat::kProcessStoreReqWireSize];
  vstat::encodeProcessStoreRequest(req, wire);
  const unsigned char build[4] = {1, 2, 3, 4};
  EXPECT_EQ(0, std::memcmp(wire + 540, build, 4));
  EXPECT_EQ(wire[511], '\0');
  EXPECT_EQ(wire[539], '\0');
  EXPECT_EQ(wire[671], '\0');

  vstat::ProcessStoreReqBuffT back;
  ASSERT_TRUE(vstat::decodeProcessStoreRequest(wire, sizeof wire, back));
  EXPECT_EQ(std::string(back.storeDir), std::string(511, 'q'));
  EXPECT_EQ(back.build, 0x01020304u);
  EXPECT_EQ(back.osCode, 7u);
  EXPECT_FALSE(vstat::decodeProcessStoreRequest(wire, sizeof wire - 1, back));
  EXPECT_EQ(back.storeDir[0], '\0');
}

// In-process server whose output the test reads only after the job's events are queued, like a parent
// that lags: running events coalesce, the first and the final one arrive with their fields at their
// offsets, in order.
TEST(VstatServerEvents, LaggingParentGetsTheFirstAndFinalEventsInOrder) {
  const uint32_t kEvents = 2000;
  int toServer[2], toPeer[2];
  ASSERT_EQ(0, pipe(toServer));
  ASSERT_EQ(0, pipe(toPeer));
  FILE* debug = tmpfile();
  ASSERT_NE(debug, nullptr);
  std::vector<MsgPtr> events;
  std::thread reader;
  {
    // The server owns and closes toServer[0] and toPeer[1].
    VStatServer server((std::to_string(toServer[0]) + " " + std::to_string(toPeer[1])).c_str(), debug);
    ASSERT_TRUE(server.init());
    vstat::EventBuffT ev = {};
    std::strcpy(ev.dom, "a.com");
    std::strcpy(ev.mbox, "john");
    ev.mailboxes = 1;
    for (uint32_t i = 3; i < kEvents; ++i) {
      ev.processed = i;
      ev.run = 1;
      server.sendProgressMsg(ev);
    }
    ev.run = 0;
    ev.done = 1;
    server.sendProgressMsg(ev);
    server.sendErrMsg("cannot open /store/100%s/x: No such file");  // a format character in a path
    reader = std::thread([&events, fd = toPeer[0]] {
      vcom::UnixMsgPipe peer((std::to_string(fd) + " -1").c_str());
      vcom::IOError err;
      Msg hdr;
      while (peer.recvMsgHdr(&hdr, err) == 0) {
        MsgPtr msg(Msg::createFor(hdr));
        if (peer.recvMsgRest(&hdr, msg.get(), err) != 0) break;
        if (msg->type == vstat::ProgressAsync) events.push_back(std::move(msg));
      }
    });
    close(toServer[1]);
    server.run();
  }
  reader.join();
  ASSERT_GE(events.size(), 2u);
  EXPECT_LT(events.size(), kEvents / 2) << "running events did not coalesce";
  const MsgPtr& first = events.front();
  EXPECT_EQ(first->size, 1056u);
  EXPECT_EQ(first->seq, 0u);
  EXPECT_STREQ(first->payload(), "a.com");
  EXPECT_STREQ(first->payload() + 512, "john");
  const unsigned char ints[16] = {0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0};
  EXPECT_EQ(0, std::memcmp(first->payload() + 1024, ints, 16));
  uint32_t last = 0;
  for (const MsgPtr& event : events) {
    vstat::EventBuffT back;
    ASSERT_TRUE(vstat::decodeEvent(event->payload(), event->payloadSize(), back));
    EXPECT_GE(back.processed, last);
    last = back.processed;
    EXPECT_EQ(back.run, &event == &events.back() ? 0u : 1u);
  }

  std::string lines(1 << 20, '\0');
  rewind(debug);
  lines.resize(fread(&lines[0], 1, lines.size(), debug));
  fclose(debug);
  EXPECT_NE(lines.find(" Sending ProgressAsync; dom=a.com, mbox=john, run=1\n"), std::string::npos);
  EXPECT_NE(lines.find(" cannot open /store/100%s/x: No such file\n"), std::string::npos);
}

// VSTAT_DEBUG names the debug file. A plain file of the server's user (created 0600 when missing) gets
// the lines, a name with a line end in them escaped; a link, a FIFO or another user's file is refused
// with a note on standard error, untouched, and the server serves on without debug lines.
TEST(VstatServerDebug, DebugFileIsOnlyEverAPlainFileOfTheServersUser) {
  const vorlane::testing::TempDir dir;
  const std::string victim = dir.write("victim", "");
  struct Case {
    const char* name;
    std::string path;
    bool accepted;
  };
  std::vector<Case> cases = {{"new file", dir.file("debug.log"), true}, {"link", dir.file("link"), false},
                             {"fifo", dir.file("fifo"), false}};
  ASSERT_EQ(0, symlink(victim.c_str(), cases[1].path.c_str()));
  ASSERT_EQ(0, mkfifo(cases[2].path.c_str(), 0600));
  // Only the superuser can give a file away; elsewhere the ownership check goes untested here.
  if (geteuid() == 0) {
    cases.push_back({"another user's file", dir.write("theirs", ""), false});
    ASSERT_EQ(0, chown(cases.back().path.c_str(), 65534, 65534));
  }
  const std::string forged = "/nonexistent\nforged line";
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string errPath = dir.file(std::string("stderr ") + c.name);
    ServerJob server(c.path, errPath);
    ASSERT_TRUE(server.startServer());
    vcom::ServerProcess& process = server.client().process();
    const uint32_t seq = process.sendRequest(vcom::SetWorkDir, forged.c_str(), forged.size() + 1, 5000);
    MsgPtr msg;
    ASSERT_EQ(process.waitForAnswer(vcom::GenericResp, seq, msg, 5000), vcom::ServerProcess::kOk);
    process.closeWriteEnd();
    if (c.accepted) {
      server.expectCleanExit();
      const std::string lines = readFile(c.path);
      EXPECT_NE(lines.find(" VStatServer started\n"), std::string::npos) << lines;
      EXPECT_NE(lines.find(" chdir to /nonexistent\\x0aforged line failed\n"), std::string::npos) << lines;
      struct stat st;
      ASSERT_EQ(0, stat(c.path.c_str(), &st));
      EXPECT_EQ(st.st_mode & 07777, 0600u);
    } else {
      vcom::ChildExit how;
      ASSERT_TRUE(process.waitExit(5000, &how));
      const std::string errors = readFile(errPath);
      EXPECT_NE(errors.find("debug file " + c.path + " refused"), std::string::npos) << errors;
      if (c.path != cases[2].path) {
        EXPECT_EQ(readFile(c.path), "");
      }
    }
  }
}

}  // namespace
