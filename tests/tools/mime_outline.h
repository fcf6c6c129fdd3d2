// A deliberately small, strict reader of MIME structure for the generator's tests: it checks that headers
// end with an empty line, that every multipart has a boundary, opening delimiters and exactly one closing
// delimiter after its last part, and it returns the tree of content types. It does not share code with the
// generator or with the server's parser.
#pragma once

#include <string>
#include <vector>

namespace vorlane {
namespace testing {

struct MimeOutline {
  std::string type;  // "type/subtype" in lower case; "text/plain" when no Content-Type is given
  std::vector<MimeOutline> children;
};

// Parses `text` as one message; false with `why` set when the structure is not well-formed.
bool outlineMessage(const std::string& text, MimeOutline& outline, std::string& why);

// The generator's shape name for a message outline ("plain", "mixed_alternative" ...), or "" if none fits.
std::string shapeOf(const MimeOutline& outline);

}  // namespace testing
}  // namespace vorlane
