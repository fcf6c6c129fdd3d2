#include "stat/statistics_job.h"

#include <sstream>

#include "stat/counter_catalogue.h"
#include "stat/job_facts.h"
#include "stat/report_file.h"
#include "utils/string_utils.h"

StatisticsJob::StatisticsJob(const vorlane::vstat::ProcessStoreReqBuffT& request, JobChannel& channel,
                             std::string reportPath)
    : request_(request), channel_(channel), reportPath_(std::move(reportPath)) {}

void StatisticsJob::run() {
  const std::string root = std::string(request_.storeDir) + vorlane::vstat::kMailRoot;
  counting_ = true;
  reportWritten_ = false;
  channel_.sendErrMsg("countStatistic started\n");
  defineCounters(statistic_);
  mailboxCount_ = StoreWalk::countMailboxes(root);
  channel_.sendErrMsg("StoreTarget::countStatistic starting processFolder()");
  openDetails();
  StoreWalk walk(root, *this, channel_.stopRequested);
  walk.run();
  channel_.sendErrMsg("StoreTarget::countStatistic processFolder() finished\n");
  // A stopped walk still reports what it counted.
  writeReport();
  finishDetails();
  channel_.sendErrMsg("StoreTarget::countStatistic finished\n");
  counting_ = false;
  sendProgress(walk.place());
}

void StatisticsJob::domainEntered(const StorePlace& place) {
  // The public tree is gathered like one user.
  if (place.isPublic()) {
    statistic_.resetUserCounters(place.domain, place.mailbox);
  } else {
    statistic_.addDomainInfo();
  }
}

void StatisticsJob::mailboxesNext(const StorePlace& place) { sendProgress(place); }

void StatisticsJob::mailboxEntered(const StorePlace& place) {
  if (place.isPublic()) return;
  statistic_.resetUserCounters(place.domain, place.mailbox);
  sendProgress(place);
}

void StatisticsJob::userFinished(const StorePlace& place) {
  statistic_.mergeUserCounters(place.domain, place.mailbox);
  ++processedMailboxes_;
  sendProgress(place);
}

void StatisticsJob::folderFound(const StorePlace& place, const FolderStatus& status) {
  statistic_.addFolderInfo(place.domain, place.mailbox, place.folder, status.type, status.folderSize,
                           status.messageCount);
  if (details_.isOpen()) details_.folderFound(place, status.type);
}

void StatisticsJob::messageFound(const StorePlace& place, Collection::FolderType type, const MessageEntry& entry) {
  MessageFacts facts;
  if (!readMessage(entry, facts, readError_)) {
    channel_.sendErrMsg(readError_);
    return;
  }
  statistic_.addMessageInfo({place.domain, place.mailbox, place.folder, type}, facts);
  if (details_.isOpen()) details_.messageCounted(place, type, facts);
}

void StatisticsJob::indexEntryFound(const StorePlace& place, Collection::FolderType type, const IndexEntry& entry) {
  // No message file is opened: the index gives the class and the size, nothing else.
  MessageFacts facts;
  facts.messageClass = entry.messageClass;
  facts.size = entry.size;
  statistic_.addMessageInfo({place.domain, place.mailbox, place.folder, type}, facts);
  if (details_.isOpen()) details_.messageCounted(place, type, facts);
}

void StatisticsJob::walkError(const std::string& line) { channel_.sendErrMsg(line); }

void StatisticsJob::openDetails() {
  if (detailsPath_.empty()) return;
  const DetailsHeader header{request_.storeDir, request_.productVersion, request_.build,
                             request_.osName,    request_.osCode,         std::time(nullptr)};
  std::string error;
  if (!details_.open(detailsPath_, header, error)) channel_.sendErrMsg("No folder details: " + error + "\n");
}

void StatisticsJob::finishDetails() {
  std::string error;
  if (details_.isOpen() && !details_.finish(channel_.stopRequested.load(), error)) {
    channel_.sendErrMsg("No folder details: " + error + "\n");
  }
}

void StatisticsJob::writeReport() {
  std::ostringstream text;
  statistic_.report(text, request_);
  std::string error;
  if (replaceFileContents(reportPath_, text.str(), error)) {
    reportWritten_ = true;
  } else {
    channel_.sendErrMsg("Open report file " + reportPath_ + " failed.\n");
    channel_.sendErrMsg(error + "\n");
    channel_.reportFailure("no report written: " + error);
  }
}

void StatisticsJob::sendProgress(const StorePlace& place) {
  vorlane::vstat::EventBuffT event;
  vorlane::utils::strncpys(event.dom, place.domain.c_str(), sizeof event.dom);
  vorlane::utils::strncpys(event.mbox, place.mailbox.c_str(), sizeof event.mbox);
  event.processed = processedMailboxes_;
  event.mailboxes = mailboxCount_;
  event.run = counting_ ? 1 : 0;
  event.done = reportWritten_ ? 1 : 0;
  channel_.sendProgressMsg(event);
}
