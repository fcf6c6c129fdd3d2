#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "mail_struct_test_support.h"
#include "mime/parse_status.h"
#include "utils/vstd_istream.h"

namespace vorlane {
namespace mime {
namespace {

using testing::childAt;
using testing::childCount;
using testing::parseText;

// Every byte of a well-formed message lands in exactly one place: the line end before a boundary goes
// with the boundary line, boundary lines and preamble and epilogue to the multipart.
TEST(MailStructParse, AccountsPreamblePartsBoundariesAndEpilogue) {
  const std::string header = "Content-Type: multipart/mixed; boundary=\"b1\"\r\n";
  const std::string text = header + "\r\n" +
                           "preamble\r\n"
                           "--b1\r\n"
                           "Content-Type: text/plain\r\n"
                           "\r\n"
                           "hello\r\n"
                           "\r\n"
                           "--b1\r\n"
                           "\r\n"
                           "body2\r\n"
                           "--b1--\r\n"
                           "epilogue\r\n";
  auto root = parseText(text);
  ASSERT_TRUE(root);
  EXPECT_EQ(root->header_bytes, header.size());
  EXPECT_EQ(root->header_lines, 1u);
  EXPECT_EQ(root->total_bytes, text.size());
  ASSERT_EQ(childCount(root.get()), 2);

  // "hello\r\n" and the empty line, less the CRLF that belongs to the boundary; the empty line is not counted.
  const mail_struct* first = childAt(root.get(), 0);
  EXPECT_EQ(first->header_bytes, 26u);
  EXPECT_EQ(first->body_bytes, 7u);
  EXPECT_EQ(first->body_lines, 1u);
  EXPECT_EQ(first->total_bytes, 26u + 2 + 7);
  EXPECT_EQ(first->total_lines, 3u);

  // No header at all: the empty line is the whole header block; "body2" loses its CRLF to the boundary.
  const mail_struct* second = childAt(root.get(), 1);
  EXPECT_EQ(second->header_bytes, 0u);
  EXPECT_EQ(second->header_lines, 0u);
  EXPECT_EQ(second->body_bytes, 5u);
  EXPECT_EQ(second->body_lines, 1u);
  EXPECT_EQ(second->total_bytes, 7u);
  EXPECT_TRUE(second->is("text", "plain"));
  EXPECT_STREQ(second->content_params.get("charset"), "us-ascii");

  // Preamble + first boundary (16), parts (35 + 7), CRLF + boundary twice (8 + 10), epilogue (10).
  EXPECT_EQ(root->body_bytes, 86u);
  EXPECT_EQ(root->body_lines, 10u);
}

TEST(MailStructParse, PositionsPointAtTheHeaderAndTheBody) {
  const std::string text = "Content-Type: multipart/mixed; boundary=b\n\n--b\nX-A: 1\n\nbody\n--b--\n";
  auto root = parseText(text);
  ASSERT_TRUE(root);
  const mail_struct* part = root->first_child;
  ASSERT_NE(part, nullptr);
  EXPECT_EQ(root->start_pos, 0);
  EXPECT_EQ(root->body_pos, static_cast<long long>(text.find("\n\n") + 2));
  EXPECT_EQ(part->start_pos, static_cast<long long>(text.find("X-A")));
  EXPECT_EQ(part->header_pos, part->start_pos);
  EXPECT_EQ(part->body_pos, static_cast<long long>(text.find("body")));
}

TEST(MailStructParse, OuterBoundaryClosesOpenInnerParts) {
  const std::string text =
      "Content-Type: multipart/mixed; boundary=out\n\n"
      "--out\n"
      "Content-Type: multipart/alternative; boundary=in\n\n"
      "--in\n\ntext\n"
      "--out\n\nsecond\n"
      "--out--\n";
  auto root = parseText(text);
  ASSERT_TRUE(root);
  ASSERT_EQ(childCount(root.get()), 2);
  const mail_struct* inner = childAt(root.get(), 0);
  EXPECT_TRUE(inner->is("multipart", "alternative"));
  EXPECT_EQ(childCount(inner), 1);
  EXPECT_TRUE(childAt(root.get(), 1)->is("text", "plain"));
  EXPECT_EQ(root->total_bytes, text.size());
  // The inner part runs from its header to "text" without the LF before the outer boundary.
  const size_t inner_start = text.find("Content-Type: multipart/alternative");
  EXPECT_EQ(inner->total_bytes, text.find("\n--out\n\nsecond") - inner_start);
}

// A nested multipart that reuses its parent's boundary must find its own first boundary line, not take it
// for the parent's; from then on the innermost copy answers.
TEST(MailStructParse, MultipartReusingItsParentsBoundaryFindsItsOwnFirstBoundary) {
  const std::string text =
      "Content-Type: multipart/mixed; boundary=b\n\n"
      "--b\n"
      "Content-Type: multipart/mixed; boundary=b\n\n"
      "--b\n\none\n--b\n\ntwo\n--b--\n"
      "--b--\n";
  auto root = parseText(text);
  ASSERT_TRUE(root);
  ASSERT_EQ(childCount(root.get()), 1);
  EXPECT_EQ(childCount(root->first_child), 2);
  EXPECT_EQ(root->total_bytes, text.size());
}

TEST(MailStructParse, EnclosedMessageIsTheOnlyChildOfItsRfc822Part) {
  const std::string enclosed = "Subject: inner\nContent-Type: text/html\n\n<p>x</p>\n";
  const std::string text = "Content-Type: message/rfc822\n\n" + enclosed;
  auto root = parseText(text);
  ASSERT_TRUE(root);
  ASSERT_EQ(childCount(root.get()), 1);
  EXPECT_TRUE(root->first_child->is("text", "html"));
  EXPECT_STREQ(root->first_child->envelope.subject.get(), "inner");
  EXPECT_EQ(root->body_bytes, enclosed.size());
  EXPECT_EQ(root->total_bytes, text.size());

  // Encoded, it is an opaque leaf.
  auto encoded = parseText("Content-Type: message/rfc822\nContent-Transfer-Encoding: BASE64\n\nU3ViamVjdDogeA==\n");
  ASSERT_TRUE(encoded);
  EXPECT_EQ(encoded->first_child, nullptr);
  EXPECT_EQ(encoded->body_bytes, 17u);
}

TEST(MailStructParse, DefaultsMissingContentHeaders) {
  auto root = parseText("Subject: x\n\nbody\n");
  ASSERT_TRUE(root);
  EXPECT_TRUE(root->is("text", "plain"));
  EXPECT_STREQ(root->content_params.get("charset"), "us-ascii");
  EXPECT_STREQ(root->encoding.get(), "7bit");
  EXPECT_EQ(root->envelope.priority, 3);

  auto charset = parseText("Content-Type: Text/HTML; charset=utf-8\nContent-Transfer-Encoding: quoted-printable x\n\n");
  ASSERT_TRUE(charset);
  EXPECT_STREQ(charset->content_type.get(), "Text");
  EXPECT_STREQ(charset->content_subtype.get(), "HTML");
  EXPECT_STREQ(charset->content_params.get("charset"), "utf-8");
  EXPECT_EQ(charset->content_params.size(), 1u);
  EXPECT_STREQ(charset->encoding.get(), "quoted-printable");
}

// Broken structure is never an error: the part becomes plain text and the counts stay whole.
TEST(MailStructParse, MalformedStructureDegradesToPlainText) {
  struct Case {
    const char* name;
    std::string text;
    uint32_t body_bytes;
  };
  const Case cases[] = {
      {"no header and no empty line", "just a line of text\nand another", 0},
      {"multipart without boundary", "Content-Type: multipart/mixed\n\n--x\nbody\n", 9},
      {"first boundary never comes", "Content-Type: multipart/mixed; boundary=b\n\npreamble only\n--c\n", 18},
      {"empty file", "", 0},
  };
  for (const Case& c : cases) {
    auto root = parseText(c.text);
    ASSERT_TRUE(root) << c.name;
    EXPECT_TRUE(root->is("text", "plain")) << c.name;
    ASSERT_EQ(root->content_params.size(), 1u) << c.name;
    EXPECT_STREQ(root->content_params.get("charset"), "us-ascii") << c.name;
    EXPECT_EQ(root->first_child, nullptr) << c.name;
    EXPECT_EQ(root->body_bytes, c.body_bytes) << c.name;
    EXPECT_EQ(root->total_bytes, c.text.size()) << c.name;
  }
}

TEST(MailStructParse, HeaderCutShortByABoundaryBecomesAnEmptyPlainPart) {
  const std::string text =
      "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: image/png; name=x.png\n--b\n\nok\n--b--\n";
  auto root = parseText(text);
  ASSERT_TRUE(root);
  ASSERT_EQ(childCount(root.get()), 2);
  const mail_struct* cut = childAt(root.get(), 0);
  EXPECT_TRUE(cut->is("text", "plain"));
  EXPECT_EQ(cut->content_params.get("name"), nullptr);
  EXPECT_EQ(cut->body_bytes, 0u);
  EXPECT_EQ(root->total_bytes, text.size());
}

std::string nestedRfc822(int levels) {
  std::string text;
  for (int i = 0; i < levels; ++i) text += "Content-Type: message/rfc822\n\n";
  return text + "body\n";
}

mail_struct* parseWithOutcome(std::istream& in, const std::atomic<bool>* stop, parse_outcome& outcome) {
  utils::VStdIStream stream(&in);
  return mail_struct::parse(&stream, stop, &outcome);
}

std::string partsMessage(size_t children) {
  std::string text = "Content-Type: multipart/mixed; boundary=b\n\n";
  for (size_t i = 0; i < children; ++i) text += "--b\n\nx\n";
  return text + "--b--\n";
}

// A message nested too deep or with too many parts has no tree at all, and the caller learns why; the
// failure propagates through every enclosing part.
TEST(MailStructParse, TooDeepOrTooManyPartsFailsTheWholeMessage) {
  struct Case {
    const char* name;
    std::string text;
    parse_outcome outcome;
  };
  const Case cases[] = {
      {"200 levels", nestedRfc822(MIME_MAX_DEPTH), parse_outcome::parsed},
      {"201 levels", nestedRfc822(MIME_MAX_DEPTH + 1), parse_outcome::too_deep},
      {"201 levels inside a multipart",
       "Content-Type: multipart/mixed; boundary=b\n\n--b\n" + nestedRfc822(MIME_MAX_DEPTH) + "--b--\n",
       parse_outcome::too_deep},
      // The root counts as a part.
      {"as many parts as allowed", partsMessage(MIME_MAX_PARTS - 1), parse_outcome::parsed},
      {"one part too many", partsMessage(MIME_MAX_PARTS), parse_outcome::too_many_parts},
      {"one part too many, nested", nestedRfc822(3) + partsMessage(MIME_MAX_PARTS - 3),
       parse_outcome::too_many_parts},
  };
  for (const Case& c : cases) {
    std::istringstream in(c.text);
    parse_outcome outcome = parse_outcome::stopped;
    std::unique_ptr<mail_struct> tree(parseWithOutcome(in, nullptr, outcome));
    EXPECT_EQ(outcome, c.outcome) << c.name;
    EXPECT_EQ(tree != nullptr, c.outcome == parse_outcome::parsed) << c.name;
  }
}

// An input that never ends, repeating one pattern; only a stop request can end a parse of it.
class EndlessInput : public std::streambuf {
 public:
  EndlessInput(std::string head, std::string pattern) : head_(std::move(head)), pattern_(std::move(pattern)) {
    setg(&head_[0], &head_[0], &head_[0] + head_.size());
  }

 private:
  int_type underflow() override {
    chunk_.clear();
    while (chunk_.size() < 65536) chunk_ += pattern_;
    setg(&chunk_[0], &chunk_[0], &chunk_[0] + chunk_.size());
    return traits_type::to_int_type(chunk_[0]);
  }
  std::string head_;
  std::string pattern_;
  std::string chunk_;
};

TEST(MailStructParse, StopRequestEndsAParseOfEndlessInput) {
  struct Case {
    const char* name;
    const char* head;
    std::string pattern;
  };
  const Case cases[] = {
      {"body of short lines", "Subject: x\n\n", "short line\n"},
      {"lines of uuencoded data", "\nbegin 644 f\n", "M" + std::string(60, 'A') + "\n"},
      {"one line without end", "\n", "x"},
      {"header continued for ever", "Subject: x\n", " more\n"},
      {"parts of a multipart", "Content-Type: multipart/mixed; boundary=b\n\n", "--b\nContent-Type: text/plain\n\nx\n"},
  };
  for (const Case& c : cases) {
    EndlessInput endless(c.head, c.pattern);
    std::istream in(&endless);
    std::atomic<bool> stop(false);
    std::thread stopper([&stop] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      stop.store(true);
    });
    parse_outcome outcome = parse_outcome::parsed;
    const auto start = std::chrono::steady_clock::now();
    std::unique_ptr<mail_struct> tree(parseWithOutcome(in, &stop, outcome));
    const auto took = std::chrono::steady_clock::now() - start;
    stopper.join();
    EXPECT_EQ(tree, nullptr) << c.name;
    // The parts case may meet the part limit first; either way the parse ends without a tree.
    EXPECT_TRUE(outcome == parse_outcome::stopped || outcome == parse_outcome::too_many_parts) << c.name;
    EXPECT_LT(took, std::chrono::seconds(5)) << c.name;
  }
}

TEST(MailStructParse, MultipartInsideSixtyFiveBoundariesIsReadAsPlainText) {
  const int levels = MIME_MAX_BOUNDARY_LEVEL + 2;  // multiparts at boundary levels 0..65
  std::string text;
  for (int i = 0; i < levels; ++i) {
    text += "Content-Type: multipart/mixed; boundary=b" + std::to_string(i) + "\n\n--b" + std::to_string(i) + "\n";
  }
  text += "deepest\n";
  for (int i = levels - 1; i >= 0; --i) text += "--b" + std::to_string(i) + "--\n";
  auto root = parseText(text);
  ASSERT_TRUE(root);
  const mail_struct* node = root.get();
  for (int level = 0; level < levels - 1; ++level) {
    ASSERT_TRUE(node->is("multipart", "mixed")) << level;
    node = node->first_child;
    ASSERT_NE(node, nullptr) << level;
  }
  EXPECT_TRUE(node->is("text", "plain"));
  EXPECT_EQ(node->first_child, nullptr);
  EXPECT_EQ(root->total_bytes, text.size());
}

// Whole continuation lines are dropped once the unfolded header would reach the buffer size; shorter ones
// after them still fit, and the raw counts keep every byte.
TEST(MailStructParse, OverlongHeadersAreTruncatedByWholeContinuationLines) {
  const std::string a(9000, 'a');
  const std::string b(9000, 'b');
  const std::string header = "Subject: " + a + "\r\n " + b + "\r\n c\r\nContent-Type: text/html\r\n";
  auto root = parseText(header + "\r\nbody\r\n");
  ASSERT_TRUE(root);
  EXPECT_EQ(std::string(root->envelope.subject.get()), a + " c");
  EXPECT_TRUE(root->is("text", "html"));
  EXPECT_EQ(root->header_bytes, header.size());
  EXPECT_EQ(root->header_lines, 4u);

  // A single header line longer than a line buffer arrives in pieces and must not break anything.
  const std::string huge = "X-Long: " + std::string(3 * MIME_LINE_MAX, 'z') + "\nContent-Type: text/rtf\n";
  auto pieces = parseText(huge + "\nbody\n");
  ASSERT_TRUE(pieces);
  EXPECT_TRUE(pieces->is("text", "rtf"));
  EXPECT_EQ(pieces->header_bytes, huge.size());
}

// Lines are read as a C string into a 16384-byte buffer: a piece holds at most 16383 bytes and each piece
// counts as a line. The expected counts come from that rule alone: cut every line into 16383-byte pieces;
// before a boundary the last piece gives up its line end, and the piece is not counted when nothing else
// was in it.
struct BodyCount {
  uint32_t bytes = 0;
  uint32_t lines = 0;
};

BodyCount expectedBody(const std::vector<std::string>& lines, bool before_boundary) {
  const size_t piece_max = 16383;
  std::vector<std::string> pieces;
  for (const std::string& line : lines) {
    for (size_t at = 0; at < line.size(); at += piece_max) pieces.push_back(line.substr(at, piece_max));
  }
  BodyCount count;
  for (const std::string& piece : pieces) count.bytes += static_cast<uint32_t>(piece.size());
  count.lines = static_cast<uint32_t>(pieces.size());
  if (before_boundary && !pieces.empty()) {
    const std::string& last = pieces.back();
    const size_t end = last.size() >= 2 && last.compare(last.size() - 2, 2, "\r\n") == 0 ? 2
                       : !last.empty() && (last.back() == '\n' || last.back() == '\r') ? 1
                                                                                        : 0;
    count.bytes -= static_cast<uint32_t>(end);
    if (last.size() == end) --count.lines;
  }
  return count;
}

TEST(MailStructParse, LongLinesAreCountedInPiecesOfAtMost16383Bytes) {
  for (size_t length = 16380; length <= 16386; ++length) {
    for (const std::string eol : {"\n", "\r\n", ""}) {
      const std::string line = std::string(length - eol.size(), 'x') + eol;
      const std::string tail = "tail" + std::string(eol.empty() ? "\n" : eol);
      struct Place {
        const char* name;
        std::vector<std::string> body;
        bool before_boundary;
      };
      // A line without a line end can only be the last line of the input.
      std::vector<Place> places = {{"last line at the end of input", {tail, line}, false}};
      if (!eol.empty()) {
        places.push_back({"middle of a body", {line, tail}, true});
        places.push_back({"middle of a body at the end of input", {line, tail}, false});
        places.push_back({"last line before a boundary", {tail, line}, true});
      }
      for (const Place& place : places) {
        std::string body;
        for (const std::string& l : place.body) body += l;
        const std::string text = "Content-Type: multipart/mixed; boundary=b\n\n--b\n\n" + body +
                                 (place.before_boundary ? "--b--\n" : "");
        auto root = parseText(text);
        ASSERT_TRUE(root);
        ASSERT_NE(root->first_child, nullptr);
        const BodyCount expected = expectedBody(place.body, place.before_boundary);
        const std::string what = std::to_string(length) + " bytes, eol " + std::to_string(eol.size()) + ", " +
                                 place.name;
        EXPECT_EQ(root->first_child->body_bytes, expected.bytes) << what;
        EXPECT_EQ(root->first_child->body_lines, expected.lines) << what;
        EXPECT_EQ(root->total_bytes, text.size()) << what;
      }
    }
  }
}

std::string shapeOf(const mail_struct* node) {
  if (node->first_child == nullptr) return node->is("text", "plain") ? "T" : "L";
  std::string shape = node->is("message", "rfc822") ? "R[" : "M[";
  for (const mail_struct* c = node->first_child; c != nullptr; c = c->next_sibling) shape += shapeOf(c);
  return shape + "]";
}

// The part whose first boundary never comes is read on as a plain leaf past the line that ended its
// preamble, up to the next boundary line or the end of input; that line itself is counted by no part.
TEST(MailStructParse, FailedPreambleIsReadOnAsAPlainLeaf) {
  for (const std::string e : {"\r\n", "\n"}) {
    const std::string root_header = "Content-Type: multipart/mixed; boundary=\"outer\"" + e;
    const std::string child_header = "Content-Type: multipart/alternative; boundary=\"inner\"" + e;
    const std::string text = root_header + e + "--outer" + e + child_header + e + "preamble line" + e +
                             "--outer" + e + "Content-Type: text/html" + e + e + "<p>x</p>" + e + "--outer--" + e;
    // The text/html part is no part: its lines belong to the degraded leaf.
    const std::string leaf_text = "preamble line" + e + "Content-Type: text/html" + e + e + "<p>x</p>" + e;
    const std::string lost = "--outer" + e;
    auto root = parseText(text);
    ASSERT_TRUE(root) << e.size();
    EXPECT_EQ(shapeOf(root.get()), "M[T]");
    const mail_struct* leaf = root->first_child;
    EXPECT_STREQ(leaf->content_params.get("charset"), "us-ascii");
    EXPECT_EQ(leaf->header_bytes, child_header.size());
    EXPECT_EQ(leaf->body_bytes, leaf_text.size() - e.size());
    EXPECT_EQ(leaf->body_lines, 4u);
    EXPECT_EQ(leaf->total_lines, 6u);
    EXPECT_EQ(root->header_bytes, root_header.size());
    EXPECT_EQ(root->body_lines, 8u);
    EXPECT_EQ(root->total_lines, 10u);
    EXPECT_EQ(root->total_bytes, text.size() - lost.size());
    if (e == "\r\n") {
      EXPECT_EQ(text.size(), 189u);
      EXPECT_EQ(leaf->total_bytes, 107u);
      EXPECT_EQ(root->body_bytes, 129u);
    }
  }

  struct Case {
    const char* name;
    std::string text;
    const char* shape;
    std::string lost;       // the line that ended the preamble
    std::string leaf_body;  // what the degraded part counts as its body
  };
  const Case cases[] = {
      {"ended by the end of input", "Content-Type: multipart/mixed; boundary=b\n\npreamble\n", "T", "",
       "preamble\n"},
      {"ended by an outer closing boundary, read on to the end of input",
       "Content-Type: multipart/mixed; boundary=o\n\n--o\nContent-Type: multipart/mixed; boundary=i\n\n"
       "x\n--o--\ntail\n",
       "M[T]", "--o--\n", "x\ntail\n"},
      {"nested inside a multipart inside a multipart",
       "Content-Type: multipart/mixed; boundary=o\n\n--o\nContent-Type: multipart/mixed; boundary=m\n\n--m\n"
       "Content-Type: multipart/mixed; boundary=i\n\np\n--m\nContent-Type: text/html\n\n<b>\n--m--\n--o--\n",
       "M[M[T]]", "--m\n", "p\nContent-Type: text/html\n\n<b>"},
      {"a multipart header behind the failed preamble is only text",
       "Content-Type: multipart/mixed; boundary=o\n\n--o\nContent-Type: multipart/mixed; boundary=i\n\n"
       "--o\nContent-Type: multipart/mixed; boundary=j\n\nq\n--o--\n",
       "M[T]", "--o\n", "Content-Type: multipart/mixed; boundary=j\n\nq"},
  };
  for (const Case& c : cases) {
    auto root = parseText(c.text);
    ASSERT_TRUE(root) << c.name;
    EXPECT_EQ(shapeOf(root.get()), c.shape) << c.name;
    EXPECT_EQ(root->total_bytes, c.text.size() - c.lost.size()) << c.name;
    const mail_struct* leaf = root.get();
    while (leaf->first_child != nullptr) leaf = leaf->first_child;
    EXPECT_EQ(leaf->body_bytes, c.leaf_body.size()) << c.name;
  }
}

// A header's name is everything before its first colon: a blank before the colon makes it another name,
// which the part does not keep, so the field stays at its default.
TEST(MailStructParse, HeaderNamesAreCutAtTheColonAsTheyStand) {
  struct Case {
    const char* name;
    const char* value;
    const char* stored;  // the field when the header is taken
    const char* (*field)(const mail_struct&);
  };
  const Case cases[] = {
      {"Content-Transfer-Encoding", "base64", "base64", [](const mail_struct& m) { return m.encoding.get(); }},
      {"Content-Disposition", "attachment", "attachment", [](const mail_struct& m) { return m.disposition.get(); }},
      {"Content-Description", "d", "d", [](const mail_struct& m) { return m.content_description.get(); }},
      {"Content-ID", "<i>", "<i>", [](const mail_struct& m) { return m.content_id.get(); }},
      {"Content-MD5", "m", "m", [](const mail_struct& m) { return m.content_md5.get(); }},
      {"Content-Location", "l", "l", [](const mail_struct& m) { return m.content_location.get(); }},
      {"Content-Class", "c", "c", [](const mail_struct& m) { return m.content_class.get(); }},
      {"Content-Type", "image/png", "image", [](const mail_struct& m) { return m.content_type.get(); }},
      {"Subject", "s", "s", [](const mail_struct& m) { return m.envelope.subject.get(); }},
      {"Message-ID", "<id>", "<id>", [](const mail_struct& m) { return m.envelope.message_id.get(); }},
  };
  for (const Case& c : cases) {
    for (const char* gap : {"", " ", "\t", "  "}) {
      auto root = parseText(std::string(c.name) + gap + ": " + c.value + "\n\nbody\n");
      ASSERT_TRUE(root);
      const char* got = c.field(*root);
      EXPECT_EQ(got != nullptr && std::string(got) == c.stored, *gap == '\0') << c.name << " gap '" << gap << "'";
    }
  }
}

}  // namespace
}  // namespace mime
}  // namespace vorlane
