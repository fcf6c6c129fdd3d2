#include "stat/folder_files.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct StatusCase {
  std::vector<std::string> lines;
  int type;
  unsigned long long messageCount;
  unsigned long long folderSize;
};

// Status values convert like a 32-bit strtol: saturated, sign-extended, last key wins.
TEST(FolderFiles, StatusLinesYieldTypeAndTotals) {
  const unsigned long long allOnes = ~0ULL;
  const StatusCase cases[] = {
      {{"T3\n", "M17\n", "S4096\n"}, 3, 17, 4096},
      {{"M-1\r\n"}, 0, allOnes, 0},
      {{"S99999999999\n"}, 0, 0, 2147483647ULL},
      {{"S-99999999999\n"}, 0, 0, 0xFFFFFFFF80000000ULL},
      {{"T  5\n", "Mx\n"}, 5, 0, 0},
      {{"M1\n", "M2\n", "Q7\n", "\n"}, 0, 2, 0},
      {{"t3\n", " T3\n"}, 0, 0, 0},
  };
  for (const StatusCase& c : cases) {
    FolderStatus status;
    for (const std::string& line : c.lines) parseStatusLine(line.c_str(), status);
    EXPECT_EQ(status.type, c.type) << c.lines[0];
    EXPECT_EQ(status.messageCount, c.messageCount) << c.lines[0];
    EXPECT_EQ(status.folderSize, c.folderSize) << c.lines[0];
  }
}

// Index lines keep their historical quirks: a leading blank eats the first token, and a character
// glued to the digits of a size starts a token of its own.
TEST(FolderFiles, IndexLinesYieldClassAndSize) {
  struct Case {
    std::string line;
    std::string messageClass;
    unsigned long long size;
  };
  const Case cases[] = {
      {"CIPM.DistList S2048\n", "IPM.DistList", 2048},
      {"S100\n", "IPM.Note", 100},
      {"", "IPM.Note", 0},
      {"\n", "IPM.Note", 0},
      {" S100\n", "IPM.Note", 0},
      {"S12CIPM.Task\n", "IPM.Task", 12},
      {"C S5\n", "", 5},
      {"S1 S2 CIPM.A CIPM.B\n", "IPM.B", 2},
      {"Xjunk S7\tCIPM.Contact\n", "IPM.Contact", 7},
      {"S99999999999\n", "IPM.Note", 4294967295ULL},
      {"S-1\n", "IPM.Note", 4294967295ULL},
      {"Sx\n", "IPM.Note", 0},
  };
  for (const Case& c : cases) {
    std::string buffer = c.line;
    IndexEntry entry{"stale", 12345};
    parseIndexLine(&buffer[0], entry);
    EXPECT_EQ(entry.messageClass, c.messageClass) << "line '" << c.line << "'";
    EXPECT_EQ(entry.size, c.size) << "line '" << c.line << "'";
  }
}

}  // namespace
