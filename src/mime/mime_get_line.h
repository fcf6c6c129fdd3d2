// Reads the next line of a message into the parse status and tells ordinary lines from boundary lines.
// The line is a view (status->line, status->line_len, not terminated) that stays valid until the next read
// from the stream; it is copied only when it crosses the stream's refill.
// A line piece is at most MIME_LINE_MAX - 1 bytes; a longer line arrives in pieces, each counting as a line.
// A boundary line of any open multipart (an opening "--b" or a closing "--b--", each followed only by a
// line end or nothing) pops every boundary nested inside it, so an outer boundary also ends the inner parts.
// Not thread-safe: works on one stream and one status.
#pragma once

#include "mime/parse_status.h"
#include "utils/vstream.h"

namespace vorlane {
namespace mime {

namespace impl {

// End of input: empties the boundary stack and records that no boundary was hit. Returns false.
bool mime_end_of_input(parse_status* status);
// Runs when the poll countdown is out: true when the parse is to end now (a stop was requested or the
// parse already failed); from then on every read looks like the end of input, so every level winds up.
bool mime_poll(parse_status* status);
// Matches the current line, which starts with "--", against the open boundaries (skipping
// `own_boundary`); on a match records the boundary line, pops the inner boundaries and returns true.
bool mime_match_boundary(parse_status* status, const char* own_boundary);

}  // namespace impl

// True for an ordinary line, false for a boundary line (boundary_hit 1) or end of input (boundary_hit 0,
// stack emptied; also once a stop request was seen). `own_boundary`, when not null, is skipped on the stack: a multipart recognises its own
// first boundary by hand before pushing it.
// Inline because it runs once per line of every message: only lines starting with "--" while a
// multipart is open go on to the boundary search.
inline bool mime_get_line(utils::VFileStream* stream, parse_status* status, const char* own_boundary) {
  if (--status->poll_countdown == 0 && impl::mime_poll(status)) return impl::mime_end_of_input(status);
  unsigned len = 0;
  const char* line = stream->getstrView(status->line_buf, sizeof status->line_buf, len);
  status->line = line;
  status->line_len = len;
  status->advance(len);
  if (len == 0) return impl::mime_end_of_input(status);
  if (status->top == nullptr || len < 2 || line[0] != '-' || line[1] != '-') return true;
  return !impl::mime_match_boundary(status, own_boundary);
}

}  // namespace mime
}  // namespace vorlane
