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

#include "../support/temp_dir.h"

using vorlane::testing::TempDir;
namespace tiny = vorlane::tiny;

// One entry of every type the store walk can meet; a link to a folder must not look like a folder.
TEST(Readdirstat, TypesEveryEntryFromTheFileSystemWithoutFollowingLinks) {
  TempDir dir;
  fclose(fopen(dir.file("message.eml").c_str(), "w"));
  ASSERT_EQ(mkdir(dir.file("folder").c_str(), 0700), 0);
  ASSERT_EQ(symlink("folder", dir.file("link").c_str()), 0);
  ASSERT_EQ(mkfifo(dir.file("fifo").c_str(), 0600), 0);
  int s = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un addr = {};
  addr.sun_family = AF_UNIX;
  ASSERT_LT(dir.file("sock").size(), sizeof(addr.sun_path));
  strcpy(addr.sun_path, dir.file("sock").c_str());
  ASSERT_EQ(bind(s, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
  close(s);
  const std::map<std::string, int> expected = {
      {"message.eml", DT_REG}, {"folder", DT_DIR}, {"link", DT_LNK}, {"fifo", DT_FIFO}, {"sock", DT_SOCK}};

  for (const std::string& path : {dir.path(), dir.path() + "/"}) {
    std::map<std::string, int> seen;
    tiny::DirStreamGuard guard(path.c_str());
    ASSERT_NE(guard.getDir(), nullptr);
    while (dirent* e = tiny::readdirstat(guard.getDir())) {
      if (e->d_name[0] != '.') seen[e->d_name] = e->d_type;
    }
    EXPECT_EQ(seen, expected) << path;
  }
  tiny::DirStreamGuard notADirectory(dir.file("message.eml").c_str());
  EXPECT_EQ(notADirectory.getDir(), nullptr);
}

TEST(Fext, MatchesASuffixWithoutRegardToCase) {
  struct Case {
    const char* name;
    bool expected;
  };
  for (const Case& c : {Case{"a.eml", true}, Case{"A.EML", true}, Case{"xeml", true}, Case{"eml", true},
                        Case{"ml", false}, Case{"a.emlx", false}, Case{nullptr, false}}) {
    EXPECT_EQ(tiny::fext(c.name, "eml"), c.expected) << (c.name ? c.name : "(null)");
  }
}
