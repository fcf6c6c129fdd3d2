// One statistics job over one mail store: defines the counter catalogue, counts the mailboxes, walks
// the store (StoreWalk) feeding every domain, folder and message into its Statistic, sends progress
// events at domain and mailbox boundaries, writes the XML report and sends the final event, whose
// report-written flag tells the requester whether the report is in place.
//
// Only mail folders (type 0) have their message files read (readMessage); other folders are counted
// from their index. A stopped walk still writes the report of what it counted. Error lines go to the
// channel; a message file that cannot be read is reported there and not counted.
//
// With a details path, the job also writes one record per folder to that file as it walks (see
// folder_details.h); a details file that cannot be written is reported on the channel and changes
// nothing else. Without one, the job does no extra work.
//
// Threading: run() executes on one thread (the server's counter thread) and talks to the channel from
// it; only the channel's stop flag is touched from elsewhere.
#pragma once

#include <string>

#include "stat/folder_details.h"
#include "stat/job_channel.h"
#include "stat/statistic.h"
#include "stat/store_walk.h"
#include "stat/vstat_messages.h"

class StatisticsJob : private StoreVisitor {
 public:
  // The walk starts at request.storeDir followed by "/mail"; the report goes to reportPath.
  StatisticsJob(const vorlane::vstat::ProcessStoreReqBuffT& request, JobChannel& channel, std::string reportPath);

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

  void openDetails();
  void finishDetails();
  void writeReport();
  void sendProgress(const StorePlace& place);

  const vorlane::vstat::ProcessStoreReqBuffT request_;
  JobChannel& channel_;
  const std::string reportPath_;
  Statistic statistic_;
  unsigned mailboxCount_ = 0;
  unsigned processedMailboxes_ = 0;
  bool counting_ = false;
  bool reportWritten_ = false;
  std::string detailsPath_;
  FolderDetailsRecorder details_;
  // Reused for every message, so that its buffer does not grow again for each one.
  std::string readError_;
};
