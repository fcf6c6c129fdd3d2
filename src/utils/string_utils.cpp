#include "utils/string_utils.h"

#include <cstring>

namespace vorlane {
namespace utils {

char* strncpys(char* dst, const char* src, size_t size) {
  if (size == 0) return dst;
  size_t len = 0;
  if (src) {
    const void* end = memchr(src, '\0', size - 1);
    len = end ? static_cast<size_t>(static_cast<const char*>(end) - src) : size - 1;
    memcpy(dst, src, len);
  }
  memset(dst + len, 0, size - len);
  return dst;
}

}  // namespace utils
}  // namespace vorlane
