// vstat diff OLD.xml NEW.xml [--format text|json]: how every figure changed between two reports, for
// example from one month to the next. Exit status: 0 shown, 1 a report cannot be read, 2 usage error.
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "commands.h"
#include "report_diff.h"
#include "report_reader.h"
#include "report_summary.h"
#include "terminal_text.h"

namespace vorlane {
namespace cli {

namespace {

struct DiffOptions {
  std::string before;
  std::string after;
  bool json = false;
};

std::string signedCount(const FigureChange& c) {
  return (c.after >= c.before ? "+" + formatCount(c.after - c.before) : "-" + formatCount(c.before - c.after));
}

void writeText(std::ostream& out, const std::vector<FigureChange>& all) {
  const std::vector<FigureChange> changed = largestChangesFirst(all);
  out << changed.size() << " of " << all.size() << " figures changed";
  if (changed.empty()) {
    out << ".\n";
    return;
  }
  out << ", largest changes first:\n";
  for (const FigureChange& c : changed) {
    long double p = 0;
    char percent[32];
    if (!c.inAfter) {
      std::snprintf(percent, sizeof percent, "gone");
    } else if (c.percent(p)) {
      std::snprintf(percent, sizeof percent, "%+.1Lf%%", p);
    } else {
      std::snprintf(percent, sizeof percent, "new");
    }
    char head[64];
    std::snprintf(head, sizeof head, "%9s %16s  ", percent, signedCount(c).c_str());
    out << "  " << head << terminalSafe(c.collection) << " / " << terminalSafe(c.counter) << " / " << c.figure << ": "
        << formatCount(c.before) << " -> " << formatCount(c.after) << '\n';
  }
}

int runDiff(const DiffOptions& options, std::ostream& out, std::ostream& err) {
  Report before;
  Report after;
  std::string error;
  if (!readReport(options.before, before, error) || !readReport(options.after, after, error)) {
    err << "vstat diff: " << terminalSafe(error) << '\n';
    return 1;
  }
  const std::vector<FigureChange> changes = diffReports(before, after);
  if (options.json) {
    out << jsonLine(diffJson(changes)) << '\n';
  } else {
    writeText(out, changes);
  }
  out.flush();
  return 0;
}

}  // namespace

void addDiffCommand(CommandLine& cli) {
  auto options = std::make_shared<DiffOptions>();
  CLI::App* diff = cli.addCommand("diff", "Show how every figure changed between two reports",
                                  [options, &cli] { return runDiff(*options, cli.out(), cli.err()); });
  diff->add_option("OLD", options->before, "The older report")->required();
  diff->add_option("NEW", options->after, "The newer report")->required();
  const std::map<std::string, bool> formats = {{"text", false}, {"json", true}};
  diff->add_option("--format", options->json, "Output format: text (default) or json")
      ->transform(CLI::CheckedTransformer(formats))
      ->type_name("FORMAT");
  diff->footer("Exit status: 0 shown, 1 a report cannot be read, 2 usage error.");
}

}  // namespace cli
}  // namespace vorlane
