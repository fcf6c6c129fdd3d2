#include "utils/base64.h"

namespace vorlane {
namespace utils {

namespace {

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

int base64Value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

std::string base64Encode(const std::string& bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const unsigned v = static_cast<unsigned char>(bytes[i]) << 16 | static_cast<unsigned char>(bytes[i + 1]) << 8 |
                       static_cast<unsigned char>(bytes[i + 2]);
    text += kAlphabet[v >> 18];
    text += kAlphabet[(v >> 12) & 63];
    text += kAlphabet[(v >> 6) & 63];
    text += kAlphabet[v & 63];
  }
  const size_t rest = bytes.size() - i;
  if (rest > 0) {
    unsigned v = static_cast<unsigned char>(bytes[i]) << 16;
    if (rest == 2) v |= static_cast<unsigned char>(bytes[i + 1]) << 8;
    text += kAlphabet[v >> 18];
    text += kAlphabet[(v >> 12) & 63];
    text += rest == 2 ? kAlphabet[(v >> 6) & 63] : '=';
    text += '=';
  }
  return text;
}

bool base64Decode(const std::string& text, std::string& bytes) {
  bytes.clear();
  if (text.size() % 4 != 0) return false;
  for (size_t i = 0; i < text.size(); i += 4) {
    const bool last = i + 4 == text.size();
    const size_t padding = last ? (text[i + 3] == '=') + (text[i + 2] == '=' && text[i + 3] == '=') : 0;
    unsigned v = 0;
    for (size_t k = 0; k < 4; ++k) {
      const int s = k < 4 - padding ? base64Value(text[i + k]) : 0;
      if (s < 0) return false;
      v = v << 6 | static_cast<unsigned>(s);
    }
    bytes += static_cast<char>(v >> 16);
    if (padding < 2) bytes += static_cast<char>((v >> 8) & 255);
    if (padding < 1) bytes += static_cast<char>(v & 255);
  }
  return true;
}

}  // namespace utils
}  // namespace vorlane
