#include "report_summary.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace vorlane {
namespace cli {

namespace {

const unsigned long long kAllBits = ~0ull;
const char* const kUnits[] = {"B", "kB", "MB", "GB", "TB", "PB", "EB"};

// Names of the catalogue that the totals are taken from.
const char kAllFolders[] = "Any folder class - any folder type";
const char kUserFolders[] = "Any folder class - user folders";
const char kAllMail[] = "IPF.Note - any folder type";
const char kAllContacts[] = "IPF.Contact - any folder type";

const char* const kMainHistograms[] = {"Message size", "Folder size", "Message count per folder",
                                       "Folder count per user"};
const char* const kBodyCounters[] = {"Message header size", "Plain text body size", "HTML body size",
                                     "RTF body size", "Attachment size"};

std::string padLeft(const std::string& s, size_t width) {
  return s.size() >= width ? s : std::string(width - s.size(), ' ') + s;
}

std::string padRight(const std::string& s, size_t width) {
  return s.size() >= width ? s : s + std::string(width - s.size(), ' ');
}

bool endsWith(const std::string& s, const std::string& suffix) {
  return s.size() >= suffix.size() && s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// Histograms over byte counts are named "... size"; the others count messages, folders or users.
bool isSizeCounter(const std::string& name) { return endsWith(name, "size"); }

const ReportCounter* findCounter(const ReportCollection* c, const char* name) {
  return c ? c->find(name) : nullptr;
}

std::string countOrNa(const ReportCounter* c) { return c ? formatCount(c->count) : "n/a"; }

std::string sizeOrNa(const ReportCounter* c) { return c && !c->valueOnly ? formatSize(c->sum) : "n/a"; }

// Sizes average to a size; counts (messages per folder, folders per user) to a number with one decimal.
std::string average(const ReportCounter& c, bool bytes) {
  if (c.count == 0) return "-";
  const double avg = static_cast<double>(c.sum) / static_cast<double>(c.count);
  // 2^64 as a double is out of range for the conversion; a damaged report may hold such a sum.
  if (bytes) return formatSize(avg >= 18446744073709549568.0 ? kAllBits : static_cast<unsigned long long>(avg + 0.5));
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", avg);
  return text;
}

// The number of folders a collection saw: every folder-class collection counts each matching folder in
// "Message count per folder"; the all-folders collection has its own "Folder count".
const ReportCounter* folderCounter(const ReportCollection& c) {
  const ReportCounter* perFolder = c.find("Message count per folder");
  return perFolder ? perFolder : c.find("Folder count");
}

bool hasData(const ReportCollection& c) {
  for (const ReportCounter& counter : c.counters) {
    if (counter.count != 0) return true;
  }
  return false;
}

void renderTotals(std::ostream& out, const Report& report) {
  const ReportCollection* all = report.find(kAllFolders);
  const ReportCollection* users = report.find(kUserFolders);
  const ReportCollection* mail = report.find(kAllMail);
  const ReportCollection* contacts = report.find(kAllContacts);
  const ReportCounter* signedCount = findCounter(mail, "Signed message count");
  const ReportCounter* signedSize = findCounter(mail, "Size of signed messages");
  const ReportCounter* encryptedCount = findCounter(mail, "Encrypted message count");
  const ReportCounter* encryptedSize = findCounter(mail, "Size of encrypted messages");

  out << "Store totals\n";
  out << "  Messages         " << countOrNa(findCounter(all, "Message count")) << "\n";
  out << "  Total size       " << sizeOrNa(findCounter(all, "Message size")) << "\n";
  out << "  Folders          " << countOrNa(findCounter(all, "Folder count")) << "\n";
  out << "  Domains          " << countOrNa(findCounter(all, "Domain count")) << "\n";
  // Every user mailbox adds one sample to the per-user folder histogram, even without folders.
  out << "  Mailboxes        " << countOrNa(findCounter(users, "Folder count per user")) << "\n";
  out << "  Signed mail      " << countOrNa(signedCount);
  if (signedSize && !signedSize->valueOnly) out << " (" << formatSize(signedSize->sum) << ")";
  out << "\n";
  out << "  Encrypted mail   " << countOrNa(encryptedCount);
  if (encryptedSize && !encryptedSize->valueOnly) out << " (" << formatSize(encryptedSize->sum) << ")";
  out << "\n";
  out << "  Distr. lists     " << countOrNa(findCounter(contacts, "Distribution list count")) << "\n";

  if (mail) {
    struct Body { const char* counter; const char* label; };
    const Body bodies[] = {{"Count of messages with only plain text body", "text"},
                           {"Count of messages with only html body", "HTML"},
                           {"Count of messages with plain text and HTML body", "text+HTML"},
                           {"Count of messages with plain text and RTF body", "text+RTF"},
                           {"Count of messages with plain text, HTML and RTF body", "text+HTML+RTF"}};
    std::string line;
    for (const Body& b : bodies) {
      const ReportCounter* c = mail->find(b.counter);
      if (!c) continue;
      if (!line.empty()) line += ", ";
      line += std::string(b.label) + " " + formatCount(c->count);
    }
    if (!line.empty()) out << "  Mail bodies      " << line << "\n";
  }
}

void renderTable(std::ostream& out, const Report& report) {
  size_t nameWidth = 10;
  for (const ReportCollection& c : report.collections) nameWidth = std::max(nameWidth, std::min<size_t>(c.name.size(), 48));
  out << "\nCollections\n";
  out << "  " << padRight("Name", nameWidth) << "  " << padLeft("Messages", 12) << "  " << padLeft("Size", 9) << "  "
      << padLeft("Folders", 9) << "\n";
  for (const ReportCollection& c : report.collections) {
    const ReportCounter* messages = c.find("Message count");
    const ReportCounter* size = c.find("Message size");
    const ReportCounter* folders = folderCounter(c);
    out << "  " << padRight(c.name, nameWidth) << "  " << padLeft(messages ? formatCount(messages->count) : "-", 12)
        << "  " << padLeft(size && !size->valueOnly ? formatSize(size->sum) : "-", 9) << "  "
        << padLeft(folders ? formatCount(folders->count) : "-", 9) << "\n";
  }
}

void renderHistogram(std::ostream& out, const ReportCounter& h, const SummaryOptions& options) {
  const bool bytes = isSizeCounter(h.name);
  out << "    " << h.name << ": " << formatCount(h.count) << " samples, avg "
      << average(h, bytes) << ", max "
      << (bytes ? formatSize(h.max) : formatCount(h.max)) << "\n";

  // Leading and trailing empty buckets carry nothing; inner ones show the shape.
  size_t first = h.buckets.size();
  size_t last = 0;
  unsigned long long peak = 0;
  unsigned long long total = 0;
  for (size_t i = 0; i < h.buckets.size(); ++i) {
    if (h.buckets[i].count == 0) continue;
    first = std::min(first, i);
    last = i;
    peak = std::max(peak, h.buckets[i].count);
    total += h.buckets[i].count;
  }
  if (peak == 0) return;

  std::vector<std::string> labels;
  size_t labelWidth = 0;
  for (size_t i = first; i <= last; ++i) {
    std::string label;
    if (h.buckets[i].max == kAllBits && i > 0) {
      label = "> " + formatLimit(h.buckets[i - 1].max, bytes);
    } else if (h.buckets[i].max == 0) {
      label = "0";
    } else {
      label = "<= " + formatLimit(h.buckets[i].max, bytes);
    }
    labelWidth = std::max(labelWidth, label.size());
    labels.push_back(label);
  }
  for (size_t i = first; i <= last; ++i) {
    const unsigned long long n = h.buckets[i].count;
    // A bucket with any sample gets at least one mark so that it never looks empty.
    size_t marks = static_cast<size_t>(static_cast<double>(n) * options.barWidth / static_cast<double>(peak) + 0.5);
    if (n > 0 && marks == 0) marks = 1;
    char percent[16];
    std::snprintf(percent, sizeof percent, "%5.1f%%", 100.0 * static_cast<double>(n) / static_cast<double>(total));
    out << "      " << padLeft(labels[i - first], labelWidth) << " |" << padRight(std::string(marks, '#'), options.barWidth)
        << "| " << padLeft(formatCount(n), 9) << " " << percent << "\n";
  }
}

void renderCollection(std::ostream& out, const ReportCollection& c, const SummaryOptions& options) {
  out << "\n  " << c.name << "\n";
  for (const char* name : kBodyCounters) {
    const ReportCounter* counter = c.find(name);
    if (!counter || counter->count == 0) continue;
    out << "    " << padRight(counter->name + ":", 22) << padLeft(formatCount(counter->count), 9) << " x avg "
        << average(*counter, true) << "\n";
  }
  for (const char* name : kMainHistograms) {
    const ReportCounter* counter = c.find(name);
    if (counter && counter->histogram && counter->count != 0) renderHistogram(out, *counter, options);
  }
}

}  // namespace

std::string formatCount(unsigned long long n) {
  std::string digits = std::to_string(n);
  std::string out;
  const size_t lead = digits.size() % 3 == 0 ? 3 : digits.size() % 3;
  out.append(digits, 0, lead);
  for (size_t i = lead; i < digits.size(); i += 3) out.append(",").append(digits, i, 3);
  return out;
}

std::string formatSize(unsigned long long bytes) {
  if (bytes < 1000) return std::to_string(bytes) + " B";
  double value = static_cast<double>(bytes);
  size_t unit = 0;
  while (value >= 1000.0 && unit + 1 < sizeof kUnits / sizeof kUnits[0]) {
    value /= 1000.0;
    ++unit;
  }
  char text[32];
  const char* format = value < 10.0 ? "%.2f %s" : value < 100.0 ? "%.1f %s" : "%.0f %s";
  std::snprintf(text, sizeof text, format, value, kUnits[unit]);
  // 999.6 kB rounds to "1000 kB"; move up a unit instead.
  if (value >= 999.5 && unit + 1 < sizeof kUnits / sizeof kUnits[0]) {
    std::snprintf(text, sizeof text, "%.2f %s", value / 1000.0, kUnits[unit + 1]);
  }
  return text;
}

std::string formatLimit(unsigned long long limit, bool bytes) {
  if (!bytes) return formatCount(limit);
  size_t unit = 0;
  while (limit != 0 && limit % 1000 == 0 && unit + 1 < sizeof kUnits / sizeof kUnits[0]) {
    limit /= 1000;
    ++unit;
  }
  return formatCount(limit) + " " + kUnits[unit];
}

void renderSummary(std::ostream& out, const Report& report, const SummaryOptions& options) {
  out << "Store statistics report";
  if (!report.version.empty()) out << " (format " << report.version << ")";
  out << "\n";
  out << "  Product " << (report.productVersion.empty() ? "?" : report.productVersion) << " build " << report.build
      << " on " << (report.osName.empty() ? "?" : report.osName) << " (os code " << report.osCode << ")\n";
  out << "\n";
  renderTotals(out, report);
  if (report.collections.empty()) {
    out << "\nThe report holds no collections.\n";
    return;
  }
  renderTable(out, report);
  if (!options.showHistograms) return;

  std::vector<const ReportCollection*> withData;
  for (const ReportCollection& c : report.collections) {
    if (hasData(c)) withData.push_back(&c);
  }
  if (withData.empty()) return;
  out << "\nDistributions (collections with data)\n";
  for (const ReportCollection* c : withData) renderCollection(out, *c, options);
}

}  // namespace cli
}  // namespace vorlane
