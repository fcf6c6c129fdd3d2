#include "mime_tree_output.h"

#include <string>

#include "terminal_text.h"

namespace vorlane {
namespace cli {

namespace {

const char* orEmpty(const char* text) { return text != nullptr ? text : ""; }

void writeTextNode(std::ostream& out, const mime::mail_struct* node, int depth) {
  out << std::string(2 * depth, ' ') << terminalSafe(orEmpty(node->content_type.get())) << '/'
      << terminalSafe(orEmpty(node->content_subtype.get()));
  const char* boundary = node->content_params.get("boundary");
  if (boundary != nullptr && node->first_child != nullptr) out << " boundary=\"" << terminalSafe(boundary) << '"';
  out << " header " << node->header_bytes << "B/" << node->header_lines << "L"
      << " body " << node->body_bytes << "B/" << node->body_lines << "L"
      << " total " << node->total_bytes << "B/" << node->total_lines << "L";
  if (node->uuencoded != 0) out << " uuencoded";
  out << '\n';
  for (const mime::mail_struct* child = node->first_child; child != nullptr; child = child->next_sibling) {
    writeTextNode(out, child, depth + 1);
  }
}

}  // namespace

void writeMimeTreeText(std::ostream& out, const mime::mail_struct* root) { writeTextNode(out, root, 0); }

Json mimeTreeJson(const mime::mail_struct* node) {
  Json j;
  j["type"] = orEmpty(node->content_type.get());
  j["subtype"] = orEmpty(node->content_subtype.get());
  j["header_bytes"] = node->header_bytes;
  j["header_lines"] = node->header_lines;
  j["body_bytes"] = node->body_bytes;
  j["body_lines"] = node->body_lines;
  j["total_bytes"] = node->total_bytes;
  j["total_lines"] = node->total_lines;
  j["uuencoded"] = node->uuencoded != 0;
  j["children"] = Json::array();
  for (const mime::mail_struct* child = node->first_child; child != nullptr; child = child->next_sibling) {
    j["children"].push_back(mimeTreeJson(child));
  }
  return j;
}

}  // namespace cli
}  // namespace vorlane
