// What a statistics job needs from whoever runs it: a way to send progress events and error lines,
// and the stop flag. The server implements the sending over the protocol; tests implement it in memory.
// The job calls the senders on its own thread only. stopRequested may be set from any thread; the job
// polls it and unwinds. The channel must outlive the job.
#pragma once

#include <atomic>
#include <string>

#include "stat/vstat_messages.h"

class JobChannel {
 public:
  virtual ~JobChannel() = default;
  // Sends one progress event (fields in host order).
  virtual int sendProgressMsg(vorlane::vstat::EventBuffT& ev) = 0;
  // Reports one error or log line of the job.
  virtual void sendErrMsg(const std::string& text) = 0;
  // Tells the requester why the job failed to produce its result (the report could not be written),
  // so that it can say so without a debug log.
  virtual void reportFailure(const std::string& text) = 0;

  std::atomic<bool> stopRequested{false};
};
