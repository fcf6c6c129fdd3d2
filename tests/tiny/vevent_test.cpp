#include "tiny/vevent.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

using vorlane::tiny::VEvent;

// A signal with nobody waiting is kept; several count as one; the first wait consumes it.
TEST(VEvent, AutoResetsAfterOneWait) {
  VEvent e;
  e.signal();
  e.signal();
  e.wait();
  errno = 0;
  EXPECT_FALSE(e.timedwait(20));
  EXPECT_EQ(errno, ETIMEDOUT);
  e.signal();
  EXPECT_TRUE(e.timedwait(-1)) << "-1 waits without limit";
  EXPECT_FALSE(e.timedwait(0));
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
