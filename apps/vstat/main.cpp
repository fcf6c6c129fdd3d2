// vstat: the command-line front end of the statistics service.
#include <cstdio>
#include <cstring>

#include "commands.h"
#include "history_cli.h"

namespace {

void printUsage(FILE* out) {
  std::fprintf(out,
               "usage: vstat scan STORE_DIR [--server PATH] [--report FILE] [--product-version V]\n"
               "                  [--build N] [--os-name S] [--os-code N] [--verbose] [--no-histograms]\n"
               "       vstat show REPORT.xml [--no-histograms]\n"
               "       vstat mime [--json] FILE...\n"
               "       vstat import REPORT.xml DETAILS.jsonl [--db DB] [--node NAME]\n"
               "       vstat top [--db DB | --details FILE] [--level domain|mailbox|folder]\n"
               "                 [--by bytes|messages|largest] [-n N] [--format text|json|csv] [--scan ID]\n"
               "                 [--node NAME]\n"
               "       vstat history [--db DB] [--domain D [--mailbox M]] [--since DATE]\n"
               "                     [--format text|json|html] [--node NAME]\n");
}

}  // namespace

int main(int argc, char** argv) {
  using namespace vorlane::cli;
  if (argc < 2) {
    printUsage(stderr);
    return 2;
  }
  const char* command = argv[1];
  if (std::strcmp(command, "scan") == 0) return runScanCommand(argc - 2, argv + 2);
  if (std::strcmp(command, "show") == 0) return runShowCommand(argc - 2, argv + 2);
  if (std::strcmp(command, "mime") == 0) return runMimeCommand(argc - 2, argv + 2);
  for (const char* history : {"import", "top", "history"}) {
    if (std::strcmp(command, history) == 0) return runHistoryCommand(argc, argv);
  }
  if (std::strcmp(command, "--help") == 0 || std::strcmp(command, "-h") == 0) {
    printUsage(stdout);
    return 0;
  }
  std::fprintf(stderr, "vstat: unknown command '%s'\n", command);
  printUsage(stderr);
  return 2;
}
