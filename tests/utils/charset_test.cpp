// Charset conversion: the converter class, the free conversion functions (charsetRecode in its forms,
// remapCharset) and the run-time loading of the conversion library they go through, including a process
// that has to do without it.
#include "utils/charset_converter.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "utils/shared_library_loader.h"
#include "utils/viconv.h"

using vorlane::utils::CharsetConverter;
using vorlane::utils::charsetRecode;
using vorlane::utils::DllHandle;
using vorlane::utils::haveCharset;
using vorlane::utils::remapCharset;
using vorlane::utils::SharedLibraryLoader;
using vorlane::utils::VIconv;

namespace {

const size_t kChunk = CharsetConverter::kInputChunkSize;

// The converter and the string, pointer-and-length and iterator forms of charsetRecode see the same
// bytes, embedded NULs included.
TEST(CharsetConverter, ConvertsWholeTextsAndDropsWhatCannotBeConverted) {
  struct Case { const char* from; const char* to; std::string input; std::string output; unsigned dropped; };
  const Case cases[] = {
      {"iso-8859-2", "utf-8", "\xb1\xe6", "\xc4\x85\xc4\x87", 0},
      {"utf-8", "iso-8859-1", "", "", 0},
      {"iso-8859-1", "utf-8", std::string("a\0\xe9z", 4), std::string("a\0\xc3\xa9z", 5), 0},
      {"utf-8", "iso-8859-1", "1\xe2\x82\xac = 1 EUR", "1 = 1 EUR", 1},  // no euro sign in Latin-1
      {"utf-8", "utf-8", "a\xff" "b\xc0" "c", "abc", 1},                // invalid bytes
      {"utf-8", "utf-16be", "ab\xe2\x82", std::string("\0a\0b", 4), 1},  // cut inside the last character
      {"utf-8", "iso-2022-jp", "\xe6\x97\xa5\xe6\x9c\xac", "\x1b$BF|K\\\x1b(B", 0},  // ends back in ASCII
  };
  for (const Case& c : cases) {
    CharsetConverter converter(c.from, c.to);
    std::string out = "stale";
    // Twice: each text starts from the initial state and its own count.
    for (int round = 0; round < 2; ++round) {
      converter.reset();
      EXPECT_TRUE(converter.convert(c.input, out)) << c.from << " -> " << c.to;
      EXPECT_EQ(out, c.output) << c.from << " -> " << c.to;
      EXPECT_EQ(converter.droppedCount(), c.dropped) << c.from << " -> " << c.to;
    }
    std::string outs[2];
    EXPECT_TRUE(charsetRecode(c.from, c.to, c.input.data(), c.input.size(), outs[0]));
    EXPECT_TRUE(charsetRecode(c.from, c.to, c.input.begin(), c.input.end(), outs[1]));
    for (const std::string& form : outs) EXPECT_EQ(form, c.output) << c.from << " -> " << c.to;
  }
}

// A multibyte character cut by the chunk boundary is carried into the next chunk, wherever the cut
// falls inside it: nothing is lost and nothing is reported as dropped.
TEST(CharsetConverter, CharactersCutByChunkBoundariesSurvive) {
  for (const std::string character : {"\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80"}) {
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
    const char c = i % 300 == 7 ? '\xff' : static_cast<char>('a' + i % 26);
    text += c;
    if (c != '\xff') expected += c;
  }
  CharsetConverter converter("utf-8", "iso-8859-1");
  std::string out;
  EXPECT_TRUE(converter.convert(text, out));
  EXPECT_EQ(out, expected);
  EXPECT_GE(converter.droppedCount(), 5u);
}

TEST(CharsetConverter, UnknownCharsetThrowsOnlyWhenAsked) {
  EXPECT_FALSE(CharsetConverter("no-such-charset", "utf-8").isOpen());
  try {
    CharsetConverter strict("no-such-charset", "utf-8", true);
    FAIL() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(),
                 "CharsetConverter: failed to initialize string conversion from \"no-such-charset\" "
                 "encoding to \"utf-8\" encoding");
  }
}

// The buffer interface hands out the text in pieces as small as the caller's buffer, zeroes the rest
// of it, and takes the input only once all of its output was delivered.
TEST(CharsetConverter, BufferInterfaceDeliversInPieces) {
  const std::string input = "na\xefve caf\xe9 \xe0 la cr\xe8me";
  for (unsigned room : {1u, 7u, 63u}) {
    CharsetConverter converter("iso-8859-1", "utf-8");
    const char* in = input.data();
    unsigned inLength = static_cast<unsigned>(input.size());
    std::string collected;
    for (int calls = 0; inLength > 0 && calls < 100; ++calls) {
      char buffer[64];
      buffer[room] = 'z';
      char* out = buffer;
      unsigned outLength = room;
      ASSERT_TRUE(converter.convert(&in, inLength, &out, outLength));
      const size_t copied = static_cast<size_t>(out - buffer);
      EXPECT_EQ(copied + outLength, room);
      EXPECT_EQ(std::string(buffer + copied, room - copied + 1), std::string(room - copied, '\0') + "z");
      collected.append(buffer, copied);
      EXPECT_EQ(in, inLength > 0 ? input.data() : input.data() + input.size());
    }
    EXPECT_EQ(collected, "na\xc3\xafve caf\xc3\xa9 \xc3\xa0 la cr\xc3\xa8me") << "room " << room;
  }
}

// A library that fills only a few bytes per call: every chunk meets a full output buffer many times,
// and the text must still come out whole.
TEST(CharsetConverter, FullOutputBuffersAreDrainedAndResumed) {
  ASSERT_TRUE(VIconv().init("vxiconv_test_small_output.so", ""));
  std::string text;
  std::string expected;
  while (text.size() < 3 * kChunk) {
    text += "stra\xdf" "e \x80 ";
    expected += "stra\xc3\x9f" "e \xe2\x82\xac ";
  }
  std::string out;
  EXPECT_TRUE(charsetRecode("cp1252", "utf-8", text, out));
  EXPECT_EQ(out, expected);
  EXPECT_TRUE(charsetRecode("utf-8", "utf-7-imap", "\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e \xe5\x8f\xb0", out));
  EXPECT_EQ(out, "&ZeVnLIqe- &U,A-");
  EXPECT_TRUE(VIconv().init("", ""));
}


// The caller-buffer form drops nothing and reports the C library's error with the progress made.
TEST(CharsetRecode, CallerBuffersReportErrorsAndProgress) {
  struct Case { const char* from; std::string input; unsigned room; int error; std::string output; unsigned consumed; };
  const Case cases[] = {
      {"iso-8859-1", "caf\xe9", 16, 0, "caf\xc3\xa9", 4},
      {"iso-8859-1", "caf\xe9", 4, E2BIG, "caf", 3},
      {"utf-8", "ok\xc3", 16, EINVAL, "ok", 2},
      {"x-unknown-8", "abc", 16, EINVAL, "", 0},
  };
  for (const Case& c : cases) {
    char buffer[16];
    unsigned outLen = c.room;
    unsigned consumed = 99;
    const unsigned inLen = static_cast<unsigned>(c.input.size());
    EXPECT_EQ(charsetRecode(c.from, "utf-8", c.input.data(), inLen, buffer, &outLen, &consumed), c.error)
        << c.input;
    EXPECT_EQ(std::string(buffer, outLen), c.output) << c.input;
    EXPECT_EQ(consumed, c.consumed) << c.input;
  }
}

TEST(RemapCharset, ReplacesNamesMailMisuses) {
  struct Case { const char* in; bool replaced; const char* out; };
  const Case cases[] = {
      {"ks_c_5601-1987", true, "cp949"},
      {"KSC5601", true, "cp949"},
      {"ISO-8859-1", true, "cp1252"},
      {"us-ascii", true, "cp1252"},
      {"None", true, "cp1252"},
      {"iso-8859-8-i", true, "iso-8859-8"},
      {"GB2312", true, "gb18030"},
      // Known names pass through, reported as no replacement; unknown Windows pages become cpNNNN.
      {"Windows-1250", false, "Windows-1250"},
      {"windows-9999", true, "cp9999"},
      // Unknown names stay untouched; an empty one is not the locale's charset.
      {"x-unknown-8", false, "untouched"},
      {"windows-", false, "untouched"},
      {"", false, "untouched"},
  };
  for (const Case& c : cases) {
    std::string out = "untouched";
    EXPECT_EQ(remapCharset(out, c.in), c.replaced) << c.in;
    EXPECT_EQ(out, c.out) << c.in;
  }
}

const char kMissingDirectory[] = VSTAT_BIN_DIR "/no-such-directory";

// The library is found next to the test binary with no environment variable set; the loader keeps
// one library at a time, and a handle still held keeps its library usable after a replacement.
TEST(ConversionLibrary, LoaderFindsAndCachesOneLibrary) {
  EXPECT_TRUE(VIconv().isLibraryLoaded());
  SharedLibraryLoader& loader = SharedLibraryLoader::instance();
  DllHandle::Ptr first = loader.getDllHandle("", "unused");
  EXPECT_EQ(first->path(), VSTAT_BIN_DIR "/vxiconv_1.11.1.so");
  EXPECT_EQ(loader.getDllHandle("vxiconv_1.11.1.so", "unused"), first);
  DllHandle::Ptr other = loader.getDllHandle("vxiconv_test_small_output.so", "unused");
  EXPECT_TRUE(other->isLoaded());
  EXPECT_NE(first->symbol("vxiconv_open"), nullptr);
  EXPECT_NE(loader.getDllHandle("vxiconv_1.11.1.so", "unused"), first);
  EXPECT_TRUE(VIconv().init("", VSTAT_BIN_DIR));
}

// Pointed at a directory without the library, the process loses every conversion but nothing else.
TEST(ConversionLibrary, AbsentLibraryFailsEveryConversionSoftly) {
  CharsetConverter builtBefore("iso-8859-1", "utf-8");
  ASSERT_FALSE(VIconv().init("", kMissingDirectory));
  EXPECT_NE(SharedLibraryLoader::instance().getDllHandle("", "unused")->error().find(kMissingDirectory),
            std::string::npos);
  EXPECT_FALSE(haveCharset("iso-8859-2"));
  EXPECT_TRUE(haveCharset("utf-7-imap"));
  std::string out = "stale";
  EXPECT_FALSE(charsetRecode("iso-8859-1", "utf-8", "caf\xe9", out));
  EXPECT_EQ(out, "");
  EXPECT_FALSE(charsetRecode("utf-7-imap", "utf-8", "&U,BTFw-", out));
  char buffer[8];
  unsigned outLength = sizeof(buffer);
  unsigned consumed = 0;
  EXPECT_EQ(charsetRecode("iso-8859-1", "utf-8", "abc", 3, buffer, &outLength, &consumed), EINVAL);
  // With no name known, Windows code pages fall back to their cp spelling.
  EXPECT_TRUE(remapCharset(out, "Windows-1250"));
  EXPECT_EQ(out, "cp1250");

  VIconv iconv;
  EXPECT_FALSE(iconv.open("utf-8", "iso-8859-1"));
  EXPECT_EQ(iconv.get_error(), -1);
  const char* in = "a";
  size_t inLeft = 1;
  char* outPtr = buffer;
  size_t outLeft = sizeof(buffer);
  EXPECT_EQ(iconv.vxiconv(&in, &inLeft, &outPtr, &outLeft), static_cast<size_t>(-1));

  // A converter built before the switch keeps the library it was opened with.
  EXPECT_TRUE(builtBefore.convert("caf\xe9", out));
  EXPECT_EQ(out, "caf\xc3\xa9");
  EXPECT_TRUE(VIconv().init("", ""));
  EXPECT_TRUE(haveCharset("iso-8859-2"));
}

}  // namespace
