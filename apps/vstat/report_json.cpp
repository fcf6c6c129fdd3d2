#include "report_json.h"

#include <cstdio>
#include <cstdlib>

namespace vorlane {
namespace cli {

Json averageJson(unsigned long long sum, unsigned long long count) {
  if (count == 0) return nullptr;
  char text[64];
  std::snprintf(text, sizeof text, "%.2f", static_cast<double>(sum) / static_cast<double>(count));
  return std::strtod(text, nullptr);
}

Json reportToJson(const Report& report) {
  Json collections = Json::array();
  for (const ReportCollection& c : report.collections) {
    Json counters = Json::array();
    for (const ReportCounter& counter : c.counters) {
      Json j;
      j["name"] = counter.name;
      j["kind"] = counter.histogram ? "histogramCounter" : "counter";
      j["value"] = counter.count;
      if (!counter.valueOnly) {
        j["sum"] = counter.sum;
        j["max"] = counter.max;
        j["avg"] = averageJson(counter.sum, counter.count);
      }
      if (counter.histogram) {
        Json buckets = Json::array();
        for (const ReportBucket& b : counter.buckets) buckets.push_back({{"max", b.max}, {"count", b.count}});
        j["histValues"] = std::move(buckets);
      }
      counters.push_back(std::move(j));
    }
    Json collection;
    collection["name"] = c.name;
    collection["publicType"] = c.publicType;
    collection["folderType"] = c.folderType;
    collection["comparison"] = c.comparison;
    collection["counters"] = std::move(counters);
    collections.push_back(std::move(collection));
  }
  Json j;
  j["version"] = report.version;
  j["productVersion"] = report.productVersion;
  j["build"] = report.build;
  j["osName"] = report.osName;
  j["osCode"] = report.osCode;
  j["collections"] = std::move(collections);
  return j;
}

std::string jsonLine(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

}  // namespace cli
}  // namespace vorlane
