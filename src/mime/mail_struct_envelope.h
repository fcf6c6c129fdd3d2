// The message-level headers of one MIME part: addresses, subject, date, priority, the content type, and
// whether the part looks like it carries an attachment. Also a header-only probe (`parse`) that decides the
// has-attachment flag of a whole message without building its part tree.
// Strings are owned copies. Address headers are kept as written and parsed into mail_addr chains only
// when asked (the store scan never asks), so a message pays for its address lists only where they are
// read. Not thread-safe.
#pragma once

#include <memory>

#include "mime/common_mail_struct.h"
#include "mime/mail_addr.h"
#include "mime/mail_attr.h"
#include "mime/owned_str.h"

namespace vorlane {
namespace mime {

struct mail_addr_deleter {
  void operator()(mail_addr* addr) const { mail_addr_free(addr); }
};
using mail_addr_list = std::unique_ptr<mail_addr, mail_addr_deleter>;

class mail_struct_envelope : public common_mail_struct {
 public:
  enum importance_level { IMPORTANCE_ABSENT = 0, IMPORTANCE_LOW = 1, IMPORTANCE_NORMAL = 2, IMPORTANCE_HIGH = 3 };
  enum address_header { ADDR_FROM, ADDR_SENDER, ADDR_REPLY_TO, ADDR_TO, ADDR_CC, ADDR_BCC, ADDR_HEADER_COUNT };

  ~mail_struct_envelope() override = default;

  // Splits the line at its first colon and hands name and value to set_parameter.
  void process_header(char* line) override;
  // Stores one header by its (case-insensitive) name; names the envelope does not keep are ignored.
  void set_parameter(const char* name, const char* value);
  // Replaces type, subtype and parameters by those of a Content-Type value (null: empty type and subtype).
  void parse_content_type(const char* value);
  // Forces the priority into 1..5; anything else becomes the normal priority 3.
  void normalize_priority();
  // Back to the state of a new envelope; string and parameter buffers of at most `keep_bytes` stay.
  void clear(size_t keep_bytes);

  // The address list of one header, parsed from its kept text now; null when the header is absent or holds
  // no address. The caller owns the list.
  mail_addr_list addresses(address_header which) const;

  // Reads one header block from the stream's current position; for a multipart, walks its sub-parts to
  // decide the has-attachment flag. Null only when out of memory.
  static std::unique_ptr<mail_struct_envelope> parse(utils::VFileStream* stream);

  owned_str date;
  owned_str subject;
  owned_str in_reply_to;
  owned_str message_id;
  owned_str message_context;
  int priority = 3;
  int has_attachment = 0;
  owned_str address_text[ADDR_HEADER_COUNT];  // From, Sender, Reply-To, To, Cc, Bcc as written
  owned_str newsgroups;
  owned_str disposition_notification_to;
  owned_str content_type;
  owned_str content_subtype;
  mail_attr_list content_params;
  long x_priority = 0;
  int importance = IMPORTANCE_ABSENT;

 private:
  // Walks the sub-parts of a multipart whose header was just read; sets has_attachment when one of them
  // is not text. Returns the flag.
  int find_attachments(utils::VFileStream* stream, parse_status* status, const char* boundary);
};

}  // namespace mime
}  // namespace vorlane
