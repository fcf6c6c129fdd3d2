// Inputs found by fuzzing the modified UTF-7 (IMAP) converter, kept so they stay fixed.
#include <gtest/gtest.h>

#include <string>

#include "utils/utf7_imap_converter.h"

using vorlane::utils::Utf7ImapConverter;

namespace {

// Two base64 runs back to back decode to the same units as one run, so a name would have two
// spellings; only the single run the encoder writes is accepted. A run after "&-" is still separate.
// Whatever is accepted is the encoder's own spelling of what it decodes to.
TEST(Utf7ImapRegression, BackToBackRunsAreRefusedAndAcceptedNamesReEncodeToThemselves) {
  struct Case {
    const char* text;
    bool accepted;
  };
  for (const Case& c : {Case{"&544-&544-", false}, Case{"&APw-&APw-x", false}, Case{"&544X5Q-", true},
                        Case{"&APw-&-&AAk-", true}, Case{"&APw-a&APw-", true}}) {
    std::string units, error, back;
    EXPECT_EQ(Utf7ImapConverter::fromUtf7Imap(c.text, units, error), c.accepted) << c.text;
    EXPECT_EQ(error.empty(), c.accepted) << c.text;
    if (!c.accepted) continue;
    Utf7ImapConverter::utf7imap_table table;
    Utf7ImapConverter::toUtf7Imap(units.data(), units.size(), back, table);
    ASSERT_TRUE(Utf7ImapConverter::flushTable(back, table, error));
    EXPECT_EQ(back, c.text);
  }
}

}  // namespace
