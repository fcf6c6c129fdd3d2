#include "mime/mime_get_line.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "mime/parse_status.h"
#include "utils/vstd_istream.h"

namespace vorlane {
namespace mime {
namespace {

struct LineResult {
  bool ordinary;
  int count;
  int end_flag;
  int hit;
  size_t boundary_line_len;
};

// Reads one line with the boundaries "out" (outer) and "abc" (inner) open.
LineResult readWithOpenBoundaries(const std::string& text, const char* own = nullptr) {
  std::istringstream in(text);
  utils::VStdIStream stream(&in);
  parse_status status;
  status.push_boundary("out");
  status.push_boundary("abc");
  const bool ordinary = mime_get_line(&stream, &status, own);
  return {ordinary, status.boundary_count, status.end_flag, status.boundary_hit, status.boundary_line_len};
}

// The end of input empties the stack and is no hit.
TEST(MimeGetLine, RecognisesEveryListedTerminatorOfOpeningAndClosingBoundaries) {
  struct Case { const char* line; int count; int end_flag; int hit; };
  for (const Case& c : {Case{"--abc\r\n", 2, 0, 1}, Case{"--abc\n", 2, 0, 1}, Case{"--abc\r", 2, 0, 1},
                        Case{"--abc", 2, 0, 1}, Case{"--abc--\r\n", 1, 1, 1}, Case{"--abc--\n", 1, 1, 1},
                        Case{"--abc--\r", 1, 1, 1}, Case{"--abc--", 1, 1, 1}, Case{"--out\r\n", 1, 0, 1},
                        Case{"--out--\n", 0, 1, 1}, Case{"", 0, 1, 0}}) {
    const LineResult r = readWithOpenBoundaries(c.line);
    EXPECT_FALSE(r.ordinary) << c.line;
    EXPECT_EQ(r.count, c.count) << c.line;
    EXPECT_EQ(r.end_flag, c.end_flag) << c.line;
    EXPECT_EQ(r.hit, c.hit) << c.line;
    EXPECT_EQ(r.boundary_line_len, std::string(c.line).size()) << c.line;
  }
}

TEST(MimeGetLine, TextThatOnlyStartsLikeABoundaryIsAnOrdinaryLine) {
  for (const char* line : {"--abcX\r\n", "--abc \r\n", "--abc--x\n", "--abc---\n", "--ABC\n", "-abc\n", "--ab\n",
                           "abc\n", "--\n", "--out--\r\r"}) {
    const LineResult r = readWithOpenBoundaries(line);
    EXPECT_TRUE(r.ordinary) << line;
    EXPECT_EQ(r.count, 2) << line;
  }
}

TEST(MimeGetLine, OwnBoundaryIsPassedOverWhileTheOthersStillMatch) {
  EXPECT_TRUE(readWithOpenBoundaries("--abc\n", "ABC").ordinary);
  const LineResult outer = readWithOpenBoundaries("--out\n", "abc");
  EXPECT_FALSE(outer.ordinary);
  EXPECT_EQ(outer.count, 1);
}

}  // namespace
}  // namespace mime
}  // namespace vorlane
