// Placeholder until the mime command lands.
#include <cstdio>

#include "commands.h"

namespace vorlane {
namespace cli {

int runMimeCommand(int, char**) {
  std::fprintf(stderr, "vstat mime: not available in this build\n");
  return 2;
}

}  // namespace cli
}  // namespace vorlane
