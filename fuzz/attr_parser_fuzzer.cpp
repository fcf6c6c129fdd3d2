// The header parameter parser on arbitrary header values. The input up to its first NUL is the value;
// what follows names the parameter looked up with mail_attr_get (default "charset"), and the input's
// last byte chooses the size of the output buffer, so the cut-to-size paths are reached too.
// Checked beyond crashes: names stay within their field, values exist, a copy equals its original,
// and a successful lookup leaves a terminated text that fits its buffer.
#include <string.h>

#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_check.h"
#include "mime/mail_attr.h"

using vorlane::mime::mail_attr_list;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const size_t nul = input.find('\0');
  const std::string value = input.substr(0, nul);
  const std::string name = nul == std::string::npos || nul + 1 == size ? "charset" : input.substr(nul + 1);

  mail_attr_list list;
  list.parse(value.c_str());
  for (const auto& attr : list) {
    fuzzCheck(memchr(attr.name, '\0', sizeof attr.name) != nullptr, "parameter name not terminated");
    fuzzCheck(attr.value != nullptr, "parameter without a value");
  }
  const mail_attr_list copy(list);
  fuzzCheck(copy.size() == list.size(), "copy lost parameters");
  for (size_t i = 0; i < list.size(); ++i) {
    fuzzCheck(strcmp(copy[i].name, list[i].name) == 0 && strcmp(copy[i].value, list[i].value) == 0,
          "copy differs from its original");
    fuzzCheck(copy[i].value != list[i].value, "copy shares a value with its original");
  }
  list.get(name.c_str());

  const int outSize = size == 0 ? 1 : 1 + data[size - 1] % 80;
  std::vector<char> out(static_cast<size_t>(outSize) + 1, '\x7f');
  if (vorlane::mime::mail_attr_get(value.c_str(), name.c_str(), out.data(), outSize)) {
    fuzzCheck(memchr(out.data(), '\0', static_cast<size_t>(outSize)) != nullptr, "lookup result not terminated");
  }
  fuzzCheck(out[static_cast<size_t>(outSize)] == '\x7f', "lookup wrote past its buffer");
  return 0;
}
