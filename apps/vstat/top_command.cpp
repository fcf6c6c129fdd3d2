#include "top_command.h"

#include <iomanip>

#include "history_import.h"
#include "history_output.h"
#include "report_json.h"
#include "report_summary.h"

namespace vorlane {
namespace cli {

namespace {

const char* levelName(TopLevel level) {
  return level == TopLevel::Domain ? "domain" : level == TopLevel::Mailbox ? "mailbox" : "folder";
}

const char* orderName(TopOrder order) {
  return order == TopOrder::Bytes ? "bytes" : order == TopOrder::Messages ? "messages" : "largest";
}

void writeText(std::ostream& out, const TopOptions& options, const std::vector<ScanRef>& scans,
               const std::vector<TopRow>& rows) {
  out << "Largest " << levelName(options.level) << (options.level == TopLevel::Mailbox ? "es" : "s") << " by "
      << orderName(options.order) << ", ";
  out << (scans.size() == 1 ? "scan" : "scans");
  for (size_t i = 0; i < scans.size(); ++i) {
    out << (i ? ", " : " ") << scans[i].id << " (" << scans[i].node << " " << scans[i].date
        << (scans[i].partial ? ", stopped early" : "") << ")";
  }
  out << "\n";
  out << std::right << std::setw(4) << "#" << "  " << std::setw(11) << "Bytes" << "  " << std::setw(13)
      << "Messages" << "  " << std::setw(11) << "Largest" << "  " << levelName(options.level) << "\n";
  for (size_t i = 0; i < rows.size(); ++i) {
    out << std::setw(4) << i + 1 << "  " << std::setw(11) << formatBinarySize(rows[i].bytes) << "  " << std::setw(13)
        << formatCount(rows[i].messages) << "  " << std::setw(11) << formatBinarySize(rows[i].largest) << "  "
        << displayName(rows[i]) << "\n";
  }
}

void writeJson(std::ostream& out, const TopOptions& options, const std::vector<ScanRef>& scans,
               const std::vector<TopRow>& rows) {
  Json j;
  j["level"] = levelName(options.level);
  j["by"] = orderName(options.order);
  j["scans"] = Json::array();
  for (const ScanRef& scan : scans) {
    j["scans"].push_back({{"id", scan.id}, {"node", scan.node}, {"date", scan.date}, {"partial", scan.partial}});
  }
  j["rows"] = Json::array();
  for (const TopRow& row : rows) {
    Json r;
    addJsonName(r, "domain", row.domain);
    addJsonName(r, "mailbox", row.mailbox);
    addJsonName(r, "folder", row.folder);
    r["messages"] = row.messages;
    r["bytes"] = row.bytes;
    r["largest"] = row.largest;
    j["rows"].push_back(std::move(r));
  }
  out << jsonLine(j) << "\n";
}

void writeCsv(std::ostream& out, const std::vector<TopRow>& rows) {
  out << "domain,mailbox,folder,messages,bytes,largest\r\n";
  for (const TopRow& row : rows) {
    out << csvField(row.domain) << ',' << csvField(row.mailbox) << ',' << csvField(row.folder) << ','
        << row.messages << ',' << row.bytes << ',' << row.largest << "\r\n";
  }
}

}  // namespace

std::string displayName(const TopRow& row) {
  std::string name = row.domain;
  for (const std::string* part : {&row.mailbox, &row.folder}) {
    if (!part->empty()) name += "/" + *part;
  }
  return name;
}

bool runTop(const TopOptions& options, std::ostream& out, std::string& error) {
  HistoryDb db;
  long long scanId = options.scan;
  if (!options.details.empty()) {
    ScanHeader scan;
    scan.node = options.node.empty() ? defaultNodeName() : options.node;
    if (!db.open(":memory:", true, error) || !importDetails(db, options.details, scan, nullptr, scanId, error)) {
      return false;
    }
  } else if (!db.open(options.db.empty() ? defaultHistoryPath() : options.db, false, error, options.busyTimeoutMs)) {
    return false;
  }
  std::vector<ScanRef> scans;
  std::vector<TopRow> rows;
  if (!selectScans(db, options.details.empty() ? options.node : "", scanId, scans, error) ||
      !queryTop(db, scans, options.level, options.order, options.limit, rows, error)) {
    return false;
  }
  switch (options.format) {
    case OutputFormat::Json:
      writeJson(out, options, scans, rows);
      break;
    case OutputFormat::Csv:
      writeCsv(out, rows);
      break;
    default:
      writeText(out, options, scans, rows);
      break;
  }
  return true;
}

}  // namespace cli
}  // namespace vorlane
