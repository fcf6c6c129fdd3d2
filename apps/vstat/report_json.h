// The JSON form of a report model: every figure of the report under the report's own names, integers
// as exact 64-bit integers, the average as a number with the report's two decimals (null for "undef").
// The shape is documented in the README ("Reports"). Object members keep the report's order.
// Pure functions.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

#include "report_model.h"

namespace vorlane {
namespace cli {

using Json = nlohmann::ordered_json;

Json reportToJson(const Report& report);

// The report's average of sum over count, rounded to two decimals as the report writes it; null when
// there are no samples.
Json averageJson(unsigned long long sum, unsigned long long count);

// One line of JSON; bytes that are not valid UTF-8 become U+FFFD, so the output always parses.
std::string jsonLine(const Json& value);

}  // namespace cli
}  // namespace vorlane
