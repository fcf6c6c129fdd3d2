// Local debug lines: the ctime text of now without its line end, one space, then the caller's text
// with its control characters escaped (line_text.h), flushed at once. Nothing is written when the stream is null. A line is written under the stream's
// own lock, so lines of different threads never interleave.
#pragma once

#include <cstdarg>
#include <cstdio>

namespace vorlane {
namespace vcom {

void writeDebugLineV(FILE* stream, const char* fmt, va_list args);

}  // namespace vcom
}  // namespace vorlane
