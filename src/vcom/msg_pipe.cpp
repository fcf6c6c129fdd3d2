#include "vcom/msg_pipe.h"

#include <errno.h>

#include <cstdarg>
#include <cstring>
#include <new>

#include "vcom/debug_line.h"

namespace vorlane {
namespace vcom {

namespace {

// The system error text, or "EOF" when the read failed without one (the peer closed its end).
const char* recvFailureText() { return errno == 0 ? "EOF" : strerror(errno); }

}  // namespace

MsgPipe::MsgPipe() : lastErrorText_(""), lastErrorCode_(0), debug_(nullptr) {}

MsgPipe::~MsgPipe() {}

void MsgPipe::setError(int code, const char* text) {
  lastErrorCode_.store(code);
  lastErrorText_.store(text ? text : "");
}

void MsgPipe::dbgPrint(const char* fmt, ...) {
  FILE* stream = debug_.load();
  if (!stream) return;
  va_list args;
  va_start(args, fmt);
  writeDebugLineV(stream, fmt, args);
  va_end(args);
}

int MsgPipe::sendMsg(const Msg* msg, IOError& err) {
  if (!msg) return -1;
  dbgPrint("sending message, Seq: %u Type:%u Size: %llu\n", msg->seq, msg->type,
           static_cast<unsigned long long>(msg->size));
  // A size below the header would desynchronise the peer; one beyond 32 bits cannot be sent in one call.
  if (msg->size < Msg::kHeaderSize || msg->size > Msg::kMaxWireSize) return -1;

  const size_t size = static_cast<size_t>(msg->size);
  char* wire = new (std::nothrow) char[size];
  if (!wire) return -1;
  std::unique_ptr<char[]> owner(wire);
  encodeHeader(*msg, reinterpret_cast<unsigned char*>(wire));
  std::memcpy(wire + Msg::kHeaderSize, msg->payload(), size - Msg::kHeaderSize);

  errno = 0;
  const int rc = send(wire, static_cast<unsigned>(size));
  if (rc == -1) {
    err.set(IOError::kSendFailed, "Unable to send message");
    dbgPrint("Unable to send complete message: %s\n", strerror(errno));
    return -1;
  }
  err.set(IOError::kOk, "OK");
  return rc;
}

int MsgPipe::recvMsgHdr(Msg* hdr, IOError& err) {
  if (!hdr) return -1;
  unsigned char wire[Msg::kHeaderSize] = {0};
  errno = 0;
  const bool ok = recv(reinterpret_cast<char*>(wire), Msg::kHeaderSize);
  decodeHeader(wire, *hdr);
  if (!ok) {
    dbgPrint("I'm not able to get complete message header %s\n", recvFailureText());
    err.set(IOError::kRecvFailed, "Unable to recv. complete message header");
    return -1;
  }
  dbgPrint("received message header, Seq: %u Type:%u Size: %llu\n", hdr->seq, hdr->type,
           static_cast<unsigned long long>(hdr->size));
  err.set(IOError::kOk, "OK");
  return 0;
}

int MsgPipe::recvMsgRest(const Msg* hdr, Msg* buf, IOError& err) {
  if (!hdr) return -1;
  if (!buf) {
    dropMsg(hdr);
    err.set(IOError::kNoBuffer, "No buffer for message");
    return -1;
  }
  if (buf->size < hdr->size || hdr->size < Msg::kHeaderSize) {
    dropMsg(hdr);
    err.set(IOError::kNoBuffer, "Insufficient buffer size to recv. message");
    return -1;
  }
  buf->size = hdr->size;
  buf->type = hdr->type;
  buf->seq = hdr->seq;
  const unsigned long long rest = hdr->size - Msg::kHeaderSize;
  errno = 0;
  // The capacity check above bounds rest by an allocation the caller made; a receive beyond 32 bits
  // is not a message this protocol can carry.
  if (rest > 0xFFFFFFFFull || !recv(buf->payload(), static_cast<unsigned>(rest))) {
    dbgPrint("I'm not able to get rest of message, %s\n", recvFailureText());
    err.set(IOError::kRecvFailed, "Unable to recv. message body");
    return -1;
  }
  dbgPrint("received message body, Seq: %u Type:%u Size: %llu\n", buf->seq, buf->type,
           static_cast<unsigned long long>(buf->size));
  err.set(IOError::kOk, "OK");
  return 0;
}

int MsgPipe::dropMsg(const Msg* hdr) {
  if (!hdr || hdr->size <= Msg::kHeaderSize) return 0;
  return drop(hdr->size - Msg::kHeaderSize);
}

}  // namespace vcom
}  // namespace vorlane
