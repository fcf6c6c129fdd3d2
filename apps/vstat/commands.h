// The commands of the vstat front end. Each adds itself, with its options, to the program's one parser.
#pragma once

#include "command_line.h"

namespace vorlane {
namespace cli {

void addDiffCommand(CommandLine& cli);   // vstat diff OLD NEW [--format text|json]
void addMergeCommand(CommandLine& cli);  // vstat merge A B ... -o ALL [--force]
void addMimeCommand(CommandLine& cli);   // vstat mime [--json] FILE...
void addScanCommand(CommandLine& cli);   // vstat scan STORE_DIR [options]
void addShowCommand(CommandLine& cli);   // vstat show REPORT [options]

// Every command of the program, in the order --help lists them.
void registerCommands(CommandLine& cli);

// The whole program: parses argv (argv[0] is the program's name), runs the command, returns its status.
int runVstat(int argc, char** argv, std::ostream& out, std::ostream& err);

}  // namespace cli
}  // namespace vorlane
