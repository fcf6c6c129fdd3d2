// Conversion of text between character sets through the run-time conversion library, and the free
// functions the rest of the system calls: charsetRecode (whole texts into strings, or caller
// buffers), haveCharset and remapCharset. Every conversion drops what the target cannot hold
// ("//IGNORE" is added to the target) and skips invalid input, so mail in a mislabelled charset still
// yields text. Modified UTF-7 (IMAP), unknown to the library, goes through Utf7ImapConverter and
// UTF-16BE; "utf-7-imap" and "utf-7m" name it on either side.
// When the library or the pair is missing every conversion reports failure; only the constructor with
// throwOnError set throws (std::runtime_error).
// A CharsetConverter is used by one thread at a time; the free functions are thread-safe.
#pragma once

#include <stddef.h>

#include <string>

#include <boost/noncopyable.hpp>

#include "utils/utf7_imap_converter.h"
#include "utils/viconv.h"

namespace vorlane {
namespace utils {

class CharsetConverter : private boost::noncopyable {
 public:
  // Whole texts are fed to the library in chunks of this many bytes, through an output buffer of
  // kOutputBufferSize bytes on the stack.
  static const unsigned kInputChunkSize = 1024;
  static const unsigned kOutputBufferSize = 6144;
  // The longest incomplete character carried from one chunk to the next (longer multibyte and
  // shift sequences do not exist in the charsets mail uses).
  static const unsigned kMaxCarryOver = 5;

  // Prepares the conversion. `option` is kept for callers that pass it and changes nothing in the
  // conversion itself.
  CharsetConverter(const char* from, const char* to, bool throwOnError = false, bool option = false);

  bool isOpen() const { return iconv_.isOpen(); }
  bool option() const { return option_; }

  // Converts a whole text, replacing `out`; true on success. Characters the target cannot hold,
  // invalid sequences and an incomplete character at the very end are dropped and counted.
  bool convert(const std::string& in, std::string& out) { return convert(in.data(), in.size(), out); }
  bool convert(const char* in, size_t length, std::string& out);

  // Buffer interface: converts the whole input into a pending output at the first call, then copies
  // as much as fits into *out (advancing *out and reducing outLength; the rest of the buffer is
  // zeroed). The input is marked consumed (pointer advanced, inLength 0) only once every byte of its
  // output was delivered; until then call again with the same input to collect the rest.
  // False when no conversion is open or the text cannot be converted.
  bool convert(const char** in, unsigned& inLength, char** out, unsigned& outLength);

  // Forgets the pending output of the buffer interface and zeroes the dropped count.
  void reset();

  // Writes what the library still holds at the end of a text (the shift sequence back to the initial
  // state) into buf, through the UTF-7 (IMAP) encoder when that is the target. `len` is the room on
  // entry and the bytes written on return. False when no conversion is open or the output does not
  // fit.
  bool flushIconv(char* buf, unsigned& len, Utf7ImapConverter::utf7imap_table& table);

  // Sequences dropped since the last reset: each call that reported an invalid or unrepresentable
  // sequence, and each incomplete character left at the end of a text, counts once.
  unsigned droppedCount() const { return dropped_; }
  // Why the last conversion failed, for the UTF-7 (IMAP) texts; empty otherwise.
  const std::string& lastError() const { return lastError_; }

 private:
  bool convertChunks(const char* in, size_t length, std::string& out);
  void appendOutput(const char* data, size_t length, std::string& out);

  VIconv iconv_;
  bool option_;
  bool fromUtf7Imap_;
  bool toUtf7Imap_;
  Utf7ImapConverter::utf7imap_table toUtf7Table_;
  std::string pending_;
  size_t pendingDelivered_;  // bytes of pending_ already copied out
  unsigned dropped_;
  std::string lastError_;
};

// Converts `in` from charset `from` to charset `to` into `out`. False when no conversion between them
// can be opened (out is then empty) or the text cannot be converted.
bool charsetRecode(const std::string& from, const std::string& to, const std::string& in, std::string& out,
                   bool option = false);
bool charsetRecode(const std::string& from, const std::string& to, const char* in, size_t inLength,
                   std::string& out, bool option = false);
bool charsetRecode(const std::string& from, const std::string& to, std::string::const_iterator begin,
                   std::string::const_iterator end, std::string& out, bool option = false);

// One conversion on caller buffers, without dropping anything: the names go to the library as they
// are. *outLen is the room on entry and the bytes written on return; *consumed receives the input
// bytes used. Returns 0 on success, otherwise the C library's error number (E2BIG, EILSEQ, EINVAL for
// an incomplete sequence at the end), or EINVAL when the conversion cannot be opened or an argument
// is null.
int charsetRecode(const char* from, const char* to, const char* in, unsigned inLen, char* out,
                  unsigned* outLen, unsigned* consumed);

// True for the UTF-7 (IMAP) names, otherwise when the library converts from `name` to UTF-8.
bool haveCharset(const std::string& name);

// Replaces charset names that mail uses but that should not go to the library as they are:
// Korean KS C 5601 becomes cp949, GB2312 becomes its superset gb18030, "iso-8859-8-i" becomes
// "iso-8859-8", and Latin-1, US-ASCII and "none" are widened to cp1252, because mail labelled so often
// holds Windows characters. A "windows-NNNN" name the library does not know becomes "cpNNNN".
// True when `out` received a replacement; a name the library knows is copied to `out` with false;
// otherwise `out` is left alone and the result is false. Names compare case-insensitively.
bool remapCharset(std::string& out, const std::string& in);

}  // namespace utils
}  // namespace vorlane
