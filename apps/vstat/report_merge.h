// Adds one report into another, as if one scan had walked both stores: counts, sums and histogram
// buckets add (sums wrap at 64 bits as the server's counters do), maxima take the larger; averages
// follow from the merged figures when the report is written. The two must have the same structure
// (collections with their rules, counters, bucket limits, in the same order); the header fields must be
// equal unless `keepFirstHeader`, in which case `into` keeps its own. Pure function.
#pragma once

#include <string>

#include "report_model.h"

namespace vorlane {
namespace cli {

// False, with `error` naming the first difference, when the reports cannot be merged; `into` is then
// left partly merged and must not be used.
bool mergeReport(Report& into, const Report& other, bool keepFirstHeader, std::string& error);

}  // namespace cli
}  // namespace vorlane
