#include "stat/statistic.h"

#include <cstdint>
#include <cstring>

namespace {

const char* const kDistributionListClass = "IPM.DistList";
const double kReportVersion = 0.3;
// An attachment is counted only beyond this slack between the message and its header and bodies:
// encoding overhead and MIME boundaries alone stay below it.
const int32_t kAttachmentThreshold = 1024;

// Picks the one body-combination counter a message feeds; false when its combination has none
// (HTML with RTF but no plain text, RTF alone, no body at all).
bool bodyCombination(bool plain, bool html, bool rtf, Counter::Type& type) {
  if (plain && html && rtf) {
    type = Counter::PlainTextHtmlAndRtfCount;
  } else if (plain) {
    type = html ? Counter::PlainTextAndHtmlCount : rtf ? Counter::PlainTextAndRtfCount : Counter::OnlyPlainTextCount;
  } else if (html && !rtf) {
    type = Counter::OnlyHtmlCount;
  } else {
    return false;
  }
  return true;
}

// The difference is taken on the low 32 bits in signed 32-bit arithmetic, as the report has always
// counted it: for messages of 2 GiB and more it wraps modulo 2^32, and a negative or small result
// adds no sample. Computed unsigned and converted, so the wrap is defined behaviour.
int32_t attachmentSize(unsigned long long size, unsigned long long headerSize, unsigned long long plainTextSize,
                       unsigned long long htmlSize, unsigned long long rtfSize) {
  const uint32_t parts = static_cast<uint32_t>(headerSize) + static_cast<uint32_t>(plainTextSize) +
                         static_cast<uint32_t>(htmlSize) + static_cast<uint32_t>(rtfSize);
  return static_cast<int32_t>(static_cast<uint32_t>(size) - parts);
}

// The request's texts are fixed arrays; an unterminated one is cut at the array's end.
template <size_t N>
void writeField(std::ostream& out, const char (&text)[N]) {
  out.write(text, static_cast<std::streamsize>(strnlen(text, N)));
}

}  // namespace

void Statistic::addMessageCollection(const CollectionPtr& collection) {
  messageCollections.push_back(collection);
  forgetMatches();
}

void Statistic::purge() {
  messageCollections.clear();
  forgetMatches();
}

const std::vector<Collection*>& Statistic::matchingCollections(const MessageFolder& folder) {
  if (matchedValid_ && folder.type == matchedType_ && folder.folder == matchedFolder_ &&
      folder.user == matchedUser_ && folder.domain == matchedDomain_) {
    return matched_;
  }
  matched_.clear();
  for (const CollectionPtr& collection : messageCollections) {
    if (collection->matchFolder(folder.domain, folder.user, folder.folder, folder.type)) {
      matched_.push_back(collection.get());
    }
  }
  matchedDomain_ = folder.domain;
  matchedUser_ = folder.user;
  matchedFolder_ = folder.folder;
  matchedType_ = folder.type;
  matchedValid_ = true;
  return matched_;
}

void Statistic::addDomainInfo() {
  for (const CollectionPtr& collection : messageCollections) collection->addValue(Counter::DomainCount, 1);
}

void Statistic::addFolderInfo(const std::string& domain, const std::string& user, const std::string& folder,
                              Collection::FolderType type, unsigned long long folderSize,
                              unsigned long long messageCount) {
  if (user.empty()) return;
  if (folder.empty() && domain != Collection::publicMarker) return;
  for (const CollectionPtr& collection : messageCollections) {
    if (!collection->matchFolder(domain, user, folder, type)) continue;
    collection->addValue(Counter::FolderCount, 1);
    collection->addValue(Counter::FolderCountPerUserTemporary, 1);
    collection->addValue(Counter::MessageCountPerFolder, messageCount);
    // Empty folders count as folders but would only crowd the smallest folder-size bucket.
    if (folderSize != 0) collection->addValue(Counter::FolderSize, folderSize);
  }
}

void Statistic::addMessageInfo(const MessageFolder& folder, const MessageFacts& message) {
  // Facts that do not depend on the collection are worked out once per message.
  Counter::Type combination = Counter::MessageCount;
  const bool hasCombination =
      bodyCombination(message.plainTextSize != 0, message.htmlSize != 0, message.rtfSize != 0, combination);
  const bool isDistributionList = message.messageClass == kDistributionListClass;
  const int32_t attachment =
      attachmentSize(message.size, message.headerSize, message.plainTextSize, message.htmlSize, message.rtfSize);

  for (Collection* collection : matchingCollections(folder)) {
    Collection& c = *collection;
    c.addValue(Counter::MessageCount, 1);
    c.addValue(Counter::MessageSize, message.size);
    c.addValue(Counter::MessageHeaderSize, message.headerSize);
    if (message.plainTextSize != 0) c.addValue(Counter::PlainTextBodySize, message.plainTextSize);
    if (message.htmlSize != 0) c.addValue(Counter::HtmlBodySize, message.htmlSize);
    if (message.rtfSize != 0) c.addValue(Counter::RtfBodySize, message.rtfSize);
    if (hasCombination) c.addValue(combination, 1);
    if (isDistributionList) c.addValue(Counter::DistributionListCount, 1);
    if (attachment > kAttachmentThreshold)
      c.addValue(Counter::AttachmentSize, static_cast<unsigned long long>(attachment));
    if (message.isSigned) {
      c.addValue(Counter::SignedMessageCount, 1);
      c.addValue(Counter::SignedMessageSize, message.size);
    }
    if (message.isEncrypted) {
      c.addValue(Counter::EncryptedMessageCount, 1);
      c.addValue(Counter::EncryptedMessageSize, message.size);
    }
  }
}

void Statistic::resetUserCounters(const std::string& domain, const std::string& user) {
  for (const CollectionPtr& collection : messageCollections)
    if (collection->matchPublicType(domain, user)) collection->resetUserCounters();
}

void Statistic::mergeUserCounters(const std::string& domain, const std::string& user) {
  for (const CollectionPtr& collection : messageCollections)
    if (collection->matchPublicType(domain, user)) collection->mergeUserCounters();
}

void Statistic::report(std::ostream& out, vorlane::vstat::ProcessStoreReqBuffT request) const {
  out << "<!-- Vorlane MailHub message store statistical data -->" << std::endl;
  out << "<!-- this report includes only statistical data that will be used only for internal purposes of "
         "Vorlane Works -->"
      << std::endl
      << std::endl;
  // Counters leave fixed two-decimal notation on the stream; the version is always written in the
  // default notation ("0.3"), also when a report follows another one on the same stream.
  const std::ios_base::fmtflags flags = out.flags();
  const std::streamsize precision = out.precision();
  out.unsetf(std::ios_base::floatfield);
  out.precision(6);
  out << "<vlsStoreStatistic version='" << kReportVersion << "'>" << std::endl;
  out.flags(flags);
  out.precision(precision);
  out << "\t<productVersion>";
  writeField(out, request.productVersion);
  out << "</productVersion>" << std::endl;
  out << "\t<build>" << request.build << "</build>" << std::endl;
  out << "\t<osName>";
  writeField(out, request.osName);
  out << "</osName>" << std::endl;
  out << "\t<osCode>" << request.osCode << "</osCode>" << std::endl;
  for (const CollectionPtr& collection : messageCollections) collection->report(out);
  out << "</vlsStoreStatistic>" << std::endl;
}
