// The send queue without a pipe: producer threads against a consumer thread that plays the send thread,
// the coalescing of replaceable messages at the bound, and the waits that give up on a stalled consumer.
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "vcom/send_queue.h"

using namespace vorlane::vcom;

namespace {

const uint64_t kMsgSize = 20;
const size_t kCharge = kMsgSize + SendQueue::kItemOverhead;

Msg* makeMsg(uint32_t type, uint32_t seq) { return Msg::create(kMsgSize, type, seq); }

// Pops everything queued so far, as the send thread would, without waiting for more.
std::vector<std::pair<uint32_t, uint32_t>> drain(SendQueue& queue) {
  std::vector<std::pair<uint32_t, uint32_t>> got;
  while (!queue.waitUntilSent(0)) {
    MsgPtr msg(queue.pop());
    got.emplace_back(msg->type, msg->seq);
    queue.written();
  }
  return got;
}

// Every Normal message of every producer arrives once, in the order its producer queued it, while
// other threads wait for room and for the queue to run empty. A replaceable producer may lose messages
// to coalescing, but never its order or its newest message.
TEST(SendQueue, ConcurrentProducersLoseNothingAndKeepTheirOrder) {
  const uint32_t kProducers = 4, kEach = 3000;
  SendQueue queue(16 * kCharge);
  std::vector<uint32_t> next(kProducers, 0), count(kProducers, 0);
  bool ordered = true;
  std::thread consumer([&] {
    while (MsgPtr msg{queue.pop()}) {
      ordered = ordered && msg->seq >= next[msg->type];
      next[msg->type] = msg->seq + 1;
      ++count[msg->type];
      queue.written();
    }
  });
  std::vector<std::thread> producers;
  for (uint32_t p = 0; p < kProducers; ++p) {
    producers.emplace_back([&queue, p] {
      for (uint32_t i = 0; i < kEach; ++i) {
        if (p == 0) queue.waitForRoom(1000);
        queue.push(makeMsg(p, i), p % 2 ? SendKind::Normal : SendKind::Replaceable);
      }
    });
  }
  for (std::thread& t : producers) t.join();
  EXPECT_TRUE(queue.waitUntilSent(5000));
  queue.close();
  consumer.join();
  EXPECT_TRUE(ordered);
  for (uint32_t p = 0; p < kProducers; ++p) {
    EXPECT_EQ(next[p], kEach) << "producer " << p;
    if (p % 2) {
      EXPECT_EQ(count[p], kEach) << "producer " << p;
    }
  }
}

// With room for three messages: below the bound everything is kept; at the bound a replaceable message
// takes the place of the newest unsent one of its type if that one is replaceable too.
TEST(SendQueue, ReplaceableMessagesCoalesceOnlyWhenFull) {
  const uint32_t kProgress = 14, kBeat = 12;
  struct Push { uint32_t type, seq; SendKind kind; };
  const SendKind N = SendKind::Normal, R = SendKind::Replaceable;
  struct Case { const char* what; std::vector<Push> pushes; std::vector<std::pair<uint32_t, uint32_t>> sent; };
  const Case cases[] = {
      {"below the bound", {{kProgress, 1, R}, {kProgress, 2, R}, {kProgress, 3, R}},
       {{kProgress, 1}, {kProgress, 2}, {kProgress, 3}}},
      {"newest replaced in place", {{kProgress, 1, R}, {kProgress, 2, R}, {kProgress, 3, R}, {kProgress, 4, R},
                                    {kProgress, 5, R}},
       {{kProgress, 1}, {kProgress, 2}, {kProgress, 5}}},
      {"final event kept", {{kProgress, 1, R}, {kProgress, 2, R}, {kProgress, 3, R}, {kProgress, 4, R},
                            {kProgress, 5, N}},
       {{kProgress, 1}, {kProgress, 2}, {kProgress, 4}, {kProgress, 5}}},
      {"order within a type kept", {{kProgress, 1, R}, {kBeat, 2, R}, {kProgress, 3, N}, {kBeat, 4, R},
                                    {kProgress, 5, R}},
       {{kProgress, 1}, {kBeat, 4}, {kProgress, 3}, {kProgress, 5}}},
      {"nothing to replace", {{kProgress, 1, N}, {kProgress, 2, N}, {kProgress, 3, N}, {kBeat, 4, R}},
       {{kProgress, 1}, {kProgress, 2}, {kProgress, 3}, {kBeat, 4}}},
  };
  for (const Case& c : cases) {
    SendQueue queue(3 * kCharge);
    for (const Push& p : c.pushes) queue.push(makeMsg(p.type, p.seq), p.kind);
    EXPECT_EQ(drain(queue), c.sent) << c.what;
  }
}

// Waiting for an empty queue gives up on a consumer that takes nothing, and waits for one that keeps
// taking, however long the whole takes.
TEST(SendQueue, WaitUntilSentFollowsTheConsumersProgress) {
  const long kIdleMs = 150;
  SendQueue queue;
  for (uint32_t i = 0; i < 8; ++i) queue.push(makeMsg(1, i));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(queue.waitUntilSent(kIdleMs));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(kIdleMs));

  std::thread slowConsumer([&queue] {
    while (MsgPtr msg{queue.pop()}) {
      std::this_thread::sleep_for(std::chrono::milliseconds(kIdleMs / 3));
      queue.written();
    }
  });
  EXPECT_TRUE(queue.waitUntilSent(kIdleMs)) << "gave up on a consumer that kept taking";
  queue.close();
  slowConsumer.join();
  EXPECT_FALSE(queue.waitUntilSent(kIdleMs));
  queue.push(makeMsg(1, 99));  // deleted at once (the leak checker would see it otherwise)
}

}  // namespace
