// The modified UTF-7 (IMAP) converter. Decoding takes the input as a mailbox name; encoding takes it as
// UTF-16BE, cut in two at a point chosen by the first byte so that the carried-over state is exercised.
// Round trip: whatever the encoder writes for an even number of bytes decodes back to those bytes, and
// a decoded name re-encodes to the very same text (one name, one spelling).

#include <cstdint>
#include <string>

#include "fuzz_check.h"
#include "utils/utf7_imap_converter.h"

using vorlane::utils::Utf7ImapConverter;

namespace {

std::string encode(const std::string& utf16, size_t cut, bool& flushed) {
  Utf7ImapConverter::utf7imap_table table;
  std::string out, error;
  Utf7ImapConverter::toUtf7Imap(utf16.data(), cut, out, table);
  Utf7ImapConverter::toUtf7Imap(utf16.data() + cut, utf16.size() - cut, out, table);
  flushed = Utf7ImapConverter::flushTable(out, table, error);
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);

  std::string decoded, error;
  if (Utf7ImapConverter::fromUtf7Imap(input, decoded, error)) {
    fuzzCheck(decoded.size() % 2 == 0, "decoded name holds half a code unit");
    bool flushed = false;
    fuzzCheck(encode(decoded, decoded.size() / 2, flushed) == input && flushed, "decoded name re-encodes differently");
  } else {
    fuzzCheck(!error.empty(), "refused without an error text");
  }

  const size_t cut = size == 0 ? 0 : data[0] % (size + 1);
  bool flushed = false;
  const std::string encoded = encode(input, cut, flushed);
  fuzzCheck(flushed == (size % 2 == 0), "flush result does not match the input's parity");
  if (flushed) {
    std::string back;
    fuzzCheck(Utf7ImapConverter::fromUtf7Imap(encoded, back, error), "encoder output refused by the decoder");
    fuzzCheck(back == input, "round trip changed the text");
  }
  return 0;
}
