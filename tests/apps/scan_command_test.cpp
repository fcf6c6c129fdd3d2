// vstat scan through runScanCommand: argument errors, store and server checks, and the conversation
// with a server that misbehaves in scripted ways. The scripted server is this test program itself:
// started by the scan with VSTAT_TEST_FAKE_SERVER in its environment, it plays the scripted part on
// the two pipe descriptors of its command line before main() and ends. It never writes the report
// file, so these tests do not disturb a real scan running beside them; the whole scan with the real
// server is covered by the end-to-end tests.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "commands.h"
#include "stat/vstat_messages.h"
#include "vcom/message_types.h"
#include "vcom/msg.h"

namespace vorlane {
namespace cli {
namespace {

const char kFakeServerVariable[] = "VSTAT_TEST_FAKE_SERVER";

// ---- The scripted server (runs in the child) ----

class FakeServer {
 public:
  FakeServer(int in, int out) : in_(in), out_(out) {}

  bool send(uint32_t type, uint32_t seq, const char* payload, size_t len) {
    vcom::Msg header;
    header.size = vcom::Msg::kHeaderSize + len;
    header.type = type;
    header.seq = seq;
    unsigned char wire[vcom::Msg::kHeaderSize];
    vcom::encodeHeader(header, wire);
    return writeAll(reinterpret_cast<const char*>(wire), sizeof wire) && writeAll(payload, len);
  }

  bool sendU32(uint32_t type, uint32_t seq, uint32_t value) {
    char payload[4];
    vcom::putU32(payload, value);
    return send(type, seq, payload, sizeof payload);
  }

  bool sendEvent(const char* dom, const char* mbox, uint32_t processed, uint32_t mailboxes, uint32_t run,
                 uint32_t done) {
    vstat::EventBuffT ev = {};
    std::strncpy(ev.dom, dom, sizeof ev.dom - 1);
    std::strncpy(ev.mbox, mbox, sizeof ev.mbox - 1);
    ev.processed = processed;
    ev.mailboxes = mailboxes;
    ev.run = run;
    ev.done = done;
    char payload[vstat::kEventWireSize];
    vstat::encodeEvent(ev, payload);
    return send(vstat::ProgressAsync, 0, payload, sizeof payload);
  }

  bool sendGeneric(uint32_t seq, const char* text, int32_t code) {
    char payload[vcom::kGenericRespSize - vcom::Msg::kHeaderSize] = {};
    std::strncpy(payload, text, vcom::kGenericTextLen - 1);
    vcom::putU32(payload + vcom::kGenericTextLen, static_cast<uint32_t>(code));
    return send(vcom::GenericResp, seq, payload, sizeof payload);
  }

  bool sendLog(uint32_t type, const char* text) {
    char payload[vcom::kLogTextLen] = {};
    std::strncpy(payload, text, sizeof payload - 1);
    return send(type, 0, payload, sizeof payload);
  }

  // The next message's type and sequence number; false at the end of input or after timeoutMs.
  bool receive(uint32_t& type, uint32_t& seq, int timeoutMs) {
    unsigned char wire[vcom::Msg::kHeaderSize];
    if (!readAll(reinterpret_cast<char*>(wire), sizeof wire, timeoutMs)) return false;
    vcom::Msg header;
    vcom::decodeHeader(wire, header);
    if (header.size < vcom::Msg::kHeaderSize || header.size > 65536) return false;
    std::vector<char> payload(header.size - vcom::Msg::kHeaderSize);
    if (!readAll(payload.data(), payload.size(), timeoutMs)) return false;
    type = header.type;
    seq = header.seq;
    return true;
  }

  bool writeAll(const char* p, size_t len) {
    while (len > 0) {
      const ssize_t n = write(out_, p, len);
      if (n <= 0) return false;
      p += n;
      len -= static_cast<size_t>(n);
    }
    return true;
  }

 private:
  bool readAll(char* p, size_t len, int timeoutMs) {
    while (len > 0) {
      struct pollfd pfd = {in_, POLLIN, 0};
      if (poll(&pfd, 1, timeoutMs) <= 0) return false;
      const ssize_t n = read(in_, p, len);
      if (n <= 0) return false;
      p += n;
      len -= static_cast<size_t>(n);
    }
    return true;
  }

  int in_;
  int out_;
};

// Plays one script; returns the child's exit status.
int playScript(const std::string& script, FakeServer& server) {
  uint32_t type = 0;
  uint32_t seq = 0;
  if (!server.receive(type, seq, 5000) || type != vstat::ProcessStore) return 90;
  if (script == "unknown") {
    server.sendGeneric(seq, "Unknown request", vcom::kRespUnknownRequest);
    server.receive(type, seq, 5000);  // until the scan closes the pipe
    return 0;
  }
  if (script == "refuse") {
    server.sendU32(vstat::ProcessStoreResp, seq, 0);
    server.receive(type, seq, 5000);
    return 0;
  }
  if (script == "garbage") {
    const char shortHeader[16] = {0, 0, 0, 0, 0, 0, 0, 8};
    server.writeAll(shortHeader, sizeof shortHeader);
    server.receive(type, seq, 5000);
    return 0;
  }
  // An event may come before the answer: the job thread starts before the answer is queued.
  server.sendEvent("a.com", "", 0, 3, 1, 0);
  server.sendU32(vstat::ProcessStoreResp, seq, 1);
  server.sendU32(vcom::HeartBeat, 0, 0);
  server.sendEvent("a.com", "john", 1, 3, 1, 0);
  if (script == "die") return 7;
  if (script == "noreport") {
    server.sendLog(vcom::LogWrn, "folder INBOX unreadable");
    server.sendLog(vcom::LogDbg, "debug chatter");
    server.sendEvent("b.org", "mary", 3, 3, 1, 0);
    server.sendEvent("", "", 3, 3, 0, 0);
    return 0;
  }
  if (script == "stop" || script == "abort") {
    kill(getppid(), SIGINT);
    if (!server.receive(type, seq, 5000) || type != vstat::StopProcessing) return 91;
    if (script == "abort") {
      kill(getppid(), SIGINT);
      pause();  // the scan kills us
      return 92;
    }
    server.sendEvent("", "", 1, 3, 0, 0);
    return 0;
  }
  return 93;
}

// Runs before main() in every process of this program; only a child started by a scan with the
// variable set plays the server.
struct FakeServerHook {
  FakeServerHook() {
    const char* script = std::getenv(kFakeServerVariable);
    if (!script) return;
    std::ifstream cmdline("/proc/self/cmdline", std::ios::binary);
    std::vector<std::string> args;
    std::string arg;
    while (std::getline(cmdline, arg, '\0')) args.push_back(arg);
    if (args.size() < 3) _exit(89);
    FakeServer server(std::atoi(args[1].c_str()), std::atoi(args[2].c_str()));
    _exit(playScript(script, server));
  }
};
const FakeServerHook fakeServerHook;

// ---- The tests (run in the parent) ----

struct ScanResult {
  int status;
  std::string out;
  std::string err;
};

ScanResult scan(std::vector<std::string> args) {
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  ScanResult r;
  r.status = runScanCommand(static_cast<int>(args.size()), argv.data());
  r.out = testing::internal::GetCapturedStdout();
  r.err = testing::internal::GetCapturedStderr();
  return r;
}

std::string selfPath() {
  char path[4096];
  const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  return n > 0 ? std::string(path, static_cast<size_t>(n)) : std::string();
}

class ScanCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char dir[] = "/tmp/vstat_scan_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
    store_ = dir_ + "/store";
    ASSERT_EQ(mkdir(store_.c_str(), 0700), 0);
    ASSERT_EQ(mkdir((store_ + "/mail").c_str(), 0700), 0);
  }
  void TearDown() override {
    unsetenv(kFakeServerVariable);
    for (const char* f : {"/store/mail", "/store", "/plain", "/script"}) {
      const std::string path = dir_ + f;
      if (rmdir(path.c_str()) != 0) std::remove(path.c_str());
    }
    rmdir(dir_.c_str());
  }

  ScanResult scanWithScript(const char* script) {
    setenv(kFakeServerVariable, script, 1);
    const ScanResult r = scan({store_, "--server", selfPath()});
    unsetenv(kFakeServerVariable);
    return r;
  }

  std::string dir_;
  std::string store_;
};

TEST_F(ScanCommandTest, UsageErrorsExitWithTwo) {
  const std::vector<std::vector<std::string>> cases = {
      {},
      {"--server"},
      {store_, "--bogus"},
      {store_, "-x"},
      {store_, store_},
      {store_, "--build", "12x"},
      {store_, "--build=-1"},
      {store_, "--os-code", "4294967296"},
      {store_, "--product-version", std::string(28, 'v')},
      {store_, "--os-name", std::string(128, 'o')},
      {store_, "--report="},
  };
  for (const std::vector<std::string>& args : cases) {
    const ScanResult r = scan(args);
    std::string joined;
    for (const std::string& a : args) joined += a.substr(0, 20) + " ";
    EXPECT_EQ(r.status, 2) << joined << r.err;
    EXPECT_NE(r.err.find("vstat scan: "), std::string::npos) << joined;
  }
}

TEST_F(ScanCommandTest, BoundaryValuesOfTheFieldsAreAccepted) {
  // Accepted options get as far as the server check, which fails on purpose here.
  const ScanResult r = scan({"--build=4294967295", "--os-code", "0", "--product-version", std::string(27, 'v'),
                             "--os-name", std::string(127, 'o'), store_, "--server", dir_ + "/none"});
  EXPECT_EQ(r.status, 4) << r.err;
}

TEST_F(ScanCommandTest, MissingStoreExitsWithThreeBeforeLookingForTheServer) {
  std::ofstream(dir_ + "/plain") << "x";
  ASSERT_EQ(mkdir((dir_ + "/script").c_str(), 0700), 0);  // a directory without mail/
  struct Case { std::string store; const char* reason; };
  for (const Case& c : {Case{dir_ + "/nowhere", "No such file or directory"}, Case{dir_ + "/plain", "Not a directory"},
                        Case{dir_ + "/script", "No such file or directory"}}) {
    const ScanResult r = scan({c.store, "--server", dir_ + "/none"});
    EXPECT_EQ(r.status, 3) << c.store;
    EXPECT_NE(r.err.find(c.store + "/mail"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(c.reason), std::string::npos) << r.err;
  }
}

TEST_F(ScanCommandTest, MailThatIsAFileIsNoStore) {
  ASSERT_EQ(rmdir((store_ + "/mail").c_str()), 0);
  std::ofstream(store_ + "/mail") << "x";
  const ScanResult r = scan({store_, "--server", dir_ + "/none"});
  EXPECT_EQ(r.status, 3);
  EXPECT_NE(r.err.find("is not a directory"), std::string::npos) << r.err;
  std::remove((store_ + "/mail").c_str());
  mkdir((store_ + "/mail").c_str(), 0700);
}

TEST_F(ScanCommandTest, MissingOrUnusableServerExitsWithFour) {
  std::ofstream(dir_ + "/plain") << "#!/bin/sh\n";
  chmod((dir_ + "/plain").c_str(), 0600);
  struct Case { std::string server; const char* reason; };
  for (const Case& c : {Case{dir_ + "/none", "not found: No such file or directory"},
                        Case{dir_ + "/plain", "is not executable"}, Case{dir_, "is not a regular file"}}) {
    const ScanResult r = scan({store_, "--server", c.server});
    EXPECT_EQ(r.status, 4) << c.server;
    EXPECT_NE(r.err.find("'" + c.server + "'"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(c.reason), std::string::npos) << r.err;
  }
}

TEST_F(ScanCommandTest, ServerThatDiesExitsWithFiveAndSaysHow) {
  std::ofstream(dir_ + "/script") << "#!/bin/sh\nkill -SEGV $$\n";
  chmod((dir_ + "/script").c_str(), 0700);
  ScanResult r = scan({store_, "--server", dir_ + "/script"});
  EXPECT_EQ(r.status, 5);
  EXPECT_NE(r.err.find("signal 11"), std::string::npos) << r.err;

  r = scanWithScript("die");
  EXPECT_EQ(r.status, 5);
  EXPECT_NE(r.err.find("exit status 7"), std::string::npos) << r.err;
  EXPECT_NE(r.out.find("a.com/john"), std::string::npos) << r.out;

  r = scanWithScript("garbage");
  EXPECT_EQ(r.status, 5);
  EXPECT_NE(r.err.find("protocol error"), std::string::npos) << r.err;
}

TEST_F(ScanCommandTest, RefusedJobsExitWithOne) {
  struct Case { const char* script; const char* reason; };
  for (const Case& c : {Case{"unknown", "does not run store scans (\"Unknown request\", code 5)"},
                        Case{"refuse", "did not start the job"}}) {
    const ScanResult r = scanWithScript(c.script);
    EXPECT_EQ(r.status, 1) << c.script;
    EXPECT_NE(r.err.find(c.reason), std::string::npos) << r.err;
  }
}

// Output is not a terminal here, so progress comes as plain lines; warnings appear among them, debug
// records only with --verbose.
TEST_F(ScanCommandTest, ProgressAndWarningsAreShownUntilTheFinalEvent) {
  const ScanResult r = scanWithScript("noreport");
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
  EXPECT_NE(r.err.find("without writing a report"), std::string::npos) << r.err;
}

// The scripted server interrupts the scan itself (SIGINT to its parent) and only ends the job when a
// StopProcessing request arrives; a second interrupt makes the scan kill it.
TEST_F(ScanCommandTest, CtrlCStopsTheJobAndASecondOneAborts) {
  ScanResult r = scanWithScript("stop");
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
