#include "utils/base64.h"

#include <gtest/gtest.h>

#include <string>

using vorlane::utils::base64Decode;
using vorlane::utils::base64Encode;

// The test vectors of RFC 4648 section 10, both ways.
TEST(Base64, MatchesTheRfcVectors) {
  const std::pair<std::string, std::string> vectors[] = {{"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},
                                                         {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="},
                                                         {"foobar", "Zm9vYmFy"}};
  for (const auto& v : vectors) {
    EXPECT_EQ(base64Encode(v.first), v.second);
    std::string bytes;
    EXPECT_TRUE(base64Decode(v.second, bytes)) << v.second;
    EXPECT_EQ(bytes, v.first);
  }
}

TEST(Base64, EveryByteValueRoundTrips) {
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  for (size_t length : {size_t{1}, size_t{2}, size_t{3}, size_t{256}}) {
    const std::string bytes = all.substr(all.size() - length);
    std::string back;
    ASSERT_TRUE(base64Decode(base64Encode(bytes), back));
    EXPECT_EQ(back, bytes) << length;
  }
}

TEST(Base64, RefusesMalformedText) {
  for (const char* text : {"Zg=", "Zg", "Z===", "Zm9v!A==", "Zg==Zg==", "Z=g=", "Zm 9v"}) {
    std::string bytes;
    EXPECT_FALSE(base64Decode(text, bytes)) << text;
  }
}
