#include "tiny/thread.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <string>

#include "tiny/vevent.h"

using namespace vorlane::tiny;

namespace {

// What a thread sees of itself, looked at only after createThread has returned.
struct Probe {
  VEvent go, done;
  int detachState = -1;
  unsigned id = 0;
};

void inspectSelf(void* p) {
  Probe* probe = static_cast<Probe*>(p);
  probe->go.wait();
  pthread_attr_t attrs;
  if (pthread_getattr_np(pthread_self(), &attrs) == 0) {
    pthread_attr_getdetachstate(&attrs, &probe->detachState);
    pthread_attr_destroy(&attrs);
  }
  probe->id = threadID();
  probe->done.signal();
}

}  // namespace

TEST(Thread, RequestedStackSizesAreRaisedToTheMinimum) {
  struct Case {
    unsigned requested;
    size_t expected;  // 0: no attribute object, the system default applies
  };
  for (const Case& c : {Case{0, 0}, Case{1000, 16384}, Case{16383, 16384}, Case{65536, 65536}}) {
    pthread_attr_t* attrs = nullptr;
    ASSERT_TRUE(prepareThreadAttrs(ThreadAttributes(c.requested, ""), &attrs)) << c.requested;
    size_t size = 0;
    if (attrs) pthread_attr_getstacksize(attrs, &size);
    EXPECT_EQ(size, c.expected) << c.requested;
    releaseThreadAttrs(attrs);
  }
}

TEST(Thread, JoinableWithAHandleDetachedWithout) {
  Probe joined;
  unsigned long handle = 0;
  ASSERT_TRUE(createThread(inspectSelf, &joined, &handle, ThreadAttributes(1000, "")));
  EXPECT_NE(handle, 0u);
  joined.go.signal();
  EXPECT_TRUE(waitForThreadClose(handle));
  EXPECT_EQ(joined.detachState, PTHREAD_CREATE_JOINABLE);
  EXPECT_NE(joined.id, threadID());

  Probe detached;
  ASSERT_TRUE(createThread(inspectSelf, &detached, nullptr, defaultThreadAttributes));
  detached.go.signal();
  ASSERT_TRUE(detached.done.timedwait(10000));
  EXPECT_EQ(detached.detachState, PTHREAD_CREATE_DETACHED);

  EXPECT_TRUE(waitForThreadClose(0)) << "no thread, nothing to wait for";
}
