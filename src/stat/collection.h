// One section of the statistics report: a named group of counters keyed by Counter::Type, and the
// rule that decides which folders feed it (user or public folder, folder type, folder name test).
// The rule fields are set directly by whoever builds the collection (the catalogue) before use.
// Not thread-safe: fed and reported by the single counter thread of a run.
#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include <boost/noncopyable.hpp>
#include <boost/shared_ptr.hpp>

#include "stat/counter.h"

class Collection : private boost::noncopyable {
 public:
  // Folder type of a folder (from its status file) and of a rule; AnyFolderType only in a rule.
  enum FolderType : int32_t {
    MailFolder = 0,         // "IPF.Note"
    ContactsFolder = 1,     // "IPF.Contact"
    CalendarFolder = 2,     // "IPF.Appointment"
    TasksFolder = 3,        // "IPF.Task"
    JournalFolder = 4,      // "IPF.Journal"
    NotesFolder = 5,        // "IPF.StickyNote"
    AnyFolderType = 999,
  };

  // Values of publicType.
  enum PublicType : int32_t { UserFolders = 0, PublicFolders = 1, AnyPublicType = 2 };

  // Values of comparison; any other value makes the rule match nothing that reaches the name test.
  enum Comparison : int32_t { NoNameTest = 0, AnyOf = 1, AllOf = 2, NoneOf = 3 };

  // Pseudo-domain or pseudo-user under which the store keeps public folders (exact, with case).
  static const char* const publicMarker;

  typedef boost::shared_ptr<Counter> CounterPtr;
  typedef std::map<Counter::Type, CounterPtr> CounterMap;

  Collection() = default;

  // Each replaces any counter already stored under the type.
  void addCounter(const Counter::Type& type, const std::string& name, bool valueOnly);
  void addHistogram(const Counter::Type& type, const std::string& name, const unsigned long long* limits,
                    unsigned int limitCount);
  // Empty when the collection has no counter of that type.
  CounterPtr getCounter(const Counter::Type& type) const;
  const CounterMap& getCounters() const { return counters; }
  // Feeds the counter of that type; a type the collection does not define is ignored, which is
  // how one aggregation call reaches only the collections that measure that thing.
  void addValue(const Counter::Type& type, unsigned long long value);

  bool matchPublicType(const std::string& domain, const std::string& user) const;
  bool matchFolder(const std::string& domain, const std::string& user, const std::string& folder,
                   FolderType type) const;

  // "Folder count per user": the temporary counter counts a user's matching folders while the
  // user is walked; merging adds that number (0 included) as one sample to the histogram.
  void resetUserCounters();
  void mergeUserCounters();

  // Writes the collection element with its counters in type order, the temporary one left out.
  void report(std::ostream& out) const;

  // The rule and the display name. A fresh collection has the widest rule (any public type, any
  // folder type, no name test) rather than indeterminate values; the catalogue sets all four.
  std::string name;
  FolderType folderType = AnyFolderType;
  int32_t publicType = AnyPublicType;
  int32_t comparison = NoNameTest;
  std::vector<std::string> folderSubstrings;  // case-insensitive substrings of the match name
  std::vector<std::string> folderNames;       // case-insensitive whole match names

 private:
  bool matchNames(const std::string& matchName) const;

  CounterMap counters;
};
