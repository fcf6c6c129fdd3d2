// Small text tests shared by the MIME structure parser: case-insensitive comparisons and white space.
// Header names are compared for every header line against a dozen known names, so the first character is
// tested inline before the library comparison runs. ASCII only; a null text never matches. Pure functions.
#pragma once

#include <strings.h>

#include <cstring>

namespace vorlane {
namespace mime {

// White space as the C locale sees it (space, \t, \n, \v, \f, \r), without a library call per byte.
inline bool ascii_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

inline char ascii_lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

inline bool equals_nocase(const char* text, const char* known) {
  return text != nullptr && ascii_lower(text[0]) == ascii_lower(known[0]) && strcasecmp(text, known) == 0;
}

inline bool starts_with_nocase(const char* text, const char* prefix) {
  return text != nullptr && ascii_lower(text[0]) == ascii_lower(prefix[0]) &&
         strncasecmp(text, prefix, std::strlen(prefix)) == 0;
}

}  // namespace mime
}  // namespace vorlane
