// The mkstore program: argument handling, exit codes and the manifest file, through the real binary.
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "mkstore/manifest.h"
#include "mkstore/store_generator.h"
#include "../support/temp_dir.h"

using vorlane::testing::TempDir;

namespace {

std::string readAll(const std::string& path) {
  std::ifstream in(path);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// Runs mkstore with `args`, standard output and error going to files in `dir`; returns the exit status.
int mkstore(const TempDir& dir, const std::string& args) {
  const std::string cmd = std::string(VSTAT_BIN_DIR) + "/mkstore " + args + " >" + dir.file("out.txt") + " 2>" +
                          dir.file("err.txt");
  const int rc = system(cmd.c_str());
  return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
}

}  // namespace

TEST(MkstoreCommand, BadArgumentsAreRefusedWithUsageAndStatus2) {
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  const std::string out = dir.file("store");
  const std::string cases[] = {"--seed 1 " + out, "--messages 5 " + out, "--messages 5 --seed 1",
                                  "--messages -5 --seed 1 " + out, "--messages 5x --seed 1 " + out,
                                  "--messages 100000001 --seed 1 " + out, "--messages 5 --seed 1 --bogus " + out,
                                  "--messages 5 --seed 1 " + out + " " + out + "2"};
  for (const std::string& args : cases) {
    EXPECT_EQ(mkstore(dir, args), 2) << args;
    EXPECT_NE(readAll(dir.file("err.txt")).find("usage: mkstore"), std::string::npos) << args;
  }
}

TEST(MkstoreCommand, WritesTheLibrarysManifestAndRefusesToOverwriteWithoutForce) {
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  const std::string args = "--messages 20 --seed 9 --manifest " + dir.file("m.json") + " " + dir.file("store");
  ASSERT_EQ(mkstore(dir, args), 0) << readAll(dir.file("err.txt"));

  vorlane::mkstore::StoreOptions options;
  options.messages = 20;
  options.seed = 9;
  options.outDir = dir.file("again");
  vorlane::mkstore::Manifest manifest;
  std::string error;
  ASSERT_TRUE(vorlane::mkstore::generateStore(options, manifest, error)) << error;
  EXPECT_EQ(readAll(dir.file("m.json")), vorlane::mkstore::manifestJson(manifest));
  EXPECT_NE(readAll(dir.file("out.txt")).find("message files      20 "), std::string::npos) << readAll(dir.file("out.txt"));

  EXPECT_EQ(mkstore(dir, args), 1);
  EXPECT_NE(readAll(dir.file("err.txt")).find("not empty"), std::string::npos) << readAll(dir.file("err.txt"));
  EXPECT_EQ(mkstore(dir, "--force " + args), 0) << readAll(dir.file("err.txt"));
}
