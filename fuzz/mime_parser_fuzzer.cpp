// The MIME structure parser on arbitrary message files, read the way the store walk reads them: the
// bytes go to a scratch file, which is opened as a VFile, parsed and classified. Beyond "no crash, no
// leak, no hang" it checks what every tree must satisfy whatever the input: the root accounts for no more
// bytes than the file holds (fewer only when a multipart's first boundary never came and an enclosing
// boundary line went uncounted), and every part's positions lie inside the file. The address lists the
// parse keeps as text are parsed too.
#include <fcntl.h>

#include <cstdint>
#include <memory>

#include "fuzz_check.h"
#include "fuzz_scratch.h"
#include "mime/mail_struct.h"
#include "stat/message_classification.h"
#include "utils/vfile.h"

using vorlane::mime::mail_struct;
using vorlane::mime::mail_struct_envelope;

namespace {

// Recursion mirrors the parser's, whose depth is bounded by MIME_MAX_DEPTH.
void checkPart(const mail_struct* part, long long fileSize) {
  for (; part != nullptr; part = part->next_sibling) {
    fuzzCheck(part->start_pos >= 0 && part->start_pos <= part->body_pos && part->body_pos <= fileSize,
          "part positions outside the file");
    fuzzCheck(part->header_bytes <= part->total_bytes, "header larger than its part");
    fuzzCheck(part->body_bytes <= part->total_bytes, "body larger than its part");
    fuzzCheck(part->content_type.get() != nullptr && part->content_subtype.get() != nullptr, "part without a type");
    part->find_filename();
    for (int h = 0; h < mail_struct_envelope::ADDR_HEADER_COUNT; ++h) {
      part->envelope.addresses(static_cast<mail_struct_envelope::address_header>(h));
    }
    checkPart(part->first_child, fileSize);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static fuzzscratch::ScratchDir dir("mime", {"message.eml"});
  static const std::string path = dir.file("message.eml");
  dir.rewrite(0, data, size);

  vorlane::utils::VFile file;
  if (!file.doOpen(path.c_str(), O_RDONLY)) fuzzscratch::die("cannot open", path);
  std::unique_ptr<mail_struct> tree(mail_struct::parse(&file));
  classifyMessage(tree.get());
  if (tree) {
    fuzzCheck(tree->start_pos == 0, "root does not start at the beginning");
    fuzzCheck(tree->total_bytes <= size, "root accounts for more bytes than the file holds");
    checkPart(tree.get(), static_cast<long long>(size));
    tree->find_content("text", "html");
    tree->has_uuencoded_part();
  }
  return 0;
}
