// Decoding of RFC 2047 encoded words ("=?charset?B|Q?text?=") in unstructured header text to UTF-8.
// Adjacent encoded words of one charset are decoded together before conversion, so a character split
// across two words survives; white space between adjacent encoded words is dropped. Other text is left
// as it is, and so is any run of words whose charset cannot be converted to UTF-8. Conversion goes
// through utils::charsetRecode. Charset names longer than 63 characters are not taken as encoded words.
// Pure function, safe from any thread as far as the conversion library is.
#pragma once

#include <string>

namespace vorlane {
namespace mime {

// The header text with its encoded words decoded; empty for null.
std::string decodeHeaderText(const char* text);

}  // namespace mime
}  // namespace vorlane
