// Bodies far longer than the stream's 4096-byte buffer are counted a buffer-load at a time; lines that
// could be boundaries or uuencode markers must still be recognised wherever a refill cuts them.
#include <gtest/gtest.h>

#include <string>

#include "mail_struct_test_support.h"

namespace vorlane {
namespace mime {
namespace testing {
namespace {

// A body of `lines` lines that start with the bytes the fast path must hand back to the line reader.
std::string trickyBody(int lines, const char* eol) {
  const char* starts[] = {"-", "--", "--bx", "b", "B", "begin", "plain", ""};
  std::string body;
  for (int i = 0; i < lines; ++i) body += std::string(starts[i % 8]) + std::string(i % 37, 'x') + eol;
  return body;
}

TEST(MailStructLongBody, BoundariesAmongLongTrickyBodiesAreFoundAndEveryByteIsCounted) {
  for (const char* eol : {"\n", "\r\n"}) {
    const std::string e = eol;
    const std::string first = trickyBody(700, eol);
    const std::string second = trickyBody(333, eol);
    const std::string text = "Content-Type: multipart/mixed; boundary=b" + e + e + "--b" + e + e + first + "--b" + e +
                             e + second + "--b--" + e;
    auto root = parseText(text);
    ASSERT_TRUE(root);
    EXPECT_EQ(root->total_bytes, text.size()) << "eol " << e.size();
    ASSERT_EQ(childCount(root.get()), 2);
    // Each part: its empty header line, then its body without the line end that belongs to the boundary.
    EXPECT_EQ(childAt(root.get(), 0)->body_bytes, first.size() - e.size());
    EXPECT_EQ(childAt(root.get(), 1)->body_bytes, second.size() - e.size());
    EXPECT_EQ(childAt(root.get(), 0)->body_lines, 700u);
  }
}

TEST(MailStructLongBody, UuencodedBlockAfterALongBodyIsDetected) {
  std::string text = "Content-Type: text/plain\n\n" + trickyBody(600, "\n");
  const std::string block = "begin 644 f.bin\n#86)C\n`\nend\n";
  auto withBlock = parseText(text + block);
  ASSERT_TRUE(withBlock);
  EXPECT_TRUE(withBlock->uuencoded);
  EXPECT_EQ(withBlock->total_bytes, text.size() + block.size());
  auto without = parseText(text);
  ASSERT_TRUE(without);
  EXPECT_FALSE(without->uuencoded);
}

}  // namespace
}  // namespace testing
}  // namespace mime
}  // namespace vorlane
