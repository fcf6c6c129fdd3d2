// bench_mime_limits [PARTS]: what the parser's guards cost on hostile messages, generated in memory (no
// files). Prints, for a multipart message of PARTS tiny parts (default ten million), how long the parse
// runs before the part limit ends it and the peak memory it took; and, for a message whose body never
// ends, how long a parse takes to return after its stop flag is set. Figures only; asserts nothing.
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <streambuf>
#include <string>
#include <thread>

#include "mime/mail_struct.h"
#include "utils/vstd_istream.h"

namespace {

using vorlane::mime::mail_struct;
using vorlane::mime::parse_outcome;
using Clock = std::chrono::steady_clock;

// A header, then `repeats` copies of a pattern (endless when 0), then a closing line.
class GeneratedInput : public std::streambuf {
 public:
  GeneratedInput(std::string head, std::string pattern, unsigned long long repeats, std::string tail)
      : head_(std::move(head)), pattern_(std::move(pattern)), tail_(std::move(tail)), left_(repeats),
        endless_(repeats == 0) {
    setg(&head_[0], &head_[0], &head_[0] + head_.size());
  }

 private:
  int_type underflow() override {
    chunk_.clear();
    while (chunk_.size() < 65536 && (endless_ || left_ > 0)) {
      chunk_ += pattern_;
      if (!endless_) --left_;
    }
    if (chunk_.empty() && !tailSent_) {
      chunk_ = tail_;
      tailSent_ = true;
    }
    if (chunk_.empty()) return traits_type::eof();
    setg(&chunk_[0], &chunk_[0], &chunk_[0] + chunk_.size());
    return traits_type::to_int_type(chunk_[0]);
  }

  std::string head_;
  std::string pattern_;
  std::string tail_;
  std::string chunk_;
  unsigned long long left_;
  bool endless_;
  bool tailSent_ = false;
};

long peakKiB() {
  struct rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

const char* outcomeName(parse_outcome o) {
  switch (o) {
    case parse_outcome::parsed: return "parsed";
    case parse_outcome::too_deep: return "too deep";
    case parse_outcome::too_many_parts: return "too many parts";
    case parse_outcome::stopped: return "stopped";
  }
  return "?";
}

double millis(Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }

}  // namespace

int main(int argc, char** argv) {
  const unsigned long long parts = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 10000000ULL;
  if (parts == 0) {
    std::fprintf(stderr, "usage: bench_mime_limits [PARTS]\n");
    return 2;
  }
  const long before = peakKiB();
  {
    const std::string part = "--b\r\nContent-Type: text/plain\r\n\r\nx\r\n";
    GeneratedInput input("Content-Type: multipart/mixed; boundary=b\r\n\r\n", part, parts, "--b--\r\n");
    std::istream in(&input);
    vorlane::utils::VStdIStream stream(&in);
    parse_outcome outcome = parse_outcome::parsed;
    const Clock::time_point start = Clock::now();
    std::unique_ptr<mail_struct> tree(mail_struct::parse(&stream, nullptr, &outcome));
    std::printf("%llu-part message (%.1f MB): %s after %.1f ms, peak memory %ld KiB above the start\n", parts,
                static_cast<double>(parts * part.size()) / 1e6, outcomeName(outcome),
                millis(Clock::now() - start), peakKiB() - before);
  }
  // Short lines go through the counting fast path; uuencoded data lines are read one by one.
  for (const std::string& body : {std::string("a short body line\r\n"), "M" + std::string(60, 'A') + "\r\n"}) {
    GeneratedInput input("Content-Type: text/plain\r\n\r\nbegin 644 f\r\n", body, 0, "");
    std::istream in(&input);
    vorlane::utils::VStdIStream stream(&in);
    std::atomic<bool> stop(false);
    Clock::time_point stoppedAt;
    std::thread stopper([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      stoppedAt = Clock::now();
      stop.store(true);
    });
    parse_outcome outcome = parse_outcome::parsed;
    std::unique_ptr<mail_struct> tree(mail_struct::parse(&stream, &stop, &outcome));
    const Clock::time_point returned = Clock::now();
    stopper.join();
    std::printf("endless body of %zu-byte lines: %s %.2f ms after the stop request\n", body.size(),
                outcomeName(outcome), millis(returned - stoppedAt));
  }
  return 0;
}
