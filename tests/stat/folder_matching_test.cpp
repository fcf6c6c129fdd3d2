// The statistic looks a folder's matching collections up once and reuses them for the folder's next
// messages: every message must still reach exactly the collections whose rule matches its own folder,
// also when consecutive folders differ in one part only, and after the collections were rebuilt.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "stat/counter_catalogue.h"
#include "stat/statistic.h"

namespace {

struct Place {
  std::string domain;
  std::string user;
  std::string folder;
  Collection::FolderType type;
};

// Each neighbour differs from the one before in one part of the folder's identity.
const std::vector<Place> kSequence = {
    {"example.com", "alice", "INBOX", Collection::MailFolder},
    {"example.com", "alice", "INBOX", Collection::MailFolder},
    {"example.com", "alice", "Sent Items", Collection::MailFolder},
    {"example.com", "alice", "INBOX", Collection::MailFolder},
    {"example.com", "bob", "INBOX", Collection::MailFolder},
    {"example.org", "bob", "INBOX", Collection::MailFolder},
    {"#public", "bob", "INBOX", Collection::MailFolder},
    {"example.org", "#public", "INBOX", Collection::MailFolder},
    {"example.org", "#public", "INBOX", Collection::ContactsFolder},
    {"example.org", "bob", "INBOX", Collection::ContactsFolder},
    {"example.org", "bob", "Contacts", Collection::ContactsFolder},
    {"example.org", "bob", "Contacts", Collection::MailFolder},
    {"#public", "", "", Collection::MailFolder},
    {"#public", "", "", Collection::MailFolder},
};

// Feeds the sequence (message i has size 1 << i, so every sum names the messages it holds) and checks
// each collection's message count and size sum against its rule applied to every message.
void expectEachMessageInItsCollections(Statistic& statistic) {
  for (size_t i = 0; i < kSequence.size(); ++i) {
    const Place& p = kSequence[i];
    statistic.addMessageInfo({p.domain, p.user, p.folder, p.type}, MessageFacts{"", 1ULL << i});
  }
  for (const Statistic::CollectionPtr& c : statistic.getMessageCollections()) {
    const Collection::CounterPtr messages = c->getCounter(Counter::MessageCount);
    const Collection::CounterPtr bytes = c->getCounter(Counter::MessageSize);
    if (!messages || !bytes) continue;
    unsigned long long count = 0;
    unsigned long long sizes = 0;
    for (size_t i = 0; i < kSequence.size(); ++i) {
      const Place& p = kSequence[i];
      if (!c->matchFolder(p.domain, p.user, p.folder, p.type)) continue;
      ++count;
      sizes += 1ULL << i;
    }
    EXPECT_EQ(messages->getCount(), count) << c->name;
    EXPECT_EQ(bytes->getSum(), sizes) << c->name;
  }
}

}  // namespace

TEST(FolderMatching, EveryMessageReachesTheCollectionsOfItsOwnFolder) {
  Statistic statistic;
  defineCounters(statistic);
  expectEachMessageInItsCollections(statistic);
  // Rebuilt collections: nothing remembered from the old ones may be used.
  defineCounters(statistic);
  expectEachMessageInItsCollections(statistic);
}
