#include "mkstore/text_blocks.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace vorlane {
namespace mkstore {

namespace {

const char* const kWords[] = {
    "the",      "order",     "invoice",   "meeting",  "project",   "team",     "update",    "please",
    "review",   "attached",  "document",  "schedule", "customer",  "delivery", "quarter",   "budget",
    "report",   "we",        "will",      "can",      "should",    "have",     "been",      "with",
    "for",      "and",       "about",     "next",     "week",      "Monday",   "Friday",    "office",
    "contract", "draft",     "version",   "final",    "support",   "ticket",   "request",   "change",
    "approval", "from",      "our",       "your",     "their",     "this",     "that",      "it",
    "is",       "was",       "not",       "all",      "some",      "new",      "old",       "first",
    "last",     "time",      "date",      "price",    "offer",     "supplier", "warehouse", "shipment",
    "account",  "payment",   "received",  "thanks",   "regards",   "agenda",   "minutes",   "notes",
    "call",     "phone",     "travel",    "hotel",    "booking",   "server",   "backup",    "migration",
    "release",  "test",      "results",   "figures",  "sales",     "market",   "product",   "feature",
    "plan",     "target",    "deadline",  "status",   "question",  "answer",   "issue",     "fixed",
    "open",     "closed",    "pending",   "monthly",  "annual",    "summary",  "details",   "overview",
    "colleague", "manager",  "partner",   "client",   "training",  "workshop", "room",      "lunch",
    "again",    "already",   "soon",      "today",    "tomorrow",  "yesterday", "morning",  "afternoon",
    "confirm",  "cancel",    "reschedule", "forward", "reply",     "copy",     "list",      "numbers",
};
const size_t kWordCount = sizeof(kWords) / sizeof(kWords[0]);

const char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Block sizes: large enough that slices of different messages rarely repeat, small enough to build fast.
const size_t kProseBytes = 512 * 1024;
const size_t kHtmlBytes = 512 * 1024;
const size_t kBase64Lines = 16 * 1024;
const size_t kBase64LineBytes = 57;  // 76 characters per encoded line

void appendSentenceTo(Prng& rng, std::string& out) {
  const size_t words = rng.between(4, 12);
  for (size_t w = 0; w < words; ++w) {
    std::string word = kWords[rng.below(kWordCount)];
    if (w == 0) word[0] = static_cast<char>(toupper(static_cast<unsigned char>(word[0])));
    if (w > 0) out += ' ';
    out += word;
    if (w + 1 < words && rng.chance(80)) out += ',';
  }
  out += rng.chance(150) ? '?' : '.';
}

// Splits `text` at blanks into lines of at most `width` characters and adds them to `block`; every line
// but the last gets `softBreak` appended (empty for prose, "=" for quoted-printable).
void wrapInto(const std::string& text, size_t width, const char* softBreak, LineBlock& block) {
  const size_t breakLen = strlen(softBreak);
  size_t start = 0;
  std::string line;
  while (text.size() - start > width) {
    // Quoted-printable keeps the blank before its soft break, so the blank must fit in front of it;
    // prose drops the blank at the break.
    const size_t limit = breakLen ? start + width - breakLen - 1 : start + width;
    const size_t blank = text.rfind(' ', limit);
    size_t cut, next;
    if (blank == std::string::npos || blank <= start) {
      cut = next = start + width - breakLen;  // no blank: hard cut inside a word
    } else {
      cut = breakLen ? blank + 1 : blank;
      next = blank + 1;
    }
    line.assign(text, start, cut - start);
    line += softBreak;
    block.addLine(line.data(), line.size());
    start = next;
  }
  block.addLine(text.data() + start, text.size() - start);
}

}  // namespace

void LineBlock::addLine(const char* text, size_t len) {
  starts_.push_back(static_cast<uint32_t>(lf_.size()));
  lf_.append(text, len);
  lf_ += '\n';
  crlf_.append(text, len);
  crlf_ += "\r\n";
}

void LineBlock::appendAbout(size_t bytes, bool crlf, Prng& rng, std::string& out) const {
  const std::string& text = crlf ? crlf_ : lf_;
  size_t written = 0;
  while (written < bytes) {
    const size_t first = rng.below(starts_.size());
    const size_t from = offset(first, crlf);
    // Smallest line end at or beyond the wanted size, or the block's end.
    size_t lo = first + 1, hi = starts_.size();
    while (lo < hi) {
      const size_t mid = lo + (hi - lo) / 2;
      if (offset(mid, crlf) - from >= bytes - written) {
        hi = mid;
      } else {
        lo = mid + 1;
      }
    }
    const size_t to = offset(lo, crlf);
    out.append(text, from, to - from);
    written += to - from;
  }
}

void LineBlock::appendPrefix(size_t count, Prng& rng, std::string& out) const {
  const size_t line = rng.below(starts_.size());
  const size_t len = offset(line + 1, false) - offset(line, false) - 1;
  out.append(lf_, offset(line, false), std::min(count, len));
}

void LineBlock::appendLines(size_t lines, bool crlf, Prng& rng, std::string& out) const {
  const std::string& text = crlf ? crlf_ : lf_;
  size_t line = rng.below(starts_.size());
  while (lines > 0) {
    const size_t take = std::min(lines, starts_.size() - line);
    const size_t from = offset(line, crlf);
    out.append(text, from, offset(line + take, crlf) - from);
    lines -= take;
    line = 0;
  }
}

TextBlocks::TextBlocks(uint64_t seed) {
  Prng rng(seed ^ 0x74657874626C6BULL);
  std::string paragraph;

  size_t proseBytes = 0;
  while (proseBytes < kProseBytes) {
    paragraph.clear();
    const size_t sentences = rng.between(1, 6);
    for (size_t s = 0; s < sentences; ++s) {
      if (s) paragraph += ' ';
      appendSentenceTo(rng, paragraph);
    }
    const size_t before = prose_.lineCount();
    wrapInto(paragraph, 72, "", prose_);
    prose_.addLine("", 0);
    proseBytes += paragraph.size() + prose_.lineCount() - before;
  }

  size_t htmlBytes = 0;
  static const char* const kOpenings[] = {"<p class=3D\"MsoNormal\">", "<p style=3D\"margin:0\">",
                                          "<div>", "<p>"};
  while (htmlBytes < kHtmlBytes) {
    paragraph.clear();
    const char* open = rng.pick(kOpenings);
    paragraph += open;
    const size_t sentences = rng.between(1, 5);
    for (size_t s = 0; s < sentences; ++s) {
      if (s) paragraph += rng.chance(200) ? " <br> " : " ";
      appendSentenceTo(rng, paragraph);
    }
    paragraph += open[1] == 'd' ? "</div>" : "</p>";
    wrapInto(paragraph, 76, "=", html_);
    htmlBytes += paragraph.size() + 2;
  }

  unsigned char raw[kBase64LineBytes];
  char line[76];
  for (size_t l = 0; l < kBase64Lines; ++l) {
    for (size_t i = 0; i < kBase64LineBytes; i += 8) {
      const uint64_t r = rng.next();
      for (size_t k = 0; k < 8 && i + k < kBase64LineBytes; ++k) raw[i + k] = static_cast<unsigned char>(r >> (8 * k));
    }
    for (size_t i = 0, o = 0; i < kBase64LineBytes; i += 3, o += 4) {
      const uint32_t v = (uint32_t(raw[i]) << 16) | (uint32_t(raw[i + 1]) << 8) | raw[i + 2];
      line[o] = kBase64Alphabet[(v >> 18) & 63];
      line[o + 1] = kBase64Alphabet[(v >> 12) & 63];
      line[o + 2] = kBase64Alphabet[(v >> 6) & 63];
      line[o + 3] = kBase64Alphabet[v & 63];
    }
    base64_.addLine(line, sizeof(line));
  }
}

void TextBlocks::appendBase64(uint64_t bytes, bool crlf, Prng& rng, std::string& out) const {
  base64_.appendLines(bytes / kBase64LineBytes, crlf, rng, out);
  const size_t rest = bytes % kBase64LineBytes;
  if (rest == 0) return;
  // The last line encodes `rest` bytes; the character before the padding carries only zero low bits,
  // as a strict decoder expects.
  const size_t fullGroups = rest / 3;
  for (size_t i = 0; i < fullGroups * 4; ++i) out += kBase64Alphabet[rng.below(64)];
  if (rest % 3 == 1) {
    out += kBase64Alphabet[rng.below(64)];
    out += "AQgw"[rng.below(4)];
    out += "==";
  } else if (rest % 3 == 2) {
    out += kBase64Alphabet[rng.below(64)];
    out += kBase64Alphabet[rng.below(64)];
    out += kBase64Alphabet[rng.below(16) * 4];
    out += '=';
  }
  out += crlf ? "\r\n" : "\n";
}

void TextBlocks::appendBase64Chars(size_t count, Prng& rng, std::string& out) const {
  base64_.appendPrefix(std::min<size_t>(count, 76), rng, out);
}

void TextBlocks::appendSentence(Prng& rng, std::string& out) const { appendSentenceTo(rng, out); }

}  // namespace mkstore
}  // namespace vorlane
