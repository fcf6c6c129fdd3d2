// Process-wide cache of the one run-time library in use (the charset conversion library). Created on
// first use, destroyed at process exit. A name without a directory is looked for next to the running
// executable, so every program and test binary finds the library installed beside it without any
// environment variable. The cache holds one library at a time: asking for another name replaces it,
// and the old library stays loaded until its last user drops its handle.
// Thread-safe: lookups and replacements are serialised by the loader's mutex.
#pragma once

#include <string>

#include <boost/noncopyable.hpp>

#include "tiny/vmutex.h"
#include "utils/dll_handle.h"

namespace vorlane {
namespace utils {

class SharedLibraryLoader : private boost::noncopyable {
 public:
  static SharedLibraryLoader& instance();

  // The handle of library `name`; an empty name means the cached name, or defaultName when nothing
  // is cached yet. Names are compared byte for byte. Never null; check DllHandle::isLoaded.
  DllHandle::Ptr getDllHandle(const std::string& name, const std::string& defaultName);

  // The file a name is opened from: unchanged when it holds a '/', otherwise prefixed with the
  // directory of the running executable (left bare when that cannot be read).
  static std::string resolvePath(const std::string& name);

 private:
  SharedLibraryLoader() {}

  tiny::VMutex mutex_;
  std::string name_;
  DllHandle::Ptr handle_;
};

}  // namespace utils
}  // namespace vorlane
