// The part of every MIME structure that reads a header block: it unfolds header lines, hands each complete
// header to the subclass, and counts the raw bytes and lines of the block.
// Counts are 32-bit on purpose (the readers sign-extend them); a header longer than MIME_HEADER_MAX is
// truncated by dropping whole continuation lines. Not thread-safe.
#pragma once

#include <cstdint>

namespace vorlane {
namespace utils {
class VFileStream;
}
namespace mime {

class parse_status;

class common_mail_struct {
 public:
  common_mail_struct() = default;
  common_mail_struct(const common_mail_struct&) = delete;
  common_mail_struct& operator=(const common_mail_struct&) = delete;
  virtual ~common_mail_struct() = default;

  // Receives one complete, unfolded header line (name, colon, value), without its line end.
  virtual void process_header(char* line) = 0;

  // Reads one header block from the stream. True when it ended at its empty line; false when a boundary
  // line or the end of input came first (a header still being unfolded is then not dispatched).
  bool process_headers(utils::VFileStream* stream, parse_status* status);

  uint32_t header_bytes = 0;  // raw header lines, terminators included, without the empty line
  uint32_t header_lines = 0;
  uint32_t total_bytes = 0;   // header and empty line; a parsed part grows it to its whole size
  uint32_t total_lines = 0;

 protected:
  void clear_counts() { header_bytes = header_lines = total_bytes = total_lines = 0; }
  // Cuts an unfolded header line at its first colon, the name kept exactly as written (blanks before the
  // colon stay part of it, so such a name matches no known header), and returns the value behind leading
  // white space; null when there is no colon.
  static char* split_header(char* line);
};

}  // namespace mime
}  // namespace vorlane
