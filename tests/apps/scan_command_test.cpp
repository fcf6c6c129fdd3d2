// vstat scan through the program's parser: argument errors, store and server checks, and the conversation
// with a server that misbehaves in scripted ways. The scripted server is this test program itself:
// started by the scan with VSTAT_TEST_FAKE_SERVER in its environment, it plays the scripted part on
// the two pipe descriptors of its command line before main() and ends. It never writes the report
// file, so these tests do not disturb a real scan running beside them; the whole scan with the real
// server is covered by the end-to-end tests.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "stat/vstat_messages.h"
#include "vcom/message_types.h"
#include "vcom/msg.h"
#include "vcom/unix_msg_pipe.h"
#include "vstat_test_support.h"

namespace vorlane {
namespace cli {
namespace {

const char kFakeServerVariable[] = "VSTAT_TEST_FAKE_SERVER";

// ---- The scripted server (runs in the child) ----

// Speaks the protocol through the server side of the pipe transport; reads block, and end when the scan
// closes the pipe or kills the child.
class FakeServer {
 public:
  explicit FakeServer(const std::string& cmdLine) : pipe_(cmdLine.c_str()) {}

  void send(uint32_t type, uint32_t seq, const void* payload, size_t len) {
    vcom::MsgPtr msg(vcom::Msg::create(vcom::Msg::kHeaderSize + len, type, seq));
    std::memcpy(msg->payload(), payload, len);
    vcom::IOError err;
    pipe_.sendMsg(msg.get(), err);
  }

  void sendU32(uint32_t type, uint32_t seq, uint32_t value) {
    char payload[4];
    vcom::putU32(payload, value);
    send(type, seq, payload, sizeof payload);
  }

  // A GenericResp carries its code (here 5) after the text, an error record its code before it.
  void sendText(uint32_t type, uint32_t seq, const char* text) {
    const bool generic = type == vcom::GenericResp;
    const size_t width = generic ? vcom::kGenericTextLen : vcom::kLogTextLen;
    const size_t at = type == vcom::LogErr ? 4 : 0;
    std::vector<char> payload(width + (generic || at ? 4 : 0), '\0');
    std::strncpy(payload.data() + at, text, width - 1);
    if (generic) vcom::putU32(payload.data() + width, 5);
    send(type, seq, payload.data(), payload.size());
  }

  void sendEvent(const char* dom, const char* mbox, uint32_t processed, uint32_t mailboxes, uint32_t run) {
    vstat::EventBuffT ev = {};
    std::strncpy(ev.dom, dom, sizeof ev.dom - 1);
    std::strncpy(ev.mbox, mbox, sizeof ev.mbox - 1);
    ev.processed = processed;
    ev.mailboxes = mailboxes;
    ev.run = run;
    char payload[vstat::kEventWireSize];
    vstat::encodeEvent(ev, payload);
    send(vstat::ProgressAsync, 0, payload, sizeof payload);
  }

  // A header announcing 8 bytes, less than itself.
  void sendSizeEight() {
    const char header[vcom::Msg::kHeaderSize] = {0, 0, 0, 0, 0, 0, 0, 8};
    pipe_.send(header, sizeof header);
  }

  // The type of the next message (its payload skipped), or 0 at the end of input.
  uint32_t receive(uint32_t& seq) {
    vcom::Msg header;
    vcom::IOError err;
    if (pipe_.recvMsgHdr(&header, err) != 0 || header.size < vcom::Msg::kHeaderSize) return 0;
    pipe_.dropMsg(&header);
    seq = header.seq;
    return header.type;
  }

 private:
  vcom::UnixMsgPipe pipe_;
};

// Plays one script; returns the child's exit status. None of them writes the report.
int playScript(const std::string& script, FakeServer& server) {
  uint32_t seq = 0;
  if (server.receive(seq) != vstat::ProcessStore) return 90;
  if (script == "unknown") server.sendText(vcom::GenericResp, seq, "Unknown request");
  if (script == "refuse") server.sendU32(vstat::ProcessStoreResp, seq, 0);
  if (script == "garbage") server.sendSizeEight();
  if (script == "unknown" || script == "refuse" || script == "garbage") return server.receive(seq) == 0 ? 0 : 91;

  // An event may come before the answer: the job thread starts before the answer is queued.
  server.sendEvent("a.com", "", 0, 3, 1);
  server.sendU32(vstat::ProcessStoreResp, seq, 1);
  server.sendU32(vcom::HeartBeat, 0, 0);
  server.sendEvent("a.com", "john", 1, 3, 1);
  if (script == "die") return 7;
  if (script == "noreport") {
    server.sendText(vcom::LogWrn, 0, "folder INBOX unreadable");
    server.sendText(vcom::LogDbg, 0, "debug chatter");
    server.sendText(vcom::LogErr, 0, "no report written: /tmp/x is a directory");
    server.sendEvent("b.org", "mary", 3, 3, 1);
    server.sendEvent("", "", 3, 3, 0);
    return 0;
  }
  // "stop" and "abort": interrupt the scan and go on only when the stop request comes.
  kill(getppid(), SIGINT);
  if (server.receive(seq) != vstat::StopProcessing) return 92;
  if (script == "abort") {
    kill(getppid(), SIGINT);
    pause();  // the scan kills us
  }
  server.sendEvent("", "", 1, 3, 0);
  return 0;
}

// Runs before main() in every process of this program; only a child started by a scan with the
// variable set plays the server, on the descriptors of its command line.
struct FakeServerHook {
  FakeServerHook() {
    const char* script = std::getenv(kFakeServerVariable);
    if (!script) return;
    std::ifstream in("/proc/self/cmdline", std::ios::binary);
    std::string arg;
    std::string cmdLine;
    for (int i = 0; std::getline(in, arg, '\0'); ++i) {
      if (i > 0) cmdLine += arg + " ";
    }
    FakeServer server(cmdLine);
    _exit(playScript(script, server));
  }
};
const FakeServerHook fakeServerHook;

// ---- The tests (run in the parent) ----

// `vstat scan ARGS...`; the scan writes to the process's standard output and error.
VstatRun scan(std::vector<std::string> args) {
  args.insert(args.begin(), "scan");
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  VstatRun r = runVstatWith(args);
  r.out += ::testing::internal::GetCapturedStdout();
  r.err += ::testing::internal::GetCapturedStderr();
  return r;
}

// A temporary directory holding a store with an empty mail/ directory.
class ScanCommandTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_FALSE(temp_.mkdirs("store/mail").empty()); }

  std::string writeFile(const std::string& name, const char* text, mode_t mode) {
    const std::string path = temp_.write(name, text);
    EXPECT_EQ(chmod(path.c_str(), mode), 0);
    return path;
  }

  VstatRun scanWithScript(const char* script) {
    setenv(kFakeServerVariable, script, 1);
    const VstatRun r = scan({store_, "--server", "/proc/self/exe"});  // this program, as the scripted server
    unsetenv(kFakeServerVariable);
    return r;
  }

  testing::TempDir temp_;
  const std::string dir_ = temp_.path();
  const std::string store_ = temp_.file("store");
};

// Number syntax and the other options' errors are in command_line_test.cpp; here the scan's own bounds.
TEST_F(ScanCommandTest, UsageErrorsExitWithTwo) {
  const std::vector<std::vector<std::string>> cases = {
      {}, {"--server"}, {store_, "--bogus"}, {store_, store_}, {store_, "--os-code", "4294967296"},
      {store_, "--threads", "0"}, {store_, "--threads", "65"}, {store_, "--product-version", std::string(28, 'v')},
      {store_, "--os-name", std::string(128, 'o')}, {store_, "--report="}, {store_, "--format", "xml"},
      {store_, "--report", dir_ + "/nowhere/copy.xml"}, {store_, "-o", dir_ + "/nowhere/metrics.prom"},
  };
  for (const std::vector<std::string>& args : cases) {
    const VstatRun r = scan(args);
    EXPECT_EQ(r.status, 2) << args.size() << " arguments: " << r.err;
    EXPECT_NE(r.err.find("vstat scan: "), std::string::npos) << r.err;
  }
  // The largest values that fit get as far as the server check.
  const VstatRun r = scan({"--build=4294967295", "--product-version", std::string(27, 'v'), "--os-name",
                           std::string(127, 'o'), "--threads=64", "--gentle", store_, "--server", dir_ + "/none"});
  EXPECT_EQ(r.status, 4) << r.err;
}

// The store is checked before the server is looked for: a bad store with a missing server gives 3.
TEST_F(ScanCommandTest, MissingStoreExitsWithThreeAndMissingServerWithFour) {
  const std::string plain = writeFile("plain", "#!/bin/sh\n", 0600);
  writeFile("filemail/mail", "x", 0600);
  ASSERT_FALSE(temp_.mkdirs("empty").empty());
  struct Case { std::string store, server, named; int status; const char* reason; };
  for (const Case& c : {Case{dir_ + "/nowhere", "none", dir_ + "/nowhere/mail", 3, "No such file or directory"},
                        Case{plain, "none", plain + "/mail", 3, "Not a directory"},
                        Case{dir_ + "/empty", "none", dir_ + "/empty/mail", 3, "No such file or directory"},
                        Case{dir_ + "/filemail", "none", dir_ + "/filemail/mail", 3, "is not a directory"},
                        Case{store_, dir_ + "/none", dir_ + "/none", 4, "not found: No such file or directory"},
                        Case{store_, plain, plain, 4, "is not executable"},
                        Case{store_, dir_, dir_, 4, "is not a regular file"}}) {
    const VstatRun r = scan({c.store, "--server", c.server});
    EXPECT_EQ(r.status, c.status) << c.store << " " << c.server;
    EXPECT_NE(r.err.find("'" + c.named + "'"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(c.reason), std::string::npos) << r.err;
  }
}

// A server that dies or breaks the protocol ends the scan with 5 and says how; one that refuses the job
// with 1 and says why.
TEST_F(ScanCommandTest, ServerFailuresAreTold) {
  struct Case { const char* script; int status; const char* reason; };
  for (const Case& c : {Case{"die", 5, "ended with exit status 7 before the job was done"},
                        Case{"garbage", 5, "protocol error"},
                        Case{"unknown", 1, "does not run store scans (\"Unknown request\", code 5)"},
                        Case{"refuse", 1, "did not start the job"}}) {
    const VstatRun r = scanWithScript(c.script);
    EXPECT_EQ(r.status, c.status) << c.script;
    EXPECT_NE(r.err.find(c.reason), std::string::npos) << c.script << ": " << r.err;
  }
  const VstatRun r = scan({store_, "--server", writeFile("crash", "#!/bin/sh\nkill -SEGV $$\n", 0700)});
  EXPECT_EQ(r.status, 5);
  EXPECT_NE(r.err.find("signal 11"), std::string::npos) << r.err;
}

// Output is not a terminal here, so progress comes as plain lines; warnings appear among them, debug
// records only with --verbose.
TEST_F(ScanCommandTest, ProgressAndWarningsAreShownUntilTheFinalEvent) {
  const VstatRun r = scanWithScript("noreport");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out.find('\r'), std::string::npos);
  const size_t john = r.out.find("[1/3  33%]");
  const size_t warning = r.out.find("server warning: folder INBOX unreadable");
  const size_t mary = r.out.find("b.org/mary");
  EXPECT_NE(john, std::string::npos) << r.out;
  EXPECT_LT(john, warning) << r.out;
  EXPECT_LT(warning, mary) << r.out;
  EXPECT_EQ(r.out.find("debug chatter"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Scanned 3 of 3 mailboxes"), std::string::npos) << r.out;
  EXPECT_NE(r.err.find("without writing a report: no report written: /tmp/x is a directory"), std::string::npos)
      << r.err;
}

// The scripted server interrupts the scan itself (SIGINT to its parent) and only ends the job when a
// StopProcessing request arrives; a second interrupt makes the scan kill it.
TEST_F(ScanCommandTest, CtrlCStopsTheJobAndASecondOneAborts) {
  VstatRun r = scanWithScript("stop");
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_NE(r.out.find("Stopping"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Stopped after 1 of 3 mailboxes"), std::string::npos) << r.out;

  r = scanWithScript("abort");
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_NE(r.err.find("aborted"), std::string::npos) << r.err;

  // The handler is gone again once the scan has ended.
  struct sigaction current;
  ASSERT_EQ(sigaction(SIGINT, nullptr, &current), 0);
  EXPECT_EQ(current.sa_handler, SIG_DFL);
}

}  // namespace
}  // namespace cli
}  // namespace vorlane
