// A buffered stream over a POSIX file descriptor, with an advisory whole-file lock bound to it.
// Opens by fopen-like mode string or by access and creation flags; every open uses mode 0600 for
// new files. close() (and the destructor) flushes, releases the lock and closes the descriptor.
// The descriptor offset is remembered across reads and seeks, so that asking for the position costs no
// system call; moving the offset through fd() behind the VFile's back is therefore not supported.
// Threading: one thread at a time; the lock member only accepts requests from the thread that
// constructed the VFile.
#pragma once

#include "utils/vflock.h"
#include "utils/vstream.h"

namespace vorlane {
namespace utils {

class VFile : public VFileStream {
 public:
  // Fixed underlying types: numbers from callers outside the listed values are valid and get the
  // documented defaults (read-only access, no creation flags).
  enum AccessFlags : int { AccessRead = 0, AccessWrite = 1, AccessReadWrite = 2 };
  enum CreationFlags : int {
    CreateNew = 0,         // O_CREAT | O_EXCL
    CreateAlways = 1,      // O_CREAT | O_TRUNC
    OpenExisting = 2,      // none
    OpenAlways = 3,        // O_CREAT
    TruncateExisting = 4,  // O_TRUNC; refused with AccessRead
    OpenAppend = 5         // O_CREAT | O_APPEND
  };

  VFile();
  ~VFile() override;

  // mode: 'r' read, 'w' write/create/truncate, 'a' write/create/append, anything else read; a '+'
  // among the next four characters makes it read-write. Other characters ("b") are ignored.
  // mode must not be null.
  bool open(const char* name, const char* mode);
  bool open(const char* name, AccessFlags access, CreationFlags creation);
  bool wOpen(const char* name, const char* mode);
  bool wOpen(const char* name, AccessFlags access, CreationFlags creation);
  // Raw open64(name, flags, 0600). Refused (false, errno EBUSY) while a descriptor is open, so a
  // second open never leaks the first descriptor. On success binds the lock and returns postOpenOp.
  bool doOpen(const char* name, int flags);
  // As doOpen, with a relative name looked up from the directory open as dirFd (AT_FDCWD: the working
  // directory), which spares a walk that opens many files of one directory the lookup of the whole path.
  bool doOpenAt(int dirFd, const char* name, int flags);
  // Flushes (result ignored), releases the lock, closes. Does nothing when already closed.
  void close();
  // Cuts the file at the descriptor's current position; buffered output is not flushed first.
  bool truncate();

  bool lock();
  bool writeLock();
  bool tryLock();
  bool tryWriteLock();
  bool readLock();
  bool tryReadLock();
  void unlock();

  int fd() const { return fd_; }
  const VFLock& fileLock() const { return lock_; }

  bool isClosed() const override;
  int i_read(char* buf, unsigned len) override;
  int i_write(const char* buf, unsigned len) override;
  int i_seek(long offset, int whence) override;
  long i_tell() override;
  int i_seek64(long long offset, int whence) override;
  // The descriptor position, which runs ahead of the logical one by the unread buffered bytes;
  // use tell64() for the position of the next byte a read delivers.
  long long i_tell64() override;

 protected:
  // Hook run after every successful open with mode "r" (read-only) or "w" (write access).
  virtual bool postOpenOp(int fd, const char* mode);

 private:
  int fd_;
  long long offset_;  // the descriptor offset, or -1 when unknown (after a write, which O_APPEND may move)
  VFLock lock_;
};

}  // namespace utils
}  // namespace vorlane
