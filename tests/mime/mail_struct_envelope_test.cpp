#include "mime/mail_struct_envelope.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "mail_struct_test_support.h"
#include "utils/vstd_istream.h"

namespace vorlane {
namespace mime {
namespace {

using testing::parseText;

// Importance is matched on the start of its value; X-Priority is a number and leaves the priority alone.
TEST(MailStructEnvelope, ImportanceAndXPriorityAreReadFromTheirValues) {
  struct Case { const char* header; int importance; long x_priority; };
  for (const Case& c : {Case{"Importance: High", 3, 0}, Case{"Importance: LOW (please)", 1, 0},
                        Case{"Importance: normal", 2, 0}, Case{"Importance: hi", 0, 0},
                        Case{"X-Priority: 9 (Lowest)", 0, 9}, Case{"X-Priority: high", 0, 0}}) {
    auto root = parseText(std::string(c.header) + "\n\n");
    ASSERT_TRUE(root);
    EXPECT_EQ(root->envelope.importance, c.importance) << c.header;
    EXPECT_EQ(root->envelope.x_priority, c.x_priority) << c.header;
    EXPECT_EQ(root->envelope.priority, 3) << c.header;
  }
}

TEST(MailStructEnvelope, KeepsMessageHeadersAndReplacesRepeatedOnes) {
  auto root = parseText(
      "From: \"Ann Example\" <ann@example.org>\n"
      "To: bob@example.net, carol@example.net\n"
      "Subject: first\n"
      "subject: second\n"
      "Date: Tue, 3 Mar 2026 10:00:00 +0100 (CET)\n"
      "Message-ID: <1@example.org>\n"
      "Content-Description: not an envelope header\n"
      "\nbody\n");
  ASSERT_TRUE(root);
  const mail_struct_envelope& env = root->envelope;
  EXPECT_STREQ(env.subject.get(), "second");
  EXPECT_STREQ(env.date.get(), "Tue, 3 Mar 2026 10:00:00 +0100");
  EXPECT_STREQ(env.message_id.get(), "<1@example.org>");
  ASSERT_TRUE(env.from);
  EXPECT_STREQ(env.from->mailbox, "ann");
  ASSERT_TRUE(env.to);
  ASSERT_NE(env.to->next, nullptr);
  EXPECT_STREQ(env.to->next->mailbox, "carol");
  EXPECT_STREQ(root->content_description.get(), "not an envelope header");
}

TEST(MailStructEnvelope, ContentTypeOtherThanTextOrAlternativeMarksAnAttachment) {
  struct Case { const char* type; int expected; };
  for (const Case& c : {Case{"text/plain", 0}, Case{"TEXT/html; charset=x", 0},
                        Case{"multipart/alternative; boundary=a", 0}, Case{"multipart/mixed; boundary=a", 1},
                        Case{"application/pdf", 1}, Case{"text", 1}}) {
    mail_struct_envelope env;
    env.set_parameter("Content-Type", c.type);
    EXPECT_EQ(env.has_attachment, c.expected) << c.type;
  }
}

int probe(const std::string& text) {
  std::istringstream in(text);
  utils::VStdIStream stream(&in);
  return mail_struct_envelope::parse(&stream)->has_attachment;
}

TEST(MailStructEnvelope, ProbeLooksAtTheSubPartsWithoutBuildingATree) {
  struct Case { const char* name; std::string text; int expected; };
  const Case cases[] = {
      {"single pdf", "Content-Type: application/pdf\n\n%PDF\n", 1},
      {"mixed with text parts only",
       "Content-Type: multipart/mixed; boundary=b\n\n--b\n\none\n--b\nContent-Type: text/html\n\n<p>\n--b--\n", 0},
      {"mixed with an image",
       "Content-Type: multipart/mixed; boundary=b\n\n--b\n\none\n--b\nContent-Type: image/png\n\nPNG\n--b--\n", 1},
      {"alternative inside mixed, text only",
       "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: multipart/alternative; boundary=a\n\n"
       "--a\n\nplain\n--a\nContent-Type: text/html\n\n<p>\n--a--\nepilogue\n--b\n\nlast\n--b--\n",
       0},
      {"image after a closed alternative",
       "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: multipart/alternative; boundary=a\n\n"
       "--a\n\nplain\n--a--\n--b\nContent-Type: image/gif\n\nGIF\n--b--\n",
       1},
      {"image inside an alternative",
       "Content-Type: multipart/alternative; boundary=a\n\n--a\n\nplain\n--a\nContent-Type: image/gif\n\nG\n--a--\n",
       1},
  };
  for (const Case& c : cases) EXPECT_EQ(probe(c.text), c.expected) << c.name;
}

// Alternatives nested beyond the boundary limit are not followed: no deep recursion on hostile input.
TEST(MailStructEnvelope, ProbeStopsAtTheBoundaryLimit) {
  std::string text;
  for (int i = 0; i < 5000; ++i) {
    text += "Content-Type: multipart/alternative; boundary=a" + std::to_string(i) + "\n\n--a" + std::to_string(i) + "\n";
  }
  text += "Content-Type: image/png\n\nx\n";
  EXPECT_EQ(probe(text), 0);
}

}  // namespace
}  // namespace mime
}  // namespace vorlane
