#include "history_import.h"

#include <stdlib.h>
#include <unistd.h>

#include <climits>

#include "details_reader.h"
#include "report_reader.h"

namespace vorlane {
namespace cli {

namespace {

const char* const kTotalsCollection = "Any folder class - any folder type";

// The report's whole-store figures, and whether its header names the same job as the details file's.
bool readReportTotals(const std::string& path, ScanHeader& scan, Report& report, std::string& error) {
  // A report that is not complete is refused by the reader.
  if (!readReport(path, report, error)) return false;
  const ReportCollection* totals = report.find(kTotalsCollection);
  const ReportCounter* count = totals ? totals->find("Message count") : nullptr;
  const ReportCounter* size = totals ? totals->find("Message size") : nullptr;
  const ReportCounter* folders = totals ? totals->find("Folder count") : nullptr;
  const ReportCounter* domains = totals ? totals->find("Domain count") : nullptr;
  if (!count || !size || !folders || !domains) {
    error = path + ": the report has no \"" + kTotalsCollection + "\" totals";
    return false;
  }
  scan.reportMessages = count->count;
  scan.reportBytes = size->sum;
  scan.reportLargest = size->max;
  scan.reportFolders = folders->count;
  scan.reportDomains = domains->count;
  return true;
}

bool sameJob(const Report& report, const DetailsFileHeader& details) {
  return report.productVersion == details.productVersion && report.build == details.build &&
         report.osName == details.osName && report.osCode == details.osCode;
}

}  // namespace

std::string defaultNodeName() {
  char name[HOST_NAME_MAX + 1] = {};
  if (::gethostname(name, sizeof name - 1) != 0 || name[0] == '\0') return "localhost";
  return name;
}

bool importDetails(HistoryDb& db, const std::string& detailsPath, ScanHeader scan, const Report* report,
                   long long& scanId, std::string& error) {
  ScanImport import(db);
  DetailsCallbacks callbacks;
  callbacks.header = [&](const DetailsFileHeader& header, std::string& reason) {
    if (report && !sameJob(*report, header)) {
      reason = "the details file is not from the job of the report (product, build or system differ)";
      return false;
    }
    scan.job = header;
    return import.begin(scan, reason);
  };
  callbacks.folder = [&](const FolderDetails& folder, std::string& reason) { return import.addFolder(folder, reason); };
  bool partial = false;
  return readDetailsFile(detailsPath, callbacks, partial, error) && import.commit(partial, scanId, error);
}

bool importScan(const ImportOptions& options, long long& scanId, std::string& error) {
  ScanHeader scan;
  Report report;
  if (!readReportTotals(options.report, scan, report, error)) return false;
  scan.node = options.node.empty() ? defaultNodeName() : options.node;
  HistoryDb db;
  const bool defaultPath = options.db.empty();
  if (!db.open(defaultPath ? defaultHistoryPath() : options.db, true, error, options.busyTimeoutMs, defaultPath)) {
    return false;
  }
  return importDetails(db, options.details, scan, &report, scanId, error);
}

TemporaryDetails::TemporaryDetails() {
  const char* tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp && tmp[0] == '/' ? tmp : "/tmp") + "/vstat-details-XXXXXX";
  if (::mkdtemp(&pattern[0])) {
    directory_ = pattern;
    path_ = directory_ + "/details.jsonl";
    reportPath_ = directory_ + "/report.xml";
  }
}

TemporaryDetails::~TemporaryDetails() {
  if (directory_.empty()) return;
  ::unlink(path_.c_str());
  ::unlink(reportPath_.c_str());
  ::rmdir(directory_.c_str());
}

}  // namespace cli
}  // namespace vorlane
