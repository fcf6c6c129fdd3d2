// The end-to-end tests' side of one statistics job through the real vstatserver, started as the mail
// server starts it. The report lock is taken first as `vstat scan` does, unless the server is to take it
// itself. The child's standard error and its debug lines (VSTAT_DEBUG) go to files in a scratch
// directory: a sanitizer report from the child fails the test even when the child exits with status 0.
// One test thread drives one job.
#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../support/temp_dir.h"
#include "stat/stat_job_client.h"
#include "vcom/message_types.h"

namespace vorlane {
namespace testing {

const char* const kServer = VSTAT_BIN_DIR "/vstatserver";
// Answers come at once; the bound only matters on a machine loaded by sanitizer builds.
const long kAnswerMs = 20000;
// A whole job on the test stores takes a few seconds under the sanitizers; this only bounds a hang.
const long kJobMs = 60000;

class ServerJob {
 public:
  explicit ServerJob(const std::string& scratchDir)
      : ServerJob(scratchDir + "/debug.log", scratchDir + "/stderr.log") {}
  ServerJob(const std::string& debugPath, const std::string& stderrPath)
      : debugPath_(debugPath), stderrPath_(stderrPath) {}

  // Starts the server program alone, with its debug file and standard error redirected.
  bool startServer() {
    setenv("VSTAT_DEBUG", debugPath_.c_str(), 1);
    const int savedStderr = dup(2);
    const int childStderr = open(stderrPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const bool redirected = savedStderr >= 0 && childStderr >= 0 && dup2(childStderr, 2) >= 0;
    const bool started = redirected && client_.start(kServer);
    if (savedStderr >= 0) {
      dup2(savedStderr, 2);
      close(savedStderr);
    }
    if (childStderr >= 0) close(childStderr);
    unsetenv("VSTAT_DEBUG");
    if (!started) ADD_FAILURE() << "cannot start " << kServer << ": " << (redirected ? client_.lastError() : strerror(errno));
    return started;
  }

  // Takes the report lock unless `lock` is false (the server then takes it itself), starts the server
  // and sends ProcessStore for storeDir (product 9.1, build 4711, Linux, OS code 3); true once the
  // request is written.
  bool start(const std::string& storeDir, bool lock = true) {
    static const std::atomic<bool> never{false};
    std::string error;
    if (lock && client_.lockReport(never, error) != ReportLock::Acquired) {
      ADD_FAILURE() << error;
      return false;
    }
    if (!startServer()) return false;
    vstat::ProcessStoreReqBuffT request{};
    storeDir.copy(request.storeDir, sizeof request.storeDir - 1);
    std::strcpy(request.productVersion, "9.1");
    request.build = 4711;
    std::strcpy(request.osName, "Linux");
    request.osCode = 3;
    if (client_.startJob(request, kAnswerMs)) return true;
    ADD_FAILURE() << "cannot send the request: " << client_.lastError();
    return false;
  }

  // start() and the server's answer that the job runs.
  bool startRunning(const std::string& storeDir) {
    if (!start(storeDir)) return false;
    if (client_.awaitStarted(kAnswerMs)) return true;
    ADD_FAILURE() << "the job did not start: " << client_.lastError();
    return false;
  }

  // The next progress event; false at the end of the server's output or after timeoutMs.
  bool nextEvent(vstat::EventBuffT& event, long timeoutMs = kJobMs) {
    vstat::JobMessage msg;
    while (client_.next(msg, timeoutMs) == vcom::ServerProcess::kOk) {
      if (msg.kind == vstat::JobMessage::Progress) {
        event = msg.event;
        return true;
      }
      if (msg.kind == vstat::JobMessage::Log && msg.logType == vcom::LogErr) lastErrorRecord_ = msg.text;
    }
    return false;
  }

  // Reads events up to the final one (run 0); false when the output ended or time ran out before it.
  bool finalEvent(vstat::EventBuffT& event) {
    while (nextEvent(event)) {
      if (event.run == 0) return true;
    }
    ADD_FAILURE() << "no final progress event";
    return false;
  }

  // Every progress event up to the end of the server's output.
  std::vector<vstat::EventBuffT> events() {
    std::vector<vstat::EventBuffT> all;
    for (vstat::EventBuffT event; nextEvent(event);) all.push_back(event);
    return all;
  }

  // Waits for the first event inside a mailbox, when the walk is under way.
  bool walkUnderWay() {
    vstat::EventBuffT event;
    while (nextEvent(event)) {
      if (event.run == 1 && event.mbox[0] != '\0') return true;
    }
    return false;
  }

  // The child's end: it must exit by itself, with status 0 and nothing on its standard error.
  void expectCleanExit(long timeoutMs = kAnswerMs) {
    vcom::ChildExit how;
    ASSERT_TRUE(client_.process().waitExit(timeoutMs, &how)) << "the server did not end within " << timeoutMs << " ms";
    EXPECT_TRUE(how.exited && how.code == 0) << "exit code " << how.code << ", signal " << how.signal;
    EXPECT_EQ(readFile(stderrPath_), "") << "the server wrote to standard error";
  }

  std::string debugLines() const { return readFile(debugPath_); }
  // The text of the last error log record the server sent.
  const std::string& lastErrorRecord() const { return lastErrorRecord_; }
  vstat::StatJobClient& client() { return client_; }

 private:
  std::string debugPath_;
  std::string stderrPath_;
  std::string lastErrorRecord_;
  vstat::StatJobClient client_;
};

}  // namespace testing
}  // namespace vorlane
