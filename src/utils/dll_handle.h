// Owns one handle of a shared library opened at run time with immediate binding. A DllHandle lives
// only under the shared pointer made by create(), whose deleter closes the library when the last
// user lets go; a failed open still yields an object (not loaded, with the loader's error text), so
// callers never have to test the pointer itself.
// Thread-safe after construction: lookups only read the handle.
#pragma once

#include <string>

#include <boost/noncopyable.hpp>
#include <boost/shared_ptr.hpp>

namespace vorlane {
namespace utils {

class DllHandle : private boost::noncopyable {
 public:
  typedef boost::shared_ptr<DllHandle> Ptr;

  // Opens the library file `path` (dlopen rules: a name without '/' is searched on the loader's
  // path). Never null.
  static Ptr create(const std::string& path);
  // Closes the library and frees the object; the deleter of every Ptr.
  static void deleter(DllHandle* handle);

  bool isLoaded() const { return handle_ != nullptr; }
  // The operating-system handle; null when opening failed.
  void* handle() const { return handle_; }
  // Address of `name` in the library; null when the library is not loaded or lacks the symbol.
  void* symbol(const char* name) const;
  const std::string& path() const { return path_; }
  // Why opening failed ("cannot open <path>: <loader text>"); empty when loaded.
  const std::string& error() const { return error_; }

 private:
  explicit DllHandle(const std::string& path);
  ~DllHandle();

  void* handle_;
  std::string path_;
  std::string error_;
};

}  // namespace utils
}  // namespace vorlane
