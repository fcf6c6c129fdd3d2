#include "mime/parse_status.h"

#include <cstring>

namespace vorlane {
namespace mime {

void parse_status::push_boundary(const char* boundary) {
  top = new boundary_node{boundary, std::strlen(boundary), top};
  ++boundary_count;
}

void parse_status::pop_boundary() {
  if (top == nullptr) return;
  boundary_node* old = top;
  top = old->next;
  delete old;
  --boundary_count;
}

void parse_status::reset() {
  clear_boundaries();
  boundary_line_len = 0;
  end_flag = 0;
  boundary_hit = 0;
  header[0] = '\0';
  line = nullptr;
  line_len = 0;
  trailing_term_len = 0;
  position = -1;
  part_count = 0;
  stop = nullptr;
  pool = nullptr;
  poll_countdown = MIME_STOP_POLL_LINES;
  outcome = parse_outcome::parsed;
}

void parse_status::clear_boundaries() {
  while (top != nullptr) pop_boundary();
  boundary_count = 0;
}

}  // namespace mime
}  // namespace vorlane
