#include "utils/charset_converter.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>

#include <algorithm>
#include <stdexcept>

namespace vorlane {
namespace utils {

namespace {

const char* orEmpty(const char* text) { return text != nullptr ? text : ""; }

}  // namespace

CharsetConverter::CharsetConverter(const char* from, const char* to, bool throwOnError, bool option)
    : option_(option), fromUtf7Imap_(false), toUtf7Imap_(false), pendingDelivered_(0), dropped_(0) {
  reset();
  // Conversions never fail on a character the target lacks: it is dropped. Modified UTF-7 is not
  // known to the library; it is decoded and encoded here around UTF-16BE.
  std::string target;
  if (Utf7ImapConverter::isUtf7Imap(to)) {
    target = "ucs-2be//IGNORE";
    toUtf7Imap_ = true;
  } else {
    target = std::string(orEmpty(to)) + "//IGNORE";
  }
  std::string source = orEmpty(from);
  if (Utf7ImapConverter::isUtf7Imap(from)) {
    source = "ucs-2be";
    fromUtf7Imap_ = true;
  }
  if (!iconv_.open(target.c_str(), source.c_str()) && throwOnError) {
    char text[255];
    snprintf(
        text, sizeof(text),
        "CharsetConverter: failed to initialize string conversion from \"%s\" encoding to \"%s\" encoding",
        orEmpty(from), orEmpty(to));
    throw std::runtime_error(text);
  }
}

void CharsetConverter::reset() {
  pending_.clear();
  pendingDelivered_ = 0;
  dropped_ = 0;
}

bool CharsetConverter::convert(const char* in, size_t length, std::string& out) {
  out.clear();
  lastError_.clear();
  if (!isOpen() || (in == nullptr && length > 0)) return false;
  if (!fromUtf7Imap_) return convertChunks(in, length, out);
  std::string units;
  if (!Utf7ImapConverter::fromUtf7Imap(in, length, units, lastError_)) return false;
  return convertChunks(units.data(), units.size(), out);
}

bool CharsetConverter::convertChunks(const char* in, size_t length, std::string& out) {
  toUtf7Table_.clear();
  // Back to the initial shift state: an earlier text may have stopped halfway.
  iconv_.vxiconv(nullptr, nullptr, nullptr, nullptr);
  out.reserve(length);
  char buffer[kOutputBufferSize];
  size_t position = 0;
  while (position < length) {
    const size_t chunk = std::min<size_t>(kInputChunkSize, length - position);
    const bool moreInput = position + chunk < length;
    const char* inPtr = in + position;
    size_t inLeft = chunk;
    for (;;) {
      char* outPtr = buffer;
      size_t outLeft = sizeof(buffer);
      const bool failed = iconv_.vxiconv(&inPtr, &inLeft, &outPtr, &outLeft) == static_cast<size_t>(-1);
      const int error = failed ? iconv_.get_error() : 0;
      const size_t produced = static_cast<size_t>(outPtr - buffer);
      appendOutput(buffer, produced, out);
      if (!failed) {
        position += chunk;
        break;
      }
      if (error == E2BIG && produced > 0) continue;
      if (error == EINVAL && inLeft <= kMaxCarryOver && moreInput) {
        // A character cut by the chunk boundary: start the next chunk with it.
        position += chunk - inLeft;
        break;
      }
      if (error == EILSEQ || error == EINVAL) {
        // Under //IGNORE the library has already skipped the bad sequences and reports them only at
        // the end of the chunk; an incomplete character at the very end of the text is dropped.
        ++dropped_;
        position += chunk;
        break;
      }
      return false;
    }
  }
  unsigned flushed = sizeof(buffer);
  if (!flushIconv(buffer, flushed, toUtf7Table_)) return false;
  out.append(buffer, flushed);
  return !toUtf7Imap_ || Utf7ImapConverter::flushTable(out, toUtf7Table_, lastError_);
}

void CharsetConverter::appendOutput(const char* data, size_t length, std::string& out) {
  if (toUtf7Imap_) {
    Utf7ImapConverter::toUtf7Imap(data, length, out, toUtf7Table_);
  } else {
    out.append(data, length);
  }
}

bool CharsetConverter::flushIconv(char* buf, unsigned& len, Utf7ImapConverter::utf7imap_table& table) {
  if (!isOpen() || buf == nullptr) return false;
  if (!toUtf7Imap_) {
    char* outPtr = buf;
    size_t outLeft = len;
    if (iconv_.vxiconv(nullptr, nullptr, &outPtr, &outLeft) == static_cast<size_t>(-1)) return false;
    len = static_cast<unsigned>(outPtr - buf);
    return true;
  }
  // UTF-16BE has no shift state, so this stays empty in practice; it is encoded all the same.
  char raw[16];
  char* outPtr = raw;
  size_t outLeft = sizeof(raw);
  if (iconv_.vxiconv(nullptr, nullptr, &outPtr, &outLeft) == static_cast<size_t>(-1)) return false;
  std::string encoded;
  Utf7ImapConverter::toUtf7Imap(raw, static_cast<size_t>(outPtr - raw), encoded, table);
  if (encoded.size() > len) return false;
  memcpy(buf, encoded.data(), encoded.size());
  len = static_cast<unsigned>(encoded.size());
  return true;
}

bool CharsetConverter::convert(const char** in, unsigned& inLength, char** out, unsigned& outLength) {
  if (!isOpen() || out == nullptr || *out == nullptr) return false;
  memset(*out, 0, outLength);
  const bool haveInput = in != nullptr && *in != nullptr;
  if (pendingDelivered_ == pending_.size() && haveInput && inLength > 0) {
    pendingDelivered_ = 0;
    if (!convert(*in, inLength, pending_)) {
      pending_.clear();
      return false;
    }
  }
  const size_t copied = std::min<size_t>(pending_.size() - pendingDelivered_, outLength);
  memcpy(*out, pending_.data() + pendingDelivered_, copied);
  *out += copied;
  outLength -= static_cast<unsigned>(copied);
  pendingDelivered_ += copied;
  if (pendingDelivered_ == pending_.size()) {
    pending_.clear();
    pendingDelivered_ = 0;
    if (haveInput) {
      *in += inLength;
      inLength = 0;
    }
  }
  return true;
}

bool charsetRecode(const std::string& from, const std::string& to, const char* in, size_t inLength,
                   std::string& out, bool option) {
  CharsetConverter converter(from.c_str(), to.c_str(), false, option);
  if (!converter.isOpen()) {
    out.clear();
    return false;
  }
  return converter.convert(in, inLength, out);
}

bool charsetRecode(const std::string& from, const std::string& to, const std::string& in, std::string& out,
                   bool option) {
  return charsetRecode(from, to, in.data(), in.size(), out, option);
}

bool charsetRecode(const std::string& from, const std::string& to, std::string::const_iterator begin,
                   std::string::const_iterator end, std::string& out, bool option) {
  const size_t length = static_cast<size_t>(end - begin);
  return charsetRecode(from, to, length > 0 ? &*begin : "", length, out, option);
}

int charsetRecode(const char* from, const char* to, const char* in, unsigned inLen, char* out,
                  unsigned* outLen, unsigned* consumed) {
  if (from == nullptr || to == nullptr || (in == nullptr && inLen > 0) || out == nullptr ||
      outLen == nullptr || consumed == nullptr) {
    return EINVAL;
  }
  const unsigned room = *outLen;
  *outLen = 0;
  *consumed = 0;
  VIconv iconv;
  if (!iconv.open(to, from)) return EINVAL;
  const char* inPtr = in != nullptr ? in : "";
  size_t inLeft = inLen;
  char* outPtr = out;
  size_t outLeft = room;
  int result = 0;
  if (iconv.vxiconv(&inPtr, &inLeft, &outPtr, &outLeft) == static_cast<size_t>(-1) ||
      iconv.vxiconv(nullptr, nullptr, &outPtr, &outLeft) == static_cast<size_t>(-1)) {
    result = iconv.get_error();
  }
  *outLen = room - static_cast<unsigned>(outLeft);
  *consumed = inLen - static_cast<unsigned>(inLeft);
  return result;
}

bool haveCharset(const std::string& name) {
  if (Utf7ImapConverter::isUtf7Imap(name.c_str())) return true;
  VIconv iconv;
  return iconv.open("utf-8", name.c_str());
}

bool remapCharset(std::string& out, const std::string& in) {
  static const struct {
    const char* from;
    const char* to;
  } kRemapped[] = {
      {"ks_c_5601-1987", "cp949"}, {"ksc5601", "cp949"}, {"iso-8859-1", "cp1252"},
      {"us-ascii", "cp1252"},      {"none", "cp1252"},   {"iso-8859-8-i", "iso-8859-8"},
      {"gb2312", "gb18030"},
  };
  for (const auto& entry : kRemapped) {
    if (strcasecmp(in.c_str(), entry.from) == 0) {
      out = entry.to;
      return true;
    }
  }
  if (haveCharset(in)) {
    out = in;
    return false;
  }
  static const char kWindows[] = "windows-";
  const size_t prefixLength = sizeof(kWindows) - 1;
  if (in.size() > prefixLength && strncasecmp(in.c_str(), kWindows, prefixLength) == 0) {
    out = "cp" + in.substr(prefixLength);
    return true;
  }
  return false;
}

}  // namespace utils
}  // namespace vorlane
