// The mkstore program: argument handling, exit codes and the manifest file, through the real binary.
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "mkstore/manifest.h"
#include "mkstore/store_generator.h"
#include "../support/temp_dir.h"
#include "vstat_version.h"

using vorlane::testing::TempDir;

namespace {

// Runs mkstore with `args`, standard output and error going to files in `dir`; returns the exit status.
int mkstore(const TempDir& dir, const std::string& args) {
  const std::string cmd = std::string(VSTAT_BIN_DIR) + "/mkstore " + args + " >" + dir.file("out.txt") + " 2>" +
                          dir.file("err.txt");
  const int rc = system(cmd.c_str());
  return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
}

}  // namespace

// Every usage error is one line naming the problem in the same words, then the usage line; status 2.
TEST(MkstoreCommand, BadArgumentsAreRefusedWithTheProblemAndStatus2) {
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  const std::string out = dir.file("store");
  struct Case { std::string args, problem; };
  const Case cases[] = {
      {"--seed 1 " + out, "--messages, --seed and OUT_DIR are required"},
      {"--messages -5 --seed 1 " + out, "--messages needs a number"},
      {"--messages --seed 1 " + out, "--messages needs a number"},
      {"--messages 5 --seed 1 " + out + " --manifest", "--manifest needs a file name"},
      {"--messages 100000001 --seed 1 " + out, "--messages must be at most 100000000"},
      {"--messages 5 --seed 1 --bogus " + out, "unknown option --bogus"},
      {"--messages 5 --seed 1 " + out + " " + out + "2", "only one OUT_DIR may be given"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(mkstore(dir, c.args), 2) << c.args;
    const std::string err = dir.read("err.txt");
    EXPECT_EQ(err.rfind("mkstore: " + c.problem + "\nusage: mkstore ", 0), 0u) << c.args << "\n" << err;
  }
  EXPECT_FALSE(std::filesystem::exists(out));
}

// --help and --version answer on standard output with status 0 and write nothing else.
TEST(MkstoreCommand, HelpAndVersionGoToStandardOutput) {
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  ASSERT_EQ(mkstore(dir, "--version"), 0);
  EXPECT_EQ(dir.read("out.txt"), std::string(VSTAT_VERSION) + "\n");
  ASSERT_EQ(mkstore(dir, "--help --messages 5 --seed 1 " + dir.file("store")), 0);
  EXPECT_NE(dir.read("out.txt").find("--manifest FILE"), std::string::npos);
  EXPECT_EQ(dir.read("err.txt"), "");
  EXPECT_FALSE(std::filesystem::exists(dir.file("store")));
}

// A store that is there already is kept, and with --force only its mail/ directory is replaced.
TEST(MkstoreCommand, WritesTheLibrarysManifestAndReplacesOnlyTheStoreWhenForced) {
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  const std::string args = "--messages 20 --seed 9 --manifest " + dir.file("m.json") + " " + dir.file("store");
  ASSERT_EQ(mkstore(dir, args), 0) << dir.read("err.txt");

  vorlane::mkstore::StoreOptions options;
  options.messages = 20;
  options.seed = 9;
  options.outDir = dir.file("again");
  vorlane::mkstore::Manifest manifest;
  std::string error;
  ASSERT_TRUE(vorlane::mkstore::generateStore(options, manifest, error)) << error;
  EXPECT_EQ(dir.read("m.json"), vorlane::mkstore::manifestJson(manifest));
  EXPECT_NE(dir.read("out.txt").find("message files      20 "), std::string::npos) << dir.read("out.txt");

  const std::string stale = dir.write("store/mail/stale.txt", "x");
  const std::string kept = dir.write("store/keep.txt", "x");
  EXPECT_EQ(mkstore(dir, args), 1);
  EXPECT_NE(dir.read("err.txt").find(dir.file("store") + " is not empty"), std::string::npos) << dir.read("err.txt");
  EXPECT_TRUE(std::filesystem::exists(stale));
  EXPECT_EQ(mkstore(dir, "--force " + args), 0) << dir.read("err.txt");
  EXPECT_FALSE(std::filesystem::exists(stale));
  EXPECT_TRUE(std::filesystem::exists(kept));
}
