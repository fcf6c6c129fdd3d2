// File-name extensions as the walk matches message files. The entry types of a listing (a link to a
// folder is no folder, FIFOs are seen as such) are checked by the walk's own tests on real directories.
#include "tiny/dir.h"

#include <gtest/gtest.h>

namespace tiny = vorlane::tiny;

TEST(Fext, MatchesASuffixWithoutRegardToCase) {
  struct Case {
    const char* name;
    bool expected;
  };
  for (const Case& c : {Case{"a.eml", true}, Case{"A.EML", true}, Case{"xeml", true}, Case{"eml", true},
                        Case{"ml", false}, Case{"a.emlx", false}, Case{nullptr, false}}) {
    EXPECT_EQ(tiny::fext(c.name, "eml"), c.expected) << (c.name ? c.name : "(null)");
  }
}
