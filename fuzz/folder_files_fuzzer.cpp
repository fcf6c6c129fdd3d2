// The status.fld and index.fld readers on arbitrary file contents, through the store walk's own file
// code: the input is written as both files of a scratch folder, read with getFolderProperties, and
// counted with parseIndexFld into a statistic with the full catalogue, so the per-line parsers, the
// 512-byte line buffer and the routing of every counted message all see the same bytes.
#include <cstdint>

#include "fuzz_scratch.h"
#include "stat/store_target.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static fuzzscratch::ScratchDir dir("folder", {"status.fld", "index.fld"});
  static const std::string indexPath = dir.file("index.fld");
  dir.rewrite(0, data, size);
  dir.rewrite(1, data, size);

  // A fresh job per input, so no count carries over from one input to the next.
  StoreTarget target(nullptr);
  target.defineCounters();
  Collection::FolderType type = Collection::MailFolder;
  unsigned long long firstTotal = 0, secondTotal = 0;
  if (target.getFolderProperties(dir.path(), type, firstTotal, secondTotal) != StoreTarget::FileOpen::Opened) {
    fuzzscratch::die("cannot read", dir.file("status.fld"));
  }
  if (!target.parseIndexFld("example.com", "john", "Inbox", indexPath, type)) {
    fuzzscratch::die("cannot read", indexPath);
  }
  return 0;
}
