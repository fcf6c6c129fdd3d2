// Makes text from a message, a store name, a server or a report file safe to write to a terminal:
// control characters (C0, DEL, and C1 whether encoded in UTF-8 or as single bytes) and bytes that are
// not valid UTF-8 become a visible "\xNN", so no input can move the cursor, retitle the window or
// switch the terminal's modes. Valid UTF-8 text passes unchanged. Pure function.
#pragma once

#include <string>

namespace vorlane {
namespace cli {

std::string terminalSafe(const std::string& text);

}  // namespace cli
}  // namespace vorlane
