#include "utils/vflock.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "../tiny/temp_dir.h"

using vorlane::testing::TempDir;
using vorlane::utils::VFLock;

namespace {

// A second open description of the lock file: flock conflicts with it even inside this process,
// so it shows what the object really holds.
class Observer {
 public:
  explicit Observer(const std::string& path) : fd_(open(path.c_str(), O_RDWR | O_CREAT, 0600)) {}
  ~Observer() { close(fd_); }
  bool canLockExclusive() { return probe(LOCK_EX); }
  bool canLockShared() { return probe(LOCK_SH); }

 private:
  bool probe(int op) {
    if (flock(fd_, op | LOCK_NB) != 0) return false;
    flock(fd_, LOCK_UN);
    return true;
  }
  int fd_;
};

int openDescriptorCount() {
  int n = 0;
  if (DIR* d = opendir("/proc/self/fd")) {
    while (readdir(d)) ++n;
    closedir(d);
  }
  return n;
}

class VFLockTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(lock_.init(path_.c_str(), true)); }

  TempDir dir_;
  const std::string path_ = dir_.file("lock");
  VFLock lock_;
  Observer other_{path_};
};

}  // namespace

TEST_F(VFLockTest, SharedLocksNestAndOnlyTheLastUnlockReleases) {
  EXPECT_TRUE(lock_.readLock());
  EXPECT_TRUE(lock_.tryReadLock());
  EXPECT_EQ(lock_.lockCounter(), 2);
  EXPECT_TRUE(other_.canLockShared());
  EXPECT_FALSE(other_.canLockExclusive());
  lock_.unlock();
  EXPECT_FALSE(other_.canLockExclusive()) << "one unlock of two keeps the flock";
  lock_.unlock();
  EXPECT_EQ(lock_.lockCounter(), 0);
  EXPECT_TRUE(other_.canLockExclusive());
}

TEST_F(VFLockTest, ASharedRequestUnderAnExclusiveLockDeepensIt) {
  EXPECT_TRUE(lock_.lock());
  EXPECT_TRUE(lock_.readLock());
  EXPECT_EQ(lock_.lockCounter(), -2);
  EXPECT_FALSE(other_.canLockShared());
  lock_.unlock();
  EXPECT_FALSE(other_.canLockShared());
  lock_.unlock();
  EXPECT_TRUE(other_.canLockExclusive());
}

TEST_F(VFLockTest, ThereIsNoUpgradeFromSharedToExclusive) {
  ASSERT_TRUE(lock_.readLock());
  EXPECT_FALSE(lock_.lock());
  EXPECT_FALSE(lock_.tryWriteLock());
  EXPECT_EQ(lock_.lockCounter(), 1);
  EXPECT_TRUE(other_.canLockShared()) << "still shared, not exclusive";
  EXPECT_FALSE(other_.canLockExclusive()) << "the shared lock stays";
}

TEST_F(VFLockTest, ATryAgainstAnotherHolderFailsAndLeavesTheCounter) {
  int fd = open(path_.c_str(), O_RDWR);
  ASSERT_EQ(flock(fd, LOCK_EX), 0);
  EXPECT_FALSE(lock_.tryLock());
  EXPECT_FALSE(lock_.tryReadLock());
  EXPECT_EQ(lock_.lockCounter(), 0);
  close(fd);
  EXPECT_TRUE(lock_.tryWriteLock());
  EXPECT_EQ(lock_.lockCounter(), -1);
}

TEST_F(VFLockTest, OnlyTheConstructingThreadMayLock) {
  bool took[4] = {true, true, true, true};
  bool sameThread = true;
  std::thread t([&] {
    sameThread = lock_.testThreadID();
    took[0] = lock_.lock();
    took[1] = lock_.tryLock();
    took[2] = lock_.readLock();
    took[3] = lock_.tryReadLock();
  });
  t.join();
  EXPECT_FALSE(sameThread);
  for (bool b : took) EXPECT_FALSE(b);
  EXPECT_EQ(lock_.lockCounter(), 0);
  EXPECT_TRUE(other_.canLockExclusive()) << "no system call was made";
  EXPECT_TRUE(lock_.testThreadID());
}

TEST_F(VFLockTest, DecrementingTheCounterMakesNoSystemCall) {
  ASSERT_TRUE(lock_.lock());
  lock_.decrementLockCounter();
  EXPECT_EQ(lock_.lockCounter(), 0);
  EXPECT_FALSE(other_.canLockShared()) << "the flock is still held";
  lock_.decrementLockCounter();
  EXPECT_EQ(lock_.lockCounter(), 0) << "never past 0";
  lock_.unlock();  // from 0 it still releases
  EXPECT_TRUE(other_.canLockExclusive());
}

TEST(VFLock, DestructorReleasesANestedLockAndClosesItsOwnDescriptor) {
  TempDir dir;
  const std::string path = dir.file("lock");
  Observer other(path);
  int before = openDescriptorCount();
  {
    VFLock lock;
    ASSERT_TRUE(lock.init(path.c_str(), false));
    ASSERT_TRUE(lock.lock());
    ASSERT_TRUE(lock.lock());
    EXPECT_EQ(openDescriptorCount(), before + 1);
  }
  EXPECT_EQ(openDescriptorCount(), before);
  EXPECT_TRUE(other.canLockExclusive());
}

TEST(VFLock, BoundToAForeignDescriptorDetachReleasesButDoesNotClose) {
  TempDir dir;
  const std::string path = dir.file("lock");
  Observer other(path);
  int fd = open(path.c_str(), O_RDWR);
  ASSERT_GE(fd, 0);
  {
    VFLock lock;
    EXPECT_TRUE(lock.init(fd));
    ASSERT_TRUE(lock.lock());
    ASSERT_TRUE(lock.readLock());
    lock.detach();
    EXPECT_FALSE(lock.isValid());
    EXPECT_TRUE(other.canLockExclusive()) << "the whole nested lock was released";
    EXPECT_FALSE(lock.lock()) << "a detached lock has nothing to lock";
    lock.unlock();  // does nothing when unbound
  }
  EXPECT_NE(fcntl(fd, F_GETFD), -1) << "the descriptor belongs to its owner";
  close(fd);
}

TEST(VFLock, InitRules) {
  TempDir dir;
  VFLock lock;
  EXPECT_FALSE(lock.init(nullptr, true));
  EXPECT_FALSE(lock.init(dir.file("missing").c_str(), false));
  EXPECT_FALSE(lock.isValid());
  ASSERT_TRUE(lock.init(dir.file("first").c_str(), true));
  EXPECT_FALSE(lock.init(dir.file("second").c_str(), true)) << "already bound";
  EXPECT_STREQ(lock.path(), dir.file("second").c_str()) << "only the stored name changes";
  EXPECT_NE(access(dir.file("second").c_str(), F_OK), 0);
  std::string longName(600, 'n');
  VFLock other;
  other.init(longName.c_str(), false);
  EXPECT_EQ(strlen(other.path()), 511u);
}
