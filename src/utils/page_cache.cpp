#include "utils/page_cache.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

namespace vorlane {
namespace utils {

namespace {

// Pages asked about per mincore call; the answer vector lives on the stack.
const size_t kPagesPerQuery = 4096;

struct Mapping {
  void* address;
  size_t length;
  ~Mapping() {
    if (address != MAP_FAILED) ::munmap(address, length);
  }
};

}  // namespace

bool anyPageResident(int fd, off_t size) {
  if (size <= 0) return false;
  const size_t pageSize = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
  const Mapping mapping{::mmap(nullptr, static_cast<size_t>(size), PROT_READ, MAP_SHARED, fd, 0),
                        static_cast<size_t>(size)};
  if (mapping.address == MAP_FAILED) return false;
  unsigned char pages[kPagesPerQuery];
  const size_t pageCount = (mapping.length + pageSize - 1) / pageSize;
  for (size_t first = 0; first < pageCount; first += kPagesPerQuery) {
    const size_t count = pageCount - first < kPagesPerQuery ? pageCount - first : kPagesPerQuery;
    if (::mincore(static_cast<uint8_t*>(mapping.address) + first * pageSize, count * pageSize, pages) != 0) {
      return false;
    }
    for (size_t i = 0; i < count; ++i) {
      if (pages[i] & 1) return true;
    }
  }
  return false;
}

void releaseCachedPages(int fd) { ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED); }

}  // namespace utils
}  // namespace vorlane
