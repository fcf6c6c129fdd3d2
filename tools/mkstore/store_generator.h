// Writes a complete sample mail store, OUT_DIR/mail/<domain>/<mailbox>/<folders> plus OUT_DIR/mail/#public,
// and reports what it wrote as a Manifest. The same options always give a byte-identical store.
// Refuses a non-empty OUT_DIR unless `force` is set; then only OUT_DIR/mail is replaced.
// Single-threaded; independent calls may run in parallel on different directories.
#pragma once

#include <cstdint>
#include <string>

#include "mkstore/manifest.h"

namespace vorlane {
namespace mkstore {

struct StoreOptions {
  uint64_t messages = 0;  // message files to write, at most kMaxMessages
  uint64_t seed = 0;
  std::string outDir;
  bool force = false;
};

// Returns false with `error` naming the path and the system error when the store could not be written;
// a partly written store is then left in place for inspection.
bool generateStore(const StoreOptions& options, Manifest& manifest, std::string& error);

}  // namespace mkstore
}  // namespace vorlane
