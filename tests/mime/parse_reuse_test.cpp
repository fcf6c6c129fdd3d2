// Trees built from a pool's recycled nodes: whatever the messages before it set, a parse that takes its
// nodes from the pool gives exactly the tree of a parse with new nodes, and the pool stays bounded.
#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "mime/mail_struct.h"
#include "mime/mail_struct_pool.h"
#include "utils/vstd_istream.h"

namespace vorlane {
namespace mime {
namespace {

void dumpText(std::ostream& out, const char* label, const char* text) {
  out << label << '=' << (text != nullptr ? text : "(null)") << ';';
}

void dumpTexts(std::ostream& out, std::initializer_list<std::pair<const char*, const char*>> fields) {
  for (const auto& f : fields) dumpText(out, f.first, f.second);
}

void dumpParams(std::ostream& out, const char* label, const mail_attr_list& params) {
  out << label << '[';
  for (const mail_attr& a : params) out << a.name << '=' << a.value << ';';
  out << ']';
}

void dumpCounts(std::ostream& out, const common_mail_struct& s) {
  out << s.header_bytes << '/' << s.header_lines << '/' << s.total_bytes << '/' << s.total_lines << ';';
}

// Every field of every node, depth first.
void dump(std::ostream& out, const mail_struct* node) {
  for (; node != nullptr; node = node->next_sibling) {
    out << "{";
    dumpCounts(out, *node);
    dumpTexts(out, {{"type", node->content_type.get()}, {"subtype", node->content_subtype.get()},
                    {"encoding", node->encoding.get()}, {"id", node->content_id.get()},
                    {"description", node->content_description.get()}, {"md5", node->content_md5.get()},
                    {"location", node->content_location.get()}, {"class", node->content_class.get()},
                    {"disposition", node->disposition.get()}});
    dumpParams(out, "params", node->content_params);
    dumpParams(out, "dparams", node->disposition_params);
    out << int(node->uuencoded) << ';' << node->start_pos << ';' << node->body_pos << ';' << node->body_bytes << ';'
        << node->body_lines << ';' << node->header_pos << ';';
    const mail_struct_envelope& e = node->envelope;
    dumpCounts(out, e);
    dumpTexts(out, {{"date", e.date.get()}, {"subject", e.subject.get()}, {"in-reply-to", e.in_reply_to.get()},
                    {"message-id", e.message_id.get()}, {"context", e.message_context.get()},
                    {"newsgroups", e.newsgroups.get()}, {"dnt", e.disposition_notification_to.get()},
                    {"etype", e.content_type.get()}, {"esubtype", e.content_subtype.get()}});
    out << e.priority << ';' << e.has_attachment << ';' << e.x_priority << ';' << e.importance << ';';
    for (const owned_str& a : e.address_text) dumpText(out, "addr", a.get());
    dumpParams(out, "eparams", e.content_params);
    dump(out, node->first_child);
    out << "}";
  }
}

std::string dumpOf(const mail_struct* tree) {
  std::ostringstream out;
  if (tree == nullptr) return "no tree";
  dump(out, tree);
  return out.str();
}

mail_struct* parseText(const std::string& text, mail_struct_pool* pool) {
  std::istringstream in(text);
  utils::VStdIStream stream(&in);
  return mail_struct::parse(&stream, nullptr, nullptr, pool);
}

std::string part(const std::string& boundary, const std::string& headers, const std::string& body) {
  return "--" + boundary + "\r\n" + headers + "\r\n" + body;
}

// Sets every field the parser knows, on more parts than a pool keeps, with values longer than it keeps.
std::string richMessage() {
  std::string text =
      "Date: Tue, 3 Mar 2026 10:00:00 +0100 (CET)\r\nSubject: " + std::string(700, 's') +
      "\r\nIn-Reply-To: <a@x>\r\nMessage-ID: <b@x>\r\nMessage-Context: voice\r\nImportance: high\r\n"
      "X-Priority: 2\r\nFrom: a@x\r\nSender: b@x\r\nReply-To: c@x\r\nTo: d@x,\r\n e@x\r\nCc: f@x\r\nBcc: g@x\r\n"
      "Newsgroups: comp.mail\r\nDisposition-Notification-To: a@x\r\n"
      "Content-Type: multipart/mixed; boundary=\"outer\"; x-extra=1\r\n\r\npreamble\r\n";
  text += part("outer",
               "Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: 8bit\r\n"
               "Content-ID: <p1>\r\nContent-Description: the text\r\nContent-MD5: abc=\r\n"
               "Content-Location: here\r\nContent-Class: urn:content\r\n"
               "Content-Disposition: inline; filename=\"a.txt\"; size=3\r\n",
               "begin 644 f\r\nM" + std::string(60, 'A') + "\r\n#86)C\r\n`\r\nend\r\n");
  text += part("outer", "Content-Type: message/rfc822\r\n",
               "Subject: inner\r\nContent-Type: text/html; charset=latin1\r\n\r\n<p>\r\n");
  for (int i = 0; i < 40; ++i) {
    text += part("outer", "Content-Type: application/octet-stream; name=\"f" + std::to_string(i) + "\"\r\n", "x\r\n");
  }
  return text + "--outer--\r\nepilogue\r\n";
}

// Nested deeper than the parser goes: no tree, and the nodes made so far are dropped.
std::string deepMessage() {
  std::string text;
  for (int i = 0; i <= MIME_MAX_DEPTH; ++i) text += "Content-Type: message/rfc822\r\n\r\n";
  return text;
}

TEST(ParseReuse, PooledTreesEqualFreshOnes) {
  const std::vector<std::string> messages = {
      richMessage(),
      "just a body\r\n",
      "Subject: header that runs into the end",
      "Content-Type: multipart/alternative\r\n\r\nno boundary\r\n",
      deepMessage(),
      "",
      richMessage(),
      "Date: Wed, 4 Mar 2026 (a (nested) comment)\r\n\r\nbody\r\n",
  };
  mail_struct_pool pool;
  // Twice round, so that every message also follows every other one.
  for (int round = 0; round < 2; ++round) {
    for (size_t i = 0; i < messages.size(); ++i) {
      std::unique_ptr<mail_struct> fresh(parseText(messages[i], nullptr));
      mail_struct* pooled = parseText(messages[i], &pool);
      EXPECT_EQ(dumpOf(pooled), dumpOf(fresh.get())) << "message " << i << ", round " << round;
      pool.give_back(pooled);
      EXPECT_LE(pool.size(), MIME_POOL_NODES) << "message " << i;
    }
  }
}

}  // namespace
}  // namespace mime
}  // namespace vorlane
