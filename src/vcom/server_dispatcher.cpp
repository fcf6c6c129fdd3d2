#include "vcom/server_dispatcher.h"

#include <errno.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>
#include <string>

#include "tiny/thread.h"
#include "vcom/debug_line.h"
#include "vcom/line_text.h"

namespace vorlane {
namespace vcom {

namespace {

Msg* makeU32Msg(uint32_t type, uint32_t seq, uint32_t value) {
  Msg* msg = Msg::create(kU32MsgSize, type, seq);
  if (msg) putU32(msg->payload(), value);
  return msg;
}

}  // namespace

ServerDispatcher::ServerDispatcher(const char* cmdLine) : pipe_(cmdLine) {}

ServerDispatcher::~ServerDispatcher() {
  stopSendThread();
  // The heartbeat thread only waits on an event of this object, so it can always be ended and must
  // be, before the object goes away.
  stopHeartBeat();
  // The receive thread may still block in a read when run() ended through a failed write; the
  // interrupt ends that read, so the thread never outlives the pipe it reads.
  stopRecvThread();
}

int ServerDispatcher::handleMessage(Msg*) { return -1; }

bool ServerDispatcher::init() {
  if (!pipe_.initServer()) return false;
  // Without the wake-up pipe (descriptors exhausted) the server still serves; only ending a blocked
  // transfer early then waits for the parent.
  if (!pipe_.enableInterrupt()) dbgPrint("cannot make pipe transfers interruptible: %s\n", strerror(errno));
  stopHeartBeat_ = false;
  stopRecv_ = false;
  sendThreadStarted_ = tiny::createThread(&ServerDispatcher::sendThreadEntry, this, &sendThread_,
                                          tiny::defaultThreadAttributes);
  recvThreadStarted_ = tiny::createThread(&ServerDispatcher::recvThreadEntry, this, &recvThread_,
                                          tiny::defaultThreadAttributes);
  heartBeatStarted_ = tiny::createThread(&ServerDispatcher::heartBeatThreadEntry, this, &heartBeatThread_,
                                         tiny::defaultThreadAttributes);
  return sendThreadStarted_ && recvThreadStarted_ && heartBeatStarted_;
}

void ServerDispatcher::run() {
  while (!recvEnded_.load() && !sendEnded_.load() && !heartBeatEnded_.load()) finishedEvent_.wait();
}

void ServerDispatcher::signalFinished(std::atomic<bool>& which) {
  which.store(true);
  finishedEvent_.signal();
}

void ServerDispatcher::stop() {
  stopRecv_ = true;
  stopSendThread();
  stopRecvThread();
  stopHeartBeat();
}

void ServerDispatcher::stopRecvThread() {
  if (!recvThreadStarted_) return;
  stopRecv_ = true;
  pipe_.interrupt();
  tiny::waitForThread(recvThread_);
  recvThread_ = 0;
  recvThreadStarted_ = false;
}

void ServerDispatcher::stopHeartBeat() {
  if (!heartBeatStarted_) return;
  stopHeartBeat_ = true;
  heartBeatEvent_.signal();
  tiny::waitForThread(heartBeatThread_);
  heartBeatThread_ = 0;
  heartBeatStarted_ = false;
}

void ServerDispatcher::stopSendThread() {
  if (!sendThreadStarted_) return;
  // What is queued still goes out while the parent takes it. A parent that takes nothing is given up
  // on after kSendStallMs (counted once: a queue that stood still that long already gets no more), and
  // a write it blocks is interrupted; closing the queue then ends the send thread.
  if (queue_.stalledFor(kSendStallMs) || !queue_.waitUntilSent(kSendStallMs)) pipe_.interrupt();
  queue_.close();
  tiny::waitForThread(sendThread_);
  sendThread_ = 0;
  sendThreadStarted_ = false;
}

bool ServerDispatcher::waitUntilSent(long idleMs) { return queue_.waitUntilSent(idleMs); }

int ServerDispatcher::sendResponse(Msg* msg, SendKind kind) {
  if (!msg) return -1;
  queue_.push(msg, kind);
  return 0;
}

int ServerDispatcher::sendResponse(RequestContext* ctx) {
  if (!ctx) return -1;
  queue_.push(ctx);
  return 0;
}

int ServerDispatcher::sendGenericResponse(const Msg* req, int code, const char* text) {
  if (!req) return 0;
  Msg* msg = Msg::create(kGenericRespSize, GenericResp, req->seq);
  if (!msg) return 0;
  if (text) strncpy(msg->payload(), text, kGenericTextLen - 1);
  putU32(msg->payload() + kGenericTextLen, static_cast<uint32_t>(code));
  sendResponse(msg);
  return 0;
}

Msg* ServerDispatcher::allocMsgBuf(const Msg* hdr) const {
  if (!hdr || hdr->size < Msg::kHeaderSize || hdr->size > 0xFFFFFFFFull) return nullptr;
  return Msg::createFor(*hdr);
}

void ServerDispatcher::sendThreadEntry(void* self) { static_cast<ServerDispatcher*>(self)->sendLoop(); }
void ServerDispatcher::recvThreadEntry(void* self) { static_cast<ServerDispatcher*>(self)->recvLoop(); }
void ServerDispatcher::heartBeatThreadEntry(void* self) {
  static_cast<ServerDispatcher*>(self)->heartBeatLoop();
}

void ServerDispatcher::sendLoop() {
  IOError err;
  while (Msg* msg = queue_.pop()) {
    const bool sent = pipe_.sendMsg(msg, err) == 0;
    delete msg;
    queue_.written();
    if (!sent) {
      // Nobody will read what is queued: drop it, and everything queued from now on.
      queue_.close();
      break;
    }
  }
  signalFinished(sendEnded_);
}

void ServerDispatcher::heartBeatLoop() {
  // Heartbeats only say the server lives: one unsent heartbeat may stand for many.
  sendResponse(makeU32Msg(HeartBeat, 0, 0), SendKind::Replaceable);
  while (!stopHeartBeat_) {
    heartBeatEvent_.timedwait(heartBeatMs_.load());
    sendResponse(makeU32Msg(HeartBeat, 0, 0), SendKind::Replaceable);
  }
  signalFinished(heartBeatEnded_);
}

void ServerDispatcher::recvLoop() {
  IOError err;
  while (!stopRecv_ && waitForRoom()) {
    Msg hdr;
    if (pipe_.recvMsgHdr(&hdr, err) != 0) {
      if (err.code == IOError::kRecvFailed) stopRecv_ = true;
      break;
    }
    if (stopRecv_ || !receiveOne(hdr)) break;
  }
  signalFinished(recvEnded_);
}

bool ServerDispatcher::waitForRoom() {
  // Answers are never dropped, so while the queue is full no further request is read: the parent's
  // requests wait in its pipe, and the server's memory stays flat.
  while (!queue_.waitForRoom(kRoomCheckMs)) {
    if (stopRecv_ || queue_.closed()) return false;
    // A parent that has closed its end and takes nothing will never make room.
    if (queue_.stalledFor(kSendStallMs) && pipe_.inputEnded()) return false;
  }
  return true;
}

bool ServerDispatcher::receiveOne(const Msg& hdr) {
  if (hdr.size < Msg::kHeaderSize || hdr.size > 0xFFFFFFFFull) {
    dbgPrint("protocol error: header announces %llu bytes (type %u, seq %u); closing the conversation\n",
             static_cast<unsigned long long>(hdr.size), hdr.type, hdr.seq);
    logErr(kRespInvalidPayload, "protocol error: header announces %llu bytes (type %u, seq %u)",
           static_cast<unsigned long long>(hdr.size), hdr.type, hdr.seq);
    stopRecv_ = true;
    return false;
  }
  if (hdr.seq == 0) {
    pipe_.dropMsg(&hdr);
    return true;
  }
  if (hdr.size > kMaxRequestSize) {
    dbgPrint("request of %llu bytes (type %u, seq %u) refused\n", static_cast<unsigned long long>(hdr.size),
             hdr.type, hdr.seq);
    pipe_.dropMsg(&hdr);
    sendGenericResponse(&hdr, kRespInvalidPayload, "Invalid request payload");
    return true;
  }
  Msg* msg = allocMsgBuf(&hdr);
  if (!msg) {
    pipe_.dropMsg(&hdr);
    return true;
  }
  IOError err;
  if (pipe_.recvMsgRest(&hdr, msg, err) != 0) {
    delete msg;
    return true;
  }
  dispatch(msg);
  return true;
}

void ServerDispatcher::dispatch(Msg* msg) {
  switch (msg->type) {
    case Terminate:
      return terminate(msg);
    case SetWorkDir:
      return setWorkDir(msg);
    case GetWorkDir:
      return getWorkDir(msg);
    case ToggleDbgLog:
      return toggleDbgLog(msg);
    case ToggleWrnLog:
      return toggleWrnLog(msg);
    case ToggleErrLog:
      return toggleErrLog(msg);
    case GetProtocolVersion:
      return getProtocolVersion(msg);
    case Echo:
      sendGenericResponse(msg, kRespOk, "O.K. - Echo");
      // Long-standing behaviour that clients depend on: the echo discards as many bytes again as its
      // payload had, so an echo must carry no payload (size 16) and then nothing is discarded.
      pipe_.dropMsg(msg);
      delete msg;
      return;
    default:
      break;
  }
  if (handleMessage(msg) == 0) return;
  sendGenericResponse(msg, kRespUnknownRequest, "Unknown request");
  delete msg;
}

void ServerDispatcher::terminate(Msg* msg) {
  sendGenericResponse(msg, kRespOk, "O.K. DLL server is about terminate");
  stopRecv_ = true;
  delete msg;
}

void ServerDispatcher::setWorkDir(Msg* msg) {
  // The path need not be terminated inside the payload; never read past it.
  const std::string path(msg->payload(), strnlen(msg->payload(), msg->payloadSize()));
  if (chdir(path.c_str()) == 0) {
    sendGenericResponse(msg, kRespOk, "changed to new directory");
  } else {
    dbgPrint("chdir to %s failed\n", path.c_str());
    sendGenericResponse(msg, kRespChdirFailed, "chdir failed");
  }
  delete msg;
}

void ServerDispatcher::getWorkDir(Msg* msg) {
  char dir[kWorkDirLen - 1];
  Msg* resp = getcwd(dir, sizeof dir) ? Msg::create(kWorkDirRespSize, SetWorkDir, msg->seq) : nullptr;
  if (resp) {
    strncpy(resp->payload(), dir, kWorkDirLen - 1);
    sendResponse(resp);
  } else {
    sendGenericResponse(msg, kRespNoWorkDir, "Unable to get wdir");
  }
  delete msg;
}

void ServerDispatcher::toggleLog(Msg* msg, std::atomic<uint32_t>& offValue) {
  // The value is kept as it lies in the message: only zero or non-zero matters, which byte order
  // cannot change. A toggle too short to carry a value leaves the setting alone.
  if (msg->payloadSize() < 4) {
    sendGenericResponse(msg, kRespInvalidPayload, "Invalid request payload");
  } else {
    uint32_t raw;
    memcpy(&raw, msg->payload(), sizeof raw);
    offValue.store(raw);
    sendGenericResponse(msg, kRespOk, "OK");
  }
  delete msg;
}

void ServerDispatcher::toggleDbgLog(Msg* msg) { toggleLog(msg, dbgLogOff_); }
void ServerDispatcher::toggleWrnLog(Msg* msg) { toggleLog(msg, wrnLogOff_); }
void ServerDispatcher::toggleErrLog(Msg* msg) { toggleLog(msg, errLogOff_); }

void ServerDispatcher::getProtocolVersion(Msg* msg) {
  sendResponse(makeU32Msg(ProtocolVersionResp, msg->seq, getProtocolVersion()));
  delete msg;
}

void ServerDispatcher::queueLogRecord(uint32_t type, const std::atomic<uint32_t>& offValue, const int32_t* code,
                                      const char* fmt, va_list args) {
  if (offValue.load() != 0) return;
  Msg* msg = Msg::create(code ? kLogErrSize : kLogTextSize, type, 0);
  if (!msg) return;
  // An error record's code travels in the sender's host order, as the record has always carried it.
  if (code) memcpy(msg->payload(), code, sizeof *code);
  formatLineV(fmt, args).copy(msg->payload() + (code ? sizeof *code : 0), kLogTextLen - 1);
  sendResponse(msg);
}

void ServerDispatcher::logDbg(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  queueLogRecord(LogDbg, dbgLogOff_, nullptr, fmt, args);
  va_end(args);
}

void ServerDispatcher::logWrn(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  queueLogRecord(LogWrn, wrnLogOff_, nullptr, fmt, args);
  va_end(args);
}

void ServerDispatcher::logErr(int code, const char* fmt, ...) {
  const int32_t hostCode = code;
  va_list args;
  va_start(args, fmt);
  queueLogRecord(LogErr, errLogOff_, &hostCode, fmt, args);
  va_end(args);
}

void ServerDispatcher::dbgPrint(const char* fmt, ...) {
  FILE* stream = debug_.load();
  if (!stream) return;
  va_list args;
  va_start(args, fmt);
  writeDebugLineV(stream, fmt, args);
  va_end(args);
}

void ServerDispatcher::enableDispatcherDebug(FILE* f) {
  debug_.store(f);
  pipe_.enableDebug(f);
}

void ServerDispatcher::addContext(RequestContext* ctx) {
  tiny::VMutexGuard guard(contextMutex_);
  requestSet_.insert(ctx);
}

void ServerDispatcher::removeContext(RequestContext* ctx) {
  tiny::VMutexGuard guard(contextMutex_);
  if (requestSet_.erase(ctx) && requestSet_.empty()) reqSetEmptyEvent_.signal();
}

void ServerDispatcher::waitOnReqSetEmpty() {
  for (;;) {
    {
      tiny::VMutexGuard guard(contextMutex_);
      if (requestSet_.empty()) return;
    }
    reqSetEmptyEvent_.wait();
  }
}

}  // namespace vcom
}  // namespace vorlane
