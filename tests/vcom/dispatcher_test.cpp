// The dispatcher in-process, talking over two real pipes to a peer UnixMsgPipe played by the test:
// what only an in-process test can reach (responses from other threads, the heartbeat period, log
// records raised by the server itself, a failed write ending run()).
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "vcom/message_types.h"
#include "vcom/server_dispatcher.h"

using namespace vorlane::vcom;

namespace {

const uint32_t kDeferredType = 100;  // answered later from another thread through a RequestContext
const uint32_t kDeferredAnswer = 101;
const uint32_t kSwallowedType = 102;  // taken by the handler, never answered

class TestServer : public ServerDispatcher {
 public:
  explicit TestServer(const char* cmdLine) : ServerDispatcher(cmdLine) {}
  ~TestServer() override {
    for (std::thread& t : workers_) t.join();
  }
  unsigned getProtocolVersion() const override { return 42; }
  int handleMessage(Msg* msg) override {
    if (msg->type == kSwallowedType) {
      delete msg;
      return 0;
    }
    if (msg->type != kDeferredType) return -1;
    RequestContext* ctx = new RequestContext(*this, msg);
    workers_.emplace_back([ctx] {
      Msg* resp = Msg::create(20, kDeferredAnswer, ctx->getRequest()->seq);
      putU32(resp->payload(), 7);
      ctx->sendResponse(resp);
    });
    return 0;
  }

 private:
  std::vector<std::thread> workers_;  // touched only by the receive thread, joined after it ended
};

// Two pipes: the server reads toServer and writes toPeer; the peer the other way round.
class Dispatcher : public ::testing::Test {
 protected:
  void SetUp() override {
    int toServer[2], toPeer[2];
    ASSERT_EQ(0, pipe(toServer));
    ASSERT_EQ(0, pipe(toPeer));
    peer.reset(new UnixMsgPipe((std::to_string(toPeer[0]) + " " + std::to_string(toServer[1])).c_str()));
    server.reset(new TestServer((std::to_string(toServer[0]) + " " + std::to_string(toPeer[1])).c_str()));
  }

  void TearDown() override {
    peer->closeWriteFd();
    if (started) server->stop();
    server.reset();
    peer.reset();
  }

  void start(long heartBeatMs = 60000) {
    server->setHeartBeatInterval(heartBeatMs);
    ASSERT_TRUE(server->init());
    started = true;
  }

  void send(uint32_t type, uint32_t seq, const void* payload = nullptr, size_t len = 0) {
    MsgPtr msg(Msg::create(16 + len, type, seq));
    if (len) std::memcpy(msg->payload(), payload, len);
    IOError err;
    ASSERT_EQ(0, peer->sendMsg(msg.get(), err));
  }

  // Next message from the server within timeoutMs; null on time-out or end of stream.
  MsgPtr next(int timeoutMs = 5000) {
    struct pollfd p = {peer->getReadFd(), POLLIN, 0};
    if (poll(&p, 1, timeoutMs) != 1) return nullptr;
    IOError err;
    Msg hdr;
    if (peer->recvMsgHdr(&hdr, err) != 0) return nullptr;
    MsgPtr msg(Msg::createFor(hdr));
    if (peer->recvMsgRest(&hdr, msg.get(), err) != 0) return nullptr;
    return msg;
  }

  // Next message that is not a heartbeat.
  MsgPtr nextReal() {
    for (;;) {
      MsgPtr msg = next();
      if (!msg || msg->type != HeartBeat) return msg;
    }
  }

  std::unique_ptr<UnixMsgPipe> peer;
  std::unique_ptr<TestServer> server;
  bool started = false;
};

TEST_F(Dispatcher, HeartbeatsRepeatAtTheInterval) {
  start(10);
  for (int i = 0; i < 3; ++i) {
    MsgPtr msg = next();
    ASSERT_TRUE(msg) << "heartbeat " << i;
    EXPECT_EQ(msg->type, uint32_t(HeartBeat));
    EXPECT_EQ(msg->seq, 0u);
    ASSERT_EQ(msg->size, 20u);
    EXPECT_EQ(getU32(msg->payload()), 0u);
  }
}

// A request the handler swallowed is never answered; one it took is answered from another thread through
// its context, with the request's sequence number. The version answer shows the handler's number.
TEST_F(Dispatcher, HandlerAnswersFromAnotherThreadOrNotAtAll) {
  start();
  send(kSwallowedType, 5);
  send(kDeferredType, 77);
  MsgPtr msg = nextReal();
  ASSERT_TRUE(msg);
  EXPECT_EQ(msg->type, kDeferredAnswer);
  EXPECT_EQ(msg->seq, 77u);
  EXPECT_EQ(getU32(msg->payload()), 7u);
  server->waitOnReqSetEmpty();  // the send thread deleted the context after writing its response
  send(GetProtocolVersion, 6);
  msg = nextReal();
  ASSERT_TRUE(msg);
  EXPECT_EQ(msg->seq, 6u);
  EXPECT_EQ(getU32(msg->payload()), 42u);
}

// Each record stream follows its own toggle; the answer to a later request proves nothing was queued.
// A formatted text longer than the record's field is cut to it.
TEST_F(Dispatcher, LogRecordsFollowTheirToggles) {
  start();
  static const std::string kLong(1020, 'z');
  struct Case { uint32_t toggle, recordType; uint64_t recordSize; void (*raise)(ServerDispatcher&); };
  const Case cases[] = {
      {ToggleDbgLog, LogDbg, 1040, [](ServerDispatcher& s) { s.logDbg("%s%d", kLong.c_str(), 12345); }},
      {ToggleWrnLog, LogWrn, 1040, [](ServerDispatcher& s) { s.logWrn("%s%d", kLong.c_str(), 12345); }},
      {ToggleErrLog, LogErr, 1044, [](ServerDispatcher& s) { s.logErr(-3, "%s%d", kLong.c_str(), 12345); }},
  };
  uint32_t seq = 10;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.recordType);
    const uint32_t off = 1;
    send(c.toggle, ++seq, &off, 4);
    ASSERT_TRUE(nextReal());  // "OK"
    c.raise(*server);
    send(GetProtocolVersion, ++seq);
    MsgPtr msg = nextReal();
    ASSERT_TRUE(msg);
    EXPECT_EQ(msg->type, uint32_t(ProtocolVersionResp)) << "a record was sent while switched off";

    const uint32_t on = 0;
    send(c.toggle, ++seq, &on, 4);
    ASSERT_TRUE(nextReal());
    c.raise(*server);
    msg = nextReal();
    ASSERT_TRUE(msg);
    EXPECT_EQ(msg->type, c.recordType);
    EXPECT_EQ(msg->seq, 0u);
    ASSERT_EQ(msg->size, c.recordSize);
    const char* text = msg->payload() + (c.recordType == LogErr ? 4 : 0);
    EXPECT_EQ(std::string(text, strnlen(text, 1024)), kLong + "123");
    if (c.recordType == LogErr) {
      int32_t code;
      std::memcpy(&code, msg->payload(), 4);
      EXPECT_EQ(code, -3);  // host order, as the record carries it
    }
  }
}

TEST_F(Dispatcher, LongResponseTextsAreCutToTheirField) {
  start();
  Msg req;
  req.size = 16;
  req.type = Echo;
  req.seq = 9;
  server->sendGenericResponse(&req, 0, std::string(2000, 'z').c_str());
  MsgPtr resp = nextReal();
  ASSERT_TRUE(resp);
  EXPECT_EQ(resp->seq, 9u);
  EXPECT_EQ(std::string(resp->payload(), strnlen(resp->payload(), 256)), std::string(255, 'z'));
  EXPECT_EQ(getU32(resp->payload() + 256), 0u);
}

// A parent that sends without reading: the server stops reading once its queue is full, and when the
// parent finally reads, every request has its answer, in order, and the server reads on.
TEST_F(Dispatcher, ParentThatDoesNotReadStopsTheReceiverAndLosesNoAnswer) {
  start();
  const uint32_t kMost = 200000;
  const int out = peer->getWriteFd();
  fcntl(out, F_SETFL, fcntl(out, F_GETFL) | O_NONBLOCK);
  uint32_t sent = 0;
  while (sent < kMost) {
    unsigned char wire[16];
    Msg hdr;
    hdr.size = 16;
    hdr.type = GetProtocolVersion;
    hdr.seq = sent + 1;
    encodeHeader(hdr, wire);
    if (write(out, wire, sizeof wire) == static_cast<ssize_t>(sizeof wire)) {
      ++sent;
      continue;
    }
    struct pollfd p = {out, POLLOUT, 0};
    if (poll(&p, 1, 300) == 0) break;  // the server has stopped reading
  }
  EXPECT_LT(sent, kMost) << "the server kept reading requests it could not answer";
  for (uint32_t seq = 1; seq <= sent; ++seq) {
    MsgPtr msg = nextReal();
    ASSERT_TRUE(msg) << "answer " << seq << " of " << sent << " lost";
    ASSERT_EQ(msg->type, uint32_t(ProtocolVersionResp));
    ASSERT_EQ(msg->seq, seq);
  }
  fcntl(out, F_SETFL, fcntl(out, F_GETFL) & ~O_NONBLOCK);
  send(GetProtocolVersion, sent + 1);  // read once the queue has room again
  MsgPtr msg = nextReal();
  ASSERT_TRUE(msg) << "the server did not resume reading";
  EXPECT_EQ(msg->seq, sent + 1);
}

// The peer keeps its end open and silent: stopping must not wait for it.
TEST_F(Dispatcher, StopInterruptsAReceiveInProgress) {
  start(5);
  ASSERT_TRUE(next());
  const auto begin = std::chrono::steady_clock::now();
  server->stop();
  started = false;
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
}

TEST_F(Dispatcher, FailedWriteEndsRunAndDestructionEndsTheBlockedReceiver) {
  start();
  ASSERT_TRUE(next());
  peer->closeReadFd();
  server->logDbg("undeliverable");
  server->run();  // returns once the send thread has ended
  server->logDbg("queued after the end: freed at once");
  server.reset();  // the receive thread still waits for input: destruction must end and join it
  started = false;
  server.reset(new TestServer(""));
}

}  // namespace
