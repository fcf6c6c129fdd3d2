// Advisory whole-file lock between processes over flock(2), with nesting inside one object.
// A signed counter tracks the nesting (n > 0: shared taken n times, n < 0: exclusive taken -n times),
// so the system call is made only on the first lock and the last unlock. There is no upgrade from
// shared to exclusive. The lock either opens its own lock file (init by name, closed on destruction)
// or binds to a descriptor owned elsewhere (init by descriptor; every VFile binds its member lock).
// Threading: bound to the thread that constructed it; lock requests from any other thread fail
// without a system call. The counter is not atomic.
#pragma once

#include <cstdint>

#include <boost/noncopyable.hpp>

namespace vorlane {
namespace utils {

class VFLock : private boost::noncopyable {
 public:
  VFLock();
  // If locked, releases the whole flock whatever the nesting; closes an owned descriptor.
  ~VFLock();

  // Opens (create: also creates, mode 0600) the lock file and owns it. False for a null name or an
  // object that is already bound (it keeps its binding; only the stored path shows the new name).
  bool init(const char* name, bool create);
  // Binds to a descriptor owned elsewhere; the counter restarts at 0. Always true.
  bool init(int fd);

  bool lock();          // exclusive, waiting
  bool writeLock();     // exclusive, waiting
  bool tryLock();       // exclusive, not waiting
  bool tryWriteLock();  // exclusive, not waiting
  bool readLock();      // shared, waiting
  bool tryReadLock();   // shared, not waiting
  // One step towards unlocked; the flock is released when the counter reaches 0 (also when it was
  // already 0). Does nothing on an unbound object; does not check the thread.
  void unlock();
  // One step towards 0 without a system call.
  void decrementLockCounter();

  bool testThreadID() const;
  // Releases the whole flock if locked, then forgets the descriptor without closing it.
  void detach();

  bool isValid() const { return valid_; }
  int32_t lockCounter() const { return counter_; }
  const char* path() const { return path_; }

 private:
  bool writeLockInternal(bool tryOnly);
  bool readLockInternal(bool tryOnly);
  bool lockInternal(bool exclusive, bool tryOnly);
  void releaseAll();

  static const unsigned kPathSize = 512;

  char path_[kPathSize];
  bool valid_;
  int32_t counter_;
  bool ownsFd_;
  int fd_;
  unsigned ownerThread_;
};

}  // namespace utils
}  // namespace vorlane
