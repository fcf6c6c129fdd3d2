// mkstore: writes a deterministic sample mail store for tests, demonstrations and benchmarks.
//   mkstore --messages N --seed S [--manifest FILE] [--force] OUT_DIR
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "mkstore/output_files.h"
#include "mkstore/store_generator.h"
#include "mkstore/store_layout.h"

namespace {

const char kUsage[] =
    "usage: mkstore --messages N --seed S [--manifest FILE] [--force] OUT_DIR\n"
    "Writes a sample mail store below OUT_DIR/mail and prints what the statistics report of it must show.\n"
    "  --messages N     message files to write (0 to %" PRIu64 ")\n"
    "  --seed S         seed; the same N and S always give the same bytes\n"
    "  --manifest FILE  also write the figures as JSON to FILE\n"
    "  --force          replace OUT_DIR/mail when OUT_DIR is not empty\n";

bool parseNumber(const char* text, uint64_t& value) {
  if (!text || !*text || *text == '-') return false;
  char* end = nullptr;
  errno = 0;
  const unsigned long long v = strtoull(text, &end, 10);
  if (errno != 0 || *end != '\0') return false;
  value = v;
  return true;
}

// Usage goes to standard output when asked for, to standard error with a problem (status 2).
int usage(const char* problem) {
  if (problem) fprintf(stderr, "mkstore: %s\n", problem);
  fprintf(problem ? stderr : stdout, kUsage, vorlane::mkstore::kMaxMessages);
  return problem ? 2 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace vorlane::mkstore;
  StoreOptions options;
  std::string manifestPath;
  bool haveMessages = false, haveSeed = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--messages" || arg == "--seed") {
      uint64_t value;
      if (!parseNumber(i + 1 < argc ? argv[++i] : nullptr, value)) return usage(("bad value for " + arg).c_str());
      (arg == "--messages" ? options.messages : options.seed) = value;
      (arg == "--messages" ? haveMessages : haveSeed) = true;
    } else if (arg == "--manifest") {
      if (i + 1 >= argc) return usage("--manifest needs a file name");
      manifestPath = argv[++i];
    } else if (arg == "--force") {
      options.force = true;
    } else if (arg == "--help" || arg == "-h") {
      return usage(nullptr);
    } else if (!arg.empty() && arg[0] == '-') {
      return usage(("unknown option " + arg).c_str());
    } else if (options.outDir.empty()) {
      options.outDir = arg;
    } else {
      return usage("only one OUT_DIR may be given");
    }
  }
  if (!haveMessages || !haveSeed || options.outDir.empty()) return usage("--messages, --seed and OUT_DIR are required");
  if (options.messages > kMaxMessages) return usage("too many messages");

  const auto start = std::chrono::steady_clock::now();
  Manifest manifest;
  std::string error;
  if (!generateStore(options, manifest, error)) {
    fprintf(stderr, "mkstore: %s\n", error.c_str());
    return 1;
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (!manifestPath.empty()) {
    const std::string json = manifestJson(manifest);
    if (!writeFile(manifestPath, json.data(), json.size(), error)) {
      fprintf(stderr, "mkstore: %s\n", error.c_str());
      return 1;
    }
  }
  printf("store              %s/mail\n", options.outDir.c_str());
  printManifest(manifest, stdout);
  printf("written in         %.2f s (%.1f MB/s)\n", seconds,
         seconds > 0 ? static_cast<double>(manifest.diskBytes) / seconds / 1e6 : 0.0);
  return 0;
}
