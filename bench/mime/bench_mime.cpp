// bench_mime [MESSAGES] [RUNS]: throughput of the MIME structure parser over two generated corpora, each
// measured against a plain 4096-byte read loop over the same files in the same run: MESSAGES mixed
// messages (small text messages, text/HTML alternatives, mixed messages with base64 attachments up to
// about 1 MB), where body counting sets the pace, and ten times as many small messages with long headers
// (relay lines, a signature, address lists), where header parsing does. All have CRLF line ends. For the
// mixed corpus the stream's two line reads (getstr copying every line, getstrView handing lines out in
// place) are timed alone for comparison. The corpus is generated deterministically into a temporary directory,
// read once to warm the page cache, and removed at the end. Prints medians of RUNS runs, timed in thread
// CPU time (user and system) so that other work on the machine does not skew the ratios; asserts nothing.
#include <fcntl.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "mime/mail_struct.h"
#include "mime/parse_status.h"
#include "utils/vfile.h"

namespace {

using vorlane::mime::mail_struct;

class Lcg {
 public:
  explicit Lcg(unsigned long long seed) : state_(seed) {}
  unsigned next(unsigned n) {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<unsigned>((state_ >> 33) % n);
  }

 private:
  unsigned long long state_;
};

void appendText(Lcg& rng, std::string& out, size_t bytes) {
  static const char* const kWords[] = {"the", "store", "message", "statistics", "folder", "mailbox", "report",
                                       "quarterly", "meeting", "attached", "please", "regards", "and", "of"};
  size_t line = 0;
  const size_t start = out.size();
  while (out.size() - start < bytes) {
    const char* word = kWords[rng.next(sizeof kWords / sizeof kWords[0])];
    out += word;
    line += std::strlen(word) + 1;
    if (line > 66) {
      out += "\r\n";
      line = 0;
    } else {
      out += ' ';
    }
  }
  out += "\r\n";
}

void appendBase64(Lcg& rng, std::string& out, size_t bytes) {
  static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (size_t done = 0; done < bytes; done += 76) {
    for (int i = 0; i < 76; ++i) out += kAlphabet[rng.next(64)];
    out += "\r\n";
  }
}

void appendHeader(Lcg& rng, std::string& out, int n) {
  out += "Return-Path: <sender" + std::to_string(n) + "@example.org>\r\n";
  out += "Received: from mx" + std::to_string(rng.next(9)) + ".example.org (mx.example.org [192.0.2.1])\r\n"
         "\tby store.example.net with ESMTP id " + std::to_string(rng.next(1000000)) + "\r\n";
  out += "From: \"Sender " + std::to_string(n) + "\" <sender" + std::to_string(n) + "@example.org>\r\n";
  out += "To: user@example.net\r\nSubject: Message number " + std::to_string(n) + "\r\n";
  out += "Date: Tue, 3 Mar 2026 10:00:00 +0100\r\nMessage-ID: <" + std::to_string(n) + "@example.org>\r\n";
  out += "MIME-Version: 1.0\r\n";
}

// A small message as most of a store holds them: a long header (relay lines, a folded signature, address
// lists) over a short text body, so that header parsing rather than body counting sets the pace.
std::string makeSmallMessage(Lcg& rng, int n) {
  std::string msg;
  for (int hop = 0; hop < 4; ++hop) {
    msg += "Received: from relay" + std::to_string(rng.next(50)) + ".example.org (relay.example.org [198.51.100." +
           std::to_string(rng.next(250)) + "])\r\n\tby mx.example.net with ESMTPS id " +
           std::to_string(rng.next(1000000)) + "\r\n\tfor <user@example.net>; Tue, 3 Mar 2026 10:00:0" +
           std::to_string(hop) + " +0100\r\n";
  }
  msg += "DKIM-Signature: v=1; a=rsa-sha256; c=relaxed/relaxed; d=example.org; s=s1;\r\n"
         "\th=from:to:cc:subject:date:message-id; bh=" + std::string(44, 'b') + ";\r\n\tb=";
  for (int line = 0; line < 5; ++line) msg += std::string(64, static_cast<char>('A' + rng.next(26))) + "\r\n\t";
  msg += "end\r\n";
  msg += "From: \"Sender " + std::to_string(n) + "\" <sender" + std::to_string(n) + "@example.org>\r\nTo: ";
  for (unsigned i = 2 + rng.next(10); i > 0; --i) {
    msg += "\"Member " + std::to_string(i) + "\" <member" + std::to_string(i) + "@example.net>" + (i > 1 ? ",\r\n " : "\r\n");
  }
  msg += "Cc: team@example.net, lead@example.net\r\nSubject: Re: [list] Message number " + std::to_string(n) + "\r\n";
  msg += "Date: Tue, 3 Mar 2026 10:00:00 +0100 (CET)\r\nMessage-ID: <" + std::to_string(n) + "@example.org>\r\n";
  msg += "List-Unsubscribe: <mailto:leave@example.org>\r\nX-Mailer: Example Mail 1.0\r\nMIME-Version: 1.0\r\n";
  msg += "Content-Type: text/plain; charset=utf-8; format=flowed\r\nContent-Transfer-Encoding: 8bit\r\n\r\n";
  appendText(rng, msg, 300 + rng.next(1500));
  return msg;
}

std::string makeMessage(Lcg& rng, int n) {
  std::string msg;
  appendHeader(rng, msg, n);
  const unsigned kind = rng.next(100);
  if (kind < 60) {
    msg += "Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: 8bit\r\n\r\n";
    appendText(rng, msg, 1000 + rng.next(7000));
  } else if (kind < 85) {
    const std::string b = "alt" + std::to_string(n);
    msg += "Content-Type: multipart/alternative; boundary=\"" + b + "\"\r\n\r\n";
    msg += "--" + b + "\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n";
    appendText(rng, msg, 2000 + rng.next(10000));
    msg += "--" + b + "\r\nContent-Type: text/html; charset=utf-8\r\n\r\n<html><body>\r\n";
    appendText(rng, msg, 3000 + rng.next(15000));
    msg += "</body></html>\r\n--" + b + "--\r\n";
  } else {
    const std::string b = "mix" + std::to_string(n);
    msg += "Content-Type: multipart/mixed; boundary=\"" + b + "\"\r\n\r\nThis is a multi-part message.\r\n";
    msg += "--" + b + "\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n";
    appendText(rng, msg, 500 + rng.next(4000));
    for (unsigned i = 1 + rng.next(3); i > 0; --i) {
      msg += "--" + b + "\r\nContent-Type: application/octet-stream; name=\"file" + std::to_string(i) +
             ".bin\"\r\nContent-Transfer-Encoding: base64\r\nContent-Disposition: attachment; filename=\"file" +
             std::to_string(i) + ".bin\"\r\n\r\n";
      appendBase64(rng, msg, 20000 + rng.next(rng.next(10) == 0 ? 1000000 : 150000));
    }
    msg += "--" + b + "--\r\n";
  }
  return msg;
}

// CPU time of this thread, user and system: the machine is shared, and wall-clock figures of a busy
// machine measure the neighbours more than this code.
double cpuNow() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

double seconds(double start) { return cpuNow() - start; }

// The baseline: every byte through read(2) in 4096-byte pieces, as the parser's stream reads them.
double plainReadRun(const std::vector<std::string>& files, unsigned long long& bytes) {
  static char buf[4096];
  bytes = 0;
  const double start = cpuNow();
  for (const std::string& path : files) {
    const int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0) continue;
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0) bytes += static_cast<unsigned long long>(n);
    close(fd);
  }
  return seconds(start);
}

// The parser's line source alone: what the stream's line read costs before any MIME work.
double lineReadRun(const std::vector<std::string>& files, unsigned long long& bytes) {
  static char line[vorlane::mime::MIME_LINE_MAX];
  bytes = 0;
  const double start = cpuNow();
  for (const std::string& path : files) {
    vorlane::utils::VFile file;
    if (!file.open(path.c_str(), "r")) continue;
    int n;
    while ((n = file.getstr(line, sizeof line)) > 0) bytes += static_cast<unsigned long long>(n);
  }
  return seconds(start);
}

// The parser's line source as it uses it: lines viewed in the read buffer, copied only across refills.
double lineViewRun(const std::vector<std::string>& files, unsigned long long& bytes) {
  static char line[vorlane::mime::MIME_LINE_MAX];
  bytes = 0;
  const double start = cpuNow();
  for (const std::string& path : files) {
    vorlane::utils::VFile file;
    if (!file.open(path.c_str(), "r")) continue;
    unsigned n;
    while (file.getstrView(line, sizeof line, n) != nullptr) bytes += n;
  }
  return seconds(start);
}

// Parses as the store scan does: every tree is built from the nodes of the trees before it.
double parseRun(const std::vector<std::string>& files, unsigned long long& accounted, int& failed) {
  accounted = 0;
  failed = 0;
  vorlane::mime::mail_struct_pool pool;
  const double start = cpuNow();
  for (const std::string& path : files) {
    vorlane::utils::VFile file;
    if (!file.open(path.c_str(), "r")) continue;
    mail_struct* tree = mail_struct::parse(&file, nullptr, nullptr, &pool);
    if (tree) {
      accounted += tree->total_bytes;
    } else {
      ++failed;
    }
    pool.give_back(tree);
  }
  return seconds(start);
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

// Writes the generated messages into `dir` and returns their paths; adds their size to `bytes`.
bool writeCorpus(const char* dir, const char* prefix, int messages, std::string (*make)(Lcg&, int),
                 std::vector<std::string>& files, unsigned long long& bytes) {
  Lcg rng(20260303);
  for (int i = 0; i < messages; ++i) {
    const std::string msg = make(rng, i);
    const std::string path = std::string(dir) + "/" + prefix + std::to_string(i) + ".eml";
    FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr || std::fwrite(msg.data(), 1, msg.size(), f) != msg.size()) {
      std::fprintf(stderr, "bench_mime: cannot write %s: %s\n", path.c_str(), std::strerror(errno));
      if (f != nullptr) std::fclose(f);
      return false;
    }
    std::fclose(f);
    files.push_back(path);
    bytes += msg.size();
  }
  return true;
}

void measure(const char* label, const std::vector<std::string>& files, unsigned long long corpusBytes, int runs,
             bool lineReads) {
  unsigned long long bytes = 0;
  plainReadRun(files, bytes);  // warms the page cache
  std::vector<double> readTimes;
  std::vector<double> lineTimes;
  std::vector<double> viewTimes;
  std::vector<double> parseTimes;
  unsigned long long accounted = 0;
  int failed = 0;
  for (int r = 0; r < runs; ++r) {
    readTimes.push_back(plainReadRun(files, bytes));
    if (lineReads) {
      lineTimes.push_back(lineReadRun(files, bytes));
      viewTimes.push_back(lineViewRun(files, bytes));
    }
    parseTimes.push_back(parseRun(files, accounted, failed));
  }
  const double messages = static_cast<double>(files.size());
  const double mb = static_cast<double>(corpusBytes) / 1e6;
  const double readT = median(readTimes);
  const double parseT = median(parseTimes);
  std::printf("%s: %zu messages, %.1f MB, CRLF, %d runs (medians of thread CPU time)\n", label, files.size(), mb,
              runs);
  std::printf("plain read 4096: %8.1f MB/s %10.0f messages/s\n", mb / readT, messages / readT);
  if (lineReads) {
    const double lineT = median(lineTimes);
    const double viewT = median(viewTimes);
    std::printf("stream getstr:   %8.1f MB/s %10.0f messages/s\n", mb / lineT, messages / lineT);
    std::printf("stream view:     %8.1f MB/s %10.0f messages/s\n", mb / viewT, messages / viewT);
    std::printf("parse/view time ratio: %.2f (against handing out every line in place)\n", parseT / viewT);
  }
  std::printf("mime parse:      %8.1f MB/s %10.0f messages/s\n", mb / parseT, messages / parseT);
  std::printf("parse/read time ratio: %.2f\n", parseT / readT);
  std::printf("bytes accounted by parse trees: %llu of %llu, failed parses: %d\n\n", accounted, corpusBytes, failed);
}

}  // namespace

int main(int argc, char** argv) {
  const int messages = argc > 1 ? std::atoi(argv[1]) : 1500;
  const int runs = argc > 2 ? std::atoi(argv[2]) : 5;
  if (messages <= 0 || runs <= 0) {
    std::fprintf(stderr, "usage: bench_mime [MESSAGES] [RUNS]\n");
    return 2;
  }
  char dir[] = "/tmp/bench_mime_XXXXXX";
  if (mkdtemp(dir) == nullptr) {
    std::fprintf(stderr, "bench_mime: cannot create a directory under /tmp: %s\n", std::strerror(errno));
    return 1;
  }
  std::vector<std::string> mixed;
  std::vector<std::string> small;
  unsigned long long mixedBytes = 0;
  unsigned long long smallBytes = 0;
  // Ten small messages for every mixed one: about the share of a real store.
  const bool written = writeCorpus(dir, "m", messages, makeMessage, mixed, mixedBytes) &&
                       writeCorpus(dir, "s", 10 * messages, makeSmallMessage, small, smallBytes);
  if (written) {
    measure("mixed corpus", mixed, mixedBytes, runs, true);
    measure("small messages with long headers", small, smallBytes, runs, false);
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    std::printf("peak memory: %ld KiB\n", usage.ru_maxrss);
  }
  for (const std::string& path : mixed) unlink(path.c_str());
  for (const std::string& path : small) unlink(path.c_str());
  rmdir(dir);
  return written ? 0 : 1;
}
