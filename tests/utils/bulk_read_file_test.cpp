#include "utils/bulk_read_file.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <string>

#include "../support/temp_dir.h"

using vorlane::testing::TempDir;
using vorlane::utils::BulkReadFile;

namespace {

// Bytes that differ at every position within a line, with a line end every 97 bytes.
std::string numberedBytes(size_t size) {
  std::string text(size, '\0');
  for (size_t i = 0; i < size; ++i) text[i] = i % 97 == 96 ? '\n' : static_cast<char>('!' + i % 89);
  return text;
}

}  // namespace

// Reading line by line through the stream must deliver the file exactly, and tell64 must name the next
// byte, across every edge of the large pieces the file is fetched in.
TEST(BulkReadFile, DeliversTheFileAndItsPositionsAcrossPieceEdges) {
  const size_t piece = BulkReadFile::kPieceSize;
  TempDir dir;
  for (size_t size : {size_t{0}, size_t{1}, piece - 1, piece, piece + 1, 2 * piece + 4095, 2 * piece + 4097}) {
    const std::string content = numberedBytes(size);
    dir.write("message", content);
    BulkReadFile file;
    ASSERT_TRUE(file.doOpen(dir.file("message").c_str(), O_RDONLY));
    std::string read;
    char line[200];
    for (int n; (n = file.gets(line, sizeof line, true)) > 0;) {
      read.append(line, static_cast<size_t>(n));
      ASSERT_EQ(file.tell64(), static_cast<long long>(read.size())) << size;
    }
    EXPECT_EQ(read, content) << size;
  }
}

// After a seek, and in a second file opened on the same object, no byte of an earlier piece is served.
TEST(BulkReadFile, SeeksAndReopensStartFromTheNewPosition) {
  const size_t piece = BulkReadFile::kPieceSize;
  TempDir dir;
  const std::string first = numberedBytes(piece + 500);
  dir.write("first", first);
  dir.write("second", "second file\n");
  BulkReadFile file;
  ASSERT_TRUE(file.doOpen(dir.file("first").c_str(), O_RDONLY));
  char buffer[64];
  ASSERT_EQ(file.read(buffer, 10), 10u);
  for (long long target : {static_cast<long long>(piece) - 3, 5LL}) {
    ASSERT_EQ(file.seek64(target, SEEK_SET), 0);
    ASSERT_EQ(file.read(buffer, 8), 8u);
    EXPECT_EQ(std::string(buffer, 8), first.substr(static_cast<size_t>(target), 8)) << target;
    EXPECT_EQ(file.tell64(), target + 8);
  }
  file.close();
  ASSERT_TRUE(file.doOpen(dir.file("second").c_str(), O_RDONLY));
  const unsigned n = file.read(buffer, sizeof buffer);
  EXPECT_EQ(std::string(buffer, n), "second file\n");
  EXPECT_EQ(file.directWrite("x", 1), -1) << "a read-only stream takes no output";
}
