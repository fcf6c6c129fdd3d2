#include "mime/parse_uuencoded.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <cstdint>
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
bool is_space(char c) { return ascii_space(c); }

// "begin", white space, optional further white space, then the first digit of the file mode. The scan
// stays inside the line piece, which never exceeds the line buffer.
bool is_begin_line(const char* line, size_t len) {
  if (len < 6 || !starts_with_nocase(line, "begin") || !is_space(line[5])) return false;
  size_t i = 6;
  while (i < len && is_space(line[i])) ++i;
  return i < len && line[i] >= '0' && line[i] <= '9';
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

// What the leaf needs to know of the lines it has counted: how many, their bytes, and the line end and
// emptiness of the last one (the last body line gives its line end to a boundary that follows).
struct body_count {
  uint32_t bytes = 0;
  uint32_t lines = 0;
  size_t term_len = 0;
  bool last_line_empty = false;

  void add_last_line(const char* line, size_t len) {
    term_len = terminator_length(line, len);
    last_line_empty = len == term_len;
  }
};

// A line starting with '-' may be a boundary, one starting with 'b' or 'B' a uuencode begin line.
bool needs_line_check(char first, bool watching) {
  return first == '-' || (watching && (first == 'b' || first == 'B'));
}

#if defined(__SSE2__)
// Runs over whole 64-byte groups from just behind `start` (a line start whose first byte is already
// checked) while no line starting in them needs a check. A line starts where the byte before it is an
// LF, so the same comparison finds the lines to check and counts the lines ended: `lines` gains the LFs
// in [start, result - 1). Returns where the groups ended: start + 1 + a multiple of 64.
// A template on `watching`, so that the inner loop carries no test of it.
template <bool watching>
const char* skip_countable_groups(const char* start, const char* end, uint32_t& lines) {
  const __m128i lf = _mm_set1_epi8('\n');
  const __m128i dash = _mm_set1_epi8('-');
  const __m128i lower_b = _mm_set1_epi8('b');
  const __m128i case_bit = _mm_set1_epi8(0x20);
  const __m128i zero = _mm_setzero_si128();
  __m128i total = zero;
  const char* p = start + 1;
  for (; end - p >= 64; p += 64) {
    __m128i ended = zero;
    __m128i stops = zero;
    for (int i = 0; i < 64; i += 16) {
      const __m128i before = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i - 1));
      const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
      const __m128i starts = _mm_cmpeq_epi8(before, lf);
      __m128i checks = _mm_cmpeq_epi8(bytes, dash);
      if (watching) checks = _mm_or_si128(checks, _mm_cmpeq_epi8(_mm_or_si128(bytes, case_bit), lower_b));
      stops = _mm_or_si128(stops, _mm_and_si128(starts, checks));
      ended = _mm_sub_epi8(ended, starts);
    }
    if (_mm_movemask_epi8(stops) != 0) break;
    total = _mm_add_epi64(total, _mm_sad_epu8(ended, zero));
  }
  lines += static_cast<uint32_t>(_mm_cvtsi128_si32(total) + _mm_cvtsi128_si32(_mm_srli_si128(total, 8)));
  return p;
}
#endif

// Finds the run of whole lines at `start` that need no check of their own, counting them into `lines`;
// returns where the run ends (start itself when the first line needs a check or does not end before
// `end`). Searching line by line costs a call and a mispredicted loop exit per line, so where the
// processor allows, whole groups of bytes are tested first and only the last lines go one by one.
const char* skip_countable_lines(const char* const start, const char* end, bool watching, uint32_t& lines) {
  const char* p = start;
  if (p == end || needs_line_check(*p, watching)) return p;
#if defined(__SSE2__)
  const char* const groups_end = watching ? skip_countable_groups<true>(start, end, lines)
                                          : skip_countable_groups<false>(start, end, lines);
  // On line by line from the first line not yet counted: behind the last LF the groups counted.
  const void* counted_end = memrchr(start, '\n', static_cast<size_t>(groups_end - 1 - start));
  if (counted_end != nullptr) p = static_cast<const char*>(counted_end) + 1;
#endif
  while (p < end && !needs_line_check(*p, watching)) {
    const char* lf = static_cast<const char*>(std::memchr(p, '\n', static_cast<size_t>(end - p)));
    if (lf == nullptr) break;
    p = lf + 1;
    ++lines;
  }
  return p;
}

// Counts whole lines straight out of the stream's read buffer, without handing them out one by one: the
// lines that end inside the buffer and need no check of their own. It stops before a line that needs one
// and before a line that runs past the buffer; mime_get_line reads those. A line that ends inside the
// 4096-byte buffer is never split into pieces, so the counts are those of a line-by-line reading.
void count_buffered_lines(utils::VFileStream* stream, parse_status* status, bool watching, body_count& count) {
  unsigned avail = 0;
  const char* const start = stream->bufferedData(avail);
  uint32_t lines = 0;
  const char* const run_end = skip_countable_lines(start, start + avail, watching, lines);
  if (lines == 0) return;
  const size_t taken = static_cast<size_t>(run_end - start);
  const char* before_last = static_cast<const char*>(memrchr(start, '\n', taken - 1));
  const char* last = before_last != nullptr ? before_last + 1 : start;
  count.add_last_line(last, static_cast<size_t>(run_end - last));
  count.lines += lines;
  count.bytes += static_cast<uint32_t>(taken);
  stream->skipBuffered(static_cast<unsigned>(taken));
  status->advance(taken);
}

}  // namespace

void parse_uuencoded(mail_struct* part, utils::VFileStream* stream, parse_status* status) {
  int state = starts_uuencode_watch(part) ? UU_WATCHING : UU_OFF;
  // Counted locally and added once: this is the hottest path of a store scan. Lines that can change
  // nothing are counted a buffer-load at a time; the others go through the line reader and the states.
  body_count count;
  for (;;) {
    if (state != UU_IN_BLOCK) count_buffered_lines(stream, status, state == UU_WATCHING, count);
    if (!mime_get_line(stream, status, nullptr)) break;
    const char* line = status->line;
    const size_t len = status->line_len;
    ++count.lines;
    count.bytes += static_cast<uint32_t>(len);
    count.add_last_line(line, len);

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
    count.term_len = 0;
  } else {
    // The line end of the last body line belongs to the boundary line; an empty last line goes with it.
    count.bytes -= static_cast<uint32_t>(count.term_len);
    if (count.last_line_empty) --count.lines;
  }
  status->trailing_term_len = count.term_len;
  part->body_bytes += count.bytes;
  part->total_bytes += count.bytes;
  part->body_lines += count.lines;
  part->total_lines += count.lines;
  if (state == UU_DONE) part->uuencoded = 1;
}

}  // namespace mime
}  // namespace vorlane
