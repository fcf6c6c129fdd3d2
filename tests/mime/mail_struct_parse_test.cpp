// The structure parser's accounting: every byte and line of a message lands in exactly one part, whatever
// the shape, the line ends and the line lengths; broken structure degrades instead of failing, and the
// limits (depth, parts, stop requests) end a parse without a tree.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <random>
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
using testing::shapeOf;
using testing::trickyBody;

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
  EXPECT_EQ(root->body_pos, static_cast<long long>(header.size() + 2));
  ASSERT_EQ(childCount(root.get()), 2);

  // "hello\r\n" and the empty line, less the CRLF that belongs to the boundary; the empty line is not counted.
  const mail_struct* first = childAt(root.get(), 0);
  EXPECT_EQ(first->start_pos, static_cast<long long>(text.find("Content-Type: text/plain")));
  EXPECT_EQ(first->header_pos, first->start_pos);
  EXPECT_EQ(first->body_pos, static_cast<long long>(text.find("hello")));
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

// Nested parts take the place their boundaries give them: an outer boundary closes the open inner parts;
// a multipart reusing its parent's boundary finds its own first boundary line, and from then on the
// innermost copy answers; a multipart inside 65 boundaries is read as plain text. `first` is the root's
// first child: closed by an outer boundary it gives up the line end before it, closed by its own closing
// boundary it keeps that line whole.
TEST(MailStructParse, NestedPartsTakeThePlaceTheirBoundariesGive) {
  const std::string closed = "Content-Type: multipart/alternative; boundary=in\n\n--in\n\ntext";
  const std::string reusing = "Content-Type: multipart/mixed; boundary=b\n\n--b\n\none\n--b\n\ntwo\n--b--\n";
  std::string deep, deep_shape, deep_end;
  for (int i = 0; i < 66; ++i) {
    const std::string b = "b" + std::to_string(i);
    deep += "Content-Type: multipart/mixed; boundary=" + b + "\n\n--" + b + "\n";
    deep_end = "--" + b + "--\n" + deep_end;
    if (i < 65) deep_shape += "M[";
  }
  deep_shape += "T" + std::string(65, ']');
  struct Case {
    std::string text;
    std::string shape;
    std::string first;
  };
  const Case cases[] = {
      {"Content-Type: multipart/mixed; boundary=out\n\n--out\n" + closed + "\n--out\n\nsecond\n--out--\n",
       "M[M[T]T]", closed},
      {"Content-Type: multipart/mixed; boundary=b\n\n--b\n" + reusing + "--b--\n", "M[M[TT]]", reusing},
      {deep + "deepest\n" + deep_end, deep_shape, deep.substr(deep.find("\n--b0\n") + 6) + "deepest\n" +
                                                       deep_end.substr(0, deep_end.rfind("--b0--"))},
  };
  for (const Case& c : cases) {
    auto root = parseText(c.text);
    ASSERT_TRUE(root) << c.shape;
    EXPECT_EQ(shapeOf(root.get()), c.shape);
    EXPECT_EQ(root->total_bytes, c.text.size()) << c.shape;
    EXPECT_EQ(root->first_child->total_bytes, c.first.size()) << c.shape;
  }
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

// `levels` enclosed messages around `inner`.
std::string nestedRfc822(int levels, const std::string& inner = "\nbody\n") {
  std::string text;
  for (int i = 0; i < levels; ++i) text += "Content-Type: message/rfc822\n\n";
  return text + inner;
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
      {"200 levels", nestedRfc822(200), parse_outcome::parsed},
      {"201 levels", nestedRfc822(201), parse_outcome::too_deep},
      {"201 levels inside a multipart",
       "Content-Type: multipart/mixed; boundary=b\n\n--b\n" + nestedRfc822(200) + "--b--\n",
       parse_outcome::too_deep},
      // At most 10,000 parts, the root counted.
      {"as many parts as allowed", partsMessage(9999), parse_outcome::parsed},
      {"one part too many", partsMessage(10000), parse_outcome::too_many_parts},
      {"one part too many, nested", nestedRfc822(3, partsMessage(9997)),
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
      {"one line without end", "\n", std::string(64, 'x')},
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
    EXPECT_TRUE(leaf->is("text", "plain"));
    EXPECT_EQ(leaf->header_bytes, child_header.size());
    EXPECT_EQ(leaf->body_bytes, leaf_text.size() - e.size());
    EXPECT_EQ(leaf->body_lines, 4u);
    EXPECT_EQ(leaf->total_lines, 6u);
    EXPECT_EQ(root->header_bytes, root_header.size());
    EXPECT_EQ(root->body_lines, 8u);
    EXPECT_EQ(root->total_lines, 10u);
    EXPECT_EQ(root->total_bytes, text.size() - lost.size());
    if (e == "\r\n") {
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
    EXPECT_TRUE(leaf->is("text", "plain")) << c.name;
    EXPECT_EQ(leaf->body_bytes, c.leaf_body.size()) << c.name;
  }
}

// Bodies far longer than the stream's 4096-byte buffer are counted a buffer-load at a time; lines that
// could be boundaries must still be recognised wherever a refill cuts them.
TEST(MailStructLongBody, BoundariesAmongLongTrickyBodiesAreFoundAndEveryByteIsCounted) {
  for (const char* eol : {"\n", "\r\n"}) {
    const std::string e = eol;
    const std::string first = trickyBody(700, eol);
    const std::string second = trickyBody(333, eol);
    const std::string text = "Content-Type: multipart/mixed; boundary=b" + e + e + "--b" + e + e + first + "--b" + e +
                             e + second + "--b--" + e;
    auto root = parseText(text);
    ASSERT_TRUE(root);
    EXPECT_EQ(root->total_bytes, text.size()) << "eol " << e.size();
    ASSERT_EQ(childCount(root.get()), 2);
    // Each part: its empty header line, then its body without the line end that belongs to the boundary.
    EXPECT_EQ(childAt(root.get(), 0)->body_bytes, first.size() - e.size());
    EXPECT_EQ(childAt(root.get(), 1)->body_bytes, second.size() - e.size());
    EXPECT_EQ(childAt(root.get(), 0)->body_lines, 700u);
  }
}

// Generated messages: random trees of multiparts (with preambles and epilogues), enclosed messages and
// leaves, with folded headers, empty lines and LF or CRLF line ends. Every well-formed message must keep
// its generated shape, and the root must account for every byte of the file.
class MessageGenerator {
 public:
  MessageGenerator(unsigned seed, const char* eol) : rng_(seed), eol_(eol) {}

  // Appends one part to `out` and its shape to `shape`: T leaf, M[...] multipart, R[...] enclosed message.
  void part(int depth, std::string& out, std::string& shape) {
    const int kind = depth < 4 ? pick(20) : 0;
    for (int i = pick(3); i > 0; --i) {
      out += "X-Header-" + std::to_string(i) + ": " + text() + eol_;
      if (pick(3) == 0) out += "\t" + text() + eol_;
    }
    if (kind >= 13) {
      const std::string boundary = "=_b" + std::to_string(++boundaries_) + "." + std::to_string(pick(1000));
      out += "Content-Type: multipart/" + std::string(pick(2) ? "mixed" : "alternative") + ";" + eol_ +
             " boundary=\"" + boundary + "\"" + eol_ + eol_;
      for (int i = pick(3); i > 0; --i) out += text() + eol_;
      shape += "M[";
      for (int i = 1 + pick(4); i > 0; --i) {
        out += "--" + boundary + eol_;
        part(depth + 1, out, shape);
      }
      out += "--" + boundary + "--" + eol_;
      for (int i = pick(3); i > 0; --i) out += text() + eol_;
      shape += "]";
    } else if (kind >= 10) {
      out += "Content-Type: message/rfc822" + eol_ + eol_;
      shape += "R[";
      part(depth + 1, out, shape);
      shape += "]";
    } else {
      static const char* const kTypes[] = {"", "text/plain; charset=utf-8", "text/html", "application/pdf"};
      const char* type = kTypes[pick(4)];
      if (*type != '\0') out += std::string("Content-Type: ") + type + eol_;
      out += eol_;
      for (int i = pick(6); i > 0; --i) out += (pick(4) == 0 ? std::string() : text()) + eol_;
      shape += "T";
    }
  }

 private:
  int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }

  // Body and header text never starts with a hyphen, so it cannot look like a boundary.
  std::string text() {
    static const char kChars[] = "abcdefghijklmnopqrstuvwxyz0123456789 =+/";
    std::string s(1, 'a' + pick(26));
    for (int i = pick(70); i > 0; --i) s += kChars[pick(sizeof kChars - 1)];
    return s;
  }

  std::mt19937 rng_;
  std::string eol_;
  int boundaries_ = 0;
};

TEST(MailStructProperty, WellFormedMessagesKeepTheirShapeAndEveryByte) {
  for (unsigned seed = 1; seed <= 400; ++seed) {
    MessageGenerator gen(seed, seed % 2 ? "\r\n" : "\n");
    std::string text = "Subject: generated " + std::to_string(seed) + (seed % 2 ? "\r\n" : "\n");
    std::string shape;
    gen.part(0, text, shape);
    auto root = parseText(text);
    ASSERT_TRUE(root) << "seed " << seed;
    EXPECT_EQ(shapeOf(root.get()), shape) << "seed " << seed;
    ASSERT_EQ(root->total_bytes, text.size()) << "seed " << seed << "\n" << text;
  }
}

}  // namespace
}  // namespace mime
}  // namespace vorlane
