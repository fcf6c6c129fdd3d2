#include "mime/encoded_word.h"

#include <strings.h>

#include <cstring>

#include "utils/base64.h"
#include "utils/charset_converter.h"

namespace vorlane {
namespace mime {

namespace {

const size_t kMaxCharsetLength = 63;

bool isWhite(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

struct EncodedWord {
  const char* charset;
  size_t charsetLength;  // without an RFC 2231 "*language" suffix
  char encoding;
  const char* text;
  const char* textEnd;
  const char* end;  // one past the closing "?="
};

// Recognises "=?charset?B|Q?text?=" at p; the text may hold no white space. When the text runs into a
// blank or the end without closing, *unclosed is set there: no word can start before that point either
// (its text would run into the same place), which keeps hostile input linear.
bool parseEncodedWord(const char* p, EncodedWord& w, const char** unclosed) {
  if (p[0] != '=' || p[1] != '?') return false;
  const char* q = p + 2;
  while (*q != 0 && *q != '?' && !isWhite(*q) && static_cast<size_t>(q - (p + 2)) <= kMaxCharsetLength) ++q;
  if (*q != '?' || q == p + 2 || static_cast<size_t>(q - (p + 2)) > kMaxCharsetLength) return false;
  const char encoding = q[1];
  if (encoding == 0 || std::strchr("BbQq", encoding) == nullptr || q[2] != '?') return false;
  const char* text = q + 3;
  const char* e = text;
  while (*e != 0 && !isWhite(*e) && !(e[0] == '?' && e[1] == '=')) ++e;
  if (e[0] != '?' || e[1] != '=') {
    *unclosed = e;
    return false;
  }
  w.charset = p + 2;
  const char* star = static_cast<const char*>(std::memchr(w.charset, '*', q - w.charset));
  w.charsetLength = (star != nullptr ? star : q) - w.charset;
  w.encoding = encoding;
  w.text = text;
  w.textEnd = e;
  w.end = e + 2;
  return w.charsetLength > 0;
}

void decodeQ(const char* p, const char* end, std::string& out) {
  for (; p < end; ++p) {
    if (*p == '_') {
      out += ' ';
    } else if (*p == '=' && end - p >= 3 && hexValue(p[1]) >= 0 && hexValue(p[2]) >= 0) {
      out += static_cast<char>(hexValue(p[1]) * 16 + hexValue(p[2]));
      p += 2;
    } else {
      out += *p;
    }
  }
}

// Lenient: bytes outside the alphabet and padding are skipped, a trailing partial group is dropped.
void decodeB(const char* p, const char* end, std::string& out) {
  unsigned bits = 0;
  int count = 0;
  for (; p < end; ++p) {
    const int v = utils::base64Value(*p);
    if (v < 0) continue;
    bits = (bits << 6) | static_cast<unsigned>(v);
    count += 6;
    if (count >= 8) {
      count -= 8;
      out += static_cast<char>((bits >> count) & 0xff);
    }
  }
}

// A run of adjacent encoded words in one charset, converted as a whole.
class Run {
 public:
  bool active() const { return start_ != nullptr; }
  bool sameCharset(const EncodedWord& w) const {
    return charset_.size() == w.charsetLength && strncasecmp(charset_.c_str(), w.charset, w.charsetLength) == 0;
  }

  void start(const EncodedWord& w, const char* wordStart) {
    start_ = wordStart;
    charset_.assign(w.charset, w.charsetLength);
    bytes_.clear();
    add(w);
  }

  void add(const EncodedWord& w) {
    if (w.encoding == 'B' || w.encoding == 'b') {
      decodeB(w.text, w.textEnd, bytes_);
    } else {
      decodeQ(w.text, w.textEnd, bytes_);
    }
    end_ = w.end;
  }

  void flush(std::string& out) {
    if (start_ == nullptr) return;
    std::string converted;
    if (utils::charsetRecode(charset_, "utf-8", bytes_, converted)) {
      out += converted;
    } else {
      out.append(start_, end_ - start_);  // unknown charset: the words stay as written
    }
    start_ = nullptr;
  }

 private:
  const char* start_ = nullptr;
  const char* end_ = nullptr;
  std::string charset_;
  std::string bytes_;
};

}  // namespace

std::string decodeHeaderText(const char* text) {
  std::string out;
  if (text == nullptr) return out;
  out.reserve(std::strlen(text));
  Run run;
  EncodedWord w;
  const char* unclosed = text;
  const char* p = text;
  while (*p != 0) {
    if (p >= unclosed && parseEncodedWord(p, w, &unclosed)) {
      if (run.active() && run.sameCharset(w)) {
        run.add(w);
      } else {
        run.flush(out);
        run.start(w, p);
      }
      p = w.end;
      // Blanks up to a following encoded word are folding and vanish; before anything else they stay.
      const char* next = p;
      while (isWhite(*next)) ++next;
      if (next != p && parseEncodedWord(next, w, &unclosed)) p = next;
      continue;
    }
    run.flush(out);
    out += *p++;
  }
  run.flush(out);
  return out;
}

}  // namespace mime
}  // namespace vorlane
