#include "terminal_text.h"

#include <cstdio>

namespace vorlane {
namespace cli {

namespace {

// Length of the valid UTF-8 sequence starting at `s[i]`, or 0 (overlong forms, surrogates and code
// points above U+10FFFF are not valid).
size_t utf8Length(const std::string& s, size_t i) {
  const unsigned char b = static_cast<unsigned char>(s[i]);
  size_t length = 0;
  unsigned long cp = 0;
  if (b >= 0xC2 && b <= 0xDF) {
    length = 2;
    cp = b & 0x1F;
  } else if (b >= 0xE0 && b <= 0xEF) {
    length = 3;
    cp = b & 0x0F;
  } else if (b >= 0xF0 && b <= 0xF4) {
    length = 4;
    cp = b & 0x07;
  } else {
    return 0;
  }
  if (i + length > s.size()) return 0;
  for (size_t k = 1; k < length; ++k) {
    const unsigned char c = static_cast<unsigned char>(s[i + k]);
    if ((c & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (c & 0x3F);
  }
  const unsigned long smallest[] = {0, 0, 0x80, 0x800, 0x10000};
  if (cp < smallest[length] || (cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) return 0;
  if (cp >= 0x80 && cp <= 0x9F) return 0;  // C1 controls
  return length;
}

}  // namespace

std::string terminalSafe(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    const unsigned char b = static_cast<unsigned char>(text[i]);
    if (b >= 0x20 && b < 0x7F) {
      out += text[i++];
      continue;
    }
    const size_t length = b >= 0x80 ? utf8Length(text, i) : 0;
    if (length > 0) {
      out.append(text, i, length);
      i += length;
      continue;
    }
    char escaped[5];
    std::snprintf(escaped, sizeof escaped, "\\x%02x", b);
    out += escaped;
    ++i;
  }
  return out;
}

}  // namespace cli
}  // namespace vorlane
