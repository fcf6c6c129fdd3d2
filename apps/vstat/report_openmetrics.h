// The OpenMetrics text form of a report model, for the node exporter's textfile collector and any
// OpenMetrics scraper: both the classic text parser and an OpenMetrics parser accept it. Only gauge and
// histogram families, no sample timestamps, "# HELP", "# TYPE" and "# UNIT" lines, "# EOF" at the end.
//
// One family per counter name, named vstat_<name in snake_case> ("Message count" -> vstat_messages,
// "Message size" -> vstat_message_size_bytes), with the collection as labels only (collection,
// scope user/public/any, folder_type, comparison), so the number of series is bounded by the
// catalogue. A value-only counter is a gauge; any other counter is a histogram with cumulative
// le buckets (the report's all-ones limit is "+Inf"), _count and _sum, and its maximum a gauge
// vstat_<name>_max. vstat_report_timestamp_seconds carries the report file's time, so a stale file shows.
// Pure function.
#pragma once

#include <ostream>
#include <string>

#include "report_model.h"

namespace vorlane {
namespace cli {

void writeOpenMetrics(std::ostream& out, const Report& report);

// The family name of a counter name, as above.
std::string metricName(const std::string& counterName);

}  // namespace cli
}  // namespace vorlane
