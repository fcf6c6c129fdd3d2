// RFC 822 address lists of the envelope headers (From, To, Cc, ...) as a chain of mail_addr entries.
// Understands display names, quoted strings, comments, angle addresses with source routes and groups
// ("name: a, b;", whose members are listed and whose name is dropped). Garbage never crashes: what cannot
// be read as an address is skipped up to the next ','. Display names are kept as written (encoded words
// are not decoded here; callers that show them use decodeHeaderText).
// Limits: at most 1000 addresses per list, every field cut to 1023 bytes.
// Pure functions; a chain belongs to the caller.
#pragma once

namespace vorlane {
namespace mime {

struct mail_addr {
  char* personal;  // display name or, failing that, the text of a trailing comment; null when none
  char* mailbox;   // local part, never null
  char* host;      // domain, null when the address has no '@'
  mail_addr* next;
};

// Parses a header value into a new chain; null when it holds no address. Each entry is one malloc block
// that also holds its strings: entries are released only through mail_addr_free, never field by field.
mail_addr* mail_addr_parse(const char* value);
// Frees a whole chain; null is allowed.
void mail_addr_free(mail_addr* addr);

}  // namespace mime
}  // namespace vorlane
