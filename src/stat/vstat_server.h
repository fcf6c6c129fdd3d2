// The statistics server: a vcom ServerDispatcher that speaks protocol version 301 and adds the two
// statistics requests, ProcessStore (15) and StopProcessing (17), to the built-in ones. It sends the
// progress events of a job (ProgressAsync, 14) and takes the local error texts of the store walk.
//
// Threads: handleMessage runs on the dispatcher's receive thread; sendProgressMsg and sendErrMsg are
// called from the job's counter thread and only queue (any thread may call them).
//
// The job: processStore / stopProcessing / counterThread and the job state (the stop flag the walk
// reads without a lock, the copied request, the job mutex and the counter thread handle) belong in the
// "job" sections marked below. Until the job lands, the two requests are not handled (-1), so the
// dispatcher answers them with "Unknown request" (code 5).
#pragma once

#include <cstdio>
#include <string>

#include "stat/vstat_messages.h"
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

 private:
  // --- job: request handlers. Same ownership rule as handleMessage: 0 = the message was taken. ---
  int processStore(vorlane::vcom::Msg* req);
  int stopProcessing(vorlane::vcom::Msg* req);
  // --- job: state (stop flag, current request, job mutex, counter thread handle) goes here. ---
};
