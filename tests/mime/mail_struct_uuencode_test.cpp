#include <gtest/gtest.h>

#include <string>

#include "mail_struct_test_support.h"

namespace vorlane {
namespace mime {
namespace {

using testing::parseText;

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
