// vstat show REPORT.xml [--no-histograms]: prints the summary of an existing store statistics report.
// Exit status: 0 summary printed (also for a truncated report, which is flagged in the output),
// 1 the file cannot be read or is not a report, 2 usage error.
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

#include "commands.h"
#include "report_reader.h"
#include "report_summary.h"

namespace vorlane {
namespace cli {

namespace {

void printShowUsage(FILE* out) {
  std::fprintf(out,
               "usage: vstat show REPORT.xml [--no-histograms]\n"
               "Prints a readable summary of a store statistics report.\n"
               "  --no-histograms  totals and the collection table only\n"
               "Exit status: 0 shown, 1 unreadable or not a report, 2 usage error.\n");
}

}  // namespace

int runShowCommand(int argc, char** argv) {
  const char* path = nullptr;
  SummaryOptions options;
  for (int i = 0; i < argc; ++i) {
    const char* arg = argv[i];
    if (std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0) {
      printShowUsage(stdout);
      return 0;
    }
    if (std::strcmp(arg, "--no-histograms") == 0) {
      options.showHistograms = false;
    } else if (arg[0] == '-' && arg[1] != '\0') {
      std::fprintf(stderr, "vstat show: unknown option '%s'\n", arg);
      printShowUsage(stderr);
      return 2;
    } else if (path) {
      std::fprintf(stderr, "vstat show: more than one report given ('%s' and '%s')\n", path, arg);
      printShowUsage(stderr);
      return 2;
    } else {
      path = arg;
    }
  }
  if (!path) {
    std::fprintf(stderr, "vstat show: no report file given\n");
    printShowUsage(stderr);
    return 2;
  }

  ReportSummary report;
  std::string error;
  if (!readReport(path, report, error)) {
    std::fprintf(stderr, "vstat show: %s\n", error.c_str());
    return 1;
  }
  renderSummary(std::cout, report, options);
  std::cout << "\nReport: " << path << std::endl;
  return 0;
}

}  // namespace cli
}  // namespace vorlane
