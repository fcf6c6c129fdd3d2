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
  const Case cases[] = {
      {"abc", std::string("abc\0\0\0\0\0", 8)},
      {"abcdefg", std::string("abcdefg\0", 8)},
      {"abcdefgh", std::string("abcdefg\0", 8)},
      {"abcdefghijklmnop", std::string("abcdefg\0", 8)},
      {"", std::string(8, '\0')},
      {nullptr, std::string(8, '\0')},
  };
  for (const Case& c : cases) {
    char field[8];
    memset(field, 'X', sizeof(field));
    EXPECT_EQ(strncpys(field, c.src, sizeof(field)), field);
    EXPECT_EQ(std::string(field, sizeof(field)), c.expected) << (c.src ? c.src : "(null)");
  }
}

TEST(Strncpys, SizeZeroWritesNothingAndSizeOneOnlyTerminates) {
  char field[2] = {'X', 'X'};
  strncpys(field, "abc", 0);
  EXPECT_EQ(field[0], 'X');
  strncpys(field, "abc", 1);
  EXPECT_EQ(field[0], '\0');
  EXPECT_EQ(field[1], 'X');
}
