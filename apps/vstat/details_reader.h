// Reads a per-folder details file (the JSON Lines file a scan writes when asked for details) and checks
// it line by line: the header names the format and a version this reader knows, every folder line has
// every field with a value of the right kind, and the file ends with its end line, whose folder count
// matches. Anything else (a truncated line, a line that is not JSON, a wrong version, a line after the
// end) is refused with the file name and the line number. Name fields are taken as exact bytes.
// Memory stays flat: one line at a time, lines longer than kMaxDetailsLineBytes are refused.
// Pure functions over the file; no shared state.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "stat/folder_details.h"

namespace vorlane {
namespace cli {

const size_t kMaxDetailsLineBytes = 1024 * 1024;

struct DetailsFileHeader {
  std::string date;  // UTC, "YYYY-MM-DDTHH:MM:SSZ"
  std::string store;
  std::string productVersion;
  unsigned long long build = 0;
  std::string osName;
  unsigned long long osCode = 0;
};

struct DetailsCallbacks {
  // Called once, before the first folder. Returning false stops the reading with `error` as the reason.
  std::function<bool(const DetailsFileHeader&, std::string& error)> header;
  std::function<bool(const FolderDetails&, std::string& error)> folder;
};

// Reads the whole file. On success `partial` tells whether the scan was stopped. On failure `error` is
// "PATH:LINE: reason" (or "PATH: reason" when the file cannot be read at all).
bool readDetailsFile(const std::string& path, const DetailsCallbacks& callbacks, bool& partial, std::string& error);

}  // namespace cli
}  // namespace vorlane
