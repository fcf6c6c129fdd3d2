#include "stat/store_prefetch.h"

#include "stat/store_walk.h"
#include "tiny/thread.h"
#include "utils/read_ahead.h"

// Announces the message files the walk hands out, waiting for the job whenever it is kAhead files behind.
class StorePrefetch::Announcer : public StoreVisitor {
 public:
  explicit Announcer(StorePrefetch& prefetch) : prefetch_(prefetch) {}

  void domainEntered(const StorePlace&) override {}
  void mailboxesNext(const StorePlace&) override {}
  void mailboxEntered(const StorePlace&) override {}
  void userFinished(const StorePlace&) override {}
  void folderFound(const StorePlace&, const FolderStatus&) override { sinceProbe_ = 0; }
  void indexEntryFound(const StorePlace&, Collection::FolderType, const IndexEntry&) override {}
  void walkError(const std::string&) override {}

  void messageFound(const StorePlace&, Collection::FolderType, const MessageEntry& entry) override {
    if (!prefetch_.waitForRoom()) return;
    if (prefetch_.walked_.load() < prefetch_.taken_.load()) {
      // The job is past this file already (its pages were cached, or it is being read as it is).
    } else if (sinceProbe_ == 0) {
      cached_ = vorlane::utils::announceRead(entry.dirFd, entry.name, entry.listedType, true).resident;
    } else if (!cached_) {
      vorlane::utils::announceRead(entry.dirFd, entry.name, entry.listedType, false);
    }
    sinceProbe_ = (sinceProbe_ + 1) % kProbeInterval;
    prefetch_.walked_.fetch_add(1);
  }

 private:
  StorePrefetch& prefetch_;
  unsigned sinceProbe_ = 0;  // files since the folder's last probe
  bool cached_ = false;      // what the last probe found
};

StorePrefetch::StorePrefetch(const std::string& root) : root_(root) {
  started_ = vorlane::tiny::createThread(&StorePrefetch::threadEntry, this, &thread_,
                                         vorlane::tiny::ThreadAttributes(0, "prefetch"));
}

StorePrefetch::~StorePrefetch() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stop_.store(true);
  }
  room_.notify_one();
  if (started_) vorlane::tiny::waitForThread(thread_);
}

void StorePrefetch::threadEntry(void* self) {
  StorePrefetch& prefetch = *static_cast<StorePrefetch*>(self);
  Announcer announcer(prefetch);
  StoreWalk(prefetch.root_, announcer, prefetch.stop_).run();
}

void StorePrefetch::messageTaken() {
  const uint64_t taken = taken_.fetch_add(1) + 1;
  // While the prefetch waits, walked_ stands still; it goes on once half of its lead is taken.
  if (waiting_.load() && walked_.load() <= taken + kAhead / 2) {
    std::lock_guard<std::mutex> lock(mutex_);
    room_.notify_one();
  }
}

bool StorePrefetch::waitForRoom() {
  if (walked_.load() < taken_.load() + kAhead) return !stop_.load();
  std::unique_lock<std::mutex> lock(mutex_);
  waiting_.store(true);
  room_.wait(lock, [&] { return stop_.load() || walked_.load() <= taken_.load() + kAhead / 2; });
  waiting_.store(false);
  return !stop_.load();
}
