#include "mime/mail_struct_envelope.h"

#include <cstdlib>
#include <cstring>

#include "mime/mime_get_line.h"
#include "mime/mime_text.h"
#include "mime/parse_status.h"

namespace vorlane {
namespace mime {

namespace {

// Comments in parentheses (nested, with backslash quoting) carry no date information and vary between
// mailers; dropping them makes dates comparable. Trailing blanks left behind are trimmed. `out` has room
// for the whole value; the result is terminated.
void strip_comments(const char* value, char* out) {
  size_t len = 0;
  int depth = 0;
  for (const char* p = value; *p != '\0'; ++p) {
    if (*p == '\\' && depth > 0 && p[1] != '\0') {
      ++p;
    } else if (*p == '(') {
      ++depth;
    } else if (*p == ')' && depth > 0) {
      --depth;
    } else if (depth == 0) {
      out[len++] = *p;
    }
  }
  while (len > 0 && ascii_space(out[len - 1])) --len;
  out[len] = '\0';
}

// Alternatives nested deeper than this are not followed by the attachment probe.
constexpr int MAX_PROBE_BOUNDARIES = 64;

}  // namespace

void mail_struct_envelope::process_header(char* line) {
  const char* value = split_header(line);
  if (value != nullptr) set_parameter(line, value);
}

mail_addr_list mail_struct_envelope::addresses(address_header which) const {
  const char* text = address_text[which].get();
  return mail_addr_list(text != nullptr ? mail_addr_parse(text) : nullptr);
}

void mail_struct_envelope::parse_content_type(const char* value) {
  content_type.reset();
  content_subtype.reset();
  content_params.clear();
  if (value == nullptr) {
    content_type.assign("");
    content_subtype.assign("");
    return;
  }
  size_t token_len = 0;
  while (value[token_len] != '\0' && value[token_len] != ';' &&
         !ascii_space(value[token_len])) {
    ++token_len;
  }
  const void* slash = std::memchr(value, '/', token_len);
  if (slash == nullptr) {
    content_type.assign(value, token_len);
    content_subtype.assign("");
  } else {
    const size_t type_len = static_cast<const char*>(slash) - value;
    content_type.assign(value, type_len);
    content_subtype.assign(value + type_len + 1, token_len - type_len - 1);
  }
  content_params.parse(value);
}

void mail_struct_envelope::set_parameter(const char* name, const char* value) {
  // Every header of every part comes through here: the first letter picks the one or two names it can be,
  // so most headers (Received, X-Mailer, ...) are dismissed without a single string comparison.
  switch (ascii_lower(name[0])) {
    case 'b':
      if (equals_nocase(name, "Bcc")) address_text[ADDR_BCC].assign(value);
      break;
    case 'c':
      if (equals_nocase(name, "Content-Type")) {
        parse_content_type(value);
        if (!starts_with_nocase(value, "text/") && !starts_with_nocase(value, "multipart/alternative")) {
          has_attachment = 1;
        }
      } else if (equals_nocase(name, "Cc")) {
        address_text[ADDR_CC].assign(value);
      }
      break;
    case 'd':
      if (equals_nocase(name, "Date")) {
        char* stripped = date.prepare(std::strlen(value));
        if (stripped != nullptr) strip_comments(value, stripped);
      } else if (equals_nocase(name, "Disposition-Notification-To")) {
        disposition_notification_to.assign(value);
      }
      break;
    case 'f':
      if (equals_nocase(name, "From")) address_text[ADDR_FROM].assign(value);
      break;
    case 'i':
      if (equals_nocase(name, "Importance")) {
        if (starts_with_nocase(value, "low")) {
          importance = IMPORTANCE_LOW;
        } else if (starts_with_nocase(value, "normal")) {
          importance = IMPORTANCE_NORMAL;
        } else if (starts_with_nocase(value, "high")) {
          importance = IMPORTANCE_HIGH;
        }
      } else if (equals_nocase(name, "In-Reply-To")) {
        in_reply_to.assign(value);
      }
      break;
    case 'm':
      if (equals_nocase(name, "Message-ID")) {
        message_id.assign(value);
      } else if (equals_nocase(name, "Message-Context")) {
        message_context.assign(value);
      }
      break;
    case 'n':
      if (equals_nocase(name, "Newsgroups")) newsgroups.assign(value);
      break;
    case 'r':
      if (equals_nocase(name, "Reply-To")) address_text[ADDR_REPLY_TO].assign(value);
      break;
    case 's':
      if (equals_nocase(name, "Sender")) {
        address_text[ADDR_SENDER].assign(value);
      } else if (equals_nocase(name, "Subject")) {
        subject.assign(value);
      }
      break;
    case 't':
      if (equals_nocase(name, "To")) address_text[ADDR_TO].assign(value);
      break;
    case 'x':
      if (equals_nocase(name, "X-Priority")) x_priority = std::strtol(value, nullptr, 10);
      break;
    default:
      break;
  }
}

void mail_struct_envelope::clear(size_t keep_bytes) {
  clear_counts();
  owned_str* const strings[] = {&date,       &subject,    &in_reply_to,
                                &message_id, &message_context, &newsgroups,
                                &disposition_notification_to, &content_type, &content_subtype};
  for (owned_str* s : strings) s->trim(keep_bytes);
  for (owned_str& s : address_text) s.trim(keep_bytes);
  content_params.trim(keep_bytes);
  priority = 3;
  has_attachment = 0;
  x_priority = 0;
  importance = IMPORTANCE_ABSENT;
}

void mail_struct_envelope::normalize_priority() {
  if (priority < 1 || priority > 5) priority = 3;
}

std::unique_ptr<mail_struct_envelope> mail_struct_envelope::parse(utils::VFileStream* stream) {
  std::unique_ptr<mail_struct_envelope> envelope(new mail_struct_envelope);
  // The status holds two 16 KiB buffers: it goes to the heap, once per message, so that a reader thread
  // with a small stack is safe.
  std::unique_ptr<parse_status> status(new parse_status);
  if (!envelope->process_headers(stream, status.get())) return envelope;
  const char* boundary = envelope->content_params.get("boundary");
  if (equals_nocase(envelope->content_type.get(), "multipart") && boundary != nullptr) {
    // The container's own type says nothing about attachments; its parts decide.
    envelope->has_attachment = 0;
    envelope->find_attachments(stream, status.get(), boundary);
  }
  return envelope;
}

int mail_struct_envelope::find_attachments(utils::VFileStream* stream, parse_status* status,
                                           const char* boundary) {
  const int level = status->boundary_count;
  status->push_boundary(boundary);
  while (mime_get_line(stream, status, nullptr)) {
  }
  // Each round starts just behind an opening boundary of this multipart.
  while (status->boundary_hit == 1 && status->end_flag == 0 && status->boundary_count == level + 1) {
    mail_struct_envelope part;
    if (!part.process_headers(stream, status)) continue;  // the header ran into a boundary: look at it
    const char* type = part.content_type.get();
    const char* sub_boundary = part.content_params.get("boundary");
    if (equals_nocase(type, "multipart") && equals_nocase(part.content_subtype.get(), "alternative") &&
        sub_boundary != nullptr) {
      // Deeper alternatives are skipped like text: hostile nesting must not exhaust the stack.
      if (status->boundary_count < MAX_PROBE_BOUNDARIES) {
        if (part.find_attachments(stream, status, sub_boundary) != 0) {
          has_attachment = 1;
          break;
        }
        // When the alternative closed itself, its epilogue runs up to the next boundary of this
        // multipart; otherwise a boundary of this multipart already ended it.
        if (status->boundary_count == level + 1 && status->boundary_hit == 1 && status->end_flag == 1) {
          while (mime_get_line(stream, status, nullptr)) {
          }
        }
        continue;
      }
    } else if (part.has_attachment != 0 || (type != nullptr && !equals_nocase(type, "text"))) {
      // A part without Content-Type is text/plain by default and no attachment.
      has_attachment = 1;
      break;
    }
    while (mime_get_line(stream, status, nullptr)) {
    }
  }
  // Boundaries pushed below this level belong to parts that are gone; never leave them dangling.
  while (status->boundary_count > level) status->pop_boundary();
  return has_attachment;
}

}  // namespace mime
}  // namespace vorlane
