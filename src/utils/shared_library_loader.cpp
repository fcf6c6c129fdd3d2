#include "utils/shared_library_loader.h"

#include <limits.h>
#include <unistd.h>

namespace vorlane {
namespace utils {

SharedLibraryLoader& SharedLibraryLoader::instance() {
  static SharedLibraryLoader loader;
  return loader;
}

DllHandle::Ptr SharedLibraryLoader::getDllHandle(const std::string& name, const std::string& defaultName) {
  tiny::VMutexGuard guard(mutex_);
  const std::string& wanted = !name.empty() ? name : (!name_.empty() ? name_ : defaultName);
  if (handle_ && wanted == name_) return handle_;
  // Copy first: `wanted` may refer to name_ itself.
  std::string newName = wanted;
  handle_.reset();
  handle_ = DllHandle::create(resolvePath(newName));
  name_.swap(newName);
  return handle_;
}

std::string SharedLibraryLoader::resolvePath(const std::string& name) {
  if (name.find('/') != std::string::npos) return name;
  char exe[PATH_MAX];
  ssize_t length = readlink("/proc/self/exe", exe, sizeof(exe) - 1);
  if (length <= 0) return name;
  std::string path(exe, static_cast<size_t>(length));
  return path.substr(0, path.rfind('/') + 1) + name;
}

}  // namespace utils
}  // namespace vorlane
