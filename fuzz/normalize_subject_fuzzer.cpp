// Subject normalisation on arbitrary subjects (up to the first NUL), both entries: the string form with
// encoded-word decoding through the conversion library, and the in-place pass. The in-place pass must
// return a pointer inside its own buffer, and the level count never goes negative.
#include <string.h>

#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_check.h"
#include "mime/normalize_subject.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string subject(reinterpret_cast<const char*>(data), strnlen(reinterpret_cast<const char*>(data), size));

  int count = 0;
  vorlane::mime::normalizeSubject(subject.c_str(), &count);
  fuzzCheck(count >= 0, "negative level count");
  vorlane::mime::normalizeSubject(subject.c_str(), nullptr);

  std::vector<char> text(subject.begin(), subject.end());
  text.push_back('\0');
  int inPlaceCount = 0;
  const char* base = vorlane::mime::do_normalizeSubject(text.data(), &inPlaceCount);
  fuzzCheck(base >= text.data() && base < text.data() + text.size(), "base text outside the buffer");
  fuzzCheck(inPlaceCount >= 0, "negative level count in place");
  return 0;
}
