// Bounded string copy for fixed-size fields (wire payloads, path fields) and a UTF-8 validity test.
// Pure functions, thread-safe.
#pragma once

#include <cstddef>
#include <string>

namespace vorlane {
namespace utils {

// Copies at most size-1 characters of src into dst and fills the rest of the size bytes with zeros,
// so dst is always terminated and a fixed field never carries stale bytes onto the wire. A null src
// gives an all-zero field; size 0 writes nothing. At most size-1 bytes of src are read, so src may
// itself be an unterminated fixed field of at least size-1 bytes (a received payload). Returns dst.
char* strncpys(char* dst, const char* src, size_t size);

// Length of the well-formed UTF-8 sequence at `p` (at most `left` bytes, left > 0), 0 when it is not one:
// no overlong forms, no surrogates, nothing above U+10FFFF.
size_t utf8SequenceLength(const unsigned char* p, size_t left);
// True when `text` is well-formed UTF-8: shortest forms only, no surrogates, nothing above U+10FFFF.
bool isValidUtf8(const std::string& text);

}  // namespace utils
}  // namespace vorlane
