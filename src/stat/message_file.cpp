#include "stat/message_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "stat/message_classification.h"
#include "utils/bulk_read_file.h"

using vorlane::mime::mail_struct;
using vorlane::mime::mail_struct_pool;
using vorlane::mime::parse_outcome;
using vorlane::utils::BulkReadFile;

namespace {

bool canBlock(mode_t mode) { return !S_ISREG(mode) && !S_ISDIR(mode); }

}  // namespace

MessageRead readMessage(const MessageEntry& entry, MessageFacts& facts, std::string& error,
                        const std::atomic<bool>* stop, std::unique_ptr<mail_struct>* tree) {
  const std::string& path = entry.path;
  error.clear();
  if (entry.listedType != DT_REG) {
    struct stat info;
    if (::fstatat(entry.dirFd, entry.name, &info, 0) != 0) {
      error = "Error obtaining file info " + path + "\n";
      return MessageRead::Failed;
    }
    if (canBlock(info.st_mode)) {
      error = "Skipping " + path + ": not a regular file\n";
      return MessageRead::Failed;
    }
  }
  BulkReadFile file;
  if (!file.doOpenAt(entry.dirFd, entry.name, O_RDONLY | O_NONBLOCK | O_NOCTTY)) {
    // A file that is gone by now is reported as one whose status cannot be had, as if it had been
    // looked up before opening.
    struct stat info;
    if (entry.listedType == DT_REG && ::fstatat(entry.dirFd, entry.name, &info, 0) != 0) {
      error = "Error obtaining file info " + path + "\n";
    } else {
      error = "Unable to open file" + path + " for reading.\n";
    }
    return MessageRead::Failed;
  }
  struct stat opened;
  if (::fstat(file.fd(), &opened) != 0 || canBlock(opened.st_mode)) {
    error = "Skipping " + path + ": not a regular file\n";
    return MessageRead::Failed;
  }
  parse_outcome outcome = parse_outcome::parsed;
  // Each thread builds its trees from the nodes of the trees it has classified before.
  thread_local mail_struct_pool pool;
  std::unique_ptr<mail_struct> parsed(mail_struct::parse(&file, stop, &outcome, &pool));
  if (outcome == parse_outcome::stopped) return MessageRead::Stopped;
  if (outcome == parse_outcome::too_many_parts) {
    error = "More than " + std::to_string(vorlane::mime::MIME_MAX_PARTS) + " parts in " + path +
            ": counted without header and body sizes\n";
  }
  facts = classifyMessage(parsed.get());
  facts.size = static_cast<unsigned long long>(opened.st_size);
  if (tree) {
    *tree = std::move(parsed);
  } else {
    pool.give_back(parsed.release());
  }
  return MessageRead::Counted;
}
