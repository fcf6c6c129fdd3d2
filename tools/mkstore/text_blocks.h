// Pre-generated body material (prose, quoted-printable HTML, base64) in LF and CRLF forms, built once per
// run and sliced at line boundaries, so that writing a message costs a few memcpy calls and no per-byte work.
// Every line of every block is at most 76 characters plus its line end; no line starts with "--", so a
// slice can never be mistaken for a MIME boundary. Immutable after construction; safe to share read-only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "mkstore/prng.h"

namespace vorlane {
namespace mkstore {

// One block of lines kept twice: with LF and with CRLF line ends. Line i starts at starts_[i] in the LF text
// and at starts_[i] + i in the CRLF text.
class LineBlock {
 public:
  void addLine(const char* text, size_t len);
  size_t lineCount() const { return starts_.size(); }

  // Appends whole lines, starting at random lines, until at least `bytes` bytes were appended.
  void appendAbout(size_t bytes, bool crlf, Prng& rng, std::string& out) const;
  // Appends exactly `lines` consecutive lines (wrapping to the start of the block as often as needed).
  void appendLines(size_t lines, bool crlf, Prng& rng, std::string& out) const;
  // Appends the first `count` characters (without line end) of one random line.
  void appendPrefix(size_t count, Prng& rng, std::string& out) const;

 private:
  size_t offset(size_t line, bool crlf) const {
    return line == starts_.size() ? (crlf ? crlf_.size() : lf_.size()) : starts_[line] + (crlf ? line : 0);
  }

  std::string lf_;
  std::string crlf_;
  std::vector<uint32_t> starts_;
};

class TextBlocks {
 public:
  // Builds all blocks from `seed`; takes a few tens of milliseconds and about 5 MB.
  explicit TextBlocks(uint64_t seed);

  const LineBlock& prose() const { return prose_; }        // paragraphs of plain sentences, blank-line separated
  const LineBlock& html() const { return html_; }          // <p> paragraphs, quoted-printable soft-wrapped
  const LineBlock& base64() const { return base64_; }      // full 76-character base64 lines (57 bytes each)

  // Appends a base64 body that encodes `bytes` bytes: full lines from the block, then a correctly padded
  // last line.
  void appendBase64(uint64_t bytes, bool crlf, Prng& rng, std::string& out) const;

  // `count` (at most 76) base64 characters without a line end, for signatures and tokens in headers.
  void appendBase64Chars(size_t count, Prng& rng, std::string& out) const;

  // One sentence of 4 to 12 words without a line end, for subjects and short notes.
  void appendSentence(Prng& rng, std::string& out) const;

 private:
  LineBlock prose_;
  LineBlock html_;
  LineBlock base64_;
};

}  // namespace mkstore
}  // namespace vorlane
