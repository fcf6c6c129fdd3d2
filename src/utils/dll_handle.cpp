#include "utils/dll_handle.h"

#include <dlfcn.h>

namespace vorlane {
namespace utils {

DllHandle::DllHandle(const std::string& path)
    : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)), path_(path) {
  if (handle_ == nullptr) {
    const char* why = dlerror();
    error_ = "cannot open " + path + ": " + (why ? why : "unknown loader error");
  }
}

DllHandle::~DllHandle() {
  if (handle_ != nullptr) dlclose(handle_);
}

DllHandle::Ptr DllHandle::create(const std::string& path) {
  return Ptr(new DllHandle(path), &DllHandle::deleter);
}

void DllHandle::deleter(DllHandle* handle) { delete handle; }

void* DllHandle::symbol(const char* name) const {
  if (handle_ == nullptr || name == nullptr) return nullptr;
  return dlsym(handle_, name);
}

}  // namespace utils
}  // namespace vorlane
