#include "mkstore/output_files.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vorlane {
namespace mkstore {

namespace {

std::string failure(const char* what, const std::string& path, int err) {
  return std::string(what) + " " + path + ": " + strerror(err);
}

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }
  // Closes now and reports the result, so that a failed final flush to disk is not lost.
  int close() {
    const int rc = ::close(fd_);
    fd_ = -1;
    return rc;
  }

 private:
  int fd_;
};

class DirectoryHandle {
 public:
  explicit DirectoryHandle(const std::string& path) : dir_(opendir(path.c_str())) {}
  ~DirectoryHandle() {
    if (dir_) closedir(dir_);
  }
  DirectoryHandle(const DirectoryHandle&) = delete;
  DirectoryHandle& operator=(const DirectoryHandle&) = delete;
  DIR* get() const { return dir_; }

 private:
  DIR* dir_;
};

int removeEntry(const char* path, const struct stat*, int, struct FTW*) {
  return ::remove(path) == 0 ? 0 : errno;
}

}  // namespace

bool makeDirectory(const std::string& path, std::string& error) {
  if (mkdir(path.c_str(), 0755) == 0) return true;
  error = failure("Cannot create directory", path, errno);
  return false;
}

bool writeFile(const std::string& path, const char* data, size_t size, std::string& error) {
  Descriptor fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (fd.get() < 0) {
    error = failure("Cannot create file", path, errno);
    return false;
  }
  while (size > 0) {
    const ssize_t n = write(fd.get(), data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      error = failure("Cannot write file", path, errno);
      return false;
    }
    data += n;
    size -= static_cast<size_t>(n);
  }
  if (fd.close() != 0) {
    error = failure("Cannot close file", path, errno);
    return false;
  }
  return true;
}

bool makeSymlink(const std::string& target, const std::string& path, std::string& error) {
  if (symlink(target.c_str(), path.c_str()) == 0) return true;
  error = failure("Cannot create symbolic link", path, errno);
  return false;
}

DirectoryState inspectDirectory(const std::string& path, std::string& error) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) {
    if (errno == ENOENT) return DirectoryState::Missing;
    error = failure("Cannot examine", path, errno);
    return DirectoryState::Unreadable;
  }
  if (!S_ISDIR(st.st_mode)) return DirectoryState::NotADirectory;
  DirectoryHandle dir(path);
  if (!dir.get()) {
    error = failure("Cannot open directory", path, errno);
    return DirectoryState::Unreadable;
  }
  while (const dirent* e = readdir(dir.get())) {
    if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) return DirectoryState::NotEmpty;
  }
  return DirectoryState::Empty;
}

bool removeTree(const std::string& path, std::string& error) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0 && errno == ENOENT) return true;
  // 64 descriptors at most: deep trees are walked with descriptors reused, not one per level.
  const int rc = nftw(path.c_str(), removeEntry, 64, FTW_DEPTH | FTW_PHYS);
  if (rc == 0) return true;
  error = failure("Cannot remove", path, rc > 0 ? rc : errno);
  return false;
}

}  // namespace mkstore
}  // namespace vorlane
