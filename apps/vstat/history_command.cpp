#include "history_command.h"

#include <algorithm>
#include <cctype>
#include <iomanip>
#include <map>
#include <sstream>

#include "history_output.h"
#include "report_json.h"
#include "report_summary.h"
#include "report_writer.h"

namespace vorlane {
namespace cli {

namespace {

std::string scanLabel(const ScanRef& scan) {
  return "scan " + std::to_string(scan.id) + " (" + scan.node + " " + scan.date + ")";
}

std::string mailboxName(const GrowthRow& row) {
  return row.mailbox.empty() ? row.domain : row.domain + "/" + row.mailbox;
}

struct History {
  std::vector<ScanTotals> scans;
  std::vector<ScanRef> before;
  std::vector<ScanRef> now;
  std::vector<GrowthRow> growth;
};

void writeText(std::ostream& out, const History& h) {
  out << "Scans\n" << std::right << std::setw(6) << "id" << "  " << std::setw(20) << "date" << "  " << std::setw(13)
      << "messages" << "  " << std::setw(11) << "bytes" << "  " << std::setw(9) << "folders" << "  node\n";
  for (const ScanTotals& t : h.scans) {
    out << std::setw(6) << t.scan.id << "  " << std::setw(20) << t.scan.date << "  " << std::setw(13)
        << formatCount(t.messages) << "  " << std::setw(11) << formatBinarySize(t.bytes) << "  " << std::setw(9)
        << formatCount(t.folders) << "  " << t.scan.node << (t.scan.partial ? " (stopped early)" : "") << "\n";
  }
  if (h.before.empty()) {
    out << "\nGrowth: no earlier scan to compare with\n";
    return;
  }
  out << "\nGrowth from";
  for (const ScanRef& scan : h.before) out << " " << scanLabel(scan);
  out << " to";
  for (const ScanRef& scan : h.now) out << " " << scanLabel(scan);
  out << "\n" << std::setw(12) << "bytes" << "  " << std::setw(12) << "change" << "  " << std::setw(10)
      << "messages" << "  mailbox\n";
  for (const GrowthRow& row : h.growth) {
    out << std::setw(12) << formatBinarySize(static_cast<unsigned long long>(row.bytesNow)) << "  " << std::setw(12)
        << formatSizeChange(row.bytesNow - row.bytesBefore) << "  " << std::setw(10)
        << std::showpos << row.messagesNow - row.messagesBefore << std::noshowpos << "  " << mailboxName(row) << "\n";
  }
}

Json scanIds(const std::vector<ScanRef>& scans) {
  Json ids = Json::array();
  for (const ScanRef& scan : scans) ids.push_back(scan.id);
  return ids;
}

void writeJson(std::ostream& out, const History& h) {
  Json scans = Json::array();
  for (const ScanTotals& t : h.scans) {
    scans.push_back({{"id", t.scan.id}, {"node", t.scan.node}, {"date", t.scan.date}, {"partial", t.scan.partial},
                     {"messages", t.messages}, {"bytes", t.bytes}, {"folders", t.folders},
                     {"report_messages", t.reportMessages}, {"report_bytes", t.reportBytes}});
  }
  Json mailboxes = Json::array();
  for (const GrowthRow& row : h.growth) {
    Json j;
    addJsonName(j, "domain", row.domain);
    addJsonName(j, "mailbox", row.mailbox);
    j["bytes_before"] = row.bytesBefore;
    j["bytes_now"] = row.bytesNow;
    j["messages_before"] = row.messagesBefore;
    j["messages_now"] = row.messagesNow;
    mailboxes.push_back(std::move(j));
  }
  Json growth;
  growth["from"] = scanIds(h.before);
  growth["to"] = scanIds(h.now);
  growth["mailboxes"] = std::move(mailboxes);
  Json j;
  j["scans"] = std::move(scans);
  j["growth"] = std::move(growth);
  out << jsonLine(j) << "\n";
}

void writeHtml(std::ostream& out, const History& h) {
  out << "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Store history</title>\n"
         "<style>body{font-family:sans-serif}td,th{padding:2px 8px;text-align:right}"
         "td.name{text-align:left}</style></head><body>\n<h1>Store history</h1>\n<h2>Bytes</h2>\n"
      << growthChartSvg(h.scans, true) << "\n<h2>Messages</h2>\n" << growthChartSvg(h.scans, false)
      << "\n<h2>Scans</h2>\n<table><tr><th>id</th><th>node</th><th>date</th><th>messages</th><th>bytes</th>"
         "<th>folders</th></tr>\n";
  for (const ScanTotals& t : h.scans) {
    out << "<tr><td>" << t.scan.id << "</td><td class=\"name\">" << escapeMarkup(t.scan.node) << "</td><td>"
        << escapeMarkup(t.scan.date) << (t.scan.partial ? " (stopped early)" : "") << "</td><td>"
        << formatCount(t.messages) << "</td><td>" << formatBinarySize(t.bytes) << "</td><td>"
        << formatCount(t.folders) << "</td></tr>\n";
  }
  out << "</table>\n<h2>Mailboxes that grew most</h2>\n<table><tr><th>mailbox</th><th>bytes</th><th>change</th>"
         "<th>messages change</th></tr>\n";
  for (const GrowthRow& row : h.growth) {
    out << "<tr><td class=\"name\">" << escapeMarkup(mailboxName(row)) << "</td><td>"
        << formatBinarySize(static_cast<unsigned long long>(row.bytesNow)) << "</td><td>"
        << formatSizeChange(row.bytesNow - row.bytesBefore) << "</td><td>" << row.messagesNow - row.messagesBefore
        << "</td></tr>\n";
  }
  out << "</table>\n</body></html>\n";
}

}  // namespace

bool isHistoryDate(const std::string& text) {
  static const char kDate[] = "dddd-dd-dd";
  static const char kTime[] = "dddd-dd-ddTdd:dd:ddZ";
  const char* pattern = text.size() == sizeof kDate - 1 ? kDate : text.size() == sizeof kTime - 1 ? kTime : nullptr;
  if (!pattern) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool digit = std::isdigit(static_cast<unsigned char>(text[i])) != 0;
    if (pattern[i] == 'd' ? !digit : text[i] != pattern[i]) return false;
  }
  return true;
}

std::string growthChartSvg(const std::vector<ScanTotals>& scans, bool bytes) {
  const int width = 640, height = 200, margin = 10;
  std::map<std::string, std::vector<const ScanTotals*>> byNode;
  unsigned long long top = 1;
  for (const ScanTotals& t : scans) {
    byNode[t.scan.node].push_back(&t);
    top = std::max(top, bytes ? t.bytes : t.messages);
  }
  std::ostringstream svg;
  svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << width << "\" height=\"" << height
      << "\"><rect width=\"100%\" height=\"100%\" fill=\"none\" stroke=\"#ccc\"/>";
  static const char* const kColours[] = {"#1f77b4", "#ff7f0e", "#2ca02c", "#d62728", "#9467bd", "#8c564b"};
  size_t series = 0;
  for (const auto& node : byNode) {
    svg << "<polyline fill=\"none\" stroke=\"" << kColours[series++ % 6] << "\" points=\"";
    for (const ScanTotals* t : node.second) {
      // Scans are spread evenly over the width in the order they were taken, whatever their node.
      const size_t index = static_cast<size_t>(t - scans.data());
      const double x = margin + (scans.size() > 1 ? double(width - 2 * margin) * index / (scans.size() - 1) : 0);
      const double y = height - margin - double(height - 2 * margin) * double(bytes ? t->bytes : t->messages) / top;
      svg << std::fixed << std::setprecision(1) << x << "," << y << " ";
    }
    svg << "\"><title>" << escapeMarkup(node.first) << "</title></polyline>";
  }
  svg << "</svg>";
  return svg.str();
}

bool runHistory(const HistoryOptions& options, std::ostream& out, std::string& error) {
  if (!options.since.empty() && !isHistoryDate(options.since)) {
    error = "--since wants YYYY-MM-DD or YYYY-MM-DDTHH:MM:SSZ, not \"" + options.since + "\"";
    return false;
  }
  HistoryDb db;
  if (!db.open(options.db.empty() ? defaultHistoryPath() : options.db, false, error, options.busyTimeoutMs)) {
    return false;
  }
  History h;
  if (!queryScanTotals(db, options.node, options.filter, h.scans, error) ||
      !selectScans(db, options.node, 0, h.now, error) ||
      !selectBaselines(db, h.now, options.since, h.before, error)) {
    return false;
  }
  // Only nodes with something to compare with take part in the growth.
  h.now.erase(std::remove_if(h.now.begin(), h.now.end(),
                             [&](const ScanRef& n) {
                               return std::none_of(h.before.begin(), h.before.end(),
                                                   [&](const ScanRef& b) { return b.node == n.node; });
                             }),
              h.now.end());
  if (!h.before.empty() && !queryGrowth(db, h.before, h.now, options.filter, options.limit, h.growth, error)) {
    return false;
  }
  switch (options.format) {
    case OutputFormat::Json:
      writeJson(out, h);
      break;
    case OutputFormat::Html:
      writeHtml(out, h);
      break;
    default:
      writeText(out, h);
      break;
  }
  return true;
}

}  // namespace cli
}  // namespace vorlane
