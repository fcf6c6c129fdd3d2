#include "report_reader.h"

#include <expat.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>

namespace vorlane {
namespace cli {

namespace {

const size_t kReadPiece = 64 * 1024;

// The header fields and the figures of a counter, each expected once; their bits in a "seen" mask.
const char* const kHeaderFields[] = {"productVersion", "build", "osName", "osCode"};
const char* const kFigures[] = {"value", "sum", "max", "avg"};
const unsigned kAllFour = 15;

unsigned bitOf(const std::string& name, const char* const (&names)[4]) {
  for (unsigned i = 0; i < 4; ++i) {
    if (name == names[i]) return 1u << i;
  }
  return 0;
}

// Where the parser stands in the fixed structure of a report.
enum class Level { Document, Root, Header, Collection, Counter, Figure, Done };

struct ParserFree {
  void operator()(XML_Parser p) const { XML_ParserFree(p); }
};

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

std::string trimmed(const std::string& s) {
  const size_t begin = s.find_first_not_of(" \t\r\n");
  if (begin == std::string::npos) return std::string();
  return s.substr(begin, s.find_last_not_of(" \t\r\n") - begin + 1);
}

// Decimal digits only, at most 64 bits.
bool toNumber(const std::string& text, unsigned long long& value) {
  if (text.empty() || text.size() > 20) return false;
  unsigned long long v = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    const unsigned digit = static_cast<unsigned>(c - '0');
    if (v > (~0ull - digit) / 10) return false;
    v = v * 10 + digit;
  }
  value = v;
  return true;
}

// An optional minus sign and digits, within 32 bits signed.
bool toSmallInteger(const std::string& text, long& value) {
  const bool negative = !text.empty() && text[0] == '-';
  unsigned long long v = 0;
  if (!toNumber(negative ? text.substr(1) : text, v) || v > 0x7fffffffull) return false;
  value = negative ? -static_cast<long>(v) : static_cast<long>(v);
  return true;
}

// "undef" or a fixed-point number; the value itself is not kept (it follows from sum and count).
bool isAverage(const std::string& text) {
  if (text == "undef") return true;
  const size_t dot = text.find('.');
  unsigned long long ignored = 0;
  if (dot == std::string::npos) return toNumber(text, ignored);
  return toNumber(text.substr(0, dot), ignored) && (dot + 1 == text.size() || toNumber(text.substr(dot + 1), ignored));
}

class ReportParser {
 public:
  explicit ReportParser(Report& report) : report_(report), parser_(XML_ParserCreate(nullptr)) {
    report_ = Report();
    if (!parser_) return;
    XML_SetUserData(parser_.get(), this);
    XML_SetElementHandler(parser_.get(), &ReportParser::onStart, &ReportParser::onEnd);
    XML_SetCharacterDataHandler(parser_.get(), &ReportParser::onText);
    // A report has no document type; declaring one is how entity expansion attacks start.
    XML_SetStartDoctypeDeclHandler(parser_.get(), &ReportParser::onDoctype);
    XML_SetEntityDeclHandler(parser_.get(), &ReportParser::onEntity);
    XML_SetParamEntityParsing(parser_.get(), XML_PARAM_ENTITY_PARSING_NEVER);
  }

  // Feeds the next piece; false once the input is refused (the reason is in error()).
  bool feed(const char* data, size_t size, bool last) {
    if (!parser_) return fail("cannot create the XML parser");
    if (XML_Parse(parser_.get(), data, static_cast<int>(size), last ? 1 : 0) != XML_STATUS_OK) {
      if (error_.empty()) {
        const XML_Error code = XML_GetErrorCode(parser_.get());
        fail(code == XML_ERROR_NO_ELEMENTS ? "the report ends early (truncated?)" : XML_ErrorString(code));
      }
      return false;
    }
    if (last && level_ != Level::Done) return fail("the report ends early (truncated?)");
    return true;
  }

  const std::string& error() const { return error_; }

 private:
  static void XMLCALL onStart(void* self, const XML_Char* name, const XML_Char** attributes) {
    static_cast<ReportParser*>(self)->start(name, attributes);
  }
  static void XMLCALL onEnd(void* self, const XML_Char* name) { static_cast<ReportParser*>(self)->end(name); }
  static void XMLCALL onText(void* self, const XML_Char* text, int length) {
    static_cast<ReportParser*>(self)->text(text, static_cast<size_t>(length));
  }
  static void XMLCALL onDoctype(void* self, const XML_Char*, const XML_Char*, const XML_Char*, int) {
    static_cast<ReportParser*>(self)->stop("a DOCTYPE declaration is not allowed in a report");
  }
  static void XMLCALL onEntity(void* self, const XML_Char*, int, const XML_Char*, int, const XML_Char*,
                               const XML_Char*, const XML_Char*, const XML_Char*) {
    static_cast<ReportParser*>(self)->stop("an entity declaration is not allowed in a report");
  }

  bool fail(const std::string& what) {
    if (error_.empty()) {
      error_ = parser_ ? "line " + std::to_string(XML_GetCurrentLineNumber(parser_.get())) + ": " + what : what;
    }
    return false;
  }

  void stop(const std::string& what) {
    fail(what);
    XML_StopParser(parser_.get(), XML_FALSE);
  }

  // "<value> of counter 'Message size' in collection 'IPF.Note - folder INBOX'"
  std::string where(const std::string& element) const {
    std::string text = "<" + element + ">";
    if (counter_) text += " of counter '" + counter_->name + "'";
    if (collection_) text += " in collection '" + collection_->name + "'";
    return text;
  }

  const char* attribute(const XML_Char** attributes, const char* name) {
    for (size_t i = 0; attributes[i]; i += 2) {
      if (std::strcmp(attributes[i], name) == 0) {
        if (std::strlen(attributes[i + 1]) > kMaxTextBytes) {
          stop("attribute " + std::string(name) + " of " + where(current_) + " is longer than " +
               std::to_string(kMaxTextBytes) + " bytes");
          return nullptr;
        }
        return attributes[i + 1];
      }
    }
    stop(where(current_) + " has no " + name + " attribute");
    return nullptr;
  }

  // Expat may still deliver an event or two after a stop; they are ignored.
  void start(const std::string& name, const XML_Char** attributes) {
    if (!error_.empty()) return;
    current_ = name;
    text_.clear();
    switch (level_) {
      case Level::Document:
        if (name != "vlsStoreStatistic") return stop("<" + name + "> is not a store statistics report");
        if (const char* version = attribute(attributes, "version")) report_.version = version;
        level_ = Level::Root;
        return;
      case Level::Root:
        if (name == "collection") return startCollection(attributes);
        if (const unsigned bit = bitOf(name, kHeaderFields)) {
          if (headerSeen_ & bit) return stop("<" + name + "> appears twice");
          headerSeen_ |= bit;
          level_ = Level::Header;
          return;
        }
        return stop("unexpected element <" + name + "> in the report");
      case Level::Collection:
        if (name == "counter" || name == "histogramCounter") return startCounter(name, attributes);
        return stop("unexpected element " + where(name));
      case Level::Counter:
        if (name == "histValue" && counter_->histogram) return startBucket(attributes);
        if (const unsigned bit = bitOf(name, kFigures)) {
          if (figuresSeen_ & bit) return stop(where(name) + " appears twice");
          figuresSeen_ |= bit;
          level_ = Level::Figure;
          return;
        }
        return stop("unexpected element " + where(name));
      default:
        return stop("unexpected element " + where(name) + " inside <" + parent() + ">");
    }
  }

  std::string parent() const {
    switch (level_) {
      case Level::Header: return "header field";
      case Level::Figure: return "figure";
      default: return "vlsStoreStatistic";
    }
  }

  void startCollection(const XML_Char** attributes) {
    if (report_.collections.size() >= kMaxCollections) {
      return stop("more than " + std::to_string(kMaxCollections) + " collections");
    }
    ReportCollection c;
    const char* name = attribute(attributes, "name");
    if (!name) return;
    c.name = name;
    collection_ = nullptr;
    struct Field { const char* attribute; long* target; };
    for (const Field& f : {Field{"publicType", &c.publicType}, Field{"folderType", &c.folderType},
                           Field{"comparison", &c.comparison}}) {
      const char* value = attribute(attributes, f.attribute);
      if (!value) return;
      if (!toSmallInteger(value, *f.target)) {
        return stop("attribute " + std::string(f.attribute) + " of collection '" + c.name + "': '" + value +
                    "' is not a number");
      }
    }
    report_.collections.push_back(std::move(c));
    collection_ = &report_.collections.back();
    level_ = Level::Collection;
  }

  void startCounter(const std::string& element, const XML_Char** attributes) {
    if (++counters_ > kMaxCounters) return stop("more than " + std::to_string(kMaxCounters) + " counters");
    const char* name = attribute(attributes, "name");
    if (!name) return;
    collection_->counters.emplace_back();
    counter_ = &collection_->counters.back();
    counter_->name = name;
    counter_->histogram = element == "histogramCounter";
    figuresSeen_ = 0;
    level_ = Level::Counter;
  }

  void startBucket(const XML_Char** attributes) {
    if (++buckets_ > kMaxBuckets) return stop("more than " + std::to_string(kMaxBuckets) + " histogram buckets");
    const char* limit = attribute(attributes, "max");
    if (!limit) return;
    ReportBucket b{0, 0};
    if (!toNumber(trimmed(limit), b.max)) {
      return stop("attribute max of " + where("histValue") + ": '" + limit + "' is not a number of at most 64 bits");
    }
    if (!counter_->buckets.empty() && b.max <= counter_->buckets.back().max) {
      return stop(where("histValue") + ": the limit " + limit + " does not ascend");
    }
    counter_->buckets.push_back(b);
    level_ = Level::Figure;
  }

  void text(const char* data, size_t size) {
    if (!error_.empty()) return;
    if (level_ == Level::Header || level_ == Level::Figure) {
      if (text_.size() + size > kMaxTextBytes) {
        return stop("the text of " + where(current_) + " is longer than " + std::to_string(kMaxTextBytes) + " bytes");
      }
      text_.append(data, size);
      return;
    }
    for (size_t i = 0; i < size; ++i) {
      if (data[i] != ' ' && data[i] != '\t' && data[i] != '\r' && data[i] != '\n') {
        return stop("unexpected text inside " + where(current_));
      }
    }
  }

  void end(const std::string& name) {
    if (!error_.empty()) return;
    switch (level_) {
      case Level::Header: return endHeader(name);
      case Level::Figure: return endFigure(name);
      case Level::Counter: return endCounter();
      case Level::Collection:
        collection_ = nullptr;
        level_ = Level::Root;
        return;
      case Level::Root:
        if (headerSeen_ != kAllFour) {
          return stop("the report lacks one of <productVersion>, <build>, <osName>, <osCode>");
        }
        level_ = Level::Done;
        return;
      default:
        return;
    }
  }

  void endHeader(const std::string& name) {
    level_ = Level::Root;
    if (name == "productVersion") report_.productVersion = text_;
    if (name == "osName") report_.osName = text_;
    if (name == "build" || name == "osCode") {
      if (!toNumber(trimmed(text_), name == "build" ? report_.build : report_.osCode)) {
        stop("<" + name + ">: '" + text_ + "' is not a number of at most 64 bits");
      }
    }
  }

  void endFigure(const std::string& name) {
    level_ = Level::Counter;
    const std::string value = trimmed(text_);
    if (name == "avg") {
      if (!isAverage(value)) stop(where(name) + ": '" + text_ + "' is not an average");
      return;
    }
    unsigned long long n = 0;
    if (!toNumber(value, n)) return stop(where(name) + ": '" + text_ + "' is not a number of at most 64 bits");
    if (name == "value") counter_->count = n;
    if (name == "sum") counter_->sum = n;
    if (name == "max") counter_->max = n;
    if (name == "histValue") counter_->buckets.back().count = n;
  }

  void endCounter() {
    if (!(figuresSeen_ & 1u)) return stop("counter '" + counter_->name + "' has no <value>");
    counter_->valueOnly = figuresSeen_ == 1u;
    if (!counter_->valueOnly && figuresSeen_ != kAllFour) {
      return stop("counter '" + counter_->name + "' has only some of <sum>, <max>, <avg>");
    }
    if (counter_->histogram && counter_->valueOnly) return stop("histogram '" + counter_->name + "' has no <sum>");
    counter_ = nullptr;
    level_ = Level::Collection;
  }

  Report& report_;
  std::unique_ptr<XML_ParserStruct, ParserFree> parser_;
  Level level_ = Level::Document;
  ReportCollection* collection_ = nullptr;
  ReportCounter* counter_ = nullptr;
  std::string current_;
  std::string text_;
  unsigned headerSeen_ = 0;   // bits of kHeaderFields read so far
  unsigned figuresSeen_ = 0;  // bits of kFigures read so far in the current counter
  size_t counters_ = 0;
  size_t buckets_ = 0;
  std::string error_;
};

// Opens a report without blocking on a FIFO or device and checks it is a regular file of bounded size.
bool openReport(const std::string& path, int& fd, long long& modified, std::string& error) {
  fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    error = "cannot open report '" + path + "': " + std::strerror(errno);
    return false;
  }
  struct stat st;
  if (fstat(fd, &st) != 0) {
    error = "cannot read report '" + path + "': " + std::strerror(errno);
    return false;
  }
  if (!S_ISREG(st.st_mode)) {
    error = "report '" + path + "' is not a regular file";
    return false;
  }
  if (static_cast<unsigned long long>(st.st_size) > kMaxReportBytes) {
    error = "report '" + path + "' is larger than " + std::to_string(kMaxReportBytes / (1024 * 1024)) +
            " MiB; not a store statistics report";
    return false;
  }
  modified = st.st_mtime;
  return true;
}

// Reads the file piece by piece into `consume`; the size limit also holds for a file that grows.
bool readPieces(const std::string& path, const std::function<bool(const char*, size_t, bool)>& consume,
                long long& modified, std::string& error) {
  int raw = -1;
  const bool opened = openReport(path, raw, modified, error);
  Descriptor fd(raw);
  if (!opened) return false;
  std::unique_ptr<char[]> buffer(new char[kReadPiece]);
  size_t total = 0;
  for (;;) {
    const ssize_t n = read(fd.get(), buffer.get(), kReadPiece);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      error = "cannot read report '" + path + "': " + std::strerror(errno);
      return false;
    }
    total += static_cast<size_t>(n);
    if (total > kMaxReportBytes) {
      error = "report '" + path + "' is larger than " + std::to_string(kMaxReportBytes / (1024 * 1024)) + " MiB";
      return false;
    }
    if (!consume(buffer.get(), static_cast<size_t>(n), n == 0)) return false;
    if (n == 0) return true;
  }
}

}  // namespace

bool parseReport(const std::string& text, Report& report, std::string& error) {
  ReportParser parser(report);
  size_t offset = 0;
  for (;;) {
    const size_t piece = std::min(kReadPiece, text.size() - offset);
    const bool last = offset + piece == text.size();
    if (!parser.feed(text.data() + offset, piece, last)) {
      error = parser.error();
      return false;
    }
    if (last) return true;
    offset += piece;
  }
}

bool readReport(const std::string& path, Report& report, std::string& error) {
  ReportParser parser(report);
  long long modified = 0;
  const bool ok = readPieces(
      path, [&parser](const char* data, size_t size, bool last) { return parser.feed(data, size, last); }, modified,
      error);
  if (!ok && error.empty()) error = "report '" + path + "': " + parser.error();
  report.fileTime = modified;
  return ok;
}

bool readReportText(const std::string& path, std::string& text, long long& modified, std::string& error) {
  text.clear();
  return readPieces(
      path,
      [&text](const char* data, size_t size, bool) {
        text.append(data, size);
        return true;
      },
      modified, error);
}

}  // namespace cli
}  // namespace vorlane
