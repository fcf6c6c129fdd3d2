#include "report_openmetrics.h"

#include <algorithm>
#include <vector>

namespace vorlane {
namespace cli {

namespace {

const unsigned long long kAllBits = ~0ull;

bool endsWith(const std::string& s, const std::string& suffix) {
  return s.size() >= suffix.size() && s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// Byte counts are the counters named "... size" and "Size of ...".
bool countsBytes(const std::string& counterName) {
  return endsWith(counterName, "size") || counterName.compare(0, 5, "Size ") == 0;
}

std::string labelValue(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '\\' || c == '"') out += '\\';
    if (c == '\n') {
      out += "\\n";
      continue;
    }
    out += c;
  }
  return out;
}

std::string scope(long publicType) {
  switch (publicType) {
    case 0: return "user";
    case 1: return "public";
    case 2: return "any";
    default: return std::to_string(publicType);
  }
}

std::string labels(const ReportCollection& c) {
  return "collection=\"" + labelValue(c.name) + "\",scope=\"" + scope(c.publicType) + "\",folder_type=\"" +
         std::to_string(c.folderType) + "\",comparison=\"" + std::to_string(c.comparison) + "\"";
}

// A family: its samples come from every collection with a counter of that name, in report order.
struct Family {
  std::string counterName;
  bool gauge;  // value-only counter
};

void writeHeader(std::ostream& out, const std::string& name, const char* type, const std::string& help, bool bytes) {
  out << "# HELP " << name << ' ' << labelValue(help) << '\n';
  out << "# TYPE " << name << ' ' << type << '\n';
  if (bytes) out << "# UNIT " << name << " bytes\n";
}

void writeHistogram(std::ostream& out, const std::string& name, const ReportCollection& c, const ReportCounter& h) {
  const std::string l = labels(c);
  unsigned long long cumulative = 0;
  for (const ReportBucket& b : h.buckets) {
    if (b.max == kAllBits) break;
    cumulative += b.count;
    out << name << "_bucket{" << l << ",le=\"" << b.max << "\"} " << cumulative << '\n';
  }
  // A damaged report may hold more in its buckets than its count; the series must not decrease.
  out << name << "_bucket{" << l << ",le=\"+Inf\"} " << std::max(cumulative, h.count) << '\n';
  out << name << "_count{" << l << "} " << std::max(cumulative, h.count) << '\n';
  out << name << "_sum{" << l << "} " << h.sum << '\n';
}

}  // namespace

std::string metricName(const std::string& counterName) {
  std::string snake;
  for (char c : counterName) {
    if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) {
      snake += c;
    } else if (c >= 'A' && c <= 'Z') {
      snake += static_cast<char>(c - 'A' + 'a');
    } else if (!snake.empty() && snake.back() != '_') {
      snake += '_';
    }
  }
  while (!snake.empty() && snake.back() == '_') snake.pop_back();
  // "_count" is a suffix the histogram samples own: "Message count" is vstat_messages.
  if (endsWith(snake, "_count")) snake.replace(snake.size() - 6, 6, "s");
  if (snake.empty() || (snake[0] >= '0' && snake[0] <= '9')) snake = "counter_" + snake;
  return "vstat_" + snake + (countsBytes(counterName) ? "_bytes" : "");
}

void writeOpenMetrics(std::ostream& out, const Report& report) {
  writeHeader(out, "vstat_report_timestamp_seconds", "gauge",
              "Modification time of the statistics report, seconds since the epoch", false);
  out << "vstat_report_timestamp_seconds{product_version=\"" << labelValue(report.productVersion) << "\",build=\""
      << report.build << "\",os_name=\"" << labelValue(report.osName) << "\",os_code=\"" << report.osCode << "\"} "
      << report.fileTime << '\n';

  std::vector<Family> families;
  for (const ReportCollection& c : report.collections) {
    for (const ReportCounter& counter : c.counters) {
      const bool seen = std::any_of(families.begin(), families.end(),
                                    [&](const Family& f) { return f.counterName == counter.name; });
      if (!seen) families.push_back(Family{counter.name, counter.valueOnly});
    }
  }
  for (const Family& f : families) {
    const std::string name = metricName(f.counterName);
    const bool bytes = countsBytes(f.counterName);
    if (f.gauge) {
      writeHeader(out, name, "gauge", f.counterName, false);
      for (const ReportCollection& c : report.collections) {
        const ReportCounter* counter = c.find(f.counterName);
        if (counter && counter->valueOnly) out << name << '{' << labels(c) << "} " << counter->count << '\n';
      }
      continue;
    }
    writeHeader(out, name, "histogram", f.counterName, bytes);
    for (const ReportCollection& c : report.collections) {
      const ReportCounter* counter = c.find(f.counterName);
      if (counter && !counter->valueOnly) writeHistogram(out, name, c, *counter);
    }
    const std::string maxName = bytes ? name.substr(0, name.size() - 6) + "_max_bytes" : name + "_max";
    writeHeader(out, maxName, "gauge", "Largest sample of " + f.counterName, bytes);
    for (const ReportCollection& c : report.collections) {
      const ReportCounter* counter = c.find(f.counterName);
      if (counter && !counter->valueOnly) out << maxName << '{' << labels(c) << "} " << counter->max << '\n';
    }
  }
  out << "# EOF\n";
}

}  // namespace cli
}  // namespace vorlane
