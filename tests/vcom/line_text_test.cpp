// Escaping of log line text: what could start a line or drive a terminal becomes visible, what is plain
// text (UTF-8 included) stays, and the caller's own line end survives.
#include <gtest/gtest.h>

#include "vcom/line_text.h"

using vorlane::vcom::escapeControls;
using vorlane::vcom::formatLineV;

namespace {

std::string formatLine(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  std::string text = formatLineV(fmt, args);
  va_end(args);
  return text;
}

TEST(LineText, ControlCharactersAndBackslashesAreEscaped) {
  struct Case { std::string in, out; };
  for (const Case& c : {Case{"plain text\n", "plain text\n"}, Case{"a\nb\n", "a\\x0ab\n"},
                        Case{"a\n\n", "a\\x0a\n"}, Case{"\r\t\x1b[31m", "\\x0d\\x09\\x1b[31m"},
                        Case{std::string("nul\0x", 5), "nul\\x00x"}, Case{"del\x7f", "del\\x7f"},
                        Case{"C:\\x0a", "C:\\\\x0a"}, Case{"caf\xc3\xa9", "caf\xc3\xa9"}, Case{"", ""}}) {
    EXPECT_EQ(escapeControls(c.in), c.out) << c.in;
  }
}

TEST(LineText, FormattedTextIsEscapedWhateverItsLength) {
  EXPECT_EQ(formatLine("%s|%d\n", "x\ny", 5), "x\\x0ay|5\n");
  const std::string longName(3000, 'n');
  EXPECT_EQ(formatLine("open %s\t%s\n", longName.c_str(), "z"), "open " + longName + "\\x09z\n");
}

}  // namespace
