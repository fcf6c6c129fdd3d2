// What one parsed message contributes to the statistic: its header size, the sizes of its plain-text,
// HTML and RTF bodies and whether it is signed or encrypted. Only the top level is looked at: a
// single-part message, the first part of a multipart/mixed, and the direct children of one
// multipart/alternative (the top one or the first part of a mixed). Signed and encrypted messages get
// no body sizes. Sizes are the parts' 32-bit counts sign-extended, as the report has always shown them.
// Pure function over the parse tree, thread-safe.
#pragma once

#include "mime/mail_struct.h"

struct MessageClassification {
  unsigned long long headerSize = 0;
  unsigned long long plainTextSize = 0;
  unsigned long long htmlSize = 0;
  unsigned long long rtfSize = 0;
  bool isSigned = false;
  bool isEncrypted = false;
};

// A null tree (the parser gave up) classifies as all zero.
MessageClassification classifyMessage(const vorlane::mime::mail_struct* tree);
