// Reads the body of a leaf part up to the next boundary or the end of input, counting its bytes and lines
// and watching plain-text and uuencode-encoded bodies for a complete uuencoded block (begin line, data lines
// of consistent length, end line), which sets the part's uuencoded flag.
// The line end of the last body line belongs to the boundary that follows: it is taken off the part and
// left in the parse status for the multipart that owns the boundary.
// Lines that can change nothing (they cannot be a boundary or a begin line) are counted a buffer-load at a
// time straight from the stream's read buffer; the counts are those of reading line by line. Not
// thread-safe.
#pragma once

namespace vorlane {
namespace utils {
class VFileStream;
}
namespace mime {

class mail_struct;
class parse_status;

void parse_uuencoded(mail_struct* part, utils::VFileStream* stream, parse_status* status);

}  // namespace mime
}  // namespace vorlane
