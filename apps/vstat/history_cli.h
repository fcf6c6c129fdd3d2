// The command line of the history commands: `vstat import`, `vstat top` and `vstat history`, as CLI11
// subcommands that run their command when parsed. Exit status: 0 done, 1 failed (the reason on standard
// error), 2 usage error.
// Not thread-safe: parse once, on the main thread.
#pragma once

#include <CLI/CLI.hpp>

namespace vorlane {
namespace cli {

// Adds the three subcommands to `app`; the one parsed sets `status`. The options live as long as `app`.
void addHistorySubcommands(CLI::App& app, int& status);

// vstat import|top|history ...: argv[1] names the subcommand.
int runHistoryCommand(int argc, char** argv);

}  // namespace cli
}  // namespace vorlane
