// One statistics job over one mail store: walks the store depth-first in directory order, feeds every
// domain, mailbox, folder and message into its Statistic, reports progress through the job's channel (the owning server),
// and writes the XML report. Layout under the root (store directory + "/mail"): one directory per domain
// plus the public tree "#public"; one directory per mailbox; folder trees below, each folder holding
// status.fld, index.fld and the message directory "#msgs" with the "*eml" message files.
//
// Only mail folders (type 0) have their message files opened and parsed; other folders are counted from
// their index. Symbolic links are never entered as folders. Each recursion level keeps only the names of
// its subfolders, not an open directory handle, so a deep tree cannot exhaust descriptors.
//
// Threading: runs on the job's counter thread only. The stop request of the server is read without a
// lock after every message file, every index file and every subfolder; the walk then unwinds at once and
// still writes the report of what it counted.
#pragma once

#include <string>

#include "stat/collection.h"
#include "stat/job_channel.h"
#include "stat/statistic.h"
#include "stat/vstat_messages.h"
#include "utils/vfile.h"

// Names never entered as domains, mailboxes or folders (compared without case); ends with a null entry.
extern const char* const forbiddenDirs[];
bool isForbiddenDir(const char* name);

class StoreTarget {
 public:
  static const char* const kDefaultReportPath;  // "/tmp/VStatReport.xml"

  // server (normally the VStatServer running the job) may be null: nothing is then sent and no stop
  // request can arrive.
  explicit StoreTarget(JobChannel* server);

  void setRoot(const std::string& root) { this->root = root; }
  // The request whose product fields head the report.
  void setRequest(const vorlane::vstat::ProcessStoreReqBuffT& request) { this->request = request; }
  void setReportPath(const std::string& path) { reportPath = path; }

  // The whole job: catalogue, mailbox count, walk, report, final progress event.
  void countStatistic();
  void defineCounters();
  void countMailboxes(const std::string& path, int depth);
  // Walks one folder directory (relative to the current mailbox) and everything below it.
  bool processFolder(const std::string& relativePath);
  // root, then "/domain" and "/mailbox" when they are set.
  std::string getFolderPath() const;

  enum class FileOpen { Opened, Missing, NotRegular };
  // Reads folderPath/status.fld; unless Opened, the outputs keep their defaults. A status file that is
  // not a regular file is reported in an error line and treated as missing.
  FileOpen getFolderProperties(const std::string& folderPath, Collection::FolderType& type,
                           unsigned long long& firstTotal, unsigned long long& secondTotal);
  // Counts one message per index line; false when the index cannot be opened or is not a regular file
  // (which gets an error line).
  bool parseIndexFld(const std::string& domain, const std::string& mailbox, const std::string& folder,
                     const std::string& indexPath, Collection::FolderType type);
  // A message file as the directory listing found it.
  struct MessageEntry {
    int dirFd;                // the directory open for lookups (AT_FDCWD: name is a path)
    const char* name;         // looked up from dirFd
    unsigned char listedType;  // d_type from the listing; anything but DT_REG is checked with stat first
    const std::string& path;  // for error lines
  };
  // Parses one message file and counts it; false (with an error line naming the path) when it cannot be
  // looked at.
  bool processFile(const std::string& domain, const std::string& mailbox, const std::string& folder,
                   const MessageEntry& entry, Collection::FolderType type);

  const Statistic& getStatistic() const { return statistic; }
  unsigned getMailboxCount() const { return mailboxCount; }
  unsigned getProcessedMailboxes() const { return processedMailboxes; }
  bool isReportWritten() const { return reportWritten != 0; }

 private:
  enum class Level { Domain, Mailbox, Folder };

  // Returns true when a stop was requested (the caller then unwinds).
  bool processMessageFiles(const std::string& directory, const std::string& relativePath,
                           Collection::FolderType type);
  void walkSubfolder(Level level, const std::string& relativePath, const std::string& name);
  // Opens a status or index file without blocking; NotRegular gets an error line.
  FileOpen openFolderFile(const std::string& path, vorlane::utils::VFile& file);
  void writeReport();
  void sendProgress();
  void logError(const std::string& text);
  bool stopRequested() const;

  std::string root;
  std::string domain;   // empty outside a domain
  std::string mailbox;  // empty outside a mailbox
  unsigned mailboxCount = 0;
  unsigned processedMailboxes = 0;
  int counting = 0;
  int reportWritten = 0;
  Statistic statistic;
  JobChannel* server;
  vorlane::vstat::ProcessStoreReqBuffT request{};
  std::string reportPath = kDefaultReportPath;
  // One reader reopened for every message file, so that its buffers and lock member are set up once per
  // job rather than once per message; closed again before processFile returns. The walk never locks it,
  // so the thread binding of its lock member does not matter.
  vorlane::utils::VFile messageFile;
  std::string messagePath;  // the path of the message file being read, for error lines
};
