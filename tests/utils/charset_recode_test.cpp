#include <errno.h>
#include <gtest/gtest.h>

#include <string>

#include "utils/charset_converter.h"

using vorlane::utils::charsetRecode;
using vorlane::utils::haveCharset;
using vorlane::utils::remapCharset;

namespace {

// The string, pointer-and-length and iterator forms see the same bytes, embedded NULs included.
TEST(CharsetRecode, EveryInputFormGivesTheSameResult) {
  const std::string latin1("a\0\xe9z", 4);
  const std::string expected("a\0\xc3\xa9z", 5);
  std::string fromString;
  std::string fromPointer;
  std::string fromIterators;
  EXPECT_TRUE(charsetRecode("iso-8859-1", "utf-8", latin1, fromString));
  EXPECT_TRUE(charsetRecode("iso-8859-1", "utf-8", latin1.data(), latin1.size(), fromPointer));
  EXPECT_TRUE(charsetRecode("iso-8859-1", "utf-8", latin1.begin(), latin1.end(), fromIterators));
  EXPECT_EQ(fromString, expected);
  EXPECT_EQ(fromPointer, expected);
  EXPECT_EQ(fromIterators, expected);
  // Empty input through each form.
  const std::string empty;
  EXPECT_TRUE(charsetRecode("iso-8859-1", "utf-8", empty.begin(), empty.end(), fromIterators));
  EXPECT_TRUE(charsetRecode("iso-8859-1", "utf-8", nullptr, 0, fromPointer));
  EXPECT_EQ(fromIterators + fromPointer, "");
}

TEST(CharsetRecode, UnknownCharsetLeavesOutputEmpty) {
  std::string out = "stale";
  EXPECT_FALSE(charsetRecode("x-unknown-8", "utf-8", "abc", out));
  EXPECT_EQ(out, "");
  out = "stale";
  EXPECT_FALSE(charsetRecode("utf-8", "x-unknown-8", "abc", out));
  EXPECT_EQ(out, "");
}

// The caller-buffer form converts without dropping anything and reports the C library's error.
TEST(CharsetRecode, CallerBuffersReportErrorsAndProgress) {
  struct Case {
    const char* from;
    const char* to;
    std::string input;
    unsigned room;
    int error;
    std::string output;
    unsigned consumed;
  };
  const Case cases[] = {
      {"iso-8859-1", "utf-8", "caf\xe9", 16, 0, "caf\xc3\xa9", 4},
      {"iso-8859-1", "utf-8", "caf\xe9", 4, E2BIG, "caf", 3},
      {"utf-8", "iso-8859-1", "ok\xe2\x82\xac", 16, EILSEQ, "ok", 2},
      {"utf-8", "iso-8859-1", "ok\xc3", 16, EINVAL, "ok", 2},
      {"utf-8", "iso-2022-jp", "\xe6\x97\xa5", 16, 0, "\x1b$BF|\x1b(B", 3},
      {"x-unknown-8", "utf-8", "abc", 16, EINVAL, "", 0},
  };
  for (const Case& c : cases) {
    char buffer[16];
    unsigned outLen = c.room;
    unsigned consumed = 99;
    EXPECT_EQ(charsetRecode(c.from, c.to, c.input.data(), static_cast<unsigned>(c.input.size()), buffer, &outLen,
                            &consumed),
              c.error)
        << c.from << " -> " << c.to << " in " << c.room;
    EXPECT_EQ(std::string(buffer, outLen), c.output) << c.from << " -> " << c.to << " in " << c.room;
    EXPECT_EQ(consumed, c.consumed) << c.from << " -> " << c.to << " in " << c.room;
  }
  unsigned outLen = 4;
  EXPECT_EQ(charsetRecode("utf-8", "utf-8", "abc", 3, nullptr, &outLen, &outLen), EINVAL);
}

TEST(HaveCharset, KnowsWhatTheLibraryConverts) {
  for (const char* name : {"utf-8", "ISO-8859-2", "windows-1250", "cp949", "utf-7-imap", "UTF-7M"}) {
    EXPECT_TRUE(haveCharset(name)) << name;
  }
  // An empty name is not the locale's charset.
  for (const char* name : {"x-unknown-8", "", "//IGNORE"}) {
    EXPECT_FALSE(haveCharset(name)) << name;
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
      // Known names pass through unchanged, reported as no replacement.
      {"Windows-1250", false, "Windows-1250"},
      {"iso-8859-2", false, "iso-8859-2"},
      // An unknown Windows code page falls back to the cp spelling.
      {"windows-9999", true, "cp9999"},
      // Anything else stays untouched.
      {"x-unknown-8", false, "untouched"},
      {"windows-", false, "untouched"},
  };
  for (const Case& c : cases) {
    std::string out = "untouched";
    EXPECT_EQ(remapCharset(out, c.in), c.replaced) << c.in;
    EXPECT_EQ(out, c.out) << c.in;
  }
}

}  // namespace
