// What the writer of the per-folder details file and its readers must agree on. The file is JSON Lines:
// one header object (format name, version, date, store and the report's header fields), one object per
// folder the walk visited, and one end object saying how many folder lines came before it and whether
// the job was stopped. A name field (domain, mailbox, folder, store) that is not valid UTF-8 is written
// with each bad byte shown as U+FFFD and is followed by "<field>_base64", the exact bytes in base64;
// readers take the bytes from there.
#pragma once

namespace details_format {

constexpr const char* kFormatName = "vstat-details";
constexpr int kVersion = 1;
constexpr const char* kExactBytesSuffix = "_base64";

// Header line.
constexpr const char* kFormat = "format";
constexpr const char* kVersionKey = "version";
constexpr const char* kDate = "date";  // UTC, "YYYY-MM-DDTHH:MM:SSZ"
constexpr const char* kStore = "store";
constexpr const char* kProductVersion = "product_version";
constexpr const char* kBuild = "build";
constexpr const char* kOsName = "os_name";
constexpr const char* kOsCode = "os_code";

// Folder lines.
constexpr const char* kDomain = "domain";
constexpr const char* kMailbox = "mailbox";
constexpr const char* kFolder = "folder";
constexpr const char* kClass = "class";
constexpr const char* kType = "type";
constexpr const char* kPublic = "public";
constexpr const char* kStatus = "status";  // whether the folder has a status file (the report counts it)
constexpr const char* kMessages = "messages";
constexpr const char* kBytes = "bytes";
constexpr const char* kLargest = "largest";
constexpr const char* kHeaderBytes = "header_bytes";
constexpr const char* kPlainBytes = "plain_bytes";
constexpr const char* kHtmlBytes = "html_bytes";
constexpr const char* kRtfBytes = "rtf_bytes";
constexpr const char* kSigned = "signed";
constexpr const char* kEncrypted = "encrypted";

// End line.
constexpr const char* kEnd = "end";
constexpr const char* kFolders = "folders";
constexpr const char* kPartial = "partial";

}  // namespace details_format
