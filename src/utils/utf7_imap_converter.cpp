#include "utils/utf7_imap_converter.h"

#include <strings.h>

namespace vorlane {
namespace utils {

const char* const Utf7ImapConverter::MALFORMED = "The conversion failed - malformed UTF7-IMAP.";
const char* const Utf7ImapConverter::MALFORMED_AMPERSAND =
    "The conversion failed - malformed UTF7-IMAP ('&').";
const char* const Utf7ImapConverter::INTERNAL_ERROR = "Internal error when converting to UTF-7-IMAP";

namespace {

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+,";

bool isDirect(unsigned c) { return c >= 0x20 && c <= 0x7e; }

int base64Value(unsigned char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == ',') return 63;
  return -1;
}

void appendUnit(std::string& out, unsigned unit) {
  out += static_cast<char>(unit >> 8);
  out += static_cast<char>(unit & 0xff);
}

void closeRun(std::string& out, Utf7ImapConverter::utf7imap_table& table) {
  if (table.bitCount > 0) out += kAlphabet[(table.bits << (6 - table.bitCount)) & 0x3f];
  out += '-';
  table.inBase64 = false;
  table.bits = 0;
  table.bitCount = 0;
}

void encodeUnit(std::string& out, unsigned unit, Utf7ImapConverter::utf7imap_table& table) {
  if (isDirect(unit)) {
    if (table.inBase64) closeRun(out, table);
    out += static_cast<char>(unit);
    if (unit == '&') out += '-';
    return;
  }
  if (!table.inBase64) {
    out += '&';
    table.inBase64 = true;
  }
  // At most 4 bits wait between units, so 20 bits never overflow.
  table.bits = (table.bits << 16) | unit;
  table.bitCount += 16;
  while (table.bitCount >= 6) {
    table.bitCount -= 6;
    out += kAlphabet[(table.bits >> table.bitCount) & 0x3f];
  }
  table.bits &= (1u << table.bitCount) - 1;
}

}  // namespace

bool Utf7ImapConverter::isUtf7Imap(const char* name) {
  return name != nullptr && (strcasecmp(name, "utf-7-imap") == 0 || strcasecmp(name, "utf-7m") == 0);
}

bool Utf7ImapConverter::fromUtf7Imap(const char* in, size_t length, std::string& out, std::string& error) {
  out.clear();
  out.reserve(length * 2);
  size_t i = 0;
  bool runJustClosed = false;
  while (i < length) {
    unsigned char c = static_cast<unsigned char>(in[i++]);
    if (c != '&') {
      if (!isDirect(c)) {
        error = MALFORMED;
        return false;
      }
      appendUnit(out, c);
      runJustClosed = false;
      continue;
    }
    if (i < length && in[i] == '-') {
      appendUnit(out, '&');
      ++i;
      runJustClosed = false;
      continue;
    }
    // Two runs back to back spell what one run would ("&AOk-&AOk-" for "&AOkA6Q-").
    if (runJustClosed) {
      error = MALFORMED;
      return false;
    }
    unsigned bits = 0;
    unsigned bitCount = 0;
    for (;;) {
      if (i == length) {
        error = MALFORMED_AMPERSAND;
        return false;
      }
      c = static_cast<unsigned char>(in[i++]);
      if (c == '-') break;
      int value = base64Value(c);
      if (value < 0) {
        error = MALFORMED;
        return false;
      }
      bits = (bits << 6) | static_cast<unsigned>(value);
      bitCount += 6;
      if (bitCount >= 16) {
        bitCount -= 16;
        unsigned unit = (bits >> bitCount) & 0xffff;
        bits &= (1u << bitCount) - 1;
        // A character that can stand for itself must not be hidden in a run.
        if (isDirect(unit)) {
          error = MALFORMED;
          return false;
        }
        appendUnit(out, unit);
      }
    }
    // A run ends on a code unit boundary: fewer than 6 padding bits, all zero ("&-" was handled above,
    // so an empty run cannot reach this point).
    if (bitCount >= 6 || bits != 0) {
      error = MALFORMED;
      return false;
    }
    runJustClosed = true;
  }
  return true;
}

void Utf7ImapConverter::toUtf7Imap(const char* in, size_t length, std::string& out, utf7imap_table& table) {
  size_t i = 0;
  if (table.pendingByte >= 0 && length > 0) {
    encodeUnit(out, (static_cast<unsigned>(table.pendingByte) << 8) | static_cast<unsigned char>(in[0]),
               table);
    table.pendingByte = -1;
    i = 1;
  }
  for (; i + 1 < length; i += 2) {
    encodeUnit(out, (static_cast<unsigned char>(in[i]) << 8) | static_cast<unsigned char>(in[i + 1]), table);
  }
  if (i < length) table.pendingByte = static_cast<unsigned char>(in[i]);
}

bool Utf7ImapConverter::flushTable(std::string& out, utf7imap_table& table, std::string& error) {
  bool whole = table.pendingByte < 0;
  if (table.inBase64) closeRun(out, table);
  table.clear();
  if (!whole) error = INTERNAL_ERROR;
  return whole;
}

}  // namespace utils
}  // namespace vorlane
