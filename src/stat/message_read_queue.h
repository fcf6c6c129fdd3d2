// The message files of one folder read ahead of the job that counts them: with parser threads, up to
// kWindow files are read and classified (readMessage) on those threads while earlier ones are counted.
// In gentle mode every queued file is also announced to the kernel at once (read-ahead), after a look at
// whether any of its pages were cached; otherwise read-ahead is left to the job's StorePrefetch. The job takes the outcomes strictly in the order it queued the entries. With one thread
// nothing runs beside the job: take() reads the message on the job's thread.
//
// Contract: the entries queued at one time all come from one directory. The first entry queued into an
// empty queue gives the directory: the queue keeps its own duplicate of that descriptor, so the walk may
// close its own while files are still being read; the caller empties the queue (take or discard) before
// it queues an entry of another directory. In gentle mode, a file of which no page was cached when it
// was announced has its pages handed back after it was read, so the scan leaves the page cache as it
// found it; files someone else had cached stay cached.
//
// Threading: one thread (the job's) calls every member; the parser threads belong to the queue and are
// joined by its destructor, after the item each one holds is finished.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>

#include "stat/message_facts.h"
#include "stat/message_file.h"
#include "stat/scan_settings.h"
#include "tiny/ordered_pipeline.h"

// What reading one message file gave: its facts, or the error line naming its path.
struct MessageOutcome {
  MessageRead read = MessageRead::Failed;
  MessageFacts facts;
  std::string error;
};

class MessageReadQueue {
 public:
  // Files announced ahead of the one being counted; also the most parsed results held at once.
  static const size_t kWindow = 64;

  // stop (may be null) is handed to every parse, so that a stop ends a long parse on a parser thread too.
  MessageReadQueue(const ScanSettings& settings, const std::atomic<bool>* stop);
  ~MessageReadQueue();
  MessageReadQueue(const MessageReadQueue&) = delete;
  MessageReadQueue& operator=(const MessageReadQueue&) = delete;

  bool empty() const { return pipeline_.empty(); }
  bool full() const { return pipeline_.full(); }
  // Queues one entry (the queue must not be full); false, with nothing queued, when the queue is empty and
  // no descriptor is left to hold the entry's directory.
  bool add(const MessageEntry& entry);
  // The outcome of the oldest entry, swapped into out; false when the queue is empty.
  bool take(MessageOutcome& out);
  // Drops every queued entry; entries a parser thread has begun are finished first.
  void discard();

 private:
  struct Request {
    std::string name;
    std::string path;
    unsigned char listedType = 0;
    bool release = false;  // hand the file's pages back after reading
  };

  void read(const Request& request, MessageOutcome& out) const;
  void closeDirectory();

  const bool gentle_;
  const std::atomic<bool>* const stop_;
  int directory_ = -1;  // the duplicate of the queued entries' directory, or AT_FDCWD
  vorlane::tiny::OrderedPipeline<Request, MessageOutcome> pipeline_;
};
