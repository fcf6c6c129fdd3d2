// One message file read into facts: the cases the walk's own tests do not reach (a file gone between
// the listing and the open, a message too large to parse, a stop in the middle of a message).
#include "stat/message_file.h"

#include <fcntl.h>

#include <atomic>
#include <string>

#include <gtest/gtest.h>

#include "../support/temp_dir.h"

using vorlane::testing::TempDir;

namespace {

MessageRead read(const std::string& path, MessageFacts& facts, std::string& error,
                 const std::atomic<bool>* stop = nullptr, unsigned char listedType = DT_UNKNOWN) {
  return readMessage(MessageEntry{AT_FDCWD, path.c_str(), listedType, path}, facts, error, stop);
}

// The mail server expunged the message after the walk listed it.
TEST(MessageFile, MessageGoneBeforeItIsOpenedIsReportedAsWithoutFileInfo) {
  TempDir dir;
  const std::string path = dir.path() + "/gone.eml";
  MessageFacts facts;
  std::string error;
  EXPECT_EQ(read(path, facts, error, nullptr, DT_REG), MessageRead::Failed);
  EXPECT_EQ(error, "Error obtaining file info " + path + "\n");
}

// 10001 parts, one more than a tree may hold: counted with its size alone and an error line naming it,
// like a message nested too deep; a stop during its parse leaves it uncounted.
TEST(MessageFile, TooManyPartsCountsWithoutSizesAndAStopLeavesTheMessageOut) {
  TempDir dir;
  std::string text = "Content-Type: multipart/mixed; boundary=b\n\n";
  for (int i = 0; i < 10001; ++i) text += "--b\n\nx\n";
  text += "--b--\n";
  const std::string path = dir.write("parts.eml", text);

  MessageFacts facts;
  std::string error;
  ASSERT_EQ(read(path, facts, error), MessageRead::Counted);
  EXPECT_EQ(facts.size, text.size());
  EXPECT_EQ(facts.headerSize + facts.plainTextSize + facts.htmlSize + facts.rtfSize, 0u);
  EXPECT_EQ(error, "More than 10000 parts in " + path + ": counted without header and body sizes\n");

  const std::atomic<bool> stop{true};
  EXPECT_EQ(read(path, facts, error, &stop), MessageRead::Stopped);
  EXPECT_EQ(error, "");
}

}  // namespace
