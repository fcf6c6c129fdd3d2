#include "stat/store_walk.h"

#include <strings.h>
#include <sys/stat.h>

#include <vector>

#include "tiny/dir.h"

using vorlane::tiny::DirStreamGuard;
using vorlane::tiny::readdirstat;

const char* const forbiddenDirs[] = {
    ".", "..", "#msgs", "#assoc", "#sync", "__vorlanemapi__STORE", "__vorlanemapi__STORE_ROOT",
    "__vorlanemapi__IPM_ROOT", "IPM_VIEWS", "IPM_COMMON_VIEWS", "Reminders", "Search Root", "Freebusy Data",
    nullptr};

const char* const StorePlace::kPublicTree = "#public";

namespace {

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

std::string notRegular(const std::string& path) { return "Skipping " + path + ": not a regular file\n"; }

}  // namespace

bool isForbiddenDir(const char* name) {
  for (const char* const* forbidden = forbiddenDirs; *forbidden; ++forbidden) {
    if (strcasecmp(name, *forbidden) == 0) return true;
  }
  return false;
}

StoreWalk::StoreWalk(const std::string& root, StoreVisitor& visitor, const std::atomic<bool>& stop)
    : root_(root), visitor_(visitor), stop_(stop) {}

unsigned StoreWalk::countMailboxes(const std::string& root) {
  unsigned count = 0;
  for (const std::string& name : listFolders(root)) {
    // The public tree counts as one mailbox (its name in any case); every other entry is a domain.
    if (strcasecmp(name.c_str(), StorePlace::kPublicTree) == 0) {
      ++count;
    } else {
      count += static_cast<unsigned>(listFolders(root + "/" + name).size());
    }
  }
  return count;
}

void StoreWalk::run() {
  place_ = StorePlace();
  walkDirectory(Level::Root, root_, "");
}

bool StoreWalk::walkDirectory(Level level, const std::string& directory, const std::string& relativePath) {
  // A directory that cannot be opened is passed over; its parent goes on as if it had been walked.
  if (!DirStreamGuard(directory.c_str()).getDir()) {
    visitor_.walkError("Unable to open directory " + directory + "\n");
    return true;
  }

  place_.folder = relativePath;
  FolderStatus status;
  const std::string statusPath = directory + "/status.fld";
  const FolderFileRead read = readFolderStatus(directory, status);
  struct stat statusInfo;
  if (read == FolderFileRead::NotRegular) {
    visitor_.walkError(notRegular(statusPath));
  } else if (::stat(statusPath.c_str(), &statusInfo) == 0) {
    // An existing status file that cannot be read still makes a folder, with the default status.
    visitor_.folderFound(place_, status);
  }
  if (!walkMessages(directory, status.type)) return false;

  if (level == Level::Domain) visitor_.mailboxesNext(place_);
  for (const std::string& name : listFolders(directory)) {
    walkSubdirectory(level, directory, relativePath, name);
    if (stopped()) return false;
    if (level == Level::Root ? place_.isPublic() : level == Level::Domain && !place_.isPublic()) {
      visitor_.userFinished(place_);
    }
  }
  if (level == Level::Domain) place_.mailbox.clear();
  if (level == Level::Root) place_.domain.clear();
  return true;
}

bool StoreWalk::walkMessages(const std::string& directory, Collection::FolderType type) {
  if (type != Collection::MailFolder) {
    const std::string indexPath = directory + "/index.fld";
    const FolderFileRead read = readFolderIndex(
        indexPath, [&](const IndexEntry& entry) { visitor_.indexEntryFound(place_, type, entry); });
    if (read == FolderFileRead::NotRegular) visitor_.walkError(notRegular(indexPath));
    return !stopped();
  }
  const std::string messageDirectory = directory + "/#msgs";
  DirStreamGuard dir(messageDirectory.c_str());
  if (!dir.getDir()) return true;  // a folder without messages
  // Message files are looked up from the open directory rather than by their whole path.
  const int dirFd = ::dirfd(dir.getDir()->stream);
  std::string path;
  while (dirent* entry = readdirstat(dir.getDir())) {
    if (!vorlane::tiny::fext(entry->d_name, "eml")) continue;
    path.assign(messageDirectory).append("/").append(entry->d_name);
    visitor_.messageFound(place_, type, MessageEntry{dirFd, entry->d_name, entry->d_type, path});
    if (stopped()) return false;
  }
  return true;
}

void StoreWalk::walkSubdirectory(Level level, const std::string& directory, const std::string& relativePath,
                                 const std::string& name) {
  switch (level) {
    case Level::Root:
      place_.domain = name;
      visitor_.domainEntered(place_);
      walkDirectory(Level::Domain, directory + "/" + name, "");
      break;
    case Level::Domain:
      place_.mailbox = name;
      visitor_.mailboxEntered(place_);
      walkDirectory(Level::Folder, directory + "/" + name, "");
      break;
    case Level::Folder:
      walkDirectory(Level::Folder, directory + "/" + name, relativePath.empty() ? name : relativePath + "/" + name);
      break;
  }
}
