// Tokenizer and recursive-descent grammar for the parameter list of a structured header value
// (RFC 2045 parameters, quoted strings, RFC 2231 numbered and extended sections with charset and
// language). Sections of one parameter are joined in section order and extended values are brought to
// UTF-8. Problems never leave the parser: each becomes one message in the error list and whatever parsed
// is kept. Works in place on the caller's text (which must outlive the parser) with fixed buffers for
// the token and the section being read; finished sections keep only their text, packed in one buffer:
// tokens and section values hold at most 1023 characters, result names at most 31; at most 1024
// sections are read per header and a named lookup tries at most 64 occurrences of the name.
// A parser can be started over on the next header (restart), keeping its scratch buffers up to a few KiB.
// Not thread-safe; one parser reads one header value at a time.
#pragma once

#include <cstddef>
#include <exception>
#include <list>
#include <string>
#include <vector>

#include <boost/noncopyable.hpp>

#include "mime/mail_attr.h"

namespace vorlane {
namespace mime {
namespace impl {

class AttrParser : private boost::noncopyable {
 public:
  enum Tokens { T_END = 0, T_EMPTY = 1, T_EQUAL = 2, T_STAR = 3, T_STRING = 4, T_SEMICOLON = 5 };

  static const unsigned kTokenSize = 1024;  // 1023 characters and the terminator

  // One parameter section as written: name, value, section number (-1 for none), extended form.
  struct AttrPart {
    char name[kTokenSize];
    char value[kTokenSize];
    int number;
    bool extended;

    AttrPart() { clear(); }
    void clear();
    void setName(const char* text);
    void setValue(const char* text);
  };

  // Thrown by the grammar rules and caught by GRuleP; never leaves the parser.
  class Ape : public std::exception {
   public:
    explicit Ape(const char* message) : message_(message) {}
    const char* what() const noexcept override { return message_.c_str(); }

   private:
    std::string message_;
  };

  AttrParser() = default;
  explicit AttrParser(const char* input) { setInput(input); }
  ~AttrParser();

  void setInput(const char* input);
  // Starts over on another input: the repaired copy and the messages of the last one are dropped, the
  // scratch buffers are kept.
  void restart(const char* input);
  const char* getInput() const { return input_; }
  const std::list<std::string>& getErrorMsgList() const { return errors_; }

  // Joins RFC 2047 encoded words that were written unquoted in a value and separated by folding white
  // space, so that the value is not cut at the first blank. Replaces the input with a repaired copy
  // (owned by the parser) only when something was removed.
  void fixBug20265();

  // Appends every parameter of the input to `out` (values from malloc, owned by the vector's owner).
  // True when no problem was recorded.
  bool attrParse(std::vector<mail_attr>& out);
  // The same, appending to a parameter list.
  bool attrParse(mail_attr_list& out);
  // Finds and joins the parameter `name`; `out` receives its value cut to size - 1 characters.
  // True when it was found without any problem and fits.
  bool namedAttrParse(const char* name, char* out, unsigned size);

  // Splits an extended value "charset'language'data": returns the offset of the data.
  int getCharset(const char* value, std::string& charset);
  // Percent decoding: "%" and two hexadecimal digits become that byte; any other "%" stays.
  static void decodeHvalue(const char* in, std::string& out);

 private:
  // A finished section: its name and value are terminated strings at these offsets in parts_text_.
  struct StoredPart {
    size_t name;
    size_t value;
    int number;
    bool extended;
  };
  typedef std::vector<StoredPart> PartList;

  // Parses the whole input and hands every joined parameter, in sorted order, to add(name, value).
  template <class Add>
  bool parseAll(Add add);

  Tokens getNextToken();
  Tokens fetchNextToken();
  [[noreturn]] void fail(Tokens found, const char* message);
  void readToken(Tokens expected);
  bool readString();
  bool readAnyString(bool boundary);
  // Runs for every character of every parameter: the rare overlong token is handled out of line.
  void storeChar(unsigned& length, char c, bool& reported) {
    if (length < kTokenSize - 1) {
      token_[length++] = c;
    } else if (!reported) {
      reportTooLong(reported);
    }
  }
  void reportTooLong(bool& reported);

  bool GRuleP(AttrPart& part);
  void GRuleA(AttrPart& part);
  void GRuleB(AttrPart& part);
  void GRuleC(AttrPart& part);
  void GRuleE(AttrPart& part);
  void GRuleF(AttrPart& part);

  void resynchronise();
  void storePart(const AttrPart& part, PartList& parts);
  const char* partName(const StoredPart& part) const { return parts_text_.data() + part.name; }
  const char* partValue(const StoredPart& part) const { return parts_text_.data() + part.value; }
  // Name case-insensitively, then section number, keeping the written order of equal keys.
  void sortParts(PartList& parts) const;
  void getRejoinedValue(PartList::const_iterator& it, PartList::const_iterator end, std::string& out);
  void recodeToUtf8(const std::string& charset, const char* encoded, std::string& out);

  char token_[kTokenSize] = {0};
  const char* tokenStart_ = nullptr;
  const char* pos_ = nullptr;
  const char* input_ = nullptr;
  char* ownedInput_ = nullptr;
  bool lookahead_ = false;
  Tokens lookaheadToken_ = T_END;
  std::list<std::string> errors_;
  std::string parts_text_;
  PartList parts_;     // the sections of the whole-list parse
  std::string value_;  // the value being joined
};

}  // namespace impl
}  // namespace mime
}  // namespace vorlane
