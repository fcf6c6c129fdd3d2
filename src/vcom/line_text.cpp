#include "vcom/line_text.h"

#include <cstdio>

namespace vorlane {
namespace vcom {

std::string escapeControls(const std::string& text) {
  const bool lineEnd = !text.empty() && text.back() == '\n';
  const size_t body = text.size() - (lineEnd ? 1 : 0);
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < body; ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c == '\\') {
      out += "\\\\";
    } else if (c < 0x20 || c == 0x7F) {
      char hex[5];
      snprintf(hex, sizeof hex, "\\x%02x", c);
      out += hex;
    } else {
      out += static_cast<char>(c);
    }
  }
  if (lineEnd) out += '\n';
  return out;
}

std::string formatLineV(const char* fmt, va_list args) {
  va_list again;
  va_copy(again, args);
  char small[512];
  const int len = vsnprintf(small, sizeof small, fmt, args);
  std::string text;
  if (len > 0 && static_cast<size_t>(len) < sizeof small) {
    text.assign(small, static_cast<size_t>(len));
  } else if (len > 0) {
    text.resize(static_cast<size_t>(len) + 1);
    vsnprintf(&text[0], text.size(), fmt, again);
    text.resize(static_cast<size_t>(len));
  }
  va_end(again);
  return escapeControls(text);
}

}  // namespace vcom
}  // namespace vorlane
