// One message file read into the facts the statistic counts: its size from stat, then the file parsed
// by the MIME structure parser and classified. Shared by the store scan and `vstat mime`.
//
// A FIFO, socket or device (or a link to one) under a message name is never read: opening or reading
// it could block the caller for ever. It is refused before it is opened, by the type the listing
// reported and, for links or a listing without types, by stat; the check is repeated on the descriptor,
// which is opened without blocking, in case the entry changed in between. A directory (or a link to
// one) opens and reads as an empty stream, so it yields its stat size and an empty message. The file is
// read without taking a lock: the mail server may hold locks on it, and a statistics reader never waits.
//
// Threading: no shared state; any number of threads may read messages at the same time. Each thread
// keeps the nodes of the trees it has classified for its next parse (a bounded pool, mail_struct_pool.h).
#pragma once

#include <dirent.h>

#include <atomic>
#include <memory>
#include <string>

#include "mime/mail_struct.h"
#include "stat/message_facts.h"

// A message file as a directory listing found it.
struct MessageEntry {
  int dirFd;                 // the directory open for lookups (AT_FDCWD: name is a path)
  const char* name;          // looked up from dirFd
  unsigned char listedType;  // d_type from the listing (DT_UNKNOWN when none); only DT_REG is trusted
  const std::string& path;   // for error lines
};

enum class MessageRead {
  Counted,  // `facts` hold the message (class empty)
  Failed,   // the file was not looked at; `error` is the line that names the path and what failed
  Stopped,  // `stop` was set while the message was parsed: it is not to be counted
};

// Reads one message. A message the parser gives up on still counts, with its size and no header or body
// sizes; when it gave up because the message has more than MIME_MAX_PARTS parts, `error` holds a line
// naming the path (otherwise it is left empty). `stop` (may be null) is polled during the parse. When
// `tree` is given it receives the parse tree (null when the parser gave up), for a caller that shows it.
MessageRead readMessage(const MessageEntry& entry, MessageFacts& facts, std::string& error,
                        const std::atomic<bool>* stop = nullptr,
                        std::unique_ptr<vorlane::mime::mail_struct>* tree = nullptr);
