#include "mkstore/manifest.h"

#include <cinttypes>

namespace vorlane {
namespace mkstore {

namespace {

void field(std::string& out, const char* indent, const char* key, uint64_t value, bool last = false) {
  char buf[128];
  snprintf(buf, sizeof buf, "%s\"%s\": %" PRIu64 "%s\n", indent, key, value, last ? "" : ",");
  out += buf;
}

}  // namespace

uint64_t Manifest::countShapes(bool ShapeTraits::*flag) const {
  uint64_t n = 0;
  for (size_t i = 0; i < kShapeCount; ++i) {
    if (shapeTraits(static_cast<MessageShape>(i)).*flag) n += shapes[i];
  }
  return n;
}

uint64_t Manifest::countBodies(bool plain, bool html, bool rtf) const {
  uint64_t n = 0;
  for (size_t i = 0; i < kShapeCount; ++i) {
    const ShapeTraits& t = shapeTraits(static_cast<MessageShape>(i));
    if (t.plain == plain && t.html == html && t.rtf == rtf) n += shapes[i];
  }
  return n;
}

std::string manifestJson(const Manifest& m) {
  std::string out = "{\n";
  field(out, "  ", "seed", m.seed);
  field(out, "  ", "requested_messages", m.requestedMessages);
  out += "  \"report\": {\n";
  field(out, "    ", "domain_count", m.domains);
  field(out, "    ", "mailbox_count", m.mailboxes);
  field(out, "    ", "folder_count", m.folders);
  field(out, "    ", "message_count", m.reportMessageCount());
  field(out, "    ", "message_size_sum", m.reportMessageBytes());
  field(out, "    ", "distribution_list_count", m.distributionLists);
  field(out, "    ", "signed_message_count", m.countShapes(&ShapeTraits::isSigned));
  field(out, "    ", "encrypted_message_count", m.countShapes(&ShapeTraits::isEncrypted));
  field(out, "    ", "only_plain_text", m.countBodies(true, false, false));
  field(out, "    ", "only_html", m.countBodies(false, true, false));
  field(out, "    ", "plain_text_and_rtf", m.countBodies(true, false, true));
  field(out, "    ", "plain_text_and_html", m.countBodies(true, true, false));
  field(out, "    ", "plain_text_html_and_rtf", m.countBodies(true, true, true), true);
  out += "  },\n";
  field(out, "  ", "message_files", m.messageFiles);
  field(out, "  ", "message_file_bytes", m.messageBytes);
  field(out, "  ", "index_entries", m.indexEntries);
  field(out, "  ", "index_entry_bytes", m.indexBytes);
  out += "  \"shapes\": {\n";
  for (size_t i = 0; i < kShapeCount; ++i) {
    field(out, "    ", shapeTraits(static_cast<MessageShape>(i)).name, m.shapes[i], i + 1 == kShapeCount);
  }
  out += "  },\n";
  field(out, "  ", "skipped_system_folders", m.systemFolders);
  field(out, "  ", "stray_entries", m.strayEntries);
  field(out, "  ", "disk_files", m.diskFiles);
  field(out, "  ", "disk_bytes", m.diskBytes, true);
  out += "}\n";
  return out;
}

void printManifest(const Manifest& m, FILE* out) {
  fprintf(out, "domains            %" PRIu64 "\n", m.domains);
  fprintf(out, "mailboxes          %" PRIu64 " (public tree counted as one)\n", m.mailboxes);
  fprintf(out, "folders            %" PRIu64 " (with status.fld, visited by the walk)\n", m.folders);
  fprintf(out, "message files      %" PRIu64 " (%" PRIu64 " bytes)\n", m.messageFiles, m.messageBytes);
  fprintf(out, "index entries      %" PRIu64 " (%" PRIu64 " bytes, %" PRIu64 " distribution lists)\n",
          m.indexEntries, m.indexBytes, m.distributionLists);
  fprintf(out, "report totals      %" PRIu64 " messages, %" PRIu64 " bytes\n", m.reportMessageCount(),
          m.reportMessageBytes());
  fprintf(out, "signed/encrypted   %" PRIu64 "/%" PRIu64 "\n", m.countShapes(&ShapeTraits::isSigned),
          m.countShapes(&ShapeTraits::isEncrypted));
  fprintf(out, "skipped            %" PRIu64 " system folders, %" PRIu64 " stray entries\n", m.systemFolders,
          m.strayEntries);
  fprintf(out, "on disk            %" PRIu64 " files, %" PRIu64 " bytes\n", m.diskFiles, m.diskBytes);
}

}  // namespace mkstore
}  // namespace vorlane
