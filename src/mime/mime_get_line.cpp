#include "mime/mime_get_line.h"

#include <strings.h>

#include <cstring>

#include "mime/parse_status.h"
#include "utils/vstream.h"

namespace vorlane {
namespace mime {
namespace impl {

namespace {

enum class boundary_kind { none, opening, closing };

// What follows the boundary text decides: a line end or nothing opens a part, "--" and then a line end or
// nothing closes the multipart; anything else (blanks included) is body text that merely starts alike.
boundary_kind classify_tail(const char* tail, size_t len) {
  auto is_line_end = [](const char* p, size_t n) {
    return n == 0 || (n == 1 && (p[0] == '\n' || p[0] == '\r')) || (n == 2 && p[0] == '\r' && p[1] == '\n');
  };
  if (is_line_end(tail, len)) return boundary_kind::opening;
  if (len >= 2 && tail[0] == '-' && tail[1] == '-' && is_line_end(tail + 2, len - 2)) {
    return boundary_kind::closing;
  }
  return boundary_kind::none;
}

}  // namespace

bool mime_end_of_input(parse_status* status) {
  status->clear_boundaries();
  status->boundary_line_len = 0;
  status->end_flag = 1;
  status->boundary_hit = 0;
  return false;
}

bool mime_poll(parse_status* status) {
  if (status->stop != nullptr && status->stop->load(std::memory_order_relaxed)) {
    status->fail(parse_outcome::stopped);
  }
  if (status->outcome != parse_outcome::parsed) {
    status->poll_countdown = 1;
    return true;
  }
  status->poll_countdown = MIME_STOP_POLL_LINES;
  return false;
}

bool mime_match_boundary(parse_status* status, const char* own_boundary) {
  const char* line = status->line;
  const size_t len = status->line_len;
  for (boundary_node* node = status->top; node != nullptr; node = node->next) {
    if (own_boundary != nullptr && strcasecmp(node->boundary, own_boundary) == 0) continue;
    if (len - 2 < node->length || std::memcmp(line + 2, node->boundary, node->length) != 0) continue;
    const size_t tail_at = 2 + node->length;
    const boundary_kind kind = classify_tail(line + tail_at, len - tail_at);
    if (kind == boundary_kind::none) continue;

    boundary_node* new_top = kind == boundary_kind::opening ? node : node->next;
    status->end_flag = kind == boundary_kind::closing ? 1 : 0;
    status->boundary_line_len = len;
    status->boundary_hit = 1;
    while (status->top != new_top) status->pop_boundary();
    return true;
  }
  return false;
}

}  // namespace impl
}  // namespace mime
}  // namespace vorlane
