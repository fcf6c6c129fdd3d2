#include "utils/vfile.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "../support/temp_dir.h"

using vorlane::testing::TempDir;
using vorlane::utils::VFile;

namespace {

// Opens an existing file holding "content" and a missing one; describes the access/append flags
// (-1: not opened), what is left of the existing file, and whether the missing one was created.
std::string describe(int flags, const std::string& left, bool created) {
  return std::to_string(flags) + " \"" + left + "\" " + (created ? "created" : "not created");
}

template <typename Open>
std::string tryOpen(Open open) {
  TempDir dir;
  dir.write("existing", "content");
  int flags = -1;
  {
    VFile f;
    if (open(f, dir.file("existing").c_str())) flags = fcntl(f.fd(), F_GETFL) & (O_ACCMODE | O_APPEND);
  }
  VFile g;
  bool created = open(g, dir.file("missing").c_str()) && access(dir.file("missing").c_str(), F_OK) == 0;
  return describe(flags, dir.read("existing"), created);
}

}  // namespace

TEST(VFileOpen, ModeStringsSelectAccessCreationAndAppend) {
  struct Case { const char* mode; std::string expected; };
  const Case cases[] = {
      {"r", describe(O_RDONLY, "content", false)},     {"r+", describe(O_RDWR, "content", false)},
      {"rbbb+", describe(O_RDWR, "content", false)},   {"rbbbb+", describe(O_RDONLY, "content", false)},  // '+' too late
      {"w", describe(O_WRONLY, "", true)},             {"w+", describe(O_RDWR, "", true)},
      {"a", describe(O_WRONLY | O_APPEND, "content", true)}, {"a+", describe(O_RDWR | O_APPEND, "content", true)},
      {"x", describe(O_RDONLY, "content", false)},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(tryOpen([&](VFile& f, const char* name) { return f.open(name, c.mode); }), c.expected) << c.mode;
  }
}

TEST(VFileOpen, AccessAndCreationFlags) {
  struct Case { VFile::AccessFlags access; VFile::CreationFlags creation; std::string expected; };
  const Case cases[] = {
      {VFile::AccessRead, VFile::OpenExisting, describe(O_RDONLY, "content", false)},
      {VFile::AccessWrite, VFile::CreateNew, describe(-1, "content", true)},
      {VFile::AccessReadWrite, VFile::CreateAlways, describe(O_RDWR, "", true)},
      {VFile::AccessWrite, VFile::OpenAlways, describe(O_WRONLY, "content", true)},
      {VFile::AccessWrite, VFile::TruncateExisting, describe(O_WRONLY, "", false)},
      {VFile::AccessRead, VFile::TruncateExisting, describe(-1, "content", false)},  // refused untouched
      {VFile::AccessWrite, VFile::OpenAppend, describe(O_WRONLY | O_APPEND, "content", true)},
      {static_cast<VFile::AccessFlags>(9), static_cast<VFile::CreationFlags>(9), describe(O_RDONLY, "content", false)},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(tryOpen([&](VFile& f, const char* name) { return f.wOpen(name, c.access, c.creation); }), c.expected)
        << "access " << c.access << " creation " << c.creation;
  }
}

TEST(VFile, CloseFlushesIsIdempotentAndForgetsBufferedInput) {
  TempDir dir;
  dir.write("in", "a1\na2\n");
  VFile f;
  ASSERT_TRUE(f.open(dir.file("out").c_str(), "w"));
  ASSERT_TRUE(f.printf("line %d\n", 1));
  EXPECT_FALSE(f.open(dir.file("in").c_str(), "r")) << "an open file is not silently replaced";
  f.close();
  f.close();
  EXPECT_EQ(dir.read("out"), "line 1\n");
  char buf[16];
  ASSERT_TRUE(f.open(dir.file("in").c_str(), "r"));
  ASSERT_EQ(f.gets(buf, sizeof(buf), false), 3);
  f.close();
  ASSERT_TRUE(f.open(dir.file("out").c_str(), "r"));
  ASSERT_EQ(f.gets(buf, sizeof(buf), false), 7);
  EXPECT_STREQ(buf, "line 1\n") << "nothing buffered from the previous file";
}

// Two descriptions of one file show the flock effect between VFiles even inside one process.
TEST(VFile, LocksForwardToTheFileAndCloseReleasesThem) {
  TempDir dir;
  dir.write("l", "x");
  VFile a, b;
  ASSERT_TRUE(a.open(dir.file("l").c_str(), "r"));
  ASSERT_TRUE(b.open(dir.file("l").c_str(), "r"));
  ASSERT_TRUE(a.lock());
  ASSERT_TRUE(a.readLock());
  EXPECT_FALSE(b.tryReadLock());
  a.close();
  EXPECT_TRUE(b.tryLock()) << "closing released the nested lock";
}

// The position is remembered rather than asked of the descriptor: after every kind of step it must still
// be what the descriptor says, including appends (which jump to the end) and a reopen.
TEST(VFile, RememberedPositionAgreesWithTheDescriptor) {
  TempDir dir;
  dir.write("f", std::string(10000, 'x'));
  VFile f;
  char buf[64];
  const auto agrees = [&f](const char* step) {
    EXPECT_EQ(f.i_tell64(), lseek(f.fd(), 0, SEEK_CUR)) << step;
  };
  ASSERT_TRUE(f.open(dir.file("f").c_str(), "r+"));
  agrees("open");
  ASSERT_EQ(f.read(buf, 10), 10u);
  agrees("read");
  EXPECT_EQ(f.tell64(), 10);
  ASSERT_EQ(f.seek64(9000, SEEK_SET), 0);
  ASSERT_EQ(f.read(buf, 64), 64u);
  agrees("seek and read");
  EXPECT_EQ(f.tell64(), 9064);
  ASSERT_EQ(f.seek64(-100, SEEK_END), 0);
  agrees("seek from the end");
  ASSERT_EQ(f.write("abc", 3), 3u);
  ASSERT_EQ(f.flush(), 0);
  agrees("write");
  EXPECT_EQ(f.tell64(), 9903);
  EXPECT_NE(f.seek64(-1, SEEK_SET), 0);
  agrees("failed seek");
  f.close();
  ASSERT_TRUE(f.open(dir.file("f").c_str(), "a"));
  agrees("reopen for appending");
  ASSERT_EQ(f.write("end", 3), 3u);
  ASSERT_EQ(f.flush(), 0);
  agrees("append");
  EXPECT_EQ(f.tell64(), 10003);
}
