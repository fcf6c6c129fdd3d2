#include "report_output.h"

#include <map>
#include <sstream>

#include "report_html.h"
#include "report_json.h"
#include "report_openmetrics.h"
#include "report_summary.h"
#include "stat/report_file.h"

namespace vorlane {
namespace cli {

void addOutputOptions(CLI::App* command, const std::shared_ptr<OutputOptions>& options) {
  const std::map<std::string, ReportFormat> formats = {{"text", ReportFormat::Text},
                                                       {"json", ReportFormat::Json},
                                                       {"openmetrics", ReportFormat::OpenMetrics},
                                                       {"html", ReportFormat::Html}};
  command->add_option("--format", options->format, "Output format: text (default), json, openmetrics or html")
      ->transform(CLI::CheckedTransformer(formats))
      ->type_name("FORMAT");
  command->add_option("-o,--output", options->file, "Write the output to FILE (atomically) instead of the screen")
      ->type_name("FILE");
  command->add_flag("--histograms,!--no-histograms", options->histograms,
                    "Text output: add a bar chart of every histogram (default: without)");
}

void renderReport(std::ostream& out, const Report& report, const OutputOptions& options) {
  switch (options.format) {
    case ReportFormat::Text: {
      SummaryOptions summary;
      summary.showHistograms = options.histograms;
      renderSummary(out, report, summary);
      return;
    }
    case ReportFormat::Json:
      out << jsonLine(reportToJson(report)) << '\n';
      return;
    case ReportFormat::OpenMetrics:
      writeOpenMetrics(out, report);
      return;
    case ReportFormat::Html:
      writeHtml(out, report, options.htmlSection);
      return;
  }
}

bool emitReport(std::ostream& out, const Report& report, const OutputOptions& options, std::string& error) {
  if (options.file.empty()) {
    renderReport(out, report, options);
    out.flush();
    return true;
  }
  std::ostringstream text;
  renderReport(text, report, options);
  return replaceFileContents(options.file, text.str(), error);
}

}  // namespace cli
}  // namespace vorlane
