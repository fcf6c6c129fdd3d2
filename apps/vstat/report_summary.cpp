#include "report_summary.h"

#include <algorithm>
#include <cstdio>

#include "terminal_text.h"

namespace vorlane {
namespace cli {

const char* const kTableHeadings[9] = {"Messages", "Size", "Average", "Largest", "Header",
                                       "Text",     "HTML", "RTF",     "Attach"};
const char* const kMainHistograms[4] = {"Message size", "Folder size", "Message count per folder",
                                        "Folder count per user"};

namespace {

const unsigned long long kAllBits = ~0ull;
const char* const kUnits[] = {"B", "kB", "MB", "GB", "TB", "PB", "EB"};

// Names of the catalogue that the totals are taken from.
const char kAllFolders[] = "Any folder class - any folder type";
const char kUserFolders[] = "Any folder class - user folders";
const char kAllMail[] = "IPF.Note - any folder type";
const char kAllContacts[] = "IPF.Contact - any folder type";

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

const ReportCounter* findCounter(const ReportCollection* c, const char* name) { return c ? c->find(name) : nullptr; }

bool hasSum(const ReportCounter* c) { return c && !c->valueOnly; }

std::string countOrNa(const ReportCounter* c) { return c ? formatCount(c->count) : "n/a"; }

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

// Per cent of `whole` with one decimal, or "-" without a counter to take it from.
std::string share(const ReportCounter* part, unsigned long long whole) {
  if (!hasSum(part) || whole == 0) return "-";
  char text[16];
  std::snprintf(text, sizeof text, "%.1f%%", 100.0 * static_cast<double>(part->sum) / static_cast<double>(whole));
  return text;
}

void renderTable(std::ostream& out, const Report& report) {
  const std::vector<TableRow> rows = collectionTable(report);
  if (rows.empty()) {
    out << "\nNo collection holds data.\n";
    return;
  }
  const size_t widths[] = {9, 9, 9, 9, 7, 7, 7, 7, 7};
  size_t nameWidth = 10;
  for (const TableRow& row : rows) nameWidth = std::max(nameWidth, std::min<size_t>(terminalSafe(row.name).size(), 40));
  out << "\n" << padRight("Collections with data", nameWidth + 2);
  for (size_t i = 0; i < 9; ++i) out << " " << padLeft(kTableHeadings[i], widths[i]);
  out << "\n";
  for (const TableRow& row : rows) {
    out << "  " << padRight(terminalSafe(row.name), nameWidth);
    for (size_t i = 0; i < 9; ++i) out << " " << padLeft(row.cells[i], widths[i]);
    out << "\n";
  }
}

void renderHistogram(std::ostream& out, const ReportCounter& h, const SummaryOptions& options) {
  const bool bytes = isSizeCounter(h.name);
  out << "    " << terminalSafe(h.name) << ": " << formatCount(h.count) << " samples, avg " << average(h, bytes)
      << ", max " << (bytes ? formatSize(h.max) : formatCount(h.max)) << "\n";
  const std::vector<Bar> bars = histogramBars(h);
  unsigned long long peak = 0;
  unsigned long long total = 0;
  size_t labelWidth = 0;
  for (const Bar& b : bars) {
    peak = std::max(peak, b.count);
    total += b.count;
    labelWidth = std::max(labelWidth, b.label.size());
  }
  for (const Bar& b : bars) {
    // A bucket with any sample gets at least one mark so that it never looks empty.
    size_t marks = static_cast<size_t>(static_cast<double>(b.count) * options.barWidth / static_cast<double>(peak) + 0.5);
    if (b.count > 0 && marks == 0) marks = 1;
    char percent[16];
    std::snprintf(percent, sizeof percent, "%5.1f%%", 100.0 * static_cast<double>(b.count) / static_cast<double>(total));
    out << "      " << padLeft(b.label, labelWidth) << " |" << padRight(std::string(marks, '#'), options.barWidth)
        << "| " << padLeft(formatCount(b.count), 9) << " " << percent << "\n";
  }
}

void renderCollection(std::ostream& out, const ReportCollection& c, const SummaryOptions& options) {
  out << "\n  " << terminalSafe(c.name) << "\n";
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

std::vector<TotalLine> storeTotals(const Report& report) {
  const ReportCollection* all = report.find(kAllFolders);
  const ReportCollection* mail = report.find(kAllMail);
  const ReportCounter* sizes = findCounter(all, "Message size");
  const ReportCounter* signedSize = findCounter(mail, "Size of signed messages");
  const ReportCounter* encryptedSize = findCounter(mail, "Size of encrypted messages");
  std::vector<TotalLine> lines = {
      {"Domains", countOrNa(findCounter(all, "Domain count"))},
      // Every user mailbox adds one sample to the per-user folder histogram, even without folders.
      {"Mailboxes", countOrNa(findCounter(report.find(kUserFolders), "Folder count per user"))},
      {"Folders", countOrNa(findCounter(all, "Folder count"))},
      {"Messages", countOrNa(findCounter(all, "Message count"))},
      {"Total size", hasSum(sizes) ? formatSize(sizes->sum) : "n/a"},
      {"Largest message", hasSum(sizes) ? formatSize(sizes->max) : "n/a"},
      {"Signed mail", countOrNa(findCounter(mail, "Signed message count")) +
                          (hasSum(signedSize) ? " (" + formatSize(signedSize->sum) + ")" : "")},
      {"Encrypted mail", countOrNa(findCounter(mail, "Encrypted message count")) +
                             (hasSum(encryptedSize) ? " (" + formatSize(encryptedSize->sum) + ")" : "")},
      {"Distr. lists", countOrNa(findCounter(report.find(kAllContacts), "Distribution list count"))},
  };
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
    if (!line.empty()) lines.push_back({"Mail bodies", line});
  }
  return lines;
}

// Every user adds a sample, possibly 0, to the per-user folder histogram of each collection of its
// scope; that alone is not data.
bool hasData(const ReportCollection& c) {
  for (const ReportCounter& counter : c.counters) {
    if (counter.count != 0 && counter.name != "Folder count per user") return true;
  }
  return false;
}

std::vector<TableRow> collectionTable(const Report& report) {
  std::vector<TableRow> rows;
  for (const ReportCollection& c : report.collections) {
    if (!hasData(c)) continue;
    const ReportCounter* messages = c.find("Message count");
    const ReportCounter* size = c.find("Message size");
    const bool sized = hasSum(size);
    const unsigned long long bytes = sized ? size->sum : 0;
    rows.push_back(TableRow{c.name,
                            {messages ? formatCount(messages->count) : "-", sized ? formatSize(size->sum) : "-",
                             sized ? average(*size, true) : "-", sized && size->count ? formatSize(size->max) : "-",
                             share(c.find("Message header size"), bytes), share(c.find("Plain text body size"), bytes),
                             share(c.find("HTML body size"), bytes), share(c.find("RTF body size"), bytes),
                             share(c.find("Attachment size"), bytes)}});
  }
  return rows;
}

std::vector<Bar> histogramBars(const ReportCounter& h) {
  const bool bytes = isSizeCounter(h.name);
  // Leading and trailing empty buckets carry nothing; inner ones show the shape.
  size_t first = h.buckets.size();
  size_t last = 0;
  for (size_t i = 0; i < h.buckets.size(); ++i) {
    if (h.buckets[i].count == 0) continue;
    first = std::min(first, i);
    last = i;
  }
  std::vector<Bar> bars;
  for (size_t i = first; i <= last && i < h.buckets.size(); ++i) {
    std::string label;
    if (h.buckets[i].max == kAllBits && i > 0) {
      label = "> " + formatLimit(h.buckets[i - 1].max, bytes);
    } else if (h.buckets[i].max == 0) {
      label = "0";
    } else {
      label = "<= " + formatLimit(h.buckets[i].max, bytes);
    }
    bars.push_back(Bar{label, h.buckets[i].count});
  }
  return bars;
}

void renderSummary(std::ostream& out, const Report& report, const SummaryOptions& options) {
  out << "Store statistics report (format " << terminalSafe(report.version) << ")\n";
  out << "  Product " << terminalSafe(report.productVersion) << ", build " << report.build << ", on "
      << terminalSafe(report.osName) << " (os code " << report.osCode << ")\n\nStore totals\n";
  for (const TotalLine& line : storeTotals(report)) out << "  " << padRight(line.label, 17) << line.value << "\n";
  renderTable(out, report);
  if (!options.showHistograms) return;
  bool any = false;
  for (const ReportCollection& c : report.collections) {
    if (!hasData(c)) continue;
    if (!any) out << "\nDistributions\n";
    any = true;
    renderCollection(out, c, options);
  }
}

}  // namespace cli
}  // namespace vorlane
