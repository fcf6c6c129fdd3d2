#include "stat/report_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

std::string describe(const char* what, const std::string& path, int error) {
  return std::string(what) + " " + path + ": " + std::strerror(error);
}

// The process umask, read without changing it (umask() would race with other threads creating files).
// Unknown: 077, so the file stays private.
mode_t currentUmask() {
  std::FILE* status = std::fopen("/proc/self/status", "re");
  if (!status) return 077;
  unsigned mask = 077;
  char line[128];
  while (std::fgets(line, sizeof line, status)) {
    if (std::sscanf(line, "Umask: %o", &mask) == 1) break;
  }
  std::fclose(status);
  return static_cast<mode_t>(mask & 0777);
}

// Creates a new file under an unpredictable name next to `path` (mkstemp: exclusive, never an existing
// file or link), then gives it the permissions a plain create would have had under the umask.
int createTemporary(const std::string& path, std::string& tempPath) {
  std::string pattern = path + ".XXXXXX";
  const int fd = ::mkostemp(&pattern[0], O_CLOEXEC);
  if (fd < 0) return -1;
  tempPath = pattern;
  if (::fchmod(fd, 0666 & ~currentUmask()) != 0) {
    const int savedErrno = errno;
    ::close(fd);
    ::unlink(tempPath.c_str());
    errno = savedErrno;
    return -1;
  }
  return fd;
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
