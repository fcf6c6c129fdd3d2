// Line parsers of the two small text files every store folder may hold: status.fld (the folder's type
// and two totals, one "<key><value>" line each) and index.fld (one line of tokens per message).
// Both formats keep their historical quirks: the numbers are converted as a 32-bit C library would
// (status values saturate at the signed 32-bit range and are sign-extended into the 64-bit totals,
// index sizes saturate at the unsigned 32-bit range), and an index line that starts with white space
// loses its first token. Pure functions, thread-safe.
#pragma once

#include <string>

#include "stat/collection.h"

// Line buffer of both readers: a line of 511 or more characters before its LF ends the reading of the
// file at that line (the line reader reports it like the end of the file).
constexpr unsigned kStoreLineBufferSize = 512;

// The values a status.fld yields; the defaults stand for a missing file or key.
struct FolderStatus {
  Collection::FolderType type = Collection::MailFolder;
  unsigned long long firstTotal = 0;   // key "M"
  unsigned long long secondTotal = 0;  // key "S"
};

// Applies one status.fld line to `status`; unknown keys are ignored, a repeated key takes its last value.
void parseStatusLine(const char* line, FolderStatus& status);

// Reads the class ("C" token, default "IPM.Note") and size ("S" token, default 0) of one index line.
// The line's own LF counts as white space.
void parseIndexLine(char* line, unsigned long long& size, std::string& messageClass);
