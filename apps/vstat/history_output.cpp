#include "history_output.h"

#include <cstdio>

#include "stat/folder_details_format.h"
#include "utils/base64.h"
#include "utils/string_utils.h"

namespace vorlane {
namespace cli {

std::string formatBinarySize(unsigned long long bytes) {
  static const char* const kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  if (bytes < 1024) return std::to_string(bytes) + " B";
  double value = static_cast<double>(bytes);
  size_t unit = 0;
  while (value >= 1024.0 && unit + 1 < sizeof kUnits / sizeof kUnits[0]) {
    value /= 1024.0;
    ++unit;
  }
  // 1023.96 KiB would print as "1024.0 KiB"; the next unit reads better.
  if (value >= 1023.95 && unit + 1 < sizeof kUnits / sizeof kUnits[0]) {
    value /= 1024.0;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", value, kUnits[unit]);
  return text;
}

std::string formatSizeChange(long long bytes) {
  if (bytes == 0) return "0 B";
  const unsigned long long magnitude = bytes < 0 ? 0ull - static_cast<unsigned long long>(bytes) : bytes;
  return (bytes < 0 ? "-" : "+") + formatBinarySize(magnitude);
}

std::string csvField(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

void addJsonName(Json& object, const char* key, const std::string& name) {
  object[key] = name;
  if (!utils::isValidUtf8(name)) object[std::string(key) + details_format::kExactBytesSuffix] = utils::base64Encode(name);
}

}  // namespace cli
}  // namespace vorlane
