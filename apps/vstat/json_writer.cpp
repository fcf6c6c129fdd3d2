#include "json_writer.h"

#include <cstdio>
#include <cstring>

namespace vorlane {
namespace cli {

namespace {

// Length of the valid UTF-8 sequence at `p` (at most `left` bytes), 0 when it is not valid: no overlong
// forms, no surrogates, nothing above U+10FFFF.
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

}  // namespace

std::string JsonWriter::quote(const char* text) {
  std::string out = "\"";
  const auto* p = reinterpret_cast<const unsigned char*>(text);
  size_t left = std::strlen(text);
  while (left > 0) {
    const unsigned char c = *p;
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c < 0x20 || c == 0x7F) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
      out += escaped;
    } else {
      const size_t len = utf8SequenceLength(p, left);
      if (len == 0) {
        out += "\\ufffd";
      } else {
        out.append(reinterpret_cast<const char*>(p), len);
        p += len - 1;
        left -= len - 1;
      }
    }
    ++p;
    --left;
  }
  out += '"';
  return out;
}

void JsonWriter::beforeValue() {
  if (afterKey_) {
    afterKey_ = false;
    return;
  }
  if (!hasItems_.empty()) {
    if (hasItems_.back()) out_ << ',';
    hasItems_.back() = true;
  }
}

JsonWriter& JsonWriter::beginObject() {
  beforeValue();
  out_ << '{';
  hasItems_.push_back(false);
  return *this;
}

JsonWriter& JsonWriter::endObject() {
  hasItems_.pop_back();
  out_ << '}';
  return *this;
}

JsonWriter& JsonWriter::beginArray() {
  beforeValue();
  out_ << '[';
  hasItems_.push_back(false);
  return *this;
}

JsonWriter& JsonWriter::endArray() {
  hasItems_.pop_back();
  out_ << ']';
  return *this;
}

JsonWriter& JsonWriter::key(const char* name) {
  beforeValue();
  out_ << quote(name) << ':';
  afterKey_ = true;
  return *this;
}

JsonWriter& JsonWriter::value(const char* text) {
  if (text == nullptr) return null();
  beforeValue();
  out_ << quote(text);
  return *this;
}

JsonWriter& JsonWriter::value(long long number) {
  beforeValue();
  out_ << number;
  return *this;
}

JsonWriter& JsonWriter::value(unsigned long long number) {
  beforeValue();
  out_ << number;
  return *this;
}

JsonWriter& JsonWriter::value(bool flag) {
  beforeValue();
  out_ << (flag ? "true" : "false");
  return *this;
}

JsonWriter& JsonWriter::null() {
  beforeValue();
  out_ << "null";
  return *this;
}

}  // namespace cli
}  // namespace vorlane
