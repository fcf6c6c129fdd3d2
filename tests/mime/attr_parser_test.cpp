#include "mime/attr_parser.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "mime/mail_attr.h"

namespace vorlane {
namespace mime {
namespace {

using impl::AttrParser;
typedef std::vector<std::pair<std::string, std::string>> Pairs;

Pairs parsePairs(const char* value) {
  mail_attr_list list;
  list.parse(value);
  Pairs out;
  for (const mail_attr& a : list) out.emplace_back(a.name, a.value);
  return out;
}

std::vector<std::string> errorsOf(const char* parameters) {
  AttrParser parser(parameters);
  parser.fixBug20265();
  std::vector<mail_attr> attrs;
  parser.attrParse(attrs);
  for (mail_attr& a : attrs) free(a.value);
  return std::vector<std::string>(parser.getErrorMsgList().begin(), parser.getErrorMsgList().end());
}

struct ParseCase {
  const char* input;
  Pairs expected;
};

TEST(MailAttrList, ParsesParametersInNameOrder) {
  const ParseCase cases[] = {
      {"text/plain", {}},
      {"text/plain;", {}},
      {"text/plain; charset=us-ascii", {{"charset", "us-ascii"}}},
      {"text/plain; format=flowed; Charset=\"utf-8\"", {{"Charset", "utf-8"}, {"format", "flowed"}}},
      {"text/plain;charset=a;charset=b", {{"charset", "a"}, {"charset", "b"}}},
      {"x; a=; b=\"\"; c=1", {{"a", ""}, {"b", ""}, {"c", "1"}}},
      // A parameter without '=' is dropped and parsing resumes at the next ';'.
      {"x; broken; name=ok", {{"name", "ok"}}},
      {"x; broken;name=ok", {{"name", "ok"}}},
      {"x; a=1 junk; b=2", {{"a", "1"}, {"b", "2"}}},
      // Token bytes run on; '=' ends an ordinary value but not one that begins with an encoded word.
      {"x; name=a(b)/c.d", {{"name", "a(b)/c.d"}}},
      {"x; name==?utf-8?B?YQ==?=", {{"name", "=?utf-8?B?YQ==?="}}},
      {"x; name=\"a\r\n b\"", {{"name", "a b"}}},
      {"x; abcdefghijabcdefghijabcdefghijXYZ=1", {{"abcdefghijabcdefghijabcdefghijX", "1"}}},
      // Numbered sections are joined in section order whatever order they were written in.
      {"x; name*2=c; name*0=a; name*1=b", {{"name", "abc"}}},
      {"x; name*1=\"b c\"; name=plain; name*0=a", {{"name", "plain"}, {"name", "ab c"}}},
      // A boundary keeps its quoted text exactly and ends at the closing quote; other quoted values run on.
      {"multipart/mixed; boundary=\"a b\r\nc\"", {{"boundary", "a b\r\nc"}}},
      {"multipart/mixed; boundary=\"abc\"def; charset=z", {{"boundary", "abc"}, {"charset", "z"}}},
      {"multipart/mixed; name=\"abc\"def", {{"name", "abcdef"}}},
      // The repair joins unquoted encoded words split by folding; quoted values and text outside
      // encoded words keep their blanks.
      {"a; name==?utf-8?Q?one?= \r\n =?utf-8?Q?two?=; x=1", {{"name", "=?utf-8?Q?one?==?utf-8?Q?two?="}, {"x", "1"}}},
      {"a; name=\"=?utf-8?Q?one?= =?utf-8?Q?two?=\"", {{"name", "=?utf-8?Q?one?= =?utf-8?Q?two?="}}},
      {"a; name=plain text", {{"name", "plain"}}},
      // Extended values are converted to UTF-8.
      {"x; title*=us-ascii'en-us'This%20is", {{"title", "This is"}}},
      {"x; f*=iso-8859-1''caf%E9", {{"f", "caf\xc3\xa9"}}},
      // Later extended sections use the first section's charset; plain sections are taken as written.
      {"x; f*1*=%E9; f*0*=iso-8859-1''caf; f*2=%41", {{"f", "caf\xc3\xa9%41"}}},
      // Without a charset the first extended section contributes nothing, nor do later extended ones.
      {"x; f*0*=none; f*1=b; f*2*=c", {{"f", "b"}}},
      {"x; f*=''abc", {{"f", ""}}},
      {"x; f*='en'abc", {{"f", ""}}},
      // A single quote ends the charset; the language is then left out.
      {"x; f*=iso-8859-1'caf%E9", {{"f", "caf\xc3\xa9"}}},
      // Charset names as mail spells them, not as the C library does.
      {"x; boundary*=\"ansi-x3.4-1968''EeQfGwPcQSOJBaQU\"", {{"boundary", "EeQfGwPcQSOJBaQU"}}},
      {"x; f*=Latin_1''caf%E9", {{"f", "caf\xc3\xa9"}}},
  };
  for (const ParseCase& c : cases) EXPECT_EQ(parsePairs(c.input), c.expected) << c.input;
}

TEST(AttrParser, RepairLeavesCleanInputInPlace) {
  const char* input = "; name==?utf-8?Q?a?=; other=\"x y\"";
  AttrParser parser(input);
  parser.fixBug20265();
  EXPECT_EQ(parser.getInput(), input);
}

TEST(AttrParser, RecordsOneMessagePerProblem) {
  struct Case {
    const char* input;
    std::vector<std::string> errors;
  };
  const Case cases[] = {
      {"; a=1; b=2", {}},
      {"; a", {"'=' or '*' expected."}},
      {"; a b=1", {"'=' or '*' expected."}},
      {"; a;b=1; ", {"'=' or '*' expected."}},
      {"; a=1;;", {"Read other token than expected"}},
      {"; a*;", {"<string> or '=' expected."}},
      {"; a*1;", {"'=' or '*' expected."}},
      {"; a*1*x", {"Read other token than expected"}},
      {"; =x; b=1", {"Read other token than expected"}},
      {"; a*=nocharset", {"Charset wasn't found."}},
      {"; a*=utf-8'abc; b*='en'abc", {}},
      {"; a*=x-no-such-charset''%41", {"Charset recode failed : x-no-such-charset => utf-8, text=A"}},
  };
  for (const Case& c : cases) EXPECT_EQ(errorsOf(c.input), c.errors) << c.input;
}

TEST(AttrParser, LongValueKeeps1023CharactersAndComplainsOnce) {
  for (const bool quoted : {false, true}) {
    const std::string body(2000, 'v');
    const std::string input = "x; name=" + (quoted ? "\"" + body + "\"" : body) + "; n" + body + "=1";
    mail_attr_list list;
    list.parse(input.c_str());
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(std::string(list.get("name")), body.substr(0, 1023)) << "quoted " << quoted;
    EXPECT_EQ(std::string(list[1].name), "n" + body.substr(0, 30));

    const std::vector<std::string> errors = errorsOf(input.c_str() + 1);
    EXPECT_EQ(errors, std::vector<std::string>(2, "String token is longer than 1023 bytes."));
  }
}

TEST(AttrParser, PercentDecodingKeepsStrayPercentSigns) {
  const std::pair<const char*, std::string> cases[] = {
      {"This%20is", "This is"}, {"%41%4a%4A", "AJJ"}, {"100%", "100%"}, {"%4", "%4"},
      {"%zz%2", "%zz%2"},      {"%%41", "%A"},       {"%00x", std::string("\0x", 2)},
  };
  for (const auto& c : cases) {
    std::string out;
    AttrParser::decodeHvalue(c.first, out);
    EXPECT_EQ(out, c.second) << c.first;
  }
}

TEST(MailAttrGet, FetchesOneParameterWhenItFits) {
  struct Case {
    const char* value;
    const char* name;
    int size;
    bool ok;
    const char* out;
  };
  const Case cases[] = {
      {"text/plain; charset=utf-8; format=flowed", "CHARSET", 64, true, "utf-8"},
      {"text/plain; xcharset=a; charset=b", "charset", 64, true, "b"},
      {"text/plain; charsetx=a", "charset", 64, false, "unchanged"},
      {"charset=first; charset=second", "charset", 64, true, "first"},
      // An occurrence inside another value is not the parameter and leaves no error behind.
      {"attachment; filename=\"my name.txt\"; name=x", "name", 64, true, "x"},
      {"attachment; filename=\"a b\"", "filename", 64, true, "a b"},
      {"x; name*1=b; name*0=a", "name", 64, true, "ab"},
      {"x; name=abcdef", "name", 7, true, "abcdef"},
      {"x; name=abcdef", "name", 6, false, "abcde"},
      {"x; name", "name", 64, false, "unchanged"},
      {"x; other=1", "name", 64, false, "unchanged"},
  };
  for (const Case& c : cases) {
    char out[64] = "unchanged";
    EXPECT_EQ(mail_attr_get(c.value, c.name, out, c.size), c.ok) << c.value;
    EXPECT_STREQ(out, c.out) << c.value;
  }
}

TEST(AttrParser, NamedParseReportsMissingParameterAndKeepsPosition) {
  AttrParser parser("; a=1");
  char out[8];
  EXPECT_FALSE(parser.namedAttrParse("b", out, sizeof out));
  EXPECT_EQ(std::vector<std::string>(parser.getErrorMsgList().begin(), parser.getErrorMsgList().end()),
            std::vector<std::string>{"Parameter not found in input."});
  std::vector<mail_attr> attrs;
  EXPECT_TRUE(parser.attrParse(attrs));
  ASSERT_EQ(attrs.size(), 1u);
  EXPECT_STREQ(attrs[0].value, "1");
  free(attrs[0].value);
}

TEST(MailAttrList, CopiesAndMovesOwnTheirValues) {
  mail_attr_list original;
  original.parse("x; a=1; b=2");
  mail_attr_list copy(original);
  mail_attr_list assigned;
  assigned.add("stale", "v");
  assigned = original;
  original.clear();
  EXPECT_STREQ(copy.get("B"), "2");
  EXPECT_STREQ(assigned.get("a"), "1");
  EXPECT_EQ(assigned.get("stale"), nullptr);
  EXPECT_NE(copy[0].value, assigned[0].value);

  mail_attr_list moved(std::move(copy));
  EXPECT_TRUE(copy.empty());
  EXPECT_STREQ(moved.get("a"), "1");
  assigned = std::move(moved);
  EXPECT_EQ(assigned.size(), 2u);
}

}  // namespace
}  // namespace mime
}  // namespace vorlane
