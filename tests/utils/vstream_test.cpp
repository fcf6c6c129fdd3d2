#include "utils/vstream.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "utils/vstd_istream.h"

using vorlane::utils::VFileStream;
using vorlane::utils::VStdIStream;
using vorlane::utils::VStream;

namespace {

// In-memory stream that counts its primitive calls and can be told to deliver short reads, write
// in small pieces, or fail writes.
class MemoryStream : public VFileStream {
 public:
  explicit MemoryStream(std::string input = "", unsigned readChunk = 4096)
      : input_(std::move(input)), readChunk_(readChunk) {}

  int i_read(char* buf, unsigned len) override {
    ++reads;
    size_t n = std::min<size_t>({len, readChunk_, input_.size() - pos_});
    input_.copy(buf, n, pos_);
    pos_ += n;
    return static_cast<int>(n);
  }
  int i_write(const char* buf, unsigned len) override {
    ++writes;
    if (failWrites) return -1;
    unsigned n = std::min(len, writeChunk);
    output.append(buf, n);
    return static_cast<int>(n);
  }
  int i_seek(long offset, int whence) override {
    long base = whence == SEEK_CUR ? static_cast<long>(pos_) : whence == SEEK_END ? static_cast<long>(input_.size()) : 0;
    if (base + offset < 0 || base + offset > static_cast<long>(input_.size())) return -1;
    pos_ = static_cast<size_t>(base + offset);
    return 0;
  }
  long i_tell() override { return static_cast<long>(pos_); }

  int reads = 0;
  int writes = 0;
  bool failWrites = false;
  unsigned writeChunk = ~0u;
  std::string output;

 private:
  std::string input_;
  size_t pos_ = 0;
  unsigned readChunk_;
};

struct GetsResult {
  int n;
  std::string text;  // the terminated buffer; empty for results of 0
  bool operator==(const GetsResult& o) const { return n == o.n && text == o.text; }
};

std::ostream& operator<<(std::ostream& os, const GetsResult& r) { return os << r.n << ":\"" << r.text << "\""; }

std::vector<GetsResult> readAllLines(VStream& s, unsigned size, bool keepPartial, int calls) {
  std::vector<GetsResult> out;
  std::vector<char> buf(size + 1, 'Z');
  for (int i = 0; i < calls; ++i) {
    int n = s.gets(buf.data(), size, keepPartial);
    out.push_back({n, n > 0 ? std::string(buf.data()) : std::string()});
  }
  return out;
}

}  // namespace

// A line fits only with at most size-2 characters before its LF; an over-long line yields 0 and
// the rest of it stays in the stream.
TEST(VStreamGets, LineLengthBoundariesAndPartialLastLines) {
  const std::string a510(510, 'a'), a511(511, 'a'), a512(512, 'a');
  struct Case {
    const char* what;
    std::string input;
    bool keepPartial;
    std::vector<GetsResult> expected;
  };
  const Case cases[] = {
      {"510 characters fit", a510 + "\nnext\n", true, {{511, a510 + "\n"}, {5, "next\n"}, {0, ""}}},
      {"511 characters are one too many; the LF goes with them", a511 + "\nnext\n", true, {{0, ""}, {5, "next\n"}, {0, ""}}},
      {"512 characters leave the LF behind", a512 + "\nnext\n", true, {{0, ""}, {1, "\n"}, {5, "next\n"}}},
      {"partial last line kept", "one\ntail", true, {{4, "one\n"}, {4, "tail"}, {0, ""}}},
      {"partial last line dropped", "one\ntail", false, {{4, "one\n"}, {0, ""}, {0, ""}}},
      {"CR stays in the line", "crlf\r\n\r\n", false, {{6, "crlf\r\n"}, {2, "\r\n"}, {0, ""}}},
      {"empty input", "", true, {{0, ""}, {0, ""}, {0, ""}}},
  };
  for (const Case& c : cases) {
    MemoryStream s(c.input);
    EXPECT_EQ(readAllLines(s, 512, c.keepPartial, 3), c.expected) << c.what;
  }
}

TEST(VStreamGets, DroppedPartialLineLeavesAnEmptyBuffer) {
  MemoryStream s("no line end");
  char buf[64];
  memset(buf, 'Z', sizeof(buf));
  EXPECT_EQ(s.gets(buf, sizeof(buf), false), 0);
  EXPECT_EQ(buf[0], '\0');
  EXPECT_TRUE(s.endOfInputSeen()) << "end of input, not an error";
}

// Lines crossing the 4096-byte refill come out whole whatever size the primitive reads deliver,
// and the primitive is called once per buffer-load only.
TEST(VStreamGets, LinesSplitAcrossRefillsComeOutWhole) {
  std::string input;
  std::vector<std::string> lines;
  for (int i = 0; i < 300; ++i) {
    lines.push_back(std::string(static_cast<size_t>(i * 7 % 97), static_cast<char>('a' + i % 26)) + "\n");
    input += lines.back();
  }
  input += std::string(4000, 'q') + "\n";  // surely crosses a 4096 boundary
  lines.push_back(std::string(4000, 'q') + "\n");
  for (unsigned chunk : {4096u, 4095u, 7u, 1u}) {
    MemoryStream s(input, chunk);
    std::vector<char> buf(16384);
    for (size_t i = 0; i < lines.size(); ++i) {
      ASSERT_EQ(s.gets(buf.data(), 16384, false), static_cast<int>(lines[i].size())) << "chunk " << chunk << " line " << i;
      ASSERT_EQ(std::string(buf.data()), lines[i]) << "chunk " << chunk << " line " << i;
    }
    EXPECT_EQ(s.gets(buf.data(), 16384, true), 0);
    size_t loads = (input.size() + chunk - 1) / chunk;
    EXPECT_EQ(static_cast<size_t>(s.reads), loads + 1) << "one read per load plus the one that sees the end";
  }
}

TEST(VStreamGetstr, SplitsLongLinesAndAlwaysTerminates) {
  MemoryStream s("abcdefg\nhi");
  char buf[4];
  std::vector<std::string> pieces;
  while (int n = s.getstr(buf, sizeof(buf))) {
    ASSERT_EQ(static_cast<size_t>(n), strlen(buf));
    pieces.push_back(buf);
  }
  EXPECT_EQ(pieces, (std::vector<std::string>{"abc", "def", "g\n", "hi"}));
  buf[0] = 'Z';
  EXPECT_EQ(s.getstr(buf, 0), 0);
  EXPECT_EQ(buf[0], 'Z') << "size 0 writes nothing";
  EXPECT_EQ(s.getstr(buf, 1), 0);
  EXPECT_EQ(buf[0], '\0');
}

TEST(VStreamRead, ServesBufferedBytesWithoutTouchingTheSource) {
  MemoryStream s(std::string(4106, 'x'));
  char big[8192];
  EXPECT_EQ(s.read(big, 0), 0u);
  EXPECT_EQ(s.reads, 0);
  EXPECT_EQ(s.read(big, sizeof(big)), 4096u) << "never more than one buffer-load per call";
  EXPECT_EQ(s.read(big, 100), 10u);
  EXPECT_EQ(s.reads, 2);
  EXPECT_EQ(s.read(big, 3), 0u);
  EXPECT_TRUE(s.endOfInputSeen());
  EXPECT_TRUE(s.isReadEof());
}

TEST(VStreamRead, ReturnsWhatIsBufferedEvenWhenMoreIsAsked) {
  MemoryStream s("0123456789");
  char c;
  ASSERT_EQ(s.read(&c, 1), 1u);
  char rest[100];
  EXPECT_EQ(s.read(rest, 100), 9u);
  EXPECT_EQ(std::string(rest, 9), "123456789");
  EXPECT_EQ(s.reads, 1);
}

TEST(VStreamWrite, ExactlyTheFreeRoomFlushesAtOnce) {
  struct Case {
    unsigned first, second;
    int writesAfter;
    size_t flushedAfter;
  };
  for (const Case& c : {Case{4096, 0, 1, 4096}, Case{100, 3996, 1, 4096}, Case{100, 3995, 0, 0},
                        Case{4095, 2, 1, 4096}, Case{10000, 0, 2, 8192}}) {
    MemoryStream s;
    std::string data(c.first + c.second, 'w');
    EXPECT_EQ(s.write(data.data(), c.first), c.first);
    EXPECT_EQ(s.write(data.data() + c.first, c.second), c.second);
    EXPECT_EQ(s.writes, c.writesAfter) << c.first << "+" << c.second;
    EXPECT_EQ(s.output.size(), c.flushedAfter) << c.first << "+" << c.second;
    EXPECT_EQ(s.flush(), 0);
    EXPECT_EQ(s.output, data);
  }
}

TEST(VStreamWrite, FlushLoopsOverShortWrites) {
  MemoryStream s;
  s.writeChunk = 1000;
  std::string data(5000, 'p');
  EXPECT_EQ(s.write(data.data(), 5000), 5000u);
  EXPECT_EQ(s.flush(), 0);
  EXPECT_EQ(s.output, data);
  EXPECT_EQ(s.writes, 6);  // 4096 in five pieces, then 904
}

TEST(VStreamWrite, FailedFlushKeepsTheBufferForALaterFlush) {
  MemoryStream s;
  s.failWrites = true;
  std::string data(5000, 'f');
  EXPECT_EQ(s.write(data.data(), 5000), 0u);
  EXPECT_EQ(s.flush(), -1);
  EXPECT_TRUE(s.output.empty());
  s.failWrites = false;
  EXPECT_EQ(s.flush(), 0);
  EXPECT_EQ(s.output, std::string(4096, 'f')) << "the part copied before the failure was kept";
}

TEST(VStreamPrintf, ResultsAroundTheLocalBufferSize) {
  struct Case {
    size_t length;
    std::string expected;
  };
  for (const Case& c : {Case{511, std::string(511, 'p')}, Case{512, std::string(511, 'p') + std::string(1, '\0')},
                        Case{513, std::string(513, 'p')}, Case{5000, std::string(5000, 'p')}}) {
    MemoryStream s;
    std::string text(c.length, 'p');
    EXPECT_TRUE(s.printf("%s", text.c_str())) << c.length;
    ASSERT_EQ(s.flush(), 0);
    EXPECT_EQ(s.output, c.expected) << c.length;
  }
}

TEST(VStreamPrintf, EmptyOutputOrFailedFlushIsFalse) {
  MemoryStream s;
  EXPECT_FALSE(s.printf("%s", ""));
  EXPECT_TRUE(s.printf("%d-%s", 42, "x"));
  s.failWrites = true;
  std::string big(5000, 'b');
  EXPECT_FALSE(s.printf("%s", big.c_str()));
  EXPECT_FALSE(s.puts(big));
  EXPECT_FALSE(s.puts(""));
  EXPECT_FALSE(s.puts(std::string()));
  s.failWrites = false;
  EXPECT_TRUE(s.puts("tail"));
  EXPECT_EQ(s.flush(), 0);
  EXPECT_EQ(s.output.substr(0, 4), "42-x");
  EXPECT_EQ(s.output.substr(s.output.size() - 4), "tail");
}

TEST(VStreamCopy, CopiesEverythingOrExactlyTheSize) {
  std::string input;
  for (int i = 0; i < 10000; ++i) input += static_cast<char>('0' + i % 10);
  {
    MemoryStream from(input, 333), to;
    from.copyTo(to);
    ASSERT_EQ(to.flush(), 0);
    EXPECT_EQ(to.output, input);
  }
  {
    MemoryStream from(input, 333), to;
    from.copyToSize(to, 5001);
    ASSERT_EQ(to.flush(), 0);
    EXPECT_EQ(to.output, input.substr(0, 5001));
    char next;
    ASSERT_EQ(from.read(&next, 1), 1u);
    EXPECT_EQ(next, input[5001]) << "nothing beyond the size was consumed";
  }
  {
    MemoryStream from("short"), to;
    from.copyToSize(to, 100);
    ASSERT_EQ(to.flush(), 0);
    EXPECT_EQ(to.output, "short");
  }
}

TEST(VStreamCopy, AFailingDestinationDoesNotStopTheReading) {
  MemoryStream from(std::string(20000, 'c')), to;
  to.failWrites = true;
  from.copyTo(to);
  char c;
  EXPECT_EQ(from.read(&c, 1), 0u) << "the source was read to its end";
}

TEST(VStreamDirectWrite, BypassesTheBuffer) {
  MemoryStream s;
  ASSERT_TRUE(s.puts("buffered"));
  EXPECT_EQ(s.directWrite("direct", 6), 6);
  EXPECT_EQ(s.asyncWrite("async", 5), 5);
  EXPECT_EQ(s.output, "directasync");
  EXPECT_EQ(s.directWrite("x", 0x80000000u), -1);
  EXPECT_EQ(s.asyncWrite("x", 0xffffffffu), -1);
}

TEST(VStreamFill, FlushesPendingOutputFirst) {
  MemoryStream s("in");
  ASSERT_TRUE(s.puts("out"));
  EXPECT_EQ(s.fill(), 'i');
  EXPECT_EQ(s.output, "out");
  MemoryStream failing("in");
  ASSERT_TRUE(failing.puts("out"));
  failing.failWrites = true;
  EXPECT_EQ(failing.fill(), -1);
  EXPECT_EQ(failing.reads, 0);
}

// The logical position is what a parser records for "the next line starts here".
TEST(VFileStreamPosition, TellAndSeekAccountForTheBuffers) {
  MemoryStream s("first\nsecond\nthird\n");
  char buf[64];
  EXPECT_EQ(s.tell64(), 0);
  ASSERT_EQ(s.gets(buf, sizeof(buf), false), 6);
  EXPECT_EQ(s.i_tell64(), 19) << "the source ran ahead by a whole buffer-load";
  EXPECT_EQ(s.tell64(), 6);
  ASSERT_EQ(s.seek64(7, SEEK_CUR), 0);
  EXPECT_EQ(s.tell64(), 13);
  ASSERT_EQ(s.gets(buf, sizeof(buf), false), 6);
  EXPECT_STREQ(buf, "third\n");
  ASSERT_EQ(s.seek64(6, SEEK_SET), 0);
  ASSERT_EQ(s.gets(buf, sizeof(buf), false), 7);
  EXPECT_STREQ(buf, "second\n");
  EXPECT_EQ(s.seek64(-1, SEEK_SET), -1);
  ASSERT_TRUE(s.puts("abc"));
  EXPECT_EQ(s.tell64(), 16) << "pending output counts as written";
}

TEST(VStdIStream, ReadsLinesAndPositionsAStandardStream) {
  std::istringstream in("alpha\nbeta\ngamma");
  VStdIStream s(&in);
  char buf[32];
  ASSERT_EQ(s.gets(buf, sizeof(buf), false), 6);
  EXPECT_EQ(s.tell64(), 6);
  ASSERT_EQ(s.gets(buf, sizeof(buf), true), 5);
  ASSERT_EQ(s.gets(buf, sizeof(buf), true), 5);
  EXPECT_STREQ(buf, "gamma");
  EXPECT_EQ(s.i_tell(), 16) << "the state left by reading to the end is cleared";

  struct Case {
    long offset;
    int whence;
    long expected;
  };
  for (const Case& c : {Case{2, 0, 2}, Case{3, 1, 5}, Case{-5, 2, 11}, Case{4, 7, 4}}) {
    ASSERT_EQ(s.i_seek(c.offset, c.whence), 0) << c.whence;
    EXPECT_EQ(s.i_tell(), c.expected) << c.whence;
  }
  EXPECT_EQ(s.i_seek(-100, 0), -1);
  EXPECT_TRUE(s.puts("swallowed"));
  EXPECT_EQ(s.flush(), 0);
  EXPECT_EQ(in.str(), "alpha\nbeta\ngamma");
}
