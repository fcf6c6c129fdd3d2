// `vstat history`: the totals of every scan in the history database (for one node, domain or mailbox when
// asked) and the mailboxes that grew most: between each node's newest scan and its scan as of `since`,
// or the one before the newest. Text, JSON, or an HTML page with a growth chart of bytes and messages.
// Not thread-safe (one database handle per call).
#pragma once

#include <ostream>
#include <string>

#include "history_db.h"
#include "history_output.h"
#include "history_queries.h"

namespace vorlane {
namespace cli {

struct HistoryOptions {
  std::string db;  // empty: defaultHistoryPath()
  std::string node;
  NameFilter filter;
  std::string since;  // "YYYY-MM-DD" or "YYYY-MM-DDTHH:MM:SSZ"; empty: the scan before the newest
  unsigned limit = 10;
  OutputFormat format = OutputFormat::Text;
  int busyTimeoutMs = kDefaultBusyTimeoutMs;
};

// True for the two accepted forms of --since.
bool isHistoryDate(const std::string& text);

bool runHistory(const HistoryOptions& options, std::ostream& out, std::string& error);

// The growth chart of the HTML page: one line per node of bytes (or messages) over the scans, as an SVG
// element. Also used by the report page.
std::string growthChartSvg(const std::vector<ScanTotals>& scans, bool bytes);

}  // namespace cli
}  // namespace vorlane
