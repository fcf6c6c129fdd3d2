#include "utils/utf7_imap_converter.h"

#include <gtest/gtest.h>

#include <string>

#include "utils/charset_converter.h"

using vorlane::utils::CharsetConverter;
using vorlane::utils::Utf7ImapConverter;
using vorlane::utils::charsetRecode;

namespace {

// Mailbox names in UTF-8 and their modified UTF-7 spelling (the two RFC 3501 examples among them).
struct Spelling {
  const char* utf8;
  const char* utf7;
};
const Spelling kSpellings[] = {
    {"", ""},
    {"INBOX", "INBOX"},
    {"&", "&-"},
    {"Tom & Jerry", "Tom &- Jerry"},
    {"Entw\xc3\xbc" "rfe", "Entw&APw-rfe"},
    {"\xc3\xa9t\xc3\xa9", "&AOk-t&AOk-"},
    {"~peter/mail/\xe5\x8f\xb0\xe5\x8c\x97/\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e",
     "~peter/mail/&U,BTFw-/&ZeVnLIqe-"},
    {"\xe5\x8f\xb0\xe5\x8c\x97", "&U,BTFw-"},
    // One, two and three code units in a run end on 2, 4 and 0 padding bits.
    {"\xc3\xbc", "&APw-"},
    {"\xc3\xbc\xc3\xbc", "&APwA,A-"},
    {"\xc3\xbc\xc3\xbc\xc3\xbc", "&APwA,AD8-"},
    // Beyond the BMP: a surrogate pair inside the run.
    {"mail \xf0\x9f\x98\x80", "mail &2D3eAA-"},
    // A run that ends right before '&' and a tab (not printable, so encoded).
    {"\xc3\xbc&\t", "&APw-&-&AAk-"},
};

TEST(Utf7Imap, MailboxNamesRoundTripThroughUtf8) {
  for (const Spelling& s : kSpellings) {
    std::string encoded;
    std::string decoded;
    EXPECT_TRUE(charsetRecode("utf-8", "utf-7-imap", s.utf8, encoded)) << s.utf7;
    EXPECT_EQ(encoded, s.utf7);
    EXPECT_TRUE(charsetRecode("UTF-7m", "utf-8", s.utf7, decoded)) << s.utf7;
    EXPECT_EQ(decoded, s.utf8) << s.utf7;
  }
}

TEST(Utf7Imap, MalformedInputIsRefusedWithItsText) {
  struct Case {
    const char* input;
    const char* error;
  };
  const Case cases[] = {
      {"&", Utf7ImapConverter::MALFORMED_AMPERSAND},
      {"abc&U,BTFw", Utf7ImapConverter::MALFORMED_AMPERSAND},
      {"&U*BTFw-", Utf7ImapConverter::MALFORMED},           // not a base64 character
      {"&A-", Utf7ImapConverter::MALFORMED},                // six bits are not a code unit
      {"&APx-", Utf7ImapConverter::MALFORMED},              // padding bits not zero
      {"&APwA-", Utf7ImapConverter::MALFORMED},             // a whole base64 digit of padding
      {"&AGE-", Utf7ImapConverter::MALFORMED},              // 'a' must stand for itself
      {"&ACY-", Utf7ImapConverter::MALFORMED},              // so must '&' ("&-")
      {"caf\xc3\xa9", Utf7ImapConverter::MALFORMED},        // raw 8-bit text
      {"a\tb", Utf7ImapConverter::MALFORMED},               // raw control character
      {"&U,BTFw/", Utf7ImapConverter::MALFORMED},           // '/' is ',' in this base64
  };
  for (const Case& c : cases) {
    std::string units;
    std::string error;
    EXPECT_FALSE(Utf7ImapConverter::fromUtf7Imap(c.input, units, error)) << c.input;
    EXPECT_EQ(error, c.error) << c.input;

    CharsetConverter converter("utf-7-imap", "utf-8");
    std::string out = "stale";
    EXPECT_FALSE(converter.convert(c.input, out)) << c.input;
    EXPECT_EQ(converter.lastError(), c.error) << c.input;
    EXPECT_EQ(out, "") << c.input;
  }
}

// The library hands the encoder whatever fits its output buffer, so input may stop anywhere.
TEST(Utf7Imap, EncoderCarriesStateAcrossAnySplit) {
  // "x", U+00FC, U+53F0, "&", U+D83D U+DE00 in UTF-16BE.
  const std::string units("\0x\0\xfc\x53\xf0\0&\xd8\x3d\xde\x00", 12);
  std::string whole;
  Utf7ImapConverter::utf7imap_table table;
  Utf7ImapConverter::toUtf7Imap(units.data(), units.size(), whole, table);
  std::string error;
  ASSERT_TRUE(Utf7ImapConverter::flushTable(whole, table, error));
  EXPECT_EQ(whole, "x&APxT8A-&-&2D3eAA-");
  for (size_t cut1 = 0; cut1 <= units.size(); ++cut1) {
    for (size_t cut2 = cut1; cut2 <= units.size(); ++cut2) {
      std::string pieces;
      Utf7ImapConverter::toUtf7Imap(units.data(), cut1, pieces, table);
      Utf7ImapConverter::toUtf7Imap(units.data() + cut1, cut2 - cut1, pieces, table);
      Utf7ImapConverter::toUtf7Imap(units.data() + cut2, units.size() - cut2, pieces, table);
      ASSERT_TRUE(Utf7ImapConverter::flushTable(pieces, table, error));
      EXPECT_EQ(pieces, whole) << "cuts " << cut1 << " " << cut2;
    }
  }
}

TEST(Utf7Imap, FlushWithHalfACodeUnitLeftIsAnInternalError) {
  Utf7ImapConverter::utf7imap_table table;
  std::string out;
  Utf7ImapConverter::toUtf7Imap("\0\xfc\x53", 3, out, table);
  std::string error;
  EXPECT_FALSE(Utf7ImapConverter::flushTable(out, table, error));
  EXPECT_EQ(error, Utf7ImapConverter::INTERNAL_ERROR);
  EXPECT_EQ(out, "&APw-");
  // The table is clean again for the next text.
  out.clear();
  Utf7ImapConverter::toUtf7Imap("\0a", 2, out, table);
  EXPECT_TRUE(Utf7ImapConverter::flushTable(out, table, error));
  EXPECT_EQ(out, "a");
}

TEST(Utf7Imap, NamesAreRecognisedInAnyCase) {
  for (const char* name : {"utf-7-imap", "UTF-7-IMAP", "utf-7m", "Utf-7M"}) {
    EXPECT_TRUE(Utf7ImapConverter::isUtf7Imap(name)) << name;
  }
  for (const char* name : {"utf-7", "utf-7-imap4", "utf-8", "", static_cast<const char*>(nullptr)}) {
    EXPECT_FALSE(Utf7ImapConverter::isUtf7Imap(name)) << (name ? name : "null");
  }
}

// Modified UTF-7 on both sides still goes through UTF-16BE and comes out the same.
TEST(Utf7Imap, ConvertsToItself) {
  std::string out;
  EXPECT_TRUE(charsetRecode("utf-7-imap", "utf-7m", "~peter/mail/&U,BTFw-/&ZeVnLIqe-", out));
  EXPECT_EQ(out, "~peter/mail/&U,BTFw-/&ZeVnLIqe-");
}

}  // namespace
