// What a parsed part keeps of its headers: the content headers on the part, the message headers in its
// envelope, the defaults for what is missing, and the uuencoded flag of its body; and the header-only
// attachment probe.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "mail_struct_test_support.h"
#include "mime/mail_struct_envelope.h"
#include "utils/vstd_istream.h"

namespace vorlane {
namespace mime {
namespace {

using testing::parseText;
using testing::trickyBody;

TEST(MailStructHeaders, DefaultsMissingContentHeaders) {
  auto root = parseText("Subject: x\n\nbody\n");
  ASSERT_TRUE(root);
  EXPECT_TRUE(root->is("text", "plain"));
  EXPECT_STREQ(root->content_params.get("charset"), "us-ascii");
  EXPECT_STREQ(root->encoding.get(), "7bit");

  auto charset = parseText("Content-Type: Text/HTML; charset=utf-8\nContent-Transfer-Encoding: quoted-printable x\n\n");
  ASSERT_TRUE(charset);
  EXPECT_STREQ(charset->content_type.get(), "Text");
  EXPECT_STREQ(charset->content_subtype.get(), "HTML");
  EXPECT_STREQ(charset->content_params.get("charset"), "utf-8");
  EXPECT_EQ(charset->content_params.size(), 1u);
  EXPECT_STREQ(charset->encoding.get(), "quoted-printable");
}

// A header's name is everything before its first colon: a blank before the colon makes it another name,
// which the part does not keep, so the field stays at its default.
TEST(MailStructHeaders, HeaderNamesAreCutAtTheColonAsTheyStand) {
  struct Case {
    const char* name;
    const char* value;
    const char* stored;  // the field when the header is taken
    const char* (*field)(const mail_struct&);
  };
  const Case cases[] = {
      {"Content-Transfer-Encoding", "base64", "base64", [](const mail_struct& m) { return m.encoding.get(); }},
      {"Content-Disposition", "attachment", "attachment", [](const mail_struct& m) { return m.disposition.get(); }},
      {"Content-Description", "d", "d", [](const mail_struct& m) { return m.content_description.get(); }},
      {"Content-ID", "<i>", "<i>", [](const mail_struct& m) { return m.content_id.get(); }},
      {"Content-MD5", "m", "m", [](const mail_struct& m) { return m.content_md5.get(); }},
      {"Content-Location", "l", "l", [](const mail_struct& m) { return m.content_location.get(); }},
      {"Content-Class", "c", "c", [](const mail_struct& m) { return m.content_class.get(); }},
      {"Content-Type", "image/png", "image", [](const mail_struct& m) { return m.content_type.get(); }},
      {"Subject", "s", "s", [](const mail_struct& m) { return m.envelope.subject.get(); }},
      {"Message-ID", "<id>", "<id>", [](const mail_struct& m) { return m.envelope.message_id.get(); }},
  };
  for (const Case& c : cases) {
    for (const char* gap : {"", " ", "\t", "  "}) {
      auto root = parseText(std::string(c.name) + gap + ": " + c.value + "\n\nbody\n");
      ASSERT_TRUE(root);
      const char* got = c.field(*root);
      EXPECT_EQ(got != nullptr && std::string(got) == c.stored, *gap == '\0') << c.name << " gap '" << gap << "'";
    }
  }
}

// Whole continuation lines are dropped once the unfolded header would reach the buffer size; shorter ones
// after them still fit, and the raw counts keep every byte.
TEST(MailStructHeaders, OverlongHeadersAreTruncatedByWholeContinuationLines) {
  const std::string a(9000, 'a');
  const std::string b(9000, 'b');
  const std::string header = "Subject: " + a + "\r\n " + b + "\r\n c\r\nContent-Type: text/html\r\n";
  auto root = parseText(header + "\r\nbody\r\n");
  ASSERT_TRUE(root);
  EXPECT_EQ(std::string(root->envelope.subject.get()), a + " c");
  EXPECT_TRUE(root->is("text", "html"));
  EXPECT_EQ(root->header_bytes, header.size());
  EXPECT_EQ(root->header_lines, 4u);

  // A single header line longer than a line buffer arrives in pieces and must not break anything.
  const std::string huge = "X-Long: " + std::string(3 * MIME_LINE_MAX, 'z') + "\nContent-Type: text/rtf\n";
  auto pieces = parseText(huge + "\nbody\n");
  ASSERT_TRUE(pieces);
  EXPECT_TRUE(pieces->is("text", "rtf"));
  EXPECT_EQ(pieces->header_bytes, huge.size());
}

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
  const mail_addr_list from = env.addresses(mail_struct_envelope::ADDR_FROM);
  ASSERT_TRUE(from);
  EXPECT_STREQ(from->mailbox, "ann");
  const mail_addr_list to = env.addresses(mail_struct_envelope::ADDR_TO);
  ASSERT_TRUE(to);
  ASSERT_NE(to->next, nullptr);
  EXPECT_STREQ(to->next->mailbox, "carol");
  EXPECT_FALSE(env.addresses(mail_struct_envelope::ADDR_CC));
  EXPECT_STREQ(root->content_description.get(), "not an envelope header");
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
      {"text in capitals", "Content-Type: TEXT/html; charset=x\n\n<p>\n", 0},
      {"text without a subtype", "Content-Type: text\n\nx\n", 1},
      {"no content type", "Subject: s\n\nx\n", 0},
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

// 'M' announces 45 bytes, written as 60 characters; '#' announces 3 bytes in 4 characters; '`' is the
// empty closing data line.
const std::string kFullLine = "M" + std::string(60, 'A') + "\r\n";
const std::string kShortLine = "#86)C\r\n";
const std::string kBlock = "begin 644 file.bin\r\n" + kFullLine + kShortLine + "`\r\nend\r\n";

TEST(MailStructUuencode, CompleteBlockInAWatchedBodySetsTheFlag) {
  struct Case {
    const char* name;
    std::string header;
    std::string body;
    bool expected;
  };
  const Case cases[] = {
      {"plain text", "Content-Type: text/plain\r\n", "Hello,\r\n\r\n" + kBlock + "bye\r\n", true},
      {"no content type at all", "", kBlock, true},
      {"octet stream without uue encoding", "Content-Type: application/octet-stream\r\n", kBlock, false},
      {"x-uuencode encoding", "Content-Type: application/octet-stream\r\nContent-Transfer-Encoding: X-UUEncode\r\n",
       kBlock, true},
      {"capitalised begin, tab and blanks", "", "BEGIN\t  600 f\r\n" + kFullLine + "end\r\n", true},
      {"blank lines inside the block", "", "begin 644 f\r\n" + kFullLine + " \t\r\n" + kShortLine + "end\r\n", true},
      {"no end line", "", "begin 644 f\r\n" + kFullLine + kShortLine, false},
      {"begin without a mode", "", "begin file\r\n" + kFullLine + "end\r\n", false},
      {"begin glued to the mode", "", "begin644 f\r\n" + kFullLine + "end\r\n", false},
      {"data line one character short", "", "begin 644 f\r\nM" + std::string(59, 'A') + "\r\nend\r\n", false},
      {"data line starting with a blank", "", "begin 644 f\r\n " + std::string(60, 'A') + "\r\nend\r\n", false},
      {"a broken block, then a good one", "", "begin 644 f\r\n#8\r\nend\r\n" + kBlock, true},
      // Counted a buffer-load at a time, a long body must still hand its begin lines to the watch.
      {"after a long body", "", trickyBody(600, "\r\n") + kBlock, true},
      {"a long body alone", "", trickyBody(600, "\r\n"), false},
  };
  for (const Case& c : cases) {
    auto root = parseText(c.header + "\r\n" + c.body);
    ASSERT_TRUE(root) << c.name;
    EXPECT_EQ(root->uuencoded != 0, c.expected) << c.name;
    EXPECT_EQ(root->has_uuencoded_part(), c.expected) << c.name;
  }
}

TEST(MailStructUuencode, FlagIsFoundInAnyPartOfTheTree) {
  const std::string text =
      "Content-Type: multipart/mixed; boundary=b\r\n\r\n"
      "--b\r\n\r\nfirst\r\n"
      "--b\r\nContent-Type: message/rfc822\r\n\r\nSubject: fwd\r\n\r\n" + kBlock +
      "--b--\r\n";
  auto root = parseText(text);
  ASSERT_TRUE(root);
  EXPECT_EQ(root->uuencoded, 0);
  EXPECT_EQ(root->first_child->uuencoded, 0);
  EXPECT_TRUE(root->has_uuencoded_part());
  // From the first part: the flag sits in its sibling's enclosed message.
  EXPECT_TRUE(root->first_child->has_uuencoded_part());
  EXPECT_FALSE(parseText("\r\nplain\r\n")->has_uuencoded_part());
}

}  // namespace
}  // namespace mime
}  // namespace vorlane
