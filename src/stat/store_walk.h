// The layout of a mail store and one depth-first walk over it, in directory listing order, knowing
// nothing of counting. Under the root (store directory + "/mail"): one directory per domain plus the
// public tree "#public"; in a domain, one directory per mailbox; below a mailbox (and below "#public"),
// folder trees. Every folder may hold status.fld, index.fld and the message directory "#msgs" with the
// "*eml" message files. The walk reads each folder's status; in mail folders (type 0) it hands out the
// message entries, in all others the index lines. Names in forbiddenDirs and anything that is not a
// directory (symbolic links included) are never entered. Each level keeps only the names of its
// subdirectories, never an open directory handle, so a deep tree cannot exhaust descriptors.
//
// The public tree is walked like a domain whose "mailboxes" are its top folders; it counts as one
// user, begun when the walk enters it and finished when it leaves it. A user mailbox is begun when the
// walk enters it and finished when the walk is back in its domain.
//
// Threading: one walk runs on one thread, and calls its visitor on that thread. The stop flag may be
// set from any thread; it is read after every message file, every index and every subfolder, and the
// walk then unwinds at once, leaving the place as it was at that moment.
#pragma once

#include <atomic>
#include <string>

#include "stat/folder_files.h"
#include "stat/message_file.h"

// Names never entered as domains, mailboxes or folders (compared without case); ends with a null entry.
extern const char* const forbiddenDirs[];
bool isForbiddenDir(const char* name);

// Where the walk is. The names stay set while the walk is below them.
struct StorePlace {
  static const char* const kPublicTree;  // "#public", the domain position of the public tree

  std::string domain;   // empty outside a domain
  std::string mailbox;  // empty outside a mailbox; in the public tree, its top folder
  std::string folder;   // the folder below the mailbox ("" for the mailbox itself); valid in folder calls

  bool isPublic() const { return domain == kPublicTree; }
};

// What the walk reports. Owned by the caller of StoreWalk::run, which it must outlive; called on the
// walking thread only, never concurrently.
class StoreVisitor {
 public:
  virtual ~StoreVisitor() = default;
  // A domain directory, or the public tree, is about to be walked.
  virtual void domainEntered(const StorePlace& place) = 0;
  // The current domain's own files are done; its mailboxes come next.
  virtual void mailboxesNext(const StorePlace& place) = 0;
  // A mailbox directory (in the public tree: a top folder) is about to be walked.
  virtual void mailboxEntered(const StorePlace& place) = 0;
  // A user mailbox, or the whole public tree, was walked to its end.
  virtual void userFinished(const StorePlace& place) = 0;
  // A folder directory that holds a status.fld (with the default status when it cannot be read; a
  // status.fld that is not a regular file counts as none).
  virtual void folderFound(const StorePlace& place, const FolderStatus& status) = 0;
  // A message file of a mail folder.
  virtual void messageFound(const StorePlace& place, Collection::FolderType type, const MessageEntry& entry) = 0;
  // One line of the index of a folder of another type.
  virtual void indexEntryFound(const StorePlace& place, Collection::FolderType type, const IndexEntry& entry) = 0;
  // A line saying what the walk could not look at (a directory it cannot open, a special file).
  virtual void walkError(const std::string& line) = 0;
};

class StoreWalk {
 public:
  StoreWalk(const std::string& root, StoreVisitor& visitor, const std::atomic<bool>& stop);

  // Mailboxes below the root, the public tree counting as one.
  static unsigned countMailboxes(const std::string& root);

  // Walks the whole store once.
  void run();
  // The place where the walk ended: empty after a full walk, where it stopped otherwise.
  const StorePlace& place() const { return place_; }

 private:
  // What the entries of a directory are: the root lists domains, a domain (or the public tree) lists
  // mailboxes, and everything below lists folders.
  enum class Level { Root, Domain, Folder };

  // Walks one directory and everything below it; false when a stop made it unwind.
  bool walkDirectory(Level level, const std::string& directory, const std::string& relativePath);
  // The message files of a mail folder, or the index lines of any other; false on a stop.
  bool walkMessages(const std::string& directory, Collection::FolderType type);
  void walkSubdirectory(Level level, const std::string& directory, const std::string& relativePath,
                        const std::string& name);
  bool stopped() const { return stop_.load(std::memory_order_relaxed); }

  std::string root_;
  StoreVisitor& visitor_;
  const std::atomic<bool>& stop_;
  StorePlace place_;
};
