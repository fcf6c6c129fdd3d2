#include <errno.h>
#include <gtest/gtest.h>

#include <string>

#include "utils/charset_converter.h"

using vorlane::utils::charsetRecode;
using vorlane::utils::remapCharset;

namespace {

// The string, pointer-and-length and iterator forms see the same bytes, embedded NULs included.
TEST(CharsetRecode, EveryInputFormGivesTheSameResult) {
  const std::string latin1("a\0\xe9z", 4);
  const std::string expected("a\0\xc3\xa9z", 5);
  std::string outs[3];
  EXPECT_TRUE(charsetRecode("iso-8859-1", "utf-8", latin1, outs[0]));
  EXPECT_TRUE(charsetRecode("iso-8859-1", "utf-8", latin1.data(), latin1.size(), outs[1]));
  EXPECT_TRUE(charsetRecode("iso-8859-1", "utf-8", latin1.begin(), latin1.end(), outs[2]));
  for (const std::string& out : outs) EXPECT_EQ(out, expected);
}

// The caller-buffer form drops nothing and reports the C library's error with the progress made.
TEST(CharsetRecode, CallerBuffersReportErrorsAndProgress) {
  struct Case {
    const char* from;
    std::string input;
    unsigned room;
    int error;
    std::string output;
    unsigned consumed;
  };
  const Case cases[] = {
      {"iso-8859-1", "caf\xe9", 16, 0, "caf\xc3\xa9", 4},
      {"iso-8859-1", "caf\xe9", 4, E2BIG, "caf", 3},
      {"utf-8", "ok\xc3", 16, EINVAL, "ok", 2},
      {"x-unknown-8", "abc", 16, EINVAL, "", 0},
  };
  for (const Case& c : cases) {
    char buffer[16];
    unsigned outLen = c.room;
    unsigned consumed = 99;
    const unsigned inLen = static_cast<unsigned>(c.input.size());
    EXPECT_EQ(charsetRecode(c.from, "utf-8", c.input.data(), inLen, buffer, &outLen, &consumed), c.error)
        << c.input;
    EXPECT_EQ(std::string(buffer, outLen), c.output) << c.input;
    EXPECT_EQ(consumed, c.consumed) << c.input;
  }
}

TEST(RemapCharset, ReplacesNamesMailMisuses) {
  struct Case {
    const char* in;
    bool replaced;
    const char* out;
  };
  const Case cases[] = {
      {"ks_c_5601-1987", true, "cp949"},
      {"KSC5601", true, "cp949"},
      {"ISO-8859-1", true, "cp1252"},
      {"us-ascii", true, "cp1252"},
      {"None", true, "cp1252"},
      {"iso-8859-8-i", true, "iso-8859-8"},
      {"GB2312", true, "gb18030"},
      // Known names pass through, reported as no replacement; unknown Windows pages become cpNNNN.
      {"Windows-1250", false, "Windows-1250"},
      {"windows-9999", true, "cp9999"},
      // Unknown names stay untouched; an empty one is not the locale's charset.
      {"x-unknown-8", false, "untouched"},
      {"windows-", false, "untouched"},
      {"", false, "untouched"},
  };
  for (const Case& c : cases) {
    std::string out = "untouched";
    EXPECT_EQ(remapCharset(out, c.in), c.replaced) << c.in;
    EXPECT_EQ(out, c.out) << c.in;
  }
}

}  // namespace
