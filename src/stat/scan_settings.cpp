#include "stat/scan_settings.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

const char* const kThreadsVariable = "VSTAT_THREADS";
const char* const kGentleVariable = "VSTAT_GENTLE";

unsigned defaultParserThreads() {
  const long cpus = ::sysconf(_SC_NPROCESSORS_ONLN);
  if (cpus < 1) return 1;
  return cpus > static_cast<long>(kDefaultThreadsCap) ? kDefaultThreadsCap : static_cast<unsigned>(cpus);
}

ScanSettings scanSettingsFromEnvironment() {
  ScanSettings settings;
  settings.threads = defaultParserThreads();
  if (const char* text = getenv(kThreadsVariable)) {
    char* end = nullptr;
    const unsigned long threads = strtoul(text, &end, 10);
    if (*text >= '0' && *text <= '9' && *end == '\0' && threads >= 1 && threads <= kMaxParserThreads) {
      settings.threads = static_cast<unsigned>(threads);
    }
  }
  const char* gentle = getenv(kGentleVariable);
  settings.gentle = gentle && strcmp(gentle, "1") == 0;
  return settings;
}
