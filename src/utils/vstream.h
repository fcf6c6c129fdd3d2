// Buffered byte streams: VStream keeps one 4096-byte read buffer and one 4096-byte write buffer over
// two primitives (i_read, i_write) that subclasses supply; VFileStream adds positioning.
// Line reading (gets, getstr) takes every byte from the read buffer and calls i_read once per
// buffer-load. Results are plain integers or booleans; nothing throws and errno is left as the
// system set it. Threading: one thread at a time per stream; nothing is locked inside.
#pragma once

#include <cstdint>
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
