#include "utils/string_utils.h"

#include <gtest/gtest.h>

#include <string>

using vorlane::utils::strncpys;

// Fixed fields go onto the wire whole: every byte after the text must be zero.
TEST(Strncpys, TerminatesTruncatesAndZeroPads) {
  struct Case {
    const char* src;
    std::string expected;  // all 8 bytes of the field
  };
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
