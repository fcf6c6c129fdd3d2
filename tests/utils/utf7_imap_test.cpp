#include "utils/utf7_imap_converter.h"

#include <gtest/gtest.h>

#include <string>

#include "utils/charset_converter.h"

using vorlane::utils::CharsetConverter;
using vorlane::utils::charsetRecode;
using vorlane::utils::Utf7ImapConverter;

namespace {

// Mailbox names in UTF-8 and their modified UTF-7 spelling (the RFC 3501 example among them). Runs of
// one, two and three code units end on 2, 4 and 0 padding bits.
TEST(Utf7Imap, MailboxNamesRoundTripThroughUtf8) {
  const char* const spellings[][2] = {
      {"", ""},
      {"Tom & Jerry", "Tom &- Jerry"},
      {"Entw\xc3\xbcrfe", "Entw&APw-rfe"},
      {"~peter/mail/\xe5\x8f\xb0\xe5\x8c\x97/\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e",
       "~peter/mail/&U,BTFw-/&ZeVnLIqe-"},
      {"\xc3\xbc\xc3\xbc", "&APwA,A-"},
      {"\xc3\xbc\xc3\xbc\xc3\xbc", "&APwA,AD8-"},
      {"mail \xf0\x9f\x98\x80", "mail &2D3eAA-"},  // a surrogate pair inside the run
      {"\xc3\xbc&\t", "&APw-&-&AAk-"},             // a run closed before '&'; a tab is encoded
  };
  for (const auto& s : spellings) {
    std::string encoded;
    std::string decoded;
    EXPECT_TRUE(charsetRecode("utf-8", "utf-7-imap", s[0], encoded)) << s[1];
    EXPECT_EQ(encoded, s[1]);
    EXPECT_TRUE(charsetRecode("UTF-7m", "utf-8", s[1], decoded)) << s[1];
    EXPECT_EQ(decoded, s[0]) << s[1];
  }
}

TEST(Utf7Imap, MalformedInputIsRefusedWithItsText) {
  const char* const amp = Utf7ImapConverter::MALFORMED_AMPERSAND;
  const char* const bad = Utf7ImapConverter::MALFORMED;
  const char* const cases[][2] = {
      {"&", amp},           {"abc&U,BTFw", amp},  // runs never closed
      {"&U*BTFw-", bad},                          // not a base64 character ('/' is ',' here)
      {"&A-", bad},         {"&APwA-", bad},      // bits that make no whole code unit
      {"&APx-", bad},                             // padding bits not zero
      {"&AGE-", bad},       {"&ACY-", bad},       // 'a' and '&' must not hide in a run
      {"&APw-&APw-", bad},                        // two runs back to back spell one run
      {"caf\xc3\xa9", bad}, {"a\tb", bad},        // raw 8-bit and control characters
  };
  for (const auto& c : cases) {
    CharsetConverter converter("utf-7-imap", "utf-8");
    std::string out = "stale";
    EXPECT_FALSE(converter.convert(c[0], out)) << c[0];
    EXPECT_EQ(converter.lastError(), c[1]) << c[0];
    EXPECT_EQ(out, "") << c[0];
  }
}

// The library hands the encoder whatever fits its output buffer, so input may stop anywhere, even
// inside a code unit; half a code unit left at the end is an internal error.
TEST(Utf7Imap, EncoderCarriesStateAcrossAnySplit) {
  const std::string units("\0x\0\xfc\x53\xf0\0&\xd8\x3d\xde\x00", 12);  // x, U+00FC, U+53F0, &, U+1F600
  std::string error;
  Utf7ImapConverter::utf7imap_table table;
  for (size_t cut1 = 0; cut1 <= units.size(); ++cut1) {
    for (size_t cut2 = cut1; cut2 <= units.size(); ++cut2) {
      std::string out;
      Utf7ImapConverter::toUtf7Imap(units.data(), cut1, out, table);
      Utf7ImapConverter::toUtf7Imap(units.data() + cut1, cut2 - cut1, out, table);
      Utf7ImapConverter::toUtf7Imap(units.data() + cut2, units.size() - cut2, out, table);
      ASSERT_TRUE(Utf7ImapConverter::flushTable(out, table, error));
      EXPECT_EQ(out, "x&APxT8A-&-&2D3eAA-") << "cuts " << cut1 << " " << cut2;
    }
  }
  std::string out;
  Utf7ImapConverter::toUtf7Imap(units.data() + 2, 3, out, table);
  EXPECT_FALSE(Utf7ImapConverter::flushTable(out, table, error));
  EXPECT_EQ(error, Utf7ImapConverter::INTERNAL_ERROR);
  EXPECT_EQ(out, "&APw-");
}

}  // namespace
