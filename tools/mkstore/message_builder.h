// Builds complete RFC 5322 / MIME messages of a chosen shape into a caller's buffer: realistic envelope
// headers (Received chains, DKIM, folded Content-Type), bodies sliced from pre-generated blocks, base64
// attachments from a long-tailed size table, and one line-end style (LF or CRLF) for the whole message.
// Every multipart is closed by its closing boundary. Deterministic for a given Prng state.
// Holds only a reference to the shared blocks; one builder per thread.
#pragma once

#include <cstdint>
#include <string>

#include "mkstore/message_shape.h"
#include "mkstore/prng.h"
#include "mkstore/text_blocks.h"

namespace vorlane {
namespace mkstore {

struct Party {
  std::string name;     // display name, e.g. "Anna Berger"
  std::string address;  // e.g. "anna.berger@alpha.example.com"
};

class MessageBuilder {
 public:
  explicit MessageBuilder(const TextBlocks& blocks) : blocks_(blocks) {}

  // Draws a shape with the shares of the shape table.
  MessageShape drawShape(Prng& rng) const;

  // Appends one message to `out`. `owner` owns the mailbox; an outgoing message (sent items, drafts) is
  // written by the owner, any other one is addressed to them.
  void build(MessageShape shape, bool crlf, const Party& owner, bool outgoing, Prng& rng,
             std::string& out) const;

 private:
  const TextBlocks& blocks_;
};

}  // namespace mkstore
}  // namespace vorlane
