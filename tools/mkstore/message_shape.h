// The MIME shapes the generator writes, how often each occurs, and how the store scan classifies each one
// (which body sizes it sees at the top level, first mixed part or one alternative container, and whether
// it counts the message as signed or encrypted), so the manifest can predict the report's mail counters.
// Constant data; thread-safe.
#pragma once

#include <cstddef>

namespace vorlane {
namespace mkstore {

enum class MessageShape {
  Plain,               // text/plain (some without any MIME header)
  Html,                // text/html only
  Alternative,         // multipart/alternative: text/plain, text/html
  AlternativeRtf,      // multipart/alternative: text/plain, text/html, text/rtf
  AlternativeRelated,  // multipart/alternative: text/plain, multipart/related (text/html, inline images)
  MixedPlain,          // multipart/mixed: text/plain, base64 attachments
  MixedAlternative,    // multipart/mixed: multipart/alternative, base64 attachments
  MixedHtml,           // multipart/mixed: text/html, base64 attachments
  Forwarded,           // multipart/mixed: text/plain note, message/rfc822
  Signed,              // multipart/signed: content, detached signature
  Encrypted,           // multipart/encrypted: control part, armoured data
  SmimeEnveloped,      // application/pkcs7-mime, one opaque base64 body
};
const size_t kShapeCount = 12;

struct ShapeTraits {
  const char* name;        // manifest key
  const char* topType;     // the top-level Content-Type (type/subtype) the message carries
  unsigned perMille;       // share of generated messages
  bool plain, html, rtf;   // body sizes the scan records
  bool isSigned, isEncrypted;
};

const ShapeTraits& shapeTraits(MessageShape shape);

}  // namespace mkstore
}  // namespace vorlane
