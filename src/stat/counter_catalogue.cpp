#include "stat/counter_catalogue.h"

#include <cstddef>
#include <limits>

namespace {

typedef unsigned long long Limit;

// Every table ends with the all-ones value so that every sample lands in a bucket.
constexpr Limit kAllOnes = std::numeric_limits<Limit>::max();

// Message and body sizes in bytes.
constexpr Limit kSizeLimits[] = {100,     200,     300,      500,      700,      1000,      2000,
                                 3000,    4000,    5000,     7000,     10000,    15000,     20000,
                                 50000,   70000,   100000,   200000,   500000,   1000000,   2000000,
                                 5000000, 10000000, 20000000, 50000000, 100000000, 500000000, kAllOnes};
// Folder sizes in bytes.
constexpr Limit kFolderSizeLimits[] = {20000,     50000,     100000,     200000,     500000,
                                       1000000,   2000000,   5000000,    10000000,   20000000,
                                       50000000,  100000000, 200000000,  500000000,  1000000000,
                                       2000000000, 5000000000, 10000000000, kAllOnes};
// Messages in a folder: no 0 bucket, an empty folder counts in the bucket "1".
constexpr Limit kPerFolderLimits[] = {1, 2, 3, 5, 10, 20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 20000, kAllOnes};
// Folders of a user: starts at 0, so users without a matching folder have a bucket of their own.
constexpr Limit kPerUserLimits[] = {0, 1, 2, 3, 5, 10, 15, 20, 30, 40, 50, 70, 100, 200, 500, kAllOnes};

// Indexed by Counter::Type. Types 9 and 10 are "plain text and RTF" and "plain text and HTML", in
// that numeric order.
const char* const kCounterNames[] = {
    "Message count",
    "Message size",
    "Message header size",
    "Plain text body size",
    "HTML body size",
    "RTF body size",
    "Attachment size",
    "Count of messages with only plain text body",
    "Count of messages with only html body",
    "Count of messages with plain text and RTF body",
    "Count of messages with plain text and HTML body",
    "Count of messages with plain text, HTML and RTF body",
    "Signed message count",
    "Encrypted message count",
    "Size of signed messages",
    "Size of encrypted messages",
    "Distribution list count",
    "Folder count",
    "Folder size",
    "Message count per folder",
    "Folder count per user",
    "Folder count per user - temporary",
    "Domain count",
};
static_assert(sizeof(kCounterNames) / sizeof(kCounterNames[0]) == Counter::DomainCount + 1,
              "one name per counter type");

}  // namespace

const char* counterName(Counter::Type type) {
  return type < sizeof(kCounterNames) / sizeof(kCounterNames[0]) ? kCounterNames[type] : "";
}

namespace {

// One counter of a collection: a counter (value-only or full) when limits is null, else a histogram.
struct CounterDef {
  Counter::Type type;
  bool valueOnly;
  const Limit* limits;
  unsigned int limitCount;
};

constexpr CounterDef valueOnly(Counter::Type type) { return CounterDef{type, true, nullptr, 0}; }
constexpr CounterDef plain(Counter::Type type) { return CounterDef{type, false, nullptr, 0}; }
template <size_t N>
constexpr CounterDef histogram(Counter::Type type, const Limit (&limits)[N]) {
  return CounterDef{type, false, limits, N};
}

struct CounterList {
  const CounterDef* defs;
  size_t size;
};
template <size_t N>
constexpr CounterList list(const CounterDef (&defs)[N]) {
  return CounterList{defs, N};
}

constexpr CounterDef kFolderCounters[] = {valueOnly(Counter::MessageCount),
                                           valueOnly(Counter::FolderCountPerUserTemporary)};
constexpr CounterDef kFolderHistograms[] = {
    histogram(Counter::MessageSize, kSizeLimits), histogram(Counter::FolderSize, kFolderSizeLimits),
    histogram(Counter::MessageCountPerFolder, kPerFolderLimits),
    histogram(Counter::FolderCountPerUser, kPerUserLimits)};
constexpr CounterDef kMailHistograms[] = {
    histogram(Counter::MessageHeaderSize, kSizeLimits), histogram(Counter::PlainTextBodySize, kSizeLimits),
    histogram(Counter::HtmlBodySize, kSizeLimits), histogram(Counter::RtfBodySize, kSizeLimits),
    histogram(Counter::AttachmentSize, kSizeLimits)};

constexpr CounterDef kContactSummary[] = {valueOnly(Counter::DistributionListCount)};
constexpr CounterDef kNoteSummary[] = {
    valueOnly(Counter::MessageCount),         valueOnly(Counter::SignedMessageCount),
    valueOnly(Counter::EncryptedMessageCount), plain(Counter::SignedMessageSize),
    plain(Counter::EncryptedMessageSize),     valueOnly(Counter::OnlyPlainTextCount),
    valueOnly(Counter::OnlyHtmlCount),        valueOnly(Counter::PlainTextAndHtmlCount),
    valueOnly(Counter::PlainTextAndRtfCount), valueOnly(Counter::PlainTextHtmlAndRtfCount)};
constexpr CounterDef kAnyFolderSummary[] = {valueOnly(Counter::MessageCount), plain(Counter::MessageSize),
                                             valueOnly(Counter::FolderCount), valueOnly(Counter::DomainCount)};
constexpr CounterDef kUserFolderSummary[] = {
    valueOnly(Counter::MessageCount), plain(Counter::MessageSize),
    histogram(Counter::FolderCountPerUser, kPerUserLimits), valueOnly(Counter::FolderCountPerUserTemporary)};

constexpr Collection::FolderType kMail = Collection::MailFolder;
constexpr Collection::PublicType kUser = Collection::UserFolders;
constexpr Collection::PublicType kPublic = Collection::PublicFolders;
constexpr Collection::PublicType kEither = Collection::AnyPublicType;
constexpr Collection::Comparison kNoTest = Collection::NoNameTest;
constexpr Collection::Comparison kOneOf = Collection::AnyOf;
constexpr Collection::Comparison kNoneOf = Collection::NoneOf;

struct Rule {
  const char* name;
  Collection::FolderType folderType;
  Collection::PublicType publicType;
  Collection::Comparison comparison;
};

// A folder-class collection gets the folder counters and histograms, and the mail histograms when
// its folder type is mail.
struct FolderClassDef {
  Rule rule;
  const char* names[5];  // whole folder names; unused entries null
};

// Notes have no "other folders" collection: notes outside "Notes" are counted only by the summaries
// of any folder type.
const FolderClassDef kFolderClasses[] = {
    {{"IPF.Note - folder INBOX", kMail, kUser, kOneOf}, {"INBOX"}},
    {{"IPF.Note - folder Sent Items", kMail, kUser, kOneOf}, {"Sent Items"}},
    {{"IPF.Note - folder Deleted Items", kMail, kUser, kOneOf}, {"Deleted Items"}},
    {{"IPF.Note - folder Drafts", kMail, kUser, kOneOf}, {"Drafts"}},
    {{"IPF.Note - folder Junk E-mail", kMail, kUser, kOneOf}, {"Junk E-mail"}},
    {{"IPF.Note - public folders", kMail, kPublic, kNoTest}, {}},
    {{"IPF.Note - other folders", kMail, kUser, kNoneOf},
     {"INBOX", "Sent Items", "Deleted Items", "Drafts", "Junk E-mail"}},
    {{"IPF.Contact - folder Contacts", Collection::ContactsFolder, kUser, kOneOf}, {"Contacts"}},
    {{"IPF.Contact - public folders", Collection::ContactsFolder, kPublic, kNoTest}, {}},
    {{"IPF.Contact - other folders", Collection::ContactsFolder, kUser, kNoneOf}, {"Contacts"}},
    {{"IPF.Task - folder Tasks", Collection::TasksFolder, kUser, kOneOf}, {"Tasks"}},
    {{"IPF.Task - public folders", Collection::TasksFolder, kPublic, kNoTest}, {}},
    {{"IPF.Task - other folders", Collection::TasksFolder, kUser, kNoneOf}, {"Tasks"}},
    {{"IPF.Journal - folder Journal", Collection::JournalFolder, kUser, kOneOf}, {"Journal"}},
    {{"IPF.Journal - public folders", Collection::JournalFolder, kPublic, kNoTest}, {}},
    {{"IPF.Journal - other folders", Collection::JournalFolder, kUser, kNoneOf}, {"Journal"}},
    {{"IPF.Appointment - folder Calendar", Collection::CalendarFolder, kUser, kOneOf}, {"Calendar"}},
    {{"IPF.Appointment - public folders", Collection::CalendarFolder, kPublic, kNoTest}, {}},
    {{"IPF.Appointment - other folders", Collection::CalendarFolder, kUser, kNoneOf}, {"Calendar"}},
    {{"IPF.StickyNote - folder Notes", Collection::NotesFolder, kUser, kOneOf}, {"Notes"}},
    {{"IPF.StickyNote - public folders", Collection::NotesFolder, kPublic, kNoTest}, {}},
};

struct SummaryDef {
  Rule rule;
  CounterList counters;  // added in this order; the report lists them by type
};

// Appended after the folder classes. The two named "... - any folder type" keep a folder type:
// their "any" refers to the public type.
const SummaryDef kSummaries[] = {
    {{"IPF.Contact - any folder type", Collection::ContactsFolder, kEither, kNoTest}, list(kContactSummary)},
    {{"IPF.Note - any folder type", kMail, kEither, kNoTest}, list(kNoteSummary)},
    {{"Any folder class - any folder type", Collection::AnyFolderType, kEither, kNoTest}, list(kAnyFolderSummary)},
    {{"Any folder class - user folders", Collection::AnyFolderType, kUser, kNoTest}, list(kUserFolderSummary)},
};

Statistic::CollectionPtr makeCollection(const Rule& rule) {
  Statistic::CollectionPtr collection(new Collection);
  collection->name = rule.name;
  collection->folderType = rule.folderType;
  collection->publicType = rule.publicType;
  collection->comparison = rule.comparison;
  return collection;
}

void addCounters(Collection& collection, const CounterList& counters) {
  for (size_t i = 0; i < counters.size; ++i) {
    const CounterDef& counter = counters.defs[i];
    if (counter.limits != nullptr)
      collection.addHistogram(counter.type, counterName(counter.type), counter.limits, counter.limitCount);
    else
      collection.addCounter(counter.type, counterName(counter.type), counter.valueOnly);
  }
}

}  // namespace

void defineCounters(Statistic& statistic) {
  statistic.purge();
  for (const FolderClassDef& def : kFolderClasses) {
    const Statistic::CollectionPtr collection = makeCollection(def.rule);
    for (const char* folderName : def.names)
      if (folderName != nullptr) collection->folderNames.push_back(folderName);
    addCounters(*collection, list(kFolderCounters));
    addCounters(*collection, list(kFolderHistograms));
    if (def.rule.folderType == Collection::MailFolder) addCounters(*collection, list(kMailHistograms));
    statistic.addMessageCollection(collection);
  }
  for (const SummaryDef& def : kSummaries) {
    const Statistic::CollectionPtr collection = makeCollection(def.rule);
    addCounters(*collection, def.counters);
    statistic.addMessageCollection(collection);
  }
}
