#include "mime/attr_parser.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "utils/charset_converter.h"

namespace vorlane {
namespace mime {
namespace impl {

namespace {

const size_t kMaxNameLength = sizeof(static_cast<mail_attr*>(nullptr)->name) - 1;
// Real headers carry a handful of parameters. These bounds keep hostile input linear in time and
// memory: sections beyond the first 1024 are ignored, and a named lookup tries at most 64 occurrences.
const size_t kMaxParts = 1024;
const int kMaxOccurrences = 64;
// Scratch a parser keeps between inputs.
const size_t kKeptScratch = 4096;

const char kMsgAssignOrStar[] = "'=' or '*' expected.";
const char kMsgStringOrAssign[] = "<string> or '=' expected.";
const char kMsgTooLong[] = "String token is longer than 1023 bytes.";
const char kMsgOtherToken[] = "Read other token than expected";
const char kMsgFetched[] = "Logic error: fetched in readAnyString()";
const char kMsgNoCharset[] = "Charset wasn't found.";
const char kMsgNotFound[] = "Parameter not found in input.";

bool isWhite(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f'; }

// A token character: 8-bit bytes and printable ASCII except space, '*', ';' and '='.
bool isRight(char ch) {
  const unsigned char c = static_cast<unsigned char>(ch);
  if (c >= 128) return true;
  return c > ' ' && c < 127 && c != '*' && c != ';' && c != '=';
}

bool restIsBlank(const char* p) {
  while (isWhite(*p)) ++p;
  return *p == 0;
}

bool isBoundaryName(const char* name) { return strcasecmp(name, "boundary") == 0; }

void copyBounded(char* dst, const char* src, size_t capacity) {
  size_t n = std::strlen(src);
  if (n >= capacity) n = capacity - 1;
  std::memcpy(dst, src, n);
  dst[n] = 0;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Case-insensitive search for `needle` (non-empty) in `haystack`.
const char* findNoCase(const char* haystack, const char* needle, size_t needleLength) {
  for (const char* p = haystack; *p != 0; ++p) {
    if (strncasecmp(p, needle, needleLength) == 0) return p;
  }
  return nullptr;
}

char* dupString(const std::string& s) {
  char* copy = static_cast<char*>(std::malloc(s.size() + 1));
  if (copy != nullptr) std::memcpy(copy, s.c_str(), s.size() + 1);
  return copy;
}

}  // namespace

// ---- AttrPart ----

void AttrParser::AttrPart::clear() {
  name[0] = 0;
  value[0] = 0;
  number = -1;
  extended = false;
}

void AttrParser::AttrPart::setName(const char* text) { copyBounded(name, text, sizeof(name)); }

void AttrParser::AttrPart::setValue(const char* text) { copyBounded(value, text, sizeof(value)); }

// ---- input ----

AttrParser::~AttrParser() { std::free(ownedInput_); }

void AttrParser::setInput(const char* input) {
  input_ = input;
  pos_ = input;
  tokenStart_ = input;
  lookahead_ = false;
}

void AttrParser::restart(const char* input) {
  std::free(ownedInput_);
  ownedInput_ = nullptr;
  errors_.clear();
  setInput(input);
}

void AttrParser::fixBug20265() {
  enum State { kName = 1, kValue = 3, kBeforeParameters = 4 };
  const char* in = input_;
  if (in == nullptr) return;
  // Blanks are only ever dropped behind the "?=" that closes an encoded word.
  if (std::strstr(in, "?=") == nullptr) return;
  const size_t length = std::strlen(in);
  // The copy is made only at the first byte that has to go, so a clean value costs no allocation.
  char* fixed = nullptr;
  size_t out = 0;
  State state = kBeforeParameters;
  bool quoted = false;
  bool deleting = false;
  for (size_t i = 0; i < length; ++i) {
    const char c = in[i];
    bool drop = false;
    size_t take = 1;
    if (state == kBeforeParameters) {
      if (c == ';') state = kName;
    } else if (state == kName) {
      if (c == '=') state = kValue;
    } else if (c == '"' && (i == 0 || in[i - 1] != '\\')) {
      quoted = !quoted;
    } else if (c == '=' && i > 0 && in[i - 1] == '?') {
      deleting = true;  // end of an encoded word: blanks up to the next one are folding
    } else if (c == '=' && in[i + 1] == '?') {
      deleting = false;
      take = 2;
    } else if (c == ';' && !quoted) {
      state = kName;
      deleting = false;
    } else if (deleting && !quoted && (c == ' ' || c == '\r' || c == '\n')) {
      drop = true;
    }
    if (drop) {
      if (fixed == nullptr) {
        fixed = static_cast<char*>(std::malloc(length + 1));
        if (fixed == nullptr) return;  // out of memory: parse the text unrepaired
        std::memcpy(fixed, in, i);
        out = i;
      }
      continue;
    }
    if (fixed != nullptr) {
      std::memcpy(fixed + out, in + i, take);
      out += take;
    }
    i += take - 1;
  }
  if (fixed == nullptr) return;
  fixed[out] = 0;
  std::free(ownedInput_);
  ownedInput_ = fixed;
  setInput(fixed);
}

// ---- tokenizer ----

AttrParser::Tokens AttrParser::getNextToken() {
  if (lookahead_) {
    lookahead_ = false;
    return lookaheadToken_;
  }
  tokenStart_ = pos_;
  while (isWhite(*pos_)) ++pos_;
  switch (*pos_) {
    case 0:
      return T_END;
    case ';':
      ++pos_;
      return T_SEMICOLON;
    case '=':
      ++pos_;
      return T_EQUAL;
    case '*':
      ++pos_;
      return T_STAR;
    default:
      return readString() ? T_STRING : T_EMPTY;
  }
}

AttrParser::Tokens AttrParser::fetchNextToken() {
  const Tokens t = getNextToken();
  lookahead_ = true;
  lookaheadToken_ = t;
  return t;
}

// The offending token is pushed back before throwing, so that resynchronisation starts at it and a
// ';' that caused the failure still opens the next parameter.
void AttrParser::fail(Tokens found, const char* message) {
  lookahead_ = true;
  lookaheadToken_ = found;
  throw Ape(message);
}

void AttrParser::readToken(Tokens expected) {
  const Tokens t = getNextToken();
  if (t != expected) fail(t, kMsgOtherToken);
}

void AttrParser::reportTooLong(bool& reported) {
  errors_.push_back(kMsgTooLong);
  reported = true;
}

bool AttrParser::readString() {
  unsigned length = 0;
  bool reported = false;
  bool quoted = false;
  // Backslashes are taken literally: mail writers rarely escape in parameters, and a lone backslash in
  // a Windows file name must survive.
  for (char c = *pos_; c != 0; c = *pos_) {
    if (c == '"') {
      quoted = !quoted;
    } else if (!quoted && !isRight(c)) {
      break;
    } else {
      storeChar(length, c, reported);
    }
    ++pos_;
  }
  token_[length] = 0;
  return length > 0;
}

bool AttrParser::readAnyString(bool boundary) {
  if (lookahead_) throw Ape(kMsgFetched);
  while (isWhite(*pos_)) ++pos_;
  tokenStart_ = pos_;
  unsigned length = 0;
  size_t taken = 0;
  bool reported = false;
  bool quoted = false;
  bool allRight = true;
  for (char c = *pos_; c != 0; c = *pos_) {
    if (c == '"') {
      ++pos_;
      if (quoted && boundary) break;
      quoted = !quoted;
      continue;
    }
    if (!quoted) {
      if (isWhite(c) || c == ';') break;
      // A value that began with a non-token byte (such as the "=?" of an encoded word) runs on to the
      // next blank; one made of token bytes ends at the first byte that is not one.
      if (taken > 0 && allRight && !isRight(c)) break;
    }
    if (!isRight(c)) allRight = false;
    storeChar(length, c, reported);
    ++taken;
    ++pos_;
  }
  token_[length] = 0;
  return length > 0;
}

// ---- grammar ----

bool AttrParser::GRuleP(AttrPart& part) {
  try {
    if (fetchNextToken() == T_SEMICOLON) getNextToken();
    readToken(T_STRING);
    part.setName(token_);
    GRuleA(part);
    return true;
  } catch (const Ape& e) {
    errors_.push_back(e.what());
    return false;
  }
}

// After the name: "=" value, or "*" and a section or extended tail.
void AttrParser::GRuleA(AttrPart& part) {
  const Tokens t = getNextToken();
  switch (t) {
    case T_EQUAL:
      GRuleB(part);
      break;
    case T_STAR:
      GRuleC(part);
      break;
    default:
      fail(t, kMsgAssignOrStar);
  }
}

// A plain value. An empty one (name= or name="") is accepted as an empty string.
void AttrParser::GRuleB(AttrPart& part) {
  readAnyString(isBoundaryName(part.name));
  part.setValue(token_);
}

// After "name*": "=" for name*=value, or a section number.
void AttrParser::GRuleC(AttrPart& part) {
  const Tokens t = getNextToken();
  switch (t) {
    case T_EQUAL:
      GRuleF(part);
      break;
    case T_STRING: {
      // Leading decimal digits, saturated; a section "number" without digits counts as section 0.
      long number = 0;
      for (const char* p = token_; *p >= '0' && *p <= '9' && number < 1000000; ++p) number = number * 10 + (*p - '0');
      part.number = static_cast<int>(number);
      GRuleE(part);
      break;
    }
    default:
      fail(t, kMsgStringOrAssign);
  }
}

// After the section number: "=" plain section, or "*=" extended section.
void AttrParser::GRuleE(AttrPart& part) {
  const Tokens t = getNextToken();
  switch (t) {
    case T_EQUAL:
      GRuleB(part);
      break;
    case T_STAR:
      readToken(T_EQUAL);
      GRuleF(part);
      break;
    default:
      fail(t, kMsgAssignOrStar);
  }
}

// An extended value: charset'language'percent-encoded text, always a single token.
void AttrParser::GRuleF(AttrPart& part) {
  part.extended = true;
  readToken(T_STRING);
  part.setValue(token_);
}

// ---- whole list ----

// Skips to the next ';' after a failed parameter, or one byte on when there is none, so every failure
// moves strictly forward and garbage cannot loop.
void AttrParser::resynchronise() {
  const char* from = lookahead_ ? tokenStart_ : pos_;
  lookahead_ = false;
  const char* semicolon = std::strchr(from, ';');
  if (semicolon != nullptr) {
    pos_ = semicolon;
    return;
  }
  pos_ = restIsBlank(from) ? from + std::strlen(from) : from + 1;
}

void AttrParser::storePart(const AttrPart& part, PartList& parts) {
  StoredPart stored;
  stored.name = parts_text_.size();
  parts_text_.append(part.name, std::strlen(part.name) + 1);
  stored.value = parts_text_.size();
  parts_text_.append(part.value, std::strlen(part.value) + 1);
  stored.number = part.number;
  stored.extended = part.extended;
  parts.push_back(stored);
}

void AttrParser::sortParts(PartList& parts) const {
  const auto before = [this](const StoredPart& a, const StoredPart& b) {
    const int c = strcasecmp(partName(a), partName(b));
    return c != 0 ? c < 0 : a.number < b.number;
  };
  // A header's handful of parameters is sorted in place (insertion sort, stable); std::stable_sort, which
  // allocates a buffer, only for hostile lists where the quadratic worst case would matter.
  if (parts.size() > 16) {
    std::stable_sort(parts.begin(), parts.end(), before);
    return;
  }
  for (size_t i = 1; i < parts.size(); ++i) {
    const StoredPart moving = parts[i];
    size_t j = i;
    for (; j > 0 && before(moving, parts[j - 1]); --j) parts[j] = parts[j - 1];
    parts[j] = moving;
  }
}

template <class Add>
bool AttrParser::parseAll(Add add) {
  errors_.clear();
  parts_text_.clear();
  parts_.clear();
  AttrPart scratch;
  while (parts_.size() < kMaxParts && fetchNextToken() != T_END) {
    // A ';' with nothing after it ("text/plain; charset=x;") is common and harmless: not a problem.
    if (lookaheadToken_ == T_SEMICOLON && restIsBlank(pos_)) break;
    scratch.clear();
    if (GRuleP(scratch)) {
      storePart(scratch, parts_);
    } else {
      resynchronise();
    }
  }
  lookahead_ = false;
  sortParts(parts_);  // stable: repeated names keep their order
  for (PartList::const_iterator it = parts_.begin(); it != parts_.end();) {
    const char* name = partName(*it);
    getRejoinedValue(it, parts_.end(), value_);
    add(name, value_);
  }
  // A parser kept for the next header keeps no more than a few KiB of a hostile one.
  if (parts_text_.capacity() > kKeptScratch) std::string().swap(parts_text_);
  if (value_.capacity() > kKeptScratch) std::string().swap(value_);
  if (parts_.capacity() > kKeptScratch / sizeof(StoredPart)) PartList().swap(parts_);
  return errors_.empty();
}

bool AttrParser::attrParse(std::vector<mail_attr>& out) {
  return parseAll([&out](const char* name, const std::string& value) {
    mail_attr attr;
    copyBounded(attr.name, name, kMaxNameLength + 1);
    attr.value = dupString(value);
    if (attr.value != nullptr) out.push_back(attr);
  });
}

bool AttrParser::attrParse(mail_attr_list& out) {
  return parseAll([&out](const char* name, const std::string& value) { out.add(name, value.data(), value.size()); });
}

bool AttrParser::namedAttrParse(const char* name, char* out, unsigned size) {
  errors_.clear();
  parts_text_.clear();
  const char* const saved = pos_;
  const size_t nameLength = name == nullptr ? 0 : std::strlen(name);
  PartList found;
  AttrPart part;
  const char* search = pos_;
  const char* hit = nullptr;
  int tried = 0;
  while (nameLength > 0 && tried < kMaxOccurrences && (hit = findNoCase(search, name, nameLength)) != nullptr) {
    search = hit + 1;
    if (hit != saved && isRight(hit[-1])) continue;
    ++tried;
    pos_ = hit;
    lookahead_ = false;
    part.clear();
    // An occurrence that turns out not to be the parameter (inside another value, or a longer name)
    // leaves no message behind: only problems of the wanted parameter count against the result.
    const size_t errorsBefore = errors_.size();
    if (GRuleP(part) && strcasecmp(part.name, name) == 0) {
      storePart(part, found);
      search = pos_;
    } else {
      errors_.resize(errorsBefore);
    }
  }
  lookahead_ = false;
  pos_ = saved;
  if (found.empty()) {
    errors_.push_back(kMsgNotFound);
    return false;
  }
  sortParts(found);
  std::string value;
  PartList::const_iterator it = found.begin();
  getRejoinedValue(it, found.end(), value);
  if (size > 0) copyBounded(out, value.c_str(), size);
  return errors_.empty() && value.size() < size;
}

// ---- joining ----

int AttrParser::getCharset(const char* value, std::string& charset) {
  const char* quote = std::strchr(value, '\'');
  if (quote == nullptr) {
    errors_.push_back(kMsgNoCharset);
    charset.clear();
    return 0;
  }
  charset.assign(value, quote - value);
  // The language runs to a second quote; without one the rest is taken as the data.
  const char* language = quote + 1;
  const char* second = std::strchr(language, '\'');
  return static_cast<int>((second != nullptr ? second + 1 : language) - value);
}

void AttrParser::decodeHvalue(const char* in, std::string& out) {
  out.clear();
  for (const char* p = in; *p != 0; ++p) {
    if (*p == '%') {
      const int high = hexValue(p[1]);
      const int low = high < 0 ? -1 : hexValue(p[2]);
      if (low >= 0) {
        out += static_cast<char>(high * 16 + low);
        p += 2;
        continue;
      }
    }
    out += *p;
  }
}

void AttrParser::recodeToUtf8(const std::string& charset, const char* encoded, std::string& out) {
  std::string decoded;
  decodeHvalue(encoded, decoded);
  std::string converted;
  if (!utils::charsetRecode(charset, "utf-8", decoded, converted)) {
    errors_.push_back("Charset recode failed : " + charset + " => utf-8, text=" + decoded);
  }
  out += converted;
}

void AttrParser::getRejoinedValue(PartList::const_iterator& it, PartList::const_iterator end, std::string& out) {
  const StoredPart& first = *it;
  const char* const name = partName(first);
  const bool boundary = isBoundaryName(name);
  out.clear();
  std::string charset;
  if (first.extended) {
    const int offset = getCharset(partValue(first), charset);
    if (!charset.empty()) recodeToUtf8(charset, partValue(first) + offset, out);
  } else {
    out = partValue(first);
  }
  ++it;
  // Only numbered sections continue; a repeated unnumbered parameter starts a run of its own.
  if (first.number >= 0) {
    for (; it != end && strcasecmp(partName(*it), name) == 0; ++it) {
      if (!it->extended) {
        out += partValue(*it);
      } else if (!charset.empty()) {
        recodeToUtf8(charset, partValue(*it), out);
      }
    }
  }
  if (boundary) return;  // a boundary must match the body byte for byte
  // Values that are not plain ASCII stay raw UTF-8 rather than being re-encoded as RFC 2047 words:
  // every reader of these parameters works on UTF-8 text, and encoding would only be undone again.
  size_t kept = 0;
  for (char c : out) {
    if (c != '\r' && c != '\n') out[kept++] = c;
  }
  out.resize(kept);
}

}  // namespace impl
}  // namespace mime
}  // namespace vorlane
