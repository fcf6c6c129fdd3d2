// Compares the statistics report of a scan (the XML text of /tmp/VStatReport.xml) with what the generator
// wrote: the totals of "Any folder class - any folder type", the mail counters of "IPF.Note - any folder
// type" and the distribution lists of "IPF.Contact - any folder type". For end-to-end tests and benchmarks.
// Pure function of its inputs; thread-safe.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mkstore/manifest.h"

namespace vorlane {
namespace mkstore {

struct ReportFigure {
  std::string collection;
  std::string counter;
  bool sum;           // the counter's <sum> rather than its <value>
  uint64_t expected;  // from the manifest
  uint64_t found;     // from the report
};

// Fills `figures` with every compared figure. False, with `error` naming the collection and counter, when
// the report lacks one of them; otherwise true, also when figures differ (compare expected and found).
bool compareReport(const std::string& xml, const Manifest& manifest, std::vector<ReportFigure>& figures,
                   std::string& error);

}  // namespace mkstore
}  // namespace vorlane
