#include "mime/common_mail_struct.h"

#include <cstring>

#include "mime/mime_get_line.h"
#include "mime/mime_text.h"
#include "mime/parse_status.h"

namespace vorlane {
namespace mime {

char* common_mail_struct::split_header(char* line) {
  char* colon = std::strchr(line, ':');
  if (colon == nullptr) return nullptr;
  // The name is cut at the colon as it stands: "Content-Type :" names no content header.
  *colon = '\0';
  char* value = colon + 1;
  while (ascii_space(*value)) ++value;
  return value;
}

bool common_mail_struct::process_headers(utils::VFileStream* stream, parse_status* status) {
  size_t accumulated = 0;
  status->header[0] = '\0';
  while (mime_get_line(stream, status, nullptr)) {
    const char* line = status->line;
    size_t len = status->line_len;
    if (line[0] != ' ' && line[0] != '\t') {
      status->header[accumulated] = '\0';
      if (accumulated > 0) process_header(status->header);
      accumulated = 0;
    }
    ++total_lines;
    total_bytes += static_cast<uint32_t>(len);
    if (line[0] == '\r' || line[0] == '\n') return true;

    ++header_lines;
    header_bytes += static_cast<uint32_t>(len);
    if (len > 0 && line[len - 1] == '\n') --len;
    if (len > 0 && line[len - 1] == '\r') --len;
    // Whole continuation lines are dropped once the header would overflow: a truncated header is still a
    // well-formed one, while a line cut in the middle could split a parameter.
    if (accumulated + len < MIME_HEADER_MAX) {
      std::memcpy(status->header + accumulated, line, len);
      accumulated += len;
    }
  }
  return false;
}

}  // namespace mime
}  // namespace vorlane
