// The dispatcher's outgoing queue: any thread queues messages (and request contexts whose response is
// ready); the send thread takes them one at a time, messages before contexts, each kind in queue order,
// and reports each one written once it has left.
//
// Bound: the queue holds about kMaxBytes, each item charged with its size plus kItemOverhead. It never
// drops what a peer waits for: a Normal message is always taken, and the producer of requests (the
// receive thread) waits for room before it reads the next one. When the queue is full, a Replaceable
// message (a progress event, a heartbeat) takes the place of the newest unsent message of its type
// when that one is Replaceable too (it is deleted); below the bound every message is kept, so a peer that keeps up sees every
// one. Memory therefore stays below kMaxBytes plus the answers of one request and one message per
// Replaceable type.
//
// Progress: the queue remembers when it last moved (a message written, or work arriving in an idle
// queue). Waiting for an empty queue gives up once it has not moved for the idle time, so a peer that
// takes nothing is given up on, while a peer that keeps reading is waited for.
//
// Closing drops what is queued and everything queued later, and wakes every waiter.
// Ownership: a queued message or context belongs to the queue until pop hands it out.
// Thread-safe; the lock is never held while a message is written or a context deleted.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>

#include "vcom/msg.h"

namespace vorlane {
namespace vcom {

class RequestContext;

enum class SendKind {
  Normal,       // always sent
  Replaceable,  // superseded by a newer message of the same type while the queue is full
};

class SendQueue {
 public:
  static const size_t kMaxBytes = 256 * 1024;
  // Allocation and list bookkeeping of one queued item, so that many tiny messages count for what
  // they cost.
  static const size_t kItemOverhead = 64;

  explicit SendQueue(size_t maxBytes = kMaxBytes);
  SendQueue(const SendQueue&) = delete;
  SendQueue& operator=(const SendQueue&) = delete;
  ~SendQueue();

  // Takes msg (null is ignored); deleted at once when the queue is closed.
  void push(Msg* msg, SendKind kind = SendKind::Normal);
  // Takes ctx, whose response is set; deleted at once when the queue is closed.
  void push(RequestContext* ctx);

  // Send thread: blocks until there is something to write; null once the queue is closed. The caller
  // owns the message and calls written() when it has left (or could not be written).
  Msg* pop();
  void written();

  // Blocks while the queue is full, at most timeoutMs. True when there is room; false on time-out or
  // once closed.
  bool waitForRoom(long timeoutMs);
  // Blocks until everything queued has been written. False when closed first or when nothing has left
  // for idleMs since the call or the last message written, whichever is later.
  bool waitUntilSent(long idleMs);
  // Something waits to be written and nothing has left for idleMs.
  bool stalledFor(long idleMs) const;

  void close();
  bool closed() const;

 private:
  typedef std::chrono::steady_clock Clock;
  struct Item {
    Msg* msg;
    RequestContext* ctx;
    SendKind kind;
    size_t charge;
  };

  bool idle() const { return messages_.empty() && contexts_.empty() && !writing_; }
  void add(std::list<Item>& list, const Item& item);

  const size_t maxBytes_;
  mutable std::mutex mutex_;
  std::condition_variable ready_;  // something to write, or closed
  std::condition_variable moved_;  // a message left, or closed
  std::list<Item> messages_;
  std::list<Item> contexts_;
  size_t bytes_ = 0;
  bool writing_ = false;  // the send thread holds a message it has not reported written
  bool closed_ = false;
  Clock::time_point lastMoved_;
};

}  // namespace vcom
}  // namespace vorlane
