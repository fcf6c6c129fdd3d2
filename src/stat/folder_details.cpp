#include "stat/folder_details.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <nlohmann/json.hpp>

#include "stat/folder_details_format.h"
#include "utils/base64.h"
#include "utils/string_utils.h"

namespace fmt = details_format;

namespace {

const size_t kFlushBytes = 64 * 1024;

std::string describe(const char* what, const std::string& path, int error) {
  return std::string(what) + " " + path + ": " + std::strerror(error);
}

void appendKey(std::string& line, const char* key) {
  line += line.back() == '{' ? "\"" : ",\"";
  line += key;
  line += "\":";
}

void appendNumber(std::string& line, const char* key, unsigned long long value) {
  appendKey(line, key);
  line += std::to_string(value);
}

void appendBool(std::string& line, const char* key, bool value) {
  appendKey(line, key);
  line += value ? "true" : "false";
}

// A name as JSON text; one that is not valid UTF-8 also gets its exact bytes in "<key>_base64".
void appendName(std::string& line, const char* key, const std::string& name) {
  appendKey(line, key);
  line += nlohmann::json(name).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  if (!vorlane::utils::isValidUtf8(name)) {
    appendKey(line, (std::string(key) + fmt::kExactBytesSuffix).c_str());
    line += '"' + vorlane::utils::base64Encode(name) + '"';
  }
}

std::string utcDate(std::time_t date) {
  std::tm parts{};
  gmtime_r(&date, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

}  // namespace

void FolderDetails::addMessage(unsigned long long size, unsigned long long headerSize,
                               unsigned long long plainTextSize, unsigned long long htmlSize,
                               unsigned long long rtfSize, bool isSigned, bool isEncrypted) {
  ++messages;
  bytes += size;
  largest = std::max(largest, size);
  headerBytes += headerSize;
  plainBytes += plainTextSize;
  htmlBytes += htmlSize;
  rtfBytes += rtfSize;
  signedMessages += isSigned ? 1 : 0;
  encryptedMessages += isEncrypted ? 1 : 0;
}

FolderDetails folderDetailsAt(const std::string& domain, const std::string& walkMailbox,
                              const std::string& relativePath, Collection::FolderType type, bool hasStatus) {
  FolderDetails details;
  details.domain = domain;
  details.isPublic = domain == Collection::publicMarker;
  if (details.isPublic && !walkMailbox.empty()) {
    details.folder = relativePath.empty() ? walkMailbox : walkMailbox + "/" + relativePath;
  } else {
    details.mailbox = walkMailbox;
    details.folder = relativePath;
  }
  details.type = type;
  details.hasStatus = hasStatus;
  return details;
}

const char* folderClassName(Collection::FolderType type) {
  switch (type) {
    case Collection::MailFolder: return "IPF.Note";
    case Collection::ContactsFolder: return "IPF.Contact";
    case Collection::CalendarFolder: return "IPF.Appointment";
    case Collection::TasksFolder: return "IPF.Task";
    case Collection::JournalFolder: return "IPF.Journal";
    case Collection::NotesFolder: return "IPF.StickyNote";
    default: return "";
  }
}

FolderDetailsWriter::~FolderDetailsWriter() { discard(); }

bool FolderDetailsWriter::open(const std::string& path, const DetailsHeader& header, std::string& error) {
  discard();
  target = path;
  temporary = path + ".XXXXXX";
  // mkostemp creates the file with mode 0600 whatever the umask, and never reuses an existing name.
  fd = ::mkostemp(&temporary[0], O_CLOEXEC);
  if (fd < 0) {
    error = describe("cannot create temporary file for", path, errno);
    return false;
  }
  writeError = 0;
  folders = 0;
  buffer = "{";
  appendKey(buffer, fmt::kFormat);
  buffer += '"' + std::string(fmt::kFormatName) + '"';
  appendNumber(buffer, fmt::kVersionKey, fmt::kVersion);
  appendKey(buffer, fmt::kDate);
  buffer += '"' + utcDate(header.date) + '"';
  appendName(buffer, fmt::kStore, header.store);
  appendName(buffer, fmt::kProductVersion, header.productVersion);
  appendNumber(buffer, fmt::kBuild, header.build);
  appendName(buffer, fmt::kOsName, header.osName);
  appendNumber(buffer, fmt::kOsCode, header.osCode);
  buffer += "}\n";
  return true;
}

void FolderDetailsWriter::write(const FolderDetails& folder) {
  if (fd < 0) return;
  std::string line = "{";
  appendName(line, fmt::kDomain, folder.domain);
  appendName(line, fmt::kMailbox, folder.mailbox);
  appendName(line, fmt::kFolder, folder.folder);
  appendKey(line, fmt::kClass);
  line += '"' + std::string(folderClassName(folder.type)) + '"';
  appendKey(line, fmt::kType);
  line += std::to_string(static_cast<long long>(folder.type));
  appendBool(line, fmt::kPublic, folder.isPublic);
  appendBool(line, fmt::kStatus, folder.hasStatus);
  appendNumber(line, fmt::kMessages, folder.messages);
  appendNumber(line, fmt::kBytes, folder.bytes);
  appendNumber(line, fmt::kLargest, folder.largest);
  appendNumber(line, fmt::kHeaderBytes, folder.headerBytes);
  appendNumber(line, fmt::kPlainBytes, folder.plainBytes);
  appendNumber(line, fmt::kHtmlBytes, folder.htmlBytes);
  appendNumber(line, fmt::kRtfBytes, folder.rtfBytes);
  appendNumber(line, fmt::kSigned, folder.signedMessages);
  appendNumber(line, fmt::kEncrypted, folder.encryptedMessages);
  line += "}\n";
  buffer += line;
  ++folders;
  if (buffer.size() >= kFlushBytes) flush();
}

bool FolderDetailsWriter::finish(bool partial, std::string& error) {
  if (fd < 0) {
    error = "details file " + target + " is not open";
    return false;
  }
  buffer += "{";
  appendBool(buffer, fmt::kEnd, true);
  appendNumber(buffer, fmt::kFolders, folders);
  appendBool(buffer, fmt::kPartial, partial);
  buffer += "}\n";
  flush();
  if (writeError == 0 && ::fsync(fd) != 0) writeError = errno;
  if (::close(fd) != 0 && writeError == 0) writeError = errno;
  fd = -1;
  if (writeError != 0) {
    error = describe("cannot write", temporary, writeError);
    ::unlink(temporary.c_str());
    return false;
  }
  if (::rename(temporary.c_str(), target.c_str()) != 0) {
    error = describe("cannot rename details file over", target, errno);
    ::unlink(temporary.c_str());
    return false;
  }
  return true;
}

void FolderDetailsWriter::flush() {
  const char* p = buffer.data();
  size_t left = buffer.size();
  while (left > 0 && writeError == 0) {
    const ssize_t n = ::write(fd, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      writeError = n < 0 ? errno : EIO;
      break;
    }
    p += n;
    left -= static_cast<size_t>(n);
  }
  buffer.clear();
}

void FolderDetailsWriter::discard() {
  if (fd < 0) return;
  ::close(fd);
  ::unlink(temporary.c_str());
  fd = -1;
}
