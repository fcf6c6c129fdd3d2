#include "tiny/dir.h"

#include <limits.h>
#include <strings.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace vorlane {
namespace tiny {

static_assert(sizeof(dirent) == sizeof(dirent64), "dirent must be the 64-bit record");

DIR* opendir(const char* path) {
  if (!path) return nullptr;
  ::DIR* stream = ::opendir(path);
  if (!stream) return nullptr;
  DIR* dir = static_cast<DIR*>(malloc(sizeof(DIR)));
  char* copy = strdup(path);
  if (!dir || !copy) {
    free(dir);
    free(copy);
    ::closedir(stream);
    return nullptr;
  }
  dir->stream = stream;
  dir->path = copy;
  return dir;
}

int closedir(DIR* dir) {
  if (!dir) return -1;
  int rc = ::closedir(dir->stream);
  if (rc == 0) {
    free(dir->path);
    free(dir);
  }
  return rc;
}

namespace {

// The type a directory entry reports is what lstat would say (links stay links); only entries of file
// systems that report none cost a stat, which matters when a walk lists hundreds of thousands of files.
void completeType(dirent* entry, const char* dirPath) {
  if (entry->d_type == DT_UNKNOWN) fillInType(entry, dirPath);
}

}  // namespace

dirent* readdirstat(DIR* dir) {
  if (!dir) return nullptr;
  dirent* entry = ::readdir(dir->stream);
  if (entry) completeType(entry, dir->path);
  return entry;
}

int readdirstat_r(DIR* dir, dirent* entry, dirent** result) {
  if (!dir || !entry || !result) return EINVAL;
  // readdir on one stream is safe from one thread at a time, which is all a handle allows; copying
  // the record out avoids the deprecated readdir_r and its fixed-size name buffer problems.
  errno = 0;
  dirent* next = ::readdir(dir->stream);
  if (!next) {
    *result = nullptr;
    return errno;
  }
  memcpy(entry, next, offsetof(dirent, d_name) + strlen(next->d_name) + 1);
  completeType(entry, dir->path);
  *result = entry;
  return 0;
}

void fillInType(dirent* entry, const char* dirPath) {
  char full[PATH_MAX];
  size_t dirLen = strlen(dirPath);
  bool slash = dirLen > 0 && dirPath[dirLen - 1] == '/';
  size_t nameLen = strlen(entry->d_name);
  if (dirLen + (slash ? 0 : 1) + nameLen + 1 > sizeof(full)) return;
  memcpy(full, dirPath, dirLen);
  size_t pos = dirLen;
  if (!slash) full[pos++] = '/';
  memcpy(full + pos, entry->d_name, nameLen + 1);

  struct stat64 st;
  if (lstat64(full, &st) != 0) return;
  switch (st.st_mode & S_IFMT) {
    case S_IFREG:
      entry->d_type = DT_REG;
      break;
    case S_IFDIR:
      entry->d_type = DT_DIR;
      break;
    case S_IFCHR:
      entry->d_type = DT_CHR;
      break;
    case S_IFBLK:
      entry->d_type = DT_BLK;
      break;
    case S_IFIFO:
      entry->d_type = DT_FIFO;
      break;
    case S_IFLNK:
      entry->d_type = DT_LNK;
      break;
    case S_IFSOCK:
      entry->d_type = DT_SOCK;
      break;
    default:
      break;
  }
}

bool fext(const char* name, const char* ext) {
  if (!name || !ext) return false;
  size_t nameLen = strlen(name);
  size_t extLen = strlen(ext);
  if (nameLen < extLen) return false;
  return strcasecmp(name + nameLen - extLen, ext) == 0;
}

}  // namespace tiny
}  // namespace vorlane
