// Generated messages: random trees of multiparts (with preambles and epilogues), enclosed messages and
// leaves, with folded headers, empty lines and LF or CRLF line ends. For every well-formed message the
// parsed tree must have the generated shape and the root must account for every byte of the file.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "mail_struct_test_support.h"

namespace vorlane {
namespace mime {
namespace {

using testing::parseText;

class MessageGenerator {
 public:
  MessageGenerator(unsigned seed, const char* eol) : rng_(seed), eol_(eol) {}

  // Appends one part to `out` and its shape to `shape`: T leaf, M[...] multipart, R[...] enclosed message.
  void part(int depth, std::string& out, std::string& shape) {
    const int kind = depth < 4 ? pick(20) : 0;
    for (int i = pick(3); i > 0; --i) {
      out += "X-Header-" + std::to_string(i) + ": " + text() + eol_;
      if (pick(3) == 0) out += "\t" + text() + eol_;
    }
    if (kind >= 13) {
      const std::string boundary = "=_b" + std::to_string(++boundaries_) + "." + std::to_string(pick(1000));
      out += "Content-Type: multipart/" + std::string(pick(2) ? "mixed" : "alternative") + ";" + eol_ +
             " boundary=\"" + boundary + "\"" + eol_ + eol_;
      for (int i = pick(3); i > 0; --i) out += text() + eol_;
      shape += "M[";
      for (int i = 1 + pick(4); i > 0; --i) {
        out += "--" + boundary + eol_;
        part(depth + 1, out, shape);
      }
      out += "--" + boundary + "--" + eol_;
      for (int i = pick(3); i > 0; --i) out += text() + eol_;
      shape += "]";
    } else if (kind >= 10) {
      out += "Content-Type: message/rfc822" + eol_ + eol_;
      shape += "R[";
      part(depth + 1, out, shape);
      shape += "]";
    } else {
      static const char* const kTypes[] = {"", "text/plain; charset=utf-8", "text/html", "application/pdf"};
      const char* type = kTypes[pick(4)];
      if (*type != '\0') out += std::string("Content-Type: ") + type + eol_;
      out += eol_;
      for (int i = pick(6); i > 0; --i) out += (pick(4) == 0 ? std::string() : text()) + eol_;
      shape += "T";
    }
  }

 private:
  int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }

  // Body and header text never starts with a hyphen, so it cannot look like a boundary.
  std::string text() {
    static const char kChars[] = "abcdefghijklmnopqrstuvwxyz0123456789 =+/";
    std::string s(1, 'a' + pick(26));
    for (int i = pick(70); i > 0; --i) s += kChars[pick(sizeof kChars - 1)];
    return s;
  }

  std::mt19937 rng_;
  std::string eol_;
  int boundaries_ = 0;
};

std::string shapeOf(const mail_struct* node) {
  if (node->first_child == nullptr) return "T";
  std::string shape = node->is("message", "rfc822") ? "R[" : "M[";
  for (const mail_struct* c = node->first_child; c != nullptr; c = c->next_sibling) shape += shapeOf(c);
  return shape + "]";
}

TEST(MailStructProperty, WellFormedMessagesKeepTheirShapeAndEveryByte) {
  for (unsigned seed = 1; seed <= 400; ++seed) {
    MessageGenerator gen(seed, seed % 2 ? "\r\n" : "\n");
    std::string text = "Subject: generated " + std::to_string(seed) + (seed % 2 ? "\r\n" : "\n");
    std::string shape;
    gen.part(0, text, shape);
    auto root = parseText(text);
    ASSERT_TRUE(root) << "seed " << seed;
    EXPECT_EQ(shapeOf(root.get()), shape) << "seed " << seed;
    ASSERT_EQ(root->total_bytes, text.size()) << "seed " << seed << "\n" << text;
  }
}

}  // namespace
}  // namespace mime
}  // namespace vorlane
