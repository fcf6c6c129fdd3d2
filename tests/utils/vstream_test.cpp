#include "utils/vstream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "utils/vstd_istream.h"

using vorlane::utils::VFileStream;
using vorlane::utils::VStdIStream;
using vorlane::utils::VStream;

namespace {

// In-memory stream that counts its primitive calls, can deliver short reads and can fail writes.
class MemoryStream : public VFileStream {
 public:
  explicit MemoryStream(std::string input = "", unsigned readChunk = 4096) : input_(std::move(input)), chunk_(readChunk) {}
  int i_read(char* buf, unsigned len) override {
    ++reads;
    size_t n = std::min<size_t>({len, chunk_, input_.size() - pos_});
    pos_ += input_.copy(buf, n, pos_);
    return static_cast<int>(n);
  }
  int i_write(const char* buf, unsigned len) override {
    ++writes;
    if (failWrites) return -1;
    output.append(buf, len);
    return static_cast<int>(len);
  }
  int i_seek(long offset, int whence) override {
    pos_ = static_cast<size_t>((whence == SEEK_CUR ? static_cast<long>(pos_) : 0) + offset);
    return 0;
  }
  long i_tell() override { return static_cast<long>(pos_); }

  int reads = 0, writes = 0;
  bool failWrites = false;
  std::string output;

 private:
  std::string input_;
  size_t pos_ = 0;
  unsigned chunk_;
};

// Results of successive gets calls as "n:text" (text only for results above 0).
std::vector<std::string> getsAll(VStream& s, unsigned size, bool keepPartial, int calls) {
  std::vector<std::string> out;
  std::vector<char> buf(size);
  for (int i = 0; i < calls; ++i) {
    int n = s.gets(buf.data(), size, keepPartial);
    out.push_back(std::to_string(n) + ":" + (n > 0 ? buf.data() : ""));
  }
  return out;
}

}  // namespace

// A line fits only with at most size-2 characters before its LF; an over-long line yields 0 and
// the rest of it stays in the stream.
TEST(VStreamGets, LineLengthBoundariesAndPartialLastLines) {
  const std::string a510(510, 'a'), a511(511, 'a'), a512(512, 'a');
  struct Case { std::string input; bool keepPartial; std::vector<std::string> expected; };
  const Case cases[] = {
      {a510 + "\nnext\n", true, {"511:" + a510 + "\n", "5:next\n", "0:"}},
      {a511 + "\nnext\n", true, {"0:", "5:next\n", "0:"}},  // the LF went with the over-long line
      {a512 + "\nnext\n", true, {"0:", "1:\n", "5:next\n"}},
      {"one\ntail", true, {"4:one\n", "4:tail", "0:"}},
      {"one\ntail", false, {"4:one\n", "0:", "0:"}},
      {"crlf\r\n", false, {"6:crlf\r\n", "0:", "0:"}},
  };
  for (const Case& c : cases) {
    for (unsigned chunk : {4096u, 7u}) {  // 7: the refill lands inside the line and at its edges
      MemoryStream s(c.input, chunk);
      EXPECT_EQ(getsAll(s, 512, c.keepPartial, 3), c.expected) << c.input.substr(0, 20) << " chunk " << chunk;
    }
  }
  MemoryStream dropped("partial");
  char buf[16] = "garbage";
  EXPECT_EQ(dropped.gets(buf, sizeof(buf), false), 0);
  EXPECT_STREQ(buf, "") << "a dropped partial line leaves an empty buffer";
}

// Lines crossing the 4096-byte refill come out whole whatever size the primitive reads deliver,
// and the primitive is called once per buffer-load only.
TEST(VStreamGets, LinesSplitAcrossRefillsComeOutWhole) {
  std::string input;
  std::vector<std::string> expected;
  for (int i = 0; i < 300; ++i) {
    std::string line = std::string(static_cast<size_t>(i * 7 % 96), 'x') + "\n";
    input += line;
    expected.push_back(std::to_string(line.size()) + ":" + line);
  }
  for (unsigned chunk : {4096u, 7u, 1u}) {
    MemoryStream s(input, chunk);
    EXPECT_EQ(getsAll(s, 512, false, 300), expected) << "chunk " << chunk;
    size_t loads = (input.size() + chunk - 1) / chunk;
    EXPECT_EQ(static_cast<size_t>(s.reads), loads) << "chunk " << chunk;
  }
}

TEST(VStreamGetstr, SplitsLongLinesAndAlwaysTerminates) {
  MemoryStream s("abcdefg\nhi");
  char buf[4];
  std::vector<std::string> pieces;
  while (s.getstr(buf, sizeof(buf)) > 0) pieces.push_back(buf);
  EXPECT_EQ(pieces, (std::vector<std::string>{"abc", "def", "g\n", "hi"}));
}

// Every piece getstrView hands out is the piece getstr would have stored, whatever the line lengths, the
// piece size and the size of the primitive reads: lines across the 4096-byte refill, lines longer than the
// piece size (also across a refill), empty lines, CRLF, and a last line without LF. A piece size below 2
// leaves no room for a byte: nothing is read.
TEST(VStreamGetstrView, DeliversExactlyTheLinesGetstrDoes) {
  std::string input;
  for (int i = 0; i < 400; ++i) {
    input += std::string(static_cast<size_t>(i * 37 % 131), 'v') + (i % 3 ? "\r\n" : "\n");
  }
  input += std::string(9000, 'L') + "\n\n" + std::string(4095, 'e') + "\n" + std::string(5000, 'p');
  for (unsigned size : {1u, 2u, 3u, 80u, 4097u, 16385u}) {
    for (unsigned chunk : {4096u, 1000u, 7u}) {
      MemoryStream expected(input, chunk);
      MemoryStream viewed(input, chunk);
      std::vector<char> copy(size);
      std::vector<char> buf(size);
      size_t pieces = 0;
      for (;;) {
        const int n = expected.getstr(copy.data(), size);
        unsigned len = 12345;
        const char* line = viewed.getstrView(buf.data(), size, len);
        ASSERT_EQ(len, static_cast<unsigned>(n)) << "size " << size << " chunk " << chunk << " at " << pieces;
        if (n == 0) {
          EXPECT_EQ(line, nullptr);
          break;
        }
        ASSERT_EQ(std::string(line, len), std::string(copy.data(), static_cast<size_t>(n)))
            << "size " << size << " chunk " << chunk << " piece " << pieces;
        ASSERT_EQ(viewed.tell64(), expected.tell64()) << "size " << size << " chunk " << chunk;
        ++pieces;
      }
      EXPECT_EQ(viewed.reads, expected.reads) << "one primitive read per buffer-load, size " << size;
      EXPECT_TRUE(size > 1 ? pieces > 400 : pieces == 0) << "size " << size << ": " << pieces << " pieces";
    }
  }
}

// Lines that lie whole in the read buffer are not copied; a line crossing the refill and a partial last
// line are gathered into the caller's buffer and terminated there.
TEST(VStreamGetstrView, CopiesOnlyLinesThatCrossARefill) {
  const std::string longLine = std::string(4080, 'a') + "\n";
  MemoryStream s("in place\n" + longLine + "across the refill\nnext\npartial");
  struct Case { std::string text; bool copied; };
  const Case cases[] = {{"in place\n", false}, {longLine, false}, {"across the refill\n", true},
                        {"next\n", false}, {"partial", true}};
  std::vector<char> buf(8192, '#');
  for (const Case& c : cases) {
    unsigned len = 0;
    const char* line = s.getstrView(buf.data(), static_cast<unsigned>(buf.size()), len);
    ASSERT_NE(line, nullptr) << c.text;
    EXPECT_EQ(std::string(line, len), c.text);
    EXPECT_EQ(line == buf.data(), c.copied) << c.text;
    if (c.copied) {
      EXPECT_EQ(buf[len], '\0') << c.text;
    }
  }
  unsigned len = 1;
  EXPECT_EQ(s.getstrView(buf.data(), static_cast<unsigned>(buf.size()), len), nullptr);
  EXPECT_EQ(len, 0u);
  EXPECT_TRUE(s.endOfInputSeen());
}

// A caller that scans the buffered bytes in place sees exactly what is unread, never causes a refill, and
// after skipping some of them reads on from there with a correct position.
TEST(VStreamBufferedData, ShowsTheUnreadBytesAndSkipsThemInPlace) {
  MemoryStream s("head\n" + std::string(5000, 'z') + "\ntail\n");
  unsigned len = 1;
  s.bufferedData(len);
  EXPECT_EQ(len, 0u) << "nothing is buffered before the first read";
  EXPECT_EQ(s.reads, 0);
  char buf[64];
  ASSERT_EQ(s.gets(buf, sizeof(buf), false), 5);
  const char* data = s.bufferedData(len);
  ASSERT_EQ(len, 4091u);
  EXPECT_EQ(std::string(data, 3), "zzz");
  s.skipBuffered(4090);
  EXPECT_EQ(s.tell64(), 4095);
  data = s.bufferedData(len);
  EXPECT_EQ(len, 1u);
  s.skipBuffered(1);
  s.bufferedData(len);
  EXPECT_EQ(len, 0u);
  EXPECT_EQ(s.reads, 1) << "looking at the buffer never refills it";
  unsigned lineLen = 0;
  const char* line = s.getstrView(buf, sizeof(buf), lineLen);
  ASSERT_NE(line, nullptr);
  EXPECT_EQ(std::string(line, lineLen), std::string(sizeof(buf) - 1, 'z')) << "a piece of the long line's rest";
  EXPECT_EQ(s.tell64(), 4096 + 63);
}

TEST(VStreamRead, ServesBufferedBytesWithoutTouchingTheSource) {
  MemoryStream s(std::string(4106, 'x'));
  char big[8192];
  EXPECT_EQ(s.read(big, sizeof(big)), 4096u) << "never more than one buffer-load per call";
  EXPECT_EQ(s.read(big, 100), 10u);
  EXPECT_EQ(s.reads, 2);
}

TEST(VStreamWrite, ExactlyTheFreeRoomFlushesAtOnce) {
  struct Case { unsigned first, second; size_t flushed; };
  for (const Case& c : {Case{4096, 0, 4096}, Case{100, 3996, 4096}, Case{100, 3995, 0}, Case{10000, 0, 8192}}) {
    MemoryStream s;
    std::string data(c.first + c.second, 'w');
    EXPECT_EQ(s.write(data.data(), c.first), c.first);
    EXPECT_EQ(s.write(data.data() + c.first, c.second), c.second);
    EXPECT_EQ(s.output.size(), c.flushed) << c.first << "+" << c.second;
    EXPECT_EQ(s.flush(), 0);
    EXPECT_EQ(s.output, data);
  }
}

TEST(VStreamWrite, FailedFlushKeepsTheBufferForALaterFlush) {
  MemoryStream s;
  s.failWrites = true;
  std::string data(5000, 'f');
  EXPECT_EQ(s.write(data.data(), 5000), 0u);
  EXPECT_FALSE(s.puts("more"));
  s.failWrites = false;
  EXPECT_EQ(s.flush(), 0);
  EXPECT_EQ(s.output, std::string(4096, 'f')) << "what was copied before the failure is kept, once";
}

// A result of exactly 512 characters goes out as 511 characters and the zero byte.
TEST(VStreamPrintf, ResultsAroundTheLocalBufferSize) {
  for (size_t length : {511u, 512u, 513u, 5000u}) {
    MemoryStream s;
    EXPECT_TRUE(s.printf("%s", std::string(length, 'p').c_str())) << length;
    ASSERT_EQ(s.flush(), 0);
    std::string expected = length == 512 ? std::string(511, 'p') + '\0' : std::string(length, 'p');
    EXPECT_EQ(s.output, expected) << length;
  }
}

// The logical position is what a parser records as "the next line starts here".
TEST(VFileStreamPosition, TellAndSeekAccountForTheBuffers) {
  MemoryStream s("first\nsecond\nthird\n");
  char buf[64];
  ASSERT_EQ(s.gets(buf, sizeof(buf), false), 6);
  EXPECT_EQ(s.i_tell64(), 19) << "the source ran ahead by the whole buffer-load";
  EXPECT_EQ(s.tell64(), 6);
  ASSERT_EQ(s.seek64(7, SEEK_CUR), 0);
  ASSERT_EQ(s.gets(buf, sizeof(buf), false), 6);
  EXPECT_STREQ(buf, "third\n");
  ASSERT_TRUE(s.puts("abc"));
  EXPECT_EQ(s.tell64(), 22) << "pending output counts as written";
}

TEST(VStdIStream, ReadsLinesFromAStandardStream) {
  std::istringstream in("alpha\nbeta\ngamma");
  VStdIStream s(&in);
  EXPECT_EQ(getsAll(s, 32, true, 3), (std::vector<std::string>{"6:alpha\n", "5:beta\n", "5:gamma"}));
  EXPECT_EQ(s.i_tell(), 16) << "the state left by reading to the end is cleared";
  ASSERT_EQ(s.i_seek(-5, 2), 0);
  EXPECT_EQ(s.i_tell(), 11);
}
