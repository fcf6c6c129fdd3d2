#include "report_writer.h"

#include <iomanip>
#include <string>

namespace vorlane {
namespace cli {

namespace {

void writeCounter(std::ostream& out, const ReportCounter& c) {
  const char* element = c.histogram ? "histogramCounter" : "counter";
  out << "\t\t\t<" << element << " name='" << escapeMarkup(c.name) << "'>\n";
  out << "\t\t\t\t<value>" << c.count << "</value>\n";
  if (!c.valueOnly) {
    out << "\t\t\t\t<sum>" << c.sum << "</sum>\n";
    out << "\t\t\t\t<max>" << c.max << "</max>\n";
    out << "\t\t\t\t<avg>";
    if (c.count == 0) {
      out << "undef";
    } else {
      out << std::fixed << std::setprecision(2) << static_cast<double>(c.sum) / static_cast<double>(c.count);
    }
    out << "</avg>\n";
  }
  for (const ReportBucket& b : c.buckets) out << "\t\t\t\t<histValue max='" << b.max << "'>" << b.count << "</histValue>\n";
  out << "\t\t\t</" << element << ">\n";
}

}  // namespace

std::string escapeMarkup(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '\'': out += "&#39;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

void writeReportXml(std::ostream& out, const Report& report) {
  out << "<!-- Vorlane MailHub message store statistical data -->\n"
         "<!-- this report includes only statistical data that will be used only for internal purposes of "
         "Vorlane Works -->\n\n";
  out << "<vlsStoreStatistic version='" << escapeMarkup(report.version) << "'>\n";
  out << "\t<productVersion>" << escapeMarkup(report.productVersion) << "</productVersion>\n";
  out << "\t<build>" << report.build << "</build>\n";
  out << "\t<osName>" << escapeMarkup(report.osName) << "</osName>\n";
  out << "\t<osCode>" << report.osCode << "</osCode>\n";
  for (const ReportCollection& c : report.collections) {
    out << "<collection name='" << escapeMarkup(c.name) << "' publicType='" << c.publicType << "' folderType='"
        << c.folderType << "' comparison='" << c.comparison << "'>\n";
    for (const ReportCounter& counter : c.counters) writeCounter(out, counter);
    out << "</collection>\n";
  }
  out << "</vlsStoreStatistic>\n";
}

}  // namespace cli
}  // namespace vorlane
