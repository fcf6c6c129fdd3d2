// Placeholder until the scan command lands.
#include <cstdio>

#include "commands.h"

namespace vorlane {
namespace cli {

int runScanCommand(int, char**) {
  std::fprintf(stderr, "vstat scan: not available in this build\n");
  return 2;
}

}  // namespace cli
}  // namespace vorlane
