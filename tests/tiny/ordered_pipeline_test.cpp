#include "tiny/ordered_pipeline.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

using vorlane::tiny::OrderedPipeline;

namespace {

// Items take uneven times, so that with several workers later items often finish first.
unsigned unevenSquare(unsigned i) {
  volatile unsigned sink = 0;
  for (unsigned k = 0; k < (i * 37 % 11) * 2000; ++k) sink = sink + k;
  return i * i;
}

}  // namespace

// The consumer's submit-while-not-full / next loop sees every result once, in submission order, and no
// more items are in work at once than there are workers or window slots.
TEST(OrderedPipeline, ResultsComeInSubmissionOrderWithinTheWindow) {
  struct Case {
    unsigned threads;
    size_t window;
  };
  for (const Case& c : {Case{1, 4}, Case{2, 1}, Case{2, 3}, Case{8, 64}, Case{8, 5}}) {
    std::atomic<unsigned> inWork{0}, mostInWork{0};
    OrderedPipeline<unsigned, unsigned> pipeline(c.threads, c.window, [&](const unsigned& i, unsigned& out) {
      const unsigned now = ++inWork;
      unsigned seen = mostInWork.load();
      while (now > seen && !mostInWork.compare_exchange_weak(seen, now)) {
      }
      out = unevenSquare(i);
      --inWork;
    });
    const unsigned items = 500;
    std::vector<unsigned> results;
    unsigned submitted = 0, result = 0;
    while (submitted < items || !pipeline.empty()) {
      if (submitted < items && !pipeline.full()) {
        pipeline.prepare() = submitted++;
        pipeline.publish();
        continue;
      }
      ASSERT_TRUE(pipeline.next(result));
      results.push_back(result);
    }
    EXPECT_FALSE(pipeline.next(result));
    ASSERT_EQ(results.size(), items) << c.threads << " threads";
    for (unsigned i = 0; i < items; ++i) ASSERT_EQ(results[i], i * i) << "item " << i << ", " << c.threads << " threads";
    // The workers, and the consumer on an item none of them has begun.
    EXPECT_LE(mostInWork.load(), std::min<size_t>(c.threads < 2 ? 1 : c.threads + 1, c.window)) << c.threads << " threads";
    EXPECT_EQ(pipeline.workerCount(), c.threads < 2 ? 0u : c.threads);
  }
}

// Each item waits (up to 10 s) until the other has arrived: a pipeline that works serially makes them
// time out.
TEST(OrderedPipeline, TwoWorkersHoldTwoItemsAtOnce) {
  std::mutex mutex;
  std::condition_variable arrival;
  unsigned arrived = 0;
  OrderedPipeline<int, bool> pipeline(2, 4, [&](const int&, bool& met) {
    std::unique_lock<std::mutex> lock(mutex);
    ++arrived;
    arrival.notify_all();
    met = arrival.wait_for(lock, std::chrono::seconds(10), [&] { return arrived == 2; });
  });
  for (int i = 0; i < 2; ++i) {
    pipeline.prepare() = i;
    pipeline.publish();
  }
  bool met = false;
  ASSERT_TRUE(pipeline.next(met));
  EXPECT_TRUE(met);
  ASSERT_TRUE(pipeline.next(met));
  EXPECT_TRUE(met);
}

// A stop while workers are busy: items not started are withdrawn, the started ones are finished before
// discard() returns (nothing works on an item afterwards), and the pipeline carries on with new items.
TEST(OrderedPipeline, DiscardWithdrawsWaitingItemsAndWaitsForStartedOnes) {
  std::mutex mutex;
  std::condition_variable changed;
  bool gateOpen = false;
  unsigned blocked = 0;
  std::atomic<unsigned> inWork{0}, worked{0};
  OrderedPipeline<int, int> pipeline(2, 8, [&](const int& item, int& out) {
    ++inWork;
    if (item < 2) {
      std::unique_lock<std::mutex> lock(mutex);
      ++blocked;
      changed.notify_all();
      changed.wait(lock, [&] { return gateOpen; });
    }
    out = item;
    ++worked;
    --inWork;
  });
  for (int i = 0; i < 8; ++i) {
    pipeline.prepare() = i;
    pipeline.publish();
  }
  {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return blocked == 2; });
  }
  std::thread opener([&] {
    // Gives discard() time to withdraw the waiting items before the workers are free to take them.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    std::lock_guard<std::mutex> lock(mutex);
    gateOpen = true;
    changed.notify_all();
  });
  pipeline.discard();
  EXPECT_EQ(inWork.load(), 0u);
  EXPECT_TRUE(pipeline.empty());
  const unsigned workedAtDiscard = worked.load();
  opener.join();

  pipeline.prepare() = 100;
  pipeline.publish();
  int out = 0;
  ASSERT_TRUE(pipeline.next(out));
  EXPECT_EQ(out, 100) << "no stale result of a discarded item";
  EXPECT_FALSE(pipeline.next(out));
  EXPECT_EQ(worked.load(), workedAtDiscard + 1) << "a withdrawn item was worked on after discard()";
}
