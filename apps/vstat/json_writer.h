// A small streaming JSON writer for the front end's machine-readable output: objects, arrays, strings,
// integers, booleans and null, with commas placed automatically. Strings are escaped as JSON requires;
// bytes that are not valid UTF-8 (file names and headers may hold any bytes) become U+FFFD so that the
// output always parses. Nesting is the caller's business: every begin needs its end.
// Not thread-safe; one writer per output stream.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace vorlane {
namespace cli {

class JsonWriter {
 public:
  explicit JsonWriter(std::ostream& out) : out_(out) {}

  JsonWriter& beginObject();
  JsonWriter& endObject();
  JsonWriter& beginArray();
  JsonWriter& endArray();
  // Names the next value inside an object.
  JsonWriter& key(const char* name);
  JsonWriter& value(const char* text);  // null text writes null
  JsonWriter& value(const std::string& text) { return value(text.c_str()); }
  JsonWriter& value(long long number);
  JsonWriter& value(unsigned long long number);
  JsonWriter& value(bool flag);
  JsonWriter& null();

  // The JSON form of `text`, quotes included.
  static std::string quote(const char* text);

 private:
  void beforeValue();

  std::ostream& out_;
  std::vector<bool> hasItems_;  // one entry per open object or array
  bool afterKey_ = false;
};

}  // namespace cli
}  // namespace vorlane
