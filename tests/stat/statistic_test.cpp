// The aggregation rules, fed through the real catalogue: each fact must reach exactly the
// collections (and counters) it belongs to.
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "recording_channel.h"
#include "stat/counter_catalogue.h"
#include "stat/statistic.h"

using vorlane::testing::counterIn;

namespace {

typedef std::set<std::string> Names;

const Collection::FolderType kMail = Collection::MailFolder;

// The collections whose counter of that type has at least one sample.
Names fedCollections(const Statistic& statistic, Counter::Type type) {
  Names names;
  for (const Statistic::CollectionPtr& c : statistic.getMessageCollections()) {
    const Collection::CounterPtr counter = c->getCounter(type);
    if (counter && counter->getCount() != 0) names.insert(c->name);
  }
  return names;
}

class StatisticTest : public ::testing::Test {
 protected:
  void SetUp() override { defineCounters(statistic); }

  void message(const char* domain, const char* user, const char* folder, Collection::FolderType type,
               unsigned long long size, unsigned long long header, unsigned long long plain = 0,
               unsigned long long html = 0, unsigned long long rtf = 0, const char* messageClass = "IPM.Note",
               bool isSigned = false, bool isEncrypted = false) {
    statistic.addMessageInfo({domain, user, folder, type},
                             MessageFacts{messageClass, size, header, plain, html, rtf, isSigned, isEncrypted});
  }

  Statistic statistic;
};

const char* const kSummaryNote = "IPF.Note - any folder type";
const char* const kSummaryAny = "Any folder class - any folder type";
const char* const kSummaryUser = "Any folder class - user folders";

}  // namespace

TEST_F(StatisticTest, EachFolderFeedsExactlyItsCollections) {
  struct Case {
    const char* domain;
    const char* user;
    const char* folder;
    Collection::FolderType type;
    Names expected;
  };
  const Case cases[] = {
      {"example.com", "alice", "Sent Items", kMail,
       {"IPF.Note - folder Sent Items", kSummaryNote, kSummaryAny, kSummaryUser}},
      {"example.com", "alice", "sent items", kMail,
       {"IPF.Note - folder Sent Items", kSummaryNote, kSummaryAny, kSummaryUser}},
      {"example.com", "alice", "Archive", kMail, {"IPF.Note - other folders", kSummaryNote, kSummaryAny, kSummaryUser}},
      {"example.com", "alice", "INBOX/Orders", kMail,
       {"IPF.Note - other folders", kSummaryNote, kSummaryAny, kSummaryUser}},
      {"#public", "Projects", "Plans", kMail, {"IPF.Note - public folders", kSummaryNote, kSummaryAny}},
      {"example.com", "#public", "Shared", kMail, {"IPF.Note - public folders", kSummaryNote, kSummaryAny}},
      // Notes have no "other folders" collection.
      {"example.com", "alice", "Ideas", Collection::NotesFolder, {kSummaryAny, kSummaryUser}},
      {"example.com", "alice", "Notes", Collection::NotesFolder,
       {"IPF.StickyNote - folder Notes", kSummaryAny, kSummaryUser}},
      {"example.com", "alice", "Contacts", Collection::ContactsFolder,
       {"IPF.Contact - folder Contacts", kSummaryAny, kSummaryUser}},
      {"example.com", "alice", "Friends", Collection::ContactsFolder,
       {"IPF.Contact - other folders", kSummaryAny, kSummaryUser}},
      {"#public", "Staff", "", Collection::CalendarFolder, {"IPF.Appointment - public folders", kSummaryAny}},
      {"example.com", "alice", "Calendar", Collection::CalendarFolder,
       {"IPF.Appointment - folder Calendar", kSummaryAny, kSummaryUser}},
  };
  for (const Case& c : cases) {
    defineCounters(statistic);
    message(c.domain, c.user, c.folder, c.type, 100, 10);
    EXPECT_EQ(fedCollections(statistic, Counter::MessageCount), c.expected) << "message in " << c.folder;

    defineCounters(statistic);
    statistic.addFolderInfo(c.domain, c.user, c.folder, c.type, 100, 1);
    Names expected;
    for (const std::string& name : c.expected)
      if (name != kSummaryNote) expected.insert(name);  // the note summary keeps no folder counters
    // Folder counters are spread: per-folder histograms, the one folder count, the per-user counts.
    Names fed = fedCollections(statistic, Counter::MessageCountPerFolder);
    for (Counter::Type type : {Counter::FolderCount, Counter::FolderCountPerUserTemporary}) {
      const Names more = fedCollections(statistic, type);
      fed.insert(more.begin(), more.end());
    }
    EXPECT_EQ(fed, expected) << "folder " << c.folder;
  }
}

// A zero size and header still count as samples; only bodies of size 0 do not exist.
TEST_F(StatisticTest, EmptyMessageStillCountsItsSizeAndHeader) {
  message("example.com", "alice", "INBOX", kMail, 0, 0);
  const char* inbox = "IPF.Note - folder INBOX";
  EXPECT_EQ(counterIn(statistic, inbox, Counter::MessageCount).getCount(), 1u);
  EXPECT_EQ(counterIn(statistic, inbox, Counter::MessageSize).getCount(), 1u);
  EXPECT_EQ(counterIn(statistic, inbox, Counter::MessageHeaderSize).getCount(), 1u);
  EXPECT_EQ(counterIn(statistic, inbox, Counter::PlainTextBodySize).getCount(), 0u);
  EXPECT_EQ(counterIn(statistic, inbox, Counter::AttachmentSize).getCount(), 0u);
}

TEST_F(StatisticTest, BodyCombinationFeedsAtMostOneCounter) {
  struct Case {
    unsigned long long plain, html, rtf;
    int expected;  // a Counter::Type, or -1 for none
  };
  const Case cases[] = {
      {1, 0, 0, Counter::OnlyPlainTextCount},    {0, 1, 0, Counter::OnlyHtmlCount},
      {1, 1, 0, Counter::PlainTextAndHtmlCount}, {1, 0, 1, Counter::PlainTextAndRtfCount},
      {1, 1, 1, Counter::PlainTextHtmlAndRtfCount}, {0, 1, 1, -1},
      {0, 0, 1, -1},                             {0, 0, 0, -1},
  };
  const Counter::Type combinations[] = {Counter::OnlyPlainTextCount, Counter::OnlyHtmlCount,
                                        Counter::PlainTextAndRtfCount, Counter::PlainTextAndHtmlCount,
                                        Counter::PlainTextHtmlAndRtfCount};
  for (const Case& c : cases) {
    defineCounters(statistic);
    message("example.com", "alice", "INBOX", kMail, 100000, 100, c.plain, c.html, c.rtf);
    for (Counter::Type type : combinations)
      EXPECT_EQ(counterIn(statistic, kSummaryNote, type).getCount(), static_cast<int>(type) == c.expected ? 1u : 0u)
          << "plain " << c.plain << " html " << c.html << " rtf " << c.rtf << " counter " << type;
  }
}

// Size minus header and bodies, on the low 32 bits in signed 32-bit arithmetic; only results over
// 1024 are attachments.
TEST_F(StatisticTest, AttachmentSizeUsesWrapping32BitDifference) {
  struct Case {
    unsigned long long size, header, plain, html, rtf;
    long long expected;  // -1: no sample
  };
  const Case cases[] = {
      {5000, 1000, 2000, 0, 0, 2000},
      {4024, 1000, 2000, 0, 0, -1},  // exactly 1024 left: no sample
      {4025, 1000, 2000, 0, 0, 1025},
      {3000, 1000, 2000, 0, 0, -1},
      {100, 5000, 0, 0, 0, -1},                               // negative
      {5000, 100, 100, 100, 100, 4600},
      {(1ULL << 32) + 5000, 1000, 0, 0, 0, 4000},             // only the low 32 bits count
      {0xC0000000ULL, 0, 0, 0, 0, -1},                        // 3 GiB is negative in 32 bits
      {0x7FFFFFFFULL, 0, 0, 0, 0, 0x7FFFFFFF},
      {5000, (1ULL << 32) + 1000, 0, 0, 0, 4000},
      {2000, 0xFFFFFFFFULL, 0, 0, 0, 2001},                   // parts wrap to -1
  };
  for (const Case& c : cases) {
    defineCounters(statistic);
    message("example.com", "alice", "INBOX", kMail, c.size, c.header, c.plain, c.html, c.rtf);
    const Counter& attachment = counterIn(statistic, "IPF.Note - folder INBOX", Counter::AttachmentSize);
    if (c.expected < 0) {
      EXPECT_EQ(attachment.getCount(), 0u) << "size " << c.size << " header " << c.header;
    } else {
      EXPECT_EQ(attachment.getCount(), 1u) << "size " << c.size << " header " << c.header;
      EXPECT_EQ(attachment.getSum(), static_cast<unsigned long long>(c.expected)) << "size " << c.size;
    }
  }
}

TEST_F(StatisticTest, DistributionListClassIsMatchedExactly) {
  message("example.com", "alice", "Contacts", Collection::ContactsFolder, 10, 0, 0, 0, 0, "IPM.DistList");
  message("example.com", "alice", "Contacts", Collection::ContactsFolder, 10, 0, 0, 0, 0, "ipm.distlist");
  message("example.com", "alice", "Contacts", Collection::ContactsFolder, 10, 0, 0, 0, 0, "IPM.DistList.X");
  message("example.com", "alice", "INBOX", kMail, 10, 0, 0, 0, 0, "IPM.DistList");
  EXPECT_EQ(fedCollections(statistic, Counter::DistributionListCount), Names{"IPF.Contact - any folder type"});
  EXPECT_EQ(counterIn(statistic, "IPF.Contact - any folder type", Counter::DistributionListCount).getCount(), 1u);
}

TEST_F(StatisticTest, FolderWithoutUserOrNameIsIgnoredExceptThePublicRoot) {
  statistic.addFolderInfo("example.com", "", "INBOX", kMail, 100, 1);
  statistic.addFolderInfo("#public", "", "Plans", kMail, 100, 1);
  statistic.addFolderInfo("example.com", "alice", "", kMail, 100, 1);
  statistic.addFolderInfo("example.com", "#public", "", kMail, 100, 1);
  EXPECT_EQ(fedCollections(statistic, Counter::FolderCount), Names{});  // every folder counts in "any folder"

  statistic.addFolderInfo("#public", "Projects", "", kMail, 100, 1);
  EXPECT_EQ(fedCollections(statistic, Counter::FolderCount), Names{kSummaryAny});
  EXPECT_EQ(counterIn(statistic, "IPF.Note - public folders", Counter::FolderSize).getSum(), 100u);
}
