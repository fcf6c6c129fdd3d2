// Framing over a real pipe looped back into itself (the pipe's read end is the MsgPipe's read side,
// its write end the write side), so every byte the framing layer writes is read back by it.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "vcom/msg.h"
#include "vcom/unix_msg_pipe.h"

using namespace vorlane::vcom;

namespace {

struct Loopback {
  Loopback() {
    EXPECT_EQ(0, ::pipe(fds));
    rawRead = dup(fds[0]);
    pipe.reset(new UnixMsgPipe((std::to_string(fds[0]) + " " + std::to_string(fds[1])).c_str()));
  }
  ~Loopback() { close(rawRead); }
  bool readable() {
    struct pollfd p = {rawRead, POLLIN, 0};
    return poll(&p, 1, 0) == 1;
  }
  int fds[2];
  int rawRead;  // a second handle on the read end, for looking at the wire bytes
  std::unique_ptr<UnixMsgPipe> pipe;
};

MsgPtr makeMsg(uint64_t size, uint32_t type, uint32_t seq, char fill) {
  MsgPtr msg(Msg::create(size, type, seq));
  std::memset(msg->payload(), fill, msg->payloadSize());
  return msg;
}

std::string readAll(FILE* f) {
  std::string text;
  rewind(f);
  char buf[512];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
  return text;
}

TEST(Framing, HeaderBytesDecodeBigEndian) {
  struct Case { unsigned char wire[16]; uint64_t size; uint32_t type, seq; };
  const Case cases[] = {
      {{0, 0, 0, 0, 0, 0, 0, 0x14, 0, 0, 0, 0x0B, 0, 0, 0, 0x05}, 20, 11, 5},
      {{0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0xFF, 0xFE, 0xFD, 0xFC, 0x80, 0, 0, 0x01},
       0x0102030405060708ull, 0xFFFEFDFCu, 0x80000001u},
  };
  for (const Case& c : cases) {
    Msg hdr;
    decodeHeader(c.wire, hdr);
    EXPECT_EQ(hdr.size, c.size);
    EXPECT_EQ(hdr.type, c.type);
    EXPECT_EQ(hdr.seq, c.seq);
    unsigned char back[16];
    encodeHeader(hdr, back);
    EXPECT_EQ(0, std::memcmp(back, c.wire, 16));
  }
}

TEST(Framing, SendRefusesSizesThatCannotBeFramedWithoutTouchingTheError) {
  Loopback loop;
  for (uint64_t size : {0xFFFFFFFFull, 0x100000000ull, 0xFFFFFFFFFFFFFFFFull, 15ull, 0ull}) {
    Msg hdr;  // header only: the size must be refused before any payload is touched
    hdr.size = size;
    hdr.type = 1;
    hdr.seq = 1;
    IOError err;
    err.set(42, "untouched");
    EXPECT_EQ(-1, loop.pipe->sendMsg(&hdr, err)) << size;
    EXPECT_EQ(err.code, 42) << size;
  }
  EXPECT_FALSE(loop.readable());
}

// Whatever happens to one message's payload, the next header must be read at its true start.
TEST(Framing, ReceiveBufferCapacityDecidesAndThePayloadIsAlwaysConsumed) {
  struct Case { const char* name; bool withBuffer; uint64_t capacity; int rc, code; const char* text; };
  const Case cases[] = {
      {"capacity equals size", true, 100, 0, 0, "OK"},
      {"one byte short", true, 99, -1, 1, "Insufficient buffer size to recv. message"},
      {"no buffer", false, 0, -1, 1, "No buffer for message"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Loopback loop;
    IOError err;
    MsgPtr first = makeMsg(100, 7, 1, 'a');
    MsgPtr second = makeMsg(24, 8, 2, 'b');
    ASSERT_EQ(0, loop.pipe->sendMsg(first.get(), err));
    ASSERT_EQ(0, loop.pipe->sendMsg(second.get(), err));

    Msg hdr;
    ASSERT_EQ(0, loop.pipe->recvMsgHdr(&hdr, err));
    MsgPtr buf(c.withBuffer ? Msg::create(c.capacity, 0, 0) : nullptr);
    EXPECT_EQ(c.rc, loop.pipe->recvMsgRest(&hdr, buf.get(), err));
    EXPECT_EQ(err.code, c.code);
    EXPECT_STREQ(err.text, c.text);
    if (c.rc == 0) {
      EXPECT_EQ(buf->size, 100u);
      EXPECT_EQ(0, std::memcmp(buf->payload(), first->payload(), 84));
    }

    ASSERT_EQ(0, loop.pipe->recvMsgHdr(&hdr, err));
    EXPECT_EQ(hdr.size, 24u);
    EXPECT_EQ(hdr.type, 8u);
    EXPECT_EQ(hdr.seq, 2u);
  }
}

// A peer that closes its end, before or inside a header or a body (after so many bytes of a 40-byte
// message): code 2, and "EOF" in the debug line.
TEST(Framing, EndOfStreamIsReportedAsEof) {
  struct Case { size_t bytesBeforeClose; bool failsInHeader; };
  for (const Case& c : {Case{0, true}, Case{9, true}, Case{16, false}, Case{30, false}}) {
    SCOPED_TRACE(c.bytesBeforeClose);
    Loopback loop;
    FILE* debug = tmpfile();
    ASSERT_NE(debug, nullptr);
    loop.pipe->enableDebug(debug);
    MsgPtr msg = makeMsg(40, 2, 9, 'p');
    unsigned char wire[40];
    encodeHeader(*msg, wire);
    std::memcpy(wire + 16, msg->payload(), 24);
    ASSERT_EQ(static_cast<ssize_t>(c.bytesBeforeClose), write(loop.fds[1], wire, c.bytesBeforeClose));
    loop.pipe->closeWriteFd();

    IOError err;
    Msg hdr;
    const int hdrRc = loop.pipe->recvMsgHdr(&hdr, err);
    if (c.failsInHeader) {
      EXPECT_EQ(-1, hdrRc);
      EXPECT_STREQ(err.text, "Unable to recv. complete message header");
      EXPECT_NE(readAll(debug).find("I'm not able to get complete message header EOF\n"), std::string::npos);
    } else {
      ASSERT_EQ(0, hdrRc);
      MsgPtr buf(Msg::createFor(hdr));
      EXPECT_EQ(-1, loop.pipe->recvMsgRest(&hdr, buf.get(), err));
      EXPECT_STREQ(err.text, "Unable to recv. message body");
      EXPECT_NE(readAll(debug).find("I'm not able to get rest of message, EOF\n"), std::string::npos);
    }
    EXPECT_EQ(err.code, 2);
    loop.pipe->enableDebug(nullptr);
    fclose(debug);
  }
}

TEST(Framing, DroppingPastTheEndOfStreamSetsTheLastError) {
  Loopback loop;
  ASSERT_EQ(10, write(loop.fds[1], "0123456789", 10));
  loop.pipe->closeWriteFd();
  Msg hdr;
  hdr.size = 16 + 100000;  // more than one drop chunk
  EXPECT_EQ(-1, loop.pipe->dropMsg(&hdr));
  EXPECT_EQ(loop.pipe->getLastErrorCode(), 2);
  EXPECT_STREQ(loop.pipe->getLastErrorMsg(), "Unable to drop complete message");
}

// The header goes out big-endian. With a debug stream every message sent gives one line, "Sat Nov 21
// 05:52:56 2026 sending message, ...": the ctime text without its line end; its figures show that the
// message was left in host order by the first send.
TEST(Framing, SendWritesTheWireHeaderAndADebugLine) {
  Loopback loop;
  MsgPtr msg = makeMsg(20, 11, 5, 0);
  putU32(msg->payload(), 301);
  IOError err;
  ASSERT_EQ(0, loop.pipe->sendMsg(msg.get(), err));  // no debug stream: no line, no crash
  EXPECT_EQ(err.code, 0);
  EXPECT_STREQ(err.text, "OK");
  unsigned char wire[20];
  ASSERT_EQ(20, read(loop.rawRead, wire, sizeof wire));
  const unsigned char expected[20] = {0, 0, 0, 0, 0, 0, 0, 0x14, 0, 0, 0, 0x0B, 0, 0, 0, 0x05, 0, 0, 0x01, 0x2D};
  EXPECT_EQ(0, std::memcmp(wire, expected, 20));
  FILE* debug = tmpfile();
  ASSERT_NE(debug, nullptr);
  loop.pipe->enableDebug(debug);
  ASSERT_EQ(0, loop.pipe->sendMsg(msg.get(), err));
  loop.pipe->enableDebug(nullptr);
  const std::string text = readAll(debug);
  fclose(debug);
  const std::string tail = " sending message, Seq: 5 Type:11 Size: 20\n";
  ASSERT_EQ(text.size(), 24 + tail.size()) << text;
  EXPECT_EQ(text.substr(24), tail);
  EXPECT_EQ(text[3], ' ');
  EXPECT_EQ(text.find('\n'), text.size() - 1);
}

}  // namespace
