// Recursive mutex with the interface of a read-write lock, and the scoped guards over it.
// All lock flavours take the same exclusive recursive lock: readers exclude each other too, the
// names only mark the caller's intent. A thread may relock a VMutex it holds and must unlock it as
// often. Construction throws std::runtime_error when the system cannot create the mutex.
// Thread-safe; a VMutex is not copyable.
#pragma once

#include <pthread.h>

#include <boost/noncopyable.hpp>

namespace vorlane {
namespace tiny {

// Process-wide attribute object of type recursive, initialised once on first use.
const pthread_mutexattr_t* defaultMutexAttr();

class VMutex : private boost::noncopyable {
 public:
  VMutex();
  virtual ~VMutex();

  virtual void lock();
  // True when the mutex was acquired without waiting.
  virtual bool tryLock();
  virtual void unlock();
  virtual void readLock();
  virtual void writeLock();
  virtual bool tryReadLock();
  virtual bool tryWriteLock();
  virtual void uncountedLock();
  virtual void uncountedUnlock();

 private:
  pthread_mutex_t mutex_;
};

// Holds the mutex exclusively for the guard's scope.
class VMutexGuard : private boost::noncopyable {
 public:
  explicit VMutexGuard(VMutex* mutex) : mutex_(mutex) { mutex_->writeLock(); }
  explicit VMutexGuard(VMutex& mutex) : VMutexGuard(&mutex) {}
  ~VMutexGuard() { mutex_->unlock(); }

 private:
  VMutex* mutex_;
};

// Marks a reading section; takes the same exclusive lock.
class VMutexReadGuard : private boost::noncopyable {
 public:
  explicit VMutexReadGuard(VMutex* mutex) : mutex_(mutex) { mutex_->readLock(); }
  explicit VMutexReadGuard(VMutex& mutex) : VMutexReadGuard(&mutex) {}
  ~VMutexReadGuard() { mutex_->unlock(); }

 private:
  VMutex* mutex_;
};

// Marks a writing section.
class VMutexWriteGuard : private boost::noncopyable {
 public:
  explicit VMutexWriteGuard(VMutex* mutex) : mutex_(mutex) { mutex_->writeLock(); }
  explicit VMutexWriteGuard(VMutex& mutex) : VMutexWriteGuard(&mutex) {}
  ~VMutexWriteGuard() { mutex_->unlock(); }

 private:
  VMutex* mutex_;
};

}  // namespace tiny
}  // namespace vorlane
