#include "mkstore/message_builder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "message_shape_check.h"
#include "utils/base64.h"

using vorlane::mkstore::MessageBuilder;
using vorlane::mkstore::MessageShape;
using vorlane::mkstore::Party;
using vorlane::mkstore::Prng;
using vorlane::mkstore::TextBlocks;
using vorlane::mkstore::kShapeCount;
using vorlane::mkstore::shapeTraits;

namespace {

const TextBlocks& blocks() {
  static const TextBlocks b(7);
  return b;
}

// Lines of a CRLF message all end in CRLF; an LF message holds no CR at all.
::testing::AssertionResult lineEndsAre(const std::string& msg, bool crlf) {
  for (size_t i = 0; i < msg.size(); ++i) {
    if (msg[i] == '\n' && crlf && (i == 0 || msg[i - 1] != '\r')) {
      return ::testing::AssertionFailure() << "bare LF at offset " << i;
    }
    if (msg[i] == '\r' && (!crlf || i + 1 == msg.size() || msg[i + 1] != '\n')) {
      return ::testing::AssertionFailure() << "stray CR at offset " << i;
    }
  }
  if (msg.empty() || msg.back() != '\n') return ::testing::AssertionFailure() << "no line end at the end";
  return ::testing::AssertionSuccess();
}

// Length of the longest line, its line end not counted.
size_t longestLine(const std::string& text, bool crlf) {
  size_t start = 0, longest = 0;
  for (size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1) {
    longest = std::max(longest, nl - start - (crlf ? 1 : 0));
  }
  return longest;
}

// Decoded length of one base64 body (lines without line ends), or -1 when it is not valid base64 with
// zero bits behind the last encoded byte (only then does it encode back to the same text).
long base64Length(const std::string& text) {
  std::string chars;
  std::string bytes;
  for (char c : text) {
    if (c != '\r' && c != '\n') chars += c;
  }
  if (!vorlane::utils::base64Decode(chars, bytes) || vorlane::utils::base64Encode(bytes) != chars) return -1;
  return static_cast<long>(bytes.size());
}

}  // namespace

// The core promise: whatever the shape and line-end style, the message is well-formed (headers end,
// every multipart is closed) and its structure is the one the shape table claims.
TEST(MessageBuilder, EveryShapeIsWellFormedAndHasItsClaimedStructure) {
  const MessageBuilder builder(blocks());
  const Party owner{"Anna Berger", "anna.berger@alpha.example.com"};
  for (size_t s = 0; s < kShapeCount; ++s) {
    const MessageShape shape = static_cast<MessageShape>(s);
    for (int sample = 0; sample < 40; ++sample) {
      const bool crlf = sample % 2 == 1;
      Prng rng(1000 * s + sample);
      std::string msg;
      builder.build(shape, crlf, owner, sample % 4 == 0, rng, msg);
      EXPECT_EQ(vorlane::testing::shapeOf(msg), shapeTraits(shape).name) << "sample " << sample << "\n" << msg.substr(0, 2000);
      EXPECT_TRUE(lineEndsAre(msg, crlf)) << shapeTraits(shape).name << " sample " << sample;
    }
  }
}

TEST(MessageBuilder, OutgoingMessagesComeFromTheOwnerAndIncomingOnesAreAddressedToThem) {
  const MessageBuilder builder(blocks());
  const Party owner{"Anna Berger", "anna.berger@alpha.example.com"};
  for (bool outgoing : {false, true}) {
    Prng rng(3);
    std::string msg;
    builder.build(MessageShape::Plain, false, owner, outgoing, rng, msg);
    const std::string from = "\nFrom: \"Anna Berger\" <anna.berger@alpha.example.com>\n";
    const std::string to = "\nTo: Anna Berger <anna.berger@alpha.example.com>\n";
    EXPECT_EQ(msg.find(from) != std::string::npos, outgoing) << msg.substr(0, 600);
    EXPECT_EQ(msg.find(to) != std::string::npos, !outgoing) << msg.substr(0, 600);
  }
}

// Sizes around the 57-byte line and the 3-byte group, for both padding lengths and none.
TEST(TextBlocks, Base64BodiesEncodeExactlyTheRequestedBytes) {
  for (uint64_t bytes : {0ull, 1ull, 2ull, 3ull, 4ull, 56ull, 57ull, 58ull, 114ull, 1000ull, 1001ull, 2000000ull}) {
    for (bool crlf : {false, true}) {
      Prng rng(bytes);
      std::string out;
      blocks().appendBase64(bytes, crlf, rng, out);
      EXPECT_EQ(base64Length(out), static_cast<long>(bytes)) << bytes << " bytes, crlf " << crlf;
      if (bytes) {
        EXPECT_TRUE(lineEndsAre(out, crlf)) << bytes;
      }
      EXPECT_LE(longestLine(out, crlf), 76u) << bytes;
    }
  }
}

// Slices are whole lines, at least as long as asked, also when one slice must span the block several times.
TEST(TextBlocks, SlicesAreWholeShortLinesThatNeverLookLikeBoundaries) {
  const vorlane::mkstore::LineBlock* kinds[] = {&blocks().prose(), &blocks().html()};
  for (const vorlane::mkstore::LineBlock* block : kinds) {
    for (size_t bytes : {size_t(1), size_t(100), size_t(5000), size_t(3) << 20}) {
      for (bool crlf : {false, true}) {
        Prng rng(bytes + crlf);
        std::string out;
        block->appendAbout(bytes, crlf, rng, out);
        EXPECT_GE(out.size(), bytes);
        EXPECT_TRUE(lineEndsAre(out, crlf)) << bytes;
        EXPECT_LE(longestLine(out, crlf), 76u) << bytes;
        EXPECT_EQ(out.find("\n--"), std::string::npos) << bytes;
        EXPECT_NE(out.compare(0, 2, "--"), 0) << bytes;
      }
    }
  }
}
