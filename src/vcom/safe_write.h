// write(2) that can never kill the process with SIGPIPE, whatever the process's signal disposition:
// SIGPIPE is blocked in the calling thread for the call, and a SIGPIPE raised by it is consumed
// before the mask is restored (a SIGPIPE that was already pending is left alone). A write to a pipe
// whose reader is gone therefore fails with EPIPE. Interrupted calls are retried. Thread-safe.
#pragma once

#include <sys/types.h>

namespace vorlane {
namespace vcom {

// One write call (retried on EINTR); returns what write returned, errno set on failure.
ssize_t writeNoSigpipe(int fd, const void* buf, size_t len);

}  // namespace vcom
}  // namespace vorlane
