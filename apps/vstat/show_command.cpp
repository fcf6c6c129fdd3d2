// vstat show REPORT.xml [--no-histograms]: prints the summary of an existing store statistics report.
// Exit status: 0 summary printed (also for a truncated report, which is flagged in the output),
// 1 the file cannot be read or is not a report, 2 usage error.
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

#include "commands.h"
#include <memory>
#include "report_reader.h"
#include "report_summary.h"

namespace vorlane {
namespace cli {

namespace {

struct ShowOptions {
  std::string path;
  SummaryOptions summary;
};

int runShow(const ShowOptions& options, std::ostream& out, std::ostream& err) {
  Report report;
  std::string error;
  if (!readReport(options.path, report, error)) {
    err << "vstat show: " << error << '\n';
    return 1;
  }
  renderSummary(out, report, options.summary);
  out << "\nReport: " << options.path << std::endl;
  return 0;
}

}  // namespace

void addShowCommand(CommandLine& cli) {
  auto options = std::make_shared<ShowOptions>();
  CLI::App* show = cli.addCommand("show", "Summarise a store statistics report",
                                  [options, &cli] { return runShow(*options, cli.out(), cli.err()); });
  show->add_option("REPORT", options->path, "The report file")->required();
  show->add_flag_callback("--no-histograms", [options] { options->summary.showHistograms = false; },
                          "Totals and the collection table only");
  show->footer("Exit status: 0 shown, 1 unreadable or not a report, 2 usage error.");
}

}  // namespace cli
}  // namespace vorlane
