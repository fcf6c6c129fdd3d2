#include "report_html.h"

#include <algorithm>
#include <string>
#include <vector>

#include "report_summary.h"
#include "report_writer.h"

namespace vorlane {
namespace cli {

namespace {

// Chart geometry in SVG user units; the SVG scales to the width it is given.
const int kChartWidth = 480;
const int kLabelWidth = 96;
const int kBarSpace = 300;
const int kRowHeight = 22;
const int kBarHeight = 16;

const char kStyle[] =
    "body{font:15px/1.4 system-ui,sans-serif;margin:0 auto;padding:1em;max-width:1200px;color:#222}"
    "h1{font-size:1.5em;margin:.2em 0}h2{font-size:1.2em;margin-top:1.5em}h3{font-size:1em;margin:1.2em 0 .3em}"
    ".meta{color:#555}.totals{display:grid;grid-template-columns:repeat(auto-fill,minmax(14em,1fr));gap:.3em 1em}"
    ".totals div{display:flex;justify-content:space-between;border-bottom:1px solid #ddd}.totals dt{color:#555}"
    ".totals dd{margin:0;font-weight:600}.scroll{overflow-x:auto}table{border-collapse:collapse;width:100%}"
    "th,td{padding:.25em .5em;text-align:right;white-space:nowrap;border-bottom:1px solid #eee}"
    "th:first-child,td:first-child{text-align:left}"
    ".charts{display:grid;grid-template-columns:repeat(auto-fill,minmax(min(100%,520px),1fr));gap:1em}"
    "figure{margin:0}figcaption{font-size:.9em;color:#333}svg.chart{width:100%;height:auto}"
    "svg text{font:11px sans-serif;fill:#333}svg rect{fill:#3a7bd5}";

void writeChart(std::ostream& out, const ReportCounter& h, const std::vector<Bar>& bars) {
  unsigned long long peak = 0;
  for (const Bar& b : bars) peak = std::max(peak, b.count);
  const int height = static_cast<int>(bars.size()) * kRowHeight + 4;
  out << "<figure><figcaption>" << escapeMarkup(h.name) << ": " << formatCount(h.count) << " samples</figcaption>"
      << "<svg class=\"chart\" xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << kChartWidth << ' ' << height
      << "\" role=\"img\" aria-label=\"" << escapeMarkup(h.name) << "\">";
  for (size_t i = 0; i < bars.size(); ++i) {
    const int y = static_cast<int>(i) * kRowHeight + 2;
    int width = static_cast<int>(static_cast<double>(bars[i].count) * kBarSpace / static_cast<double>(peak) + 0.5);
    if (bars[i].count > 0 && width == 0) width = 1;
    out << "<text x=\"" << kLabelWidth - 6 << "\" y=\"" << y + 12 << "\" text-anchor=\"end\">" << escapeMarkup(bars[i].label)
        << "</text><rect x=\"" << kLabelWidth << "\" y=\"" << y << "\" width=\"" << width << "\" height=\""
        << kBarHeight << "\"/><text x=\"" << kLabelWidth + width + 4 << "\" y=\"" << y + 12 << "\">"
        << formatCount(bars[i].count) << "</text>";
  }
  out << "</svg></figure>";
}

}  // namespace

void writeHtml(std::ostream& out, const Report& report, const std::string& extraSection) {
  out << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
         "<title>Store statistics report</title><style>"
      << kStyle << "</style></head>\n<body>\n<h1>Store statistics report</h1>\n<p class=\"meta\">Product "
      << escapeMarkup(report.productVersion) << ", build " << report.build << ", on " << escapeMarkup(report.osName) << " (os code "
      << report.osCode << "), report format " << escapeMarkup(report.version) << "</p>\n";

  out << "<h2>Store totals</h2>\n<dl class=\"totals\">";
  for (const TotalLine& line : storeTotals(report)) {
    out << "<div><dt>" << escapeMarkup(line.label) << "</dt><dd>" << escapeMarkup(line.value) << "</dd></div>";
  }
  out << "</dl>\n";

  const std::vector<TableRow> rows = collectionTable(report);
  out << "<h2>Collections with data</h2>\n";
  if (rows.empty()) {
    out << "<p>No collection holds data.</p>\n";
  } else {
    out << "<div class=\"scroll\"><table><thead><tr><th>Collection</th>";
    for (const char* heading : kTableHeadings) out << "<th>" << heading << "</th>";
    out << "</tr></thead><tbody>\n";
    for (const TableRow& row : rows) {
      out << "<tr><td>" << escapeMarkup(row.name) << "</td>";
      for (const std::string& cell : row.cells) out << "<td>" << escapeMarkup(cell) << "</td>";
      out << "</tr>\n";
    }
    out << "</tbody></table></div>\n";
  }

  bool heading = false;
  for (const ReportCollection& c : report.collections) {
    bool opened = false;
    for (const ReportCounter& counter : c.counters) {
      if (!counter.histogram) continue;
      const std::vector<Bar> bars = histogramBars(counter);
      if (bars.empty()) continue;
      if (!heading) out << "<h2>Distributions</h2>\n";
      heading = true;
      if (!opened) out << "<section><h3>" << escapeMarkup(c.name) << "</h3><div class=\"charts\">";
      opened = true;
      writeChart(out, counter, bars);
    }
    if (opened) out << "</div></section>\n";
  }
  out << extraSection << "</body></html>\n";
}

}  // namespace cli
}  // namespace vorlane
