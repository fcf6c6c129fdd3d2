#include "stat/statistics_job.h"

#include <sstream>

#include "stat/counter_catalogue.h"
#include "stat/job_facts.h"
#include "stat/report_file.h"
#include "utils/string_utils.h"

StatisticsJob::StatisticsJob(const vorlane::vstat::ProcessStoreReqBuffT& request, JobChannel& channel,
                             std::string reportPath, const ScanSettings& settings)
    : request_(request),
      channel_(channel),
      reportPath_(std::move(reportPath)),
      queue_(settings.threads > 1 || settings.gentle ? new MessageReadQueue(settings, &channel.stopRequested) : nullptr),
      prefetching_(settings.threads > 1 && !settings.gentle) {}

void StatisticsJob::run() {
  const std::string root = std::string(request_.storeDir) + vorlane::vstat::kMailRoot;
  counting_ = true;
  reportWritten_ = false;
  ReportLock lock(lockPath_);
  if (!lockReport(lock)) {
    counting_ = false;
    sendProgress(StorePlace());
    return;
  }
  channel_.sendErrMsg("countStatistic started\n");
  defineCounters(statistic_);
  mailboxCount_ = StoreWalk::countMailboxes(root);
  channel_.sendErrMsg("StoreTarget::countStatistic starting processFolder()");
  openDetails();
  if (prefetching_) prefetch_.reset(new StorePrefetch(root));
  StoreWalk walk(root, *this, channel_.stopRequested);
  walk.run();
  prefetch_.reset();
  countQueued();
  channel_.sendErrMsg("StoreTarget::countStatistic processFolder() finished\n");
  // A stopped walk still reports what it counted.
  writeReport();
  finishDetails();
  channel_.sendErrMsg("StoreTarget::countStatistic finished\n");
  counting_ = false;
  sendProgress(stopped_ ? queuedPlace_ : walk.place());
}

bool StatisticsJob::lockReport(ReportLock& lock) {
  if (lockPath_.empty()) return true;
  std::string error;
  switch (lock.waitFor(channel_.stopRequested, error)) {
    case ReportLock::Acquired:
      return true;
    case ReportLock::Failed:
      // Without the lock the job still reports; refusing would let a planted file block every job.
      channel_.sendErrMsg(error + "\n");
      return true;
    default:
      channel_.sendErrMsg("Stopped while waiting for " + lockPath_ + "\n");
      channel_.reportFailure("no report written: stopped while another job held " + lockPath_);
      return false;
  }
}

void StatisticsJob::domainEntered(const StorePlace& place) {
  if (!countQueued()) return;
  // The public tree is gathered like one user.
  if (place.isPublic()) {
    statistic_.resetUserCounters(place.domain, place.mailbox);
  } else {
    statistic_.addDomainInfo();
  }
}

void StatisticsJob::mailboxesNext(const StorePlace& place) {
  if (countQueued()) sendProgress(place);
}

void StatisticsJob::mailboxEntered(const StorePlace& place) {
  if (!countQueued() || place.isPublic()) return;
  statistic_.resetUserCounters(place.domain, place.mailbox);
  sendProgress(place);
}

void StatisticsJob::userFinished(const StorePlace& place) {
  if (!countQueued()) return;
  statistic_.mergeUserCounters(place.domain, place.mailbox);
  ++processedMailboxes_;
  sendProgress(place);
}

void StatisticsJob::folderFound(const StorePlace& place, const FolderStatus& status) {
  if (!countQueued()) return;
  statistic_.addFolderInfo(place.domain, place.mailbox, place.folder, status.type, status.folderSize,
                           status.messageCount);
  if (details_.isOpen()) details_.folderFound(place, status.type);
}

void StatisticsJob::messageFound(const StorePlace& place, Collection::FolderType type, const MessageEntry& entry) {
  if (prefetch_) prefetch_->messageTaken();
  if (!queue_) {
    readNow(place, type, entry);
    return;
  }
  // The queue holds the messages of one directory at a time.
  if (!queue_->empty() && (place.folder != queuedPlace_.folder || place.mailbox != queuedPlace_.mailbox ||
                           place.domain != queuedPlace_.domain)) {
    if (!countQueued()) return;
  }
  if (stopped_) return;
  if (queue_->empty()) {
    queuedPlace_ = place;
    queuedType_ = type;
  }
  if (queue_->add(entry)) {
    if (queue_->full()) countNext();
    return;
  }
  // No descriptor is left to keep the directory for the queue.
  readNow(place, type, entry);
}

void StatisticsJob::indexEntryFound(const StorePlace& place, Collection::FolderType type, const IndexEntry& entry) {
  if (!countQueued()) return;
  // No message file is opened: the index gives the class and the size, nothing else.
  MessageFacts facts;
  facts.messageClass = entry.messageClass;
  facts.size = entry.size;
  statistic_.addMessageInfo({place.domain, place.mailbox, place.folder, type}, facts);
  if (details_.isOpen()) details_.messageCounted(place, type, facts);
}

void StatisticsJob::walkError(const std::string& line) {
  if (countQueued()) channel_.sendErrMsg(line);
}

void StatisticsJob::count(const StorePlace& place, Collection::FolderType type, const MessageOutcome& outcome) {
  if (!outcome.error.empty()) channel_.sendErrMsg(outcome.error);
  // A message whose parse a stop cut short is not counted: its figures would be wrong.
  if (outcome.read != MessageRead::Counted) return;
  statistic_.addMessageInfo({place.domain, place.mailbox, place.folder, type}, outcome.facts);
  if (details_.isOpen()) details_.messageCounted(place, type, outcome.facts);
}

void StatisticsJob::readNow(const StorePlace& place, Collection::FolderType type, const MessageEntry& entry) {
  outcome_.read = readMessage(entry, outcome_.facts, outcome_.error, &channel_.stopRequested);
  count(place, type, outcome_);
}

bool StatisticsJob::countNext() {
  queue_->take(outcome_);
  count(queuedPlace_, queuedType_, outcome_);
  // Where a walk that reads each message itself would look at the stop request: after this message.
  if (!channel_.stopRequested.load()) return true;
  queue_->discard();
  stopped_ = true;
  return false;
}

bool StatisticsJob::countQueued() {
  while (queue_ && !queue_->empty()) {
    if (!countNext()) return false;
  }
  return !stopped_;
}

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
