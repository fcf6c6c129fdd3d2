// Modified UTF-7 for IMAP mailbox names (RFC 3501, section 5.1.3), converted to and from UTF-16
// big-endian code units, which the conversion library then takes as "ucs-2be". Printable US-ASCII
// stands for itself except '&', written "&-"; everything else is a run of base64 (with ',' for '/')
// over the UTF-16 code units, opened by '&' and always closed by '-'.
// Decoding is strict so that one name has one spelling: raw bytes outside 0x20..0x7E, printable
// ASCII inside a run, stray bits at the end of a run, two runs back to back and unterminated runs
// are all refused.
// Stateless functions; an encoding in progress keeps its state in the caller's utf7imap_table.
#pragma once

#include <stddef.h>

#include <string>

namespace vorlane {
namespace utils {

class Utf7ImapConverter {
 public:
  static const char* const MALFORMED;            // any other malformed input
  static const char* const MALFORMED_AMPERSAND;  // a run opened by '&' that never closes
  static const char* const INTERNAL_ERROR;       // the encoder was given half a code unit

  // State of an encoding in progress: whether a base64 run is open, the bits not yet written, and
  // the first byte of a code unit whose second byte has not arrived yet.
  struct utf7imap_table {
    bool inBase64;
    unsigned bits;
    unsigned bitCount;
    int pendingByte;  // -1 when none

    utf7imap_table() { clear(); }
    void clear() {
      inBase64 = false;
      bits = 0;
      bitCount = 0;
      pendingByte = -1;
    }
  };

  // True for "utf-7-imap" and "utf-7m", in any case.
  static bool isUtf7Imap(const char* name);

  // Decodes a whole text into UTF-16BE, replacing `out`. False with `error` set (and `out`
  // unspecified) when the text is malformed.
  static bool fromUtf7Imap(const char* in, size_t length, std::string& out, std::string& error);
  static bool fromUtf7Imap(const std::string& in, std::string& out, std::string& error) {
    return fromUtf7Imap(in.data(), in.size(), out, error);
  }

  // Encodes UTF-16BE bytes and appends the text to `out`. The input may be cut anywhere, even
  // inside a code unit: the state carries over in `table` to the next call.
  static void toUtf7Imap(const char* in, size_t length, std::string& out, utf7imap_table& table);
  // Ends an encoding: closes the open run and clears `table`. False with INTERNAL_ERROR in `error`
  // when half a code unit is left over.
  static bool flushTable(std::string& out, utf7imap_table& table, std::string& error);
};

}  // namespace utils
}  // namespace vorlane
