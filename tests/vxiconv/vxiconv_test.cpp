#include "vxiconv/vxiconv.h"

#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace {

const vxiconv_t kFailed = reinterpret_cast<vxiconv_t>(-1);
const size_t kError = static_cast<size_t>(-1);

// The library as the programs see it: opened from the bin directory, entry points found by name.
class Library : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    handle_ = dlopen(VSTAT_BIN_DIR "/vxiconv_1.11.1.so", RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle_, nullptr) << dlerror();
    open_ = reinterpret_cast<vxiconv_open_fn>(dlsym(handle_, "vxiconv_open"));
    convert_ = reinterpret_cast<vxiconv_fn>(dlsym(handle_, "vxiconv"));
    close_ = reinterpret_cast<vxiconv_close_fn>(dlsym(handle_, "vxiconv_close"));
    errno_ = reinterpret_cast<vxiconv_get_errno_fn>(dlsym(handle_, "vxiconv_get_errno"));
  }
  static void TearDownTestSuite() {
    if (handle_ != nullptr) dlclose(handle_);
    handle_ = nullptr;
  }
  void SetUp() override {
    ASSERT_NE(open_, nullptr);
    ASSERT_NE(convert_, nullptr);
    ASSERT_NE(close_, nullptr);
    ASSERT_NE(errno_, nullptr);
  }

  // One conversion call over the whole input; returns the output and leaves the call's result.
  struct Result {
    size_t returned;
    int error;
    size_t inLeft;
    std::string output;
  };
  static Result convertOnce(const char* to, const char* from, const std::string& input, size_t room = 256) {
    vxiconv_t cd = open_(to, from);
    EXPECT_NE(cd, kFailed) << to << " <- " << from;
    std::string buffer(room, '\0');
    char* in = const_cast<char*>(input.data());
    size_t inLeft = input.size();
    char* out = &buffer[0];
    size_t outLeft = room;
    Result r;
    r.returned = convert_(cd, &in, &inLeft, &out, &outLeft);
    r.error = r.returned == kError ? errno_() : 0;
    r.inLeft = inLeft;
    r.output = buffer.substr(0, room - outLeft);
    EXPECT_EQ(close_(cd), 0);
    return r;
  }

  static void* handle_;
  static vxiconv_open_fn open_;
  static vxiconv_fn convert_;
  static vxiconv_close_fn close_;
  static vxiconv_get_errno_fn errno_;
};

void* Library::handle_;
vxiconv_open_fn Library::open_;
vxiconv_fn Library::convert_;
vxiconv_close_fn Library::close_;
vxiconv_get_errno_fn Library::errno_;

TEST_F(Library, ConvertsLikeIconvWithIgnoreAndUcs2Names) {
  struct Case {
    const char* to;
    const char* from;
    std::string input;
    std::string output;
    int error;  // 0 when the call succeeds
    size_t inLeft;
  };
  const Case cases[] = {
      {"utf-8", "iso-8859-1", "caf\xe9", "caf\xc3\xa9", 0, 0},
      {"UTF-8", "WINDOWS-1252", "\x80", "\xe2\x82\xac", 0, 0},
      // Without //IGNORE the call stops at the character the target lacks.
      {"iso-8859-1", "utf-8", "a\xe2\x82\xac" "b", "a", EILSEQ, 4},
      // With it the character is dropped, the rest converted, and the drop still reported.
      {"iso-8859-1//IGNORE", "utf-8", "a\xe2\x82\xac" "b", "ab", EILSEQ, 0},
      {"utf-8//IGNORE", "utf-8", "a\xff" "b\xfe" "c", "abc", EILSEQ, 0},
      {"utf-8", "utf-8", "ab\xc3", "ab", EINVAL, 1},
      // "ucs-2be" keeps characters beyond the BMP as surrogate pairs, in both directions.
      {"ucs-2be", "utf-8", "A\xf0\x9f\x98\x80", std::string("\0A\xd8\x3d\xde\x00", 6), 0, 0},
      {"ucs-2be//IGNORE", "utf-8", "\xc3\xa9", std::string("\0\xe9", 2), 0, 0},
      {"utf-8", "UCS-2BE", std::string("\xd8\x3d\xde\x00\0A", 6), "\xf0\x9f\x98\x80" "A", 0, 0},
  };
  for (const Case& c : cases) {
    Result r = convertOnce(c.to, c.from, c.input);
    EXPECT_EQ(r.output, c.output) << c.to << " <- " << c.from;
    EXPECT_EQ(r.error, c.error) << c.to << " <- " << c.from;
    EXPECT_EQ(r.returned == kError, c.error != 0) << c.to << " <- " << c.from;
    EXPECT_EQ(r.inLeft, c.inLeft) << c.to << " <- " << c.from;
  }
}

TEST_F(Library, FullOutputStopsWithE2bigAndResumes) {
  vxiconv_t cd = open_("utf-8", "iso-8859-1");
  ASSERT_NE(cd, kFailed);
  char input[] = "ab\xe9";
  char* in = input;
  size_t inLeft = 3;
  char buffer[8];
  char* out = buffer;
  size_t outLeft = 3;  // room for "ab" but not for the two bytes of e-acute
  EXPECT_EQ(convert_(cd, &in, &inLeft, &out, &outLeft), kError);
  EXPECT_EQ(errno_(), E2BIG);
  EXPECT_EQ(inLeft, 1u);
  EXPECT_EQ(std::string(buffer, out), "ab");
  outLeft = 5;
  EXPECT_EQ(convert_(cd, &in, &inLeft, &out, &outLeft), 0u);
  EXPECT_EQ(std::string(buffer, out), "ab\xc3\xa9");
  EXPECT_EQ(close_(cd), 0);
}

// A stateful target ends its text with the shift back to ASCII only when flushed with a null input.
TEST_F(Library, NullInputWritesTheClosingShiftSequence) {
  vxiconv_t cd = open_("iso-2022-jp", "utf-8");
  ASSERT_NE(cd, kFailed);
  char input[] = "\xe6\x97\xa5";  // one kanji
  char* in = input;
  size_t inLeft = 3;
  char buffer[32];
  char* out = buffer;
  size_t outLeft = sizeof(buffer);
  ASSERT_NE(convert_(cd, &in, &inLeft, &out, &outLeft), kError);
  EXPECT_EQ(std::string(buffer, out), "\x1b$BF|");
  char* flushStart = out;
  ASSERT_NE(convert_(cd, nullptr, nullptr, &out, &outLeft), kError);
  EXPECT_EQ(std::string(flushStart, out), "\x1b(B");
  EXPECT_EQ(close_(cd), 0);
}

// Many scattered bad bytes in one long call: everything valid comes out, nothing is left behind.
TEST_F(Library, IgnoreConsumesLongInputsWithManyDrops) {
  std::string input;
  for (int i = 0; i < 30000; ++i) input += (i % 7 == 0) ? '\xff' : 'x';
  const size_t valid = input.size() - (input.size() + 6) / 7;
  Result r = convertOnce("utf-8//IGNORE", "utf-8", input, input.size());
  EXPECT_EQ(r.inLeft, 0u);
  EXPECT_EQ(r.output, std::string(valid, 'x'));
  EXPECT_EQ(r.error, EILSEQ);
}

TEST_F(Library, RefusesUnknownNamesAndHandlesThatAreNotOpen) {
  const std::string tooLong(200, 'x');
  struct Case {
    const char* to;
    const char* from;
  };
  for (const Case& c : {Case{"utf-8", "no-such-charset"}, Case{"no-such-charset//IGNORE", "utf-8"},
                        Case{tooLong.c_str(), "utf-8"}, Case{"utf-8", nullptr},
                        Case{"", "utf-8"}, Case{"utf-8", "//TRANSLIT"}}) {
    EXPECT_EQ(open_(c.to, c.from), kFailed) << (c.to ? c.to : "null");
    EXPECT_EQ(errno_(), EINVAL);
  }
  char* in = nullptr;
  size_t left = 0;
  EXPECT_EQ(convert_(kFailed, &in, &left, &in, &left), kError);
  EXPECT_EQ(errno_(), EBADF);
  EXPECT_EQ(close_(kFailed), -1);
  EXPECT_EQ(close_(nullptr), -1);
  EXPECT_EQ(errno_(), EBADF);
}

TEST_F(Library, LastErrorIsKeptPerThread) {
  EXPECT_EQ(open_("utf-8", "no-such-charset"), kFailed);
  int otherThreadError = -1;
  std::thread other([&otherThreadError] {
    close_(kFailed);
    otherThreadError = errno_();
  });
  other.join();
  EXPECT_EQ(otherThreadError, EBADF);
  EXPECT_EQ(errno_(), EINVAL);
}

}  // namespace
