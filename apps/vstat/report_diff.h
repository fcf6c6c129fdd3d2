// The change of every figure between two reports: for every counter of every collection its value
// (count), and where it has them its sum and maximum, matched by collection and counter name. A figure
// found in only one report counts as 0 in the other. Pure functions.
#pragma once

#include <string>
#include <vector>

#include "report_json.h"
#include "report_model.h"

namespace vorlane {
namespace cli {

struct FigureChange {
  std::string collection;
  std::string counter;
  std::string figure;  // "value", "sum" or "max"
  unsigned long long before = 0;
  unsigned long long after = 0;
  bool inBefore = true;
  bool inAfter = true;

  // after - before as a signed difference (exact for differences within 63 bits).
  long double change() const;
  // Per cent of before; false when before is 0 and the figure changed (no finite per cent).
  bool percent(long double& value) const;
};

// Every figure, in the order of the newer report, then the figures only the older one has.
std::vector<FigureChange> diffReports(const Report& before, const Report& after);

// Changed figures first by the size of their per-cent change (new figures first of all), then by
// absolute change; unchanged figures are left out.
std::vector<FigureChange> largestChangesFirst(const std::vector<FigureChange>& changes);

// [{"collection", "counter", "figure", "old", "new", "change", "percent"}] (old/new null when absent,
// percent null when old is 0).
Json diffJson(const std::vector<FigureChange>& changes);

}  // namespace cli
}  // namespace vorlane
