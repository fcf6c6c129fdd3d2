#include "stat/folder_files.h"

#include <cctype>
#include <cstdint>
#include <cstdlib>

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

}  // namespace

void parseStatusLine(const char* line, FolderStatus& status) {
  switch (line[0]) {
    case 'T':
      status.type = static_cast<Collection::FolderType>(strtol32(line + 1));
      break;
    case 'M':
      // Sign-extended on purpose: "M-1" is a total with all bits set.
      status.firstTotal = static_cast<unsigned long long>(static_cast<long long>(strtol32(line + 1)));
      break;
    case 'S':
      status.secondTotal = static_cast<unsigned long long>(static_cast<long long>(strtol32(line + 1)));
      break;
    default:
      break;
  }
}

void parseIndexLine(char* line, unsigned long long& size, std::string& messageClass) {
  size = 0;
  messageClass = "IPM.Note";
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
