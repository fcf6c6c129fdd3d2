#include "mkstore/report_check.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using vorlane::mkstore::Manifest;
using vorlane::mkstore::MessageShape;
using vorlane::mkstore::ReportFigure;
using vorlane::mkstore::compareReport;

namespace {

std::string counter(const std::string& name, uint64_t value, uint64_t sum) {
  return "\t\t\t<counter name='" + name + "'>\n\t\t\t\t<value>" + std::to_string(value) + "</value>\n\t\t\t\t<sum>" +
         std::to_string(sum) + "</sum>\n\t\t\t\t<max>0</max>\n\t\t\t\t<avg>undef</avg>\n\t\t\t</counter>\n";
}

std::string collection(const std::string& name, const std::string& counters) {
  return "<collection name='" + name + "' publicType='2' folderType='999' comparison='0'>\n" + counters +
         "</collection>\n";
}

Manifest sampleManifest() {
  Manifest m;
  m.domains = 3;
  m.folders = 40;
  m.messageFiles = 100;
  m.messageBytes = 5000;
  m.indexEntries = 20;
  m.indexBytes = 700;
  m.distributionLists = 2;
  m.shapes[static_cast<size_t>(MessageShape::Plain)] = 60;
  m.shapes[static_cast<size_t>(MessageShape::Alternative)] = 30;
  m.shapes[static_cast<size_t>(MessageShape::Signed)] = 10;
  return m;
}

// A report as the server writes it for sampleManifest(), with a decoy collection in front that holds
// counters of the same names but other figures.
std::string sampleReport(uint64_t folderCount) {
  std::string xml = "<vlsStoreStatistic version='0.3'>\n";
  xml += collection("IPF.Note - folder INBOX", counter("Message count", 7, 0) +
                                                   "\t\t\t<histogramCounter name='Message size'>\n\t\t\t\t<value>7"
                                                   "</value>\n\t\t\t\t<sum>99</sum>\n\t\t\t</histogramCounter>\n");
  xml += collection("IPF.Contact - any folder type", counter("Distribution list count", 2, 0));
  xml += collection("IPF.Note - any folder type",
                    counter("Message count", 100, 0) + counter("Signed message count", 10, 0) +
                        counter("Encrypted message count", 0, 0) +
                        counter("Count of messages with only plain text body", 60, 0) +
                        counter("Count of messages with only html body", 0, 0) +
                        counter("Count of messages with plain text and HTML body", 30, 0) +
                        counter("Count of messages with plain text and RTF body", 0, 0) +
                        counter("Count of messages with plain text, HTML and RTF body", 0, 0));
  xml += collection("Any folder class - any folder type",
                    counter("Message count", 120, 0) + counter("Message size", 120, 5700) +
                        counter("Folder count", folderCount, 0) + counter("Domain count", 3, 0));
  return xml + "</vlsStoreStatistic>\n";
}

}  // namespace

// Every figure is read from its own collection, past the decoy: with one figure off in the report,
// exactly that one differs.
TEST(ReportCheck, ReadsEachFigureFromItsOwnCollectionAndReportsTheDifferingOne) {
  std::vector<ReportFigure> figures;
  std::string error;
  ASSERT_TRUE(compareReport(sampleReport(41), sampleManifest(), figures, error)) << error;
  ASSERT_EQ(figures.size(), 13u);
  for (const ReportFigure& f : figures) {
    const bool folders = f.counter == "Folder count";
    EXPECT_EQ(f.found, folders ? 41u : f.expected) << f.collection << " / " << f.counter;
    EXPECT_EQ(f.found == f.expected, !folders) << f.collection << " / " << f.counter;
  }
}

// A counter missing from its collection is not taken from a neighbouring one.
TEST(ReportCheck, AMissingCounterIsAnErrorNamingIt) {
  std::string xml = sampleReport(40);
  const size_t domain = xml.find("\t\t\t<counter name='Domain count'>");
  xml.erase(domain, xml.find("</counter>\n", domain) + 11 - domain);
  std::vector<ReportFigure> figures;
  std::string error;
  EXPECT_FALSE(compareReport(xml, sampleManifest(), figures, error));
  EXPECT_NE(error.find("Domain count"), std::string::npos) << error;
  EXPECT_NE(error.find("Any folder class - any folder type"), std::string::npos) << error;
}
