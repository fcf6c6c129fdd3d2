#include <errno.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "utils/charset_converter.h"
#include "utils/dll_handle.h"
#include "utils/shared_library_loader.h"
#include "utils/viconv.h"

using vorlane::utils::CharsetConverter;
using vorlane::utils::DllHandle;
using vorlane::utils::SharedLibraryLoader;
using vorlane::utils::VIconv;
using vorlane::utils::charsetRecode;
using vorlane::utils::haveCharset;
using vorlane::utils::remapCharset;

namespace {

const char kMissingDirectory[] = VSTAT_BIN_DIR "/no-such-directory";

// Found next to the test binary with no environment variable set.
TEST(ConversionLibrary, IsFoundNextToTheExecutable) {
  VIconv iconv;
  EXPECT_TRUE(iconv.isLibraryLoaded());
  EXPECT_EQ(SharedLibraryLoader::resolvePath("vxiconv_1.11.1.so"), VSTAT_BIN_DIR "/vxiconv_1.11.1.so");
  EXPECT_EQ(SharedLibraryLoader::resolvePath("/opt/lib/x.so"), "/opt/lib/x.so");
  EXPECT_TRUE(VIconv().init("vxiconv_1.11.1.so", VSTAT_BIN_DIR));
  EXPECT_TRUE(VIconv().init("", VSTAT_BIN_DIR "/"));
}

// The loader keeps one library: the same name gives the same handle, another name replaces it, and a
// handle still held keeps its library usable after the replacement.
TEST(ConversionLibrary, LoaderCachesOneLibraryAtATime) {
  SharedLibraryLoader& loader = SharedLibraryLoader::instance();
  DllHandle::Ptr first = loader.getDllHandle("vxiconv_1.11.1.so", "unused");
  EXPECT_EQ(loader.getDllHandle("vxiconv_1.11.1.so", "unused"), first);
  EXPECT_EQ(loader.getDllHandle("", "unused"), first);
  DllHandle::Ptr other = loader.getDllHandle("vxiconv_test_small_output.so", "unused");
  EXPECT_NE(other, first);
  EXPECT_TRUE(other->isLoaded());
  EXPECT_NE(first->symbol("vxiconv_open"), nullptr);
  EXPECT_NE(loader.getDllHandle("vxiconv_1.11.1.so", "unused"), first);  // reopened, not cached
  EXPECT_EQ(loader.getDllHandle("", "unused")->path(), VSTAT_BIN_DIR "/vxiconv_1.11.1.so");
}

TEST(ConversionLibrary, MissingFileGivesAnUnloadedHandleThatSaysWhy) {
  DllHandle::Ptr handle = DllHandle::create(std::string(kMissingDirectory) + "/vxiconv_1.11.1.so");
  ASSERT_TRUE(handle);
  EXPECT_FALSE(handle->isLoaded());
  EXPECT_EQ(handle->symbol("vxiconv_open"), nullptr);
  EXPECT_NE(handle->error().find(kMissingDirectory), std::string::npos) << handle->error();
}

// Pointed at a directory without the library, the process loses every conversion but nothing else.
class LibraryAbsent : public ::testing::Test {
 protected:
  void SetUp() override { EXPECT_FALSE(VIconv().init("", kMissingDirectory)); }
  void TearDown() override { EXPECT_TRUE(VIconv().init("", "")); }
};

TEST_F(LibraryAbsent, EveryConversionFailsSoftly) {
  EXPECT_FALSE(haveCharset("iso-8859-2"));
  EXPECT_FALSE(haveCharset("utf-8"));
  EXPECT_TRUE(haveCharset("utf-7-imap"));

  std::string out = "stale";
  EXPECT_FALSE(charsetRecode("iso-8859-1", "utf-8", "caf\xe9", out));
  EXPECT_EQ(out, "");
  EXPECT_FALSE(charsetRecode("utf-7-imap", "utf-8", "&U,BTFw-", out));

  CharsetConverter converter("iso-8859-1", "utf-8");
  EXPECT_FALSE(converter.isOpen());
  const char* in = "abc";
  unsigned inLength = 3;
  char buffer[8];
  char* outPtr = buffer;
  unsigned outLength = sizeof(buffer);
  EXPECT_FALSE(converter.convert(&in, inLength, &outPtr, outLength));
  unsigned flushed = sizeof(buffer);
  vorlane::utils::Utf7ImapConverter::utf7imap_table table;
  EXPECT_FALSE(converter.flushIconv(buffer, flushed, table));

  unsigned consumed = 0;
  outLength = sizeof(buffer);
  EXPECT_EQ(charsetRecode("iso-8859-1", "utf-8", "abc", 3, buffer, &outLength, &consumed), EINVAL);
  EXPECT_EQ(outLength, 0u);

  EXPECT_THROW(CharsetConverter("iso-8859-1", "utf-8", true), std::runtime_error);
}

TEST_F(LibraryAbsent, WrappersReportFailureInsteadOfCalling) {
  VIconv iconv;
  EXPECT_FALSE(iconv.isLibraryLoaded());
  EXPECT_FALSE(iconv.open("utf-8", "iso-8859-1"));
  EXPECT_EQ(iconv.getFuncAddress("vxiconv"), nullptr);
  EXPECT_EQ(iconv.get_error(), -1);
  const char* in = "a";
  size_t inLeft = 1;
  char buffer[4];
  char* out = buffer;
  size_t outLeft = sizeof(buffer);
  EXPECT_EQ(iconv.vxiconv(&in, &inLeft, &out, &outLeft), static_cast<size_t>(-1));
  EXPECT_EQ(inLeft, 1u);
  EXPECT_TRUE(iconv.close());
}

// Without the library no name is known, so Windows code pages fall back to their cp spelling.
TEST_F(LibraryAbsent, RemappingFallsBackToCodePageNames) {
  std::string out;
  EXPECT_TRUE(remapCharset(out, "Windows-1250"));
  EXPECT_EQ(out, "cp1250");
  out = "untouched";
  EXPECT_FALSE(remapCharset(out, "iso-8859-2"));
  EXPECT_EQ(out, "untouched");
}

// A converter keeps the library it was built with, even when the process switches to another.
TEST(ConversionLibrary, OpenConverterOutlivesASwitchOfLibrary) {
  CharsetConverter converter("iso-8859-1", "utf-8");
  ASSERT_TRUE(converter.isOpen());
  ASSERT_FALSE(VIconv().init("", kMissingDirectory));
  std::string out;
  EXPECT_TRUE(converter.convert("caf\xe9", out));
  EXPECT_EQ(out, "caf\xc3\xa9");
  EXPECT_TRUE(VIconv().init("", ""));
}

}  // namespace
