#include "mkstore/report_check.h"

#include <cstdlib>

namespace vorlane {
namespace mkstore {

namespace {

// The text of element `tag` of counter `counter` inside collection `collection`; false when absent.
bool counterField(const std::string& xml, const std::string& collection, const std::string& counter,
                  const char* tag, uint64_t& value) {
  const size_t begin = xml.find("<collection name='" + collection + "'");
  if (begin == std::string::npos) return false;
  const size_t end = xml.find("</collection>", begin);
  // Plain counters and histogram counters both carry name='...'.
  const size_t at = xml.find(" name='" + counter + "'>", begin);
  if (at == std::string::npos || at > end) return false;
  const size_t close = xml.find("ounter>", at);  // </counter> or </histogramCounter>
  const std::string open = std::string("<") + tag + ">";
  const size_t field = xml.find(open, at);
  if (field == std::string::npos || field > close) return false;
  char* stop = nullptr;
  value = strtoull(xml.c_str() + field + open.size(), &stop, 10);
  return stop && *stop == '<';
}

}  // namespace

bool compareReport(const std::string& xml, const Manifest& m, std::vector<ReportFigure>& figures,
                   std::string& error) {
  const std::string any = "Any folder class - any folder type";
  const std::string note = "IPF.Note - any folder type";
  const std::string contact = "IPF.Contact - any folder type";
  figures = {
      {any, "Message count", false, m.reportMessageCount(), 0},
      {any, "Message size", true, m.reportMessageBytes(), 0},
      {any, "Folder count", false, m.folders, 0},
      {any, "Domain count", false, m.domains, 0},
      {note, "Message count", false, m.messageFiles, 0},
      {note, "Signed message count", false, m.countShapes(&ShapeTraits::isSigned), 0},
      {note, "Encrypted message count", false, m.countShapes(&ShapeTraits::isEncrypted), 0},
      {note, "Count of messages with only plain text body", false, m.countBodies(true, false, false), 0},
      {note, "Count of messages with only html body", false, m.countBodies(false, true, false), 0},
      {note, "Count of messages with plain text and RTF body", false, m.countBodies(true, false, true), 0},
      {note, "Count of messages with plain text and HTML body", false, m.countBodies(true, true, false), 0},
      {note, "Count of messages with plain text, HTML and RTF body", false, m.countBodies(true, true, true), 0},
      {contact, "Distribution list count", false, m.distributionLists, 0},
  };
  for (ReportFigure& f : figures) {
    if (!counterField(xml, f.collection, f.counter, f.sum ? "sum" : "value", f.found)) {
      error = "The report has no " + std::string(f.sum ? "sum" : "value") + " of \"" + f.counter + "\" in \"" +
              f.collection + "\"";
      return false;
    }
  }
  return true;
}

}  // namespace mkstore
}  // namespace vorlane
