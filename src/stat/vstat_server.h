// The statistics server: a vcom ServerDispatcher that speaks protocol version 301 and adds the two
// statistics requests, ProcessStore (15) and StopProcessing (17), to the built-in ones. It sends the
// progress events of a job (ProgressAsync, 14) and takes the local error texts of the store walk.
//
// One job per process: ProcessStore starts the counter thread, which runs the job (StatisticsJob),
// writes the report, waits until its last events are written and ends the whole process with status 0.
// The parent starts a new child for every run. StopProcessing sets the stop flag and waits for the
// walk to unwind; the walk still writes the report of what it counted.
//
// Threads: handleMessage (and so processStore and stopProcessing) runs on the dispatcher's receive
// thread; sendProgressMsg and sendErrMsg are called from the counter thread (through the job's channel)
// and only queue. The job mutex guards the counter thread handle and orders the two requests; the walk
// reads the channel's stop flag (an atomic) without it, because stopProcessing holds the mutex while it
// waits for the walk to end.
#pragma once

#include <cstdio>
#include <string>

#include "stat/job_channel.h"
#include "stat/vstat_messages.h"
#include "tiny/vmutex.h"
#include "vcom/server_dispatcher.h"

class VStatServer : public vorlane::vcom::ServerDispatcher {
 public:
  static const unsigned kProtocolVersion = 301;

  // cmdLine holds the pipe's read and write descriptor numbers. debug (may be null) receives the local
  // debug lines from the start, including "VStatServer started".
  explicit VStatServer(const char* cmdLine, FILE* debug = nullptr);
  ~VStatServer() override;

  unsigned getProtocolVersion() const override { return kProtocolVersion; }
  // Routes ProcessStore and StopProcessing; every other type gives -1 (not handled, message not taken).
  int handleMessage(vorlane::vcom::Msg* msg) override;

  // Queues one ProgressAsync event (size 1056, seq 0) with ev's fields in wire form; returns 0.
  int sendProgressMsg(vorlane::vstat::EventBuffT& ev);
  // Writes text as a local debug line; nothing goes to the client.
  void sendErrMsg(const std::string& text);
  // Sends text to the client as an error log record (LogErr), which the client shows.
  void reportFailure(const std::string& text);

 private:
  // The job's side of the server.
  class Channel : public JobChannel {
   public:
    explicit Channel(VStatServer& server) : server_(server) {}
    int sendProgressMsg(vorlane::vstat::EventBuffT& ev) override { return server_.sendProgressMsg(ev); }
    void sendErrMsg(const std::string& text) override { server_.sendErrMsg(text); }
    void reportFailure(const std::string& text) override { server_.reportFailure(text); }

   private:
    VStatServer& server_;
  };

  // Request handlers, with handleMessage's ownership rule: 0 = the message was taken and freed.
  int processStore(vorlane::vcom::Msg* req);
  int stopProcessing(vorlane::vcom::Msg* req);
  static void counterThread(void* server);
  // Sets the stop flag and waits, under the job mutex, until a running walk has ended; with a
  // time-out of 0 or more at most that long (the walk then goes on and is waited for next time).
  void stopJob(long timeoutMs = -1);
  // How long StopProcessing waits for the walk before it answers anyway.
  static const long kStopWaitMs = 5000;
  void queueStatResponse(const vorlane::vcom::Msg* req, uint32_t type, uint32_t value);

  Channel channel{*this};  // holds the stop flag
  vorlane::vstat::ProcessStoreReqBuffT request{};  // written only before the counter thread starts
  vorlane::tiny::VMutex jobMutex;
  unsigned long counterThreadHandle = 0;  // 0 = no job thread
};
