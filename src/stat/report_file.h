// Replaces a report file safely: the whole text is written under a fresh, unpredictable temporary name
// (created exclusively) in the target's directory, flushed to disk, and renamed over the target. A
// reader therefore sees the old report or the new one, never half of one; a symbolic link planted at the
// target name is replaced, not followed, and names planted in advance cannot block it; the new file's
// permissions follow the process umask as for a normal create. Thread-safe (no shared state).
#pragma once

#include <string>

// Writes `text` to `path`. On failure returns false, removes the temporary file and describes what
// failed, with the path and the system error text, in `error`.
bool replaceFileContents(const std::string& path, const std::string& text, std::string& error);
