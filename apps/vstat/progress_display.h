// Shows the progress of a store scan. On a terminal one status line is redrawn in place with "\r":
// percentage, a bar, mailboxes done of total, elapsed time, rate, estimated time left and the current
// domain/mailbox, fitted to the terminal width (the last column is left free so the line never wraps).
// When the output is not a terminal it writes one plain line per mailbox instead, suitable for logs.
// Control characters in names and notes are shown as '?', so that nothing from the store or the server
// can drive the terminal.
// Time comes from an injectable clock so that tests need no sleeping. Not thread-safe: one receive loop
// drives one display.
#pragma once

#include <chrono>
#include <functional>
#include <ostream>
#include <string>

#include <boost/noncopyable.hpp>

namespace vorlane {
namespace cli {

struct ProgressEvent {
  std::string domain;
  std::string mailbox;
  unsigned long processed = 0;  // mailboxes finished, the public tree counting as one
  unsigned long mailboxes = 0;  // total found by the server's counting pass; 0 while unknown
};

class ProgressDisplay : private boost::noncopyable {
 public:
  typedef std::chrono::steady_clock::time_point TimePoint;
  typedef std::function<TimePoint()> Clock;

  // `width` is the terminal width in columns (ignored for plain output); the clock starts now.
  ProgressDisplay(std::ostream& out, bool terminal, unsigned width, Clock clock = &std::chrono::steady_clock::now);

  // A progress event arrived. Terminal: redrawn at most ten times a second. Plain: one line whenever the
  // mailbox or the count changes.
  void update(const ProgressEvent& event);

  // Called while waiting for messages, so that elapsed time moves on a terminal; plain output ignores it.
  void tick();

  // Prints a whole line (a warning, a notice) without tearing the status line.
  void note(const std::string& line);

  // Draws the last state and ends the status line (if one was ever shown), then prints `closing` (if not
  // empty) on a line of its own.
  void finish(const std::string& closing);

  // The status line as it would be drawn now, without "\r" or padding; exposed for tests.
  std::string statusLine() const;

  double elapsedSeconds() const;

 private:
  void draw();
  void clearLine();

  std::ostream& out_;
  const bool terminal_;
  const unsigned width_;
  Clock clock_;
  TimePoint start_;
  TimePoint lastDraw_;
  bool drawnOnce_ = false;
  size_t drawnLength_ = 0;  // length of the status line on screen, 0 when none is shown
  ProgressEvent last_;
  bool haveEvent_ = false;
};

// Columns of the terminal on descriptor `fd`: the window size, else $COLUMNS, else 80.
unsigned terminalWidth(int fd);

// "0:07", "12:34", "1:02:03".
std::string formatElapsed(double seconds);

}  // namespace cli
}  // namespace vorlane
