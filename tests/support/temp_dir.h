// Test helper shared by every test folder: a fresh directory, removed with everything in it (links not
// followed) at scope end, and small helpers to lay out files and directories in it. path() is empty when
// the directory could not be made. One test thread at a time.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace vorlane {
namespace testing {

// The whole content of a file; "" when it cannot be read.
inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

class TempDir {
 public:
  // Where the directory lives: under /tmp on disk, or in the memory file system /dev/shm (where there is
  // one) for stores of many directories or entries: on a disk mounted with online discard every removed
  // directory costs milliseconds, seconds for a generated store or a deep tree.
  enum Place { OnDisk, InMemory };

  explicit TempDir(Place place = OnDisk) {
    for (const char* base : {place == InMemory ? "/dev/shm" : "/tmp", "/tmp"}) {
      std::string pattern = std::string(base) + "/vstat-test-XXXXXX";
      if (mkdtemp(&pattern[0])) {
        path_ = pattern;
        break;
      }
    }
  }
  ~TempDir() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& relative) const { return path_ + "/" + relative; }

  // Creates every missing directory of path()/relative and returns its full path; "" when that failed.
  std::string mkdirs(const std::string& relative) const {
    std::error_code error;
    std::filesystem::create_directories(file(relative), error);
    return error ? "" : file(relative);
  }

  // Writes a file (creating its directories) and returns its full path.
  std::string write(const std::string& relative, const std::string& content) const {
    const size_t slash = relative.rfind('/');
    if (slash != std::string::npos) mkdirs(relative.substr(0, slash));
    std::ofstream(file(relative), std::ios::binary) << content;
    return file(relative);
  }

  // The whole content of path()/relative; "" when it cannot be read.
  std::string read(const std::string& relative) const { return readFile(file(relative)); }

 private:
  std::string path_;
};

}  // namespace testing
}  // namespace vorlane
