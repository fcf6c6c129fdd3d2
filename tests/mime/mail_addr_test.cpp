#include "mime/mail_addr.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace vorlane {
namespace mime {
namespace {

// personal|mailbox|host per address, "-" for a null field.
std::vector<std::string> render(const char* value) {
  std::vector<std::string> out;
  mail_addr* list = mail_addr_parse(value);
  for (const mail_addr* a = list; a != nullptr; a = a->next) {
    out.push_back(std::string(a->personal ? a->personal : "-") + "|" + a->mailbox + "|" +
                  (a->host ? a->host : "-"));
  }
  mail_addr_free(list);
  return out;
}

struct Case {
  const char* value;
  std::vector<std::string> addresses;
};

TEST(MailAddrParse, ReadsTheFormsOfEnvelopeHeaders) {
  const Case cases[] = {
      {"user@example.org", {"-|user|example.org"}},
      {"John Doe <john@x.org>", {"John Doe|john|x.org"}},
      {"John Q. Public <jqp@x>", {"John Q. Public|jqp|x"}},
      {"\"Doe, John\" <j@x>, k@y", {"Doe, John|j|x", "-|k|y"}},
      {"\"a \\\"b\\\"\" <x@y>", {"a \"b\"|x|y"}},
      {"j@x (John (the) Doe), (Ann) a@b", {"John (the) Doe|j|x", "Ann|a|b"}},
      {"<@r1,@r2:u@h>", {"-|u|h"}},
      {"first . last @ sub . example", {"-|first.last|sub.example"}},
      {"\"odd local\"@x", {"-|odd local|x"}},
      {"a@[10.0.0.1]", {"-|a|[10.0.0.1]"}},
      {"postmaster", {"-|postmaster|-"}},
      {"Team: a@x, B <b@y>; c@z", {"-|a|x", "B|b|y", "-|c|z"}},
      {"undisclosed-recipients:;", {}},
      {", ,a@b,,", {"-|a|b"}},
      {"Name <a@b> trailing junk, c@d", {"Name|a|b", "-|c|d"}},
      {"<unclosed@x", {"-|unclosed|x"}},
      {"\"unclosed <a@b>", {"-|unclosed <a@b>|-"}},  // an open quote takes the rest
      {"(only a comment)", {}},
      {"", {}},
  };
  for (const Case& c : cases) EXPECT_EQ(render(c.value), c.addresses) << c.value;
  EXPECT_EQ(mail_addr_parse(nullptr), nullptr);
}

TEST(MailAddrParse, BoundsAddressesAndFieldLengths) {
  std::string many;
  for (int i = 0; i < 1500; ++i) many += "a@b,";
  EXPECT_EQ(render(many.c_str()).size(), 1000u);

  const std::string longName(5000, 'n');
  const std::vector<std::string> one = render(("\"" + longName + "\" <" + longName + "@h>").c_str());
  ASSERT_EQ(one.size(), 1u);
  EXPECT_EQ(one[0], longName.substr(0, 1023) + "|" + longName.substr(0, 1023) + "|h");
}

// Whatever bytes arrive, parsing ends and every address has a mailbox.
TEST(MailAddrParse, ArbitraryBytesNeverBreakTheParser) {
  std::mt19937 random(822);
  const char alphabet[] = "<>@,;:.\"\\()[] \tab\x80";
  for (int round = 0; round < 3000; ++round) {
    std::string input;
    const int length = static_cast<int>(random() % 60);
    for (int i = 0; i < length; ++i) input += alphabet[random() % (sizeof alphabet - 1)];
    mail_addr* list = mail_addr_parse(input.c_str());
    for (const mail_addr* a = list; a != nullptr; a = a->next) EXPECT_NE(a->mailbox[0], 0) << input;
    mail_addr_free(list);
  }
}

}  // namespace
}  // namespace mime
}  // namespace vorlane
