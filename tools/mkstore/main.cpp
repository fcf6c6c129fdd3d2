// mkstore: writes a deterministic sample mail store for tests, demonstrations and benchmarks.
//   mkstore --messages N --seed S [--manifest FILE] [--force] OUT_DIR
// Exit status: 0 written, 1 the store or the manifest could not be written, 2 usage error.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <CLI/CLI.hpp>

#include "mkstore/output_files.h"
#include "mkstore/store_generator.h"
#include "mkstore/store_layout.h"
#include "vstat_version.h"

namespace {

using vorlane::mkstore::kMaxMessages;
using vorlane::mkstore::StoreOptions;

const char kUsageLine[] = "usage: mkstore --messages N --seed S [--manifest FILE] [--force] OUT_DIR\n";

// Every usage error is one line naming the problem, then the usage line; status 2.
int usageError(const std::string& problem) {
  fprintf(stderr, "mkstore: %s\n%sRun 'mkstore --help' for more information.\n", problem.c_str(), kUsageLine);
  return 2;
}

bool parseNumber(const std::string& text, uint64_t& value) {
  if (text.empty() || text[0] < '0' || text[0] > '9') return false;
  char* end = nullptr;
  errno = 0;
  const unsigned long long v = strtoull(text.c_str(), &end, 10);
  if (errno != 0 || *end != '\0') return false;
  value = v;
  return true;
}

// Fills `options` from the command line; returns -1 to go on, else the status to end with. The parser
// hands back what it does not know, and values are taken as text and checked here, so that every
// problem is reported in the same words.
int parseCommandLine(int argc, char** argv, StoreOptions& options, std::string& manifestPath) {
  CLI::App app("Writes a sample mail store below OUT_DIR/mail and prints what the statistics report of it\n"
               "must show. The same N and S always give the same bytes.",
               "mkstore");
  app.allow_extras();
  app.set_version_flag("--version", VSTAT_VERSION);
  app.footer("Exit status: 0 written, 1 the store or the manifest could not be written, 2 usage error.");
  std::string messages, seed;
  // A value may be left out, so that a missing one is reported like a wrong one; a repeated option
  // keeps its last value.
  const auto valueOption = [&app](const char* name, std::string& text, const std::string& help, const char* type) {
    return app.add_option(name, text, help)
        ->type_name(type)
        ->expected(0, 1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  };
  CLI::Option* messagesOption =
      valueOption("--messages", messages, "message files to write (0 to " + std::to_string(kMaxMessages) + ")", "N");
  CLI::Option* seedOption = valueOption("--seed", seed, "seed of the generator", "S");
  CLI::Option* manifestOption = valueOption("--manifest", manifestPath, "also write the figures as JSON to FILE", "FILE");
  app.add_flag("--force", options.force, "replace OUT_DIR/mail when OUT_DIR is not empty");
  app.add_option("OUT_DIR", options.outDir, "the store's directory")->type_name("");
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    return usageError(e.what());
  }

  for (const std::string& extra : app.remaining()) {
    if (extra.size() > 1 && extra[0] == '-') return usageError("unknown option " + extra);
  }
  if (!app.remaining().empty()) return usageError("only one OUT_DIR may be given");
  for (auto [option, text, value] : {std::make_tuple(messagesOption, &messages, &options.messages),
                                     std::make_tuple(seedOption, &seed, &options.seed)}) {
    if (option->count() > 0 && !parseNumber(*text, *value)) return usageError(option->get_name() + " needs a number");
  }
  if (manifestOption->count() > 0 && manifestPath.empty()) return usageError("--manifest needs a file name");
  if (messagesOption->count() == 0 || seedOption->count() == 0 || options.outDir.empty()) {
    return usageError("--messages, --seed and OUT_DIR are required");
  }
  if (options.messages > kMaxMessages) return usageError("--messages must be at most " + std::to_string(kMaxMessages));
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace vorlane::mkstore;
  StoreOptions options;
  std::string manifestPath;
  const int status = parseCommandLine(argc, argv, options, manifestPath);
  if (status >= 0) return status;

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
