#include <errno.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "utils/charset_converter.h"
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
  EXPECT_THROW(CharsetConverter("iso-8859-1", "utf-8", true), std::runtime_error);
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
