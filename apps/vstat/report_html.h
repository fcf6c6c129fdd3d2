// One self-contained HTML page of a report model, to open offline or send by mail: inline CSS and SVG,
// no script, nothing fetched. It shows the header fields, the store totals, the table of collections
// with data, and a horizontal bar chart (an <svg class="chart">) for every histogram that holds samples,
// with its bucket labels and counts. The layout reflows from a 1280 px screen down to a phone.
// Every text from the report is HTML-escaped. `extraSection`, markup made by the caller, goes at the end
// of the body. Pure function.
#pragma once

#include <ostream>
#include <string>

#include "report_model.h"

namespace vorlane {
namespace cli {

void writeHtml(std::ostream& out, const Report& report, const std::string& extraSection = std::string());

}  // namespace cli
}  // namespace vorlane
