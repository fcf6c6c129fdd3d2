// Renders a parsed MIME part tree for people (an indented outline, every text from the message made
// terminal-safe) and for programs (JSON), with every count the parser keeps per part. Only reads the tree.
#pragma once

#include <ostream>

#include "mime/mail_struct.h"
#include "report_json.h"

namespace vorlane {
namespace cli {

// One line per part, children indented by two blanks under their parent:
//   type/subtype [boundary="..."] header B/L body B/L total B/L [uuencoded]
void writeMimeTreeText(std::ostream& out, const mime::mail_struct* root);

// {"type", "subtype", "header_bytes", "header_lines", "body_bytes", "body_lines", "total_bytes",
//  "total_lines", "uuencoded", "children": [...]}; an enclosed message is the only child of its part.
Json mimeTreeJson(const mime::mail_struct* node);

}  // namespace cli
}  // namespace vorlane
