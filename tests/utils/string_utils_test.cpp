#include "utils/string_utils.h"

#include <gtest/gtest.h>

#include <string>

using vorlane::utils::strncpys;

// Fixed fields go onto the wire whole: every byte after the text must be zero (expected: all 8 bytes).
TEST(Strncpys, TerminatesTruncatesAndZeroPads) {
  struct Case { const char* src; std::string expected; };
  for (const Case& c : {Case{"abc", std::string("abc\0\0\0\0\0", 8)}, Case{"abcdefgh", std::string("abcdefg\0", 8)},
                        Case{nullptr, std::string(8, '\0')}}) {
    char field[8];
    memset(field, 'X', sizeof(field));
    strncpys(field, c.src, sizeof(field));
    EXPECT_EQ(std::string(field, sizeof(field)), c.expected) << (c.src ? c.src : "(null)");
  }
  char untouched = 'X';
  strncpys(&untouched, "abc", 0);
  EXPECT_EQ(untouched, 'X');
}

// Boundaries of well-formed UTF-8 as the Unicode standard draws them (table 3-7).
TEST(IsValidUtf8, AcceptsOnlyShortestFormsOfScalarValues) {
  using vorlane::utils::isValidUtf8;
  struct Case { const char* text; bool valid; };
  for (const Case& c : {Case{"", true}, Case{"INBOX", true}, Case{"\xc3\xa9t\xc3\xa9", true},
                        Case{"\xe0\xa0\x80", true}, Case{"\xed\x9f\xbf", true}, Case{"\xf0\x90\x80\x80", true},
                        Case{"\xf4\x8f\xbf\xbf", true}, Case{"\xc3", false}, Case{"\x80", false},
                        Case{"\xc0\xaf", false}, Case{"\xc1\xbf", false}, Case{"\xe0\x9f\xbf", false},
                        Case{"\xed\xa0\x80", false}, Case{"\xf0\x8f\xbf\xbf", false},
                        Case{"\xf4\x90\x80\x80", false}, Case{"\xf5\x80\x80\x80", false},
                        Case{"\xe2\x82", false}, Case{"\xe2\x28\xa1", false}, Case{"ok\xff", false}}) {
    EXPECT_EQ(isValidUtf8(c.text), c.valid) << testing::PrintToString(std::string(c.text));
  }
}
