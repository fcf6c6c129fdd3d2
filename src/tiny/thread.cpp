#include "tiny/thread.h"

#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <memory>

#include "tiny/vmutex.h"

namespace vorlane {
namespace tiny {

const ThreadAttributes defaultThreadAttributes;

namespace {

// One per created thread; the new thread owns it.
struct StartRecord {
  void (*fn)(void*);
  void* arg;
  std::string name;
};

// Guards the callbacks singleton. Function-local so it exists before any static initialiser uses it.
VMutex& callbacksMutex() {
  static VMutex mutex;
  return mutex;
}

ThreadCallbacks* callbacksInstance = nullptr;

struct AttrsDeleter {
  void operator()(pthread_attr_t* attrs) const { releaseThreadAttrs(attrs); }
};

void* threadEntry(void* p) {
  std::unique_ptr<StartRecord> record(static_cast<StartRecord*>(p));
  unsigned id = threadID();
  if (!record->name.empty()) {
    // The kernel keeps at most 15 characters of a thread name.
    pthread_setname_np(pthread_self(), record->name.substr(0, 15).c_str());
  }
  ThreadStartCallback onStart = nullptr;
  ThreadEndCallback onEnd = nullptr;
  {
    VMutexGuard guard(callbacksMutex());
    ThreadCallbacks::getInstance()->getThreadCallbacks(onStart, onEnd);
  }
  if (onStart) onStart(id, record->name);
  record->fn(record->arg);
  if (onEnd) onEnd(id);
  return nullptr;
}

}  // namespace

bool prepareThreadAttrs(const ThreadAttributes& attrs, pthread_attr_t** out) {
  *out = nullptr;
  if (attrs.stackSize == 0) return true;
  std::unique_ptr<pthread_attr_t> made(new pthread_attr_t);
  if (pthread_attr_init(made.get()) != 0) return false;
  size_t size = attrs.stackSize < kMinThreadStackSize ? kMinThreadStackSize : attrs.stackSize;
  if (pthread_attr_setstacksize(made.get(), size) != 0) {
    pthread_attr_destroy(made.get());
    return false;
  }
  *out = made.release();
  return true;
}

void releaseThreadAttrs(pthread_attr_t* attrs) {
  if (!attrs) return;
  pthread_attr_destroy(attrs);
  delete attrs;
}

bool createThread(void (*fn)(void*), void* arg, unsigned long* handle, const ThreadAttributes& attrs) {
  if (handle) *handle = 0;
  std::unique_ptr<StartRecord> record(new StartRecord{fn, arg, attrs.name});
  pthread_attr_t* raw = nullptr;
  if (!prepareThreadAttrs(attrs, &raw)) return false;
  std::unique_ptr<pthread_attr_t, AttrsDeleter> threadAttrs(raw);
  pthread_t thread;
  if (pthread_create(&thread, threadAttrs.get(), threadEntry, record.get()) != 0) return false;
  record.release();  // the new thread owns it now
  if (handle) {
    *handle = static_cast<unsigned long>(thread);
  } else {
    pthread_detach(thread);
  }
  return true;
}

void waitForThread(unsigned long handle) {
  if (handle == 0) return;
  pthread_join(static_cast<pthread_t>(handle), nullptr);
}

bool waitForThreadClose(unsigned long handle) {
  if (handle == 0) return true;
  return pthread_join(static_cast<pthread_t>(handle), nullptr) == 0;
}

unsigned threadID() { return static_cast<unsigned>(syscall(SYS_gettid)); }

unsigned processID() { return static_cast<unsigned>(getpid()); }

void getThreadHandle(unsigned long& handle) { handle = static_cast<unsigned long>(pthread_self()); }

bool threadDetach(unsigned long& handle) {
  if (handle == 0) return false;
  if (pthread_detach(static_cast<pthread_t>(handle)) != 0) return false;
  handle = 0;
  return true;
}

void closeThreadHandle(unsigned long&) {}

void setThreadPriority(ThreadPriority p) {
  sched_param param;
  param.sched_priority = p;
  pthread_setschedparam(pthread_self(), SCHED_OTHER, &param);
}

ThreadCallbacks* ThreadCallbacks::getInstance() {
  VMutexGuard guard(callbacksMutex());
  if (!callbacksInstance) callbacksInstance = new ThreadCallbacks();
  return callbacksInstance;
}

void ThreadCallbacks::releaseInstance() {
  VMutexGuard guard(callbacksMutex());
  delete callbacksInstance;
  callbacksInstance = nullptr;
}

void ThreadCallbacks::registerThreadCallbacks(ThreadStartCallback onStart, ThreadEndCallback onEnd) {
  VMutexGuard guard(callbacksMutex());
  onStart_ = onStart;
  onEnd_ = onEnd;
}

void ThreadCallbacks::getThreadCallbacks(ThreadStartCallback& onStart, ThreadEndCallback& onEnd) const {
  VMutexGuard guard(callbacksMutex());
  onStart = onStart_;
  onEnd = onEnd_;
}

namespace dangerous {

namespace {

VMutex& sigMutex() {
  static VMutex mutex;
  return mutex;
}

struct sigaction previousAction;
int installDepth = 0;

void onSigUsr2(int sig) {
  if (sig == SIGUSR2) pthread_exit(nullptr);
}

}  // namespace

void SigUsr2Guard::setSIGUSR2Handler() {
  VMutexGuard guard(sigMutex());
  if (installDepth++ > 0) return;
  struct sigaction action;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;
  action.sa_handler = onSigUsr2;
  sigaction(SIGUSR2, &action, &previousAction);
}

void SigUsr2Guard::restoreSIGUSR2Handler() {
  VMutexGuard guard(sigMutex());
  if (installDepth == 0 || --installDepth > 0) return;
  sigaction(SIGUSR2, &previousAction, nullptr);
}

void terminateThreads(const std::vector<unsigned long>& threads, unsigned timeout) {
  SigUsr2Guard handler;
  for (unsigned long handle : threads) {
    if (handle != 0) pthread_kill(static_cast<pthread_t>(handle), SIGUSR2);
  }
  for (unsigned long handle : threads) {
    if (handle == 0) continue;
    pthread_t thread = static_cast<pthread_t>(handle);
    if (timeout == 0) {
      pthread_join(thread, nullptr);
      continue;
    }
    timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += timeout / 1000;
    deadline.tv_nsec += static_cast<long>(timeout % 1000) * 1000000L;
    if (deadline.tv_nsec >= 1000000000L) {
      deadline.tv_sec += 1;
      deadline.tv_nsec -= 1000000000L;
    }
    pthread_timedjoin_np(thread, nullptr, &deadline);
  }
}

}  // namespace dangerous

}  // namespace tiny
}  // namespace vorlane
