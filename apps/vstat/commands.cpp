#include "commands.h"

namespace vorlane {
namespace cli {

void registerCommands(CommandLine& cli) {
  addScanCommand(cli);
  addShowCommand(cli);
  addMergeCommand(cli);
  addDiffCommand(cli);
  addMimeCommand(cli);
}

int runVstat(int argc, char** argv, std::ostream& out, std::ostream& err) {
  CommandLine cli(out, err);
  registerCommands(cli);
  return cli.run(argc, argv);
}

}  // namespace cli
}  // namespace vorlane
