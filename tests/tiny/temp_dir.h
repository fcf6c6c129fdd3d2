// Test helper: a fresh directory under /tmp, removed with its contents at scope end.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace vorlane {
namespace testing {

class TempDir {
 public:
  TempDir() {
    char pattern[] = "/tmp/vstat-test-XXXXXX";
    path_ = mkdtemp(pattern) ? pattern : "";
  }
  ~TempDir() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace testing
}  // namespace vorlane
