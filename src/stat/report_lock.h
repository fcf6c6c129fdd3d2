// The report lock: an exclusive flock on a lock file beside the fixed report path, so that two jobs on
// one machine never write, show or copy each other's report. A server holds it from the start of its
// job until its report is in place; `vstat scan` holds it from before it starts the server until it has
// read and copied the report, and tells the server so (kReportLockHeldVariable), which then does not
// take it again. The lock file is created if missing, never followed through a symbolic link, and only
// ever opened for reading (flock needs no more), so a file planted there by another user still locks.
// The lock goes with the descriptor: released by release(), the destructor or the process's end.
// Threading: one object per thread; it may wait while another thread sets the stop flag.
#pragma once

#include <atomic>
#include <string>

class ReportLock {
 public:
  enum Result {
    Acquired,  // this object holds the lock
    Busy,      // someone else holds it (tryAcquire only)
    Stopped,   // the stop flag was set while waiting (waitFor only)
    Failed,    // the lock file cannot be opened or locked; `error` says why
  };

  explicit ReportLock(std::string lockPath);
  ~ReportLock();
  ReportLock(const ReportLock&) = delete;
  ReportLock& operator=(const ReportLock&) = delete;

  Result tryAcquire(std::string& error);
  // Tries every kPollMs until the lock is free or `stop` is set.
  Result waitFor(const std::atomic<bool>& stop, std::string& error);
  void release();

  static const long kPollMs = 100;

 private:
  std::string path_;
  int fd_ = -1;
};
