// The questions asked of the scan history: which scans to look at (the newest of every node, or one
// given scan), the largest domains, mailboxes or folders of those scans, the totals of every scan, and
// the mailboxes that grew most since an earlier scan of the same node. Several nodes' scans taken
// together answer for the whole cluster. Results are plain rows; the commands format them.
// Not thread-safe: one HistoryDb per thread.
#pragma once

#include <string>
#include <vector>

#include "history_db.h"

namespace vorlane {
namespace cli {

struct ScanRef {
  long long id = 0;
  std::string node;
  std::string date;
  bool partial = false;
};

enum class TopLevel { Domain, Mailbox, Folder };
enum class TopOrder { Bytes, Messages, Largest };

struct TopRow {
  std::string domain;
  std::string mailbox;  // empty at domain level
  std::string folder;   // empty above folder level
  unsigned long long messages = 0;
  unsigned long long bytes = 0;
  unsigned long long largest = 0;
};

struct ScanTotals {
  ScanRef scan;
  unsigned long long messages = 0;  // summed over the scan's folders (only the chosen domain or mailbox)
  unsigned long long bytes = 0;
  unsigned long long folders = 0;
  unsigned long long reportMessages = 0;  // the report's own totals, whole store
  unsigned long long reportBytes = 0;
};

struct GrowthRow {
  std::string domain;
  std::string mailbox;
  long long bytesBefore = 0;
  long long bytesNow = 0;
  long long messagesBefore = 0;
  long long messagesNow = 0;
};

// Limits the rows to one domain, or one mailbox of it; empty strings do not limit.
struct NameFilter {
  std::string domain;
  std::string mailbox;
};

// The newest scan of each node (only `node` when not empty), or with `scanId` just that scan (which must
// belong to `node` when one is given). False with the reason when there is none.
bool selectScans(HistoryDb& db, const std::string& node, long long scanId, std::vector<ScanRef>& scans,
                 std::string& error);
bool queryTop(HistoryDb& db, const std::vector<ScanRef>& scans, TopLevel level, TopOrder order, unsigned limit,
              std::vector<TopRow>& rows, std::string& error);
// Every scan (of `node` when not empty), oldest first.
bool queryScanTotals(HistoryDb& db, const std::string& node, const NameFilter& filter, std::vector<ScanTotals>& rows,
                     std::string& error);
// For each node of `latest`, the scan to compare with: the newest at or before `since` (a UTC date or date
// and time as stored, e.g. "2026-10-24" meaning the end of that day; the node's oldest scan when none is
// that old), or the one before the newest when `since` is empty. Nodes without an earlier scan have none.
bool selectBaselines(HistoryDb& db, const std::vector<ScanRef>& latest, const std::string& since,
                     std::vector<ScanRef>& baselines, std::string& error);
// The mailboxes whose bytes grew most from `before` to `now`, largest growth first.
bool queryGrowth(HistoryDb& db, const std::vector<ScanRef>& before, const std::vector<ScanRef>& now,
                 const NameFilter& filter, unsigned limit, std::vector<GrowthRow>& rows, std::string& error);

}  // namespace cli
}  // namespace vorlane
