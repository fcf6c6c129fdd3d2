// VStatServer's own messages: payload wire layouts and progress events as they leave the server
// (in-process over real pipes), and the local debug lines switched on through VSTAT_DEBUG.
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "../support/temp_dir.h"
#include "stat/vstat_messages.h"
#include "stat/vstat_server.h"
#include "vcom/server_process.h"

using namespace vorlane;
using vcom::Msg;
using vcom::MsgPtr;

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

// In-process server whose output the test reads; the descriptors are a pipe pair per direction.
TEST(VstatServerEvents, ProgressEventCarriesItsFieldsAtTheirOffsets) {
  int toServer[2], toPeer[2];
  ASSERT_EQ(0, pipe(toServer));
  ASSERT_EQ(0, pipe(toPeer));
  MsgPtr event;
  FILE* debug = tmpfile();
  ASSERT_NE(debug, nullptr);
  {
    // The server owns and closes toServer[0] and toPeer[1].
    VStatServer server((std::to_string(toServer[0]) + " " + std::to_string(toPeer[1])).c_str(), debug);
    ASSERT_TRUE(server.init());
    vstat::EventBuffT ev = {};
    std::strcpy(ev.dom, "a.com");
    std::strcpy(ev.mbox, "john");
    ev.processed = 3;
    ev.mailboxes = 1;
    ev.run = 1;
    server.sendProgressMsg(ev);
    server.sendErrMsg("cannot open /store/100%s/x: No such file");  // a format character in a path
    close(toServer[1]);
    server.run();
  }
  // Read everything the server wrote and pick the event.
  vcom::UnixMsgPipe peer((std::to_string(toPeer[0]) + " -1").c_str());
  for (;;) {
    struct pollfd p = {toPeer[0], POLLIN, 0};
    ASSERT_EQ(1, poll(&p, 1, 5000));
    vcom::IOError err;
    Msg hdr;
    ASSERT_EQ(0, peer.recvMsgHdr(&hdr, err)) << "no progress event";
    MsgPtr msg(Msg::createFor(hdr));
    ASSERT_EQ(0, peer.recvMsgRest(&hdr, msg.get(), err));
    if (msg->type == vstat::ProgressAsync) {
      event = std::move(msg);
      break;
    }
  }
  EXPECT_EQ(event->size, 1056u);
  EXPECT_EQ(event->seq, 0u);
  EXPECT_STREQ(event->payload(), "a.com");
  EXPECT_STREQ(event->payload() + 512, "john");
  const unsigned char ints[16] = {0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0};
  EXPECT_EQ(0, std::memcmp(event->payload() + 1024, ints, 16));
  vstat::EventBuffT back;
  ASSERT_TRUE(vstat::decodeEvent(event->payload(), event->payloadSize(), back));
  EXPECT_EQ(back.processed, 3u);
  EXPECT_EQ(back.run, 1u);

  std::string lines(4096, '\0');
  rewind(debug);
  lines.resize(fread(&lines[0], 1, lines.size(), debug));
  fclose(debug);
  EXPECT_NE(lines.find(" Sending ProgressAsync; dom=a.com, mbox=john, run=1\n"), std::string::npos) << lines;
  EXPECT_NE(lines.find(" cannot open /store/100%s/x: No such file\n"), std::string::npos) << lines;
}

TEST(VstatServerDebug, VstatDebugNamesTheFileForLocalDebugLines) {
  const vorlane::testing::TempDir dir;
  const std::string path = dir.file("debug.log");
  setenv("VSTAT_DEBUG", path.c_str(), 1);
  vcom::ServerProcess server;
  const bool started = server.start(VSTAT_BIN_DIR "/vstatserver");
  unsetenv("VSTAT_DEBUG");
  ASSERT_TRUE(started) << server.lastError();
  const uint32_t seq = server.sendRequest(vcom::GetProtocolVersion, nullptr, 0, 5000);
  MsgPtr msg;
  ASSERT_EQ(server.waitForAnswer(vcom::ProtocolVersionResp, seq, msg, 5000), vcom::ServerProcess::kOk);
  server.closeWriteEnd();
  vcom::ChildExit how;
  ASSERT_TRUE(server.waitExit(5000, &how));

  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  const std::string lines = text.str();
  EXPECT_NE(lines.find(" VStatServer started\n"), std::string::npos) << lines;
  EXPECT_NE(lines.find(" received message header, Seq: " + std::to_string(seq) + " Type:10 Size: 16\n"),
            std::string::npos)
      << lines;
  EXPECT_NE(lines.find(" VStatServer stopped\n"), std::string::npos) << lines;
}

}  // namespace
