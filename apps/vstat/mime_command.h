// vstat mime [--json] FILE...: shows why a message counts as it does by printing the MIME part tree the
// store scan sees, as an outline or as one JSON object per file and line. Unreadable files are reported
// on the error stream and make the exit status 1; a usage error gives 2.
#pragma once

#include <ostream>

namespace vorlane {
namespace cli {

// The command with its output streams made explicit (runMimeCommand uses standard output and error).
int runMimeCommandTo(int argc, char** argv, std::ostream& out, std::ostream& err);

}  // namespace cli
}  // namespace vorlane
