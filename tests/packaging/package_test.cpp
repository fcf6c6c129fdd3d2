// The Debian package: unpacked into a temporary root (as `dpkg-deb -x` does), its programs must run from
// where they are installed, its units and manual pages must be accepted by the tools that read them, and
// lintian must find no error.
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "../support/temp_dir.h"
#include "mkstore/manifest.h"
#include "mkstore/report_check.h"
#include "mkstore/store_generator.h"
#include "vstat_version.h"

using vorlane::testing::TempDir;

namespace {

struct Outcome { int status; std::string out, err; };

// Runs `command` through the shell in `dir`'s directory, keeping its output and error text.
Outcome run(const TempDir& dir, const std::string& command) {
  const int rc = system(("cd " + dir.path() + " && (" + command + ") >out.txt 2>err.txt").c_str());
  return {WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, dir.read("out.txt"), dir.read("err.txt")};
}

// The package unpacked below dir/root.
class Package : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(dir_.path().empty());
    const Outcome unpack = run(dir_, std::string("dpkg-deb -x ") + VSTAT_PACKAGE_FILE + " root");
    ASSERT_EQ(unpack.status, 0) << unpack.err;
  }
  std::string root(const std::string& path) const { return dir_.file("root" + path); }

  TempDir dir_;
};

TEST_F(Package, IsLintianCleanWithItsVersionAndTheLibrariesItsProgramsNeed) {
  const Outcome lintian = run(dir_, std::string("lintian --fail-on error ") + VSTAT_PACKAGE_FILE);
  EXPECT_EQ(lintian.status, 0) << lintian.out << lintian.err;

  const Outcome fields = run(dir_, std::string("dpkg-deb -f ") + VSTAT_PACKAGE_FILE + " Version Depends");
  ASSERT_EQ(fields.status, 0) << fields.err;
  EXPECT_EQ(fields.out.rfind(std::string("Version: ") + VSTAT_VERSION + "\n", 0), 0u) << fields.out;
  // The programs are C++: the dependencies are computed from the binaries, not written by hand.
  for (const char* library : {"libc6 (>= ", "libstdc++6 (>= "}) {
    EXPECT_NE(fields.out.find(library), std::string::npos) << fields.out;
  }
}

// From the unpacked root alone: the versions, a generated store, and a full scan by the installed
// vstat, which finds the installed server and its conversion library by itself.
TEST_F(Package, InstalledProgramsScanAGeneratedStore) {
  for (const char* program : {"vstat", "mkstore"}) {
    const Outcome version = run(dir_, root("/usr/bin/") + program + " --version");
    EXPECT_EQ(version.status, 0) << program << ": " << version.err;
    EXPECT_EQ(version.out, std::string(VSTAT_VERSION) + "\n") << program;
  }

  const Outcome mkstore = run(dir_, root("/usr/bin/mkstore") + " --messages 150 --seed 17 --manifest manifest.json store");
  ASSERT_EQ(mkstore.status, 0) << mkstore.err;
  vorlane::mkstore::StoreOptions options;
  options.messages = 150;
  options.seed = 17;
  options.outDir = dir_.file("expected");
  vorlane::mkstore::Manifest manifest;
  std::string error;
  ASSERT_TRUE(vorlane::mkstore::generateStore(options, manifest, error)) << error;
  ASSERT_EQ(dir_.read("manifest.json"), vorlane::mkstore::manifestJson(manifest));

  const Outcome scan = run(dir_, root("/usr/bin/vstat") + " scan store --report report.xml");
  ASSERT_EQ(scan.status, 0) << scan.out << scan.err;
  std::vector<vorlane::mkstore::ReportFigure> figures;
  ASSERT_TRUE(vorlane::mkstore::compareReport(dir_.read("report.xml"), manifest, figures, error)) << error;
  for (const auto& f : figures) EXPECT_EQ(f.found, f.expected) << f.collection << " / " << f.counter;
}

// systemd reads the units as shipped, with only the program's path moved into the unpacked root (the
// verifier checks that it exists) and the manual pages they name looked up there.
TEST_F(Package, MetricsUnitsPassSystemdVerification) {
  const std::string units = root("/usr/lib/systemd/system");
  const Outcome verify = run(dir_, "mkdir units && for u in " + units + "/vstat-metrics.*; do sed 's|/usr/bin/vstat |" +
                                   root("/usr/bin/vstat") + " |' $u >units/${u##*/}; done && MANPATH=" +
                                   root("/usr/share/man") +
                                   " systemd-analyze verify units/vstat-metrics.timer units/vstat-metrics.service");
  EXPECT_EQ(verify.status, 0) << verify.out << verify.err;
  EXPECT_EQ(verify.err, "");
}

TEST_F(Package, ManualPagesFormatWithoutWarnings) {
  for (const char* page : {"man1/vstat.1.gz", "man1/mkstore.1.gz", "man8/vstatserver.8.gz"}) {
    const std::string path = root("/usr/share/man/") + page;
    const Outcome man = run(dir_, "MANWIDTH=80 man --warnings -l " + path);
    EXPECT_EQ(man.status, 0) << page;
    EXPECT_EQ(man.err, "") << page;
    EXPECT_NE(man.out.find("EXIT STATUS"), std::string::npos) << page;
    const Outcome groff = run(dir_, "zcat " + path + " | groff -ww -man -z");
    EXPECT_EQ(groff.status, 0) << page;
    EXPECT_EQ(groff.err, "") << page;
  }
}

// The shipped completion, driven as bash does on a Tab at the end of each line, in a directory holding one
// subdirectory, one report and one other file.
TEST_F(Package, BashCompletionOffersCommandsOptionsValuesAndFiles) {
  dir_.write("cwd/stores/.keep", "");
  dir_.write("cwd/report.xml", "");
  dir_.write("cwd/notes.txt", "");
  dir_.write("complete.sh",
             "source /usr/share/bash-completion/bash_completion\n"
             "source " + root("/usr/share/bash-completion/completions/vstat") + "\n"
             "cd cwd\n"
             "while IFS= read -r line; do\n"
             "  read -ra COMP_WORDS <<<\"$line\"\n"
             "  [[ $line == *' ' ]] && COMP_WORDS+=('')\n"
             "  COMP_CWORD=$((${#COMP_WORDS[@]} - 1)) COMP_LINE=$line COMP_POINT=${#line} COMPREPLY=()\n"
             "  _vstat vstat \"${COMP_WORDS[COMP_CWORD]}\" \"${COMP_WORDS[COMP_CWORD - 1]}\"\n"
             "  echo $(printf '%s\\n' \"${COMPREPLY[@]}\" | sort)\n"
             "done\n");
  struct Case { const char* line; const char* offered; };
  const Case cases[] = {
      {"vstat ", "diff help history import merge mime scan show top"},
      {"vstat --", "--help --version"},
      {"vstat help s", "scan show"},
      {"vstat scan --th", "--threads"},
      {"vstat scan --report out --no-", "--no-histograms --no-wait"},
      {"vstat top --level ", "domain folder mailbox"},
      {"vstat top --by m", "messages"},
      {"vstat diff --format ", "json text"},
      {"vstat show --format o", "openmetrics"},
      {"vstat scan ", "stores"},
      {"vstat scan stores --report ", "notes.txt report.xml stores"},
      {"vstat merge ", "report.xml stores"},
      {"vstat scan --threads ", ""},
  };
  std::string lines, expected;
  for (const Case& c : cases) {
    lines += std::string(c.line) + "\n";
    expected += std::string(c.offered) + "\n";
  }
  dir_.write("lines.txt", lines);
  const Outcome completion = run(dir_, "bash complete.sh <lines.txt");
  ASSERT_EQ(completion.status, 0) << completion.err;
  EXPECT_EQ(completion.err, "");
  EXPECT_EQ(completion.out, expected) << lines;
}

}  // namespace
