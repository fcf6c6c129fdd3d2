#include "tiny/thread.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>

#include "tiny/time_utils.h"
#include "tiny/vevent.h"

using namespace vorlane::tiny;

#if defined(__SANITIZE_THREAD__)
// ThreadSanitizer enlarges every thread's stack and flags the unwinding that pthread_exit does
// inside a signal handler.
const bool kThreadSanitizer = true;
#else
const bool kThreadSanitizer = false;
#endif

namespace {

struct Probe {
  VEvent go;           // lets the thread look at itself only after createThread returned
  size_t stackSize = 0;
  int detachState = -1;
  unsigned id = 0;
  char name[16] = {};
};

void inspectSelf(void* p) {
  Probe* probe = static_cast<Probe*>(p);
  probe->go.wait();
  pthread_attr_t attrs;
  if (pthread_getattr_np(pthread_self(), &attrs) == 0) {
    pthread_attr_getstacksize(&attrs, &probe->stackSize);
    pthread_attr_getdetachstate(&attrs, &probe->detachState);
    pthread_attr_destroy(&attrs);
  }
  probe->id = threadID();
  pthread_getname_np(pthread_self(), probe->name, sizeof(probe->name));
}

void signalEvent(void* p) { static_cast<VEvent*>(p)->signal(); }

}  // namespace

TEST(Thread, RequestedStackSizesAreRaisedToTheMinimum) {
  struct Case {
    unsigned requested;
    size_t expected;  // 0: no attribute object, the system default applies
  };
  for (const Case& c : {Case{0, 0}, Case{1, 16384}, Case{1000, 16384}, Case{16383, 16384}, Case{65536, 65536}}) {
    pthread_attr_t* attrs = nullptr;
    ASSERT_TRUE(prepareThreadAttrs(ThreadAttributes(c.requested, ""), &attrs)) << c.requested;
    if (c.expected == 0) {
      EXPECT_EQ(attrs, nullptr);
      continue;
    }
    ASSERT_NE(attrs, nullptr) << c.requested;
    size_t size = 0;
    pthread_attr_getstacksize(attrs, &size);
    EXPECT_EQ(size, c.expected) << c.requested;
    releaseThreadAttrs(attrs);
  }
}

TEST(Thread, RunsOnTheRequestedStackAndIsJoinable) {
  Probe probe;
  unsigned long handle = 0;
  ASSERT_TRUE(createThread(inspectSelf, &probe, &handle, ThreadAttributes(1000, "")));
  EXPECT_NE(handle, 0u);
  probe.go.signal();
  EXPECT_TRUE(waitForThreadClose(handle));
  if (kThreadSanitizer) {
    EXPECT_GE(probe.stackSize, 16384u);
  } else {
    EXPECT_EQ(probe.stackSize, 16384u);
  }
  EXPECT_EQ(probe.detachState, PTHREAD_CREATE_JOINABLE);
  EXPECT_NE(probe.id, threadID()) << "a thread of its own";
}

TEST(Thread, WithoutAHandleTheThreadIsDetached) {
  Probe probe;
  VEvent done;
  struct Both {
    Probe* probe;
    VEvent* done;
  } both{&probe, &done};
  ASSERT_TRUE(createThread(
      [](void* p) {
        Both* b = static_cast<Both*>(p);
        inspectSelf(b->probe);
        b->done->signal();
      },
      &both, nullptr, defaultThreadAttributes));
  probe.go.signal();
  ASSERT_TRUE(done.timedwait(10000));
  EXPECT_EQ(probe.detachState, PTHREAD_CREATE_DETACHED);
}

TEST(Thread, ZeroHandleIsNoThread) {
  EXPECT_TRUE(waitForThreadClose(0));
  waitForThread(0);  // must return at once
  unsigned long none = 0;
  EXPECT_FALSE(threadDetach(none));
}

TEST(Thread, DetachClearsTheHandle) {
  VEvent ran;
  unsigned long handle = 0;
  ASSERT_TRUE(createThread(signalEvent, &ran, &handle));
  ASSERT_TRUE(threadDetach(handle));
  EXPECT_EQ(handle, 0u);
  EXPECT_TRUE(ran.timedwait(10000));
}

TEST(Thread, IdentityOfTheCallingThread) {
  EXPECT_EQ(processID(), static_cast<unsigned>(getpid()));
  EXPECT_EQ(threadID(), processID()) << "the test body runs on the main thread";
  unsigned long self = 0;
  getThreadHandle(self);
  EXPECT_EQ(self, static_cast<unsigned long>(pthread_self()));
}

namespace {

std::atomic<unsigned> startedId{0};
std::atomic<unsigned> endedId{0};
std::string startedName;  // written by the thread before its end, read after the join

void onStart(unsigned id, const std::string& name) {
  startedName = name;
  startedId = id;
}
void onEnd(unsigned id) { endedId = id; }

}  // namespace

TEST(ThreadCallbacks, RunAroundEveryThreadWithItsIdAndName) {
  ThreadCallbacks::getInstance()->registerThreadCallbacks(onStart, onEnd);
  Probe probe;
  unsigned long handle = 0;
  ASSERT_TRUE(createThread(inspectSelf, &probe, &handle, ThreadAttributes(0, "statistics-counter")));
  probe.go.signal();
  ASSERT_TRUE(waitForThreadClose(handle));
  ThreadCallbacks::getInstance()->registerThreadCallbacks(nullptr, nullptr);

  EXPECT_EQ(startedId.load(), probe.id);
  EXPECT_EQ(endedId.load(), probe.id);
  EXPECT_EQ(startedName, "statistics-counter");
  EXPECT_STREQ(probe.name, "statistics-coun") << "the kernel keeps 15 characters";

  ThreadStartCallback s = onStart;
  ThreadEndCallback e = onEnd;
  ThreadCallbacks::getInstance()->getThreadCallbacks(s, e);
  EXPECT_EQ(s, nullptr);
  EXPECT_EQ(e, nullptr);
  ThreadCallbacks::releaseInstance();
}

namespace {

std::atomic<bool> spinnerStarted{false};

void spinUntilKilled(void*) {
  spinnerStarted = true;
  for (;;) msleep(5);
}

}  // namespace

TEST(TerminateThreads, EndsAThreadThatWouldNeverEndAndRestoresTheHandler) {
  if (kThreadSanitizer) GTEST_SKIP() << "ending a thread from a signal handler is signal-unsafe by design";
  struct sigaction before;
  sigaction(SIGUSR2, nullptr, &before);

  unsigned long handle = 0;
  ASSERT_TRUE(createThread(spinUntilKilled, nullptr, &handle));
  while (!spinnerStarted) msleep(1);
  dangerous::terminateThreads({handle}, 10000);

  struct sigaction after;
  sigaction(SIGUSR2, nullptr, &after);
  EXPECT_EQ(after.sa_handler, before.sa_handler);
}

TEST(SigUsr2Guard, NestedInstallationsRestoreTheOriginalDisposition) {
  struct sigaction before;
  sigaction(SIGUSR2, nullptr, &before);
  {
    dangerous::SigUsr2Guard outer;
    struct sigaction installed;
    sigaction(SIGUSR2, nullptr, &installed);
    EXPECT_NE(installed.sa_handler, before.sa_handler);
    {
      dangerous::SigUsr2Guard inner;
    }
    struct sigaction still;
    sigaction(SIGUSR2, nullptr, &still);
    EXPECT_EQ(still.sa_handler, installed.sa_handler) << "inner restore must not remove the outer handler";
  }
  struct sigaction after;
  sigaction(SIGUSR2, nullptr, &after);
  EXPECT_EQ(after.sa_handler, before.sa_handler);
}
