// The history section of the report page (`vstat show --format html --history DB`): the 20 largest
// mailboxes and folders of the newest scan of every node, and the growth of the store's bytes and
// messages over all scans, as HTML to place at the end of the page's body. Every name is HTML-escaped.
// Not thread-safe (one database handle per call).
#pragma once

#include <string>

namespace vorlane {
namespace cli {

// Sets `html` to the section read from the database at `db`; false with the reason in `error`.
bool historySectionHtml(const std::string& db, std::string& html, std::string& error);

}  // namespace cli
}  // namespace vorlane
