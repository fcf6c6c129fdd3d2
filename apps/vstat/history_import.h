// Stores one scan in the history: the report's header and totals and every folder line of its details
// file, in one transaction, so a failed import (damaged file, report and details of different scans,
// locked or full database) leaves the database as it was.
// Not thread-safe: one HistoryDb per thread.
#pragma once

#include <string>

#include "history_db.h"
#include "report_model.h"

namespace vorlane {
namespace cli {

struct ImportOptions {
  std::string report;   // the XML report of the scan
  std::string details;  // its details file
  std::string db;       // empty: defaultHistoryPath()
  std::string node;     // empty: this host's name
  int busyTimeoutMs = kDefaultBusyTimeoutMs;
};

// This host's name, "localhost" when it has none.
std::string defaultNodeName();

// Adds the details file's folders as one scan; `scan` gives the node and the report's figures, the file
// its header. With `report`, a file whose header names another job's product, build or system is refused.
// The scan's id is returned through `scanId`.
bool importDetails(HistoryDb& db, const std::string& detailsPath, ScanHeader scan, const Report* report,
                   long long& scanId, std::string& error);

// `vstat import`: reads the report's header and totals, opens (or creates) the database and imports.
bool importScan(const ImportOptions& options, long long& scanId, std::string& error);

// A private place for the details file of a job this process runs (for `vstat scan --history`): a new
// directory of mode 0700 under the system's temporary directory, removed with everything in it when
// the object goes. path() is empty when the directory could not be made.
class TemporaryDetails {
 public:
  TemporaryDetails();
  ~TemporaryDetails();
  TemporaryDetails(const TemporaryDetails&) = delete;
  TemporaryDetails& operator=(const TemporaryDetails&) = delete;
  const std::string& path() const { return path_; }
  // Beside it, for the report text the scan read.
  const std::string& reportPath() const { return reportPath_; }

 private:
  std::string directory_;
  std::string path_;
  std::string reportPath_;
};

}  // namespace cli
}  // namespace vorlane
