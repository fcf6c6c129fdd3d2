// Warms the page cache ahead of a job's walk over a store, so that the disk has many reads in flight
// across folder boundaries instead of one at a time. A thread of its own walks the same store in the same
// order (StoreWalk): its listings and its reads of status.fld and index.fld bring those into the cache,
// and it announces each message file to the kernel (read_ahead.h). It keeps at most kAhead message files
// ahead of the job, which says after each message it took (messageTaken), so the cache never holds much
// more than the job is about to read. A folder whose probed file is already cached is taken as cached
// (one probe every kProbeInterval files), so a warm store costs little more than one directory walk.
//
// Nothing the job reports depends on it: it only reads, and what it reads is read again by the job; its
// own errors are ignored. Not for gentle mode, which must know which pages the job itself brought in.
//
// Threading: the constructor starts the thread, the destructor stops and joins it (after the file it is
// looking at). messageTaken is called by one thread, the job's.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

class StorePrefetch {
 public:
  static const uint64_t kAhead = 512;
  static const unsigned kProbeInterval = 32;

  // root: the store's "/mail" directory, as the job walks it.
  explicit StorePrefetch(const std::string& root);
  ~StorePrefetch();
  StorePrefetch(const StorePrefetch&) = delete;
  StorePrefetch& operator=(const StorePrefetch&) = delete;

  // The job has taken one more message file of the walk, in walk order.
  void messageTaken();

  // Message files announced or passed over so far (for tests).
  uint64_t walked() const { return walked_.load(); }

 private:
  class Announcer;
  static void threadEntry(void* self);
  // Waits until the job is close enough behind; false when the prefetch is to end.
  bool waitForRoom();

  const std::string root_;
  std::atomic<bool> stop_{false};
  std::atomic<uint64_t> walked_{0};
  std::atomic<uint64_t> taken_{0};
  std::atomic<bool> waiting_{false};
  std::mutex mutex_;
  std::condition_variable room_;
  unsigned long thread_ = 0;
  bool started_ = false;
};
