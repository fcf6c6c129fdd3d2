#include "mime/encoded_word.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace vorlane {
namespace mime {
namespace {

typedef std::pair<const char*, std::string> Case;

// Text that is not a well-formed encoded word passes unchanged, with or without the conversion library.
TEST(DecodeHeaderText, LeavesOtherTextAsWritten) {
  const char* cases[] = {
      "",
      "Plain subject",
      "a =? b",
      "=?utf-8?X?abc?=",      // unknown encoding
      "=?utf-8?Q?a b?=",      // blank inside the encoded text
      "=??Q?abc?=",           // no charset
      "=?utf-8?Q?abc",        // never closed
      "=?utf-8?Q?abc?",       // cut inside the closing
      "=?x-no-such-charset?Q?abc?= =?x-no-such-charset?Q?def?=",
  };
  for (const char* text : cases) EXPECT_EQ(decodeHeaderText(text), text) << text;
  EXPECT_EQ(decodeHeaderText(nullptr), "");
}

TEST(DecodeHeaderText, DecodesWordsAndDropsBlanksBetweenThem) {
  const Case cases[] = {
      {"=?us-ascii?Q?Hello_World?=", "Hello World"},
      {"=?US-ASCII?q?a=3Db=3?=", "a=b=3"},
      {"=?iso-8859-1?Q?caf=E9?=", "caf\xc3\xa9"},
      {"=?iso-8859-1?B?Y2Fm6Q==?=", "caf\xc3\xa9"},
      {"=?iso-8859-1?b?Y2Fm6Q?=", "caf\xc3\xa9"},  // missing padding is tolerated
      {"=?us-ascii*en?Q?lang?=", "lang"},
      {"Re: =?us-ascii?Q?a?=  =?us-ascii?Q?b?=\r\n =?iso-8859-1?Q?c?= end", "Re: abc end"},
      {"=?us-ascii?Q?a?= b =?us-ascii?Q?c?=", "a b c"},
      {"x=?us-ascii?Q?a?=y", "xay"},
      {"=?us-ascii?Q?open =?us-ascii?Q?b?=", "=?us-ascii?Q?open b"},
      // A character split over two words of one charset is put together before conversion.
      {"=?utf-8?Q?=C3?= =?utf-8?Q?=A9?=", "\xc3\xa9"},
      {"=?utf-8?B?w6k=?=", "\xc3\xa9"},
      // A word whose charset fails stays as written; its neighbours are still decoded.
      {"=?us-ascii?Q?a?= =?x-no-such-charset?Q?b?= =?us-ascii?Q?c?=", "a=?x-no-such-charset?Q?b?=c"},
  };
  for (const Case& c : cases) EXPECT_EQ(decodeHeaderText(c.first), c.second) << c.first;
}

}  // namespace
}  // namespace mime
}  // namespace vorlane
