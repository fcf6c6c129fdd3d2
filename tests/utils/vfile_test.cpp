#include "utils/vfile.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <string>

#include "../tiny/temp_dir.h"

using vorlane::testing::TempDir;
using vorlane::utils::VFile;

namespace {

void writeFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// Access mode and append flag of an open VFile's descriptor.
int statusFlags(const VFile& f) { return fcntl(f.fd(), F_GETFL) & (O_ACCMODE | O_APPEND); }

}  // namespace

TEST(VFileOpen, ModeStringsSelectAccessCreationAndAppend) {
  struct Case {
    const char* mode;
    int flags;      // expected O_ACCMODE | O_APPEND
    bool creates;   // opens a missing file by creating it
    bool truncates; // empties an existing file
  };
  const Case cases[] = {
      {"r", O_RDONLY, false, false},          {"rb", O_RDONLY, false, false},
      {"r+", O_RDWR, false, false},           {"rb+", O_RDWR, false, false},
      {"rbbb+", O_RDWR, false, false},        {"rbbbb+", O_RDONLY, false, false},
      {"w", O_WRONLY, true, true},            {"w+", O_RDWR, true, true},
      {"a", O_WRONLY | O_APPEND, true, false}, {"a+", O_RDWR | O_APPEND, true, false},
      {"x", O_RDONLY, false, false},          {"", O_RDONLY, false, false},
  };
  for (const Case& c : cases) {
    TempDir dir;
    const std::string existing = dir.file("existing"), missing = dir.file("missing");
    writeFile(existing, "content");
    {
      VFile f;
      ASSERT_TRUE(f.open(existing.c_str(), c.mode)) << c.mode;
      EXPECT_EQ(statusFlags(f), c.flags) << c.mode;
    }
    EXPECT_EQ(readFile(existing), c.truncates ? "" : "content") << c.mode;
    VFile g;
    EXPECT_EQ(g.open(missing.c_str(), c.mode), c.creates) << c.mode;
    EXPECT_EQ(exists(missing), c.creates) << c.mode;
    EXPECT_EQ(g.isClosed(), !c.creates) << c.mode;
  }
}

TEST(VFileOpen, AccessAndCreationFlags) {
  struct Case {
    VFile::AccessFlags access;
    VFile::CreationFlags creation;
    bool existingOpens, existingKept, missingOpens;
    int flags;
  };
  const Case cases[] = {
      {VFile::AccessRead, VFile::OpenExisting, true, true, false, O_RDONLY},
      {VFile::AccessWrite, VFile::CreateNew, false, true, true, O_WRONLY},
      {VFile::AccessReadWrite, VFile::CreateAlways, true, false, true, O_RDWR},
      {VFile::AccessWrite, VFile::OpenAlways, true, true, true, O_WRONLY},
      {VFile::AccessWrite, VFile::TruncateExisting, true, false, false, O_WRONLY},
      {VFile::AccessRead, VFile::TruncateExisting, false, true, false, O_RDONLY},
      {VFile::AccessWrite, VFile::OpenAppend, true, true, true, O_WRONLY | O_APPEND},
      {static_cast<VFile::AccessFlags>(9), static_cast<VFile::CreationFlags>(9), true, true, false, O_RDONLY},
  };
  int row = 0;
  for (const Case& c : cases) {
    ++row;
    TempDir dir;
    const std::string existing = dir.file("existing"), missing = dir.file("missing");
    writeFile(existing, "content");
    VFile f;
    EXPECT_EQ(f.open(existing.c_str(), c.access, c.creation), c.existingOpens) << "row " << row;
    if (c.existingOpens) {
      EXPECT_EQ(statusFlags(f), c.flags) << "row " << row;
    }
    f.close();
    EXPECT_EQ(readFile(existing), c.existingKept ? "content" : "") << "row " << row;
    EXPECT_EQ(f.wOpen(missing.c_str(), c.access, c.creation), c.missingOpens) << "row " << row;
    EXPECT_EQ(exists(missing), c.missingOpens) << "row " << row;
  }
}

TEST(VFileOpen, NewFilesArePrivateToTheOwner) {
  TempDir dir;
  mode_t old = umask(0);
  VFile f;
  bool opened = f.open(dir.file("new").c_str(), "w");
  umask(old);
  ASSERT_TRUE(opened);
  struct stat st;
  ASSERT_EQ(stat(dir.file("new").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST(VFileOpen, ASecondOpenIsRefusedAndKeepsTheFirstFile) {
  TempDir dir;
  writeFile(dir.file("one"), "one\n");
  writeFile(dir.file("two"), "two\n");
  VFile f;
  ASSERT_TRUE(f.open(dir.file("one").c_str(), "r"));
  errno = 0;
  EXPECT_FALSE(f.open(dir.file("two").c_str(), "r"));
  EXPECT_EQ(errno, EBUSY);
  char buf[16];
  ASSERT_EQ(f.gets(buf, sizeof(buf), false), 4);
  EXPECT_STREQ(buf, "one\n");
}

namespace {

class RecordingFile : public VFile {
 public:
  std::string modeSeen;
  bool answer = true;

 protected:
  bool postOpenOp(int fd, const char* mode) override {
    modeSeen = mode;
    return fd >= 0 && answer;
  }
};

}  // namespace

TEST(VFileOpen, PostOpenHookSeesTheAccessAndDecidesTheResult) {
  TempDir dir;
  const std::string path = dir.file("f");
  struct Case {
    const char* mode;
    const char* seen;
  };
  for (const Case& c : {Case{"w", "w"}, Case{"r", "r"}, Case{"r+", "w"}, Case{"a", "w"}}) {
    RecordingFile f;
    EXPECT_TRUE(f.open(path.c_str(), c.mode));
    EXPECT_EQ(f.modeSeen, c.seen) << c.mode;
  }
  RecordingFile refusing;
  refusing.answer = false;
  EXPECT_FALSE(refusing.open(path.c_str(), "r"));
}

TEST(VFileClose, FlushesAndIsIdempotent) {
  TempDir dir;
  const std::string path = dir.file("out");
  VFile f;
  ASSERT_TRUE(f.open(path.c_str(), "w"));
  ASSERT_TRUE(f.printf("line %d\n", 1));
  EXPECT_EQ(readFile(path), "") << "still buffered";
  f.close();
  EXPECT_TRUE(f.isClosed());
  EXPECT_EQ(f.fd(), -1);
  EXPECT_EQ(readFile(path), "line 1\n");
  f.close();  // nothing to do
  EXPECT_TRUE(f.isClosed());
}

TEST(VFileClose, BufferedInputDoesNotSurviveAReopen) {
  TempDir dir;
  writeFile(dir.file("a"), "a1\na2\n");
  writeFile(dir.file("b"), "b1\n");
  VFile f;
  char buf[16];
  ASSERT_TRUE(f.open(dir.file("a").c_str(), "r"));
  ASSERT_EQ(f.gets(buf, sizeof(buf), false), 3);
  f.close();
  ASSERT_TRUE(f.open(dir.file("b").c_str(), "r"));
  ASSERT_EQ(f.gets(buf, sizeof(buf), false), 3);
  EXPECT_STREQ(buf, "b1\n");
}

TEST(VFileClose, DestructorWritesPendingOutput) {
  TempDir dir;
  {
    VFile f;
    ASSERT_TRUE(f.open(dir.file("out").c_str(), VFile::AccessWrite, VFile::CreateAlways));
    ASSERT_TRUE(f.puts(std::string("kept")));
  }
  EXPECT_EQ(readFile(dir.file("out")), "kept");
}

// A parser records where each line starts; the descriptor runs ahead by the buffered bytes.
TEST(VFilePosition, LogicalPositionFollowsTheLinesRead) {
  TempDir dir;
  std::string content;
  for (int i = 0; i < 1000; ++i) content += "line " + std::to_string(i) + "\n";
  writeFile(dir.file("m"), content);
  VFile f;
  ASSERT_TRUE(f.open(dir.file("m").c_str(), "r"));
  char buf[64];
  long long expected = 0;
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(f.tell64(), expected) << "line " << i;
    int n = f.gets(buf, sizeof(buf), false);
    ASSERT_GT(n, 0);
    expected += n;
  }
  EXPECT_EQ(f.tell64(), static_cast<long long>(content.size()));
  ASSERT_EQ(f.seek64(0, SEEK_SET), 0);
  ASSERT_EQ(f.gets(buf, sizeof(buf), false), 7);
  EXPECT_STREQ(buf, "line 0\n");
  EXPECT_EQ(f.i_tell64(), 4096) << "one buffer-load was read";
  EXPECT_EQ(f.i_tell(), 4096);
}

TEST(VFileTruncate, CutsAtTheDescriptorPositionWithoutFlushing) {
  TempDir dir;
  const std::string path = dir.file("t");
  writeFile(path, "0123456789");
  VFile f;
  ASSERT_TRUE(f.open(path.c_str(), "r+"));
  ASSERT_EQ(f.i_seek64(4, SEEK_SET), 0);
  ASSERT_TRUE(f.puts("buffered"));
  EXPECT_TRUE(f.truncate());
  EXPECT_EQ(readFile(path), "0123");
  f.close();
  EXPECT_EQ(readFile(path), "0123buffered");
  VFile closed;
  EXPECT_FALSE(closed.truncate());
}

// Two descriptions of one file show the flock effect between VFiles even inside one process.
TEST(VFileLock, LocksForwardToTheFileAndCloseReleasesThem) {
  TempDir dir;
  const std::string path = dir.file("l");
  writeFile(path, "x");
  VFile a, b;
  ASSERT_TRUE(a.open(path.c_str(), "r"));
  ASSERT_TRUE(b.open(path.c_str(), "r"));
  EXPECT_TRUE(a.readLock());
  EXPECT_TRUE(b.tryReadLock()) << "shared locks coexist";
  EXPECT_FALSE(b.tryLock());
  b.unlock();
  EXPECT_FALSE(a.writeLock()) << "no upgrade from shared";
  a.unlock();
  EXPECT_TRUE(a.lock());
  EXPECT_TRUE(a.tryWriteLock());
  EXPECT_EQ(a.fileLock().lockCounter(), -2);
  EXPECT_FALSE(b.tryReadLock());
  a.close();
  EXPECT_TRUE(b.tryLock()) << "closing released the nested lock";
  b.unlock();
}
