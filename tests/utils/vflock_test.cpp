#include "utils/vflock.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "../support/temp_dir.h"

using vorlane::testing::TempDir;
using vorlane::utils::VFLock;

namespace {

// The lock file, a VFLock that opened it itself, and a second open description of it: flock
// conflicts with that even inside this process, so it shows what the object really holds.
class VFLockTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(lock_.init(path_.c_str(), true));
    other_ = open(path_.c_str(), O_RDWR);
  }
  void TearDown() override { close(other_); }
  bool otherCan(int op) {
    if (flock(other_, op | LOCK_NB) != 0) return false;
    flock(other_, LOCK_UN);
    return true;
  }

  TempDir dir_;
  const std::string path_ = dir_.file("lock");
  VFLock lock_;
  int other_ = -1;
};

}  // namespace

TEST_F(VFLockTest, SharedLocksNestAndOnlyTheLastUnlockReleases) {
  EXPECT_TRUE(lock_.readLock());
  EXPECT_TRUE(lock_.tryReadLock());
  EXPECT_FALSE(lock_.lock()) << "no upgrade from shared to exclusive";
  EXPECT_EQ(lock_.lockCounter(), 2);
  lock_.unlock();
  EXPECT_TRUE(otherCan(LOCK_SH));
  EXPECT_FALSE(otherCan(LOCK_EX)) << "one unlock of two keeps the flock";
  lock_.unlock();
  EXPECT_TRUE(otherCan(LOCK_EX));
}

TEST_F(VFLockTest, ASharedRequestUnderAnExclusiveLockDeepensIt) {
  EXPECT_TRUE(lock_.lock());
  EXPECT_TRUE(lock_.readLock());
  EXPECT_EQ(lock_.lockCounter(), -2);
  lock_.unlock();
  EXPECT_FALSE(otherCan(LOCK_SH));
  lock_.unlock();
  EXPECT_TRUE(otherCan(LOCK_EX));
}

TEST_F(VFLockTest, OnlyTheConstructingThreadMayLock) {
  bool took = true;
  std::thread t([&] { took = lock_.lock() || lock_.tryReadLock(); });
  t.join();
  EXPECT_FALSE(took);
  EXPECT_EQ(lock_.lockCounter(), 0);
  EXPECT_TRUE(otherCan(LOCK_EX)) << "no system call was made";
}

// Destructor and detach release the whole nested flock; only an owned descriptor is closed.
TEST(VFLock, DestructionAndDetachReleaseTheWholeLock) {
  TempDir dir;
  const std::string path = dir.file("lock");
  int fd = open(path.c_str(), O_RDWR | O_CREAT, 0600);
  int other = open(path.c_str(), O_RDWR);
  {
    VFLock owning;
    ASSERT_TRUE(owning.init(path.c_str(), false));
    ASSERT_TRUE(owning.lock());
    ASSERT_TRUE(owning.lock());
  }
  EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
  flock(other, LOCK_UN);
  VFLock bound;
  ASSERT_TRUE(bound.init(fd));
  ASSERT_TRUE(bound.lock());
  ASSERT_TRUE(bound.readLock());
  bound.detach();
  EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
  EXPECT_NE(fcntl(fd, F_GETFD), -1) << "the descriptor belongs to its owner";
  close(other);
  close(fd);
}
