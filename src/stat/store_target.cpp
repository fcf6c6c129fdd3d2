#include "stat/store_target.h"

#include <strings.h>
#include <sys/stat.h>

#include <sstream>
#include <vector>

#include "stat/counter_catalogue.h"
#include "stat/report_file.h"
#include "tiny/dir.h"
#include "utils/string_utils.h"

using vorlane::tiny::DirStreamGuard;
using vorlane::tiny::readdirstat;

const char* const forbiddenDirs[] = {
    ".", "..", "#msgs", "#assoc", "#sync", "__vorlanemapi__STORE", "__vorlanemapi__STORE_ROOT",
    "__vorlanemapi__IPM_ROOT", "IPM_VIEWS", "IPM_COMMON_VIEWS", "Reminders", "Search Root", "Freebusy Data",
    nullptr};

const char* const StoreTarget::kDefaultReportPath = "/tmp/VStatReport.xml";

namespace {

const char* const kPublicTree = "#public";

// The directories below `path` that the walk may enter, in listing order. Collected before recursing
// so that no level holds a directory handle open while the levels below it are walked.
std::vector<std::string> listFolders(const std::string& path) {
  std::vector<std::string> names;
  DirStreamGuard dir(path.c_str());
  if (!dir.getDir()) return names;
  while (dirent* entry = readdirstat(dir.getDir())) {
    if (entry->d_type == DT_DIR && !isForbiddenDir(entry->d_name)) names.emplace_back(entry->d_name);
  }
  return names;
}

}  // namespace

bool isForbiddenDir(const char* name) {
  for (const char* const* forbidden = forbiddenDirs; *forbidden; ++forbidden) {
    if (strcasecmp(name, *forbidden) == 0) return true;
  }
  return false;
}

StoreTarget::StoreTarget(JobChannel* server) : server(server) {}

void StoreTarget::countStatistic() {
  counting = 1;
  reportWritten = 0;
  logError("countStatistic started\n");
  defineCounters();
  countMailboxes(root, 0);
  logError("StoreTarget::countStatistic starting processFolder()");
  processFolder("");
  logError("StoreTarget::countStatistic processFolder() finished\n");
  // A stopped walk still reports what it counted.
  writeReport();
  logError("StoreTarget::countStatistic finished\n");
  counting = 0;
  sendProgress();
}

void StoreTarget::defineCounters() { ::defineCounters(statistic); }

void StoreTarget::countMailboxes(const std::string& path, int depth) {
  if (depth == 0) mailboxCount = 0;
  for (const std::string& name : listFolders(path)) {
    if (depth == 0) {
      // The public tree counts as one mailbox; every other entry is a domain.
      if (strcasecmp(name.c_str(), kPublicTree) == 0) {
        ++mailboxCount;
      } else {
        countMailboxes(path + "/" + name, 1);
      }
    } else {
      ++mailboxCount;
    }
  }
}

std::string StoreTarget::getFolderPath() const {
  std::string path = root;
  if (!domain.empty()) path += "/" + domain;
  if (!mailbox.empty()) path += "/" + mailbox;
  return path;
}

bool StoreTarget::processFolder(const std::string& relativePath) {
  std::string directory = getFolderPath();
  if (!relativePath.empty()) directory += "/" + relativePath;
  if (!DirStreamGuard(directory.c_str()).getDir()) {
    logError("Unable to open directory " + directory + "\n");
    return false;
  }

  Collection::FolderType type = Collection::MailFolder;
  unsigned long long firstTotal = 0;
  unsigned long long secondTotal = 0;
  const FileOpen status = getFolderProperties(directory, type, firstTotal, secondTotal);
  struct stat statusInfo;
  if (status != FileOpen::NotRegular && ::stat((directory + "/status.fld").c_str(), &statusInfo) == 0) {
    statistic.addFolderInfo(domain, mailbox, relativePath, type, secondTotal, firstTotal);
  }

  if (type == Collection::MailFolder) {
    if (processMessageFiles(directory, relativePath, type)) return true;
  } else {
    parseIndexFld(domain, mailbox, relativePath, directory + "/index.fld", type);
    if (stopRequested()) return true;
  }

  const Level level = domain.empty() ? Level::Domain : mailbox.empty() ? Level::Mailbox : Level::Folder;
  if (level == Level::Mailbox) sendProgress();

  for (const std::string& name : listFolders(directory)) {
    walkSubfolder(level, relativePath, name);
    if (stopRequested()) return true;
    if ((level == Level::Domain && domain == kPublicTree) ||
        (level == Level::Mailbox && domain != kPublicTree)) {
      statistic.mergeUserCounters(domain, mailbox);
      ++processedMailboxes;
      sendProgress();
    }
  }

  if (level == Level::Mailbox) mailbox.clear();
  if (level == Level::Domain) domain.clear();
  return true;
}

void StoreTarget::walkSubfolder(Level level, const std::string& relativePath, const std::string& name) {
  switch (level) {
    case Level::Domain:
      domain = name;
      if (domain == kPublicTree) {
        // The public tree is gathered like one user.
        statistic.resetUserCounters(domain, mailbox);
      } else {
        statistic.addDomainInfo();
      }
      processFolder("");
      break;
    case Level::Mailbox:
      mailbox = name;
      if (domain != kPublicTree) {
        statistic.resetUserCounters(domain, mailbox);
        sendProgress();
      }
      processFolder("");
      break;
    case Level::Folder:
      processFolder(relativePath.empty() ? name : relativePath + "/" + name);
      break;
  }
}

bool StoreTarget::processMessageFiles(const std::string& directory, const std::string& relativePath,
                                      Collection::FolderType type) {
  const std::string messageDirectory = directory + "/#msgs";
  DirStreamGuard dir(messageDirectory.c_str());
  if (!dir.getDir()) return false;  // a folder without messages
  // Message files are looked up from the open directory rather than by their whole path.
  const int dirFd = ::dirfd(dir.getDir()->stream);
  while (dirent* entry = readdirstat(dir.getDir())) {
    if (!vorlane::tiny::fext(entry->d_name, "eml")) continue;
    messagePath.assign(messageDirectory).append("/").append(entry->d_name);
    processFile(domain, mailbox, relativePath, MessageEntry{dirFd, entry->d_name, entry->d_type, messagePath}, type);
    if (stopRequested()) return true;
  }
  return false;
}

void StoreTarget::writeReport() {
  std::ostringstream text;
  statistic.report(text, request);
  std::string error;
  if (replaceFileContents(reportPath, text.str(), error)) {
    reportWritten = 1;
  } else {
    logError("Open report file " + reportPath + " failed.\n");
    logError(error + "\n");
    if (server) server->reportFailure("no report written: " + error);
  }
}

void StoreTarget::sendProgress() {
  if (!server) return;
  vorlane::vstat::EventBuffT event;
  vorlane::utils::strncpys(event.dom, domain.c_str(), sizeof event.dom);
  vorlane::utils::strncpys(event.mbox, mailbox.c_str(), sizeof event.mbox);
  event.processed = processedMailboxes;
  event.mailboxes = mailboxCount;
  event.run = static_cast<uint32_t>(counting);
  event.done = static_cast<uint32_t>(reportWritten);
  server->sendProgressMsg(event);
}

void StoreTarget::logError(const std::string& text) {
  if (server) server->sendErrMsg(text);
}

bool StoreTarget::stopRequested() const { return server && server->isStopRequested(); }
