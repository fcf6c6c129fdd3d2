// Makes this process a polite neighbour of a busy server on the same machine: every thread is moved to
// the idle I/O scheduling class (its disk requests are served when nobody else waits for the disk) and
// to the lowest CPU priority, nice 19.
//
// Contract: applies to every thread the process has when called; threads started afterwards inherit both
// settings from the thread that starts them. Needs no privilege. Returns false with error naming the
// failing step (and strerror) when a setting could not be made for some thread; the others stay made.
// Thread-safe, though meant to be called once at start-up.
#pragma once

#include <string>

namespace vorlane {
namespace utils {

bool enterIdlePriority(std::string& error);

}  // namespace utils
}  // namespace vorlane
