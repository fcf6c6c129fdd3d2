// One store statistics report as data: the header fields, and every collection with every counter and
// histogram, bucket limits included, in report order. The reader fills it from a report file, every
// output (text, JSON, OpenMetrics, HTML, merge, diff) takes it, and the writer turns it back into the
// report the server writes. Averages are not kept: they follow from sum and count.
// Plain values; no shared state.
#pragma once

#include <string>
#include <vector>

namespace vorlane {
namespace cli {

struct ReportBucket {
  unsigned long long max;  // inclusive upper limit; all bits set for the last catch-all bucket
  unsigned long long count;
};

struct ReportCounter {
  std::string name;
  bool histogram = false;  // a histogramCounter element
  bool valueOnly = false;  // a counter with only its <value>: no sum, max or average
  unsigned long long count = 0;
  unsigned long long sum = 0;
  unsigned long long max = 0;
  std::vector<ReportBucket> buckets;
};

struct ReportCollection {
  std::string name;
  long publicType = 0;
  long folderType = 0;
  long comparison = 0;
  std::vector<ReportCounter> counters;

  // The counter of that name, or null.
  const ReportCounter* find(const std::string& counterName) const;
};

struct Report {
  std::string version;  // the root element's version attribute, e.g. "0.3"
  std::string productVersion;
  unsigned long long build = 0;
  std::string osName;
  unsigned long long osCode = 0;
  std::vector<ReportCollection> collections;
  // Not part of the report's text: the modification time of the file it was read from (seconds since
  // the epoch), 0 when it was not read from a file.
  long long fileTime = 0;

  // The collection of that name, or null.
  const ReportCollection* find(const std::string& collectionName) const;
};

}  // namespace cli
}  // namespace vorlane
