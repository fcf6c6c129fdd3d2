#include "stat/store_prefetch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "../support/temp_dir.h"

using vorlane::testing::TempDir;

namespace {

// Waits up to 10 s for the prefetch to have walked `count` files; the count it reached.
uint64_t walkedAfterWaiting(const StorePrefetch& prefetch, uint64_t count) {
  for (int i = 0; i < 1000 && prefetch.walked() < count; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return prefetch.walked();
}

}  // namespace

// The prefetch runs at most its lead ahead of the job, goes on when the job has taken half of it, and is
// stopped by its destructor while it waits.
TEST(StorePrefetch, KeepsItsLeadAheadOfTheJob) {
  const uint64_t lead = StorePrefetch::kAhead;
  const uint64_t files = lead + lead / 2 + 10;
  TempDir dir;
  dir.write("mail/d.example/user/status.fld", "T0\n");
  for (uint64_t i = 0; i < files; ++i) dir.write("mail/d.example/user/#msgs/" + std::to_string(i) + ".eml", "x\n");
  {
    StorePrefetch prefetch(dir.file("mail"));
    EXPECT_EQ(walkedAfterWaiting(prefetch, lead), lead);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(prefetch.walked(), lead) << "ran ahead of its lead";
    for (uint64_t i = 0; i < lead / 2 - 1; ++i) prefetch.messageTaken();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(prefetch.walked(), lead) << "went on before half of its lead was taken";
    prefetch.messageTaken();
    EXPECT_EQ(walkedAfterWaiting(prefetch, lead + lead / 2), lead + lead / 2);
  }
  StorePrefetch whole(dir.file("mail"));
  for (uint64_t i = 0; i < files; ++i) whole.messageTaken();
  EXPECT_EQ(walkedAfterWaiting(whole, files), files);
}
