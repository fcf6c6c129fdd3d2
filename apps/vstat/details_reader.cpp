#include "details_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "stat/folder_details_format.h"
#include "utils/base64.h"

namespace vorlane {
namespace cli {

namespace {

namespace fmt = details_format;
using nlohmann::json;

// ---- Lines --------------------------------------------------------------------------------------------

enum class LineResult { Line, End, TooLong, Unterminated, Failed };

// Hands out the file's lines as views into one buffer that holds the longest allowed line, so a line
// is never copied and memory stays at the buffer's size.
class LineReader {
 public:
  explicit LineReader(int fd) : fd_(fd), buffer_(kMaxDetailsLineBytes + 1 + 256 * 1024) {}
  ~LineReader() { ::close(fd_); }
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // One line without its LF; the view lasts until the next call.
  LineResult next(std::string_view& line) {
    for (;;) {
      const char* start = buffer_.data() + begin_;
      const char* lf = static_cast<const char*>(std::memchr(start, '\n', end_ - begin_));
      if (lf) {
        line = std::string_view(start, static_cast<size_t>(lf - start));
        begin_ += line.size() + 1;
        return line.size() > kMaxDetailsLineBytes ? LineResult::TooLong : LineResult::Line;
      }
      if (end_ - begin_ > kMaxDetailsLineBytes) return LineResult::TooLong;
      if (ended_) {
        if (begin_ == end_) return LineResult::End;
        begin_ = end_;
        return LineResult::Unterminated;
      }
      std::memmove(buffer_.data(), start, end_ - begin_);
      end_ -= begin_;
      begin_ = 0;
      ssize_t got;
      do {
        got = ::read(fd_, buffer_.data() + end_, buffer_.size() - end_);
      } while (got < 0 && errno == EINTR);
      if (got < 0) return LineResult::Failed;
      if (got == 0) ended_ = true;
      end_ += static_cast<size_t>(got > 0 ? got : 0);
    }
  }

 private:
  int fd_;
  std::vector<char> buffer_;
  size_t begin_ = 0;
  size_t end_ = 0;
  bool ended_ = false;
};

// ---- Fields -------------------------------------------------------------------------------------------

// Every key a line may carry that this reader looks at, in the order the writer puts them.
enum Key {
  kFormatKey, kVersionKey, kDateKey, kStoreKey, kStoreExact, kProductVersionKey, kProductVersionExact, kBuildKey,
  kOsNameKey, kOsNameExact, kOsCodeKey,
  kDomainKey, kDomainExact, kMailboxKey, kMailboxExact, kFolderKey, kFolderExact, kTypeKey, kPublicKey, kStatusKey,
  kMessagesKey, kBytesKey, kLargestKey, kHeaderBytesKey, kPlainBytesKey, kHtmlBytesKey, kRtfBytesKey, kSignedKey,
  kEncryptedKey, kEndKey, kFoldersKey, kPartialKey, kKeyCount
};

const std::array<std::string, kKeyCount>& keyNames() {
  static const std::array<std::string, kKeyCount> names = [] {
    const auto exact = [](const char* key) { return std::string(key) + fmt::kExactBytesSuffix; };
    return std::array<std::string, kKeyCount>{
        fmt::kFormat, fmt::kVersionKey, fmt::kDate, fmt::kStore, exact(fmt::kStore), fmt::kProductVersion,
        exact(fmt::kProductVersion), fmt::kBuild, fmt::kOsName, exact(fmt::kOsName), fmt::kOsCode,
        fmt::kDomain, exact(fmt::kDomain), fmt::kMailbox, exact(fmt::kMailbox), fmt::kFolder, exact(fmt::kFolder),
        fmt::kType, fmt::kPublic, fmt::kStatus, fmt::kMessages, fmt::kBytes, fmt::kLargest, fmt::kHeaderBytes,
        fmt::kPlainBytes, fmt::kHtmlBytes, fmt::kRtfBytes, fmt::kSigned, fmt::kEncrypted,
        fmt::kEnd, fmt::kFolders, fmt::kPartial};
  }();
  return names;
}

// One known key's value on the current line, with the kinds the checks tell apart.
struct Field {
  enum Kind : char { Missing, Text, Unsigned, Negative, Boolean, Other };
  Kind kind = Missing;
  std::string text;
  unsigned long long number = 0;  // a Negative one holds its two's-complement bit pattern
  bool flag = false;
};

// The known keys of one line. Reused from line to line so that its strings keep their room.
class LineFields {
 public:
  void clear() {
    for (Field& field : fields_) field.kind = Field::Missing;
    hint_ = 0;
  }
  // The slot of a known key, null for any other key. Keys mostly come in the writer's order, so the
  // search starts after the last one found.
  Field* find(std::string_view key) {
    const auto& names = keyNames();
    for (int tried = 0, k = hint_; tried < kKeyCount; ++tried, k = k + 1 == kKeyCount ? 0 : k + 1) {
      if (names[k].size() == key.size() && std::memcmp(names[k].data(), key.data(), key.size()) == 0) {
        hint_ = k + 1 == kKeyCount ? 0 : k + 1;
        return &fields_[k];
      }
    }
    return nullptr;
  }
  const Field& operator[](Key key) const { return fields_[key]; }

 private:
  std::array<Field, kKeyCount> fields_;
  int hint_ = 0;
};

// The known keys of a parsed JSON object.
void takeFields(const json& object, LineFields& fields) {
  fields.clear();
  for (const auto& item : object.items()) {
    Field* field = fields.find(item.key());
    if (!field) continue;
    const json& value = item.value();
    if (value.is_string()) {
      field->kind = Field::Text;
      field->text = value.get_ref<const std::string&>();
    } else if (value.is_number_unsigned()) {
      field->kind = Field::Unsigned;
      field->number = value.get<unsigned long long>();
    } else if (value.is_number_integer()) {
      field->kind = Field::Negative;
      field->number = static_cast<unsigned long long>(value.get<long long>());
    } else if (value.is_boolean()) {
      field->kind = Field::Boolean;
      field->flag = value.get<bool>();
    } else {
      field->kind = Field::Other;
    }
  }
}

// ---- The direct scanner ---------------------------------------------------------------------------------
// Folder lines as the writer makes them are a flat object of strings without escapes, non-negative
// integers and booleans. The scanner reads exactly that shape, a subset of JSON on which it agrees with
// the JSON parser; on anything else it gives up and the line goes to the JSON parser, which then decides
// what the line holds or why it is refused.

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

const char* skipSpace(const char* p, const char* end) {
  while (p != end && isSpace(*p)) ++p;
  return p;
}

bool isContinuation(const char* p, const char* end, int count) {
  for (int i = 0; i < count; ++i) {
    if (p + i == end || (static_cast<unsigned char>(p[i]) & 0xC0) != 0x80) return false;
  }
  return true;
}

// The end of a string's text (its closing quote) from just after its opening quote; null for an escape,
// a control character, bytes that are not well-formed UTF-8 (RFC 3629) or a missing closing quote.
const char* scanString(const char* p, const char* end) {
  while (p != end) {
    const unsigned char c = static_cast<unsigned char>(*p);
    if (c == '"') return p;
    if (c == '\\' || c < 0x20) return nullptr;
    if (c < 0x80) {
      ++p;
      continue;
    }
    // The second byte's range where the lead byte narrows it, then the continuation bytes after it.
    unsigned char low = 0x80, high = 0xBF;
    int more;
    if (c >= 0xC2 && c <= 0xDF) {
      more = 1;
    } else if (c >= 0xE0 && c <= 0xEF) {
      more = 2;
      if (c == 0xE0) low = 0xA0;
      if (c == 0xED) high = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      more = 3;
      if (c == 0xF0) low = 0x90;
      if (c == 0xF4) high = 0x8F;
    } else {
      return nullptr;
    }
    if (p + 1 == end || static_cast<unsigned char>(p[1]) < low || static_cast<unsigned char>(p[1]) > high ||
        !isContinuation(p + 2, end, more - 1)) {
      return nullptr;
    }
    p += 1 + more;
  }
  return nullptr;
}

// One value into `field` (null: only checked); the position after it, or null to give up.
const char* scanValue(const char* p, const char* end, Field* field) {
  if (p == end) return nullptr;
  if (*p == '"') {
    const char* close = scanString(p + 1, end);
    if (close && field) {
      field->kind = Field::Text;
      field->text.assign(p + 1, close);
    }
    return close ? close + 1 : nullptr;
  }
  if (*p >= '0' && *p <= '9') {
    // Leading zeros, fractions, exponents and values past 64 bits are left to the JSON parser.
    if (*p == '0' && p + 1 != end && p[1] >= '0' && p[1] <= '9') return nullptr;
    unsigned long long value = 0;
    for (; p != end && *p >= '0' && *p <= '9'; ++p) {
      if (__builtin_mul_overflow(value, 10ULL, &value) ||
          __builtin_add_overflow(value, static_cast<unsigned long long>(*p - '0'), &value)) {
        return nullptr;
      }
    }
    if (p != end && (*p == '.' || *p == 'e' || *p == 'E')) return nullptr;
    if (field) {
      field->kind = Field::Unsigned;
      field->number = value;
    }
    return p;
  }
  for (const bool flag : {true, false}) {
    const std::string_view word = flag ? "true" : "false";
    if (static_cast<size_t>(end - p) >= word.size() && std::memcmp(p, word.data(), word.size()) == 0) {
      if (field) {
        field->kind = Field::Boolean;
        field->flag = flag;
      }
      return p + word.size();
    }
  }
  return nullptr;
}

// The known keys of a line in the writer's shape; false to hand the line to the JSON parser.
bool scanLine(std::string_view line, LineFields& fields) {
  fields.clear();
  const char* end = line.data() + line.size();
  const char* p = skipSpace(line.data(), end);
  if (p == end || *p != '{') return false;
  p = skipSpace(p + 1, end);
  if (p != end && *p == '}') return skipSpace(p + 1, end) == end;
  for (;;) {
    if (p == end || *p != '"') return false;
    const char* close = scanString(p + 1, end);
    if (!close) return false;
    Field* field = fields.find(std::string_view(p + 1, static_cast<size_t>(close - p - 1)));
    p = skipSpace(close + 1, end);
    if (p == end || *p != ':') return false;
    p = scanValue(skipSpace(p + 1, end), end, field);
    if (!p) return false;
    p = skipSpace(p, end);
    if (p == end) return false;
    if (*p == '}') return skipSpace(p + 1, end) == end;
    if (*p != ',') return false;
    p = skipSpace(p + 1, end);
  }
}

// ---- Checks -------------------------------------------------------------------------------------------

const std::string& nameOf(Key key) { return keyNames()[key]; }

bool getText(const LineFields& line, Key key, std::string& value, std::string& error) {
  if (line[key].kind != Field::Text) {
    error = "field \"" + nameOf(key) + "\" missing or not a string";
    return false;
  }
  value = line[key].text;
  return true;
}

// A name field: the exact bytes from its "_base64" twin when present, otherwise the text.
bool getName(const LineFields& line, Key key, std::string& value, std::string& error) {
  const Key exact = static_cast<Key>(key + 1);
  if (line[exact].kind == Field::Missing) return getText(line, key, value, error);
  if (line[exact].kind != Field::Text) return getText(line, exact, value, error);
  if (!utils::base64Decode(line[exact].text, value)) {
    error = "field \"" + nameOf(exact) + "\" is not base64";
    return false;
  }
  return true;
}

bool getCount(const LineFields& line, Key key, unsigned long long& value, std::string& error) {
  if (line[key].kind != Field::Unsigned) {
    error = "field \"" + nameOf(key) + "\" missing or not a non-negative integer";
    return false;
  }
  value = line[key].number;
  return true;
}

bool getFlag(const LineFields& line, Key key, bool& value, std::string& error) {
  if (line[key].kind != Field::Boolean) {
    error = "field \"" + nameOf(key) + "\" missing or not true/false";
    return false;
  }
  value = line[key].flag;
  return true;
}

bool parseHeader(const json& object, const LineFields& line, DetailsFileHeader& header, std::string& error) {
  std::string format;
  if (!getText(line, kFormatKey, format, error)) return false;
  if (format != fmt::kFormatName) {
    error = "not a details file (format \"" + format + "\")";
    return false;
  }
  const auto version = object.find(fmt::kVersionKey);
  if (version == object.end() || !version->is_number_integer() || version->get<long long>() != fmt::kVersion) {
    error = "unsupported details version " + (version == object.end() ? std::string("(none)") : version->dump()) +
            " (this vstat reads version " + std::to_string(fmt::kVersion) + ")";
    return false;
  }
  return getText(line, kDateKey, header.date, error) && getName(line, kStoreKey, header.store, error) &&
         getName(line, kProductVersionKey, header.productVersion, error) &&
         getCount(line, kBuildKey, header.build, error) && getName(line, kOsNameKey, header.osName, error) &&
         getCount(line, kOsCodeKey, header.osCode, error);
}

bool parseFolder(const LineFields& line, FolderDetails& folder, std::string& error) {
  const Field& type = line[kTypeKey];
  const long long typeValue = static_cast<long long>(type.number);
  if ((type.kind != Field::Unsigned && type.kind != Field::Negative) || typeValue < INT32_MIN ||
      typeValue > INT32_MAX) {
    error = "field \"" + nameOf(kTypeKey) + "\" missing or not a 32-bit integer";
    return false;
  }
  folder.type = static_cast<Collection::FolderType>(typeValue);
  return getName(line, kDomainKey, folder.domain, error) && getName(line, kMailboxKey, folder.mailbox, error) &&
         getName(line, kFolderKey, folder.folder, error) && getFlag(line, kPublicKey, folder.isPublic, error) &&
         getFlag(line, kStatusKey, folder.hasStatus, error) && getCount(line, kMessagesKey, folder.messages, error) &&
         getCount(line, kBytesKey, folder.bytes, error) && getCount(line, kLargestKey, folder.largest, error) &&
         getCount(line, kHeaderBytesKey, folder.headerBytes, error) &&
         getCount(line, kPlainBytesKey, folder.plainBytes, error) &&
         getCount(line, kHtmlBytesKey, folder.htmlBytes, error) &&
         getCount(line, kRtfBytesKey, folder.rtfBytes, error) &&
         getCount(line, kSignedKey, folder.signedMessages, error) &&
         getCount(line, kEncryptedKey, folder.encryptedMessages, error);
}

}  // namespace

bool readDetailsFile(const std::string& path, const DetailsCallbacks& callbacks, bool& partial, std::string& error) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    error = path + ": " + std::strerror(errno);
    return false;
  }
  LineReader reader(fd);
  std::string_view text;
  std::string reason;
  LineFields fields;
  FolderDetails folder;  // reused, as its names keep their room
  unsigned long long number = 0;
  unsigned long long folders = 0;
  bool ended = false;
  auto fail = [&](const std::string& why) {
    error = path + ":" + std::to_string(number) + ": " + why;
    return false;
  };
  for (;;) {
    const LineResult result = reader.next(text);
    if (result == LineResult::End) break;
    ++number;
    if (result == LineResult::TooLong) return fail("line longer than " + std::to_string(kMaxDetailsLineBytes) + " bytes");
    if (result == LineResult::Failed) return fail(std::strerror(errno));
    if (result == LineResult::Unterminated) return fail("truncated line (no line end)");
    if (ended) return fail("line after the end line");
    json object;
    if (number == 1 || !scanLine(text, fields)) {
      object = json::parse(text.begin(), text.end(), nullptr, false);
      if (object.is_discarded() || !object.is_object()) return fail("not a JSON object");
      takeFields(object, fields);
    }
    if (number == 1) {
      DetailsFileHeader header;
      if (!parseHeader(object, fields, header, reason) || !callbacks.header(header, reason)) return fail(reason);
    } else if (fields[kEndKey].kind != Field::Missing) {
      unsigned long long count = 0;
      if (!getCount(fields, kFoldersKey, count, reason) || !getFlag(fields, kPartialKey, partial, reason)) {
        return fail(reason);
      }
      if (count != folders) {
        return fail("end line counts " + std::to_string(count) + " folders, the file holds " + std::to_string(folders));
      }
      ended = true;
    } else {
      if (!parseFolder(fields, folder, reason) || !callbacks.folder(folder, reason)) return fail(reason);
      ++folders;
    }
  }
  if (number == 0) return fail("empty file");
  if (!ended) return fail("no end line: the file is truncated");
  return true;
}

}  // namespace cli
}  // namespace vorlane
