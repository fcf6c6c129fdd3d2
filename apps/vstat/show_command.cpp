// vstat show REPORT [--format text|json|openmetrics|html] [-o FILE] [--histograms]: shows an existing
// store statistics report for people or machines.
// Exit status: 0 shown, 1 the file cannot be read, is not a complete report or the output cannot be
// written, 2 usage error.
#include <iostream>
#include <memory>
#include <string>

#include "commands.h"
#include "report_output.h"
#include "report_reader.h"
#include "terminal_text.h"

namespace vorlane {
namespace cli {

namespace {

struct ShowOptions {
  std::string path;
  std::shared_ptr<OutputOptions> output = std::make_shared<OutputOptions>();
};

int runShow(const ShowOptions& options, std::ostream& out, std::ostream& err) {
  Report report;
  std::string error;
  if (!readReport(options.path, report, error) || !emitReport(out, report, *options.output, error)) {
    err << "vstat show: " << terminalSafe(error) << '\n';
    return 1;
  }
  if (options.output->file.empty() && options.output->format == ReportFormat::Text) {
    out << "\nReport: " << terminalSafe(options.path) << std::endl;
  }
  return 0;
}

}  // namespace

void addShowCommand(CommandLine& cli) {
  auto options = std::make_shared<ShowOptions>();
  CLI::App* show = cli.addCommand("show", "Show a store statistics report as text, JSON, OpenMetrics or HTML",
                                  [options, &cli] { return runShow(*options, cli.out(), cli.err()); });
  show->add_option("REPORT", options->path, "The report file")->required();
  addOutputOptions(show, options->output);
  show->footer("Exit status: 0 shown, 1 unreadable, not a complete report or not written, 2 usage error.");
}

}  // namespace cli
}  // namespace vorlane
