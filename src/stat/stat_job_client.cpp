#include "stat/stat_job_client.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "stat/job_facts.h"
#include "vcom/message_types.h"

namespace vorlane {
namespace vstat {

namespace {

// A text field of a received payload, bounded by its width even when the sender left out the NUL.
std::string payloadText(const vcom::Msg& msg, size_t offset, size_t width) {
  const size_t available = msg.payloadSize();
  if (offset >= available) return std::string();
  const char* start = msg.payload() + offset;
  const size_t limit = std::min(width, available - offset);
  return std::string(start, strnlen(start, limit));
}

uint32_t payloadU32(const vcom::Msg& msg, size_t offset) {
  return msg.payloadSize() >= offset + 4 ? vcom::getU32(msg.payload() + offset) : 0;
}

}  // namespace

std::string StatJobClient::locateServer(const std::string& programDir) {
  const std::string besides = programDir + "/" + kServerName;
  const std::string installed = programDir + "/" + kInstalledServerPath;
  struct stat info;
  if (::stat(besides.c_str(), &info) != 0 && ::stat(installed.c_str(), &info) == 0) return installed;
  return besides;
}

std::string StatJobClient::ownDirectory(std::string& error) {
  char self[PATH_MAX];
  const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) {
    error = std::string("cannot find the program's directory (/proc/self/exe): ") + std::strerror(errno);
    return std::string();
  }
  std::string dir(self, static_cast<size_t>(n));
  dir.erase(dir.rfind('/'));
  return dir;
}

bool StatJobClient::start(const std::string& serverPath) { return process_.start(serverPath); }

bool StatJobClient::startJob(const ProcessStoreReqBuffT& request, long timeoutMs) {
  char wire[kProcessStoreReqWireSize];
  encodeProcessStoreRequest(request, wire);
  jobSeq_ = process_.sendRequest(ProcessStore, wire, sizeof wire, timeoutMs);
  return jobSeq_ != 0;
}

bool StatJobClient::awaitStarted(long timeoutMs) {
  vcom::MsgPtr answer;
  if (process_.waitForAnswer(ProcessStoreResp, jobSeq_, answer, timeoutMs) != vcom::ServerProcess::kOk) return false;
  return answer->type == ProcessStoreResp && payloadU32(*answer, 0) == 1;
}

StatJobClient::Result StatJobClient::next(JobMessage& out, long timeoutMs) {
  vcom::MsgPtr msg;
  const Result r = process_.receive(msg, timeoutMs);
  if (r == vcom::ServerProcess::kOk) decode(*msg, out);
  return r;
}

void StatJobClient::decode(const vcom::Msg& msg, JobMessage& out) const {
  out = JobMessage();
  switch (msg.type) {
    case ProgressAsync:
      // A short event cannot come from our server; it is passed over rather than half read.
      if (decodeEvent(msg.payload(), msg.payloadSize(), out.event)) out.kind = JobMessage::Progress;
      break;
    case ProcessStoreResp:
      if (msg.seq != jobSeq_) break;
      out.kind = JobMessage::Answer;
      out.started = payloadU32(msg, 0) != 0;
      break;
    case vcom::GenericResp:
      out.code = static_cast<int32_t>(payloadU32(msg, vcom::kGenericTextLen));
      if (msg.seq != jobSeq_ || out.code == vcom::kRespOk) break;
      out.kind = JobMessage::Refused;
      out.text = payloadText(msg, 0, vcom::kGenericTextLen);
      break;
    case vcom::LogDbg:
    case vcom::LogWrn:
    case vcom::LogErr:
      out.kind = JobMessage::Log;
      out.logType = msg.type;
      // The code of an error record comes first, in the sender's byte order; the text is what people read.
      out.text = payloadText(msg, msg.type == vcom::LogErr ? 4 : 0, vcom::kLogTextLen);
      break;
    default:
      break;
  }
}

bool StatJobClient::requestStop(long timeoutMs) {
  return process_.sendRequest(StopProcessing, nullptr, 0, timeoutMs) != 0;
}

bool StatJobClient::finish(long timeoutMs, vcom::ChildExit& how) {
  process_.closeWriteEnd();
  if (process_.waitExit(timeoutMs, &how)) return true;
  kill();
  process_.waitExit(-1, &how);
  return false;
}

void StatJobClient::kill() { process_.kill(SIGKILL); }

}  // namespace vstat
}  // namespace vorlane
