#include "utils/vstream.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vorlane {
namespace utils {

namespace {

const unsigned kFormatBufferSize = 512;
const unsigned kCopyStep = 1024;

}  // namespace

VStream::VStream()
    : readCur_(readBuf_), writeCur_(writeBuf_), readCount_(0), writeRoom_(kBufferSize), eof_(false) {}

VStream::~VStream() {}

void VStream::setReadTimeout(int) {}
void VStream::setWriteTimeout(int) {}
bool VStream::isReadEof() { return readCount_ == 0; }
bool VStream::isClosed() const { return false; }

int VStream::fill() {
  if (writeRoom_ < kBufferSize && flush() != 0) return -1;
  readCount_ = 0;
  readCur_ = readBuf_;
  int n = i_read(readBuf_, kBufferSize);
  if (n <= 0) {
    if (n == 0) eof_ = true;
    return -1;
  }
  readCur_ = readBuf_ + 1;
  readCount_ = n - 1;
  return static_cast<unsigned char>(readBuf_[0]);
}

int VStream::flush() {
  unsigned used = kBufferSize - writeRoom_;
  unsigned done = 0;
  while (done < used) {
    int n = i_write(writeBuf_ + done, used - done);
    if (n <= 0) return -1;
    done += static_cast<unsigned>(n);
  }
  writeCur_ = writeBuf_;
  writeRoom_ = kBufferSize;
  return 0;
}

unsigned VStream::read(char* buf, unsigned len) {
  eof_ = false;
  if (len == 0) return 0;
  if (readCount_ > 0) {
    unsigned n = len < static_cast<unsigned>(readCount_) ? len : static_cast<unsigned>(readCount_);
    memcpy(buf, readCur_, n);
    readCur_ += n;
    readCount_ -= static_cast<int32_t>(n);
    return n;
  }
  int c = fill();
  if (c == -1) return 0;
  buf[0] = static_cast<char>(c);
  unsigned rest = len - 1 < static_cast<unsigned>(readCount_) ? len - 1 : static_cast<unsigned>(readCount_);
  memcpy(buf + 1, readCur_, rest);
  readCur_ += rest;
  readCount_ -= static_cast<int32_t>(rest);
  return rest + 1;
}

unsigned VStream::write(const char* buf, unsigned len) {
  const char* p = buf;
  unsigned remaining = len;
  // A buffer that becomes exactly full is flushed at once, hence >=.
  while (remaining >= writeRoom_) {
    unsigned room = writeRoom_;
    memcpy(writeCur_, p, room);
    writeCur_ += room;
    writeRoom_ = 0;
    p += room;
    remaining -= room;
    if (flush() != 0) return 0;
  }
  memcpy(writeCur_, p, remaining);
  writeCur_ += remaining;
  writeRoom_ -= remaining;
  return len;
}

// Both line readers copy whole runs of buffered bytes up to the next LF (memchr + memcpy) instead
// of moving byte by byte; only the first byte after a refill goes through the single-byte path.
bool VStream::takeBufferedLine(char* buf, unsigned& stored, unsigned limit) {
  unsigned avail = std::min(static_cast<unsigned>(readCount_), limit - stored);
  const char* lf = static_cast<const char*>(memchr(readCur_, '\n', avail));
  unsigned take = lf ? static_cast<unsigned>(lf - readCur_) + 1 : avail;
  memcpy(buf + stored, readCur_, take);
  readCur_ += take;
  readCount_ -= static_cast<int32_t>(take);
  stored += take;
  return lf != nullptr;
}

int VStream::gets(char* buf, unsigned size, bool keepPartial) {
  if (size == 0) return 0;
  buf[0] = 0;
  unsigned i = 0;  // bytes stored so far
  for (;;) {
    if (readCount_ <= 0) {
      int c = fill();
      if (c == -1) {
        if (keepPartial) {
          buf[i] = 0;
          return static_cast<int>(i);
        }
        buf[0] = 0;
        return 0;
      }
      buf[i++] = static_cast<char>(c);
      // A byte stored at index size-1 makes the line over-long, LF or not: a line fits only with at
      // most size-2 characters before its LF. buf is left unterminated, the rest stays in the stream.
      if (i >= size) return 0;
      if (c == '\n') {
        buf[i] = 0;
        return static_cast<int>(i);
      }
      continue;
    }
    const bool sawLf = takeBufferedLine(buf, i, size);
    if (i >= size) return 0;
    if (sawLf) {
      buf[i] = 0;
      return static_cast<int>(i);
    }
  }
}

unsigned VStream::gatherLine(char* buf, unsigned stored, unsigned limit) {
  while (stored < limit) {
    if (readCount_ <= 0) {
      int c = fill();
      if (c == -1) break;
      buf[stored++] = static_cast<char>(c);
      if (c == '\n') break;
      continue;
    }
    if (takeBufferedLine(buf, stored, limit)) break;
  }
  return stored;
}

int VStream::getstr(char* buf, unsigned size) {
  if (size == 0) return 0;
  const unsigned i = gatherLine(buf, 0, size - 1);
  buf[i] = 0;
  return static_cast<int>(i);
}

const char* VStream::getstrViewSlow(char* buf, unsigned size, unsigned& len) {
  len = 0;
  if (size < 2) {
    getstr(buf, size);
    return nullptr;
  }
  const unsigned limit = size - 1;
  if (readCount_ <= 0) {
    if (fill() == -1) return nullptr;
    // fill() hands out the first byte of the new load; take it back so that a line starting there can
    // be viewed in place like any other.
    --readCur_;
    ++readCount_;
    const char* line = viewBufferedLine(limit, len);
    if (line != nullptr) return line;
  }
  // The line runs on past the buffered bytes (already searched, so copied whole) into the next load.
  const unsigned buffered = static_cast<unsigned>(readCount_);
  memcpy(buf, readCur_, buffered);
  readCur_ += buffered;
  readCount_ = 0;
  len = gatherLine(buf, buffered, limit);
  buf[len] = 0;
  return buf;
}

bool VStream::printf(const char* format, ...) {
  char local[kFormatBufferSize];
  va_list args;
  va_start(args, format);
  int n = vsnprintf(local, sizeof(local), format, args);
  va_end(args);
  if (n < 0) return false;
  if (static_cast<unsigned>(n) > kFormatBufferSize) {
    char* formatted = nullptr;
    va_start(args, format);
    int m = vasprintf(&formatted, format, args);
    va_end(args);
    if (m < 0) return false;
    bool ok = write(formatted, static_cast<unsigned>(m)) == static_cast<unsigned>(m);
    free(formatted);
    return m > 0 && ok;
  }
  // Only results longer than 512 take the allocating path, so a result of exactly 512 characters goes
  // out as it sits in the truncated local buffer: 511 characters and the terminating zero. This is
  // the established output of the stream and is kept deliberately.
  return n > 0 && write(local, static_cast<unsigned>(n)) == static_cast<unsigned>(n);
}

bool VStream::puts(const char* s) {
  size_t len = s ? strlen(s) : 0;
  return len > 0 && write(s, static_cast<unsigned>(len)) == len;
}

bool VStream::puts(const std::string& s) {
  return !s.empty() && write(s.data(), static_cast<unsigned>(s.size())) == s.size();
}

void VStream::copyTo(VStream& dest) {
  char chunk[kCopyStep];
  for (;;) {
    unsigned n = read(chunk, kCopyStep);
    if (n == 0) return;
    dest.write(chunk, n);
  }
}

void VStream::copyToSize(VStream& dest, unsigned size) {
  char chunk[kCopyStep];
  unsigned copied = 0;
  while (copied < size) {
    unsigned want = size - copied < kCopyStep ? size - copied : kCopyStep;
    unsigned n = read(chunk, want);
    if (n == 0) return;
    dest.write(chunk, n);
    copied += n;
  }
}

int VStream::asyncWrite(const char* buf, unsigned len) {
  if (static_cast<int>(len) < 0) return -1;
  return i_write(buf, len);
}

int VStream::directWrite(const char* buf, unsigned len) {
  if (static_cast<int>(len) < 0) return -1;
  return i_write(buf, len);
}

void VStream::resetBuffers() {
  readCur_ = readBuf_;
  readCount_ = 0;
  writeCur_ = writeBuf_;
  writeRoom_ = kBufferSize;
  eof_ = false;
}

int VFileStream::i_seek64(long long offset, int whence) { return i_seek(static_cast<long>(offset), whence); }

long long VFileStream::i_tell64() { return static_cast<long long>(i_tell()); }

long long VFileStream::tell64() {
  long long pos = i_tell64();
  if (pos < 0) return -1;
  return pos - unreadCount() + pendingWriteCount();
}

int VFileStream::seek64(long long offset, int whence) {
  if (flush() != 0) return -1;
  // The source stands unreadCount() bytes ahead of the logical position.
  if (whence == SEEK_CUR) offset -= unreadCount();
  int rc = i_seek64(offset, whence);
  if (rc == 0) resetBuffers();
  return rc;
}

}  // namespace utils
}  // namespace vorlane
