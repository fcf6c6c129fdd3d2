#include "report_merge.h"

#include <algorithm>

namespace vorlane {
namespace cli {

namespace {

bool sameHeader(const Report& a, const Report& b, std::string& error) {
  struct Field { const char* name; bool equal; };
  for (const Field& f : {Field{"version", a.version == b.version},
                         Field{"productVersion", a.productVersion == b.productVersion},
                         Field{"build", a.build == b.build}, Field{"osName", a.osName == b.osName},
                         Field{"osCode", a.osCode == b.osCode}}) {
    if (!f.equal) {
      error = std::string("the header field ") + f.name + " differs (--force keeps the first report's)";
      return false;
    }
  }
  return true;
}

bool mergeCounter(ReportCounter& into, const ReportCounter& other, const std::string& where, std::string& error) {
  if (into.name != other.name || into.histogram != other.histogram || into.valueOnly != other.valueOnly ||
      into.buckets.size() != other.buckets.size()) {
    error = where + ": counter '" + into.name + "' does not match '" + other.name + "'";
    return false;
  }
  into.count += other.count;
  into.sum += other.sum;
  into.max = std::max(into.max, other.max);
  for (size_t i = 0; i < into.buckets.size(); ++i) {
    if (into.buckets[i].max != other.buckets[i].max) {
      error = where + ": the bucket limits of '" + into.name + "' differ";
      return false;
    }
    into.buckets[i].count += other.buckets[i].count;
  }
  return true;
}

}  // namespace

bool mergeReport(Report& into, const Report& other, bool keepFirstHeader, std::string& error) {
  if (!keepFirstHeader && !sameHeader(into, other, error)) return false;
  if (into.collections.size() != other.collections.size()) {
    error = "the reports hold " + std::to_string(into.collections.size()) + " and " +
            std::to_string(other.collections.size()) + " collections";
    return false;
  }
  for (size_t i = 0; i < into.collections.size(); ++i) {
    ReportCollection& a = into.collections[i];
    const ReportCollection& b = other.collections[i];
    if (a.name != b.name || a.publicType != b.publicType || a.folderType != b.folderType ||
        a.comparison != b.comparison || a.counters.size() != b.counters.size()) {
      error = "collection " + std::to_string(i + 1) + " ('" + a.name + "') does not match '" + b.name + "'";
      return false;
    }
    for (size_t k = 0; k < a.counters.size(); ++k) {
      if (!mergeCounter(a.counters[k], b.counters[k], "collection '" + a.name + "'", error)) return false;
    }
  }
  return true;
}

}  // namespace cli
}  // namespace vorlane
