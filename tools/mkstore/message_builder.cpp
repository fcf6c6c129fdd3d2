#include "mkstore/message_builder.h"

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace vorlane {
namespace mkstore {

namespace {

// Body text sizes in bytes (per-mille weights): most mail is short, a few are long reports.
const SizeBucket kTextSizes[] = {
    {200, 600, 220},     {600, 1500, 270},     {1500, 4000, 280},    {4000, 10000, 150},
    {10000, 30000, 63},  {30000, 100000, 15},  {100000, 300000, 2},
};

// Decoded attachment sizes: mostly documents and images, rarely a large archive.
const SizeBucket kAttachmentSizes[] = {
    {300, 3000, 3500},        {3000, 20000, 4000},       {20000, 100000, 1900},
    {100000, 500000, 550},    {500000, 2000000, 45},     {2000000, 8000000, 5},
};

const SizeBucket kInlineImageSizes[] = {{800, 5000, 500}, {5000, 30000, 400}, {30000, 120000, 100}};

const char* const kFirstNames[] = {"Anna", "Ben", "Clara", "David", "Eva", "Felix", "Greta", "Hugo",
                                   "Ines", "Jonas", "Karin", "Lukas", "Maria", "Noah", "Olga", "Paul",
                                   "Rosa", "Simon", "Tara", "Viktor"};
const char* const kLastNames[] = {"Berger", "Novak", "Schmidt", "Lindqvist", "Moreau", "Rossi", "Keller",
                                  "Hansen", "Dvorak", "Fischer", "Weber", "Horvat", "Jensen", "Meyer"};
const char* const kExternalDomains[] = {"partner.example.org", "supplier.example.net", "customer.example",
                                        "agency.example.com", "bank.example.org", "lists.example.net"};
const char* const kMailers[] = {"Office Mail Client 16.0", "Webmail 3.2.1", "Mobile Mail 14.4",
                                "Desktop Mail 102.9"};
const char* const kSubjectPrefixes[] = {"", "", "", "Re: ", "Re: ", "AW: ", "[team] ", "RE: "};
const char* const kEncodedSubjects[] = {"=?UTF-8?Q?Gr=C3=BC=C3=9Fe_aus_M=C3=BCnchen?=",
                                        "=?ISO-8859-1?Q?R=E9union_d=27=E9quipe?=",
                                        "=?UTF-8?B?UHLDvGZ1bmcgZGVyIFJlY2hudW5n?="};

struct AttachmentKind {
  const char* type;
  const char* nameFormat;
};
const AttachmentKind kAttachmentKinds[] = {
    {"application/pdf", "Invoice_%u.pdf"},
    {"image/jpeg", "IMG_%04u.jpg"},
    {"image/png", "screenshot-%u.png"},
    {"application/vnd.openxmlformats-officedocument.wordprocessingml.document", "Contract draft %u.docx"},
    {"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet", "Figures Q%u.xlsx"},
    {"application/zip", "logs-%u.zip"},
    {"application/octet-stream", "data_%u.bin"},
};

// Messages date from 2024-01-01 over three years.
const int64_t kFirstDate = 1704067200;
const int64_t kDateSpan = 3 * 365 * 86400;

// Civil date from days since 1970-01-01 (proleptic Gregorian), without the C library's time zone state.
void civilFromDays(int64_t days, int& year, unsigned& month, unsigned& day) {
  days += 719468;
  const int64_t era = days / 146097;
  const unsigned doe = static_cast<unsigned>(days - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  day = doy - (153 * mp + 2) / 5 + 1;
  month = mp < 10 ? mp + 3 : mp - 9;
  year = static_cast<int>(yoe + era * 400 + (month <= 2));
}

// Appends formatted header and body lines with the message's line end. Headers are the only formatted text;
// bodies come from the blocks.
class Writer {
 public:
  Writer(std::string& out, bool crlf, Prng& rng, const TextBlocks& blocks)
      : out_(out), crlf_(crlf), rng_(rng), blocks_(blocks) {}

  __attribute__((format(printf, 2, 3))) void line(const char* fmt, ...) {
    char buf[1024];
    va_list ap;
    va_start(ap, fmt);
    const int n = vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    out_.append(buf, n < 0 ? 0 : std::min<size_t>(static_cast<size_t>(n), sizeof buf - 1));
    eol();
  }
  void eol() { out_ += crlf_ ? "\r\n" : "\n"; }

  std::string& out() { return out_; }
  bool crlf() const { return crlf_; }
  Prng& rng() { return rng_; }
  const TextBlocks& blocks() const { return blocks_; }

 private:
  std::string& out_;
  bool crlf_;
  Prng& rng_;
  const TextBlocks& blocks_;
};

class Composer {
 public:
  // `boundaries` numbers the boundaries of the whole message, so nested messages never reuse one.
  Composer(Writer& w, const Party& owner, bool outgoing, unsigned& boundaries)
      : w_(w), owner_(owner), outgoing_(outgoing), boundaries_(boundaries) {}

  void message(MessageShape shape, int depth) {
    envelope(shape);
    body(shape, depth);
  }

 private:
  Prng& rng() { return w_.rng(); }

  std::string newBoundary() {
    char buf[96];
    const uint64_t r = rng().next();
    switch (rng().below(4)) {
      case 0:
        snprintf(buf, sizeof buf, "----=_Part_%u_%u.%llu", boundaries_, static_cast<unsigned>(r >> 40),
                 static_cast<unsigned long long>(r & 0xFFFFFFFFFFULL));
        break;
      case 1:
        snprintf(buf, sizeof buf, "_%03u_%016llX_", boundaries_, static_cast<unsigned long long>(r));
        break;
      case 2:
        snprintf(buf, sizeof buf, "b%u_%016llx", boundaries_, static_cast<unsigned long long>(r));
        break;
      default:
        snprintf(buf, sizeof buf, "===============%019llu%u==", static_cast<unsigned long long>(r >> 1), boundaries_);
        break;
    }
    ++boundaries_;
    return buf;
  }

  void dateText(char* buf, size_t size) {
    static const char* const kDays[] = {"Thu", "Fri", "Sat", "Sun", "Mon", "Tue", "Wed"};
    static const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const int64_t t = kFirstDate + static_cast<int64_t>(rng().below(kDateSpan));
    int year;
    unsigned month, day;
    civilFromDays(t / 86400, year, month, day);
    const unsigned secs = static_cast<unsigned>(t % 86400);
    snprintf(buf, size, "%s, %u %s %d %02u:%02u:%02u %s", kDays[(t / 86400) % 7], day, kMonths[month - 1],
             year, secs / 3600, secs / 60 % 60, secs % 60, rng().chance(500) ? "+0100" : "+0000");
  }

  void correspondent(Party& p) {
    const char* first = rng().pick(kFirstNames);
    const char* last = rng().pick(kLastNames);
    p.name = std::string(first) + " " + last;
    p.address = std::string(first) + "." + last + "@" + rng().pick(kExternalDomains);
    for (char& c : p.address) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  }

  void envelope(MessageShape shape) {
    Party other;
    correspondent(other);
    const Party& from = outgoing_ ? owner_ : other;
    const Party& to = outgoing_ ? other : owner_;
    sender_ = from.name;
    const char* toDomain = strchr(to.address.c_str(), '@') + 1;
    const char* fromDomain = strchr(from.address.c_str(), '@') + 1;
    char date[64];
    dateText(date, sizeof date);

    if (!outgoing_) {
      w_.line("Return-Path: <%s>", from.address.c_str());
      const unsigned hops = static_cast<unsigned>(rng().between(1, 5));
      for (unsigned h = 0; h < hops; ++h) {
        const unsigned host = static_cast<unsigned>(rng().between(1, 9));
        w_.line("Received: from mx%u.%s (mx%u.%s [192.0.2.%u])", host, fromDomain, host, fromDomain,
                static_cast<unsigned>(rng().between(1, 254)));
        w_.line("\tby mail.%s with ESMTPS id %08llX", toDomain, static_cast<unsigned long long>(rng().next() >> 32));
        w_.line("\tfor <%s>; %s", to.address.c_str(), date);
      }
      if (rng().chance(350)) {
        w_.out() += "DKIM-Signature: v=1; a=rsa-sha256; c=relaxed/relaxed; d=";
        w_.out() += fromDomain;
        w_.out() += "; s=sel1;";
        w_.eol();
        w_.out() += "\th=from:to:subject:date:message-id:mime-version; bh=";
        w_.blocks().appendBase64Chars(43, rng(), w_.out());
        w_.out() += "=;";
        w_.eol();
        w_.out() += "\tb=";
        for (int l = 0; l < 4; ++l) {
          if (l) w_.out() += '\t';
          w_.blocks().appendBase64Chars(l == 3 ? 36 : 72, rng(), w_.out());
          w_.eol();
        }
      }
    }
    w_.line("Message-ID: <%016llx.%08x@%s>", static_cast<unsigned long long>(rng().next()),
            static_cast<unsigned>(rng().next()), fromDomain);
    w_.line("Date: %s", date);
    w_.line("From: \"%s\" <%s>", from.name.c_str(), from.address.c_str());
    w_.line("To: %s <%s>", to.name.c_str(), to.address.c_str());
    if (rng().chance(250)) {
      Party cc;
      correspondent(cc);
      w_.line("Cc: \"%s\" <%s>,", cc.name.c_str(), cc.address.c_str());
      correspondent(cc);
      w_.line(" %s <%s>", cc.name.c_str(), cc.address.c_str());
    }
    std::string& out = w_.out();
    out += "Subject: ";
    if (shape == MessageShape::Forwarded) {
      out += "Fwd: ";
    } else if (rng().chance(50)) {
      out += rng().pick(kEncodedSubjects);
      out += " - ";
    } else {
      out += rng().pick(kSubjectPrefixes);
    }
    w_.blocks().appendSentence(rng(), out);
    w_.eol();
    if (rng().chance(600)) w_.line("X-Mailer: %s", rng().pick(kMailers));
    if (rng().chance(60)) w_.line("Importance: high");
    if (rng().chance(40)) w_.line("X-Priority: 1 (Highest)");
    if (!(shape == MessageShape::Plain && rng().chance(100))) w_.line("MIME-Version: 1.0");
  }

  void body(MessageShape shape, int depth) {
    switch (shape) {
      case MessageShape::Plain:
        // A tenth of plain messages carry no MIME header at all, as old or minimal mailers write them.
        plainPart(drawText(), rng().chance(100));
        break;
      case MessageShape::Html:
        htmlPart(drawText());
        break;
      case MessageShape::Alternative:
        alternative(false, false);
        break;
      case MessageShape::AlternativeRtf:
        alternative(true, false);
        break;
      case MessageShape::AlternativeRelated:
        alternative(false, true);
        break;
      case MessageShape::MixedPlain:
      case MessageShape::MixedAlternative:
      case MessageShape::MixedHtml:
        mixed(shape);
        break;
      case MessageShape::Forwarded:
        forwarded(depth);
        break;
      case MessageShape::Signed:
        signedMessage();
        break;
      case MessageShape::Encrypted:
        encrypted();
        break;
      case MessageShape::SmimeEnveloped:
        w_.line("Content-Type: application/pkcs7-mime; smime-type=enveloped-data;");
        w_.line("\tname=\"smime.p7m\"");
        w_.line("Content-Transfer-Encoding: base64");
        w_.line("Content-Disposition: attachment; filename=\"smime.p7m\"");
        w_.eol();
        w_.blocks().appendBase64(drawText() + drawSize(kAttachmentSizes, rng()) / 4, w_.crlf(), rng(), w_.out());
        break;
    }
  }

  size_t drawText() { return static_cast<size_t>(drawSize(kTextSizes, rng())); }

  void multipartHeader(const char* subtype, const std::string& boundary, const char* extra) {
    w_.line("Content-Type: multipart/%s;%s", subtype, extra ? extra : "");
    w_.line("\tboundary=\"%s\"", boundary.c_str());
    w_.eol();
    if (rng().chance(300)) {
      w_.line("This is a multi-part message in MIME format.");
      w_.eol();
    }
  }
  void open(const std::string& boundary) { w_.line("--%s", boundary.c_str()); }
  void close(const std::string& boundary) {
    w_.line("--%s--", boundary.c_str());
    if (rng().chance(100)) w_.eol();  // an empty epilogue line, as many mailers leave one
  }

  void plainPart(size_t bytes, bool bare) {
    if (!bare) {
      w_.line("Content-Type: text/plain; charset=\"%s\"%s", rng().chance(700) ? "utf-8" : "us-ascii",
              rng().chance(200) ? "; format=flowed" : "");
      w_.line("Content-Transfer-Encoding: %s", rng().chance(500) ? "quoted-printable" : "7bit");
    }
    w_.eol();
    w_.blocks().prose().appendAbout(bytes, w_.crlf(), rng(), w_.out());
    if (rng().chance(400)) {
      // The signature separator "-- " must not be taken for a boundary.
      w_.line("-- ");
      w_.line("%s", sender_.c_str());
      w_.line("Phone +49 30 555 %04u", static_cast<unsigned>(rng().below(10000)));
    }
  }

  void htmlPart(size_t bytes) {
    w_.line("Content-Type: text/html; charset=\"utf-8\"");
    w_.line("Content-Transfer-Encoding: quoted-printable");
    w_.eol();
    w_.line("<html><head>");
    w_.line("<meta http-equiv=3D\"Content-Type\" content=3D\"text/html; charset=3Dutf-8\">");
    w_.line("</head><body>");
    w_.blocks().html().appendAbout(bytes, w_.crlf(), rng(), w_.out());
    w_.line("</body></html>");
  }

  void rtfPart(size_t bytes) {
    w_.line("Content-Type: text/rtf");
    w_.line("Content-Transfer-Encoding: 7bit");
    w_.eol();
    w_.line("{\\rtf1\\ansi\\ansicpg1252\\deff0{\\fonttbl{\\f0\\fswiss Calibri;}}");
    w_.blocks().prose().appendAbout(bytes, w_.crlf(), rng(), w_.out());
    w_.line("}");
  }

  void attachmentPart(uint64_t bytes, bool inlineImage) {
    char name[128];
    const AttachmentKind& kind = inlineImage ? kAttachmentKinds[2] : rng().pick(kAttachmentKinds);
    snprintf(name, sizeof name, kind.nameFormat, static_cast<unsigned>(rng().below(10000)));
    w_.line("Content-Type: %s;", kind.type);
    w_.line("\tname=\"%s\"", name);
    w_.line("Content-Transfer-Encoding: base64");
    if (inlineImage) {
      w_.line("Content-ID: <image%03u.png@01DA%08X>", static_cast<unsigned>(rng().below(1000)),
              static_cast<unsigned>(rng().next()));
      w_.line("Content-Disposition: inline; filename=\"%s\"", name);
    } else if (rng().chance(100)) {
      // Non-ASCII file names arrive as RFC 2231 extended parameters.
      w_.line("Content-Disposition: attachment;");
      w_.line("\tfilename*=UTF-8''Angebot%%20M%%C3%%BCller%%20%u.pdf; size=%llu",
              static_cast<unsigned>(rng().below(100)), static_cast<unsigned long long>(bytes));
    } else {
      w_.line("Content-Disposition: attachment;");
      w_.line("\tfilename=\"%s\"; size=%llu", name, static_cast<unsigned long long>(bytes));
    }
    w_.eol();
    w_.blocks().appendBase64(bytes, w_.crlf(), rng(), w_.out());
  }

  void alternative(bool withRtf, bool related) {
    const std::string b = newBoundary();
    multipartHeader("alternative", b, nullptr);
    const size_t text = drawText();
    open(b);
    plainPart(text, false);
    open(b);
    if (related) {
      const std::string r = newBoundary();
      multipartHeader("related", r, " type=\"text/html\";");
      open(r);
      htmlPart(text + text / 2);
      const unsigned images = static_cast<unsigned>(rng().between(1, 3));
      for (unsigned i = 0; i < images; ++i) {
        open(r);
        attachmentPart(drawSize(kInlineImageSizes, rng()), true);
      }
      close(r);
    } else {
      htmlPart(text + text / 2);
    }
    if (withRtf) {
      open(b);
      rtfPart(text);
    }
    close(b);
  }

  void attachments(const std::string& b) {
    static const unsigned kCountWeights[] = {70, 20, 7, 3};  // one to four attachments
    const size_t count = rng().weighted(kCountWeights, 4) + 1;
    for (size_t i = 0; i < count; ++i) {
      open(b);
      attachmentPart(drawSize(kAttachmentSizes, rng()), false);
    }
  }

  void mixed(MessageShape shape) {
    const std::string b = newBoundary();
    multipartHeader("mixed", b, nullptr);
    open(b);
    if (shape == MessageShape::MixedPlain) {
      plainPart(drawText(), false);
    } else if (shape == MessageShape::MixedHtml) {
      htmlPart(drawText());
    } else {
      alternative(false, false);
    }
    attachments(b);
    close(b);
  }

  void forwarded(int depth) {
    static const MessageShape kInner[] = {MessageShape::Plain, MessageShape::Alternative,
                                          MessageShape::MixedPlain, MessageShape::Html};
    const std::string b = newBoundary();
    multipartHeader("mixed", b, nullptr);
    open(b);
    plainPart(drawText() / 4 + 100, false);
    open(b);
    w_.line("Content-Type: message/rfc822");
    w_.line("Content-Disposition: inline");
    w_.eol();
    // The forwarded message keeps its own envelope; a second forward level is enough for realism.
    const MessageShape inner = depth < 1 && rng().chance(150) ? MessageShape::Forwarded : rng().pick(kInner);
    Composer(w_, owner_, false, boundaries_).message(inner, depth + 1);
    close(b);
  }

  void signedMessage() {
    const std::string b = newBoundary();
    const bool pgp = rng().chance(300);
    multipartHeader("signed", b,
                    pgp ? " protocol=\"application/pgp-signature\"; micalg=pgp-sha256;"
                        : " protocol=\"application/pkcs7-signature\"; micalg=sha-256;");
    open(b);
    switch (rng().below(3)) {
      case 0:
        plainPart(drawText(), false);
        break;
      case 1:
        alternative(false, false);
        break;
      default: {
        const std::string inner = newBoundary();
        multipartHeader("mixed", inner, nullptr);
        open(inner);
        plainPart(drawText(), false);
        attachments(inner);
        close(inner);
        break;
      }
    }
    open(b);
    if (pgp) {
      w_.line("Content-Type: application/pgp-signature; name=\"signature.asc\"");
      w_.line("Content-Description: OpenPGP digital signature");
      w_.eol();
      w_.line("-----BEGIN PGP SIGNATURE-----");
      w_.eol();
      w_.blocks().appendBase64(rng().between(300, 700), w_.crlf(), rng(), w_.out());
      w_.line("=%04X", static_cast<unsigned>(rng().below(0x10000)));
      w_.line("-----END PGP SIGNATURE-----");
    } else {
      w_.line("Content-Type: application/pkcs7-signature; name=\"smime.p7s\"");
      w_.line("Content-Transfer-Encoding: base64");
      w_.line("Content-Disposition: attachment; filename=\"smime.p7s\"");
      w_.eol();
      w_.blocks().appendBase64(rng().between(3000, 7000), w_.crlf(), rng(), w_.out());
    }
    close(b);
  }

  void encrypted() {
    const std::string b = newBoundary();
    multipartHeader("encrypted", b, " protocol=\"application/pgp-encrypted\";");
    open(b);
    w_.line("Content-Type: application/pgp-encrypted");
    w_.line("Content-Description: PGP/MIME version identification");
    w_.eol();
    w_.line("Version: 1");
    open(b);
    w_.line("Content-Type: application/octet-stream; name=\"encrypted.asc\"");
    w_.line("Content-Description: OpenPGP encrypted message");
    w_.line("Content-Disposition: inline; filename=\"encrypted.asc\"");
    w_.eol();
    w_.line("-----BEGIN PGP MESSAGE-----");
    w_.eol();
    uint64_t payload = drawText() + 400;
    if (rng().chance(200)) payload += drawSize(kAttachmentSizes, rng());
    w_.blocks().appendBase64(payload, w_.crlf(), rng(), w_.out());
    w_.line("=%04X", static_cast<unsigned>(rng().below(0x10000)));
    w_.line("-----END PGP MESSAGE-----");
    close(b);
  }

  Writer& w_;
  const Party& owner_;
  bool outgoing_;
  unsigned& boundaries_;
  std::string sender_;  // signs the plain-text bodies
};

}  // namespace

MessageShape MessageBuilder::drawShape(Prng& rng) const {
  unsigned weights[kShapeCount];
  for (size_t i = 0; i < kShapeCount; ++i) weights[i] = shapeTraits(static_cast<MessageShape>(i)).perMille;
  return static_cast<MessageShape>(rng.weighted(weights, kShapeCount));
}

void MessageBuilder::build(MessageShape shape, bool crlf, const Party& owner, bool outgoing, Prng& rng,
                           std::string& out) const {
  Writer w(out, crlf, rng, blocks_);
  unsigned boundaries = 0;
  Composer(w, owner, outgoing, boundaries).message(shape, 0);
}

}  // namespace mkstore
}  // namespace vorlane
