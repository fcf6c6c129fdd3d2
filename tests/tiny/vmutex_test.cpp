#include "tiny/vmutex.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

using vorlane::tiny::VMutex;
using vorlane::tiny::VMutexGuard;
using vorlane::tiny::VMutexReadGuard;
using vorlane::tiny::VMutexWriteGuard;

namespace {

// Whether another thread could take the mutex right now.
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

TEST(VMutex, NestedLocksOnOneThreadNeedAsManyUnlocks) {
  VMutex m;
  m.lock();
  EXPECT_TRUE(m.tryLock()) << "recursive: the owner relocks without waiting";
  m.unlock();
  EXPECT_FALSE(freeForOtherThread(m)) << "one unlock of two must keep it held";
  m.unlock();
  EXPECT_TRUE(freeForOtherThread(m));
}

// Every lock flavour, readers included, is the same exclusive lock.
TEST(VMutex, EveryLockFlavourExcludesOtherThreads) {
  struct Case {
    const char* name;
    std::function<void(VMutex&)> take;
  };
  const Case cases[] = {
      {"lock", [](VMutex& m) { m.lock(); }},
      {"readLock", [](VMutex& m) { m.readLock(); }},
      {"writeLock", [](VMutex& m) { m.writeLock(); }},
      {"uncountedLock", [](VMutex& m) { m.uncountedLock(); }},
      {"tryReadLock", [](VMutex& m) { ASSERT_TRUE(m.tryReadLock()); }},
      {"tryWriteLock", [](VMutex& m) { ASSERT_TRUE(m.tryWriteLock()); }},
  };
  for (const Case& c : cases) {
    VMutex m;
    c.take(m);
    EXPECT_FALSE(freeForOtherThread(m)) << c.name;
    m.uncountedUnlock();
    EXPECT_TRUE(freeForOtherThread(m)) << c.name;
  }
}

TEST(VMutexGuards, HoldForTheirScopeOnly) {
  VMutex m;
  {
    VMutexGuard g(m);
    EXPECT_FALSE(freeForOtherThread(m));
  }
  {
    VMutexReadGuard g(&m);
    EXPECT_FALSE(freeForOtherThread(m));
  }
  {
    VMutexWriteGuard g(m);
    VMutexReadGuard nested(m);
    EXPECT_FALSE(freeForOtherThread(m));
  }
  EXPECT_TRUE(freeForOtherThread(m));
}

// The counter is only consistent when the guard really serialises.
TEST(VMutexGuards, SerialiseConcurrentIncrements) {
  VMutex m;
  long counter = 0;
  auto work = [&] {
    for (int i = 0; i < 20000; ++i) {
      VMutexGuard g(m);
      ++counter;
    }
  };
  std::thread a(work), b(work);
  a.join();
  b.join();
  EXPECT_EQ(counter, 40000);
}
