#include "mkstore/store_generator.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>

#include "mkstore/message_builder.h"
#include "mkstore/output_files.h"
#include "mkstore/store_layout.h"
#include "mkstore/text_blocks.h"
#include "stat/job_facts.h"

namespace vorlane {
namespace mkstore {

namespace {

struct ItemKind {
  const char* messageClass;
  SizeBucket sizes[2];
};

// Items of the non-mail folder types, by folder type 1 to 5: what the index calls them and how big they are.
const ItemKind kItemKinds[] = {
    {"IPM.Contact", {{600, 3000, 80}, {3000, 40000, 20}}},
    {"IPM.Appointment", {{900, 4000, 70}, {4000, 60000, 30}}},
    {"IPM.Task", {{500, 2000, 80}, {2000, 20000, 20}}},
    {"IPM.Activity", {{400, 2000, 70}, {2000, 15000, 30}}},
    {"IPM.StickyNote", {{300, 800, 80}, {800, 4000, 20}}},
};

// Item streams are numbered apart from the mail messages, so that adding items never shifts mail content.
const uint64_t kItemStream = 1ULL << 62;
const uint64_t kJunkStream = 1ULL << 61;

__attribute__((format(printf, 2, 3))) void appendf(std::string& out, const char* fmt, ...) {
  char buf[256];
  va_list ap;
  va_start(ap, fmt);
  const int n = vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  if (n > 0) out.append(buf, std::min<size_t>(static_cast<size_t>(n), sizeof buf - 1));
}

class StoreWriter {
 public:
  StoreWriter(const StoreOptions& options, Manifest& manifest, std::string& error)
      : options_(options), manifest_(manifest), error_(error), blocks_(options.seed), builder_(blocks_) {
    buffer_.reserve(1 << 20);
  }

  bool write(const std::string& root, const StorePlan& plan) {
    manifest_.domains = plan.domains;
    manifest_.mailboxes = plan.mailboxes;
    for (const PlannedEntry& e : plan.entries) {
      const std::string path = root + "/" + e.path;
      bool ok = true;
      switch (e.kind) {
        case EntryKind::Container:
          ok = makeDirectory(path, error_);
          break;
        case EntryKind::Folder:
          ok = e.type == 0 ? mailFolder(path, e, plan.owners[e.owner]) : itemFolder(path, e);
          break;
        case EntryKind::SystemFolder:
          ok = systemFolder(path, plan.owners.empty() ? Party() : plan.owners[0]);
          break;
        case EntryKind::Symlink:
          ok = makeSymlink(e.target, path, error_);
          ++manifest_.strayEntries;
          break;
        case EntryKind::StrayFile:
          ok = file(path, "# written by the server's configuration tool\nversion=3\n");
          ++manifest_.strayEntries;
          break;
      }
      if (!ok) return false;
    }
    return true;
  }

 private:
  bool file(const std::string& path, const std::string& data) {
    if (!writeFile(path, data.data(), data.size(), error_)) return false;
    ++manifest_.diskFiles;
    manifest_.diskBytes += data.size();
    return true;
  }

  // status.fld: type, message count, size sum, and the unread count that the walk ignores.
  bool status(const std::string& dir, int type, uint64_t count, uint64_t bytes) {
    std::string text;
    appendf(text, "T%d\nM%" PRIu64 "\nS%" PRIu64 "\nU%" PRIu64 "\n", type, count, bytes, count / 5);
    return file(dir + "/status.fld", text);
  }

  bool mailFolder(const std::string& dir, const PlannedEntry& e, const Party& owner) {
    if (!makeDirectory(dir, error_) || !makeDirectory(dir + "/#msgs", error_)) return false;
    std::string index;
    uint64_t bytes = 0;
    std::string name;
    for (uint32_t i = 1; i <= e.messages; ++i) {
      Prng rng = derivedPrng(options_.seed, nextMessage_++);
      const MessageShape shape = builder_.drawShape(rng);
      const bool crlf = rng.chance(300);  // messages stored as received from CRLF sources
      buffer_.clear();
      builder_.build(shape, crlf, owner, e.outgoing, rng, buffer_);
      name = dir + "/#msgs/" + std::to_string(i) + ".eml";
      if (!file(name, buffer_)) return false;
      bytes += buffer_.size();
      ++manifest_.shapes[static_cast<size_t>(shape)];
      // The mail folder's own index; the walk must take these messages from the files, not from here.
      appendf(index, "I%u CIPM.Note S%zu F%u\n", i, buffer_.size(), static_cast<unsigned>(rng.below(4)));
    }
    if (e.junkTemp) {
      // A delivery interrupted by a crash: half a message under a name without the "eml" suffix.
      ++manifest_.strayEntries;
      if (!file(dir + "/#msgs/" + std::to_string(e.messages + 1) + ".eml.part", buffer_.substr(0, buffer_.size() / 2)))
        return false;
    }
    manifest_.messageFiles += e.messages;
    manifest_.messageBytes += bytes;
    if (!file(dir + "/index.fld", index)) return false;
    if (!e.hasStatus) return true;
    ++manifest_.folders;
    return status(dir, 0, e.messages, bytes);
  }

  // Writes one non-mail item into the buffer: a small text message carrying its class.
  void item(const char* messageClass, uint64_t target, Prng& rng) {
    buffer_.clear();
    appendf(buffer_, "X-Item-Class: %s\nContent-Type: text/plain; charset=\"utf-8\"\nSubject: ", messageClass);
    blocks_.appendSentence(rng, buffer_);
    buffer_ += "\n\n";
    const size_t head = buffer_.size();
    blocks_.prose().appendAbout(target > head ? target - head : 1, false, rng, buffer_);
  }

  bool itemFolder(const std::string& dir, const PlannedEntry& e) {
    if (!makeDirectory(dir, error_) || !makeDirectory(dir + "/#msgs", error_)) return false;
    const ItemKind& kind = kItemKinds[e.type - 1];
    std::string index;
    uint64_t bytes = 0;
    for (uint32_t i = 1; i <= e.entries; ++i) {
      Prng rng = derivedPrng(options_.seed, kItemStream + nextItem_++);
      // About one contact entry in twelve is a distribution list; the first one of the store always is.
      const bool distList = e.type == 1 && (rng.chance(80) || manifest_.distributionLists == 0);
      const char* messageClass = distList ? "IPM.DistList" : kind.messageClass;
      item(messageClass, distList ? rng.between(300, 4000) : drawSize(kind.sizes, rng), rng);
      // Items are files too, but the walk takes their figures from the index without opening them.
      if (!file(dir + "/#msgs/" + std::to_string(i) + ".eml", buffer_)) return false;
      appendf(index, "I%u C%s S%zu F0\n", i, messageClass, buffer_.size());
      bytes += buffer_.size();
      manifest_.distributionLists += distList;
    }
    manifest_.indexEntries += e.entries;
    manifest_.indexBytes += bytes;
    ++manifest_.folders;
    return file(dir + "/index.fld", index) && status(dir, e.type, e.entries, bytes);
  }

  // A folder the walk must skip, filled so that entering it would change every total: mail messages, an
  // index, and a contacts subfolder with a distribution list.
  bool systemFolder(const std::string& dir, const Party& owner) {
    ++manifest_.systemFolders;
    if (!makeDirectory(dir, error_) || !makeDirectory(dir + "/#msgs", error_)) return false;
    std::string index;
    uint64_t bytes = 0;
    for (unsigned i = 1; i <= 2; ++i) {
      Prng rng = derivedPrng(options_.seed, kJunkStream + nextJunk_++);
      buffer_.clear();
      builder_.build(MessageShape::Plain, false, owner, false, rng, buffer_);
      if (!file(dir + "/#msgs/" + std::to_string(i) + ".eml", buffer_)) return false;
      appendf(index, "I%u CIPM.Note S%zu F0\n", i, buffer_.size());
      bytes += buffer_.size();
    }
    const std::string sub = dir + "/Data";
    return file(dir + "/index.fld", index) && status(dir, 0, 2, bytes) && makeDirectory(sub, error_) &&
           file(sub + "/index.fld", "I1 CIPM.DistList S512 F0\n") && status(sub, 1, 1, 512);
  }

  const StoreOptions& options_;
  Manifest& manifest_;
  std::string& error_;
  TextBlocks blocks_;
  MessageBuilder builder_;
  std::string buffer_;
  uint64_t nextMessage_ = 0;
  uint64_t nextItem_ = 0;
  uint64_t nextJunk_ = 0;
};

}  // namespace

bool generateStore(const StoreOptions& options, Manifest& manifest, std::string& error) {
  if (options.messages > kMaxMessages) {
    error = "Message count " + std::to_string(options.messages) + " exceeds the limit of " +
            std::to_string(kMaxMessages);
    return false;
  }
  switch (inspectDirectory(options.outDir, error)) {
    case DirectoryState::Unreadable:
      return false;
    case DirectoryState::NotADirectory:
      error = "Output path " + options.outDir + " exists and is not a directory";
      return false;
    case DirectoryState::Missing:
      if (!makeDirectory(options.outDir, error)) return false;
      break;
    case DirectoryState::NotEmpty:
      if (!options.force) {
        error = "Output directory " + options.outDir + " is not empty (use --force to replace its store)";
        return false;
      }
      // Only the store itself is replaced; other files in the directory are left alone.
      if (!removeTree(options.outDir + vstat::kMailRoot, error)) return false;
      break;
    case DirectoryState::Empty:
      break;
  }
  const std::string root = options.outDir + vstat::kMailRoot;
  if (!makeDirectory(root, error)) return false;

  manifest = Manifest();
  manifest.seed = options.seed;
  manifest.requestedMessages = options.messages;
  const StorePlan plan = planStore(options.messages, options.seed);
  return StoreWriter(options, manifest, error).write(root, plan);
}

}  // namespace mkstore
}  // namespace vorlane
