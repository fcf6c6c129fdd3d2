#include "history_section.h"

#include <sstream>
#include <vector>

#include "history_command.h"
#include "history_output.h"
#include "report_summary.h"
#include "report_writer.h"
#include "top_command.h"

namespace vorlane {
namespace cli {

namespace {

const unsigned kTopRows = 20;

void writeTopTable(std::ostream& out, const char* title, const std::vector<TopRow>& rows) {
  out << "<h3>" << title << "</h3>\n<div class=\"scroll\"><table><thead><tr><th>Name</th><th>Bytes</th>"
         "<th>Messages</th><th>Largest</th></tr></thead><tbody>\n";
  for (const TopRow& row : rows) {
    out << "<tr><td>" << escapeMarkup(displayName(row)) << "</td><td>" << formatBinarySize(row.bytes) << "</td><td>"
        << formatCount(row.messages) << "</td><td>" << formatBinarySize(row.largest) << "</td></tr>\n";
  }
  out << "</tbody></table></div>\n";
}

}  // namespace

bool historySectionHtml(const std::string& db, std::string& html, std::string& error) {
  HistoryDb history;
  if (!history.open(db, false, error)) return false;
  std::vector<ScanRef> latest;
  std::vector<TopRow> mailboxes, folders;
  std::vector<ScanTotals> totals;
  if (!selectScans(history, "", 0, latest, error) ||
      !queryTop(history, latest, TopLevel::Mailbox, TopOrder::Bytes, kTopRows, mailboxes, error) ||
      !queryTop(history, latest, TopLevel::Folder, TopOrder::Bytes, kTopRows, folders, error) ||
      !queryScanTotals(history, "", NameFilter(), totals, error)) {
    return false;
  }
  std::ostringstream out;
  out << "<h2>Who uses the space</h2>\n<p class=\"meta\">Newest scan of each node:";
  for (const ScanRef& scan : latest) {
    out << " " << scan.id << " (" << escapeMarkup(scan.node) << " " << escapeMarkup(scan.date)
        << (scan.partial ? ", stopped early" : "") << ")";
  }
  out << "</p>\n";
  writeTopTable(out, "Largest mailboxes", mailboxes);
  writeTopTable(out, "Largest folders", folders);
  out << "<h2>Growth</h2>\n<div class=\"charts\"><figure><figcaption>Bytes per scan</figcaption>"
      << growthChartSvg(totals, true) << "</figure><figure><figcaption>Messages per scan</figcaption>"
      << growthChartSvg(totals, false) << "</figure></div>\n";
  html = out.str();
  return true;
}

}  // namespace cli
}  // namespace vorlane
