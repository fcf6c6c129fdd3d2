// Test helper: a fresh directory under TMPDIR (or /tmp), removed with its contents at scope end.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace vorlane {
namespace testing {

class TempDir {
 public:
  TempDir() {
    const char* base = getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/vstat-test-XXXXXX";
    char* made = mkdtemp(&pattern[0]);
    path_ = made ? made : "";
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
