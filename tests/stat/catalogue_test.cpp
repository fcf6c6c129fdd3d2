#include <string>

#include <gtest/gtest.h>

#include "stat/counter_catalogue.h"

// The full layout of every collection, counter names and limits included, is checked by the complete
// report in report_test.cpp; these tests cover what a report cannot show.

TEST(Catalogue, RedefiningPurgesEarlierCollectionsAndStartsFromZero) {
  Statistic statistic;
  Statistic::CollectionPtr stray(new Collection);
  statistic.addMessageCollection(stray);
  defineCounters(statistic);
  ASSERT_EQ(statistic.getMessageCollections().size(), 25u);
  const Statistic::CollectionPtr first = statistic.getMessageCollections()[0];
  statistic.addDomainInfo();
  statistic.addMessageInfo({"d", "u", "INBOX", Collection::MailFolder},
                           MessageFacts{"IPM.Note", 10, 1, 1, 1, 1, true, true});

  defineCounters(statistic);
  ASSERT_EQ(statistic.getMessageCollections().size(), 25u);
  for (const Statistic::CollectionPtr& c : statistic.getMessageCollections()) {
    EXPECT_NE(c, stray);
    EXPECT_NE(c, first);
    for (const auto& entry : c->getCounters()) EXPECT_EQ(entry.second->getCount(), 0u) << c->name;
  }
}

// The temporary per-user counter is paired with its histogram wherever it exists; a collection
// with one but not the other would drop users or never count them.
TEST(Catalogue, PerUserCountersComeInPairs) {
  Statistic statistic;
  defineCounters(statistic);
  for (const Statistic::CollectionPtr& c : statistic.getMessageCollections()) {
    const bool temporary = static_cast<bool>(c->getCounter(Counter::FolderCountPerUserTemporary));
    const bool histogram = static_cast<bool>(c->getCounter(Counter::FolderCountPerUser));
    EXPECT_EQ(temporary, histogram) << c->name;
  }
}
