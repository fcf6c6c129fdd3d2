#include "mime/mail_addr.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace vorlane {
namespace mime {

namespace {

const size_t kMaxAddresses = 1000;
const size_t kMaxField = 1023;

enum TokenKind { kEnd, kWord, kSpecial };

// A word is an atom, the contents of a quoted string or a domain literal with its brackets.
struct Token {
  TokenKind kind = kEnd;
  char special = 0;
  std::string text;
};

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool isAtomChar(unsigned char c) {
  if (c >= 128) return true;  // raw 8-bit display names are common enough to keep
  if (c <= 32 || c == 127) return false;
  switch (c) {
    case '(': case ')': case '<': case '>': case '@': case ',': case ';': case ':':
    case '"': case '.': case '[': case ']':
      return false;
    default:
      return true;
  }
}

void appendBounded(std::string& s, char c) {
  if (s.size() < kMaxField) s += c;
}

// Splits a header value into words and specials. White space and comments separate tokens; the text of
// the last comment is kept because "user@host (Name)" carries the display name there.
class AddrLexer {
 public:
  explicit AddrLexer(const char* text) : p_(text) {}

  void next(Token& t) {
    t.text.clear();
    t.special = 0;
    for (;;) {
      while (isSpace(*p_)) ++p_;
      if (*p_ != '(') break;
      readComment();
    }
    const unsigned char c = static_cast<unsigned char>(*p_);
    if (c == 0) {
      t.kind = kEnd;
    } else if (c == '"') {
      t.kind = kWord;
      readQuoted(t.text);
    } else if (c == '[') {
      t.kind = kWord;
      readDomainLiteral(t.text);
    } else if (isAtomChar(c)) {
      t.kind = kWord;
      const char* start = p_;
      while (isAtomChar(static_cast<unsigned char>(*p_))) ++p_;
      const size_t length = static_cast<size_t>(p_ - start);
      t.text.assign(start, length < kMaxField ? length : kMaxField);
    } else {
      t.kind = kSpecial;
      t.special = *p_++;
    }
  }

  const std::string& comment() const { return comment_; }
  void clearComment() { comment_.clear(); }

 private:
  void readComment() {
    comment_.clear();
    int depth = 0;
    do {
      const char c = *p_;
      if (c == 0) break;
      ++p_;
      if (c == '\\' && *p_ != 0) {
        appendBounded(comment_, *p_++);
        continue;
      }
      if (c == '(' && depth++ == 0) continue;
      if (c == ')' && --depth == 0) continue;
      appendBounded(comment_, c);
    } while (depth > 0);
    trim(comment_);
  }

  void readQuoted(std::string& out) {
    ++p_;
    while (*p_ != 0 && *p_ != '"') {
      if (*p_ == '\\' && p_[1] != 0) ++p_;
      appendBounded(out, *p_++);
    }
    if (*p_ == '"') ++p_;
  }

  void readDomainLiteral(std::string& out) {
    while (*p_ != 0) {
      const char c = *p_++;
      appendBounded(out, c);
      if (c == ']') break;
    }
  }

  static void trim(std::string& s) {
    size_t e = s.size();
    while (e > 0 && isSpace(s[e - 1])) --e;
    s.resize(e);
    size_t b = 0;
    while (b < s.size() && isSpace(s[b])) ++b;
    s.erase(0, b);
  }

  const char* p_;
  std::string comment_;
};

// A display name: words separated by one space, dots kept where they were ("John Q. Public").
void joinPhrase(const std::vector<Token>& words, std::string& out) {
  out.clear();
  for (const Token& t : words) {
    if (t.kind == kWord) {
      if (!out.empty()) out += ' ';
      out += t.text;
    } else if (t.special == '.') {
      out += '.';
    }
  }
  if (out.size() > kMaxField) out.resize(kMaxField);
}

// local part or domain: words and dots joined as written.
void joinSpec(const std::vector<Token>& tokens, size_t from, size_t to, std::string& out) {
  out.clear();
  for (size_t i = from; i < to; ++i) {
    if (tokens[i].kind == kWord) {
      out += tokens[i].text;
    } else if (tokens[i].special == '.') {
      out += '.';
    }
  }
  if (out.size() > kMaxField) out.resize(kMaxField);
}

// Copies s with its terminator to dst and returns the byte behind it.
char* copyOut(char* dst, const std::string& s) {
  std::memcpy(dst, s.c_str(), s.size() + 1);
  return dst + s.size() + 1;
}

class AddrListParser {
 public:
  explicit AddrListParser(const char* value) : lex_(value) { words_.reserve(8); }

  mail_addr* run() {
    bool inGroup = false;
    lex_.next(tok_);
    while (tok_.kind != kEnd && count_ < kMaxAddresses) {
      words_.clear();
      while (tok_.kind != kEnd && !isDelimiter(tok_)) {
        words_.push_back(std::move(tok_));
        lex_.next(tok_);
      }
      if (tok_.kind == kSpecial && tok_.special == ':') {
        if (!inGroup) {
          inGroup = true;  // the group's name is not an address
          lex_.clearComment();
          lex_.next(tok_);
          continue;
        }
        skipToSeparator();
      } else if (tok_.kind == kSpecial && tok_.special == '<') {
        readAngleAddress();
      } else {
        addAddrSpec(words_, lex_.comment());
      }
      if (tok_.kind == kSpecial && tok_.special == ';') inGroup = false;
      if (tok_.kind != kEnd) {
        // A comment belongs to the address it follows or precedes, never to the next one.
        lex_.clearComment();
        lex_.next(tok_);
      }
    }
    return head_;
  }

 private:
  static bool isDelimiter(const Token& t) {
    return t.kind == kSpecial && std::strchr(",;:<", t.special) != nullptr;
  }

  void skipToSeparator() {
    while (tok_.kind != kEnd && !(tok_.kind == kSpecial && (tok_.special == ',' || tok_.special == ';'))) {
      lex_.next(tok_);
    }
  }

  // "phrase <@route,@route:local@domain>": the route is dropped, the phrase becomes the display name.
  void readAngleAddress() {
    joinPhrase(words_, phrase_);
    inner_.clear();
    lex_.next(tok_);
    while (tok_.kind != kEnd && !(tok_.kind == kSpecial && tok_.special == '>')) {
      if (tok_.kind == kSpecial && tok_.special == ':') {
        inner_.clear();
      } else {
        inner_.push_back(std::move(tok_));
      }
      lex_.next(tok_);
    }
    skipToSeparator();
    addAddrSpec(inner_, phrase_.empty() ? lex_.comment() : phrase_);
  }

  // local-part '@' domain, split at the last '@'.
  void addAddrSpec(const std::vector<Token>& tokens, const std::string& personal) {
    size_t at = tokens.size();
    for (size_t i = 0; i < tokens.size(); ++i) {
      if (tokens[i].kind == kSpecial && tokens[i].special == '@') at = i;
    }
    joinSpec(tokens, 0, at, local_);
    if (local_.empty()) return;
    const bool hasHost = at < tokens.size();
    if (hasHost) joinSpec(tokens, at + 1, tokens.size(), host_);
    append(personal, local_, hasHost ? &host_ : nullptr);
  }

  // The entry and its strings share one allocation, so mail_addr_free releases an entry with one free.
  void append(const std::string& personal, const std::string& mailbox, const std::string* host) {
    size_t size = sizeof(mail_addr) + mailbox.size() + 1;
    if (!personal.empty()) size += personal.size() + 1;
    if (host != nullptr) size += host->size() + 1;
    mail_addr* a = static_cast<mail_addr*>(std::malloc(size));
    if (a == nullptr) return;
    char* text = reinterpret_cast<char*>(a + 1);
    a->mailbox = text;
    text = copyOut(text, mailbox);
    a->personal = nullptr;
    if (!personal.empty()) {
      a->personal = text;
      text = copyOut(text, personal);
    }
    a->host = nullptr;
    if (host != nullptr) {
      a->host = text;
      copyOut(text, *host);
    }
    a->next = nullptr;
    *tail_ = a;
    tail_ = &a->next;
    ++count_;
  }

  AddrLexer lex_;
  Token tok_;
  // Scratch reused for every address of the list.
  std::vector<Token> words_;
  std::vector<Token> inner_;
  std::string phrase_;
  std::string local_;
  std::string host_;
  mail_addr* head_ = nullptr;
  mail_addr** tail_ = &head_;
  size_t count_ = 0;
};

}  // namespace

mail_addr* mail_addr_parse(const char* value) {
  if (value == nullptr) return nullptr;
  return AddrListParser(value).run();
}

void mail_addr_free(mail_addr* addr) {
  while (addr != nullptr) {
    mail_addr* next = addr->next;
    std::free(addr);  // the strings live in the entry's own allocation
    addr = next;
  }
}

}  // namespace mime
}  // namespace vorlane
