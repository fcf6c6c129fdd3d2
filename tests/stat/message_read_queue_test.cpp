#include "stat/message_read_queue.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "../support/temp_dir.h"

using vorlane::testing::TempDir;

namespace {

size_t openDescriptors() {
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

}  // namespace

// A full window holds one descriptor for the directory and at most one open file per parser thread;
// the directory may be closed by the walk while its files are still being read; and every outcome is
// what reading the message directly gives, in queue order, gentle or not.
TEST(MessageReadQueue, ReadsAFullWindowOfOneDirectoryInOrderWithBoundedDescriptors) {
  TempDir dir;
  std::vector<std::string> names;
  for (size_t i = 0; i < MessageReadQueue::kWindow; ++i) {
    names.push_back(std::to_string(i) + ".eml");
    dir.write("#msgs/" + names.back(), "Subject: " + std::to_string(i) + "\n\n" + std::string(i * 100, 'x') + "\n");
  }
  names[5] = "missing.eml";
  for (bool gentle : {false, true}) {
    ScanSettings settings;
    settings.threads = 3;
    settings.gentle = gentle;
    MessageReadQueue queue(settings, nullptr);
    const size_t before = openDescriptors();
    int walkDir = ::open(dir.file("#msgs").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(walkDir, 0);
    for (const std::string& name : names) {
      const std::string path = dir.file("#msgs/" + name);
      ASSERT_TRUE(queue.add(MessageEntry{walkDir, name.c_str(), DT_REG, path}));
    }
    EXPECT_TRUE(queue.full());
    EXPECT_LE(openDescriptors(), before + 1 + 1 + settings.threads) << "walk's directory, duplicate, parsers";
    ::close(walkDir);

    MessageOutcome outcome;
    for (const std::string& name : names) {
      ASSERT_TRUE(queue.take(outcome)) << name;
      const std::string path = dir.file("#msgs/" + name);
      MessageFacts direct;
      std::string error;
      const MessageRead read = readMessage(MessageEntry{AT_FDCWD, path.c_str(), DT_REG, path}, direct, error);
      ASSERT_EQ(outcome.read, read) << name;
      if (read == MessageRead::Counted) {
        EXPECT_EQ(outcome.facts.size, direct.size) << name;
        EXPECT_EQ(outcome.facts.plainTextSize, direct.plainTextSize) << name;
        EXPECT_EQ(outcome.facts.headerSize, direct.headerSize) << name;
      } else {
        EXPECT_EQ(outcome.error, error) << name;
      }
    }
    EXPECT_FALSE(queue.take(outcome));
  }
}
