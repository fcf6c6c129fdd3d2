#include "stat/vstat_server.h"

#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>

#include "stat/job_facts.h"
#include "stat/scan_settings.h"
#include "stat/statistics_job.h"
#include "tiny/thread.h"
#include "vcom/message_types.h"
#include "vcom/msg.h"

using vorlane::vcom::Msg;
using vorlane::vstat::EventBuffT;

namespace {

// The code of the error log record that tells the client why its job produced no report.
const int kJobFailureCode = 1;

}  // namespace

VStatServer::VStatServer(const char* cmdLine, FILE* debug) : ServerDispatcher(cmdLine) {
  enableDispatcherDebug(debug);
  dbgPrint("VStatServer started\n");
}

VStatServer::~VStatServer() {
  // The dispatcher also ends when the parent goes away, possibly in the middle of a job whose walk
  // still uses this object. Nothing more can be exchanged, so the dispatcher's threads are ended and
  // joined first (none is left finished but unjoined when the job ends the process); then the job is
  // stopped, writes its report and ends the process.
  stop();
  stopJob();
  dbgPrint("VStatServer stopped\n");
}

int VStatServer::handleMessage(Msg* msg) {
  if (!msg) return -1;
  switch (msg->type) {
    case vorlane::vstat::ProcessStore:
      return processStore(msg);
    case vorlane::vstat::StopProcessing:
      return stopProcessing(msg);
    default:
      return -1;
  }
}

int VStatServer::sendProgressMsg(EventBuffT& ev) {
  Msg* msg = Msg::create(vorlane::vstat::kProgressAsyncSize, vorlane::vstat::ProgressAsync, 0);
  if (!msg) return 0;
  vorlane::vstat::encodeEvent(ev, msg->payload());
  // The queued copy is what goes out; log from it so the line shows the cut-to-field values.
  dbgPrint("Sending ProgressAsync; dom=%s, mbox=%s, run=%d\n", msg->payload(), msg->payload() + sizeof ev.dom,
           static_cast<int>(ev.run));
  // While the parent lags, a newer running event may replace one it has not taken yet; the final
  // event (run 0) always goes out.
  sendResponse(msg, ev.run ? vorlane::vcom::SendKind::Replaceable : vorlane::vcom::SendKind::Normal);
  return 0;
}

void VStatServer::sendErrMsg(const std::string& text) {
  // Walk texts carry file names, which may hold '%': never use them as a format.
  const bool hasEnd = !text.empty() && text.back() == '\n';
  dbgPrint("%s%s", text.c_str(), hasEnd ? "" : "\n");
}

void VStatServer::reportFailure(const std::string& text) { logErr(kJobFailureCode, "%s", text.c_str()); }

namespace {

// How long the ending job waits for its last events to reach the pipe before the process ends anyway
// (a parent that stopped reading must not keep the process alive).
const long kFinalSendTimeoutMs = 5000;

}  // namespace

int VStatServer::processStore(Msg* req) {
  if (!req) return 0;
  vorlane::vstat::ProcessStoreReqBuffT received;
  // A payload too short to hold a request, or one without a store directory, is refused; the -1 that
  // follows makes the dispatcher add its "Unknown request" answer, which parents have always received.
  if (!vorlane::vstat::decodeProcessStoreRequest(req->payload(), req->payloadSize(), received) ||
      received.storeDir[0] == '\0') {
    sendGenericResponse(req, vorlane::vcom::kRespInvalidPayload, "Invalid request payload");
    return -1;
  }

  uint32_t started = 1;
  {
    vorlane::tiny::VMutexGuard guard(&jobMutex);
    channel.stopRequested = false;
    if (counterThreadHandle != 0) {
      started = 0;  // one job at a time; the running one is left alone
    } else {
      request = received;
      if (!vorlane::tiny::createThread(counterThread, this, &counterThreadHandle,
                                       vorlane::tiny::defaultThreadAttributes)) {
        started = 0;
      }
    }
  }
  queueStatResponse(req, vorlane::vstat::ProcessStoreResp, started);
  dbgPrint("Message ProcessStoreResp sent\n");
  delete req;
  return 0;
}

int VStatServer::stopProcessing(Msg* req) {
  if (!req) return 0;
  stopJob(kStopWaitMs);
  queueStatResponse(req, vorlane::vstat::StopProcessingResp, 0);
  dbgPrint("Processing stopped\n");
  delete req;
  return 0;
}

void VStatServer::stopJob(long timeoutMs) {
  vorlane::tiny::VMutexGuard guard(&jobMutex);
  channel.stopRequested = true;
  if (counterThreadHandle == 0) return;
  if (timeoutMs < 0) {
    vorlane::tiny::waitForThread(counterThreadHandle);
    counterThreadHandle = 0;
    return;
  }
  // A walk stuck in a system call must not hold the receive thread, or Terminate could never be read.
  struct timespec until;
  clock_gettime(CLOCK_REALTIME, &until);
  until.tv_sec += timeoutMs / 1000;
  until.tv_nsec += (timeoutMs % 1000) * 1000000;
  if (until.tv_nsec >= 1000000000) {
    until.tv_sec += 1;
    until.tv_nsec -= 1000000000;
  }
  if (pthread_timedjoin_np(static_cast<pthread_t>(counterThreadHandle), nullptr, &until) == 0)
    counterThreadHandle = 0;
}

void VStatServer::queueStatResponse(const Msg* req, uint32_t type, uint32_t value) {
  Msg* resp = Msg::create(vorlane::vstat::kStatRespSize, type, req->seq);
  if (!resp) return;
  vorlane::vcom::putU32(resp->payload(), value);
  sendResponse(resp);
}

void VStatServer::counterThread(void* serverArg) {
  VStatServer* server = static_cast<VStatServer*>(serverArg);
  StatisticsJob job(server->request, server->channel, vorlane::vstat::kReportPath, scanSettingsFromEnvironment());
  // A client that started us for its scan holds the report lock already.
  if (!std::getenv(vorlane::vstat::kReportLockHeldVariable)) job.takeReportLock(vorlane::vstat::kReportLockPath);
  job.run();
  // One process serves one run. The last events must reach the parent before the process ends; the
  // other threads are still running, so the process ends without running static destructors under them.
  server->waitUntilSent(kFinalSendTimeoutMs);
  std::fflush(nullptr);
  ::_exit(0);
}
