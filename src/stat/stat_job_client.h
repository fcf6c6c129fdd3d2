// The parent's side of one statistics job, as the mail server drives it: start the server program as a
// child over a pipe, start the job (ProcessStore), read what the server sends as decoded messages
// (progress events, the answer, refusals, log records), ask for a stop, and finish: end the
// conversation, wait for the child and learn how it ended. Used by `vstat scan`, the scan benchmark and
// the end-to-end tests, so the conversation is written once.
//
// Nothing blocks without the time-out given; a server that does not end within finish's time is killed.
// Not thread-safe: one thread drives one client.
#pragma once

#include <cstdint>
#include <string>

#include "stat/vstat_messages.h"
#include "vcom/server_process.h"

namespace vorlane {
namespace vstat {

// One message from the server, decoded.
struct JobMessage {
  enum Kind {
    Progress,  // `event`; event.run == 0 marks the final event, event.done whether the report was written
    Answer,    // the answer to ProcessStore: `started`
    Refused,   // a generic response to ProcessStore with a non-zero `code` and its `text`
    Log,       // a log record: `logType` (vcom LogDbg, LogWrn or LogErr) and its `text`
    Other,     // heartbeats, the stop acknowledgement, anything newer
  };
  Kind kind = Other;
  EventBuffT event{};
  bool started = false;
  int32_t code = 0;
  uint32_t logType = 0;
  std::string text;
};

class StatJobClient {
 public:
  typedef vcom::ServerProcess::Result Result;

  // The server program for a client running from `programDir`: next to it, else at
  // kInstalledServerPath relative to it. When neither exists, the first of the two (for the message).
  static std::string locateServer(const std::string& programDir);
  // The directory of the running program (from /proc/self/exe); empty, with `error`, when unknown.
  static std::string ownDirectory(std::string& error);

  // Starts the server program; false with lastError() naming the path and the reason.
  bool start(const std::string& serverPath);
  // Sends ProcessStore; false when it cannot be written within timeoutMs.
  bool startJob(const ProcessStoreReqBuffT& request, long timeoutMs);
  // Waits for the answer to ProcessStore, keeping the progress events that come before it for next();
  // true when the server started the job.
  bool awaitStarted(long timeoutMs);
  // The next message; kTimeout, kClosed at the end of the server's output, kError on a broken frame.
  Result next(JobMessage& out, long timeoutMs);
  // Sends StopProcessing.
  bool requestStop(long timeoutMs);
  // Ends the conversation: closes our writing end and waits up to timeoutMs for the server to end;
  // kills it when it does not. True when it ended by itself; `how` says how it ended either way.
  bool finish(long timeoutMs, vcom::ChildExit& how);
  // Kills the server at once (a second Ctrl-C, a hang).
  void kill();

  pid_t pid() const { return process_.pid(); }
  const std::string& lastError() const { return process_.lastError(); }
  // The pipe itself, for callers that test how the server copes with a parent going away.
  vcom::ServerProcess& process() { return process_; }

 private:
  void decode(const vcom::Msg& msg, JobMessage& out) const;

  vcom::ServerProcess process_;
  uint32_t jobSeq_ = 0;
};

}  // namespace vstat
}  // namespace vorlane
