// vstat show REPORT [--format text|json|openmetrics|html] [-o FILE] [--histograms] [--history DB]: shows
// an existing store statistics report for people or machines; the HTML page can add the largest
// mailboxes and folders and the store's growth from a history database.
// Exit status: 0 shown, 1 the file or database cannot be read, is not a complete report or the output
// cannot be written, 2 usage error.
#include <iostream>
#include <memory>
#include <string>

#include "commands.h"
#include "history_section.h"
#include "report_output.h"
#include "report_reader.h"
#include "terminal_text.h"

namespace vorlane {
namespace cli {

namespace {

struct ShowOptions {
  std::string path;
  std::string history;  // a history database for the HTML page; empty: none
  std::shared_ptr<OutputOptions> output = std::make_shared<OutputOptions>();
};

int runShow(const ShowOptions& options, std::ostream& out, std::ostream& err) {
  if (!options.history.empty() && options.output->format != ReportFormat::Html) {
    err << "vstat show: --history goes with --format html\n";
    return 2;
  }
  Report report;
  std::string error;
  if (!options.history.empty() && !historySectionHtml(options.history, options.output->htmlSection, error)) {
    err << "vstat show: " << terminalSafe(error) << '\n';
    return 1;
  }
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
  show->add_option("--history", options->history,
                   "HTML only: add the largest mailboxes and folders and the growth from this history database");
  show->footer("Exit status: 0 shown, 1 report or history unreadable, not a complete report or not written, 2 usage error.");
}

}  // namespace cli
}  // namespace vorlane
