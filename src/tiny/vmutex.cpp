#include "tiny/vmutex.h"

#include <cerrno>
#include <stdexcept>

namespace vorlane {
namespace tiny {

namespace {

struct RecursiveAttr {
  pthread_mutexattr_t attr;
  RecursiveAttr() {
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  }
  ~RecursiveAttr() { pthread_mutexattr_destroy(&attr); }
};

}  // namespace

const pthread_mutexattr_t* defaultMutexAttr() {
  // A function-local static is initialised exactly once even when threads race for it.
  static RecursiveAttr recursive;
  return &recursive.attr;
}

VMutex::VMutex() {
  int rc = pthread_mutex_init(&mutex_, defaultMutexAttr());
  switch (rc) {
    case 0:
      break;
    case EAGAIN:
      throw std::runtime_error("System resources (other than memory) are unavailable.");
    case ENOMEM:
      throw std::runtime_error("Insufficient memory exists to initialize the mutex.");
    default:
      throw std::runtime_error("Wrong attributes for mutex.");
  }
}

VMutex::~VMutex() { pthread_mutex_destroy(&mutex_); }

void VMutex::lock() { pthread_mutex_lock(&mutex_); }
bool VMutex::tryLock() { return pthread_mutex_trylock(&mutex_) == 0; }
void VMutex::unlock() { pthread_mutex_unlock(&mutex_); }
void VMutex::readLock() { lock(); }
void VMutex::writeLock() { lock(); }
bool VMutex::tryReadLock() { return tryLock(); }
bool VMutex::tryWriteLock() { return tryLock(); }
void VMutex::uncountedLock() { lock(); }
void VMutex::uncountedUnlock() { unlock(); }

}  // namespace tiny
}  // namespace vorlane
