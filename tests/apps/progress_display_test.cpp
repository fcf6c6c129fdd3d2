#include "progress_display.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace vorlane {
namespace cli {
namespace {

// A clock the test moves by hand.
struct FakeClock {
  ProgressDisplay::TimePoint now = ProgressDisplay::TimePoint() + std::chrono::hours(1);
  ProgressDisplay::Clock clock() {
    return [this] { return now; };
  }
  void advance(int ms) { now += std::chrono::milliseconds(ms); }
};

ProgressEvent event(const char* domain, const char* mailbox, unsigned long processed, unsigned long mailboxes) {
  ProgressEvent e;
  e.domain = domain;
  e.mailbox = mailbox;
  e.processed = processed;
  e.mailboxes = mailboxes;
  return e;
}

// The bar at the start of a status line: its width and how much of it is filled.
bool parseBar(const std::string& line, size_t& filled, size_t& width) {
  const size_t close = line.find("] ");
  if (line.empty() || line[0] != '[' || close == std::string::npos) return false;
  width = close - 1;
  filled = line.find_first_not_of('#', 1) - 1;
  return line.find_first_not_of('-', filled + 1) == close;
}

size_t count(const std::string& s, char c) {
  size_t n = 0;
  for (char x : s) n += x == c;
  return n;
}

// Before the server has counted the mailboxes there is no total: no percentage, an empty bar, no rate.
// More mailboxes done than counted (the public tree counts as one) stays at 100%.
TEST(ProgressDisplay, BarShowsPercentRateAndEtaFromZeroToFull) {
  struct Case { unsigned long processed; unsigned long total; const char* shown; const char* absent; double fraction; };
  for (const Case& c : {Case{0, 0, "  -% 0/? mailboxes  0:10  example.com/john", "/s", 0},
                        Case{37, 88, " 42% 37/88 mailboxes  0:10  3.7/s  ETA 0:13", "", 37.0 / 88},
                        Case{88, 88, "100% 88/88 mailboxes  0:10  8.8/s", "ETA", 1},
                        Case{90, 88, "100% 90/88 mailboxes  0:10  9.0/s", "ETA", 1}}) {
    FakeClock t;
    std::ostringstream out;
    ProgressDisplay d(out, true, 120, t.clock());
    t.advance(10000);
    d.update(event("example.com", "john", c.processed, c.total));
    const std::string line = d.statusLine();
    EXPECT_NE(line.find(c.shown), std::string::npos) << line;
    if (*c.absent) {
      EXPECT_EQ(line.find(c.absent), std::string::npos) << line;
    }
    size_t filled = 0;
    size_t width = 0;
    ASSERT_TRUE(parseBar(line, filled, width)) << line;
    EXPECT_EQ(filled, static_cast<size_t>(c.fraction * static_cast<double>(width))) << line;
  }
}

// The line never reaches the last column, however narrow the terminal; narrow ones drop the bar first,
// long locations lose their middle (never inside a UTF-8 sequence), control characters are defused.
TEST(ProgressDisplay, StatusLineFitsTheTerminalWidth) {
  std::string domain = std::string(40, 'd') + "\x1b[2J";
  for (int i = 0; i < 30; ++i) domain += "\xc3\xbc";
  for (unsigned width : {1u, 10u, 30u, 50u, 70u, 80u, 81u, 132u, 133u, 300u}) {
    FakeClock t;
    std::ostringstream out;
    ProgressDisplay d(out, true, width, t.clock());
    t.advance(2000);
    d.update(event(domain.c_str(), "x", 1234, 5678));
    const std::string line = d.statusLine();
    EXPECT_LE(line.size(), width > 1 ? width - 1 : 1) << width << ": " << line;
    EXPECT_EQ(line.find('\x1b'), std::string::npos) << line;
    for (size_t i = 0; i < line.size(); ++i) {
      const bool lead = line[i] == '\xc3' && (i + 1 == line.size() || line[i + 1] != '\xbc');
      const bool orphan = line[i] == '\xbc' && (i == 0 || line[i - 1] != '\xc3');
      EXPECT_FALSE(lead || orphan) << width << ": " << line;
    }
    if (width >= 80 && width < 200) {
      EXPECT_NE(line.find("..."), std::string::npos) << line;
    }
    if (width >= 132) {
      EXPECT_EQ(line.substr(line.size() - 4), "\xc3\xbc/x") << line;
    }
    if (width <= 50) {
      EXPECT_EQ(line.find('['), std::string::npos) << line;
    }
  }
}

// On a terminal the line is redrawn in place at most ten times a second; a note blanks it, goes above it
// and the line comes back; finish draws the last state and ends the line.
TEST(ProgressDisplay, TerminalRedrawsInPlaceAtMostTenTimesASecond) {
  FakeClock t;
  std::ostringstream out;
  ProgressDisplay d(out, true, 80, t.clock());
  d.update(event("a.com", "a-rather-long-mailbox-name", 0, 10));
  d.update(event("a.com", "b", 1, 10));  // within 100 ms: not drawn
  EXPECT_EQ(count(out.str(), '\r'), 1u);
  EXPECT_EQ(out.str().find('\n'), std::string::npos);
  t.advance(100);
  d.update(event("a.com", "b", 1, 10));
  // The shorter line blanks the tail of the longer one: "\r" line blanks "\r" line.
  EXPECT_EQ(count(out.str(), '\r'), 3u);
  EXPECT_EQ(out.str().substr(out.str().rfind('\r') + 1), d.statusLine());
  t.advance(50);
  d.tick();
  EXPECT_EQ(count(out.str(), '\r'), 3u);
  t.advance(50);
  d.tick();
  EXPECT_EQ(count(out.str(), '\r'), 4u);

  const std::string blank(d.statusLine().size(), ' ');
  d.note("server warning: x");
  EXPECT_NE(out.str().find("\r" + blank + "\rserver warning: x\n\r"), std::string::npos) << out.str();
  d.update(event("a.com", "mary", 2, 2));  // throttled, but finish draws the last state
  d.finish("Done.");
  EXPECT_EQ(out.str().substr(out.str().rfind('\r') + 1), d.statusLine() + "\nDone.\n");
}

TEST(ProgressDisplay, PlainOutputWritesOneLinePerChangeAndNoCarriageReturns) {
  FakeClock t;
  std::ostringstream out;
  ProgressDisplay d(out, false, 80, t.clock());
  d.tick();
  d.update(event("a.com", "", 0, 0));
  d.update(event("a.com", "john", 0, 3));
  d.update(event("a.com", "john", 0, 3));  // repeated: no new line
  t.advance(61000);
  d.update(event("a.com", "mary", 1, 3));
  d.tick();
  d.note("server warning: x");
  d.finish("Done.");
  EXPECT_EQ(out.str(),
            "[0/?] 0:00 a.com\n"
            "[0/3   0%] 0:00 a.com/john\n"
            "[1/3  33%] 1:01 a.com/mary\n"
            "server warning: x\n"
            "Done.\n");
}

}  // namespace
}  // namespace cli
}  // namespace vorlane
