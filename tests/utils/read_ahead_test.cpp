#include "utils/read_ahead.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <string>

#include "../support/temp_dir.h"
#include "utils/page_cache.h"

using namespace vorlane::utils;
using vorlane::testing::TempDir;

namespace {

size_t openDescriptors() {
  using std::filesystem::directory_iterator;
  return static_cast<size_t>(std::distance(directory_iterator("/proc/self/fd"), directory_iterator()));
}

}  // namespace

// Only regular files are opened and announced, whatever the listing claimed: a FIFO (even one listed as a
// regular file because it was swapped in after the listing) is never announced, and nothing blocks.
TEST(ReadAhead, AnnouncesRegularFilesOnly) {
  TempDir dir;
  dir.write("plain.eml", "Subject: x\r\n\r\nbody\r\n");
  ASSERT_EQ(::mkfifo(dir.file("pipe.eml").c_str(), 0600), 0);
  ASSERT_EQ(::symlink("plain.eml", dir.file("link.eml").c_str()), 0);
  ASSERT_EQ(::symlink("pipe.eml", dir.file("pipelink.eml").c_str()), 0);
  dir.mkdirs("folder.eml");
  struct Case { const char* name; unsigned char listedType; bool advised; };
  const int dirFd = ::open(dir.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_GE(dirFd, 0);
  const size_t descriptors = openDescriptors();
  for (const Case& c : {Case{"plain.eml", DT_REG, true}, Case{"plain.eml", DT_UNKNOWN, true},
                        Case{"link.eml", DT_LNK, true}, Case{"pipe.eml", DT_FIFO, false},
                        Case{"pipe.eml", DT_REG, false}, Case{"pipelink.eml", DT_LNK, false},
                        Case{"folder.eml", DT_DIR, false}, Case{"gone.eml", DT_REG, false}}) {
    EXPECT_EQ(announceRead(dirFd, c.name, c.listedType, false).advised, c.advised)
        << c.name << " listed as " << int(c.listedType);
  }
  for (int i = 0; i < 100; ++i) announceRead(dirFd, "plain.eml", DT_REG, true);
  EXPECT_EQ(openDescriptors(), descriptors) << "an announcement keeps no descriptor";
  ::close(dirFd);
}

// The residency answer must tell a file nobody had cached from one already cached, before the announced
// read brings it in; a release after reading leaves the file uncached again.
TEST(ReadAhead, TellsCachedFilesFromUncachedOnesAndReleasesThem) {
  TempDir dir;
  struct statfs fs;
  ASSERT_EQ(::statfs(dir.path().c_str(), &fs), 0);
  if (fs.f_type == TMPFS_MAGIC) GTEST_SKIP() << "tmpfs pages are never dropped";
  const off_t size = 256 * 1024;
  const std::string path = dir.write("big.eml", std::string(size, 'x'));
  const std::string empty = dir.write("empty.eml", "");
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::fdatasync(fd), 0);  // only clean pages can be dropped

  releaseReadPages(AT_FDCWD, path.c_str(), DT_REG);
  EXPECT_FALSE(anyPageResident(fd, size)) << "after the pages were given back";
  const ReadAheadResult uncached = announceRead(AT_FDCWD, path.c_str(), DT_REG, true);
  EXPECT_TRUE(uncached.advised);
  EXPECT_FALSE(uncached.resident);

  char buffer[4096];
  while (::read(fd, buffer, sizeof buffer) > 0) {
  }
  EXPECT_TRUE(anyPageResident(fd, size)) << "after reading";
  EXPECT_TRUE(announceRead(AT_FDCWD, path.c_str(), DT_REG, true).resident);
  releaseReadPages(AT_FDCWD, path.c_str(), DT_REG);
  EXPECT_FALSE(anyPageResident(fd, size)) << "after the release";
  EXPECT_FALSE(announceRead(AT_FDCWD, empty.c_str(), DT_REG, true).resident);
  ::close(fd);
}
