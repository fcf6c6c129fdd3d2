// The text of one log line, for local debug lines and for the log records sent to the parent alike.
// Names in it come from the store and from the parent and may hold any byte, so every control
// character (below 0x20, and 0x7F) is written as \xHH and a backslash as \\: no name can start a line
// of its own, move a terminal's cursor, or pass for an escape. A line end at the very end of the text is
// the caller's own and is kept. Bytes from 0x80 up (UTF-8) pass unchanged. Thread-safe.
#pragma once

#include <cstdarg>
#include <string>

namespace vorlane {
namespace vcom {

std::string escapeControls(const std::string& text);
// printf-style formatting, then escapeControls.
std::string formatLineV(const char* fmt, va_list args);

}  // namespace vcom
}  // namespace vorlane
