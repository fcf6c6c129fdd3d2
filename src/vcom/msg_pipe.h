// The framing layer of vcom: writes whole messages, reads a header, then reads the rest of the message
// into a buffer of sufficient size or discards it. The byte transport is supplied by a derived class
// (UnixMsgPipe). Failures are returned as -1 together with an IOError; nothing throws.
// Threading: one thread may send while another receives (the two directions share nothing but the
// last-error fields, which are atomics); two concurrent senders or two concurrent receivers are not
// supported.
#pragma once

#include <atomic>
#include <cstdio>
#include <string>

#include "vcom/io_error.h"
#include "vcom/msg.h"

namespace vorlane {
namespace vcom {

class MsgPipe {
 public:
  MsgPipe();
  MsgPipe(const MsgPipe&) = delete;
  MsgPipe& operator=(const MsgPipe&) = delete;

  // Byte transport. send returns 0 when all len bytes were written, -1 otherwise; recv returns true when
  // len bytes were read; drop discards len bytes and returns 0, or -1 with the last error set.
  virtual int send(const char* buf, unsigned len) = 0;
  virtual bool recv(char* buf, unsigned len) = 0;
  virtual int drop(unsigned long long len) = 0;
  virtual ~MsgPipe();
  virtual bool initClient() = 0;
  virtual bool waitForConn(unsigned timeout, std::string& err) = 0;
  virtual bool initServer() = 0;
  virtual bool getCmdLineArgs(std::string& args) = 0;
  virtual void close() = 0;

  // Writes one whole message in one send call, header converted to wire order on a private copy, so
  // msg stays in host order. Sizes below 16 or above Msg::kMaxWireSize are refused (-1, err untouched).
  int sendMsg(const Msg* msg, IOError& err);
  // Reads 16 header bytes into hdr and converts them to host order.
  int recvMsgHdr(Msg* hdr, IOError& err);
  // Reads the payload announced by hdr into buf, whose size field holds its capacity on entry. A null
  // or too small buffer makes the payload be discarded, so the next header is read correctly.
  int recvMsgRest(const Msg* hdr, Msg* buf, IOError& err);
  // Discards the payload announced by hdr (size - 16 bytes; nothing for sizes of 16 or less).
  int dropMsg(const Msg* hdr);

  const char* getLastErrorMsg() const { return lastErrorText_.load(); }
  int getLastErrorCode() const { return lastErrorCode_.load(); }
  // The text is not copied: pass a string literal.
  void setError(int code, const char* text);

  void enableDebug(FILE* f) { debug_.store(f); }
  void dbgPrint(const char* fmt, ...) __attribute__((format(printf, 2, 3)));

 private:
  std::atomic<const char*> lastErrorText_;
  std::atomic<int> lastErrorCode_;
  std::atomic<FILE*> debug_;
};

}  // namespace vcom
}  // namespace vorlane
