#include "mime_tree_output.h"

#include <string>

namespace vorlane {
namespace cli {

namespace {

const char* orEmpty(const char* text) { return text != nullptr ? text : ""; }

void writeTextNode(std::ostream& out, const mime::mail_struct* node, int depth) {
  out << std::string(2 * depth, ' ') << orEmpty(node->content_type.get()) << '/'
      << orEmpty(node->content_subtype.get());
  const char* boundary = node->content_params.get("boundary");
  if (boundary != nullptr && node->first_child != nullptr) out << " boundary=" << JsonWriter::quote(boundary);
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

void writeMimeTreeJson(JsonWriter& json, const mime::mail_struct* node) {
  json.beginObject();
  json.key("type").value(orEmpty(node->content_type.get()));
  json.key("subtype").value(orEmpty(node->content_subtype.get()));
  json.key("header_bytes").value(static_cast<long long>(node->header_bytes));
  json.key("header_lines").value(static_cast<long long>(node->header_lines));
  json.key("body_bytes").value(static_cast<long long>(node->body_bytes));
  json.key("body_lines").value(static_cast<long long>(node->body_lines));
  json.key("total_bytes").value(static_cast<long long>(node->total_bytes));
  json.key("total_lines").value(static_cast<long long>(node->total_lines));
  json.key("uuencoded").value(node->uuencoded != 0);
  json.key("children").beginArray();
  for (const mime::mail_struct* child = node->first_child; child != nullptr; child = child->next_sibling) {
    writeMimeTreeJson(json, child);
  }
  json.endArray();
  json.endObject();
}

}  // namespace cli
}  // namespace vorlane
