// The outputs of a report model that `vstat show` and `vstat scan` share: the options that choose one
// (--format text|json|openmetrics|html, -o FILE, --histograms/--no-histograms) and the function that
// writes it, to standard output or atomically to a file (a temporary file in the target's directory,
// renamed over the target, so a collector never reads half a file). Not thread-safe: one per command.
#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <ostream>
#include <string>

#include "report_model.h"

namespace vorlane {
namespace cli {

enum class ReportFormat { Text, Json, OpenMetrics, Html };

struct OutputOptions {
  ReportFormat format = ReportFormat::Text;
  std::string file;         // empty: standard output
  bool histograms = false;  // text only: add the histogram bars
  std::string htmlSection;  // html only: markup added at the end of the page
};

// Declares the output options on a command.
void addOutputOptions(CLI::App* command, const std::shared_ptr<OutputOptions>& options);

// Renders `report` in the chosen format into `out`.
void renderReport(std::ostream& out, const Report& report, const OutputOptions& options);

// Writes the rendering to options.file, or to `out` when no file is named; false with `error` naming
// the file and the reason.
bool emitReport(std::ostream& out, const Report& report, const OutputOptions& options, std::string& error);

}  // namespace cli
}  // namespace vorlane
