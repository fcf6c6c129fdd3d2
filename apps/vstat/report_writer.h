// Writes a report model as the statistics server writes its report: the same comments, the same tabs,
// element order and number formats (averages from sum and count with two decimals, "undef" for no
// samples), so a report read and written back is byte for byte the file that was read. Names are written
// as they stand except the four characters that would break the XML (& < > '), which no catalogue name
// holds. Pure function.
#pragma once

#include <ostream>

#include "report_model.h"

namespace vorlane {
namespace cli {

void writeReportXml(std::ostream& out, const Report& report);

}  // namespace cli
}  // namespace vorlane
