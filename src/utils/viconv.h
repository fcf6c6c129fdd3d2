// Thin wrapper over the entry points of the run-time conversion library: one conversion handle and
// the shared handle of the library that serves it. Every call fails softly (false, or (size_t)-1)
// when the library or one of its entry points is missing, so a system without the library simply
// has no conversions.
// A VIconv is used by one thread at a time; the library handle is shared through
// SharedLibraryLoader, which is thread-safe.
#pragma once

#include <stddef.h>

#include <string>

#include <boost/noncopyable.hpp>

#include "utils/dll_handle.h"
#include "vxiconv/vxiconv.h"

namespace vorlane {
namespace utils {

// The file name of the conversion library, installed next to the executables.
extern const char* const LIBICONV_NAME;

class VIconv : private boost::noncopyable {
 public:
  // Used by init() when given an empty library name.
  static const char* const DEFAULT_LIBRARY_NAME;

  // Takes the library the process currently uses (the default one until init() chose another).
  VIconv();
  // Closes the open conversion, if any.
  ~VIconv();

  // Loads directory + libraryName (DEFAULT_LIBRARY_NAME when empty; a '/' is put between them when
  // missing; an empty directory means the executable's own) and makes it the library of this object
  // and of every VIconv created afterwards. Closes the open conversion first. True when the library
  // could be opened.
  bool init(const std::string& libraryName, const std::string& directory);

  // Opens a conversion from `from` to `to`, closing the previous one. True when it is open.
  bool open(const char* to, const char* from);
  // One call of the library's conversion entry (iconv convention, see vxiconv/vxiconv.h).
  size_t vxiconv(const char** in, size_t* inLeft, char** out, size_t* outLeft);
  // Closes the open conversion (forgotten even when the library reports an error); false when
  // closing failed.
  bool close();
  // The library's last error number; -1 when the library is missing.
  int get_error() const;
  // Address of `symbol` in the library; null when it or the library is missing.
  void* getFuncAddress(const char* symbol) const;

  bool isOpen() const { return handle_ != noHandle(); }
  bool isLibraryLoaded() const { return library_->isLoaded(); }

 private:
  // A function rather than a constant: a VIconv may be built during static initialisation.
  static vxiconv_t noHandle() { return reinterpret_cast<vxiconv_t>(-1); }

  void attach(const DllHandle::Ptr& library);

  vxiconv_t handle_;
  DllHandle::Ptr library_;
  // Entry points, looked up once per library rather than on every call.
  vxiconv_open_fn open_;
  vxiconv_fn convert_;
  vxiconv_close_fn close_;
  vxiconv_get_errno_fn getErrno_;
};

}  // namespace utils
}  // namespace vorlane
