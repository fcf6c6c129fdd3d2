// What one parsed message contributes to the statistic: its header size, the sizes of its plain-text,
// HTML and RTF bodies and whether it is signed or encrypted. Only the top level is looked at: a
// single-part message, the first part of a multipart/mixed, and the direct children of one
// multipart/alternative (the top one or the first part of a mixed). Signed and encrypted messages get
// no body sizes. Sizes are the parts' 32-bit counts sign-extended, as the report has always shown them.
// Pure function over the parse tree, thread-safe.
#pragma once

#include "mime/mail_struct.h"
#include "stat/message_facts.h"

// Fills the header and body sizes and the markers; size and class stay empty. A null tree (the parser
// gave up) classifies as all zero.
MessageFacts classifyMessage(const vorlane::mime::mail_struct* tree);
