// Plans a sample store before anything is written: the domains, mailboxes and public tree under the mail
// root, every folder with its type and its share of the messages, and the things a store walk must pass
// over (system folders, stray files, links, leftovers in "#msgs"). Entries are listed parents first, in the
// order they are written. The plan is a pure function of the message count and the seed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mkstore/message_builder.h"

namespace vorlane {
namespace mkstore {

enum class EntryKind {
  Container,     // a domain, mailbox or the public root: a directory without folder files
  Folder,        // a folder the walk visits
  SystemFolder,  // a folder the walk must skip; written with junk that would change the totals
  Symlink,       // a link to a sibling folder; the walk must not follow it
  StrayFile,     // a regular file where the walk expects directories
};

struct PlannedEntry {
  EntryKind kind = EntryKind::Container;
  std::string path;            // relative to the mail root, "/"-separated
  int type = 0;                // folder type: 0 mail, 1 contacts, 2 calendar, 3 tasks, 4 journal, 5 notes
  bool hasStatus = true;       // Folder: writes status.fld; only such folders are counted as folders
  bool outgoing = false;       // Folder: its messages were written by the owner (sent items, drafts)
  unsigned owner = 0;          // index into StorePlan::owners
  unsigned weight = 0;         // share of the messages (type 0) or of the index entries (other types)
  uint32_t messages = 0;       // Folder of type 0: message files to write
  uint32_t entries = 0;        // Folder of another type: items to write (index line and "#msgs" file)
  bool junkTemp = false;       // Folder of type 0: a leftover delivery file in "#msgs" without "eml" suffix
  std::string target;          // Symlink: the relative target
};

struct StorePlan {
  std::vector<PlannedEntry> entries;
  std::vector<Party> owners;
  uint32_t domains = 0;
  uint32_t mailboxes = 0;  // user mailboxes plus one for the public tree
};

// The largest message count the generator accepts; it keeps every count within 32 bits.
const uint64_t kMaxMessages = 100000000;

// messages <= kMaxMessages.
StorePlan planStore(uint64_t messages, uint64_t seed);

// The directory names a store walk never enters, as the mail server creates them.
extern const char* const kSystemFolderNames[];
extern const size_t kSystemFolderNameCount;

}  // namespace mkstore
}  // namespace vorlane
