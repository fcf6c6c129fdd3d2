// Base64 (RFC 4648 alphabet, with '=' padding) for carrying arbitrary bytes through text formats, such
// as store names that are not valid UTF-8 in a JSON file. Pure functions, thread-safe.
#pragma once

#include <string>

namespace vorlane {
namespace utils {

// The value (0 to 63) of one character of the alphabet, -1 for any other character.
int base64Value(char c);

std::string base64Encode(const std::string& bytes);
// Strict: only the alphabet, length a multiple of 4, padding only at the end. False on anything else
// (`bytes` is then unspecified).
bool base64Decode(const std::string& text, std::string& bytes);

}  // namespace utils
}  // namespace vorlane
