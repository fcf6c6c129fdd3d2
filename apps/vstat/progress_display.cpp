#include "progress_display.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "terminal_text.h"

namespace vorlane {
namespace cli {

namespace {

// The terminal redraw rate: fast enough to look live, slow enough not to cost anything on a fast scan.
const std::chrono::milliseconds kRedrawPeriod(100);
const size_t kMaxBarWidth = 30;
const size_t kMinBarWidth = 10;
const size_t kMinWidthForBar = 60;
const size_t kMinLocationWidth = 8;

std::string location(const ProgressEvent& e) {
  if (e.mailbox.empty()) return terminalSafe(e.domain);
  if (e.domain.empty()) return terminalSafe(e.mailbox);
  return terminalSafe(e.domain + "/" + e.mailbox);
}

bool isContinuationByte(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// Long names lose their middle, where two mailbox paths usually differ least. The cut never splits a
// UTF-8 sequence.
std::string fitText(const std::string& s, size_t width) {
  if (s.size() <= width) return s;
  if (width <= 3) return std::string(width, '.');
  const size_t keep = width - 3;
  size_t head = keep / 2;
  while (head > 0 && isContinuationByte(s[head])) --head;
  size_t tail = s.size() - (keep - keep / 2);
  while (tail < s.size() && isContinuationByte(s[tail])) ++tail;
  return s.substr(0, head) + "..." + s.substr(tail);
}

std::string formatNumber(unsigned long n) { return std::to_string(n); }

}  // namespace

std::string formatElapsed(double seconds) {
  if (!(seconds > 0)) seconds = 0;
  // Far beyond any real scan; keeps the conversion below defined for absurd values.
  if (seconds > 3600.0 * 24 * 365) seconds = 3600.0 * 24 * 365;
  const unsigned long total = static_cast<unsigned long>(seconds);
  char text[32];
  if (total >= 3600) {
    std::snprintf(text, sizeof text, "%lu:%02lu:%02lu", total / 3600, total / 60 % 60, total % 60);
  } else {
    std::snprintf(text, sizeof text, "%lu:%02lu", total / 60, total % 60);
  }
  return text;
}

unsigned terminalWidth(int fd) {
  struct winsize ws;
  if (ioctl(fd, TIOCGWINSZ, &ws) == 0 && ws.ws_col > 0) return ws.ws_col;
  if (const char* columns = std::getenv("COLUMNS")) {
    const long n = std::strtol(columns, nullptr, 10);
    if (n > 0 && n < 10000) return static_cast<unsigned>(n);
  }
  return 80;
}

ProgressDisplay::ProgressDisplay(std::ostream& out, bool terminal, unsigned width, Clock clock)
    : out_(out), terminal_(terminal), width_(width), clock_(std::move(clock)), start_(clock_()), lastDraw_(start_) {}

double ProgressDisplay::elapsedSeconds() const {
  return std::chrono::duration<double>(clock_() - start_).count();
}

std::string ProgressDisplay::statusLine() const {
  const double elapsed = elapsedSeconds();
  const size_t budget = width_ > 1 ? width_ - 1 : 1;

  std::string line;
  if (last_.mailboxes > 0) {
    const double fraction = std::min(1.0, static_cast<double>(last_.processed) / static_cast<double>(last_.mailboxes));
    char percent[8];
    std::snprintf(percent, sizeof percent, "%3d%%", static_cast<int>(fraction * 100.0));
    line = percent;
  } else {
    line = "  -%";
  }
  line += " " + formatNumber(last_.processed) + "/" + (last_.mailboxes ? formatNumber(last_.mailboxes) : "?") +
          " mailboxes  " + formatElapsed(elapsed);
  if (line.size() >= budget) return line.substr(0, budget);

  // A rate over less than a second is noise.
  if (elapsed >= 1.0 && last_.processed > 0) {
    const double rate = static_cast<double>(last_.processed) / elapsed;
    char text[64];
    std::snprintf(text, sizeof text, "  %.1f/s", rate);
    std::string extra = text;
    if (last_.mailboxes > last_.processed) {
      extra += "  ETA " + formatElapsed(static_cast<double>(last_.mailboxes - last_.processed) / rate);
    }
    if (line.size() + extra.size() <= budget) line += extra;
  }

  // The bar's width depends only on the terminal, so that it does not jump as the figures grow; the
  // current location gets whatever is left.
  std::string bar;
  if (budget >= kMinWidthForBar) {
    const size_t barWidth = std::min(kMaxBarWidth, std::max(kMinBarWidth, (budget - 40) / 4));
    if (line.size() + barWidth + 3 <= budget) {
      const double fraction = last_.mailboxes ? std::min(1.0, static_cast<double>(last_.processed) /
                                                                   static_cast<double>(last_.mailboxes))
                                              : 0.0;
      const size_t filled = static_cast<size_t>(fraction * static_cast<double>(barWidth));
      bar = "[" + std::string(filled, '#') + std::string(barWidth - filled, '-') + "] ";
    }
  }
  line = bar + line;
  const std::string where = location(last_);
  if (!where.empty() && line.size() + 2 + kMinLocationWidth <= budget) {
    line += "  " + fitText(where, budget - line.size() - 2);
  }
  return line;
}

void ProgressDisplay::clearLine() {
  if (drawnLength_ == 0) return;
  out_ << '\r' << std::string(drawnLength_, ' ') << '\r';
  drawnLength_ = 0;
}

void ProgressDisplay::draw() {
  lastDraw_ = clock_();
  drawnOnce_ = true;
  if (terminal_) {
    const std::string line = statusLine();
    // Blanks over the tail of a longer previous line, then back to where the new line ends.
    out_ << '\r' << line;
    if (drawnLength_ > line.size()) {
      out_ << std::string(drawnLength_ - line.size(), ' ') << '\r' << line;
    }
    drawnLength_ = line.size();
  } else {
    char head[64];
    if (last_.mailboxes > 0) {
      const double fraction = std::min(1.0, static_cast<double>(last_.processed) / static_cast<double>(last_.mailboxes));
      std::snprintf(head, sizeof head, "[%lu/%lu %3d%%]", last_.processed, last_.mailboxes,
                    static_cast<int>(fraction * 100.0));
    } else {
      std::snprintf(head, sizeof head, "[%lu/?]", last_.processed);
    }
    out_ << head << ' ' << formatElapsed(elapsedSeconds());
    const std::string where = location(last_);
    if (!where.empty()) out_ << ' ' << where;
    out_ << '\n';
  }
  out_.flush();
}

void ProgressDisplay::update(const ProgressEvent& event) {
  const bool changed = !haveEvent_ || event.domain != last_.domain || event.mailbox != last_.mailbox ||
                       event.processed != last_.processed || event.mailboxes != last_.mailboxes;
  last_ = event;
  haveEvent_ = true;
  if (terminal_) {
    if (!drawnOnce_ || clock_() - lastDraw_ >= kRedrawPeriod) draw();
  } else if (changed) {
    draw();
  }
}

void ProgressDisplay::tick() {
  if (terminal_ && (!drawnOnce_ || clock_() - lastDraw_ >= kRedrawPeriod)) draw();
}

void ProgressDisplay::note(const std::string& line) {
  if (terminal_) {
    const bool redraw = drawnLength_ != 0;
    clearLine();
    out_ << terminalSafe(line) << '\n';
    if (redraw) draw();
  } else {
    out_ << terminalSafe(line) << '\n';
  }
  out_.flush();
}

void ProgressDisplay::finish(const std::string& closing) {
  if (terminal_ && drawnOnce_) {
    draw();
    out_ << '\n';
    drawnLength_ = 0;
  }
  if (!closing.empty()) out_ << closing << '\n';
  out_.flush();
}

}  // namespace cli
}  // namespace vorlane
