// A temporary directory for a test, removed with everything in it when the test ends, and helpers to
// lay out small stores in it.
#pragma once

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

class ScratchDir {
 public:
  ScratchDir() {
    char pattern[] = "/tmp/vstat-test-XXXXXX";
    const char* made = ::mkdtemp(pattern);
    EXPECT_NE(made, nullptr);
    path_ = made ? made : "/nonexistent";
  }
  ~ScratchDir() { std::system(("rm -rf '" + path_ + "'").c_str()); }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::string& path() const { return path_; }

  // Creates every missing directory of path_/relative.
  std::string mkdirs(const std::string& relative) const {
    std::string full = path_;
    size_t start = 0;
    while (start <= relative.size()) {
      size_t slash = relative.find('/', start);
      if (slash == std::string::npos) slash = relative.size();
      full += "/" + relative.substr(start, slash - start);
      ::mkdir(full.c_str(), 0755);
      start = slash + 1;
    }
    return full;
  }

  // Writes a file (creating its directories) and returns its full path.
  std::string write(const std::string& relative, const std::string& content) const {
    size_t slash = relative.rfind('/');
    if (slash != std::string::npos) mkdirs(relative.substr(0, slash));
    std::string full = path_ + "/" + relative;
    std::ofstream(full, std::ios::binary) << content;
    return full;
  }

 private:
  std::string path_;
};
