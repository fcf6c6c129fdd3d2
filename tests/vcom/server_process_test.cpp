// The parent's side against small stand-in servers: shell scripts that get the two descriptor numbers
// as $1 (their input) and $2 (their output), exactly as the real server does. Each script ends by
// reading its input to the end, so closing the parent's write end ends it.
#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../support/temp_dir.h"
#include "vcom/message_types.h"
#include "vcom/server_process.h"

using namespace vorlane::vcom;

namespace {

const char* const kDrainInput = "exec cat <&$1 >/dev/null\n";

// printf(1) escapes for one frame: header and payload bytes.
std::string frame(uint64_t size, uint32_t type, uint32_t seq, size_t payloadBytes) {
  Msg hdr;
  hdr.size = size;
  hdr.type = type;
  hdr.seq = seq;
  unsigned char wire[16];
  encodeHeader(hdr, wire);
  std::string out;
  char esc[8];
  for (unsigned char b : wire) {
    snprintf(esc, sizeof esc, "\\%03o", b);
    out += esc;
  }
  for (size_t i = 0; i < payloadBytes; ++i) out += "\\000";
  return out;
}

class FakeServer : public ::testing::Test {
 protected:
  std::string script(const std::string& body, mode_t mode = 0700) {
    const std::string path = dir_.write("server" + std::to_string(++scripts_), "#!/bin/sh\n" + body);
    EXPECT_EQ(0, chmod(path.c_str(), mode));
    return path;
  }

  vorlane::testing::TempDir dir_;
  int scripts_ = 0;
};

TEST_F(FakeServer, StartFailuresNameTheProgramAndTheReason) {
  struct Case { std::string path; const char* reason; };
  for (const Case& c : {Case{"/nonexistent/vstatserver", "No such file or directory"},
                        Case{script(kDrainInput, 0600), "Permission denied"}}) {
    ServerProcess child;
    EXPECT_FALSE(child.start(c.path));
    EXPECT_NE(child.lastError().find(c.path), std::string::npos) << child.lastError();
    EXPECT_NE(child.lastError().find(c.reason), std::string::npos) << child.lastError();
    EXPECT_FALSE(child.kill(SIGKILL));
  }
}

TEST_F(FakeServer, ExitStatusAndEndOfOutputAreReported) {
  ServerProcess child;
  ASSERT_TRUE(child.start(script("exit 3\n"))) << child.lastError();
  ChildExit how;
  ASSERT_TRUE(child.waitExit(5000, &how));
  EXPECT_TRUE(how.exited);
  EXPECT_EQ(how.code, 3);
  MsgPtr msg;
  EXPECT_EQ(child.receive(msg, 1000), ServerProcess::kClosed);
  // The child's input is gone too: sending fails without killing the parent by SIGPIPE.
  EXPECT_EQ(child.sendRequest(Echo, nullptr, 0, 1000), 0u);
}

TEST_F(FakeServer, SilentChildTimesOutAndCanBeKilled) {
  ServerProcess child;
  ASSERT_TRUE(child.start(script(kDrainInput))) << child.lastError();
  MsgPtr msg;
  EXPECT_EQ(child.receive(msg, 30), ServerProcess::kTimeout);
  ChildExit how;
  EXPECT_FALSE(child.waitExit(20, &how));
  ASSERT_TRUE(child.kill(SIGTERM));
  ASSERT_TRUE(child.waitExit(5000, &how));
  EXPECT_TRUE(how.signaled);
  EXPECT_EQ(how.signal, SIGTERM);
}

TEST_F(FakeServer, SendingToAChildThatDoesNotReadTimesOut) {
  ServerProcess child;
  ASSERT_TRUE(child.start(script("exec sleep 30\n"))) << child.lastError();
  const std::vector<char> big(1 << 20, 'x');
  EXPECT_EQ(child.sendRaw(big.data(), big.size(), 50), ServerProcess::kTimeout);
  child.kill(SIGKILL);
}

// A frame too small or too large is an error that stays, never a read past it; a child that ends in the
// middle of a frame has closed its stream.
TEST_F(FakeServer, MalformedOrUnfinishedFramesEndTheConversation) {
  struct Case { std::string output; const char* then; ServerProcess::Result result; const char* error; };
  for (const Case& c : {Case{frame(8, 0, 1, 0), kDrainInput, ServerProcess::kError, "malformed"},
                        Case{frame(1ull << 40, 0, 1, 0), kDrainInput, ServerProcess::kError, "malformed"},
                        Case{frame(100, 0, 1, 10), "", ServerProcess::kClosed, "middle"}}) {
    ServerProcess child;
    ASSERT_TRUE(child.start(script("printf '" + c.output + "' >&$2\n" + c.then)));
    MsgPtr msg;
    EXPECT_EQ(child.receive(msg, 5000), c.result) << c.error;
    EXPECT_NE(child.lastError().find(c.error), std::string::npos) << child.lastError();
    EXPECT_EQ(child.receive(msg, 0), c.result) << c.error;
  }
}

// While waiting for an answer, heartbeats and log records are dropped, other messages kept in order,
// and a GenericResp for the same sequence number counts as the answer.
TEST_F(FakeServer, WaitForAnswerKeepsOtherMessagesForReceive) {
  const std::string out = frame(16, 14, 0, 0) + frame(20, HeartBeat, 0, 4) + frame(1040, LogDbg, 0, 1024) +
                          frame(20, 16, 2, 4) + frame(16, 18, 0, 0) + frame(276, GenericResp, 1, 260);
  ServerProcess child;
  ASSERT_TRUE(child.start(script("printf '" + out + "' >&$2\n" + kDrainInput))) << child.lastError();
  MsgPtr msg;
  ASSERT_EQ(child.waitForAnswer(11, 1, msg, 5000), ServerProcess::kOk) << child.lastError();
  EXPECT_EQ(msg->type, uint32_t(GenericResp));
  EXPECT_EQ(msg->size, 276u);

  ASSERT_EQ(child.waitForAnswer(16, 2, msg, 5000), ServerProcess::kOk);
  EXPECT_EQ(msg->seq, 2u);
  for (uint32_t type : {14u, 18u}) {
    ASSERT_EQ(child.receive(msg, 1000), ServerProcess::kOk);
    EXPECT_EQ(msg->type, type);
  }
  EXPECT_EQ(child.receive(msg, 20), ServerProcess::kTimeout);
}

TEST_F(FakeServer, DestroyingTheClientEndsAndReapsTheChild) {
  pid_t pid;
  {
    ServerProcess child;
    ASSERT_TRUE(child.start(script(kDrainInput)));
    pid = child.pid();
  }
  errno = 0;
  EXPECT_EQ(-1, waitpid(pid, nullptr, WNOHANG));
  EXPECT_EQ(errno, ECHILD);
}

}  // namespace
