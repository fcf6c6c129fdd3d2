// Reads the next line of a message into the parse status and tells ordinary lines from boundary lines.
// A line is at most MIME_LINE_MAX bytes; a longer one arrives in pieces, each piece counting as a line.
// A boundary line of any open multipart (an opening "--b" or a closing "--b--", each followed only by a
// line end or nothing) pops every boundary nested inside it, so an outer boundary also ends the inner parts.
// Not thread-safe: works on one stream and one status.
#pragma once

namespace vorlane {
namespace utils {
class VFileStream;
}
namespace mime {

class parse_status;

// True for an ordinary line, false for a boundary line (boundary_hit 1) or end of input (boundary_hit 0,
// stack emptied). `own_boundary`, when not null, is skipped on the stack: a multipart recognises its own
// first boundary by hand before pushing it.
bool mime_get_line(utils::VFileStream* stream, parse_status* status, const char* own_boundary);

}  // namespace mime
}  // namespace vorlane
