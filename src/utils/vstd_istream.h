// Read-only adapter that lets VStream line reading work on a std::istream.
// Output is swallowed on purpose: i_write reports every byte as written and stores nothing.
// The istream is not owned and must outlive the adapter. One thread at a time.
#pragma once

#include <istream>

#include "utils/vstream.h"

namespace vorlane {
namespace utils {

class VStdIStream : public VFileStream {
 public:
  explicit VStdIStream(std::istream* in) : in_(in) {}

  int i_read(char* buf, unsigned len) override;
  int i_write(const char* buf, unsigned len) override;
  // whence 1 is relative to the current position, 2 to the end, anything else to the start.
  // Clears the stream state first; 0 when the stream is good afterwards, else -1.
  int i_seek(long offset, int whence) override;
  // The input position of the stream buffer, -1 when it cannot tell.
  long i_tell() override;

 private:
  std::istream* in_;
};

}  // namespace utils
}  // namespace vorlane
