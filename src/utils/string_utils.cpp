#include "utils/string_utils.h"

#include <cstring>

namespace vorlane {
namespace utils {

char* strncpys(char* dst, const char* src, size_t size) {
  if (size == 0) return dst;
  size_t len = 0;
  if (src) {
    const void* end = memchr(src, '\0', size - 1);
    len = end ? static_cast<size_t>(static_cast<const char*>(end) - src) : size - 1;
    memcpy(dst, src, len);
  }
  memset(dst + len, 0, size - len);
  return dst;
}

bool isValidUtf8(const std::string& text) {
  const size_t n = text.size();
  size_t i = 0;
  while (i < n) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c < 0x80) {
      ++i;
      continue;
    }
    size_t length;
    unsigned char low = 0x80, high = 0xBF;  // range of the second byte
    if (c >= 0xC2 && c <= 0xDF) {
      length = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      length = 3;
      if (c == 0xE0) low = 0xA0;   // overlong
      if (c == 0xED) high = 0x9F;  // surrogates
    } else if (c >= 0xF0 && c <= 0xF4) {
      length = 4;
      if (c == 0xF0) low = 0x90;   // overlong
      if (c == 0xF4) high = 0x8F;  // above U+10FFFF
    } else {
      return false;
    }
    if (n - i < length) return false;
    const unsigned char second = static_cast<unsigned char>(text[i + 1]);
    if (second < low || second > high) return false;
    for (size_t k = 2; k < length; ++k) {
      if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return false;
    }
    i += length;
  }
  return true;
}

}  // namespace utils
}  // namespace vorlane
