// The two small text files every store folder may hold: status.fld (the folder's type and two totals,
// one "<key><value>" line each) and index.fld (one line of tokens per message), their line parsers and
// their readers.
// Both formats keep their historical quirks: the numbers are converted as a 32-bit C library would
// (status values saturate at the signed 32-bit range and are sign-extended into the 64-bit totals,
// index sizes saturate at the unsigned 32-bit range), and an index line that starts with white space
// loses its first token.
// The readers open a file without blocking and read it only when it is a regular file, so a FIFO or a
// device under either name cannot hold up the caller. No shared state: callable from any thread.
#pragma once

#include <functional>
#include <string>

#include "stat/collection.h"

// Line buffer of both readers: a line of 511 or more characters before its LF ends the reading of the
// file at that line (the line reader reports it like the end of the file).
constexpr unsigned kStoreLineBufferSize = 512;

// The values a status.fld yields; the defaults stand for a missing file or key.
struct FolderStatus {
  Collection::FolderType type = Collection::MailFolder;  // key "T"
  unsigned long long messageCount = 0;                   // key "M"
  unsigned long long folderSize = 0;                     // key "S"
};

// One index.fld line.
struct IndexEntry {
  std::string messageClass = "IPM.Note";  // "C" token
  unsigned long long size = 0;            // "S" token
};

// Applies one status.fld line to `status`; unknown keys are ignored, a repeated key takes its last value.
void parseStatusLine(const char* line, FolderStatus& status);

// Reads the class and size of one index line into `entry` (defaults first). The line's own LF counts
// as white space.
void parseIndexLine(char* line, IndexEntry& entry);

enum class FolderFileRead {
  Read,        // the file was a regular file and has been read
  Missing,     // it could not be opened (absent, unreadable)
  NotRegular,  // it opened, but is a FIFO, device, directory ...: not read
};

// Reads folderPath + "/status.fld" into `status`, which keeps its defaults unless Read.
FolderFileRead readFolderStatus(const std::string& folderPath, FolderStatus& status);

// Calls `entry` for every line of the index at `path`, in file order.
FolderFileRead readFolderIndex(const std::string& path, const std::function<void(const IndexEntry&)>& entry);
