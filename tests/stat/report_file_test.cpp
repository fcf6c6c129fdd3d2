#include "stat/report_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>

#include <gtest/gtest.h>

#include "../support/temp_dir.h"

using vorlane::testing::readFile;
using vorlane::testing::TempDir;

namespace {

size_t entryCount(const std::string& dir) {
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(dir), {}));
}

// An existing file is replaced whole; a symbolic link planted at the path is replaced, not followed.
TEST(ReportFile, ReplacesWhatIsAtThePathWholeAndLeavesNoTemporary) {
  TempDir dir;
  const std::string path = dir.file("report.xml");
  const std::string target = dir.write("precious", "keep me");
  for (bool link : {false, true}) {
    if (link) {
      ASSERT_EQ(::unlink(path.c_str()), 0);
      ASSERT_EQ(::symlink(target.c_str(), path.c_str()), 0);
    } else {
      dir.write("report.xml", "old text that is longer than the new one");
    }
    std::string error;
    ASSERT_TRUE(replaceFileContents(path, "new", error)) << error;
    struct stat info;
    ASSERT_EQ(::lstat(path.c_str(), &info), 0);
    EXPECT_TRUE(S_ISREG(info.st_mode)) << "link " << link;
    EXPECT_EQ(readFile(path), "new");
    EXPECT_EQ(readFile(target), "keep me");
    EXPECT_EQ(entryCount(dir.path()), 2u);
  }
}

// Another user can see our pid: names derived from it could all be taken in advance.
TEST(ReportFile, TemporaryNamesPlantedInAdvanceDoNotBlockTheReplace) {
  TempDir dir;
  const std::string path = dir.path() + "/report.xml";
  for (int n = 0; n < 200; ++n) dir.mkdirs("report.xml.tmp." + std::to_string(::getpid()) + "." + std::to_string(n));
  std::string error;
  ASSERT_TRUE(replaceFileContents(path, "new", error)) << error;
  EXPECT_EQ(readFile(path), "new");
  EXPECT_EQ(entryCount(dir.path()), 201u);
}

TEST(ReportFile, PermissionsFollowTheUmask) {
  TempDir dir;
  for (mode_t mask : {mode_t(022), mode_t(077)}) {
    mode_t old = ::umask(mask);
    std::string path = dir.path() + "/report.xml";
    std::string error;
    ASSERT_TRUE(replaceFileContents(path, "x", error)) << error;
    ::umask(old);
    struct stat info;
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0666 & ~mask) << std::oct << mask;
  }
}

// A failed replace names the path and the reason and leaves no temporary behind.
TEST(ReportFile, FailuresNamePathAndReasonAndCleanUp) {
  struct Case {
    std::string path;
    const char* reason;
  };
  TempDir dir;
  for (const Case& c : {Case{dir.mkdirs("report.xml"), "directory"},
                        Case{dir.path() + "/no/such/report.xml", "No such file or directory"}}) {
    std::string error;
    EXPECT_FALSE(replaceFileContents(c.path, "x", error));
    EXPECT_NE(error.find(c.path), std::string::npos) << error;
    EXPECT_NE(error.find(c.reason), std::string::npos) << error;
    EXPECT_EQ(entryCount(dir.path()), 1u) << c.path;
  }
}

}  // namespace
