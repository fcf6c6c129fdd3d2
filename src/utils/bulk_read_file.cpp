#include "utils/bulk_read_file.h"

#include <algorithm>
#include <cstring>

namespace vorlane {
namespace utils {

namespace {

// The spare piece buffer of this thread, handed from one BulkReadFile to the next.
thread_local std::unique_ptr<char[]> sparePiece;

}  // namespace

BulkReadFile::BulkReadFile()
    : piece_(sparePiece ? std::move(sparePiece) : std::unique_ptr<char[]>(new char[kPieceSize])) {}

BulkReadFile::~BulkReadFile() {
  if (!sparePiece) sparePiece = std::move(piece_);
}

bool BulkReadFile::postOpenOp(int fd, const char* mode) {
  // Whatever a piece held came from the descriptor closed before.
  begin_ = end_ = 0;
  return VFile::postOpenOp(fd, mode);
}

int BulkReadFile::i_read(char* buf, unsigned len) {
  if (begin_ == end_) {
    const int n = VFile::i_read(piece_.get(), kPieceSize);
    if (n <= 0) return n;
    begin_ = 0;
    end_ = static_cast<unsigned>(n);
  }
  const unsigned count = std::min(len, end_ - begin_);
  std::memcpy(buf, piece_.get() + begin_, count);
  begin_ += count;
  return static_cast<int>(count);
}

int BulkReadFile::i_write(const char*, unsigned) { return -1; }

int BulkReadFile::i_seek64(long long offset, int whence) {
  // The descriptor stands behind the unread part of the piece.
  if (whence == SEEK_CUR) offset -= end_ - begin_;
  begin_ = end_ = 0;
  return VFile::i_seek64(offset, whence);
}

long long BulkReadFile::i_tell64() {
  const long long position = VFile::i_tell64();
  return position < 0 ? position : position - (end_ - begin_);
}

}  // namespace utils
}  // namespace vorlane
