// Directory listing whose entries always carry their file type as lstat sees it: the type the file
// system reports in the entry, or, on file systems that report none, the type taken from lstat.
// Symbolic links are reported as links (never as their targets). Also the case-insensitive suffix test fext. Entries are the platform's 64-bit
// dirent records (struct dirent is the 64-bit record on the LP64 platforms we build for).
// Threading: a handle is used by one thread at a time; different handles are independent.
#pragma once

#include <dirent.h>

#include <boost/noncopyable.hpp>

namespace vorlane {
namespace tiny {

// A directory stream that remembers the path it was opened with. Owned by whoever opened it.
struct DIR {
  ::DIR* stream;
  char* path;  // owned copy of the path given to opendir
};

// Null for a null path, a path that cannot be opened as a directory, or an allocation failure.
DIR* opendir(const char* path);
// Closes the stream; the record is freed only when the close succeeds, so a record whose close
// failed is never freed twice. Returns the platform closedir's result (-1 for a null handle).
int closedir(DIR* dir);
// The next entry with its type known (filled in by fillInType when the entry has none); null at the
// end or on error.
dirent* readdirstat(DIR* dir);
// Re-entrant form: copies the next entry into *entry and sets *result to entry, or *result to null
// at the end. Returns 0 or the error number.
int readdirstat_r(DIR* dir, dirent* entry, dirent** result);
// Overwrites entry->d_type from lstat of dirPath/name: DT_REG, DT_DIR, DT_CHR, DT_BLK, DT_FIFO,
// DT_LNK or DT_SOCK. When lstat fails (the entry vanished) or the path is too long, the type the
// platform gave stays.
void fillInType(dirent* entry, const char* dirPath);

// Opens a directory for its scope and closes it on destruction.
class DirStreamGuard : private boost::noncopyable {
 public:
  explicit DirStreamGuard(const char* path) : dir_(opendir(path)) {}
  ~DirStreamGuard() {
    if (dir_) closedir(dir_);
  }
  // Null when opening failed.
  DIR* getDir() const { return dir_; }

 private:
  DIR* dir_;
};

// True when name ends with ext, compared without regard to case. No dot is looked for: "eml"
// matches "a.eml", "A.EML" and also "xeml". Null arguments give false.
bool fext(const char* name, const char* ext);

}  // namespace tiny
}  // namespace vorlane
