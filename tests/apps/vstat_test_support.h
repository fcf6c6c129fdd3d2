// Helpers for the vstat tests: the whole program run in-process through its parser with its output
// captured. One test thread at a time.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "../support/temp_dir.h"
#include "commands.h"

namespace vorlane {
namespace cli {

struct VstatRun {
  int status;
  std::string out;
  std::string err;
};

// Runs `vstat ARGS...`.
inline VstatRun runVstatWith(std::vector<std::string> args) {
  args.insert(args.begin(), "vstat");
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(&a[0]);
  std::ostringstream out;
  std::ostringstream err;
  const int status = runVstat(static_cast<int>(argv.size()), argv.data(), out, err);
  return VstatRun{status, out.str(), err.str()};
}

}  // namespace cli
}  // namespace vorlane
