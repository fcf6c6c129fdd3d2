// Thin thread functions over POSIX threads: creation with an optional stack size and name, joining,
// detaching, identity and priority, process-wide start/end callbacks, and a last-resort way to end
// threads by SIGUSR2. A thread handle is an unsigned long holding the pthread_t; 0 means no thread.
// All functions are thread-safe; the callbacks singleton and the SIGUSR2 installation are guarded by
// global mutexes.
#pragma once

#include <pthread.h>

#include <string>
#include <vector>

namespace vorlane {
namespace tiny {

struct ThreadAttributes {
  unsigned stackSize;  // bytes; 0 = the system's default, smaller values are raised to 16384
  std::string name;    // also given to the kernel (first 15 characters) to ease debugging
  ThreadAttributes() : stackSize(0) {}
  ThreadAttributes(unsigned stack, const std::string& threadName) : stackSize(stack), name(threadName) {}
};

// Stack size 0 and no name; every thread of this system is started with it.
extern const ThreadAttributes defaultThreadAttributes;

// The smallest stack a thread is given when a size is requested at all.
const unsigned kMinThreadStackSize = 16384;

typedef int ThreadPriority;

// Starts fn(arg) on a new thread. With a null handle the thread is detached at once (nobody can
// join it); otherwise *handle receives its handle (0 on failure). Returns false when the attributes
// cannot be prepared or the thread cannot be created.
bool createThread(void (*fn)(void*), void* arg, unsigned long* handle,
                  const ThreadAttributes& attrs = defaultThreadAttributes);

// Builds the attribute object for attrs: *out is null when the stack size is 0 (system defaults),
// otherwise a new object the caller releases with releaseThreadAttrs. False when a step fails.
bool prepareThreadAttrs(const ThreadAttributes& attrs, pthread_attr_t** out);
void releaseThreadAttrs(pthread_attr_t* attrs);

// Joins the thread; 0 does nothing.
void waitForThread(unsigned long handle);
// Joins the thread; true when the join succeeded or the handle is 0.
bool waitForThreadClose(unsigned long handle);

// The kernel thread id of the calling thread (gettid).
unsigned threadID();
unsigned processID();
void getThreadHandle(unsigned long& handle);
// Detaches the thread; on success the handle is set to 0, since a detached thread cannot be joined.
bool threadDetach(unsigned long& handle);
// Nothing to release for POSIX threads; kept so callers can pair it with creation.
void closeThreadHandle(unsigned long& handle);

// Sets the calling thread to the normal scheduling policy with priority p, passed unchanged.
void setThreadPriority(ThreadPriority p);

typedef void (*ThreadStartCallback)(unsigned threadId, const std::string& name);
typedef void (*ThreadEndCallback)(unsigned threadId);

// Process-wide callbacks run by every thread made with createThread: the start callback before the
// thread's function, the end callback after it.
class ThreadCallbacks {
 public:
  static ThreadCallbacks* getInstance();
  static void releaseInstance();

  void registerThreadCallbacks(ThreadStartCallback onStart, ThreadEndCallback onEnd);
  void getThreadCallbacks(ThreadStartCallback& onStart, ThreadEndCallback& onEnd) const;

 private:
  ThreadCallbacks() : onStart_(nullptr), onEnd_(nullptr) {}
  ThreadCallbacks(const ThreadCallbacks&) = delete;
  ThreadCallbacks& operator=(const ThreadCallbacks&) = delete;

  ThreadStartCallback onStart_;
  ThreadEndCallback onEnd_;
};

namespace dangerous {

// Installs a SIGUSR2 handler that ends the receiving thread with pthread_exit. Installations nest:
// the first one keeps the previous disposition and the matching last restore puts it back. The
// guard object does the same for its scope. Ending a thread this way skips its cleanup; use only
// for threads that do not end by themselves.
class SigUsr2Guard {
 public:
  SigUsr2Guard() { setSIGUSR2Handler(); }
  ~SigUsr2Guard() { restoreSIGUSR2Handler(); }
  SigUsr2Guard(const SigUsr2Guard&) = delete;
  SigUsr2Guard& operator=(const SigUsr2Guard&) = delete;

  static void setSIGUSR2Handler();
  static void restoreSIGUSR2Handler();
};

// Sends SIGUSR2 to every thread in the list and joins each of them, waiting at most timeout
// milliseconds per thread (0 waits without limit; a thread that outlives its time-out is left
// running, unjoined). The previous SIGUSR2 disposition is restored afterwards.
void terminateThreads(const std::vector<unsigned long>& threads, unsigned timeout);

}  // namespace dangerous

}  // namespace tiny
}  // namespace vorlane
