// Reads a generated message back with the server's own MIME parser and names the generator shape its tree
// of content types stands for, so the generator's tests check structure without a second MIME reader.
// Stateless; thread-safe.
#pragma once

#include <strings.h>

#include <memory>
#include <sstream>
#include <string>

#include "mime/mail_struct.h"
#include "mkstore/message_shape.h"
#include "utils/vstd_istream.h"

namespace vorlane {
namespace testing {

// "type/subtype", then the children in parentheses: "multipart/mixed(text/plain,message/rfc822(text/plain))".
inline std::string typeTree(const mime::mail_struct* node) {
  std::string tree = std::string(node->content_type.get()) + "/" + node->content_subtype.get();
  for (const mime::mail_struct* c = node->first_child; c != nullptr; c = c->next_sibling) {
    tree += (c == node->first_child ? "(" : ",") + typeTree(c) + (c->next_sibling ? "" : ")");
  }
  return tree;
}

// Every multipart of the tree is closed by exactly one closing delimiter line in `text`.
inline bool closesEveryMultipart(const mime::mail_struct* node, const std::string& text) {
  for (; node != nullptr; node = node->next_sibling) {
    if (strcasecmp(node->content_type.get(), "multipart") == 0) {
      const char* boundary = node->content_params.get("boundary");
      if (boundary == nullptr) return false;
      const std::string close = "\n--" + std::string(boundary) + "--";
      const size_t at = text.find(close);
      if (at == std::string::npos || text.find(close, at + 1) != std::string::npos) return false;
    }
    if (!closesEveryMultipart(node->first_child, text)) return false;
  }
  return true;
}

// True when `text` matches `pattern`, where '*' stands for any run of characters without parentheses (a
// list of leaves) and '%' for any run at all (a whole subtree).
inline bool matchesTree(const char* pattern, const char* text) {
  if (*pattern == '*' || *pattern == '%') {
    for (const char* t = text;; ++t) {
      if (matchesTree(pattern + 1, t)) return true;
      if (*t == '\0' || (*pattern == '*' && (*t == '(' || *t == ')'))) return false;
    }
  }
  return *pattern == *text && (*pattern == '\0' || matchesTree(pattern + 1, text + 1));
}

// The shape name of a well-formed message (every byte accounted, the header ended by an empty line, every
// multipart closed), "" otherwise.
inline std::string shapeOf(const std::string& text) {
  // In the order of mkstore::MessageShape.
  static const char* const kPatterns[mkstore::kShapeCount] = {
      "text/plain",
      "text/html",
      "multipart/alternative(text/plain,text/html)",
      "multipart/alternative(text/plain,text/html,text/rtf)",
      "multipart/alternative(text/plain,multipart/related(text/html,image/*))",
      "multipart/mixed(text/plain,*)",
      "multipart/mixed(multipart/alternative(*),*)",
      "multipart/mixed(text/html,*)",
      "multipart/mixed(text/plain,message/rfc822(%))",
      "multipart/signed(%,application/*-signature)",
      "multipart/encrypted(application/pgp-encrypted,application/octet-stream)",
      "application/pkcs7-mime",
  };
  std::istringstream in(text);
  utils::VStdIStream stream(&in);
  const std::unique_ptr<mime::mail_struct> root(mime::mail_struct::parse(&stream));
  if (!root || root->total_bytes != text.size() || !closesEveryMultipart(root.get(), text)) return "";
  const size_t headerEnd = root->header_bytes;  // the message header must end with an empty line
  if (text.compare(headerEnd, 1, "\n") != 0 && text.compare(headerEnd, 2, "\r\n") != 0) return "";
  const std::string tree = typeTree(root.get());
  for (size_t s = 0; s < mkstore::kShapeCount; ++s) {
    const mkstore::MessageShape shape = static_cast<mkstore::MessageShape>(s);
    if (matchesTree(kPatterns[s], tree.c_str())) return mkstore::shapeTraits(shape).name;
  }
  return "";
}

}  // namespace testing
}  // namespace vorlane
