#include "mime/normalize_subject.h"

#include <strings.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

#include "mime/encoded_word.h"

namespace vorlane {
namespace mime {

namespace {

// Level numbers saturate here: no real thread is that deep.
const long kMaxLevel = 1000000;
// Each "[fwd: ...]" unwrapping rescans the text; past this many wrappings the rest is left as it is,
// so a hostile subject cannot make the work quadratic.
const int kMaxUnwrap = 100;

bool isWhite(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f'; }

char* skipWhite(char* p) {
  while (isWhite(*p)) ++p;
  return p;
}

// The count saturates instead of overflowing, whatever a hostile subject claims.
void addLevels(int* count, long levels) {
  *count = static_cast<int>(std::min<long>(static_cast<long>(*count) + levels, INT_MAX));
}

// Length of the reply or forward prefix at p ("re", then "fwd", then "fw"), 0 when none.
size_t markerLength(const char* p) {
  if (strncasecmp(p, "re", 2) == 0) return 2;
  if (strncasecmp(p, "fwd", 3) == 0) return 3;
  if (strncasecmp(p, "fw", 2) == 0) return 2;
  return 0;
}

}  // namespace

char* do_normalizeSubject(char* text, int* count) {
  char* end = text + std::strlen(text);
  while (end > text) {
    if (isWhite(end[-1])) {
      *--end = 0;
    } else if (end - text >= 5 && strncasecmp(end - 5, "(fwd)", 5) == 0) {
      end -= 5;
      *end = 0;
      addLevels(count, 1);
    } else {
      break;
    }
  }

  char* start = text;
  for (;;) {
    if (isWhite(*start)) {
      ++start;
      continue;
    }
    if (const size_t prefix = markerLength(start)) {
      char* p = skipWhite(start + prefix);
      long level = 0;
      if (*p == '[') {
        bool valid = true;
        for (++p; *p != ']'; ++p) {
          if (*p == 0) return start;
          if (*p >= '0' && *p <= '9') {
            level = std::min(level * 10 + (*p - '0'), kMaxLevel);
          } else {
            valid = false;
          }
        }
        ++p;
        if (!valid) level = -1;
      }
      p = skipWhite(p);
      if (*p != ':') return start;  // "Report: ..." is a word, not a marker
      start = p + 1;
      addLevels(count, level >= 1 ? level : 1);
      continue;
    }
    if (*start == '[') {
      int depth = 0;
      char* p = start;
      for (; *p != 0; ++p) {
        if (*p == '[') {
          ++depth;
        } else if (*p == ']' && --depth == 0) {
          break;
        }
      }
      if (*p == 0 || p[1] == 0) return start;  // unclosed, or the tag is the whole subject
      start = p + 1;
      continue;
    }
    return start;
  }
}

std::string normalizeSubject(const char* subject, int* count) {
  int ignored = 0;
  if (count == nullptr) count = &ignored;
  const std::string decoded = decodeHeaderText(subject);
  std::vector<char> copy(decoded.begin(), decoded.end());
  copy.push_back(0);
  char* start = copy.data();
  for (int round = 0;; ++round) {
    start = do_normalizeSubject(start, count);
    if (round == kMaxUnwrap) break;
    const size_t length = std::strlen(start);
    if (length < 6 || strncasecmp(start, "[fwd:", 5) != 0 || start[length - 1] != ']') break;
    addLevels(count, 1);
    start[length - 1] = 0;
    start += 5;
  }
  return std::string(start);
}

}  // namespace mime
}  // namespace vorlane
