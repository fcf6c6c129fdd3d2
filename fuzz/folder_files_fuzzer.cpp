// The status.fld and index.fld readers on arbitrary file contents: the input is written as both files of
// a scratch folder, read with readFolderStatus and readFolderIndex, and every index entry is counted into
// a statistic with the full catalogue, so the per-line parsers, the 512-byte line buffer and the routing
// of every counted message all see the same bytes.
#include <cstdint>

#include "fuzz_scratch.h"
#include "stat/counter_catalogue.h"
#include "stat/folder_files.h"
#include "stat/statistic.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static fuzzscratch::ScratchDir dir("folder", {"status.fld", "index.fld"});
  static const std::string indexPath = dir.file("index.fld");
  static const std::string domain = "example.com", user = "john", folder = "Inbox";
  dir.rewrite(0, data, size);
  dir.rewrite(1, data, size);

  // A fresh statistic per input, so no count carries over from one input to the next.
  Statistic statistic;
  defineCounters(statistic);
  FolderStatus status;
  if (readFolderStatus(dir.path(), status) != FolderFileRead::Read)
    fuzzscratch::die("cannot read", dir.file("status.fld"));
  const FolderFileRead read = readFolderIndex(indexPath, [&](const IndexEntry& entry) {
    statistic.addMessageInfo({domain, user, folder, status.type}, MessageFacts{entry.messageClass, entry.size});
  });
  if (read != FolderFileRead::Read) fuzzscratch::die("cannot read", indexPath);
  return 0;
}
