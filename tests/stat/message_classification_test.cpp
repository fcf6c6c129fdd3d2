#include "stat/message_classification.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "utils/vstd_istream.h"

namespace {

using vorlane::mime::mail_struct;

std::unique_ptr<mail_struct> parse(const std::string& text) {
  std::istringstream in(text);
  vorlane::utils::VStdIStream stream(&in);
  return std::unique_ptr<mail_struct>(mail_struct::parse(&stream));
}

// Part sizes below are counted by hand: a part's total is its header, its empty line and its body,
// where the line end before a boundary belongs to the boundary.
const char kPlainPart[] = "Content-Type: text/plain\n\nplain\n";  // 25 + 1 + 5 = 31 before a boundary
const char kHtmlPart[] = "Content-Type: text/html\n\n<p>x</p>\n";  // 24 + 1 + 8 = 33 before a boundary
const char kRtfPart[] = "Content-Type: text/rtf\n\n{\\rtf}\n";     // 23 + 1 + 6 = 30 before a boundary

std::string multipart(const std::string& subtype, std::initializer_list<std::string> parts) {
  std::string text = "Content-Type: multipart/" + subtype + "; boundary=b\n\n";
  for (const std::string& part : parts) text += "--b\n" + part;
  return text + "--b--\n";
}

// Facts as one comparable text: "header plain html rtf", then " signed" and " encrypted" when set.
std::string sizes(unsigned long long header, unsigned long long plain, unsigned long long html, unsigned long long rtf,
                  bool isSigned = false, bool isEncrypted = false) {
  return std::to_string(header) + ' ' + std::to_string(plain) + ' ' + std::to_string(html) + ' ' +
         std::to_string(rtf) + (isSigned ? " signed" : "") + (isEncrypted ? " encrypted" : "");
}

struct Case {
  const char* name;
  std::string message;
  std::string expected;
};

TEST(MessageClassification, TopLevelShapesGiveTheirBodySizes) {
  const std::string alternative = multipart("alternative", {kPlainPart, kHtmlPart, kRtfPart});
  const unsigned long long mixedHeader = 42;  // "Content-Type: multipart/mixed; boundary=b\n"
  const unsigned long long altHeader = 48;    // "Content-Type: multipart/alternative; boundary=b\n"
  const std::string inner =
      "Content-Type: multipart/alternative; boundary=i\n\n--i\n" + std::string(kHtmlPart) + "--i--\n";
  const Case cases[] = {
      {"no header block: the whole text is a plain body", "hello\n", sizes(6, 6, 0, 0)},
      {"single plain part", "Subject: x\n\nhello\n", sizes(11, 18, 0, 0)},
      {"single html part", "Content-Type: text/html\n\n<b>\n", sizes(24, 0, 29, 0)},
      {"single other part", "Content-Type: image/png\n\nxx\n", sizes(24, 0, 0, 0)},
      {"mixed, plain first", multipart("mixed", {kPlainPart, kHtmlPart}), sizes(mixedHeader, 31, 0, 0)},
      {"mixed, html first counts no body", multipart("mixed", {kHtmlPart, kPlainPart}),
       sizes(mixedHeader, 0, 0, 0)},
      {"alternative with three bodies", alternative, sizes(altHeader, 31, 33, 30)},
      {"later plain part of an alternative wins",
       multipart("alternative", {kPlainPart, "Content-Type: text/plain\n\nlonger text\n"}),
       sizes(altHeader, 37, 0, 0)},
      {"signed in mixed case gets no sizes", multipart("SiGnEd", {kPlainPart}), sizes(43, 0, 0, 0, true)},
      {"encrypted", multipart("encrypted", {kPlainPart}), sizes(46, 0, 0, 0, false, true)},
      {"related is not looked into", multipart("related", {kPlainPart}), sizes(44, 0, 0, 0)},
      {"alternative inside mixed is looked into", multipart("mixed", {inner, kPlainPart}),
       sizes(mixedHeader, 0, 33, 0)},
  };
  for (const Case& c : cases) {
    std::unique_ptr<mail_struct> tree = parse(c.message);
    ASSERT_TRUE(tree) << c.name;
    const MessageFacts got = classifyMessage(tree.get());
    EXPECT_EQ(sizes(got.headerSize, got.plainTextSize, got.htmlSize, got.rtfSize, got.isSigned, got.isEncrypted),
              c.expected)
        << c.name;
  }
}

}  // namespace
