#include "report_diff.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace vorlane {
namespace cli {

namespace {

using FigureIndex = std::map<std::string, size_t>;

void addFigures(std::vector<FigureChange>& out, FigureIndex& index, const ReportCollection& c,
                const ReportCounter& counter, bool after) {
  struct Figure { const char* name; unsigned long long value; };
  std::vector<Figure> figures = {{"value", counter.count}};
  if (!counter.valueOnly) {
    figures.push_back({"sum", counter.sum});
    figures.push_back({"max", counter.max});
  }
  for (const Figure& f : figures) {
    const std::string key = c.name + '\0' + counter.name + '\0' + f.name;
    auto found = index.find(key);
    if (found == index.end()) {
      FigureChange change;
      change.collection = c.name;
      change.counter = counter.name;
      change.figure = f.name;
      change.inBefore = false;
      change.inAfter = false;
      found = index.emplace(key, out.size()).first;
      out.push_back(change);
    }
    FigureChange& change = out[found->second];
    (after ? change.after : change.before) = f.value;
    (after ? change.inAfter : change.inBefore) = true;
  }
}

}  // namespace

long double FigureChange::change() const {
  return static_cast<long double>(after) - static_cast<long double>(before);
}

bool FigureChange::percent(long double& value) const {
  if (before == 0) {
    value = 0;
    return after == 0;
  }
  value = change() * 100 / static_cast<long double>(before);
  return true;
}

std::vector<FigureChange> diffReports(const Report& before, const Report& after) {
  std::vector<FigureChange> changes;
  FigureIndex index;
  for (const ReportCollection& c : after.collections) {
    for (const ReportCounter& counter : c.counters) addFigures(changes, index, c, counter, true);
  }
  for (const ReportCollection& c : before.collections) {
    for (const ReportCounter& counter : c.counters) addFigures(changes, index, c, counter, false);
  }
  return changes;
}

std::vector<FigureChange> largestChangesFirst(const std::vector<FigureChange>& changes) {
  std::vector<FigureChange> changed;
  for (const FigureChange& c : changes) {
    if (c.before != c.after || c.inBefore != c.inAfter) changed.push_back(c);
  }
  auto weight = [](const FigureChange& c) {
    long double p = 0;
    return c.percent(p) ? std::fabs(p) : HUGE_VALL;
  };
  std::stable_sort(changed.begin(), changed.end(), [&](const FigureChange& a, const FigureChange& b) {
    const long double wa = weight(a);
    const long double wb = weight(b);
    if (wa != wb) return wa > wb;
    return std::fabs(a.change()) > std::fabs(b.change());
  });
  return changed;
}

Json diffJson(const std::vector<FigureChange>& changes) {
  Json list = Json::array();
  for (const FigureChange& c : changes) {
    Json j;
    j["collection"] = c.collection;
    j["counter"] = c.counter;
    j["figure"] = c.figure;
    j["old"] = c.inBefore ? Json(c.before) : Json(nullptr);
    j["new"] = c.inAfter ? Json(c.after) : Json(nullptr);
    // The difference of two 64-bit figures needs 65 bits: a decrease beyond 2^63 - 1 is given as a double.
    const unsigned long long down = c.before - c.after;
    if (c.after >= c.before) {
      j["change"] = c.after - c.before;
    } else if (down <= 0x7fffffffffffffffull) {
      j["change"] = -static_cast<long long>(down);
    } else {
      j["change"] = -static_cast<double>(down);
    }
    long double p = 0;
    j["percent"] = c.percent(p) ? Json(static_cast<double>(std::round(p * 100) / 100)) : Json(nullptr);
    list.push_back(std::move(j));
  }
  return list;
}

}  // namespace cli
}  // namespace vorlane
