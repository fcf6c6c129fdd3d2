// Questions to and hints for the page cache about one open file: whether any of its pages are cached, and
// giving its cached pages back once they are no longer needed.
//
// Contract: anyPageResident maps the file (never touching its pages) and asks mincore, a bounded number of
// pages at a time, so the cost in memory does not grow with the file; it answers false for an empty file
// or when the file cannot be mapped. releaseCachedPages drops the clean cached pages of the whole file
// (POSIX_FADV_DONTNEED); pages others keep using come back on their next read. Thread-safe.
#pragma once

#include <sys/types.h>

namespace vorlane {
namespace utils {

bool anyPageResident(int fd, off_t size);
void releaseCachedPages(int fd);

}  // namespace utils
}  // namespace vorlane
