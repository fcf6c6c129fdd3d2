#include "stat/folder_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cctype>
#include <cstdint>
#include <cstdlib>

#include "utils/vfile.h"

using vorlane::utils::VFile;

namespace {

bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// strtol of a platform whose long has 32 bits: saturates at the signed 32-bit range.
int32_t strtol32(const char* text) {
  long long value = std::strtoll(text, nullptr, 10);
  if (value > INT32_MAX) return INT32_MAX;
  if (value < INT32_MIN) return INT32_MIN;
  return static_cast<int32_t>(value);
}

// strtoul of a platform whose long has 32 bits: a magnitude beyond 32 bits saturates at 4294967295,
// a minus sign negates in 32-bit arithmetic. *end is set as strtoul sets it.
uint32_t strtoul32(char* text, char** end) {
  const char* p = text;
  while (isSpace(*p)) ++p;
  bool negative = *p == '-';
  if (*p == '-' || *p == '+') ++p;
  if (!std::isdigit(static_cast<unsigned char>(*p))) {
    *end = text;  // no conversion: the end pointer stays at the start
    return 0;
  }
  unsigned long long magnitude = std::strtoull(p, end, 10);
  if (magnitude > UINT32_MAX) return UINT32_MAX;
  uint32_t value = static_cast<uint32_t>(magnitude);
  return negative ? 0u - value : value;
}

char* skipToken(char* p) {
  while (*p != '\0' && !isSpace(*p)) ++p;
  return p;
}

// A FIFO (or a link to one, or to /proc/self/fd/N) would block an ordinary open or read for ever:
// the file is opened without blocking and kept only when it is a regular file.
FolderFileRead openFolderFile(const std::string& path, VFile& file) {
  if (!file.doOpenAt(AT_FDCWD, path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY)) return FolderFileRead::Missing;
  struct stat info;
  if (::fstat(file.fd(), &info) != 0 || !S_ISREG(info.st_mode)) {
    file.close();
    return FolderFileRead::NotRegular;
  }
  return FolderFileRead::Read;
}

}  // namespace

void parseStatusLine(const char* line, FolderStatus& status) {
  switch (line[0]) {
    case 'T':
      status.type = static_cast<Collection::FolderType>(strtol32(line + 1));
      break;
    case 'M':
      // Sign-extended on purpose: "M-1" is a total with all bits set.
      status.messageCount = static_cast<unsigned long long>(static_cast<long long>(strtol32(line + 1)));
      break;
    case 'S':
      status.folderSize = static_cast<unsigned long long>(static_cast<long long>(strtol32(line + 1)));
      break;
    default:
      break;
  }
}

void parseIndexLine(char* line, IndexEntry& entry) {
  entry = IndexEntry();
  unsigned long long& size = entry.size;
  std::string& messageClass = entry.messageClass;
  char* p = line;
  while (*p != '\0') {
    // The first character is the key even when it is white space: such a line loses its first token.
    char key = *p++;
    if (key == 'C') {
      char* end = skipToken(p);
      messageClass.assign(p, end);
      p = end;
    } else if (key == 'S') {
      size = strtoul32(p, &p);
    } else {
      p = skipToken(p);
    }
    while (isSpace(*p)) ++p;
  }
}

FolderFileRead readFolderStatus(const std::string& folderPath, FolderStatus& status) {
  VFile file;
  const FolderFileRead opened = openFolderFile(folderPath + "/status.fld", file);
  if (opened != FolderFileRead::Read) return opened;
  char line[kStoreLineBufferSize];
  while (file.gets(line, sizeof line, true) > 0) parseStatusLine(line, status);
  return opened;
}

FolderFileRead readFolderIndex(const std::string& path, const std::function<void(const IndexEntry&)>& entry) {
  VFile file;
  const FolderFileRead opened = openFolderFile(path, file);
  if (opened != FolderFileRead::Read) return opened;
  char line[kStoreLineBufferSize];
  IndexEntry parsed;
  while (file.gets(line, sizeof line, true) > 0) {
    parseIndexLine(line, parsed);
    entry(parsed);
  }
  return opened;
}
