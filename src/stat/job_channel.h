// What a statistics job needs from whoever runs it: a way to send progress events and error lines, and
// the stop request to poll. The server implements it over the protocol; tests implement it in memory.
// isStopRequested is called from the job's thread while another thread may set the request, so
// implementations answer from an atomic flag.
#pragma once

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
  virtual bool isStopRequested() const = 0;
};
