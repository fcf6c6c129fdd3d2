// Writes a report model as the statistics server writes its report: the same comments, the same tabs,
// element order and number formats (averages from sum and count with two decimals, "undef" for no
// samples), so a report read and written back is byte for byte the file that was read. Names are written
// as they stand except the characters that would break the XML (& < > ' "), which no catalogue name
// holds. Pure function.
#pragma once

#include <ostream>
#include <string>

#include "report_model.h"

namespace vorlane {
namespace cli {

void writeReportXml(std::ostream& out, const Report& report);

// `text` with & < > ' " as character references, for XML and HTML text and quoted attributes.
std::string escapeMarkup(const std::string& text);

}  // namespace cli
}  // namespace vorlane
