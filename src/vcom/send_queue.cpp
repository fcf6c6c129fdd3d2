#include "vcom/send_queue.h"

#include <algorithm>

#include "vcom/request_context.h"

namespace vorlane {
namespace vcom {

SendQueue::SendQueue(size_t maxBytes) : maxBytes_(maxBytes), lastMoved_(Clock::now()) {}

SendQueue::~SendQueue() { close(); }

void SendQueue::add(std::list<Item>& list, const Item& item) {
  if (idle()) {
    lastMoved_ = Clock::now();
    ready_.notify_one();
  }
  list.push_back(item);
  bytes_ += item.charge;
}

void SendQueue::push(Msg* msg, SendKind kind) {
  if (!msg) return;
  const Item item = {msg, nullptr, kind, static_cast<size_t>(msg->size) + kItemOverhead};
  std::unique_lock<std::mutex> lock(mutex_);
  if (closed_) {
    lock.unlock();
    delete msg;
    return;
  }
  if (kind == SendKind::Replaceable && bytes_ + item.charge > maxBytes_) {
    // Only the newest message of the type may go: replacing one behind a Normal message of the
    // same type would send the newer message first.
    auto it = messages_.rbegin();
    while (it != messages_.rend() && it->msg->type != msg->type) ++it;
    if (it != messages_.rend() && it->kind == SendKind::Replaceable) {
      Msg* old = it->msg;
      bytes_ = bytes_ - it->charge + item.charge;
      *it = item;
      lock.unlock();
      delete old;
      return;
    }
  }
  add(messages_, item);
}

void SendQueue::push(RequestContext* ctx) {
  if (!ctx) return;
  const Msg* response = ctx->response();
  const Item item = {nullptr, ctx, SendKind::Normal,
                     (response ? static_cast<size_t>(response->size) : 0) + kItemOverhead};
  std::unique_lock<std::mutex> lock(mutex_);
  if (closed_) {
    lock.unlock();
    delete ctx;
    return;
  }
  add(contexts_, item);
}

Msg* SendQueue::pop() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    ready_.wait(lock, [this] { return closed_ || !messages_.empty() || !contexts_.empty(); });
    if (closed_) return nullptr;
    std::list<Item>& from = messages_.empty() ? contexts_ : messages_;
    const Item item = from.front();
    from.pop_front();
    bytes_ -= item.charge;
    if (item.msg) {
      writing_ = true;
      return item.msg;
    }
    Msg* response = item.ctx->checkOutResponse();
    writing_ = response != nullptr;
    // The context's destructor takes the dispatcher's request-set lock.
    lock.unlock();
    delete item.ctx;
    if (response) return response;
    lock.lock();
  }
}

void SendQueue::written() {
  std::lock_guard<std::mutex> lock(mutex_);
  writing_ = false;
  lastMoved_ = Clock::now();
  moved_.notify_all();
}

bool SendQueue::waitForRoom(long timeoutMs) {
  std::unique_lock<std::mutex> lock(mutex_);
  return moved_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                         [this] { return closed_ || bytes_ < maxBytes_; }) &&
         !closed_;
}

bool SendQueue::waitUntilSent(long idleMs) {
  const Clock::time_point start = Clock::now();
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    if (closed_) return false;
    if (idle()) return true;
    // Every message that leaves starts the time again: a peer that keeps reading is waited for, one
    // that takes nothing is given up on.
    const Clock::time_point deadline = std::max(start, lastMoved_) + std::chrono::milliseconds(idleMs);
    if (Clock::now() >= deadline) return false;
    moved_.wait_until(lock, deadline);
  }
}

bool SendQueue::stalledFor(long idleMs) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return !idle() && Clock::now() - lastMoved_ >= std::chrono::milliseconds(idleMs);
}

void SendQueue::close() {
  std::list<Item> dropped;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    dropped.swap(messages_);
    dropped.splice(dropped.end(), contexts_);
    bytes_ = 0;
    ready_.notify_all();
    moved_.notify_all();
  }
  for (const Item& item : dropped) {
    delete item.msg;
    delete item.ctx;
  }
}

bool SendQueue::closed() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return closed_;
}

}  // namespace vcom
}  // namespace vorlane
