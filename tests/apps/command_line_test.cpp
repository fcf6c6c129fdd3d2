// The program's one parser: help and version, and the same error style and status for every usage error.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "vstat_test_support.h"
#include "vstat_version.h"

namespace vorlane {
namespace cli {
namespace {

TEST(CommandLine, HelpAndVersionGoToStandardOutput) {
  struct Case { std::vector<std::string> args; std::string expected; };
  for (const Case& c : {Case{{"--version"}, std::string(VSTAT_VERSION) + "\n"}, Case{{"help"}, "Usage: vstat "},
                        Case{{"--help"}, "Usage: vstat "}, Case{{"help", "show"}, "Usage: vstat show "},
                        Case{{"scan", "--help"}, "Usage: vstat scan "}, Case{{"mime", "-h"}, "Usage: vstat mime "}}) {
    const VstatRun r = runVstatWith(c.args);
    EXPECT_EQ(r.status, 0) << c.expected << r.err;
    EXPECT_NE(r.out.find(c.expected), std::string::npos) << r.out;
    EXPECT_EQ(r.err, "");
  }
  // The top-level help lists every command.
  const std::string top = runVstatWith({"help"}).out;
  for (const char* command : {"scan", "show", "mime"}) EXPECT_NE(top.find(command), std::string::npos) << top;
}

TEST(CommandLine, UsageErrorsNameTheCommandAndExitWithTwo) {
  struct Case { std::vector<std::string> args; std::string message; };
  for (const Case& c :
       {Case{{}, "vstat: no command given"}, Case{{"bogus"}, "vstat: "},
        Case{{"help", "bogus"}, "vstat help: no command 'bogus'"},
        Case{{"scan", "s", "--build"}, "vstat scan: --build needs a value"},
        Case{{"scan", "s", "--build", "1x"}, "vstat scan: --build needs a number from 0 to 4294967295, not '1x'"},
        Case{{"scan", "s", "--os-code=-1"}, "vstat scan: --os-code needs a number"},
        Case{{"show"}, "vstat show: REPORT is required"}, Case{{"mime", "--json"}, "vstat mime: FILE is required"},
        Case{{"mime", "--xml", "f"}, "vstat mime: "}}) {
    const VstatRun r = runVstatWith(c.args);
    EXPECT_EQ(r.status, 2) << c.message;
    EXPECT_EQ(r.err.compare(0, c.message.size(), c.message), 0) << r.err;
    EXPECT_NE(r.err.find("--help' for the options.\n"), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "");
  }
}

}  // namespace
}  // namespace cli
}  // namespace vorlane
