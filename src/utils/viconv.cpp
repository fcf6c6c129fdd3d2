#include "utils/viconv.h"

#include <errno.h>

#include "utils/shared_library_loader.h"

namespace vorlane {
namespace utils {

namespace {

const char kLibraryFileName[] = "vxiconv_1.11.1.so";

template <typename Fn>
Fn lookUp(const DllHandle::Ptr& library, const char* symbol) {
  return reinterpret_cast<Fn>(library->symbol(symbol));
}

}  // namespace

const char* const LIBICONV_NAME = kLibraryFileName;
const char* const VIconv::DEFAULT_LIBRARY_NAME = kLibraryFileName;

VIconv::VIconv() : handle_(noHandle()) {
  attach(SharedLibraryLoader::instance().getDllHandle("", DEFAULT_LIBRARY_NAME));
}

VIconv::~VIconv() { close(); }

bool VIconv::init(const std::string& libraryName, const std::string& directory) {
  close();
  std::string path = directory;
  if (!path.empty() && path[path.size() - 1] != '/') path += '/';
  path += libraryName.empty() ? DEFAULT_LIBRARY_NAME : libraryName;
  attach(SharedLibraryLoader::instance().getDllHandle(path, DEFAULT_LIBRARY_NAME));
  return library_->isLoaded();
}

void VIconv::attach(const DllHandle::Ptr& library) {
  library_ = library;
  open_ = lookUp<vxiconv_open_fn>(library_, "vxiconv_open");
  convert_ = lookUp<vxiconv_fn>(library_, "vxiconv");
  close_ = lookUp<vxiconv_close_fn>(library_, "vxiconv_close");
  getErrno_ = lookUp<vxiconv_get_errno_fn>(library_, "vxiconv_get_errno");
}

bool VIconv::open(const char* to, const char* from) {
  if (open_ == nullptr || to == nullptr || from == nullptr) return false;
  close();
  handle_ = open_(to, from);
  return isOpen();
}

size_t VIconv::vxiconv(const char** in, size_t* inLeft, char** out, size_t* outLeft) {
  if (convert_ == nullptr || !isOpen()) {
    errno = EBADF;
    return static_cast<size_t>(-1);
  }
  // The iconv convention takes a non-const input pointer but never writes through it.
  return convert_(handle_, const_cast<char**>(in), inLeft, out, outLeft);
}

bool VIconv::close() {
  if (!isOpen()) return true;
  // The library releases a handle even when closing reports an error, so it is forgotten either way.
  bool closed = close_ != nullptr && close_(handle_) == 0;
  handle_ = noHandle();
  return closed;
}

int VIconv::get_error() const { return getErrno_ != nullptr ? getErrno_() : -1; }

void* VIconv::getFuncAddress(const char* symbol) const { return library_->symbol(symbol); }

}  // namespace utils
}  // namespace vorlane
