#include "stat/message_read_queue.h"

#include <fcntl.h>
#include <unistd.h>

#include "utils/read_ahead.h"

MessageReadQueue::MessageReadQueue(const ScanSettings& settings, const std::atomic<bool>* stop)
    : gentle_(settings.gentle),
      stop_(stop),
      pipeline_(settings.threads, kWindow, [this](const Request& request, MessageOutcome& out) { read(request, out); }) {}

MessageReadQueue::~MessageReadQueue() {
  pipeline_.discard();
  closeDirectory();
}

bool MessageReadQueue::add(const MessageEntry& entry) {
  if (pipeline_.empty()) {
    closeDirectory();
    directory_ = entry.dirFd == AT_FDCWD ? AT_FDCWD : ::fcntl(entry.dirFd, F_DUPFD_CLOEXEC, 0);
    if (directory_ == -1) return false;
  }
  Request& request = pipeline_.prepare();
  request.name.assign(entry.name);
  request.path.assign(entry.path);
  request.listedType = entry.listedType;
  request.release = false;
  if (gentle_) {
    const vorlane::utils::ReadAheadResult announced =
        vorlane::utils::announceRead(directory_, entry.name, entry.listedType, true);
    request.release = announced.advised && !announced.resident;
  }
  pipeline_.publish();
  return true;
}

bool MessageReadQueue::take(MessageOutcome& out) { return pipeline_.next(out); }

void MessageReadQueue::discard() { pipeline_.discard(); }

void MessageReadQueue::read(const Request& request, MessageOutcome& out) const {
  const MessageEntry entry{directory_, request.name.c_str(), request.listedType, request.path};
  out.read = readMessage(entry, out.facts, out.error, stop_);
  if (request.release) vorlane::utils::releaseReadPages(directory_, request.name.c_str(), request.listedType);
}

void MessageReadQueue::closeDirectory() {
  if (directory_ >= 0) ::close(directory_);
  directory_ = -1;
}
