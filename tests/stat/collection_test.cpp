#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "stat/collection.h"

namespace {

struct Rule {
  Collection::FolderType folderType;
  int32_t publicType;
  int32_t comparison;
  std::vector<std::string> names;
  std::vector<std::string> substrings;
};

struct MatchCase {
  Rule rule;
  const char* domain;
  const char* user;
  const char* folder;
  Collection::FolderType type;
  bool matches;
};

const Collection::FolderType kMail = Collection::MailFolder;

}  // namespace

// Names are whole relative paths, ASCII case ignored; public folders never equal a plain folder name but
// are named by their marked path: "#public", then "/user" when set, then "/folder" when set. Substrings
// are tested first, anywhere in the name and ignoring case; then the whole names.
TEST(Collection, MatchFolderAppliesPublicTypeFolderTypeNameAndSubstringRules) {
  const Rule inbox{kMail, 0, Collection::AnyOf, {"INBOX"}, {}};
  const Rule notInboxOrSent{kMail, 0, Collection::NoneOf, {"INBOX", "Sent Items"}, {}};
  const Rule allOfNone{kMail, 0, Collection::AllOf, {}, {}};
  const Rule anyOfNone{kMail, 0, Collection::AnyOf, {}, {}};
  const MatchCase cases[] = {
      {inbox, "example.com", "alice", "inbox", kMail, true},
      {inbox, "example.com", "alice", "INBOX", kMail, true},
      {inbox, "example.com", "alice", "INBOX/Sub", kMail, false},
      {inbox, "example.com", "alice", "INBOX ", kMail, false},
      {inbox, "example.com", "alice", "INBOX", Collection::ContactsFolder, false},
      {inbox, "#public", "alice", "INBOX", kMail, false},
      {inbox, "example.com", "#public", "INBOX", kMail, false},
      // The marker is case-sensitive: "#Public" is an ordinary user.
      {inbox, "example.com", "#Public", "INBOX", kMail, true},
      {notInboxOrSent, "example.com", "alice", "Drafts", kMail, true},
      {notInboxOrSent, "example.com", "alice", "INBOX/Sub", kMail, true},
      {notInboxOrSent, "example.com", "alice", "sent items", kMail, false},
      {allOfNone, "example.com", "alice", "Anything", kMail, true},
      {allOfNone, "example.com", "alice", "Anything", Collection::NotesFolder, false},
      {anyOfNone, "example.com", "alice", "INBOX", kMail, false},
      {Rule{kMail, 0, 4, {}, {}}, "example.com", "alice", "INBOX", kMail, false},
      {Rule{kMail, 0, -1, {}, {}}, "example.com", "alice", "INBOX", kMail, false},
      {Rule{kMail, 0, Collection::NoNameTest, {"INBOX"}, {}}, "example.com", "alice", "Other", kMail, true},
      {Rule{Collection::AnyFolderType, 2, 0, {}, {}}, "example.com", "alice", "x", Collection::JournalFolder, true},
      {Rule{Collection::AnyFolderType, 2, 0, {}, {}}, "#public", "Projects", "", kMail, true},
      {Rule{Collection::AnyFolderType, 0, 0, {}, {}}, "#public", "Projects", "", kMail, false},
      {Rule{kMail, 1, 0, {}, {}}, "example.com", "alice", "INBOX", kMail, false},
      {Rule{kMail, 1, 0, {}, {}}, "example.com", "#public", "Shared", kMail, true},
      {Rule{kMail, 1, 0, {}, {}}, "#PUBLIC", "Projects", "", kMail, false},
      {Rule{kMail, 3, 0, {}, {}}, "#public", "Projects", "", kMail, false},
      // Public folders by their marked path; a public user in another domain: the domain and the user are
      // not part of the name.
      {Rule{kMail, 1, Collection::AnyOf, {"#PUBLIC/projects/plans"}, {}},
       "#public", "Projects", "Plans", kMail, true},
      {Rule{kMail, 1, Collection::AnyOf, {"#public/Projects"}, {}}, "#public", "Projects", "", kMail, true},
      {Rule{kMail, 1, Collection::AnyOf, {"#public/Plans"}, {}}, "#public", "", "Plans", kMail, true},
      {Rule{kMail, 1, Collection::AnyOf, {"#public"}, {}}, "#public", "", "", kMail, true},
      {Rule{kMail, 1, Collection::AnyOf, {"#public/Plans"}, {}}, "example.com", "#public", "Plans", kMail, true},
      {Rule{kMail, 1, Collection::AnyOf, {"Plans"}, {}}, "#public", "Projects", "Plans", kMail, false},
      // Substrings.
      {Rule{kMail, 0, Collection::AnyOf, {}, {"ARCH"}}, "d", "u", "Old/Archive", kMail, true},
      {Rule{kMail, 0, Collection::AnyOf, {}, {"arch"}}, "d", "u", "Inbox", kMail, false},
      {Rule{kMail, 0, Collection::AllOf, {}, {"old", "arch"}}, "d", "u", "Old/Archive", kMail, true},
      {Rule{kMail, 0, Collection::AllOf, {}, {"old", "new"}}, "d", "u", "Old/Archive", kMail, false},
      {Rule{kMail, 0, Collection::AllOf, {"Old/Archive"}, {"old"}}, "d", "u", "old/archive", kMail, true},
      {Rule{kMail, 0, Collection::AllOf, {"Old"}, {"old"}}, "d", "u", "Old/Archive", kMail, false},
      {Rule{kMail, 0, Collection::NoneOf, {}, {"spam"}}, "d", "u", "My SPAM box", kMail, false},
      {Rule{kMail, 0, Collection::NoneOf, {"Drafts"}, {"spam"}}, "d", "u", "Projects", kMail, true},
      // A substring hit decides before the name list is looked at.
      {Rule{kMail, 0, Collection::AnyOf, {"Nothing"}, {"proj"}}, "d", "u", "Projects", kMail, true},
      {Rule{kMail, 0, Collection::AnyOf, {}, {""}}, "d", "u", "", kMail, true},
  };
  for (const MatchCase& c : cases) {
    Collection collection;
    collection.folderType = c.rule.folderType;
    collection.publicType = c.rule.publicType;
    collection.comparison = c.rule.comparison;
    collection.folderNames = c.rule.names;
    collection.folderSubstrings = c.rule.substrings;
    EXPECT_EQ(collection.matchFolder(c.domain, c.user, c.folder, c.type), c.matches)
        << "comparison " << c.rule.comparison << ", folder " << c.domain << " | " << c.user << " | " << c.folder;
  }
}
