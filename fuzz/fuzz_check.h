// A property every input of a fuzz target must keep: when it breaks, the target names it on standard
// error and aborts, so libFuzzer keeps the input that broke it.
#pragma once

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

inline void fuzzCheck(bool ok, const char* what) {
  if (ok) return;
  fprintf(stderr, "%s: %s\n", program_invocation_short_name, what);
  abort();
}
