#include "tiny/vmutex.h"

#include <gtest/gtest.h>

#include <thread>

using vorlane::tiny::VMutex;
using vorlane::tiny::VMutexGuard;
using vorlane::tiny::VMutexReadGuard;

namespace {

bool freeForOtherThread(VMutex& m) {
  bool got = false;
  std::thread t([&] {
    got = m.tryLock();
    if (got) m.unlock();
  });
  t.join();
  return got;
}

}  // namespace

// Recursive, and readers exclude each other too: every flavour is the same exclusive lock.
TEST(VMutex, NestedLocksOnOneThreadNeedAsManyUnlocks) {
  VMutex m;
  {
    VMutexReadGuard reader(m);
    VMutexGuard nested(m);
    EXPECT_FALSE(freeForOtherThread(m));
  }
  EXPECT_TRUE(freeForOtherThread(m));
  m.lock();
  EXPECT_TRUE(m.tryLock()) << "the owner relocks without waiting";
  m.unlock();
  EXPECT_FALSE(freeForOtherThread(m)) << "one unlock of two must keep it held";
  m.unlock();
  EXPECT_TRUE(freeForOtherThread(m));
}
