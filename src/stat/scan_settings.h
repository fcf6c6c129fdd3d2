// How a statistics job uses the machine, read from the environment the server inherits from whoever
// started it (the mail server, `vstat scan`, a benchmark):
//   VSTAT_THREADS  parser threads. 1: none, the job's own thread reads every message file as it always
//                  did. Unset, empty or not a whole number from 1 to kMaxParserThreads: the number of
//                  online CPUs, at most kDefaultThreadsCap.
//   VSTAT_GENTLE   "1": the server runs at idle I/O priority and nice 19 and hands back the cached pages
//                  of message files that nobody had cached before the scan read them. Anything else: off.
// Pure functions of the environment; safe to call from any thread while nobody changes the environment.
#pragma once

extern const char* const kThreadsVariable;  // "VSTAT_THREADS"
extern const char* const kGentleVariable;   // "VSTAT_GENTLE"

const unsigned kMaxParserThreads = 64;
const unsigned kDefaultThreadsCap = 8;

struct ScanSettings {
  unsigned threads = 1;
  bool gentle = false;
};

ScanSettings scanSettingsFromEnvironment();
// Online CPUs, at least 1 and at most kDefaultThreadsCap.
unsigned defaultParserThreads();
