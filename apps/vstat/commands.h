// The subcommands of the vstat front end. Each takes the arguments after its own name and returns the
// process exit status.
#pragma once

namespace vorlane {
namespace cli {

int runMimeCommand(int argc, char** argv);  // vstat mime [--json] FILE...
int runScanCommand(int argc, char** argv);  // vstat scan STORE_DIR [options]
int runShowCommand(int argc, char** argv);  // vstat show REPORT.xml

}  // namespace cli
}  // namespace vorlane
