#include "tiny/dir.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "temp_dir.h"

using vorlane::testing::TempDir;
namespace tiny = vorlane::tiny;

namespace {

// A directory holding one entry of every type the walk can meet.
class TypedDirectory : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(dir_.path().empty());
    FILE* f = fopen(dir_.file("message.eml").c_str(), "w");
    ASSERT_NE(f, nullptr);
    fclose(f);
    ASSERT_EQ(mkdir(dir_.file("folder").c_str(), 0700), 0);
    ASSERT_EQ(symlink("folder", dir_.file("link-to-folder").c_str()), 0);
    ASSERT_EQ(symlink("missing", dir_.file("dangling").c_str()), 0);
    ASSERT_EQ(mkfifo(dir_.file("fifo").c_str(), 0600), 0);
    int s = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(s, 0);
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    std::string sockPath = dir_.file("sock");
    ASSERT_LT(sockPath.size(), sizeof(addr.sun_path));
    strcpy(addr.sun_path, sockPath.c_str());
    ASSERT_EQ(bind(s, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
    close(s);
  }

  const std::map<std::string, int> expected_ = {
      {"message.eml", DT_REG}, {"folder", DT_DIR}, {"link-to-folder", DT_LNK},
      {"dangling", DT_LNK},    {"fifo", DT_FIFO},  {"sock", DT_SOCK},
  };
  TempDir dir_;
};

std::map<std::string, int> listWithReaddirstat(const std::string& path) {
  std::map<std::string, int> seen;
  tiny::DirStreamGuard guard(path.c_str());
  if (!guard.getDir()) return seen;
  while (dirent* e = tiny::readdirstat(guard.getDir())) {
    if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) seen[e->d_name] = e->d_type;
  }
  return seen;
}

}  // namespace

TEST_F(TypedDirectory, EveryEntryIsTypedFromTheFileSystemWithoutFollowingLinks) {
  EXPECT_EQ(listWithReaddirstat(dir_.path()), expected_);
}

TEST_F(TypedDirectory, ATrailingSlashDoesNotBreakTheTypeLookup) {
  EXPECT_EQ(listWithReaddirstat(dir_.path() + "/"), expected_);
}

TEST_F(TypedDirectory, ReentrantReadGivesTheSameTypes) {
  tiny::DirStreamGuard guard(dir_.path().c_str());
  ASSERT_NE(guard.getDir(), nullptr);
  EXPECT_STREQ(guard.getDir()->path, dir_.path().c_str());
  std::map<std::string, int> seen;
  dirent entry;
  dirent* result = nullptr;
  while (tiny::readdirstat_r(guard.getDir(), &entry, &result) == 0 && result) {
    EXPECT_EQ(result, &entry);
    if (strcmp(entry.d_name, ".") != 0 && strcmp(entry.d_name, "..") != 0) seen[entry.d_name] = entry.d_type;
  }
  EXPECT_EQ(result, nullptr) << "ends with a null result, not an error";
  EXPECT_EQ(seen, expected_);
}

// An entry that vanished before its lstat keeps the type the directory entry gave.
TEST_F(TypedDirectory, AVanishedEntryKeepsItsPlatformType) {
  dirent entry = {};
  strcpy(entry.d_name, "gone");
  entry.d_type = DT_UNKNOWN;
  tiny::fillInType(&entry, dir_.path().c_str());
  EXPECT_EQ(entry.d_type, DT_UNKNOWN);
  strcpy(entry.d_name, "fifo");
  tiny::fillInType(&entry, dir_.path().c_str());
  EXPECT_EQ(entry.d_type, DT_FIFO);
}

TEST_F(TypedDirectory, OnlyDirectoriesOpen) {
  for (const char* name : {"message.eml", "fifo", "missing", "dangling"}) {
    tiny::DirStreamGuard guard(dir_.file(name).c_str());
    EXPECT_EQ(guard.getDir(), nullptr) << name;
  }
  EXPECT_EQ(tiny::opendir(nullptr), nullptr);
  tiny::DirStreamGuard throughLink(dir_.file("link-to-folder").c_str());
  EXPECT_NE(throughLink.getDir(), nullptr) << "opening follows the link; only typing does not";
}

TEST(Fext, MatchesASuffixWithoutRegardToCase) {
  struct Case {
    const char* name;
    const char* ext;
    bool expected;
  };
  for (const Case& c : {Case{"a.eml", "eml", true}, Case{"A.EML", "eml", true}, Case{"xeml", "eml", true},
                        Case{"eml", "eml", true}, Case{"ml", "eml", false}, Case{"a.emlx", "eml", false},
                        Case{"a.eml ", "eml", false}, Case{"anything", "", true}, Case{"", "eml", false},
                        Case{nullptr, "eml", false}, Case{"a.eml", nullptr, false}}) {
    EXPECT_EQ(tiny::fext(c.name, c.ext), c.expected)
        << (c.name ? c.name : "(null)") << " / " << (c.ext ? c.ext : "(null)");
  }
}
