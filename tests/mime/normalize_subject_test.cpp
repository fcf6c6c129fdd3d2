#include "mime/normalize_subject.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

namespace vorlane {
namespace mime {
namespace {

struct Case {
  const char* subject;
  const char* base;
  int levels;
};

TEST(NormalizeSubject, StripsMarkersAndCountsLevels) {
  const Case cases[] = {
      {"Re: Fwd: [list] Re[3]: Hello (fwd)", "Hello", 6},
      {"[fwd: Re: hi]", "hi", 2},
      {"[FWD: [fwd: x]]", "x", 2},
      {"[announce]", "[announce]", 0},
      {"Re: [announce]", "[announce]", 1},
      {"[a [b]] [c] topic", "topic", 0},
      {"[unclosed topic", "[unclosed topic", 0},
      {"Re[x]: a", "a", 1},
      {"RE[2]: b", "b", 2},
      {"re [ 0 ] : c", "c", 1},  // blanks inside the brackets make the level invalid
      {"Re[0]: d", "d", 1},
      {"Re[]: e", "e", 1},
      {"Re[2 : f", "Re[2 : f", 0},
      {"Fw: g", "g", 1},
      {"FWD:h", "h", 1},
      {"fwd re: i", "fwd re: i", 0},
      {"Report: j", "Report: j", 0},
      {"Re: Re: ", "", 2},
      {"  k (fwd) (FWD)  ", "k", 2},
      {"(fwd)", "", 1},
      {"", "", 0},
      {"Re[99999999999999999999]: l", "l", 1000000},
      // Encoded words are decoded before the markers are looked for.
      {"=?us-ascii?Q?Re=3A?= =?iso-8859-1?Q?caf=E9?=", "caf\xc3\xa9", 1},
  };
  for (const Case& c : cases) {
    int count = 10;
    EXPECT_EQ(normalizeSubject(c.subject, &count), c.base) << c.subject;
    EXPECT_EQ(count, 10 + c.levels) << c.subject;
  }
  EXPECT_EQ(normalizeSubject("Re: x", nullptr), "x");
}

TEST(NormalizeSubject, UnwrapsAtMostAHundredForwardWrappings) {
  std::string subject = "x";
  for (int i = 0; i < 150; ++i) subject = "[Fwd: " + subject + "]";
  int count = 0;
  const std::string base = normalizeSubject(subject.c_str(), &count);
  EXPECT_EQ(count, 100);
  EXPECT_EQ(base.compare(0, 5, "[Fwd:"), 0) << base;
}

TEST(NormalizeSubject, CountSaturatesInsteadOfOverflowing) {
  std::string subject;
  for (int i = 0; i < 3000; ++i) subject += "Re[1000000]:";
  int count = 5;
  EXPECT_EQ(normalizeSubject((subject + "x").c_str(), &count), "x");
  EXPECT_EQ(count, INT_MAX);
}

TEST(NormalizeSubject, OnePassCutsTheCallersBufferInPlace) {
  char text[] = "Re: topic (fwd) ";
  int count = 0;
  char* base = do_normalizeSubject(text, &count);
  EXPECT_EQ(base, text + 4);
  EXPECT_STREQ(base, "topic");
  EXPECT_EQ(std::strlen(text), 9u);
  EXPECT_EQ(count, 2);
}

}  // namespace
}  // namespace mime
}  // namespace vorlane
