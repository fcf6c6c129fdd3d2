#include "details_reader.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include <nlohmann/json.hpp>

#include "stat/folder_details_format.h"
#include "utils/base64.h"

namespace vorlane {
namespace cli {

namespace {

namespace fmt = details_format;
using nlohmann::json;

struct FileCloser {
  void operator()(FILE* file) const { std::fclose(file); }
};

enum class LineResult { Line, End, TooLong, Unterminated, Failed };

// One line without its LF, at most kMaxDetailsLineBytes long.
LineResult readLine(FILE* file, std::string& line) {
  line.clear();
  char chunk[64 * 1024];
  while (std::fgets(chunk, sizeof chunk, file)) {
    const size_t length = std::strlen(chunk);
    const bool complete = length > 0 && chunk[length - 1] == '\n';
    line.append(chunk, complete ? length - 1 : length);
    if (line.size() > kMaxDetailsLineBytes) return LineResult::TooLong;
    if (complete) return LineResult::Line;
  }
  if (std::ferror(file)) return LineResult::Failed;
  return line.empty() ? LineResult::End : LineResult::Unterminated;
}

bool getText(const json& line, const char* key, std::string& value, std::string& error) {
  const auto it = line.find(key);
  if (it == line.end() || !it->is_string()) {
    error = std::string("field \"") + key + "\" missing or not a string";
    return false;
  }
  value = it->get<std::string>();
  return true;
}

// A name field: the exact bytes from "<key>_base64" when present, otherwise the text.
bool getName(const json& line, const char* key, std::string& value, std::string& error) {
  const std::string exactKey = std::string(key) + fmt::kExactBytesSuffix;
  if (!line.contains(exactKey)) return getText(line, key, value, error);
  std::string encoded;
  if (!getText(line, exactKey.c_str(), encoded, error)) return false;
  if (!utils::base64Decode(encoded, value)) {
    error = "field \"" + exactKey + "\" is not base64";
    return false;
  }
  return true;
}

bool getCount(const json& line, const char* key, unsigned long long& value, std::string& error) {
  const auto it = line.find(key);
  if (it == line.end() || !it->is_number_unsigned()) {
    error = std::string("field \"") + key + "\" missing or not a non-negative integer";
    return false;
  }
  value = it->get<unsigned long long>();
  return true;
}

bool getFlag(const json& line, const char* key, bool& value, std::string& error) {
  const auto it = line.find(key);
  if (it == line.end() || !it->is_boolean()) {
    error = std::string("field \"") + key + "\" missing or not true/false";
    return false;
  }
  value = it->get<bool>();
  return true;
}

bool parseHeader(const json& line, DetailsFileHeader& header, std::string& error) {
  std::string format;
  if (!getText(line, fmt::kFormat, format, error)) return false;
  if (format != fmt::kFormatName) {
    error = "not a details file (format \"" + format + "\")";
    return false;
  }
  const auto version = line.find(fmt::kVersionKey);
  if (version == line.end() || !version->is_number_integer() || version->get<long long>() != fmt::kVersion) {
    error = "unsupported details version " + (version == line.end() ? std::string("(none)") : version->dump()) +
            " (this vstat reads version " + std::to_string(fmt::kVersion) + ")";
    return false;
  }
  return getText(line, fmt::kDate, header.date, error) && getName(line, fmt::kStore, header.store, error) &&
         getName(line, fmt::kProductVersion, header.productVersion, error) &&
         getCount(line, fmt::kBuild, header.build, error) && getName(line, fmt::kOsName, header.osName, error) &&
         getCount(line, fmt::kOsCode, header.osCode, error);
}

bool parseFolder(const json& line, FolderDetails& folder, std::string& error) {
  const auto type = line.find(fmt::kType);
  if (type == line.end() || !type->is_number_integer() || type->get<long long>() < INT32_MIN ||
      type->get<long long>() > INT32_MAX) {
    error = std::string("field \"") + fmt::kType + "\" missing or not a 32-bit integer";
    return false;
  }
  folder.type = static_cast<Collection::FolderType>(type->get<long long>());
  return getName(line, fmt::kDomain, folder.domain, error) && getName(line, fmt::kMailbox, folder.mailbox, error) &&
         getName(line, fmt::kFolder, folder.folder, error) && getFlag(line, fmt::kPublic, folder.isPublic, error) &&
         getFlag(line, fmt::kStatus, folder.hasStatus, error) &&
         getCount(line, fmt::kMessages, folder.messages, error) && getCount(line, fmt::kBytes, folder.bytes, error) &&
         getCount(line, fmt::kLargest, folder.largest, error) &&
         getCount(line, fmt::kHeaderBytes, folder.headerBytes, error) &&
         getCount(line, fmt::kPlainBytes, folder.plainBytes, error) &&
         getCount(line, fmt::kHtmlBytes, folder.htmlBytes, error) &&
         getCount(line, fmt::kRtfBytes, folder.rtfBytes, error) &&
         getCount(line, fmt::kSigned, folder.signedMessages, error) &&
         getCount(line, fmt::kEncrypted, folder.encryptedMessages, error);
}

}  // namespace

bool readDetailsFile(const std::string& path, const DetailsCallbacks& callbacks, bool& partial, std::string& error) {
  std::unique_ptr<FILE, FileCloser> file(std::fopen(path.c_str(), "re"));
  if (!file) {
    error = path + ": " + std::strerror(errno);
    return false;
  }
  std::string text;
  std::string reason;
  unsigned long long number = 0;
  unsigned long long folders = 0;
  bool ended = false;
  auto fail = [&](const std::string& why) {
    error = path + ":" + std::to_string(number) + ": " + why;
    return false;
  };
  for (;;) {
    const LineResult result = readLine(file.get(), text);
    if (result == LineResult::End) break;
    ++number;
    if (result == LineResult::TooLong) return fail("line longer than " + std::to_string(kMaxDetailsLineBytes) + " bytes");
    if (result == LineResult::Failed) return fail(std::strerror(errno));
    if (result == LineResult::Unterminated) return fail("truncated line (no line end)");
    if (ended) return fail("line after the end line");
    const json line = json::parse(text, nullptr, false);
    if (line.is_discarded() || !line.is_object()) return fail("not a JSON object");
    if (number == 1) {
      DetailsFileHeader header;
      if (!parseHeader(line, header, reason) || !callbacks.header(header, reason)) return fail(reason);
    } else if (line.contains(fmt::kEnd)) {
      unsigned long long count = 0;
      if (!getCount(line, fmt::kFolders, count, reason) || !getFlag(line, fmt::kPartial, partial, reason)) {
        return fail(reason);
      }
      if (count != folders) {
        return fail("end line counts " + std::to_string(count) + " folders, the file holds " + std::to_string(folders));
      }
      ended = true;
    } else {
      FolderDetails folder;
      if (!parseFolder(line, folder, reason) || !callbacks.folder(folder, reason)) return fail(reason);
      ++folders;
    }
  }
  if (number == 0) return fail("empty file");
  if (!ended) return fail("no end line: the file is truncated");
  return true;
}

}  // namespace cli
}  // namespace vorlane
