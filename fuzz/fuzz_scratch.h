// Scratch files for fuzz targets that read their input the way production does, through a file.
// A target creates its scratch directory once (in TMPDIR, else /tmp) and rewrites its files for every
// input; everything is removed when the process exits. Each file keeps one descriptor open for writing
// and is rewritten in place and cut to length, never truncated to zero and closed: on ext4 that
// sequence forces a write-back, which would slow a target down to a few hundred inputs a second.
// Any failure here is a broken environment, not a finding, so it aborts with a message naming the path
// and the system error. Single-threaded, like libFuzzer's calls into a target.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace fuzzscratch {

[[noreturn]] inline void die(const char* what, const std::string& path) {
  fprintf(stderr, "fuzz scratch: %s %s: %s\n", what, path.c_str(), strerror(errno));
  abort();
}

class ScratchDir {
 public:
  ScratchDir(const char* tag, std::initializer_list<const char*> names) {
    const char* base = getenv("TMPDIR");
    std::string templ = std::string(base && *base ? base : "/tmp") + "/vstat_fuzz_" + tag + "_XXXXXX";
    if (!mkdtemp(&templ[0])) die("cannot create directory", templ);
    path_ = templ;
    for (const char* name : names) {
      const std::string file = this->file(name);
      const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
      if (fd < 0) die("cannot create", file);
      files_.push_back(File{file, fd});
    }
  }
  ~ScratchDir() {
    for (const File& f : files_) {
      close(f.fd);
      unlink(f.path.c_str());
    }
    rmdir(path_.c_str());
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const char* name) const { return path_ + "/" + name; }

  // Makes file number `index` (in the constructor's order) hold exactly the given bytes.
  void rewrite(size_t index, const uint8_t* data, size_t size) {
    const File& f = files_.at(index);
    size_t done = 0;
    while (done < size) {
      const ssize_t n = pwrite(f.fd, data + done, size - done, static_cast<off_t>(done));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) die("cannot write", f.path);
      done += static_cast<size_t>(n);
    }
    if (ftruncate(f.fd, static_cast<off_t>(size)) != 0) die("cannot cut", f.path);
  }

 private:
  struct File {
    std::string path;
    int fd;
  };
  std::string path_;
  std::vector<File> files_;
};

}  // namespace fuzzscratch
