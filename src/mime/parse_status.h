// The reading state shared by every level of one MIME structure parse: the current line, the header being
// unfolded, and the stack of multipart boundaries that are open at this point of the message.
// The current line is a view (pointer and length, not terminated): usually into the stream's read buffer,
// and into the fixed line buffer only when the line crossed a refill. Line and header buffers are fixed
// (16384 bytes of text each); the boundary stack holds at most one node per open multipart level and does
// not own the boundary strings (the parts' parameter lists do).
// Not thread-safe: one parse, one status, one thread.
#pragma once

#include <atomic>
#include <cstddef>

namespace vorlane {
namespace mime {

class mail_struct_pool;

// The line buffer and the largest unfolded header. A line is read as a C string into MIME_LINE_MAX
// bytes, so one piece holds at most MIME_LINE_MAX - 1 bytes: a line ending at byte MIME_LINE_MAX or later
// is split, and every piece counts as a line. Longer headers are truncated.
constexpr size_t MIME_LINE_MAX = 16384;
constexpr size_t MIME_HEADER_MAX = 16384;
// A stop request is looked at once per this many lines (a few milliseconds of reading at most).
constexpr unsigned MIME_STOP_POLL_LINES = 4096;

// How a parse ended: a tree, or why there is none.
enum class parse_outcome { parsed, too_deep, too_many_parts, stopped };

struct boundary_node {
  const char* boundary;  // not owned
  size_t length;
  boundary_node* next;
};

class parse_status {
 public:
  parse_status() = default;
  parse_status(const parse_status&) = delete;
  parse_status& operator=(const parse_status&) = delete;
  ~parse_status() { clear_boundaries(); }

  // Back to the state of a new status, for the next message; the buffers are not cleared (every use
  // writes before it reads).
  void reset();

  // Makes `boundary` the innermost open boundary; the string must outlive its stay on the stack.
  void push_boundary(const char* boundary);
  // Pops the innermost boundary; nothing when the stack is empty.
  void pop_boundary();
  void clear_boundaries();
  // Records why the parse has no tree; the first reason stays.
  void fail(parse_outcome why) {
    if (outcome == parse_outcome::parsed) outcome = why;
  }
  // Moves the position past n bytes taken from the stream.
  void advance(size_t n) {
    if (position >= 0) position += static_cast<long long>(n);
  }

  int boundary_count = 0;
  size_t boundary_line_len = 0;  // raw length of the last boundary line found
  int end_flag = 0;              // 1 after a closing boundary or end of file, 0 after an opening boundary
  int boundary_hit = 0;          // 1 when the last line read was a boundary line, 0 at end of file
  char header[MIME_HEADER_MAX];  // one unfolded header, terminated
  // The current line with its terminator, line_len bytes, not terminated; valid until the next read.
  const char* line = nullptr;
  size_t line_len = 0;
  // Holds a line that crossed the stream's refill, with the stream's terminating zero.
  char line_buf[MIME_LINE_MAX];
  size_t trailing_term_len = 0;  // terminator of the last body line, which belongs to the next boundary
  // Stream position of the next unread byte, advanced by every line read, so that part positions need no
  // seek call on the file; -1 until the parse has asked the stream once (or when the stream cannot tell).
  long long position = -1;
  boundary_node* top = nullptr;
  // The guards of one parse: the parts made so far, the stop request (may be null, polled by the line
  // reader when the countdown runs out) and the outcome.
  size_t part_count = 0;
  const std::atomic<bool>* stop = nullptr;
  mail_struct_pool* pool = nullptr;  // where the parse takes its nodes from; null: new ones
  unsigned poll_countdown = MIME_STOP_POLL_LINES;
  parse_outcome outcome = parse_outcome::parsed;
};

}  // namespace mime
}  // namespace vorlane
