// The built-in requests of the statistics server, checked byte for byte through the real binary,
// started exactly as the mail server starts it (ServerProcess). Heartbeats and log records that
// arrive while waiting for an answer are skipped by waitForAnswer.
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "stat/vstat_messages.h"
#include "vcom/message_types.h"
#include "vcom/msg.h"
#include "vcom/server_process.h"

using namespace vorlane::vcom;

namespace {

const char* const kServer = VSTAT_BIN_DIR "/vstatserver";
const long kAnswerMs = 5000;

std::vector<unsigned char> wireHeader(uint64_t size, uint32_t type, uint32_t seq) {
  Msg hdr;
  hdr.size = size;
  hdr.type = type;
  hdr.seq = seq;
  std::vector<unsigned char> out(Msg::kHeaderSize);
  encodeHeader(hdr, out.data());
  return out;
}

class Protocol : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(server.start(kServer)) << server.lastError(); }

  uint32_t request(uint32_t type, const void* payload = nullptr, size_t len = 0) {
    const uint32_t seq = server.sendRequest(type, payload, len, kAnswerMs);
    EXPECT_NE(seq, 0u) << server.lastError();
    return seq;
  }

  MsgPtr answer(uint32_t type, uint32_t seq) {
    MsgPtr msg;
    EXPECT_EQ(server.waitForAnswer(type, seq, msg, kAnswerMs), ServerProcess::kOk) << server.lastError();
    return msg;
  }

  // A GenericResp as the server must write it: text zero-padded to 256 bytes, code big-endian.
  void expectGenericAnswer(uint32_t seq, int32_t code, const char* text) {
    const MsgPtr msg = answer(GenericResp, seq);
    ASSERT_TRUE(msg);
    ASSERT_EQ(msg->size, 276u);
    std::vector<char> expected(260, 0);
    std::strcpy(expected.data(), text);
    putU32(expected.data() + 256, static_cast<uint32_t>(code));
    EXPECT_EQ(0, std::memcmp(msg->payload(), expected.data(), 260))
        << "text \"" << std::string(msg->payload(), strnlen(msg->payload(), 256)) << "\" code "
        << static_cast<int32_t>(getU32(msg->payload() + 256));
  }

  // The server still serves: a protocol version request is answered with 301, big-endian.
  void expectStillServing() {
    const MsgPtr msg = answer(ProtocolVersionResp, request(GetProtocolVersion));
    ASSERT_TRUE(msg);
    EXPECT_EQ(msg->type, uint32_t(ProtocolVersionResp));
    ASSERT_EQ(msg->size, 20u);
    const unsigned char expected[4] = {0x00, 0x00, 0x01, 0x2D};
    EXPECT_EQ(0, std::memcmp(msg->payload(), expected, 4));
  }

  // Reads until the server closes its output; returns what came (heartbeats included).
  std::vector<MsgPtr> drainToEnd() {
    std::vector<MsgPtr> got;
    MsgPtr msg;
    ServerProcess::Result r;
    while ((r = server.receive(msg, kAnswerMs)) == ServerProcess::kOk) got.push_back(std::move(msg));
    EXPECT_EQ(r, ServerProcess::kClosed) << server.lastError();
    return got;
  }

  ServerProcess server;
};

// The child's end: by itself, with status 0, never by a signal.
void expectCleanExit(ServerProcess& server) {
  ChildExit how;
  ASSERT_TRUE(server.waitExit(kAnswerMs, &how)) << "server did not end";
  EXPECT_TRUE(how.exited && how.code == 0) << "exit code " << how.code << ", signal " << how.signal;
}

TEST(ServerStart, MissingOrBadDescriptorsExit255WithoutWriting) {
  int out[2];
  ASSERT_EQ(0, pipe(out));
  const std::string w = std::to_string(out[1]);
  const std::vector<std::vector<std::string>> cases = {
      {}, {w}, {"x", w}, {"-1", w}, {"", ""},
  };
  for (const auto& args : cases) {
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      std::vector<char*> argv{const_cast<char*>(kServer)};
      for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      execv(kServer, argv.data());
      _exit(126);
    }
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    ASSERT_TRUE(WIFEXITED(status)) << "args " << args.size();
    EXPECT_EQ(WEXITSTATUS(status), 255) << "args " << args.size();
  }
  close(out[1]);
  char byte;
  EXPECT_EQ(0, read(out[0], &byte, 1)) << "the server wrote to its pipe";
  close(out[0]);
}

// Response types, log types and anything above the known range are not requests; 15 and 17 belong
// to the statistics job and are left out here.
TEST_F(Protocol, UnknownAndResponseTypesAreAnsweredWithCode5) {
  for (uint32_t type : {0u, 4u, 5u, 6u, 11u, 12u, 14u, 16u, 18u, 19u, 0xFFFFFFFFu}) {
    const char payload[4] = {1, 2, 3, 4};
    expectGenericAnswer(request(type, payload, sizeof payload), 5, "Unknown request");
  }
  expectStillServing();
}

// A seq-0 message is skipped whole: its payload, which here looks like a Terminate request, must not
// be read as a header.
TEST_F(Protocol, SequenceNumberZeroIsIgnoredWithItsPayload) {
  std::vector<unsigned char> bytes = wireHeader(16 + 16, GetProtocolVersion, 0);
  const std::vector<unsigned char> inner = wireHeader(16, Terminate, 99);
  bytes.insert(bytes.end(), inner.begin(), inner.end());
  ASSERT_EQ(server.sendRaw(bytes.data(), bytes.size(), kAnswerMs), ServerProcess::kOk);
  expectStillServing();
  MsgPtr msg;
  EXPECT_EQ(server.waitForAnswer(GenericResp, 99, msg, 200), ServerProcess::kTimeout);
}

TEST_F(Protocol, WorkingDirectoryCanBeSetReadAndFailsWithItsCodes) {
  char tmpl[] = "/tmp/vstat_wd_XXXXXX";
  ASSERT_NE(mkdtemp(tmpl), nullptr);
  char real[PATH_MAX];
  ASSERT_NE(realpath(tmpl, real), nullptr);
  const std::string dir(real);

  expectGenericAnswer(request(SetWorkDir, dir.c_str(), dir.size() + 1), 0, "changed to new directory");
  const uint32_t seq = request(GetWorkDir);
  MsgPtr wd = answer(SetWorkDir, seq);
  ASSERT_TRUE(wd);
  EXPECT_EQ(wd->type, uint32_t(SetWorkDir));
  ASSERT_EQ(wd->size, 528u);
  std::vector<char> expected(512, 0);
  std::memcpy(expected.data(), dir.data(), dir.size());
  EXPECT_EQ(0, std::memcmp(wd->payload(), expected.data(), 512));

  const std::string missing = dir + "/missing";
  expectGenericAnswer(request(SetWorkDir, missing.c_str(), missing.size() + 1), 11, "chdir failed");

  // A working directory removed under the server can no longer be named.
  ASSERT_EQ(0, rmdir(dir.c_str()));
  expectGenericAnswer(request(GetWorkDir), 12, "Unable to get wdir");
}

TEST_F(Protocol, LogTogglesAnswerOkAndShortTogglesAreRefused) {
  for (uint32_t type : {uint32_t(ToggleDbgLog), uint32_t(ToggleWrnLog), uint32_t(ToggleErrLog)}) {
    for (uint32_t value : {1u, 0u, 0x01000000u}) {
      char payload[4];
      putU32(payload, value);
      expectGenericAnswer(request(type, payload, 4), 0, "OK");
    }
    expectGenericAnswer(request(type, "\0\0", 2), 2, "Invalid request payload");
  }
}

TEST_F(Protocol, TerminateIsAnsweredThenTheServerExitsWithZero) {
  expectGenericAnswer(request(Terminate), 0, "O.K. DLL server is about terminate");
  drainToEnd();
  expectCleanExit(server);
}

// An echo is answered and the server goes on. Kept behaviour: an echo discards as many bytes again as its
// payload had, so an echo with payload swallows what follows it.
TEST_F(Protocol, EchoIsAnsweredAndWithAPayloadDiscardsAsManyBytesAgain) {
  std::vector<unsigned char> bytes = wireHeader(20, Echo, 6);
  bytes.insert(bytes.end(), {1, 2, 3, 4, 'e', 'a', 't', 'n'});
  ASSERT_EQ(server.sendRaw(bytes.data(), bytes.size(), kAnswerMs), ServerProcess::kOk);
  expectGenericAnswer(6, 0, "O.K. - Echo");
  expectStillServing();
}

// Whichever end the parent drops, and whenever: the server ends with status 0, never by a signal.
// With only its read end gone, the parent's next request makes the server's answer fail.
TEST(ServerLifetime, ParentVanishingAtAnyMomentEndsTheServerCleanly) {
  struct Case {
    size_t headerBytes;  // of a request, sent before vanishing
    bool closeRead, requestAfter, closeWrite;
  };
  const Case cases[] = {
      {0, false, false, true}, {9, false, false, true}, {0, true, false, true},
      {12, true, false, true}, {0, true, true, false},
  };
  for (int round = 0; round < 4; ++round) {
    for (const Case& c : cases) {
      SCOPED_TRACE(testing::Message() << "round " << round << " bytes " << c.headerBytes << " read "
                                      << c.closeRead << " write " << c.closeWrite);
      ServerProcess server;
      ASSERT_TRUE(server.start(kServer)) << server.lastError();
      const std::vector<unsigned char> header = wireHeader(16, GetProtocolVersion, 1);
      ASSERT_EQ(server.sendRaw(header.data(), c.headerBytes, kAnswerMs), ServerProcess::kOk);
      if (c.closeRead) server.closeReadEnd();
      if (c.requestAfter) server.sendRequest(GetProtocolVersion, nullptr, 0, kAnswerMs);
      if (c.closeWrite) server.closeWriteEnd();
      expectCleanExit(server);
    }
  }
}

// A parent that takes nothing is given up on after the server's 5 s grace, whether it asks to
// terminate while the server's outgoing pipe is full or closes its end once the server has stopped
// reading (its queue full too). Both servers run at once.
TEST(ServerLifetime, ParentThatTakesNothingIsGivenUpOnAfterTheGrace) {
  const long kGraceMs = 5000, kLeewayMs = 4000;
  struct Case {
    uint32_t requests;  // 4000 answers fill the 64 KiB pipe; 100000 the queue behind it as well
    bool terminate;
  };
  const Case cases[] = {{4000, true}, {100000, false}};
  std::vector<std::unique_ptr<ServerProcess>> servers;
  for (const Case& c : cases) {
    servers.emplace_back(new ServerProcess);
    ServerProcess& server = *servers.back();
    ASSERT_TRUE(server.start(kServer)) << server.lastError();
    std::vector<unsigned char> bytes;
    for (uint32_t seq = 1; seq <= c.requests; ++seq) {
      const std::vector<unsigned char> header = wireHeader(16, GetProtocolVersion, seq);
      bytes.insert(bytes.end(), header.begin(), header.end());
    }
    const ServerProcess::Result sent = server.sendRaw(bytes.data(), bytes.size(), 1000);
    if (c.terminate) {
      ASSERT_EQ(sent, ServerProcess::kOk) << server.lastError();
      ASSERT_NE(server.sendRequest(Terminate, nullptr, 0, kAnswerMs), 0u) << server.lastError();
    } else {
      ASSERT_EQ(sent, ServerProcess::kTimeout) << "the server read every request";
      server.closeWriteEnd();
    }
  }
  for (size_t i = 0; i < servers.size(); ++i) {
    SCOPED_TRACE(i);
    ChildExit how;
    ASSERT_TRUE(servers[i]->waitExit(kGraceMs + kLeewayMs, &how)) << "server did not end";
    EXPECT_TRUE(how.exited && how.code == 0) << "exit code " << how.code << ", signal " << how.signal;
  }
}

// Sizes below the header or beyond 32 bits leave no trustworthy frame boundary: the conversation ends
// with a LogErr record (while error records are on) and a clean exit.
TEST_F(Protocol, ImpossibleSizeEndsTheConversationWithAnErrorRecord) {
  for (uint64_t size : {0ull, 1ull, 15ull, 0x100000010ull}) {
    SCOPED_TRACE(size);
    const std::vector<unsigned char> bytes = wireHeader(size, Echo, 3);
    ASSERT_EQ(server.sendRaw(bytes.data(), bytes.size(), kAnswerMs), ServerProcess::kOk);
    bool logged = false;
    for (const MsgPtr& msg : drainToEnd()) {
      if (msg->type != LogErr) continue;
      logged = true;
      EXPECT_EQ(msg->size, 1044u);
      EXPECT_EQ(msg->seq, 0u);
      EXPECT_NE(std::string(msg->payload() + 4).find("protocol error"), std::string::npos);
    }
    EXPECT_TRUE(logged);
    expectCleanExit(server);
    ASSERT_TRUE(server.start(kServer)) << server.lastError();
  }
}

// A request larger than the server accepts is drained and refused; the stream stays in step.
TEST_F(Protocol, OversizeRequestIsDrainedAndRefused) {
  const uint64_t size = (2u << 20) + 16;
  std::vector<unsigned char> bytes = wireHeader(size, SetWorkDir, 8);
  bytes.resize(size, 'x');
  ASSERT_EQ(server.sendRaw(bytes.data(), bytes.size(), kAnswerMs), ServerProcess::kOk) << server.lastError();
  expectGenericAnswer(8, 2, "Invalid request payload");
  expectStillServing();
}

}  // namespace
