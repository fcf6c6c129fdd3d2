#include "mime/parse_uuencoded.h"

#include <cctype>
#include <cstring>

#include "mime/mail_struct.h"
#include "mime/mime_get_line.h"
#include "mime/mime_text.h"
#include "mime/parse_status.h"

namespace vorlane {
namespace mime {

namespace {

enum uu_state { UU_OFF = 0, UU_WATCHING = 1, UU_IN_BLOCK = 2, UU_DONE = 3 };

bool is_blank(char c) { return c == ' ' || c == '\t'; }
bool is_space(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// "begin", white space, optional further white space, then the first digit of the file mode. The scan
// stays inside one line buffer.
bool is_begin_line(const char* line, size_t len) {
  if (len < 6 || !starts_with_nocase(line, "begin") || !is_space(line[5])) return false;
  const size_t limit = len < MIME_LINE_MAX ? len : MIME_LINE_MAX;
  size_t i = 6;
  while (i < limit && is_space(line[i])) ++i;
  return i < limit && line[i] >= '0' && line[i] <= '9';
}

bool is_blank_line(const char* line, size_t len) {
  for (size_t i = 0; i < len; ++i) {
    if (!is_blank(line[i]) && line[i] != '\r' && line[i] != '\n') return false;
  }
  return true;
}

enum class data_line { valid, invalid, ignored };

// The first character encodes the byte count n (plus 32); the line then holds 4 characters for every
// started group of 3 bytes. A length character above n = 63 (the "`" of an empty line) is passed over.
data_line check_data_line(const char* line, size_t len) {
  const unsigned c = static_cast<unsigned char>(line[0]);
  if (c <= 32) return data_line::invalid;
  const unsigned n = c - 32;
  if (n > 63) return data_line::ignored;
  while (len > 1 && (line[len - 1] == '\r' || line[len - 1] == '\n')) --len;
  return len - 1 == 4 * ((n + 2) / 3) ? data_line::valid : data_line::invalid;
}

size_t terminator_length(const char* line, size_t len) {
  const char last = line[len - 1];
  if (last != '\r' && last != '\n') return 0;
  // By sum, so that "\n\r" counts like "\r\n".
  if (len >= 2 && static_cast<unsigned char>(line[len - 2]) + static_cast<unsigned char>(last) == 23) return 2;
  return 1;
}

bool starts_uuencode_watch(const mail_struct* part) {
  if (part->is("text", "plain")) return true;
  const char* encoding = part->encoding.get();
  if (encoding == nullptr) return false;
  if (starts_with_nocase(encoding, "x-")) encoding += 2;
  return starts_with_nocase(encoding, "uue");
}

}  // namespace

void parse_uuencoded(mail_struct* part, utils::VFileStream* stream, parse_status* status) {
  int state = starts_uuencode_watch(part) ? UU_WATCHING : UU_OFF;
  bool last_line_empty = false;
  size_t term_len = 0;
  // Counted locally and added once: the line loop is the hottest path of a store scan.
  uint32_t bytes = 0;
  uint32_t lines = 0;
  while (mime_get_line(stream, status, nullptr)) {
    const char* line = status->line;
    const size_t len = status->line_len;
    ++lines;
    bytes += static_cast<uint32_t>(len);
    term_len = terminator_length(line, len);
    last_line_empty = len == term_len;

    switch (state) {
      case UU_WATCHING:
        if (is_begin_line(line, len)) state = UU_IN_BLOCK;
        break;
      case UU_IN_BLOCK:
        if (len >= 3 && std::memcmp(line, "end", 3) == 0) {
          state = UU_DONE;
        } else if (!is_blank_line(line, len) && check_data_line(line, len) == data_line::invalid) {
          state = UU_WATCHING;
        }
        break;
      default:
        break;
    }
  }

  if (status->boundary_hit == 0) {
    term_len = 0;
  } else {
    // The line end of the last body line belongs to the boundary line; an empty last line goes with it.
    bytes -= static_cast<uint32_t>(term_len);
    if (last_line_empty) --lines;
  }
  status->trailing_term_len = term_len;
  part->body_bytes += bytes;
  part->total_bytes += bytes;
  part->body_lines += lines;
  part->total_lines += lines;
  if (state == UU_DONE) part->uuencoded = 1;
}

}  // namespace mime
}  // namespace vorlane
