// A scratch directory below $TMPDIR (or /tmp) for one test, removed with everything in it afterwards.
#pragma once

#include <cstdlib>
#include <string>

#include "mkstore/output_files.h"

namespace vorlane {
namespace testing {

class TempStoreDir {
 public:
  TempStoreDir() {
    const char* base = getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/mkstore-test-XXXXXX";
    if (mkdtemp(&pattern[0])) path_ = pattern;
  }
  ~TempStoreDir() {
    std::string error;
    if (!path_.empty()) mkstore::removeTree(path_, error);
  }
  TempStoreDir(const TempStoreDir&) = delete;
  TempStoreDir& operator=(const TempStoreDir&) = delete;

  const std::string& path() const { return path_; }  // empty when the directory could not be made
  std::string sub(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace testing
}  // namespace vorlane
