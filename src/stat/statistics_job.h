// One statistics job over one mail store: defines the counter catalogue, counts the mailboxes, walks
// the store (StoreWalk) feeding every domain, folder and message into its Statistic, sends progress
// events at domain and mailbox boundaries, writes the XML report and sends the final event, whose
// report-written flag tells the requester whether the report is in place.
//
// Only mail folders (type 0) have their message files read (readMessage); other folders are counted
// from their index. A stopped walk still writes the report of what it counted. Error lines go to the
// channel; a message file that cannot be read is reported there and not counted.
//
// Threading: run() executes on one thread (the server's counter thread) and talks to the channel from
// it; only the channel's stop flag is touched from elsewhere.
#pragma once

#include <string>

#include "stat/job_channel.h"
#include "stat/report_lock.h"
#include "stat/statistic.h"
#include "stat/store_walk.h"
#include "stat/vstat_messages.h"

class StatisticsJob : private StoreVisitor {
 public:
  // The walk starts at request.storeDir followed by "/mail"; the report goes to reportPath.
  StatisticsJob(const vorlane::vstat::ProcessStoreReqBuffT& request, JobChannel& channel, std::string reportPath);

  // Makes run() hold the report lock at lockPath (report_lock.h) from its start until the report is in
  // place. A stop while it waits for the lock ends the job without a report; a lock that cannot be
  // taken at all is reported and the job runs without it.
  void takeReportLock(const std::string& lockPath) { lockPath_ = lockPath; }

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
  // Reused for every message, so that its buffer does not grow again for each one.
  std::string readError_;
};
