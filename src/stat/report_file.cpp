#include "stat/report_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// Bounded: another process that keeps winning the name race cannot keep us looping.
const int kMaxNameAttempts = 100;

std::string describe(const char* what, const std::string& path, int error) {
  return std::string(what) + " " + path + ": " + std::strerror(error);
}

// Opens a new file next to `path` with O_EXCL, so an existing file or link is never reused; mode 0666
// lets the umask decide the permissions, exactly as for a plain create.
int createTemporary(const std::string& path, std::string& tempPath) {
  static std::atomic<unsigned> sequence{0};
  for (int attempt = 0; attempt < kMaxNameAttempts; ++attempt) {
    tempPath = path + ".tmp." + std::to_string(getpid()) + "." + std::to_string(sequence++);
    int fd = ::open(tempPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  errno = EEXIST;
  return -1;
}

bool writeAll(int fd, const std::string& text) {
  const char* p = text.data();
  size_t left = text.size();
  while (left > 0) {
    ssize_t n = ::write(fd, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    left -= static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

bool replaceFileContents(const std::string& path, const std::string& text, std::string& error) {
  std::string tempPath;
  int fd = createTemporary(path, tempPath);
  if (fd < 0) {
    error = describe("cannot create temporary file for", path, errno);
    return false;
  }
  bool written = writeAll(fd, text) && ::fsync(fd) == 0;
  int savedErrno = errno;
  if (::close(fd) != 0 && written) {
    written = false;
    savedErrno = errno;
  }
  if (!written) {
    ::unlink(tempPath.c_str());
    error = describe("cannot write", tempPath, savedErrno);
    return false;
  }
  if (::rename(tempPath.c_str(), path.c_str()) != 0) {
    savedErrno = errno;
    ::unlink(tempPath.c_str());
    error = describe("cannot rename report over", path, savedErrno);
    return false;
  }
  return true;
}
