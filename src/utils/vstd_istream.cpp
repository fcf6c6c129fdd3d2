#include "utils/vstd_istream.h"

namespace vorlane {
namespace utils {

int VStdIStream::i_read(char* buf, unsigned len) {
  in_->read(buf, len);
  return static_cast<int>(in_->gcount());
}

int VStdIStream::i_write(const char*, unsigned len) { return static_cast<int>(len); }

int VStdIStream::i_seek(long offset, int whence) {
  std::ios_base::seekdir dir = whence == 1 ? std::ios_base::cur : whence == 2 ? std::ios_base::end : std::ios_base::beg;
  in_->clear();
  in_->seekg(offset, dir);
  return in_->good() ? 0 : -1;
}

long VStdIStream::i_tell() {
  in_->clear();
  std::streambuf* buf = in_->rdbuf();
  if (!buf) return -1;
  std::streampos pos = buf->pubseekoff(0, std::ios_base::cur, std::ios_base::in);
  return pos == std::streampos(-1) ? -1 : static_cast<long>(pos);
}

}  // namespace utils
}  // namespace vorlane
