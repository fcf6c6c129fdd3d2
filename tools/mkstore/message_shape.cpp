#include "mkstore/message_shape.h"

namespace vorlane {
namespace mkstore {

namespace {

// Shares follow what a business mailbox typically holds: mostly alternative and plain mail, a fifth with
// attachments, a few signed or encrypted messages. The scan looks only at the top level, the first part
// of a mixed message and the direct children of one alternative container, so an HTML body inside
// multipart/related or behind a mixed message's first part is not seen, and signed or encrypted
// messages report no bodies at all.
const ShapeTraits kTraits[kShapeCount] = {
    {"plain", "text/plain", 220, true, false, false, false, false},
    {"html", "text/html", 70, false, true, false, false, false},
    {"alternative", "multipart/alternative", 300, true, true, false, false, false},
    {"alternative_rtf", "multipart/alternative", 10, true, true, true, false, false},
    {"alternative_related", "multipart/alternative", 60, true, false, false, false, false},
    {"mixed_plain", "multipart/mixed", 80, true, false, false, false, false},
    {"mixed_alternative", "multipart/mixed", 120, true, true, false, false, false},
    {"mixed_html", "multipart/mixed", 15, false, false, false, false, false},
    {"forwarded", "multipart/mixed", 40, true, false, false, false, false},
    {"signed", "multipart/signed", 50, false, false, false, true, false},
    {"encrypted", "multipart/encrypted", 20, false, false, false, false, true},
    {"smime_enveloped", "application/pkcs7-mime", 15, false, false, false, false, false},
};

}  // namespace

const ShapeTraits& shapeTraits(MessageShape shape) { return kTraits[static_cast<size_t>(shape)]; }

}  // namespace mkstore
}  // namespace vorlane
