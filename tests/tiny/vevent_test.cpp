#include "tiny/vevent.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <thread>

using vorlane::tiny::VEvent;

TEST(VEvent, SignalBeforeWaitIsKeptAndConsumedOnce) {
  VEvent e;
  e.signal();
  e.wait();  // returns at once: the flag was kept
  errno = 0;
  EXPECT_FALSE(e.timedwait(20)) << "the flag must be reset by the first wait";
  EXPECT_EQ(errno, ETIMEDOUT);
}

TEST(VEvent, SeveralSignalsCountAsOne) {
  VEvent e;
  e.signal();
  e.signal();
  e.signal();
  EXPECT_TRUE(e.timedwait(0));
  EXPECT_FALSE(e.timedwait(10));
}

TEST(VEvent, TimedWaitMinusOneWaitsLikeWait) {
  VEvent e;
  e.signal();
  EXPECT_TRUE(e.timedwait(-1));
  EXPECT_FALSE(e.timedwait(0));
}

TEST(VEvent, TimedWaitTimesOutNoEarlierThanAsked) {
  VEvent e;
  auto before = std::chrono::steady_clock::now();
  EXPECT_FALSE(e.timedwait(30));
  auto waited = std::chrono::steady_clock::now() - before;
  EXPECT_GE(std::chrono::duration_cast<std::chrono::milliseconds>(waited).count(), 30);
}

TEST(VEvent, SignalFromAnotherThreadReleasesTheWaiter) {
  VEvent request, reply;
  std::thread t([&] {
    request.wait();
    reply.signal();
  });
  request.signal();
  EXPECT_TRUE(reply.timedwait(10000));
  t.join();
}

// A ping-pong that would hang or lose a wake-up if signal and wait raced badly.
TEST(VEvent, PingPongLosesNoSignal) {
  VEvent ping, pong;
  const int rounds = 2000;
  std::thread t([&] {
    for (int i = 0; i < rounds; ++i) {
      ping.wait();
      pong.signal();
    }
  });
  int answered = 0;
  for (int i = 0; i < rounds; ++i) {
    ping.signal();
    if (pong.timedwait(10000)) ++answered;
  }
  t.join();
  EXPECT_EQ(answered, rounds);
}
