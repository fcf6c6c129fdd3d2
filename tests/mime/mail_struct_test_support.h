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

inline int childCount(const mail_struct* node) {
  int n = 0;
  for (const mail_struct* c = node->first_child; c != nullptr; c = c->next_sibling) ++n;
  return n;
}

}  // namespace testing
}  // namespace mime
}  // namespace vorlane
