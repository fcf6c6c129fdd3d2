// Buffered byte streams: VStream keeps one 4096-byte read buffer and one 4096-byte write buffer over
// two primitives (i_read, i_write) that subclasses supply; VFileStream adds positioning.
// Line reading (gets, getstr, getstrView) takes every byte from the read buffer and calls i_read
// once per buffer-load; getstrView hands lines out in place, without copying, when it can, and
// bufferedData/skipBuffered let a caller scan the buffered bytes in place. Results are plain integers
// or booleans; nothing throws and errno is left as the system set it. Threading: one thread at a time
// per stream; nothing is locked inside.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include <boost/noncopyable.hpp>

namespace vorlane {
namespace utils {

class VStream : private boost::noncopyable {
 public:
  static const unsigned kBufferSize = 4096;

  VStream();
  virtual ~VStream();

  virtual void setReadTimeout(int ms);
  virtual void setWriteTimeout(int ms);
  // True when the read buffer holds no unread byte.
  virtual bool isReadEof();
  virtual bool isClosed() const;
  // Primitive transfer: bytes moved, 0 at end of input, negative on error.
  virtual int i_read(char* buf, unsigned len) = 0;
  virtual int i_write(const char* buf, unsigned len) = 0;

  // Flushes pending output, reads one buffer-load and returns its first byte (0..255), or -1 at
  // end of input or on error.
  int fill();
  // Writes out the whole write buffer: 0 on success, -1 when a write fails (the buffer is kept).
  int flush();
  // Copies at most one buffer-load of data; 0 at end of input or on error. Callers loop.
  unsigned read(char* buf, unsigned len);
  // Buffers the data, flushing whenever the buffer becomes full. Returns len, or 0 when a flush failed.
  unsigned write(const char* buf, unsigned len);
  // Reads one line including its LF into buf. Returns the characters stored, or 0 at end of input,
  // on error, or for a line longer than size-2 characters (buf is then left unterminated and the
  // rest of the line stays in the stream). A last line without LF is returned only with keepPartial.
  // CR is kept. size 0 returns 0 without touching buf.
  int gets(char* buf, unsigned size, bool keepPartial);
  // Reads one line including its LF, splitting long lines into pieces of size-1 characters; buf is
  // always terminated (unless size is 0). Returns the characters stored, 0 at end of input.
  int getstr(char* buf, unsigned size);
  // Reads the same line or piece getstr(buf, size) would, without copying it when it can. Returns a
  // pointer to its first byte and stores its length in len; null with len 0 at end of input (or for a
  // size below 2). When the piece lies whole in the read buffer the pointer points there: it is not
  // terminated and stays valid only until the next operation on this stream. A piece that crosses a
  // refill, or a partial last line, is gathered into buf (size bytes) and terminated there.
  // The common case (the line ends in the read buffer) is inline: this is the parser's per-line path.
  const char* getstrView(char* buf, unsigned size, unsigned& len) {
    if (readCount_ > 0 && size >= 2) {
      const char* line = viewBufferedLine(size - 1, len);
      if (line != nullptr) return line;
    }
    return getstrViewSlow(buf, size, len);
  }
  // The unread bytes of the read buffer, in place and without refilling: returns the next byte and stores
  // how many follow in len (0 when the buffer is empty). Valid until the next operation on this stream.
  // With skipBuffered, lets a caller that only counts lines scan whole buffer-loads at once.
  const char* bufferedData(unsigned& len) const {
    len = readCount_ > 0 ? static_cast<unsigned>(readCount_) : 0;
    return readCur_;
  }
  // Takes n bytes (at most what bufferedData reported) out of the read buffer as read.
  void skipBuffered(unsigned n) {
    readCur_ += n;
    readCount_ -= static_cast<int32_t>(n);
  }
  // Formats into a 512-byte stack buffer, allocating only for longer output. True when something
  // was written and every flush succeeded. A result of exactly 512 characters is written as its
  // first 511 characters and a zero byte; longer results are written whole.
  bool printf(const char* format, ...) __attribute__((format(printf, 2, 3)));
  // Writes the bytes of s, no line end added. False for an empty s or a failed flush.
  bool puts(const char* s);
  bool puts(const std::string& s);
  // Appends everything still readable from this stream to dest's write buffer, in 1024-byte steps.
  // A failed flush of dest drops the rest of that step and copying goes on.
  void copyTo(VStream& dest);
  // As copyTo, up to size bytes.
  void copyToSize(VStream& dest, unsigned size);
  // Bypass the write buffer: one i_write call. -1 for a length above INT_MAX.
  int asyncWrite(const char* buf, unsigned len);
  int directWrite(const char* buf, unsigned len);
  // True when the last refill found the end of input (rather than an error); cleared by read().
  // Tells a 0 from gets apart: end of file, or a read error or over-long line.
  bool endOfInputSeen() const { return eof_; }

 protected:
  // Drops unread and unwritten buffered bytes, e.g. when the underlying descriptor is closed.
  void resetBuffers();
  int32_t unreadCount() const { return readCount_; }
  unsigned pendingWriteCount() const { return kBufferSize - writeRoom_; }

 private:
  // Moves buffered bytes into buf[stored..limit) up to and including the next LF; true when an LF was
  // taken. Needs a non-empty read buffer.
  bool takeBufferedLine(char* buf, unsigned& stored, unsigned limit);
  // The copying half of getstr: continues a line in buf from `stored` up to `limit` bytes, the LF or
  // the end of input, and returns the bytes stored. buf is not terminated.
  unsigned gatherLine(char* buf, unsigned stored, unsigned limit);
  // Hands out the next piece of at most `limit` bytes in place when it ends in the read buffer (at an LF,
  // or at the limit); null when the buffered bytes end first. Needs a non-empty read buffer.
  const char* viewBufferedLine(unsigned limit, unsigned& len) {
    const unsigned buffered = static_cast<unsigned>(readCount_);
    const unsigned avail = buffered < limit ? buffered : limit;
    const char* start = readCur_;
    const char* lf = static_cast<const char*>(memchr(start, '\n', avail));
    if (lf == nullptr && avail < limit) return nullptr;
    len = lf != nullptr ? static_cast<unsigned>(lf - start) + 1 : limit;
    readCur_ += len;
    readCount_ -= static_cast<int32_t>(len);
    return start;
  }
  // getstrView when the read buffer is empty or the line crosses a refill: refills, then views or copies.
  const char* getstrViewSlow(char* buf, unsigned size, unsigned& len);

  char readBuf_[kBufferSize];
  char writeBuf_[kBufferSize];
  char* readCur_;
  char* writeCur_;
  int32_t readCount_;
  uint32_t writeRoom_;
  bool eof_;
};

// A stream with positioning primitives. The i_seek / i_tell family works on the underlying source
// and ignores the buffers; tell64 and seek64 give the logical view that accounts for them.
class VFileStream : public VStream {
 public:
  // whence is SEEK_SET, SEEK_CUR or SEEK_END. 0 on success, -1 on failure.
  virtual int i_seek(long offset, int whence) = 0;
  virtual long i_tell() = 0;
  // The base narrows to i_seek / widens i_tell; file-backed streams override with 64-bit calls.
  virtual int i_seek64(long long offset, int whence);
  virtual long long i_tell64();

  // Logical position of the next byte a read would deliver: the source position less the bytes
  // still unread in the read buffer, plus the bytes still waiting in the write buffer.
  // -1 when the source cannot tell its position.
  long long tell64();
  // Logical seek: flushes pending output, drops the read buffer and moves the source; a SEEK_CUR
  // offset counts from the logical position. 0 on success, -1 on failure.
  int seek64(long long offset, int whence);
};

}  // namespace utils
}  // namespace vorlane
