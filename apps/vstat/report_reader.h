// Reads a store statistics report into the report model with a streaming XML parser (libexpat), so a
// report copied between machines, pretty-printed or re-encoded by other tools reads as well as the
// server's own. The structure is checked strictly: a missing, unknown, repeated or misplaced element, a
// number that is damaged or wider than 64 bits, a DOCTYPE or entity declaration, or a file cut short is
// refused with one error line naming the element and the line ("line 12: <value> of counter 'Message
// size': '12x' is not a number of at most 64 bits").
//
// Bounds: the file is read in 64 KiB pieces and refused beyond kMaxReportBytes; the element structure
// allows at most four levels; element texts, collections, counters and buckets have the limits below,
// so memory stays small whatever the input. Pure functions; no shared state.
#pragma once

#include <cstddef>
#include <string>

#include "report_model.h"

namespace vorlane {
namespace cli {

// A real report is about 300 KB with 25 collections of at most 10 counters of at most 28 buckets.
const size_t kMaxReportBytes = 64u * 1024 * 1024;
const size_t kMaxCollections = 1000;
const size_t kMaxCounters = 20000;    // in the whole report
const size_t kMaxBuckets = 200000;    // in the whole report
const size_t kMaxTextBytes = 4096;    // of one name, attribute or element text

// Parses report text. Returns false with `error` set ("line N: ...") when it is not a complete report.
bool parseReport(const std::string& text, Report& report, std::string& error);

// Reads the report file at `path`, which must be a regular file (it is opened without blocking, so a
// FIFO or device is refused, not waited on). False with `error` naming the path and the reason.
bool readReport(const std::string& path, Report& report, std::string& error);

// The whole text of a report file and its modification time, with the same checks; for callers that
// keep the bytes as well.
bool readReportText(const std::string& path, std::string& text, long long& modified, std::string& error);

}  // namespace cli
}  // namespace vorlane
