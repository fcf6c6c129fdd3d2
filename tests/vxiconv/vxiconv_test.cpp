// Linked against the library itself, so only its exported entry points can resolve.
#include "vxiconv/vxiconv.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

const vxiconv_t kFailed = reinterpret_cast<vxiconv_t>(-1);
const size_t kError = static_cast<size_t>(-1);

// One call converting `input` into `room` bytes: what came out, the error (0 when the call succeeded, -1
// when the names were refused) and the input left.
struct Converted { std::string output; int error; size_t inLeft; };
Converted convert(const std::string& to, const std::string& from, const std::string& input, size_t room = 64) {
  vxiconv_t cd = vxiconv_open(to.c_str(), from.c_str());
  if (cd == kFailed) return {"", -1, input.size()};
  char buffer[64];
  char* in = const_cast<char*>(input.data());
  size_t inLeft = input.size();
  char* out = buffer;
  size_t outLeft = room;
  const int error = vxiconv(cd, &in, &inLeft, &out, &outLeft) == kError ? vxiconv_get_errno() : 0;
  EXPECT_EQ(vxiconv_close(cd), 0);
  return {std::string(buffer, out), error, inLeft};
}

TEST(Vxiconv, ConvertsLikeIconvWithIgnoreAndUcs2Names) {
  struct Case { const char* to; const char* from; std::string input; size_t room; Converted expected; };
  const Case cases[] = {
      {"utf-8", "iso-8859-1", "caf\xe9", 16, {"caf\xc3\xa9", 0, 0}},
      {"utf-8", "iso-8859-1", "caf\xe9", 4, {"caf", E2BIG, 1}},
      // Without //IGNORE the call stops at the character the target lacks; with it the character is
      // dropped, the rest converted, and the drop still reported.
      {"iso-8859-1", "utf-8", "a\xe2\x82\xac" "b", 16, {"a", EILSEQ, 4}},
      {"iso-8859-1//IGNORE", "utf-8", "a\xe2\x82\xac" "b\xff" "c", 16, {"abc", EILSEQ, 0}},
      {"utf-8", "utf-8", "ab\xc3", 16, {"ab", EINVAL, 1}},
      // "ucs-2be" keeps characters beyond the BMP as surrogate pairs, in both directions.
      {"ucs-2be//IGNORE", "utf-8", "A\xf0\x9f\x98\x80", 16, {std::string("\0A\xd8\x3d\xde\x00", 6), 0, 0}},
      {"utf-8", "UCS-2BE", std::string("\xd8\x3d\xde\x00\0A", 6), 16, {"\xf0\x9f\x98\x80" "A", 0, 0}},
  };
  for (const Case& c : cases) {
    const Converted got = convert(c.to, c.from, c.input, c.room);
    EXPECT_EQ(got.error, c.expected.error) << c.to << " <- " << c.from;
    EXPECT_EQ(got.output, c.expected.output) << c.to << " <- " << c.from;
    EXPECT_EQ(got.inLeft, c.expected.inLeft) << c.to << " <- " << c.from;
  }
}

TEST(Vxiconv, RefusesUnknownOrEmptyNamesAndHandlesThatAreNotOpen) {
  const std::string tooLong(200, 'x');
  const char* const pairs[][2] = {{"utf-8", "no-such-charset"},
                                  {"no-such-charset//IGNORE", "utf-8"},
                                  {tooLong.c_str(), "utf-8"},
                                  {"utf-8", nullptr},
                                  {"", "utf-8"},
                                  {"utf-8", "//TRANSLIT"}};
  for (const auto& pair : pairs) {
    EXPECT_EQ(vxiconv_open(pair[0], pair[1]), kFailed) << pair[0];
    EXPECT_EQ(vxiconv_get_errno(), EINVAL);
  }
  char* in = nullptr;
  size_t left = 0;
  EXPECT_EQ(vxiconv(kFailed, &in, &left, &in, &left), kError);
  EXPECT_EQ(vxiconv_close(nullptr), -1);
  EXPECT_EQ(vxiconv_get_errno(), EBADF);
}

// A name differing from one the C library lists only in letter case and in '-', '_', '.', ' ' and ':'
// opens the same conversion, as source and as target (also with "//IGNORE"); other differences do not.
TEST(Vxiconv, AcceptsEveryCaseAndSeparatorSpellingOfAKnownName) {
  const char* const spellings[][2] = {
      {"ANSI_X3.4-1968", "ansi x3:4.1968"}, {"ISO-8859-1", "iso_8859.1"}, {"ISO_8859-2", "Iso 8859:2"},
      {"UTF-8", "utf8"},          {"UTF-16LE", "uTf_16lE"},   {"KOI8-R", "koi8R"},
      {"SHIFT_JIS", "shift-jis"}, {"EUC-JP", "E.U.C.J.P"},     {"CP1252", "cp1252"},
      {"LATIN1", "latin:1"},      {"BIG5-HKSCS", "big5_hkscs"}, {"ISO-2022-JP", "iso2022jp"},
  };
  for (const auto& s : spellings) {
    const std::string expected = convert(s[0], "UTF-8", "Mail 42").output;
    ASSERT_NE(expected, "") << s[0];
    EXPECT_EQ(convert(s[1], "utf-8", "Mail 42").output, expected) << s[1];
    EXPECT_EQ(convert(std::string(s[1]) + "//IGNORE", "utf-8", "Mail 42").output, expected) << s[1];
    EXPECT_EQ(convert("UTF-8", s[1], expected).output, "Mail 42") << s[1];
  }
  for (const char* other : {"utf-9", "utf/8", "utf-88", "latin 1x", "ansi-x3.4-196"}) {
    EXPECT_EQ(convert("utf-8", other, "x").error, -1) << other;
  }
}

}  // namespace
