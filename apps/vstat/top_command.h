// `vstat top`: the largest domains, mailboxes or folders of the newest scan of every node (for the whole
// cluster), of one node's newest scan, or of one given scan; read from the history database or straight
// from a details file. Text shows binary units ("1.2 GiB"), JSON and CSV exact bytes.
// Not thread-safe (one database handle per call).
#pragma once

#include <ostream>
#include <string>

#include "history_db.h"
#include "history_output.h"
#include "history_queries.h"

namespace vorlane {
namespace cli {

struct TopOptions {
  std::string db;       // empty: defaultHistoryPath(), unless `details` is given
  std::string details;  // a details file to rank instead of the database
  std::string node;     // empty: every node
  long long scan = 0;   // 0: the newest scan of each node
  TopLevel level = TopLevel::Mailbox;
  TopOrder order = TopOrder::Bytes;
  unsigned limit = 10;
  OutputFormat format = OutputFormat::Text;
  int busyTimeoutMs = kDefaultBusyTimeoutMs;
};

// "domain/mailbox/folder", leaving out the empty parts.
std::string displayName(const TopRow& row);

// Writes the list to `out`; false with the reason in `error`.
bool runTop(const TopOptions& options, std::ostream& out, std::string& error);

}  // namespace cli
}  // namespace vorlane
