// Test helpers for the statistics job, run in process: a channel that records what a requester would
// see, with hooks that act as each event or line goes out (request the stop, change the store), and
// short ways to run a job and read one counter. One job thread at a time.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "stat/statistics_job.h"

namespace vorlane {
namespace testing {

class RecordingChannel : public JobChannel {
 public:
  // Each event as "domain|mailbox|processed/mailboxes|run done", e.g. "a.com|john|0/2|10".
  int sendProgressMsg(vstat::EventBuffT& ev) override {
    events.push_back(std::string(ev.dom) + '|' + ev.mbox + '|' + std::to_string(ev.processed) + '/' +
                     std::to_string(ev.mailboxes) + '|' + std::to_string(ev.run) + std::to_string(ev.done));
    if (onEvent) onEvent(ev, *this);
    return 0;
  }
  void sendErrMsg(const std::string& text) override {
    lines.push_back(text);
    if (onLine) onLine(text, *this);
  }
  void reportFailure(const std::string& text) override { lines.push_back("failure: " + text); }

  bool logged(const std::string& text) const {
    for (const std::string& line : lines) {
      if (line.find(text) != std::string::npos) return true;
    }
    return false;
  }

  std::vector<std::string> events;
  std::vector<std::string> lines;
  std::function<void(const vstat::EventBuffT&, RecordingChannel&)> onEvent;
  std::function<void(const std::string&, RecordingChannel&)> onLine;
};

// Runs one whole job over storeDir + "/mail" and returns it for its statistic.
inline std::unique_ptr<StatisticsJob> runJob(const std::string& storeDir, JobChannel& channel,
                                             const std::string& reportPath, const ScanSettings& settings = {},
                                             const std::string& detailsPath = "") {
  vstat::ProcessStoreReqBuffT request{};
  storeDir.copy(request.storeDir, sizeof request.storeDir - 1);
  std::unique_ptr<StatisticsJob> job(new StatisticsJob(request, channel, reportPath, settings));
  job->setDetailsPath(detailsPath);
  job->run();
  return job;
}

// The named collection's counter of that type; throws (and so fails the test) when either is missing.
inline const Counter& counterIn(const Statistic& statistic, const std::string& collection, Counter::Type type) {
  for (const Statistic::CollectionPtr& c : statistic.getMessageCollections()) {
    if (c->name != collection) continue;
    if (const Collection::CounterPtr counter = c->getCounter(type)) return *counter;
    break;
  }
  throw std::runtime_error(collection + " has no counter " + std::to_string(type));
}

}  // namespace testing
}  // namespace vorlane
