// One MIME part of a parsed message, and the one-pass structure parser that builds the tree of parts.
// The tree hangs by first child (sub-parts of a multipart, or the enclosed message of message/rfc822) and
// next sibling; a node owns its first child and, through it, the whole chain of its children. Bodies are
// never stored or decoded, only counted: header, body and total bytes and lines of every part, with the
// line end before a boundary attributed to the boundary line and the boundary lines to their multipart.
// Limits: nesting depth 200 and MIME_MAX_PARTS parts per message (beyond either the whole parse fails), 64
// nested boundaries (deeper multiparts are read as plain text), line pieces of MIME_LINE_MAX - 1 bytes,
// headers of MIME_HEADER_MAX bytes. A stop flag given to parse is polled every MIME_STOP_POLL_LINES lines.
// Not thread-safe: a tree is built and read by one thread. parse keeps its reading state (about 32 KiB)
// per thread, so parses on different threads do not share anything; a caller that parses message after
// message can hand it a pool (mail_struct_pool.h) to build each tree from the nodes of the last ones.
#pragma once

#include <cstdint>

#include "mime/common_mail_struct.h"
#include "mime/mail_attr.h"
#include "mime/mail_struct_envelope.h"
#include "mime/mail_struct_pool.h"
#include "mime/owned_str.h"
#include "mime/parse_status.h"

namespace vorlane {
namespace utils {
class VFileStream;
}
namespace mime {

constexpr int MIME_MAX_DEPTH = 200;
constexpr int MIME_MAX_BOUNDARY_LEVEL = 64;
// Parts of one message's tree. A part costs about 850 bytes with its strings, so a tree stays under
// 8.5 MB; real mail has a few hundred parts at most.
constexpr size_t MIME_MAX_PARTS = 10000;

class mail_struct : public common_mail_struct {
 public:
  mail_struct() = default;
  ~mail_struct() override;

  // Parses the message at the stream's current position: a tree the caller owns and deletes, or null when
  // the structure nests deeper than MIME_MAX_DEPTH, has more than MIME_MAX_PARTS parts, or `stop` (may be
  // null; polled with a relaxed load every few thousand lines) was set. `outcome`, when given, says which.
  // With a `pool` the nodes come from it (a tree may still be deleted, or given back to the pool).
  static mail_struct* parse(utils::VFileStream* stream, const std::atomic<bool>* stop = nullptr,
                            parse_outcome* outcome = nullptr, mail_struct_pool* pool = nullptr);
  // Parses one part from the stream's current position; null when it (or a part inside it) failed.
  static mail_struct* do_parse(utils::VFileStream* stream, parse_status* status, int depth, int boundary_level);

  // Content headers stay on the node; every other header (and a copy of Content-Type) goes to the envelope.
  void process_header(char* line) override;

  // True when type and subtype equal the arguments case-insensitively (a null field never matches).
  bool is(const char* type, const char* subtype) const;
  // Depth first (this node, its first child's subtree, then the next sibling): the first part of that type.
  const mail_struct* find_content(const char* type, const char* subtype) const;
  // The disposition's "filename", else the content type's "name", else null.
  const char* find_filename() const;
  // True when this node, a descendant or a following sibling holds a complete uuencoded block.
  bool has_uuencoded_part() const;

  owned_str content_type;
  owned_str content_subtype;
  mail_attr_list content_params;
  owned_str encoding;  // Content-Transfer-Encoding, cut at its first blank
  owned_str content_id;
  owned_str content_description;
  owned_str content_md5;
  owned_str content_location;
  owned_str content_class;
  owned_str disposition;  // Content-Disposition up to the first blank or ';'
  mail_attr_list disposition_params;
  uint8_t uuencoded = 0;
  long long start_pos = 0;   // stream position of the first header byte
  long long body_pos = 0;    // stream position just after the header's empty line
  uint32_t body_bytes = 0;
  uint32_t body_lines = 0;
  long long header_pos = 0;  // same as start_pos
  mail_struct_envelope envelope;
  mail_struct* first_child = nullptr;   // owned
  mail_struct* next_sibling = nullptr;  // owned by the parent's child chain

 private:
  friend class mail_struct_pool;
  // Unhooks the node from its children and siblings (which are not deleted).
  void detach() { first_child = next_sibling = last_child_ = nullptr; }
  // Back to the state of a new, detached node; string and parameter buffers of at most `keep_bytes` stay.
  void clear(size_t keep_bytes);
  // Degrades the node to text/plain with the single parameter charset=us-ascii.
  void make_plain_text();
  void append_child(mail_struct* child);
  void add_to_body(uint32_t bytes, uint32_t lines);
  // The multipart and message/rfc822 steps of do_parse.
  enum class multipart_result { complete, degraded, failed };
  multipart_result parse_multipart(utils::VFileStream* stream, parse_status* status, int depth,
                                   int boundary_level, const char* boundary);
  bool parse_enclosed_message(utils::VFileStream* stream, parse_status* status, int depth, int boundary_level);

  mail_struct* last_child_ = nullptr;  // end of the child chain, so that appending stays O(1)
};

}  // namespace mime
}  // namespace vorlane
