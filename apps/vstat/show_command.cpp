// Placeholder until the show command lands.
#include <cstdio>

#include "commands.h"

namespace vorlane {
namespace cli {

int runShowCommand(int, char**) {
  std::fprintf(stderr, "vstat show: not available in this build\n");
  return 2;
}

}  // namespace cli
}  // namespace vorlane
