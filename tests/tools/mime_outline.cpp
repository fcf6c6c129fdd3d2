#include "mime_outline.h"

#include <cctype>

namespace vorlane {
namespace testing {

namespace {

// One line of [pos, end) without its line end; returns the position after the line end.
size_t nextLine(const std::string& s, size_t pos, size_t end, std::string& line) {
  size_t nl = s.find('\n', pos);
  if (nl == std::string::npos || nl >= end) nl = end;
  size_t stop = nl;
  if (stop > pos && s[stop - 1] == '\r') --stop;
  line.assign(s, pos, stop - pos);
  return nl < end ? nl + 1 : end;
}

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return s;
}

// Value of parameter `name` in a header value, quotes removed; "" when absent.
std::string parameter(const std::string& value, const char* name) {
  const std::string key = std::string(name) + "=";
  const std::string low = lower(value);
  size_t p = 0;
  while ((p = low.find(key, p)) != std::string::npos) {
    if (p == 0 || low[p - 1] == ';' || isspace(static_cast<unsigned char>(low[p - 1]))) break;
    ++p;
  }
  if (p == std::string::npos) return "";
  p += key.size();
  if (p < value.size() && value[p] == '"') {
    const size_t close = value.find('"', p + 1);
    return close == std::string::npos ? "" : value.substr(p + 1, close - p - 1);
  }
  size_t e = p;
  while (e < value.size() && value[e] != ';' && !isspace(static_cast<unsigned char>(value[e]))) ++e;
  return value.substr(p, e - p);
}

bool parseEntity(const std::string& s, size_t begin, size_t end, int depth, MimeOutline& out, std::string& why);

bool parseMultipart(const std::string& s, size_t begin, size_t end, const std::string& boundary, int depth,
                    MimeOutline& out, std::string& why) {
  const std::string open = "--" + boundary;
  const std::string close = open + "--";
  std::string line;
  size_t pos = begin;
  size_t partStart = std::string::npos;  // start of the current part, npos in the preamble
  size_t lineStart = begin;
  bool closed = false;
  while (pos < end) {
    lineStart = pos;
    pos = nextLine(s, pos, end, line);
    if (line != open && line != close) continue;
    if (closed) {
      why = "delimiter of " + boundary + " after its closing delimiter";
      return false;
    }
    if (partStart != std::string::npos) {
      // The line end before a delimiter belongs to the delimiter.
      size_t partEnd = lineStart;
      if (partEnd > partStart && s[partEnd - 1] == '\n') --partEnd;
      if (partEnd > partStart && s[partEnd - 1] == '\r') --partEnd;
      out.children.emplace_back();
      if (!parseEntity(s, partStart, partEnd, depth + 1, out.children.back(), why)) return false;
    }
    if (line == close) {
      closed = true;
      partStart = std::string::npos;
    } else {
      partStart = pos;
    }
  }
  if (!closed) {
    why = "multipart with boundary " + boundary + " has no closing delimiter";
    return false;
  }
  if (out.children.empty()) {
    why = "multipart with boundary " + boundary + " has no parts";
    return false;
  }
  return true;
}

bool parseEntity(const std::string& s, size_t begin, size_t end, int depth, MimeOutline& out, std::string& why) {
  if (depth > 10) {
    why = "nesting deeper than 10";
    return false;
  }
  std::string line, header, contentType;
  size_t pos = begin;
  bool separated = false;
  const auto take = [&]() {
    if (lower(header.substr(0, 13)) == "content-type:") contentType = header.substr(13);
    header.clear();
  };
  while (pos < end) {
    pos = nextLine(s, pos, end, line);
    if (line.empty()) {
      separated = true;
      break;
    }
    if (line[0] == ' ' || line[0] == '\t') {
      if (header.empty()) {
        why = "continuation line without a header: " + line;
        return false;
      }
      header += line;
      continue;
    }
    take();
    if (line.find(':') == std::string::npos) {
      why = "header line without a colon: " + line;
      return false;
    }
    header = line;
  }
  take();
  if (!separated) {
    why = "header not ended by an empty line";
    return false;
  }
  size_t t = contentType.find_first_not_of(" \t");
  contentType = t == std::string::npos ? "" : contentType.substr(t);
  out.type = contentType.empty() ? "text/plain" : lower(contentType.substr(0, contentType.find_first_of("; \t")));
  if (out.type.compare(0, 10, "multipart/") == 0) {
    const std::string boundary = parameter(contentType, "boundary");
    if (boundary.empty()) {
      why = out.type + " without boundary";
      return false;
    }
    return parseMultipart(s, pos, end, boundary, depth, out, why);
  }
  if (out.type == "message/rfc822") {
    out.children.emplace_back();
    return parseEntity(s, pos, end, depth + 1, out.children.back(), why);
  }
  return true;
}

}  // namespace

bool outlineMessage(const std::string& text, MimeOutline& outline, std::string& why) {
  outline = MimeOutline();
  return parseEntity(text, 0, text.size(), 0, outline, why);
}

std::string shapeOf(const MimeOutline& m) {
  const auto childTypes = [](const MimeOutline& p) {
    std::string t;
    for (const MimeOutline& c : p.children) t += (t.empty() ? "" : ",") + c.type;
    return t;
  };
  if (m.type == "text/plain") return "plain";
  if (m.type == "text/html") return "html";
  if (m.type == "application/pkcs7-mime") return "smime_enveloped";
  if (m.type == "multipart/signed") return m.children.size() == 2 ? "signed" : "";
  if (m.type == "multipart/encrypted") return childTypes(m) == "application/pgp-encrypted,application/octet-stream" ? "encrypted" : "";
  if (m.type == "multipart/alternative") {
    const std::string c = childTypes(m);
    if (c == "text/plain,text/html") return "alternative";
    if (c == "text/plain,text/html,text/rtf") return "alternative_rtf";
    if (c == "text/plain,multipart/related") return "alternative_related";
    return "";
  }
  if (m.type == "multipart/mixed" && m.children.size() >= 2) {
    const std::string& first = m.children[0].type;
    if (first == "text/plain") {
      return childTypes(m) == "text/plain,message/rfc822" ? "forwarded" : "mixed_plain";
    }
    if (first == "multipart/alternative") return "mixed_alternative";
    if (first == "text/html") return "mixed_html";
  }
  return "";
}

}  // namespace testing
}  // namespace vorlane
