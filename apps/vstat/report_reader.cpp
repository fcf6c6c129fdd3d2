#include "report_reader.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

namespace vorlane {
namespace cli {

namespace {

const size_t kNone = static_cast<size_t>(-1);

std::string_view trim(std::string_view s) {
  size_t begin = 0;
  while (begin < s.size() && (s[begin] == ' ' || s[begin] == '\t' || s[begin] == '\r')) ++begin;
  size_t end = s.size();
  while (end > begin && (s[end - 1] == ' ' || s[end - 1] == '\t' || s[end - 1] == '\r')) --end;
  return s.substr(begin, end - begin);
}

bool startsWith(std::string_view s, std::string_view prefix) {
  return s.size() >= prefix.size() && s.compare(0, prefix.size(), prefix) == 0;
}

// Decimal digits only, no sign, no overflow; anything else is refused so that a damaged number is left
// out rather than shown wrong.
bool parseNumber(std::string_view s, unsigned long long& value) {
  if (s.empty() || s.size() > 20) return false;
  unsigned long long v = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
    const unsigned digit = static_cast<unsigned>(c - '0');
    if (v > (~0ull - digit) / 10) return false;
    v = v * 10 + digit;
  }
  value = v;
  return true;
}

bool parseInt(std::string_view s, int& value) {
  unsigned long long v = 0;
  if (!parseNumber(s, v) || v > 0x7fffffffull) return false;
  value = static_cast<int>(v);
  return true;
}

// The text between `open` and the next `close` after it, or false when either is missing.
bool between(std::string_view line, std::string_view open, std::string_view close, std::string_view& out) {
  const size_t start = line.find(open);
  if (start == std::string_view::npos) return false;
  const size_t from = start + open.size();
  const size_t end = line.find(close, from);
  if (end == std::string_view::npos) return false;
  out = line.substr(from, end - from);
  return true;
}

// Content of a one-line element such as "<value>12</value>".
bool elementText(std::string_view line, std::string_view tag, std::string_view& out) {
  std::string open = "<";
  open.append(tag.data(), tag.size()).append(">");
  std::string close = "</";
  close.append(tag.data(), tag.size()).append(">");
  if (!startsWith(line, open)) return false;
  const size_t end = line.rfind(close);
  if (end == std::string_view::npos || end < open.size()) return false;
  out = line.substr(open.size(), end - open.size());
  return true;
}

// Counter names are written unescaped, so a name is taken up to the last "'>" of its line rather than
// the next quote.
std::string counterName(std::string_view line) {
  const size_t start = line.find("name='");
  if (start == std::string_view::npos) return std::string();
  const size_t from = start + 6;
  const size_t end = line.rfind("'>");
  if (end == std::string_view::npos || end < from) return std::string(line.substr(from));
  return std::string(line.substr(from, end - from));
}

class Parser {
 public:
  explicit Parser(ReportSummary& summary) : summary_(summary) {}

  bool rootSeen() const { return rootSeen_; }

  // Returns false once the closing root element has been read.
  bool line(std::string_view raw) {
    const std::string_view l = trim(raw);
    if (l.empty()) return true;
    if (!rootSeen_) {
      if (startsWith(l, "<vlsStoreStatistic")) {
        rootSeen_ = true;
        std::string_view v;
        if (between(l, "version='", "'", v)) summary_.version.assign(v.data(), v.size());
      }
      return true;
    }
    if (startsWith(l, "</vlsStoreStatistic>")) {
      summary_.complete = true;
      return false;
    }
    if (startsWith(l, "<collection ")) {
      openCollection(l);
    } else if (startsWith(l, "</collection>")) {
      collection_ = kNone;
      counter_ = kNone;
    } else if (startsWith(l, "<counter ") || startsWith(l, "<histogramCounter ")) {
      openCounter(l, startsWith(l, "<histogramCounter "));
    } else if (startsWith(l, "</counter>") || startsWith(l, "</histogramCounter>")) {
      counter_ = kNone;
    } else if (counter_ != kNone) {
      counterLine(l);
    } else if (collection_ == kNone) {
      headerLine(l);
    }
    return true;
  }

 private:
  void headerLine(std::string_view l) {
    struct Field { const char* tag; std::string* target; };
    const Field fields[] = {{"productVersion", &summary_.productVersion},
                            {"build", &summary_.build},
                            {"osName", &summary_.osName},
                            {"osCode", &summary_.osCode}};
    for (const Field& f : fields) {
      std::string_view text;
      if (elementText(l, f.tag, text)) {
        f.target->assign(text.data(), text.size());
        return;
      }
    }
  }

  void openCollection(std::string_view l) {
    counter_ = kNone;
    if (summary_.collections.size() >= kMaxCollections) {
      collection_ = kNone;
      return;
    }
    CollectionSummary c;
    std::string_view v;
    // Collection names are unescaped too; the next attribute marks the end of the name.
    if (between(l, "name='", "' publicType='", v) || between(l, "name='", "'", v)) c.name.assign(v.data(), v.size());
    if (between(l, "publicType='", "'", v)) parseInt(v, c.publicType);
    if (between(l, "folderType='", "'", v)) parseInt(v, c.folderType);
    if (between(l, "comparison='", "'", v)) parseInt(v, c.comparison);
    summary_.collections.push_back(std::move(c));
    collection_ = summary_.collections.size() - 1;
  }

  void openCounter(std::string_view l, bool histogram) {
    counter_ = kNone;
    if (collection_ == kNone) return;
    std::vector<CounterSummary>& counters = summary_.collections[collection_].counters;
    if (counters.size() >= kMaxCountersPerCollection) return;
    CounterSummary c;
    c.name = counterName(l);
    c.histogram = histogram;
    counters.push_back(std::move(c));
    counter_ = counters.size() - 1;
  }

  void counterLine(std::string_view l) {
    CounterSummary& c = summary_.collections[collection_].counters[counter_];
    std::string_view text;
    unsigned long long n = 0;
    if (elementText(l, "value", text)) {
      if (parseNumber(text, n)) c.count = n;
    } else if (elementText(l, "sum", text)) {
      if (parseNumber(text, n)) {
        c.sum = n;
        c.hasSum = true;
      }
    } else if (elementText(l, "max", text)) {
      if (parseNumber(text, n)) c.max = n;
    } else if (startsWith(l, "<histValue ")) {
      std::string_view limit;
      std::string_view count;
      HistogramBucket b{0, 0};
      if (c.buckets.size() < kMaxBucketsPerHistogram && between(l, "max='", "'", limit) &&
          between(l, "'>", "</histValue>", count) && parseNumber(limit, b.max) && parseNumber(count, b.count)) {
        c.buckets.push_back(b);
      }
    }
    // The average is not read: it is derived from sum and count where it is shown.
  }

  ReportSummary& summary_;
  bool rootSeen_ = false;
  size_t collection_ = kNone;
  size_t counter_ = kNone;
};

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};

}  // namespace

const CounterSummary* CollectionSummary::find(const std::string& counterName) const {
  for (const CounterSummary& c : counters) {
    if (c.name == counterName) return &c;
  }
  return nullptr;
}

const CollectionSummary* ReportSummary::find(const std::string& collectionName) const {
  for (const CollectionSummary& c : collections) {
    if (c.name == collectionName) return &c;
  }
  return nullptr;
}

bool parseReport(const std::string& text, ReportSummary& summary, std::string& error) {
  summary = ReportSummary();
  Parser parser(summary);
  const std::string_view all(text);
  size_t pos = 0;
  while (pos < all.size()) {
    size_t end = all.find('\n', pos);
    if (end == std::string_view::npos) end = all.size();
    if (!parser.line(all.substr(pos, end - pos))) break;
    pos = end + 1;
  }
  if (!parser.rootSeen()) {
    error = "not a store statistics report (no vlsStoreStatistic element)";
    return false;
  }
  return true;
}

bool readReportText(const std::string& path, std::string& text, std::string& error) {
  std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
  if (!file) {
    error = "cannot open report '" + path + "': " + std::strerror(errno);
    return false;
  }
  text.clear();
  char buffer[65536];
  for (;;) {
    const size_t n = std::fread(buffer, 1, sizeof buffer, file.get());
    if (n > 0) {
      if (text.size() + n > kMaxReportBytes) {
        error = "report '" + path + "' is larger than " + std::to_string(kMaxReportBytes / (1024 * 1024)) +
                " MiB; not a store statistics report";
        return false;
      }
      text.append(buffer, n);
    }
    if (n < sizeof buffer) break;
  }
  if (std::ferror(file.get())) {
    error = "cannot read report '" + path + "': " + std::strerror(errno);
    return false;
  }
  return true;
}

bool readReport(const std::string& path, ReportSummary& summary, std::string& error) {
  std::string text;
  if (!readReportText(path, text, error)) return false;
  if (!parseReport(text, summary, error)) {
    error = "report '" + path + "': " + error;
    return false;
  }
  return true;
}

}  // namespace cli
}  // namespace vorlane
