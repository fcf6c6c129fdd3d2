// One statistics job over one mail store: defines the counter catalogue, counts the mailboxes, walks
// the store (StoreWalk) feeding every domain, folder and message into its Statistic, sends progress
// events at domain and mailbox boundaries, writes the XML report and sends the final event, whose
// report-written flag tells the requester whether the report is in place.
//
// Only mail folders (type 0) have their message files read (readMessage); other folders are counted
// from their index. A stopped walk still writes the report of what it counted. Error lines go to the
// channel; a message file that cannot be read is reported there and not counted.
//
// With parser threads, the message files of a folder go through a read queue (MessageReadQueue) and
// are read on those threads, while the job alone counts them in listing order; a StorePrefetch walks
// ahead and announces the files to the kernel (in gentle mode the queue announces them itself). With one thread the job reads each message itself as the walk finds it (through the
// queue, without threads, only in gentle mode, which needs the queue's look at the page cache). Whatever the threads, the requester sees the same report, events and error lines: the
// stop request is looked at after every message counted, as a walk that reads each message itself does,
// and the messages read ahead of it are then dropped; everything but a message of the same folder
// waits until the queued messages are counted.
//
// With a details path, the job also writes one record per folder to that file as it walks (see
// folder_details.h); a details file that cannot be written is reported on the channel and changes
// nothing else. Without one, the job does no extra work.
//
// Threading: run() executes on one thread (the server's counter thread) and talks to the channel from
// it; only the channel's stop flag is touched from elsewhere. The parser threads only read files.
#pragma once

#include <memory>
#include <string>

#include "stat/folder_details.h"
#include "stat/job_channel.h"
#include "stat/report_lock.h"
#include "stat/message_read_queue.h"
#include "stat/scan_settings.h"
#include "stat/statistic.h"
#include "stat/store_prefetch.h"
#include "stat/store_walk.h"
#include "stat/vstat_messages.h"

class StatisticsJob : private StoreVisitor {
 public:
  // The walk starts at request.storeDir followed by "/mail"; the report goes to reportPath. The settings
  // give the parser threads and the gentle mode (by default: no threads, not gentle).
  StatisticsJob(const vorlane::vstat::ProcessStoreReqBuffT& request, JobChannel& channel, std::string reportPath,
                const ScanSettings& settings = ScanSettings());

  // Makes run() hold the report lock at lockPath (report_lock.h) from its start until the report is in
  // place. A stop while it waits for the lock ends the job without a report; a lock that cannot be
  // taken at all is reported and the job runs without it.
  void takeReportLock(const std::string& lockPath) { lockPath_ = lockPath; }

  // Where to write the per-folder details; empty (the default) for none. Set before run().
  void setDetailsPath(const std::string& path) { detailsPath_ = path; }

  // The whole job: catalogue, mailbox count, walk, report, final progress event. Runs once.
  void run();

  const Statistic& statistic() const { return statistic_; }
  unsigned mailboxCount() const { return mailboxCount_; }
  bool reportWritten() const { return reportWritten_; }

 private:
  void domainEntered(const StorePlace& place) override;
  void mailboxesNext(const StorePlace& place) override;
  void mailboxEntered(const StorePlace& place) override;
  void userFinished(const StorePlace& place) override;
  void folderFound(const StorePlace& place, const FolderStatus& status) override;
  void messageFound(const StorePlace& place, Collection::FolderType type, const MessageEntry& entry) override;
  void indexEntryFound(const StorePlace& place, Collection::FolderType type, const IndexEntry& entry) override;
  void walkError(const std::string& line) override;

  // Takes the report lock when asked to; false when the job must end without a report.
  bool lockReport(ReportLock& lock);
  // Reads one message on the job's thread and counts it.
  void readNow(const StorePlace& place, Collection::FolderType type, const MessageEntry& entry);
  void count(const StorePlace& place, Collection::FolderType type, const MessageOutcome& outcome);
  // Counts the oldest queued message; false when a stop was requested (the queue is then emptied).
  bool countNext();
  // Counts every queued message; false when the job has stopped.
  bool countQueued();
  void openDetails();
  void finishDetails();
  void writeReport();
  void sendProgress(const StorePlace& place);

  const vorlane::vstat::ProcessStoreReqBuffT request_;
  JobChannel& channel_;
  const std::string reportPath_;
  std::string lockPath_;  // empty: the caller looks after the report lock
  Statistic statistic_;
  unsigned mailboxCount_ = 0;
  unsigned processedMailboxes_ = 0;
  bool counting_ = false;
  bool reportWritten_ = false;
  const std::unique_ptr<MessageReadQueue> queue_;  // null with one thread, unless gentle
  const bool prefetching_;                          // parser threads and not gentle
  std::unique_ptr<StorePrefetch> prefetch_;         // during the walk, when prefetching
  StorePlace queuedPlace_;  // the folder whose messages are queued
  Collection::FolderType queuedType_ = Collection::MailFolder;
  // Reused for every message, so that its buffers do not grow again for each one.
  MessageOutcome outcome_;
  // Set when the job itself saw the stop request while counting queued messages; the walk, which may
  // have gone on to the next folder meanwhile, then ends where those messages were.
  bool stopped_ = false;
  std::string detailsPath_;
  FolderDetailsRecorder details_;
};
