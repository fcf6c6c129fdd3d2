#include "vcom/safe_write.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

namespace vorlane {
namespace vcom {

ssize_t writeNoSigpipe(int fd, const void* buf, size_t len) {
  sigset_t pipeOnly, oldMask, pending;
  sigemptyset(&pipeOnly);
  sigaddset(&pipeOnly, SIGPIPE);
  sigemptyset(&pending);
  sigpending(&pending);
  const bool wasPending = sigismember(&pending, SIGPIPE) == 1;
  pthread_sigmask(SIG_BLOCK, &pipeOnly, &oldMask);

  ssize_t n;
  do {
    n = ::write(fd, buf, len);
  } while (n < 0 && errno == EINTR);

  if (n < 0 && errno == EPIPE && !wasPending) {
    const int saved = errno;
    const struct timespec zero = {0, 0};
    while (sigtimedwait(&pipeOnly, nullptr, &zero) < 0 && errno == EINTR) {
    }
    errno = saved;
  }
  const int saved = errno;
  pthread_sigmask(SIG_SETMASK, &oldMask, nullptr);
  errno = saved;
  return n;
}

}  // namespace vcom
}  // namespace vorlane
