// Tells the kernel that a file will be read soon, so that its pages are fetched while the caller is still
// busy with earlier files (several reads in flight instead of one at a time); and, once it has been read,
// that its cached pages may go, for a reader that should leave the page cache as it found it.
//
// Contract: only a regular file is ever opened. The type the directory listing reported is trusted when
// it says DT_REG; anything else is looked up with fstatat (following links) first, and the opened
// descriptor is checked again, in case the entry changed in between. The file is opened read-only,
// without blocking and close-on-exec, advised with POSIX_FADV_WILLNEED and closed again before the call
// returns (the same for a release): no descriptor is kept, and a file that vanishes or changes afterwards is the later reader's
// business. Thread-safe (no shared state).
#pragma once

namespace vorlane {
namespace utils {

struct ReadAheadResult {
  bool advised = false;   // the file was a regular file and the read was announced
  bool resident = false;  // some of its pages were already cached before the announcement (only when asked)
};

// dirFd may be AT_FDCWD (name is then a path). With checkResidency the page cache is looked at before
// the read is announced, so that a caller who wants to hand back what it brought in can tell its pages
// from those someone else had cached.
ReadAheadResult announceRead(int dirFd, const char* name, unsigned char listedType, bool checkResidency);
// Drops the file's clean pages from the page cache (see releaseCachedPages).
void releaseReadPages(int dirFd, const char* name, unsigned char listedType);

}  // namespace utils
}  // namespace vorlane
