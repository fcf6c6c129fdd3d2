#include "json_writer.h"

#include <cstdio>
#include <cstring>

#include "utils/string_utils.h"

namespace vorlane {
namespace cli {

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
      const size_t len = utils::utf8SequenceLength(p, left);
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
