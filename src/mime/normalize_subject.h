// Reduces a message subject to its base text for threading and comparison: decodes encoded words,
// strips reply and forward markers ("Re:", "Fwd:", "Fw:" with an optional "[level]", a trailing
// "(fwd)", a wrapping "[fwd: ...]") and leading list tags in brackets, and counts the reply and forward
// levels removed. A subject that is only a bracketed tag is kept whole. At most 100 "[fwd:" wrappings
// are unwrapped; level numbers count at most 1000000.
// Pure functions on caller-owned text; safe from any thread as far as the conversion library is.
#pragma once

#include <string>

namespace vorlane {
namespace mime {

// The base subject; adds the number of removed reply and forward levels to *count (may be null).
std::string normalizeSubject(const char* subject, int* count);

// One in-place pass over a writable, terminated text: cuts trailing markers by writing terminators and
// returns where the base text begins inside the same buffer. `count` must not be null.
char* do_normalizeSubject(char* text, int* count);

}  // namespace mime
}  // namespace vorlane
