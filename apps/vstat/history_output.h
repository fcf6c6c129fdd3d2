// Formatting shared by the history commands: sizes in binary units, CSV fields, names in JSON with their
// exact bytes, HTML text. Pure functions; no shared state.
#pragma once

#include <string>

#include "report_json.h"

namespace vorlane {
namespace cli {

enum class OutputFormat { Text, Json, Csv, Html };

// "512 B", "1.0 KiB", "1.2 GiB": one decimal from KiB up.
std::string formatBinarySize(unsigned long long bytes);
// Signed, with its sign: "+1.2 GiB", "-512 B", "0 B".
std::string formatSizeChange(long long bytes);
// An RFC 4180 field: quoted (quotes doubled) when it holds a comma, quote, CR or LF.
std::string csvField(const std::string& text);
// Sets `key` to the name as text and, when the name is not valid UTF-8, "<key>_base64" to its exact
// bytes (the convention of the details file).
void addJsonName(Json& object, const char* key, const std::string& name);

}  // namespace cli
}  // namespace vorlane
