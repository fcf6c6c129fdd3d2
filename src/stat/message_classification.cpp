#include "stat/message_classification.h"

#include <cstdint>

using vorlane::mime::mail_struct;

namespace {

unsigned long long signExtended(uint32_t count) {
  return static_cast<unsigned long long>(static_cast<long long>(static_cast<int32_t>(count)));
}

void classifyAlternative(const mail_struct* alternative, MessageFacts& result) {
  // A later body of the same kind overwrites an earlier one.
  for (const mail_struct* child = alternative->first_child; child; child = child->next_sibling) {
    if (child->is("text", "plain")) {
      result.plainTextSize = signExtended(child->total_bytes);
    } else if (child->is("text", "html")) {
      result.htmlSize = signExtended(child->total_bytes);
    } else if (child->is("text", "rtf")) {
      result.rtfSize = signExtended(child->total_bytes);
    }
  }
}

}  // namespace

MessageFacts classifyMessage(const mail_struct* tree) {
  MessageFacts result;
  if (!tree) return result;
  result.headerSize = signExtended(tree->header_bytes);

  const mail_struct* plain = nullptr;
  const mail_struct* alternative = nullptr;
  if (!tree->first_child) {
    if (tree->is("text", "plain")) {
      plain = tree;
    } else if (tree->is("text", "html")) {
      result.htmlSize = signExtended(tree->total_bytes);
    }
  } else if (tree->is("multipart", "mixed")) {
    const mail_struct* first = tree->first_child;
    if (first->is("text", "plain")) {
      plain = first;
    } else if (first->is("multipart", "alternative")) {
      alternative = first;
    }
  } else if (tree->is("multipart", "alternative")) {
    alternative = tree;
  } else if (tree->is("multipart", "signed")) {
    result.isSigned = true;
  } else if (tree->is("multipart", "encrypted")) {
    result.isEncrypted = true;
  }

  if (plain) {
    result.plainTextSize = signExtended(plain->total_bytes);
  } else if (alternative) {
    classifyAlternative(alternative, result);
  }
  return result;
}
