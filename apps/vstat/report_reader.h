// Reads a store statistics report (the vlsStoreStatistic file the statistics server writes) into a
// summary model for display. It understands only our own line-oriented report format, not XML at large:
// one element per line, leading blanks ignored, unknown lines skipped. A truncated report yields what was
// read so far with `complete` false; a file without the root element is refused. Input is bounded: files
// above kMaxReportBytes and collections, counters and buckets beyond the limits below are not read.
// Pure functions; no shared state.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vorlane {
namespace cli {

struct HistogramBucket {
  unsigned long long max;  // inclusive upper limit; all bits set for the last catch-all bucket
  unsigned long long count;
};

struct CounterSummary {
  std::string name;
  bool histogram = false;  // written as histogramCounter
  bool hasSum = false;     // value-only counters carry no sum, max or average
  unsigned long long count = 0;
  unsigned long long sum = 0;
  unsigned long long max = 0;
  std::vector<HistogramBucket> buckets;
};

struct CollectionSummary {
  std::string name;
  int publicType = -1;
  int folderType = -1;
  int comparison = -1;
  std::vector<CounterSummary> counters;

  // The counter of that name, or null.
  const CounterSummary* find(const std::string& counterName) const;
};

struct ReportSummary {
  std::string version;  // the root element's version attribute as written, e.g. "0.3"
  std::string productVersion;
  std::string build;
  std::string osName;
  std::string osCode;
  std::vector<CollectionSummary> collections;
  bool complete = false;  // the closing root element was read

  // The collection of that name, or null.
  const CollectionSummary* find(const std::string& collectionName) const;
};

// Limits that keep a foreign or hostile file from exhausting memory. A real report is about 300 KB with
// 25 collections of at most 10 counters of at most 28 buckets.
const size_t kMaxReportBytes = 16u * 1024 * 1024;
const size_t kMaxCollections = 1000;
const size_t kMaxCountersPerCollection = 100;
const size_t kMaxBucketsPerHistogram = 1000;

// Parses report text. Returns false with `error` set when the text holds no report root element.
bool parseReport(const std::string& text, ReportSummary& summary, std::string& error);

// Reads and parses the report file at `path`. Returns false with `error` naming the path and the reason
// (system error text, size limit, not a report).
bool readReport(const std::string& path, ReportSummary& summary, std::string& error);
// The whole text of a report file, refused above kMaxReportBytes; false with the path and reason in error.
bool readReportText(const std::string& path, std::string& text, std::string& error);

}  // namespace cli
}  // namespace vorlane
