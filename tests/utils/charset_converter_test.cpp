#include "utils/charset_converter.h"

#include <string.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using vorlane::utils::CharsetConverter;
using vorlane::utils::VIconv;
using vorlane::utils::charsetRecode;

namespace {

const size_t kChunk = CharsetConverter::kInputChunkSize;

TEST(CharsetConverter, ConvertsWholeTextsAndDropsWhatCannotBeConverted) {
  struct Case {
    const char* from;
    const char* to;
    std::string input;
    std::string output;
    unsigned dropped;
  };
  const Case cases[] = {
      {"iso-8859-2", "utf-8", "\xb1\xe6", "\xc4\x85\xc4\x87", 0},
      {"utf-8", "iso-8859-1", "caf\xc3\xa9", "caf\xe9", 0},
      {"cp1252", "utf-8", "\x93quoted\x94", "\xe2\x80\x9cquoted\xe2\x80\x9d", 0},
      {"utf-8", "utf-8", "", "", 0},
      // The euro sign has no place in Latin-1: dropped, the text still converts.
      {"utf-8", "iso-8859-1", "1\xe2\x82\xac = 1 EUR", "1 = 1 EUR", 1},
      // Invalid bytes are skipped.
      {"utf-8", "utf-8", "a\xff" "b\xc0" "c", "abc", 1},
      // A text cut in the middle of a character keeps everything before it.
      {"utf-8", "utf-16be", "ab\xe2\x82", std::string("\0a\0b", 4), 1},
  };
  for (const Case& c : cases) {
    CharsetConverter converter(c.from, c.to);
    ASSERT_TRUE(converter.isOpen()) << c.from << " -> " << c.to;
    std::string out = "stale";
    EXPECT_TRUE(converter.convert(c.input, out)) << c.from << " -> " << c.to;
    EXPECT_EQ(out, c.output) << c.from << " -> " << c.to;
    EXPECT_EQ(converter.droppedCount(), c.dropped) << c.from << " -> " << c.to;
  }
}

// A multibyte character cut by the chunk boundary is carried into the next chunk, wherever the cut
// falls inside it: nothing is lost and nothing is reported as dropped.
TEST(CharsetConverter, CharactersCutByChunkBoundariesSurvive) {
  const std::string characters[] = {"\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80"};
  for (const std::string& character : characters) {
    for (size_t shift = 0; shift < character.size(); ++shift) {
      std::string text(shift, 'x');
      while (text.size() < 3 * kChunk) text += character;
      std::string utf16;
      std::string back;
      CharsetConverter there("utf-8", "utf-16le");
      ASSERT_TRUE(there.convert(text, utf16));
      EXPECT_EQ(there.droppedCount(), 0u) << character.size() << "-byte character, shift " << shift;
      ASSERT_TRUE(charsetRecode("utf-16le", "utf-8", utf16, back));
      EXPECT_EQ(back, text) << character.size() << "-byte character, shift " << shift;
    }
  }
}

// Bad bytes in several chunks are each skipped; the good text around them all arrives.
TEST(CharsetConverter, InvalidBytesInEveryChunkAreSkipped) {
  std::string text;
  std::string expected;
  for (size_t i = 0; i < 5 * kChunk; ++i) {
    if (i % 300 == 7) {
      text += '\xff';
    } else {
      const char c = static_cast<char>('a' + i % 26);
      text += c;
      expected += c;
    }
  }
  CharsetConverter converter("utf-8", "iso-8859-1");
  std::string out;
  EXPECT_TRUE(converter.convert(text, out));
  EXPECT_EQ(out, expected);
  EXPECT_GE(converter.droppedCount(), 5u);
  converter.reset();
  EXPECT_EQ(converter.droppedCount(), 0u);
}

// A stateful target must end the text back in ASCII, even when the last character needed a shift.
TEST(CharsetConverter, StatefulTargetEndsWithItsShiftSequence) {
  std::string out;
  ASSERT_TRUE(charsetRecode("utf-8", "iso-2022-jp", "\xe6\x97\xa5\xe6\x9c\xac", out));
  EXPECT_EQ(out, "\x1b$BF|K\\\x1b(B");
  // The converter starts each text from the initial state again.
  CharsetConverter converter("utf-8", "iso-2022-jp");
  std::string first;
  std::string second;
  ASSERT_TRUE(converter.convert("\xe6\x97\xa5", first));
  ASSERT_TRUE(converter.convert("\xe6\x97\xa5", second));
  EXPECT_EQ(first, second);
}

TEST(CharsetConverter, UnknownCharsetFailsSoftlyOrThrowsWhenAsked) {
  CharsetConverter soft("no-such-charset", "utf-8");
  EXPECT_FALSE(soft.isOpen());
  std::string out = "stale";
  EXPECT_FALSE(soft.convert("text", out));
  EXPECT_EQ(out, "");
  try {
    CharsetConverter strict("no-such-charset", "utf-8", true);
    FAIL() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(),
                 "CharsetConverter: failed to initialize string conversion from \"no-such-charset\" encoding "
                 "to \"utf-8\" encoding");
  }
  // The message is cut to its 255-byte buffer, never overrun.
  const std::string longName(400, 'q');
  try {
    CharsetConverter strict(longName.c_str(), "utf-8", true);
    FAIL() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()).size(), 254u);
  }
  EXPECT_NO_THROW(CharsetConverter("utf-8", "utf-8", true));
}

// The buffer interface hands out the converted text in pieces as small as the caller's buffer, and
// takes the input only once all of it was delivered.
TEST(CharsetConverter, BufferInterfaceDeliversInPieces) {
  const std::string input = "na\xefve caf\xe9 \xe0 la cr\xe8me";
  std::string expected;
  ASSERT_TRUE(charsetRecode("iso-8859-1", "utf-8", input, expected));
  for (unsigned room : {1u, 3u, 7u, 64u}) {
    CharsetConverter converter("iso-8859-1", "utf-8");
    const char* in = input.data();
    unsigned inLength = static_cast<unsigned>(input.size());
    std::string collected;
    int calls = 0;
    while (inLength > 0 && calls++ < 100) {
      char buffer[64];
      memset(buffer, 'z', sizeof(buffer));
      char* out = buffer;
      unsigned outLength = room;
      ASSERT_TRUE(converter.convert(&in, inLength, &out, outLength));
      const size_t copied = static_cast<size_t>(out - buffer);
      EXPECT_EQ(copied + outLength, room);
      EXPECT_EQ(std::string(buffer + copied, room - copied), std::string(room - copied, '\0')) << "room " << room;
      EXPECT_EQ(buffer[room < 64 ? room : 63], room < 64 ? 'z' : '\0') << "wrote past the room " << room;
      collected.append(buffer, copied);
      if (inLength > 0) {
        EXPECT_EQ(in, input.data()) << "input taken before its output was delivered";
      }
    }
    EXPECT_EQ(collected, expected) << "room " << room;
    EXPECT_EQ(in, input.data() + input.size());
  }
}

TEST(CharsetConverter, BufferInterfaceFailsWithoutConversion) {
  CharsetConverter converter("no-such-charset", "utf-8");
  const char* in = "abc";
  unsigned inLength = 3;
  char buffer[8];
  char* out = buffer;
  unsigned outLength = sizeof(buffer);
  EXPECT_FALSE(converter.convert(&in, inLength, &out, outLength));
  EXPECT_EQ(inLength, 3u);
}

// The flag is carried for callers; results are the same either way.
TEST(CharsetConverter, OptionDoesNotChangeTheResult) {
  std::string plain;
  std::string withOption;
  ASSERT_TRUE(charsetRecode("utf-8", "iso-8859-1", "x\xe2\x82\xac\xc3\xa9", plain, false));
  ASSERT_TRUE(charsetRecode("utf-8", "iso-8859-1", "x\xe2\x82\xac\xc3\xa9", withOption, true));
  EXPECT_EQ(plain, withOption);
  EXPECT_TRUE(CharsetConverter("utf-8", "utf-16", false, true).option());
}

// The same conversions through a library that fills only a few bytes per call: every chunk meets a
// full output buffer many times, and the text must still come out whole.
class SmallOutputLibrary : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(VIconv().init("vxiconv_test_small_output.so", "")); }
  void TearDown() override { EXPECT_TRUE(VIconv().init("", "")); }
};

TEST_F(SmallOutputLibrary, FullOutputBuffersAreDrainedAndResumed) {
  std::string text;
  while (text.size() < 3 * kChunk) text += "stra\xdf" "e \x80 \x93x\x94 ";
  std::string expected;
  for (char c : text) {
    switch (c) {
      case '\xdf': expected += "\xc3\x9f"; break;
      case '\x80': expected += "\xe2\x82\xac"; break;
      case '\x93': expected += "\xe2\x80\x9c"; break;
      case '\x94': expected += "\xe2\x80\x9d"; break;
      default: expected += c;
    }
  }
  std::string out;
  ASSERT_TRUE(charsetRecode("cp1252", "utf-8", text, out));
  EXPECT_EQ(out, expected);
  ASSERT_TRUE(charsetRecode("utf-8", "utf-7-imap", "\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e \xe5\x8f\xb0", out));
  EXPECT_EQ(out, "&ZeVnLIqe- &U,A-");
}

}  // namespace
