// The file readers of the store walk: a folder's status.fld and index.fld, and one message file.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <memory>

#include "mime/mail_struct.h"
#include "stat/folder_files.h"
#include "stat/message_classification.h"
#include "stat/store_target.h"
#include "utils/vfile.h"

using vorlane::mime::mail_struct;
using vorlane::utils::VFile;

StoreTarget::FileOpen StoreTarget::openFolderFile(const std::string& path, VFile& file) {
  // A FIFO (or a link to one, or to /proc/self/fd/N) under a folder file's name would block an
  // ordinary open or read for ever: the file is opened without blocking and read only when regular.
  if (!file.doOpenAt(AT_FDCWD, path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY)) return FileOpen::Missing;
  struct stat info;
  if (::fstat(file.fd(), &info) != 0 || !S_ISREG(info.st_mode)) {
    file.close();
    logError("Skipping " + path + ": not a regular file\n");
    return FileOpen::NotRegular;
  }
  return FileOpen::Opened;
}

StoreTarget::FileOpen StoreTarget::getFolderProperties(const std::string& folderPath, Collection::FolderType& type,
                                                       unsigned long long& firstTotal,
                                                       unsigned long long& secondTotal) {
  FolderStatus status;
  type = status.type;
  firstTotal = status.firstTotal;
  secondTotal = status.secondTotal;
  VFile file;
  const FileOpen opened = openFolderFile(folderPath + "/status.fld", file);
  if (opened != FileOpen::Opened) return opened;
  char line[kStoreLineBufferSize];
  while (file.gets(line, sizeof line, true) > 0) parseStatusLine(line, status);
  type = status.type;
  firstTotal = status.firstTotal;
  secondTotal = status.secondTotal;
  return opened;
}

bool StoreTarget::parseIndexFld(const std::string& domain, const std::string& mailbox, const std::string& folder,
                                const std::string& indexPath, Collection::FolderType type) {
  VFile file;
  if (openFolderFile(indexPath, file) != FileOpen::Opened) return false;
  char line[kStoreLineBufferSize];
  unsigned long long size = 0;
  std::string messageClass;
  while (file.gets(line, sizeof line, true) > 0) {
    parseIndexLine(line, size, messageClass);
    statistic.addMessageInfo(domain, mailbox, folder, type, messageClass, size, 0, 0, 0, 0, false, false);
  }
  return true;
}

bool StoreTarget::processFile(const std::string& domain, const std::string& mailbox, const std::string& folder,
                              const MessageEntry& entry, Collection::FolderType type) {
  const std::string& path = entry.path;
  // A message name may belong to a FIFO, socket or device (or a link to one): opening or reading it
  // could block the walk for ever. Such entries are skipped before they are opened: by the type the
  // listing reported, and for links (or a listing without types) by stat. The check is repeated on the
  // opened descriptor, which was opened without blocking, in case the entry changed in between.
  // A directory (or a link to one) opens fine and reads as an empty stream: it is counted like an
  // empty message of its stat size.
  if (entry.listedType != DT_REG) {
    struct stat info;
    if (::fstatat(entry.dirFd, entry.name, &info, 0) != 0) {
      logError("Error obtaining file info " + path + "\n");
      return false;
    }
    if (S_ISDIR(info.st_mode)) {
      statistic.addMessageInfo(domain, mailbox, folder, type, "", static_cast<unsigned long long>(info.st_size), 0, 0,
                               0, 0, false, false);
      return true;
    }
    if (!S_ISREG(info.st_mode)) {
      logError("Skipping " + path + ": not a regular file\n");
      return false;
    }
  }
  // Whatever happens below, the descriptor is given back before the next message.
  struct CloseOnExit {
    VFile& file;
    ~CloseOnExit() { file.close(); }
  } closeOnExit{messageFile};
  if (!messageFile.doOpenAt(entry.dirFd, entry.name, O_RDONLY | O_NONBLOCK | O_NOCTTY)) {
    // A file that is gone by now is reported as one whose status cannot be had, as if it had been
    // looked up before opening.
    struct stat info;
    if (entry.listedType == DT_REG && ::fstatat(entry.dirFd, entry.name, &info, 0) != 0) {
      logError("Error obtaining file info " + path + "\n");
    } else {
      logError("Unable to open file" + path + " for reading.\n");
    }
    return false;
  }
  struct stat opened;
  if (::fstat(messageFile.fd(), &opened) != 0 || !S_ISREG(opened.st_mode)) {
    logError("Skipping " + path + ": not a regular file\n");
    return false;
  }
  // The mail server may hold locks on its files; a statistics reader takes none and never waits.
  std::unique_ptr<mail_struct> tree(mail_struct::parse(&messageFile));
  const MessageClassification message = classifyMessage(tree.get());
  statistic.addMessageInfo(domain, mailbox, folder, type, "", static_cast<unsigned long long>(opened.st_size),
                           message.headerSize, message.plainTextSize, message.htmlSize, message.rtfSize,
                           message.isSigned, message.isEncrypted);
  return true;
}
