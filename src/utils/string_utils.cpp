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

size_t utf8SequenceLength(const unsigned char* p, size_t left) {
  const unsigned char c = p[0];
  size_t len;
  unsigned min;
  unsigned cp;
  if (c < 0x80) return 1;
  if ((c & 0xE0) == 0xC0) {
    len = 2, min = 0x80, cp = c & 0x1F;
  } else if ((c & 0xF0) == 0xE0) {
    len = 3, min = 0x800, cp = c & 0x0F;
  } else if ((c & 0xF8) == 0xF0) {
    len = 4, min = 0x10000, cp = c & 0x07;
  } else {
    return 0;
  }
  if (left < len) return 0;
  for (size_t i = 1; i < len; ++i) {
    if ((p[i] & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (p[i] & 0x3F);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return len;
}

bool isValidUtf8(const std::string& text) {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  size_t left = text.size();
  while (left > 0) {
    const size_t len = utf8SequenceLength(p, left);
    if (len == 0) return false;
    p += len;
    left -= len;
  }
  return true;
}

}  // namespace utils
}  // namespace vorlane
