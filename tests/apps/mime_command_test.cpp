// vstat mime through the program's parser: the part tree and the classification, as text and as JSON.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "terminal_text.h"
#include "vstat_test_support.h"

namespace vorlane {
namespace cli {
namespace {

class MimeCommandTest : public ::testing::Test {
 protected:
  VstatRun mime(std::vector<std::string> args) {
    args.insert(args.begin(), "mime");
    return runVstatWith(args);
  }

  testing::TempDir dir_;
};

// Counts worked out by hand: header 42 bytes + empty line; preamble "--b\n" (4); the part's empty header
// line (1) and "hi" without the LF that goes to the closing boundary (2); LF + "--b--\n" (7). The scan
// counts the mixed message's first part, a plain text of 3 bytes, as its text body.
TEST_F(MimeCommandTest, JsonOutputCarriesEveryCountOfEveryPart) {
  const std::string path = dir_.write("m.eml", "Content-Type: multipart/mixed; boundary=b\n\n--b\n\nhi\n--b--\n");
  const VstatRun r = mime({"--json", path});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            "{\"file\":\"" + path +
                "\",\"parsed\":true,\"tree\":{\"type\":\"multipart\",\"subtype\":\"mixed\",\"header_bytes\":42,"
                "\"header_lines\":1,\"body_bytes\":14,\"body_lines\":4,\"total_bytes\":57,\"total_lines\":6,"
                "\"uuencoded\":false,\"children\":[{\"type\":\"text\",\"subtype\":\"plain\",\"header_bytes\":0,"
                "\"header_lines\":0,\"body_bytes\":2,\"body_lines\":1,\"total_bytes\":3,\"total_lines\":2,"
                "\"uuencoded\":false,\"children\":[]}]},\"classification\":{\"header\":42,\"plain\":3,"
                "\"html\":0,\"rtf\":0,\"signed\":false,\"encrypted\":false}}\n");
}

TEST_F(MimeCommandTest, TextOutputIndentsChildrenUnderTheirPart) {
  const std::string path = dir_.write("fwd.eml",
                                     "Content-Type: multipart/mixed; boundary=\"x y\"\n\n--x y\n"
                                     "Content-Type: message/rfc822\n\nSubject: inner\n\nbegin 644 f\n#86)C\nend\n"
                                     "--x y--\n");
  const VstatRun r = mime({path});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string& text = r.out;
  EXPECT_NE(text.find("\nmultipart/mixed boundary=\"x y\" header "), std::string::npos) << text;
  EXPECT_NE(text.find("\n  message/rfc822 header 29B/1L"), std::string::npos) << text;
  EXPECT_NE(text.find("\n    text/plain header 15B/1L body 21B/3L total 37B/5L uuencoded\n"), std::string::npos)
      << text;
  // A forwarded message as the first part of a mixed one contributes no body.
  EXPECT_NE(text.find("\ncounted as: header 46, plain text 0, HTML 0, RTF 0, signed no, encrypted no\n"),
            std::string::npos)
      << text;
}

TEST_F(MimeCommandTest, RejectedMessageIsReportedAsNotParsed) {
  std::string deep;
  for (int i = 0; i < 201; ++i) deep += "Content-Type: message/rfc822\n\n";
  const std::string path = dir_.write("deep.eml", deep);
  EXPECT_EQ(mime({"--json", path}).out,
            "{\"file\":\"" + path +
                "\",\"parsed\":false,\"tree\":null,\"classification\":{\"header\":0,\"plain\":0,"
                "\"html\":0,\"rtf\":0,\"signed\":false,\"encrypted\":false}}\n");
}

// After "--" a name that starts with a hyphen is a file.
TEST_F(MimeCommandTest, UnreadableFilesAreNamedAndTheOthersStillShown) {
  const std::string good = dir_.write("good.eml", "\nbody\n");
  const std::string missing = dir_.file("missing.eml");
  const std::string fifo = dir_.file("fifo.eml");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const VstatRun r = mime({"--json", "--", missing, fifo, good, "-not-there"});
  EXPECT_EQ(r.status, 1);
  for (const std::string& error :
       {missing + ": No such file", fifo + ": not a regular file", std::string("-not-there: No such")}) {
    EXPECT_NE(r.err.find(error), std::string::npos) << r.err;
  }
  EXPECT_EQ(r.out.find("missing"), std::string::npos);
  EXPECT_NE(r.out.find("\"file\":\"" + good + "\""), std::string::npos);
}

// A sender controls the content type and the boundary; a file name may hold any bytes. None of them may
// reach the terminal as a control sequence; in JSON they are escaped by its own rules, and bytes that
// are not UTF-8 become U+FFFD so the line still parses.
TEST_F(MimeCommandTest, TextFromTheMessageIsEscapedInBothForms) {
  const std::string path = dir_.write("evil\x1b]0;x\x07.eml",
                                      "Content-Type: multipart/x\x1b[2J\x9b; boundary=\"b\x1b\"\n\n--b\x1b\n\nhi\n--b\x1b--\n");
  const std::string text = mime({path}).out;
  EXPECT_EQ(text.find('\x1b'), std::string::npos) << text;
  EXPECT_EQ(text.find('\x9b'), std::string::npos) << text;
  EXPECT_NE(text.find("evil\\x1b]0;x\\x07.eml ("), std::string::npos) << text;
  EXPECT_NE(text.find("\nmultipart/x\\x1b[2J\\x9b boundary=\"b\\x1b\" header"), std::string::npos) << text;

  const std::string json = mime({"--json", path}).out;
  EXPECT_NE(json.find("evil\\u001b]0;x\\u0007.eml"), std::string::npos) << json;
  EXPECT_NE(json.find("\"subtype\":\"x\\u001b[2J\xef\xbf\xbd\""), std::string::npos) << json;
}

TEST(TerminalText, ControlsAndInvalidBytesBecomeVisibleEscapes) {
  struct Case { const char* in; const char* out; };
  for (const Case& c : {Case{"plain \\ text", "plain \\ text"}, Case{"\x1b[2J\r\n\t\x7f", "\\x1b[2J\\x0d\\x0a\\x09\\x7f"},
                        Case{"gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80", "gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80"},
                        Case{"c1 \xc2\x9b \x9b", "c1 \\xc2\\x9b \\x9b"}, Case{"cut\xc3", "cut\\xc3"},
                        Case{"overlong\xc0\xaf", "overlong\\xc0\\xaf"}, Case{"surrogate\xed\xa0\x80", "surrogate\\xed\\xa0\\x80"}}) {
    EXPECT_EQ(terminalSafe(c.in), c.out) << c.in;
  }
}

}  // namespace
}  // namespace cli
}  // namespace vorlane
