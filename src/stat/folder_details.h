// The per-folder details of one scan: what the walk counted in each folder it visited, streamed to a
// JSON Lines file (layout in folder_details_format.h) as the walk goes, one line per folder, so memory
// stays flat however large the store. The file is written under a temporary name beside the target,
// created with mode 0600 (the figures are per user), and renamed over the target only by finish();
// a writer destroyed before that removes its temporary file.
// Not thread-safe: one job's walk writes one file.
#pragma once

#include <ctime>
#include <string>

#include "stat/collection.h"

// One folder as the walk saw it. `messages` and the byte figures are what the report counts for the
// folder's messages (files of a mail folder, index lines otherwise).
struct FolderDetails {
  std::string domain;
  std::string mailbox;  // empty in the public tree
  std::string folder;   // path below the mailbox (below "#public" in the public tree), as on disk
  Collection::FolderType type = Collection::MailFolder;
  bool isPublic = false;
  bool hasStatus = false;
  unsigned long long messages = 0;
  unsigned long long bytes = 0;  // wraps as the report's sum does
  unsigned long long largest = 0;
  unsigned long long headerBytes = 0;
  unsigned long long plainBytes = 0;
  unsigned long long htmlBytes = 0;
  unsigned long long rtfBytes = 0;
  unsigned long long signedMessages = 0;
  unsigned long long encryptedMessages = 0;

  void addMessage(unsigned long long size, unsigned long long headerSize, unsigned long long plainTextSize,
                  unsigned long long htmlSize, unsigned long long rtfSize, bool isSigned, bool isEncrypted);
};

// The record for the folder the walk is in. The walk keeps a public folder's first path element in its
// mailbox position; here the public tree is one mailbox-less tree and that element joins the path.
FolderDetails folderDetailsAt(const std::string& domain, const std::string& walkMailbox,
                              const std::string& relativePath, Collection::FolderType type, bool hasStatus);

// The folder class a type stands for ("IPF.Note", ...); empty for a type the catalogue does not know.
const char* folderClassName(Collection::FolderType type);

// The header line's figures: the job's request and when it started.
struct DetailsHeader {
  std::string store;
  std::string productVersion;
  unsigned long long build = 0;
  std::string osName;
  unsigned long long osCode = 0;
  std::time_t date = 0;
};

class FolderDetailsWriter {
 public:
  FolderDetailsWriter() = default;
  ~FolderDetailsWriter();
  FolderDetailsWriter(const FolderDetailsWriter&) = delete;
  FolderDetailsWriter& operator=(const FolderDetailsWriter&) = delete;

  // Creates the temporary file beside `path` and writes the header line. False with the path and the
  // system error in `error`.
  bool open(const std::string& path, const DetailsHeader& header, std::string& error);
  bool isOpen() const { return fd >= 0; }
  // Appends one folder line. A write failure is kept and reported by finish().
  void write(const FolderDetails& folder);
  // Writes the end line, flushes to disk and renames the file over the target. False (the temporary
  // file removed) with the reason in `error` when any write since open() failed.
  bool finish(bool partial, std::string& error);

 private:
  void flush();
  void discard();

  int fd = -1;
  std::string target;
  std::string temporary;
  std::string buffer;  // flushed whenever it passes kFlushBytes
  int writeError = 0;  // errno of the first failed write
  unsigned long long folders = 0;
};
