// vstat merge A.xml B.xml ... -o ALL.xml [--force]: one report for several nodes of a cluster, as if one
// scan had walked all their stores. Exit status: 0 written, 1 a report cannot be read or the reports
// do not fit together, or the output cannot be written, 2 usage error.
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "commands.h"
#include "report_merge.h"
#include "report_reader.h"
#include "report_writer.h"
#include "stat/report_file.h"
#include "terminal_text.h"

namespace vorlane {
namespace cli {

namespace {

struct MergeOptions {
  std::vector<std::string> reports;
  std::string output;
  bool force = false;
};

int runMerge(const MergeOptions& options, std::ostream& err) {
  Report merged;
  std::string error;
  for (size_t i = 0; i < options.reports.size(); ++i) {
    const std::string& path = options.reports[i];
    Report report;
    if (!readReport(path, i == 0 ? merged : report, error)) {
      err << "vstat merge: " << terminalSafe(error) << '\n';
      return 1;
    }
    if (i > 0 && !mergeReport(merged, report, options.force, error)) {
      err << "vstat merge: " << terminalSafe(path) << " does not fit " << terminalSafe(options.reports[0]) << ": "
          << terminalSafe(error) << '\n';
      return 1;
    }
  }
  std::ostringstream text;
  writeReportXml(text, merged);
  if (!replaceFileContents(options.output, text.str(), error)) {
    err << "vstat merge: " << terminalSafe(error) << '\n';
    return 1;
  }
  return 0;
}

}  // namespace

void addMergeCommand(CommandLine& cli) {
  auto options = std::make_shared<MergeOptions>();
  CLI::App* merge = cli.addCommand("merge", "Merge the reports of several nodes into one report",
                                   [options, &cli] { return runMerge(*options, cli.err()); });
  merge->add_option("REPORT", options->reports, "The reports to merge")->required()->expected(2, 1 << 20);
  merge->add_option("-o,--output", options->output, "The merged report (written atomically)")
      ->required()
      ->type_name("FILE");
  merge->add_flag("--force", options->force, "Merge reports whose header fields differ, keeping the first's");
  merge->footer(
      "Counts, sums and histogram buckets add, maxima take the largest, averages are recomputed.\n"
      "Exit status: 0 written, 1 unreadable or mismatched reports or output not written, 2 usage error.");
}

}  // namespace cli
}  // namespace vorlane
