// The server side of the vcom protocol. Owns the pipe and three threads: the receive thread reads
// every message, answers the built-in requests (Terminate, Get/SetWorkDir, the three log toggles,
// GetProtocolVersion, Echo) and passes every other type to handleMessage; the send thread is the only
// writer of the pipe and drains the send queue; the heartbeat thread queues a HeartBeat at once and
// then once per interval. Any thread may queue a message with sendResponse.
//
// Ownership: the dispatcher owns every received message until a handler takes it. handleMessage
// returning 0 means the handler took the message and deletes it; any other result leaves it with the
// dispatcher, which answers "Unknown request" (code 5) with the request's sequence number and frees it.
//
// Flow control: while the send queue is full (send_queue.h) the receive thread reads no request, so
// a parent that sends without reading fills its own pipe, not the server's memory. A parent that has
// closed its end and took nothing for kSendStallMs is given up on.
//
// Protocol errors: a header announcing fewer than 16 bytes or more than 32 bits can come from no
// correct peer and leaves no trustworthy frame boundary, so the conversation ends (a LogErr record is
// queued and the receive loop stops; run() returns). A request above kMaxRequestSize is drained and
// answered with code 2, so a confused parent can never make the server allocate gigabytes.
//
// Sending: every message goes through the send queue (send_queue.h), which the send thread drains.
// Locking: the context mutex guards the request set; the queue has its own lock; neither is held while
// writing to the pipe or waiting on an event. Stop flags and log-off values are atomics.
#pragma once

#include <atomic>
#include <cstdio>
#include <set>

#include <boost/noncopyable.hpp>

#include "tiny/vevent.h"
#include "tiny/vmutex.h"
#include "vcom/message_types.h"
#include "vcom/msg.h"
#include "vcom/request_context.h"
#include "vcom/send_queue.h"
#include "vcom/unix_msg_pipe.h"

namespace vorlane {
namespace vcom {

class ServerDispatcher : private boost::noncopyable {
 public:
  // The largest request the receive thread accepts (header included); the largest real one is a
  // store request of 692 bytes or a working-directory path.
  static const uint64_t kMaxRequestSize = 1 << 20;
  static const long kDefaultHeartBeatMs = 60000;
  // How long the server waits for a parent that takes none of its queued messages.
  static const long kSendStallMs = 5000;

  // Builds the pipe from the descriptor numbers in cmdLine; starts nothing.
  explicit ServerDispatcher(const char* cmdLine);

  virtual unsigned getProtocolVersion() const = 0;
  // Called on the receive thread for every type the dispatcher does not handle itself (see above).
  virtual int handleMessage(Msg* msg);
  // Stops the send thread (writing what is still queued while the parent takes it, see stopSendThread),
  // then ends and joins the heartbeat and the receive thread (a read in progress is interrupted), so no
  // thread outlives the object.
  virtual ~ServerDispatcher();

  // Starts the send, receive and heartbeat threads; false when the descriptors are missing (nothing
  // started) or a thread could not be started.
  bool init();
  // Blocks until the receive loop, the send thread or the heartbeat thread has ended.
  void run();
  // Ends all three threads; a read in progress is interrupted.
  void stop();
  // Lets the send thread write what is queued while the parent takes it; a parent that takes nothing
  // for kSendStallMs is given up on (a write it blocks is interrupted). Then ends the send thread.
  void stopSendThread();
  void stopRecvThread();
  void stopHeartBeat();

  // Queues a message; the dispatcher owns it from now on (deleted at once once sending has stopped).
  // Replaceable messages may be superseded by a newer one of their type while the queue is full.
  int sendResponse(Msg* msg, SendKind kind = SendKind::Normal);
  // Blocks until everything queued so far has been written, or sending has stopped, or nothing has
  // left for idleMs (a parent that takes nothing). For a thread that is about to end the process.
  bool waitUntilSent(long idleMs);
  // Queues a context whose response is ready; the send thread deletes the context.
  int sendResponse(RequestContext* ctx);
  // Queues a GenericResp with req's sequence number; text is cut to 255 characters. Null req: nothing.
  int sendGenericResponse(const Msg* req, int code, const char* text);
  // A zeroed buffer of the size hdr announces with its header copied in; null for a null header, a
  // size below 16 or beyond 32 bits, or a failed allocation.
  Msg* allocMsgBuf(const Msg* hdr) const;

  // Log records for the client (seq 0), sent only while the stream's off-value is 0.
  void logDbg(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
  void logWrn(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
  void logErr(int code, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
  // Local debug line; silent unless a debug stream was given.
  void dbgPrint(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
  // Debug stream of the dispatcher and its pipe (null: silent). Set before init().
  void enableDispatcherDebug(FILE* f);
  // Heartbeat period; set before init(). Tests shorten it.
  void setHeartBeatInterval(long ms) { heartBeatMs_.store(ms); }

  void addContext(RequestContext* ctx);
  void removeContext(RequestContext* ctx);
  void waitOnReqSetEmpty();

 protected:
  // Built-in handlers; each takes and deletes msg.
  void terminate(Msg* msg);
  void getWorkDir(Msg* msg);
  void setWorkDir(Msg* msg);
  void toggleDbgLog(Msg* msg);
  void toggleWrnLog(Msg* msg);
  void toggleErrLog(Msg* msg);
  void getProtocolVersion(Msg* msg);

 private:
  static void sendThreadEntry(void* self);
  static void recvThreadEntry(void* self);
  static void heartBeatThreadEntry(void* self);
  void sendLoop();
  void recvLoop();
  void heartBeatLoop();
  // Before each request: waits while the send queue is full; false ends the receive loop.
  bool waitForRoom();
  // Handles one received header; false ends the receive loop.
  bool receiveOne(const Msg& hdr);
  void dispatch(Msg* msg);
  void toggleLog(Msg* msg, std::atomic<uint32_t>& offValue);
  // Queues a log record while its stream is on; an error record (LogErr) also carries *code.
  void queueLogRecord(uint32_t type, const std::atomic<uint32_t>& offValue, const int32_t* code, const char* fmt,
                      va_list args);
  void signalFinished(std::atomic<bool>& which);

  static const long kRoomCheckMs = 100;

  tiny::VMutex contextMutex_;  // guards the request set
  std::set<RequestContext*> requestSet_;
  // After the request set: queued contexts remove themselves from it when the queue deletes them.
  SendQueue queue_;
  tiny::VEvent reqSetEmptyEvent_;
  tiny::VEvent finishedEvent_;
  std::atomic<bool> stopRecv_{false};
  UnixMsgPipe pipe_;
  std::atomic<FILE*> debug_{nullptr};
  // A stream of log records is sent while its value is 0; all streams start switched on.
  std::atomic<uint32_t> dbgLogOff_{0};
  std::atomic<uint32_t> wrnLogOff_{0};
  std::atomic<uint32_t> errLogOff_{0};
  bool sendThreadStarted_ = false;
  unsigned long sendThread_ = 0;
  bool recvThreadStarted_ = false;
  unsigned long recvThread_ = 0;
  unsigned long heartBeatThread_ = 0;
  tiny::VEvent heartBeatEvent_;
  bool heartBeatStarted_ = false;
  std::atomic<bool> stopHeartBeat_{false};
  std::atomic<long> heartBeatMs_{kDefaultHeartBeatMs};
  // Which thread has ended; run() rechecks them, since an event wait may wake spuriously.
  std::atomic<bool> recvEnded_{false};
  std::atomic<bool> sendEnded_{false};
  std::atomic<bool> heartBeatEnded_{false};
};

}  // namespace vcom
}  // namespace vorlane
