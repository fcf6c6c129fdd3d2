// The aggregate statistic of one run: the ordered collections of the report, the feeding calls
// that turn the store walk's facts (domain, folder, message) into counter samples, and the writer
// of the whole XML report text. No I/O besides the stream given to report().
// The collections whose rule matches a folder are found once for a run of messages of the same folder
// (a folder's messages arrive together), so a collection's rule must not change once messages are fed.
// Not thread-safe: fed and reported by the single counter thread of a run.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include <boost/noncopyable.hpp>
#include <boost/shared_ptr.hpp>

#include "stat/collection.h"
#include "stat/message_facts.h"
#include "stat/vstat_messages.h"

class Statistic : private boost::noncopyable {
 public:
  typedef boost::shared_ptr<Collection> CollectionPtr;

  // Appends without a duplicate check; the report lists collections in this order.
  void addMessageCollection(const CollectionPtr& collection);
  const std::vector<CollectionPtr>& getMessageCollections() const { return messageCollections; }
  // Drops every collection (released with their last shared pointer).
  void purge();

  // One domain was found: counted by every collection that has "Domain count", without a rule test.
  void addDomainInfo();
  // One folder was found. Ignored without a user, and without a folder name except at the public root.
  void addFolderInfo(const std::string& domain, const std::string& user, const std::string& folder,
                     Collection::FolderType type, unsigned long long folderSize, unsigned long long messageCount);
  // The folder a message lies in, as the walk names it.
  struct MessageFolder {
    const std::string& domain;
    const std::string& user;
    const std::string& folder;
    Collection::FolderType type;
  };
  // One message was read from its file or from an index line. The matching collections of the last
  // folder are remembered; the next message of the same folder (same domain, user, name and type) is
  // counted without asking the rules again.
  void addMessageInfo(const MessageFolder& folder, const MessageFacts& message);
  // Bracket the walk of one user's folders (the public tree counts as one user). Only the public
  // type is tested, so a user without a matching folder still adds a sample of 0.
  void resetUserCounters(const std::string& domain, const std::string& user);
  void mergeUserCounters(const std::string& domain, const std::string& user);

  // Writes the whole report file text. Of the request only the product version, build,
  // operating-system name and code appear; names are written unescaped.
  void report(std::ostream& out, vorlane::vstat::ProcessStoreReqBuffT request) const;

 private:
  // The collections matching `folder`, looked up again only when it differs from the last one.
  const std::vector<Collection*>& matchingCollections(const MessageFolder& folder);
  void forgetMatches() { matchedValid_ = false; }

  std::vector<CollectionPtr> messageCollections;
  // The last folder a message was counted for, and its matching collections (owned by the list above).
  bool matchedValid_ = false;
  std::string matchedDomain_;
  std::string matchedUser_;
  std::string matchedFolder_;
  Collection::FolderType matchedType_ = Collection::MailFolder;
  std::vector<Collection*> matched_;
};
