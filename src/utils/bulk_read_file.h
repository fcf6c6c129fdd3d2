// A read-only VFile that fetches from its descriptor in pieces of kPieceSize bytes and serves the
// stream's 4096-byte refills from that piece, so a file costs one read(2) per piece instead of one per
// 4096 bytes (the system call and the page-cache lookup per call are most of a warm read's cost).
//
// Contract: what the stream delivers, and tell64 (the logical position of the next unread byte), are
// exactly those of a plain VFile over the same file; a seek drops the piece and continues from the new
// position. Writes are refused (-1). The piece buffer belongs to the object while it lives and is then
// kept for the next BulkReadFile of the same thread, so reading file after file allocates nothing; at
// most one spare buffer per thread is kept, freed when the thread ends.
//
// Threading: one thread at a time, as VFile.
#pragma once

#include <memory>

#include "utils/vfile.h"

namespace vorlane {
namespace utils {

class BulkReadFile : public VFile {
 public:
  static const unsigned kPieceSize = 256 * 1024;

  BulkReadFile();
  ~BulkReadFile() override;

  int i_read(char* buf, unsigned len) override;
  int i_write(const char* buf, unsigned len) override;
  int i_seek64(long long offset, int whence) override;
  long long i_tell64() override;

 protected:
  bool postOpenOp(int fd, const char* mode) override;

 private:
  std::unique_ptr<char[]> piece_;
  unsigned begin_ = 0;  // next unread byte of the piece
  unsigned end_ = 0;    // bytes in the piece
};

}  // namespace utils
}  // namespace vorlane
