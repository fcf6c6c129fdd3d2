#include "stat/collection.h"

#include <algorithm>

#include "stat/histogram_counter.h"

const char* const Collection::publicMarker = "#public";

namespace {

// ASCII only: folder names are compared the way the store's folder names are written, without a
// locale, so a multibyte UTF-8 name is compared byte for byte.
inline char asciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool equalsNoCase(const std::string& a, const std::string& b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return asciiLower(x) == asciiLower(y); });
}

// An empty pattern occurs in every name.
bool containsNoCase(const std::string& haystack, const std::string& needle) {
  return needle.empty() ||
         std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end(),
                     [](char x, char y) { return asciiLower(x) == asciiLower(y); }) != haystack.end();
}

}  // namespace

void Collection::addCounter(const Counter::Type& type, const std::string& name, bool valueOnly) {
  counters[type] = CounterPtr(new Counter(name, valueOnly));
}

void Collection::addHistogram(const Counter::Type& type, const std::string& name,
                              const unsigned long long* limits, unsigned int limitCount) {
  counters[type] = CounterPtr(new HistogramCounter(name, limits, limitCount));
}

Collection::CounterPtr Collection::getCounter(const Counter::Type& type) const {
  const auto it = counters.find(type);
  return it == counters.end() ? CounterPtr() : it->second;
}

void Collection::addValue(const Counter::Type& type, unsigned long long value) {
  const auto it = counters.find(type);
  if (it != counters.end()) it->second->add(value);
}

bool Collection::matchPublicType(const std::string& domain, const std::string& user) const {
  if (publicType == AnyPublicType) return true;
  const int32_t isPublic = (domain == publicMarker || user == publicMarker) ? PublicFolders : UserFolders;
  return publicType == isPublic;
}

bool Collection::matchFolder(const std::string& domain, const std::string& user, const std::string& folder,
                             FolderType type) const {
  const bool publicDomain = domain == publicMarker;
  const bool publicUser = !publicDomain && user == publicMarker;
  const int32_t isPublic = (publicDomain || publicUser) ? PublicFolders : UserFolders;
  if (publicType != AnyPublicType && publicType != isPublic) return false;
  if (folderType != AnyFolderType && folderType != type) return false;
  if (comparison == NoNameTest) return true;

  // A user's folder is tested by its path relative to the mailbox, used as it stands (this runs
  // for every message, so no copy); a public folder by "#public/<user>/<folder>", so that no
  // single-folder name such as "INBOX" can ever equal a public folder.
  if (isPublic == UserFolders) return matchNames(folder);
  std::string publicName(publicMarker);
  if (publicDomain && !user.empty()) publicName.append("/").append(user);
  if (!folder.empty()) publicName.append("/").append(folder);
  return matchNames(publicName);
}

bool Collection::matchNames(const std::string& matchName) const {
  for (const std::string& pattern : folderSubstrings) {
    const bool found = containsNoCase(matchName, pattern);
    if (found && comparison == AnyOf) return true;
    if (found && comparison == NoneOf) return false;
    if (!found && comparison == AllOf) return false;
  }
  for (const std::string& pattern : folderNames) {
    const bool equal = equalsNoCase(matchName, pattern);
    if (equal && comparison == AnyOf) return true;
    if (equal && comparison == NoneOf) return false;
    if (!equal && comparison == AllOf) return false;
  }
  return comparison == AllOf || comparison == NoneOf;
}

void Collection::resetUserCounters() {
  const auto temporary = counters.find(Counter::FolderCountPerUserTemporary);
  if (temporary != counters.end()) temporary->second->reset();
}

void Collection::mergeUserCounters() {
  const auto temporary = counters.find(Counter::FolderCountPerUserTemporary);
  if (temporary == counters.end()) return;
  // The catalogue always pairs the temporary counter with the histogram; a hand-built collection
  // that lacks the histogram simply loses the sample.
  addValue(Counter::FolderCountPerUser, temporary->second->getCount());
  temporary->second->reset();
}

void Collection::report(std::ostream& out) const {
  out << "<collection name='" << name << "' publicType='" << publicType << "' folderType='"
      << static_cast<int32_t>(folderType) << "' comparison='" << comparison << "'>" << std::endl;
  for (const auto& entry : counters) {
    // A working value of the per-user histogram, meaningless once merged.
    if (entry.first == Counter::FolderCountPerUserTemporary) continue;
    entry.second->report(out);
  }
  out << "</collection>" << std::endl;
}
