// Runs one work function over a stream of items on worker threads and hands the results back strictly in
// the order the items were submitted. At most `window` items are in the pipeline at once (submitted and
// not yet taken), so memory stays bounded whatever the stream's length; item and result slots are reused.
// With fewer than two threads no thread is started: next() does the work inline on the caller's thread.
//
// Contract: one consumer thread calls prepare, publish, next, discard and the queries; the work function runs on
// the workers, one item at a time per worker, and must not throw. An item and its result slot belong to
// exactly one worker while it works on them; when the consumer asks for an item no worker has begun, it
// does that item itself. discard() withdraws every item no worker has started and
// waits for the started ones, so once it returns nothing touches anything an item referred to (an open
// directory, say). The destructor discards and joins the workers. Nobody spins: workers and the consumer
// wait on condition variables. If worker threads cannot be started, the pipeline runs with those it got,
// or inline.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "tiny/thread.h"

namespace vorlane {
namespace tiny {

template <class Item, class Result>
class OrderedPipeline {
 public:
  using Work = std::function<void(const Item&, Result&)>;

  OrderedPipeline(unsigned threads, size_t window, Work work)
      : work_(std::move(work)), slots_(window ? window : 1) {
    if (threads < 2) return;
    for (unsigned i = 0; i < threads; ++i) {
      unsigned long handle = 0;
      if (!createThread(&OrderedPipeline::workerEntry, this, &handle, ThreadAttributes(0, "pipeline"))) break;
      workers_.push_back(handle);
    }
  }

  ~OrderedPipeline() {
    discard();
    {
      std::lock_guard<std::mutex> lock(mutex_);
      quitting_ = true;
    }
    workAvailable_.notify_all();
    for (unsigned long handle : workers_) waitForThread(handle);
  }

  OrderedPipeline(const OrderedPipeline&) = delete;
  OrderedPipeline& operator=(const OrderedPipeline&) = delete;

  // The number of worker threads actually running (0: the work is done inline).
  size_t workerCount() const { return workers_.size(); }
  size_t window() const { return slots_.size(); }
  bool full() const { return tail_ - head_ == slots_.size(); }
  bool empty() const { return tail_ == head_; }

  // The free slot the next item is written into, in place, so that its buffers are reused; the caller
  // makes sure the pipeline is not full. The item joins the pipeline with publish().
  Item& prepare() { return slots_[tail_ % slots_.size()].item; }
  void publish() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      slots_[tail_ % slots_.size()].done = false;
      ++tail_;
    }
    if (!workers_.empty()) workAvailable_.notify_one();
  }

  // Waits for the result of the oldest item and swaps it into out (so the caller's buffers are reused
  // for a later item). False when nothing is pending.
  bool next(Result& out) {
    if (empty()) return false;
    Slot& slot = slots_[head_ % slots_.size()];
    if (workers_.empty()) {
      work_(slot.item, slot.result);
    } else {
      std::unique_lock<std::mutex> lock(mutex_);
      if (started_ == head_) {
        // No worker has begun it: doing it here costs less than waiting for one to wake up.
        ++started_;
        lock.unlock();
        work_(slot.item, slot.result);
      } else {
        consumerWaits_ = true;
        resultReady_.wait(lock, [&] { return slot.done; });
        consumerWaits_ = false;
      }
    }
    std::swap(out, slot.result);
    std::lock_guard<std::mutex> lock(mutex_);
    ++head_;
    return true;
  }

  // Drops every pending item and result: items not yet started are withdrawn, started ones are waited
  // for. The pipeline is empty and usable afterwards.
  void discard() {
    std::unique_lock<std::mutex> lock(mutex_);
    tail_ = workers_.empty() ? head_ : started_;
    consumerWaits_ = true;
    resultReady_.wait(lock, [&] { return busy_ == 0; });
    consumerWaits_ = false;
    head_ = tail_;
  }

 private:
  struct Slot {
    Item item{};
    Result result{};
    bool done = false;
  };

  static void workerEntry(void* self) { static_cast<OrderedPipeline*>(self)->workLoop(); }

  void workLoop() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      workAvailable_.wait(lock, [&] { return quitting_ || started_ < tail_; });
      if (quitting_) return;
      Slot& slot = slots_[started_ % slots_.size()];
      ++started_;
      ++busy_;
      lock.unlock();
      work_(slot.item, slot.result);
      lock.lock();
      slot.done = true;
      --busy_;
      // The consumer waits either for this very slot or, in discard(), for the workers to go idle.
      if (consumerWaits_) resultReady_.notify_one();
    }
  }

  const Work work_;
  std::vector<Slot> slots_;
  std::vector<unsigned long> workers_;
  std::mutex mutex_;
  std::condition_variable workAvailable_;
  std::condition_variable resultReady_;
  // Sequence numbers: head_ is the oldest item not taken, started_ the next one a worker takes, tail_ the
  // next one submitted. head_ <= started_ <= tail_ with workers; started_ stays 0 inline.
  size_t head_ = 0;
  size_t started_ = 0;
  size_t tail_ = 0;
  unsigned busy_ = 0;
  bool consumerWaits_ = false;
  bool quitting_ = false;
};

}  // namespace tiny
}  // namespace vorlane
