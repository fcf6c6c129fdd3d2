// The one argument parser of the vstat program: every command registers itself here with its options,
// and this class gives them all the same --help layout, the same error style ("vstat scan: --build needs
// a number from 0 to 4294967295, not 'x'", followed by a hint at --help) and exit status 2 for every
// usage error. `vstat help [COMMAND]`, `vstat COMMAND --help` and `vstat --version` are handled here.
//
// Adding a command: write addXCommand(CommandLine&) that calls addCommand() with the function to run
// and declares the options on the returned CLI::App; list it in registerCommands() (commands.cpp).
// Not thread-safe: one parse per process (tests build one per run).
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace vorlane {
namespace cli {

const int kExitUsage = 2;

class CommandLine {
 public:
  // Help and version text go to `out`, usage errors to `err`; commands print where they like.
  CommandLine(std::ostream& out, std::ostream& err);

  // Registers a command; `run` is called after a successful parse and returns the exit status. The
  // returned parser is where the command declares its options; it lives as long as this object.
  CLI::App* addCommand(const std::string& name, const std::string& description, std::function<int()> run);

  // Parses and runs the command named by the arguments (argv[0] is the program's name).
  int run(int argc, char** argv);

  std::ostream& out() { return out_; }
  std::ostream& err() { return err_; }

 private:
  int usageError(const std::string& command, std::string message);
  int help(const std::string& command);

  std::ostream& out_;
  std::ostream& err_;
  CLI::App app_;
  std::vector<std::pair<CLI::App*, std::function<int()>>> commands_;
  std::string helpTopic_;
};

// Checks for option values, run before the value is converted; their messages complete "--NAME ...".
// A decimal number from 0 to `max`, digits only.
CLI::Validator numberUpTo(unsigned long long max);
// A text of at most `maxLength` bytes, and at least one unless `mayBeEmpty`.
CLI::Validator textOfLength(size_t maxLength, bool mayBeEmpty = false);

}  // namespace cli
}  // namespace vorlane
