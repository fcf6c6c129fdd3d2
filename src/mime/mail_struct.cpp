#include "mime/mail_struct.h"

#include <cstring>
#include <memory>
#include <new>

#include "mime/mime_get_line.h"
#include "mime/mime_text.h"
#include "mime/parse_status.h"
#include "mime/parse_uuencoded.h"
#include "utils/vstream.h"

namespace vorlane {
namespace mime {

namespace {

// Length of the leading token of a header value: up to white space, or also ';' when `stop_at_semicolon`.
size_t token_length(const char* value, bool stop_at_semicolon) {
  size_t len = 0;
  while (value[len] != '\0' && !ascii_space(value[len]) &&
         !(stop_at_semicolon && value[len] == ';')) {
    ++len;
  }
  return len;
}

bool starts_with_boundary(const parse_status& status, const char* boundary, size_t boundary_len) {
  return status.line_len >= 2 + boundary_len && status.line[0] == '-' && status.line[1] == '-' &&
         std::memcmp(status.line + 2, boundary, boundary_len) == 0;
}

}  // namespace

mail_struct::~mail_struct() {
  mail_struct* child = first_child;
  while (child != nullptr) {
    mail_struct* next = child->next_sibling;
    delete child;
    child = next;
  }
}

void mail_struct::clear(size_t keep_bytes) {
  clear_counts();
  owned_str* const strings[] = {&content_type, &content_subtype,  &encoding,      &content_id, &content_description,
                                &content_md5,  &content_location, &content_class, &disposition};
  for (owned_str* s : strings) s->trim(keep_bytes);
  content_params.trim(keep_bytes);
  disposition_params.trim(keep_bytes);
  uuencoded = 0;
  start_pos = 0;
  body_pos = 0;
  body_bytes = 0;
  body_lines = 0;
  header_pos = 0;
  envelope.clear(keep_bytes);
  detach();
}

void mail_struct::process_header(char* line) {
  char* value = split_header(line);
  if (value == nullptr) return;
  const char* name = line;
  // The part keeps only "Content-" headers; the letter after the prefix picks the candidates.
  const bool content = starts_with_nocase(name, "Content-");
  switch (content ? ascii_lower(name[8]) : '\0') {
    case 't':
      if (equals_nocase(name, "Content-Transfer-Encoding")) {
        encoding.assign(value, token_length(value, false));
        return;
      }
      if (equals_nocase(name, "Content-Type")) {
        envelope.set_parameter(name, value);
        content_type.assign(envelope.content_type.get());
        content_subtype.assign(envelope.content_subtype.get());
        content_params = envelope.content_params;
        return;
      }
      break;
    case 'd':
      if (equals_nocase(name, "Content-Disposition")) {
        disposition.assign(value, token_length(value, true));
        disposition_params.clear();
        disposition_params.parse(value);
        return;
      }
      if (equals_nocase(name, "Content-Description")) {
        content_description.assign(value);
        return;
      }
      break;
    case 'i':
      if (equals_nocase(name, "Content-ID")) {
        content_id.assign(value);
        return;
      }
      break;
    case 'm':
      if (equals_nocase(name, "Content-MD5")) {
        content_md5.assign(value);
        return;
      }
      break;
    case 'l':
      if (equals_nocase(name, "Content-Location")) {
        content_location.assign(value);
        return;
      }
      break;
    case 'c':
      if (equals_nocase(name, "Content-Class")) {
        content_class.assign(value);
        return;
      }
      break;
    default:
      break;
  }
  envelope.set_parameter(name, value);
}

bool mail_struct::is(const char* type, const char* subtype) const {
  return equals_nocase(content_type.get(), type) && equals_nocase(content_subtype.get(), subtype);
}

const mail_struct* mail_struct::find_content(const char* type, const char* subtype) const {
  for (const mail_struct* node = this; node != nullptr; node = node->next_sibling) {
    if (node->is(type, subtype)) return node;
    if (node->first_child != nullptr) {
      const mail_struct* found = node->first_child->find_content(type, subtype);
      if (found != nullptr) return found;
    }
  }
  return nullptr;
}

const char* mail_struct::find_filename() const {
  const char* name = disposition_params.get("filename");
  return name != nullptr ? name : content_params.get("name");
}

bool mail_struct::has_uuencoded_part() const {
  for (const mail_struct* node = this; node != nullptr; node = node->next_sibling) {
    if (node->uuencoded != 0) return true;
    if (node->first_child != nullptr && node->first_child->has_uuencoded_part()) return true;
  }
  return false;
}

void mail_struct::make_plain_text() {
  content_type.assign("text");
  content_subtype.assign("plain");
  content_params.clear();
  content_params.add("charset", "us-ascii");
}

void mail_struct::append_child(mail_struct* child) {
  if (last_child_ == nullptr) {
    first_child = child;
  } else {
    last_child_->next_sibling = child;
  }
  last_child_ = child;
}

void mail_struct::add_to_body(uint32_t bytes, uint32_t lines) {
  body_bytes += bytes;
  total_bytes += bytes;
  body_lines += lines;
  total_lines += lines;
}

mail_struct* mail_struct::parse(utils::VFileStream* stream, const std::atomic<bool>* stop, parse_outcome* outcome,
                               mail_struct_pool* pool) {
  // The status holds two 16 KiB buffers: it goes to the heap so that a reader thread with a small stack is
  // safe, once per thread, and is reset for every message, so a walk over many messages does not allocate
  // and release 32 KiB for each.
  thread_local std::unique_ptr<parse_status> status;
  if (status) {
    status->reset();
  } else {
    status.reset(new parse_status);
  }
  status->stop = stop;
  status->pool = pool;
  std::unique_ptr<mail_struct> tree(do_parse(stream, status.get(), 0, 0));
  if (outcome != nullptr) *outcome = status->outcome;
  status->stop = nullptr;
  status->pool = nullptr;
  return status->outcome == parse_outcome::parsed ? tree.release() : nullptr;
}

mail_struct* mail_struct::do_parse(utils::VFileStream* stream, parse_status* status, int depth,
                                   int boundary_level) {
  if (depth > MIME_MAX_DEPTH) {
    status->fail(parse_outcome::too_deep);
    return nullptr;
  }
  if (++status->part_count > MIME_MAX_PARTS) {
    status->fail(parse_outcome::too_many_parts);
    return nullptr;
  }
  std::unique_ptr<mail_struct> node(status->pool != nullptr ? status->pool->take() : new mail_struct);
  // Every byte the parse takes goes through mime_get_line, which keeps the position: the stream is asked
  // once per message, not twice per part.
  if (status->position < 0) status->position = stream->tell64();
  node->start_pos = status->position;
  node->header_pos = node->start_pos;
  status->trailing_term_len = 0;

  const bool header_complete = node->process_headers(stream, status);
  if (!node->content_type) node->content_type.assign("text");
  if (!node->content_subtype) node->content_subtype.assign("plain");
  if (equals_nocase(node->content_type.get(), "text") && node->content_params.get("charset") == nullptr) {
    node->content_params.add("charset", "us-ascii");
  }
  if (!node->encoding) node->encoding.assign("7bit");
  node->envelope.normalize_priority();
  node->body_pos = status->position < 0 ? stream->tell64() : status->position;

  if (!header_complete) {
    node->make_plain_text();
    return node.release();
  }

  if (equals_nocase(node->content_type.get(), "multipart")) {
    const char* boundary = node->content_params.get("boundary");
    if (boundary != nullptr && boundary_level <= MIME_MAX_BOUNDARY_LEVEL) {
      switch (node->parse_multipart(stream, status, depth, boundary_level, boundary)) {
        case multipart_result::complete:
          return node.release();
        case multipart_result::failed:
          return nullptr;
        case multipart_result::degraded:
          // The first boundary never came. The part is read on as a plain leaf past the line that ended
          // the preamble: an enclosing part's boundary line is then counted by no part at all.
          break;
      }
    }
    node->make_plain_text();
  } else if (node->is("message", "rfc822") && !equals_nocase(node->encoding.get(), "base64") &&
             !equals_nocase(node->encoding.get(), "quoted-printable")) {
    return node->parse_enclosed_message(stream, status, depth, boundary_level) ? node.release() : nullptr;
  }

  parse_uuencoded(node.get(), stream, status);
  return node.release();
}

mail_struct::multipart_result mail_struct::parse_multipart(utils::VFileStream* stream, parse_status* status,
                                                           int depth, int boundary_level,
                                                           const char* boundary) {
  // The preamble runs up to and including this part's first boundary line, recognised here because the
  // boundary is not on the stack yet.
  const size_t boundary_len = std::strlen(boundary);
  for (;;) {
    if (!mime_get_line(stream, status, boundary)) return multipart_result::degraded;
    add_to_body(static_cast<uint32_t>(status->line_len), 1);
    if (starts_with_boundary(*status, boundary, boundary_len)) break;
  }
  status->push_boundary(boundary);

  for (;;) {
    mail_struct* child = do_parse(stream, status, depth + 1, boundary_level + 1);
    if (child == nullptr) {
      // Nodes are about to be deleted: no boundary string of theirs may stay on the stack.
      while (status->boundary_count > boundary_level) status->pop_boundary();
      return multipart_result::failed;
    }
    add_to_body(child->total_bytes, child->total_lines);
    append_child(child);

    const int level = status->end_flag == 0 ? boundary_level + 1 : boundary_level;
    if (status->boundary_count == level) {
      // This part's own boundary line, with the line end of the body before it.
      add_to_body(static_cast<uint32_t>(status->trailing_term_len + status->boundary_line_len),
                  static_cast<uint32_t>(status->boundary_hit));
      status->trailing_term_len = 0;
    }
    if (status->boundary_count < level) return multipart_result::complete;  // an outer boundary ended it
    if (status->end_flag == 1 && status->boundary_count == boundary_level) {
      while (mime_get_line(stream, status, nullptr)) add_to_body(static_cast<uint32_t>(status->line_len), 1);
      return multipart_result::complete;
    }
    if (status->end_flag == 0 && status->boundary_count == boundary_level + 1) continue;
    while (status->boundary_count > boundary_level) status->pop_boundary();
    return multipart_result::failed;
  }
}

bool mail_struct::parse_enclosed_message(utils::VFileStream* stream, parse_status* status, int depth,
                                         int boundary_level) {
  mail_struct* child = do_parse(stream, status, depth + 1, boundary_level);
  if (child == nullptr) return false;
  total_bytes += child->total_bytes;
  total_lines += child->total_lines;
  body_bytes = child->total_bytes;
  body_lines = child->total_lines;
  append_child(child);
  return true;
}

}  // namespace mime
}  // namespace vorlane
