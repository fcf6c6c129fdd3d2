// Helpers for the MIME parser tests: parse a message given as a string, and walk the resulting tree.
#pragma once

#include <memory>
#include <sstream>
#include <string>

#include "mime/mail_struct.h"
#include "utils/vstd_istream.h"

namespace vorlane {
namespace mime {
namespace testing {

inline std::unique_ptr<mail_struct> parseText(const std::string& text) {
  std::istringstream in(text);
  utils::VStdIStream stream(&in);
  return std::unique_ptr<mail_struct>(mail_struct::parse(&stream));
}

inline const mail_struct* childAt(const mail_struct* node, int index) {
  const mail_struct* child = node->first_child;
  while (child != nullptr && index-- > 0) child = child->next_sibling;
  return child;
}

// The tree's shape: T for a leaf, M[...] for a multipart, R[...] for an enclosed message.
inline std::string shapeOf(const mail_struct* node) {
  if (node->first_child == nullptr) return "T";
  std::string shape = node->is("message", "rfc822") ? "R[" : "M[";
  for (const mail_struct* c = node->first_child; c != nullptr; c = c->next_sibling) shape += shapeOf(c);
  return shape + "]";
}

// A body of `lines` lines that start with the bytes the parser's counting fast path must hand back to its
// line reader (possible boundaries and uuencode begin lines).
inline std::string trickyBody(int lines, const char* eol) {
  const char* starts[] = {"-", "--", "--bx", "b", "B", "begin", "plain", ""};
  std::string body;
  for (int i = 0; i < lines; ++i) body += std::string(starts[i % 8]) + std::string(i % 37, 'x') + eol;
  return body;
}

inline int childCount(const mail_struct* node) {
  int n = 0;
  for (const mail_struct* c = node->first_child; c != nullptr; c = c->next_sibling) ++n;
  return n;
}

}  // namespace testing
}  // namespace mime
}  // namespace vorlane
