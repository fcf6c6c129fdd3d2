// Costs of the per-folder details and the scan history. Prints figures only; asserts nothing.
//
//   bench_history [--work DIR] [--runs R] [--messages N] [--extra-folders F] [--folders M]
//
// 1. The statistics job (in this process) on a generated store of N messages (default 50000) with F
//    further small index folders (default 3000, so the store has more than 5000 folders), without and
//    with details, alternating after one warm-up run, R runs each (default 3): median CPU times and the ratio.
// 2. A synthetic details file of M folders (default 1000000; 100 domains of mailboxes with 10 folders
//    each): the time to write it, to read it alone, to import it into a new database (rows per second),
//    `vstat top` at each level and `vstat history` on the database holding it twice (two scans of one
//    node; medians of R runs, at least one), and the database's size per folder row. Wall and CPU time
//    are both shown; on a shared machine the CPU time is the steadier figure.
// Everything is written below DIR (default $TMPDIR or /tmp) and removed afterwards.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "details_reader.h"
#include "history_command.h"
#include "history_import.h"
#include "mkstore/store_generator.h"
#include "stat/folder_details.h"
#include "stat/statistics_job.h"
#include "top_command.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace vorlane::cli;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// CPU seconds of this process so far: on a shared machine a steadier measure than the wall clock.
double cpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return t.tv_sec + t.tv_nsec / 1e9;
}

// Wall and CPU time of one call.
template <typename Fn>
std::pair<double, double> timed(Fn fn) {
  const Clock::time_point start = Clock::now();
  const double cpu = cpuSeconds();
  fn();
  return {secondsSince(start), cpuSeconds() - cpu};
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

class QuietChannel : public JobChannel {
 public:
  int sendProgressMsg(vorlane::vstat::EventBuffT&) override { return 0; }
  void sendErrMsg(const std::string&) override {}
  void reportFailure(const std::string&) override {}
};

// CPU seconds of one job.
double runJob(const std::string& store, const std::string& report, const std::string& details) {
  vorlane::vstat::ProcessStoreReqBuffT request{};
  store.copy(request.storeDir, sizeof request.storeDir - 1);
  QuietChannel channel;
  StatisticsJob job(request, channel, report);
  job.setDetailsPath(details);
  return timed([&] { job.run(); }).second;
}

void benchScan(const std::string& work, unsigned runs, uint64_t messages, unsigned extraFolders) {
  const vorlane::mkstore::StoreOptions options{messages, 1, work + "/store", false};
  vorlane::mkstore::Manifest manifest;
  std::string error;
  if (!vorlane::mkstore::generateStore(options, manifest, error)) {
    std::fprintf(stderr, "bench_history: %s\n", error.c_str());
    return;
  }
  for (unsigned i = 0; i < extraFolders; ++i) {
    const std::string folder = work + "/store/mail/extra.example/user" + std::to_string(i % 100) + "/Tasks " +
                               std::to_string(i);
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "/status.fld") << "T3\nM5\nS500\n";
    std::ofstream(folder + "/index.fld") << "S100\nS100\nS100\nS100\nS100\n";
  }
  std::vector<double> without, with;
  runJob(options.outDir, work + "/report.xml", "");  // warms the page cache
  for (unsigned r = 0; r < runs; ++r) {
    without.push_back(runJob(options.outDir, work + "/report.xml", ""));
    with.push_back(runJob(options.outDir, work + "/report.xml", work + "/details.jsonl"));
  }
  unsigned long long folders = 0;
  std::ifstream lines(work + "/details.jsonl");
  for (std::string line; std::getline(lines, line);) ++folders;
  folders -= 2;
  std::printf("scan: %llu messages, %llu folder records, %u runs each\n",
              static_cast<unsigned long long>(manifest.reportMessageCount()), folders, runs);
  std::printf("  without details  median %.3f CPU s\n  with details     median %.3f CPU s   (%+.1f %%)\n",
              median(without),
              median(with), 100.0 * (median(with) / median(without) - 1.0));
  std::filesystem::remove_all(options.outDir);
}

void writeSyntheticDetails(const std::string& path, unsigned long long folders) {
  static const char* const kFolders[] = {"INBOX", "Sent Items", "Deleted Items", "Drafts", "Junk E-mail",
                                         "Archive", "Archive/2024", "Archive/2025", "Contacts", "Calendar"};
  DetailsHeader header;
  header.productVersion = "bench";
  header.date = std::time(nullptr);
  FolderDetailsWriter writer;
  std::string error;
  if (!writer.open(path, header, error)) {
    std::fprintf(stderr, "bench_history: %s\n", error.c_str());
    return;
  }
  const unsigned long long mailboxes = folders / 10;
  for (unsigned long long i = 0; i < folders; ++i) {
    const unsigned long long mailbox = i / 10;
    FolderDetails f = folderDetailsAt("domain" + std::to_string(mailbox % 100) + ".example",
                                      "user" + std::to_string(mailbox * 7919 % mailboxes), kFolders[i % 10],
                                      Collection::MailFolder, true);
    f.messages = 1 + i * 31 % 997;
    f.bytes = f.messages * (20000 + i * 13 % 50000);
    f.largest = f.bytes / f.messages * 3;
    writer.write(f);
  }
  if (!writer.finish(false, error)) std::fprintf(stderr, "bench_history: %s\n", error.c_str());
}

void benchHistory(const std::string& work, unsigned long long folders, unsigned runs) {
  const std::string details = work + "/synthetic.jsonl";
  const std::string db = work + "/history.sqlite";
  Clock::time_point start = Clock::now();
  writeSyntheticDetails(details, folders);
  std::printf("history: synthetic details file of %llu folders (%.0f MB) written in %.2f s\n", folders,
              std::filesystem::file_size(details) / 1e6, secondsSince(start));

  std::string error;
  DetailsCallbacks count;
  unsigned long long read = 0;
  count.header = [](const DetailsFileHeader&, std::string&) { return true; };
  count.folder = [&](const FolderDetails&, std::string&) { return ++read > 0; };
  bool partial = false;
  const auto reading = timed([&] { readDetailsFile(details, count, partial, error); });
  std::printf("  reading and checking it alone: %.2f s (%.2f CPU s), %.0f rows per second, %.0f per CPU second\n",
              reading.first, reading.second, read / reading.first, read / reading.second);
  for (const char* node : {"node-a", "node-a"}) {
    HistoryDb history;
    if (!history.open(db, true, error)) break;
    ScanHeader scan;
    scan.node = node;
    long long id = 0;
    bool imported = false;
    const auto t = timed([&] { imported = importDetails(history, details, scan, nullptr, id, error); });
    if (!imported) break;
    std::printf("  import of scan %lld: %.2f s (%.2f CPU s), %.0f rows per second, %.0f per CPU second\n", id,
                t.first, t.second, folders / t.first, folders / t.second);
  }
  if (!error.empty()) {
    std::fprintf(stderr, "bench_history: %s\n", error.c_str());
    return;
  }
  std::printf("  database: %.0f MB, %.0f bytes per folder row\n", std::filesystem::file_size(db) / 1e6,
              double(std::filesystem::file_size(db)) / (2.0 * folders));
  // Each question asked `runs` times (at least once) in a fresh connection, as a command would.
  const auto query = [&](const std::string& label, const std::function<bool(std::ostream&)>& ask) {
    std::vector<double> wall, cpu;
    for (unsigned r = 0; r < std::max(runs, 1u); ++r) {
      std::ostringstream out;
      const auto t = timed([&] {
        if (!ask(out)) std::fprintf(stderr, "bench_history: %s\n", error.c_str());
      });
      wall.push_back(t.first);
      cpu.push_back(t.second);
    }
    std::printf("  %-20s median %.3f s (%.3f CPU s)\n", label.c_str(), median(wall), median(cpu));
  };
  for (TopLevel level : {TopLevel::Domain, TopLevel::Mailbox, TopLevel::Folder}) {
    TopOptions options;
    options.db = db;
    options.level = level;
    query(std::string("top --level ") +
              (level == TopLevel::Domain ? "domain" : level == TopLevel::Mailbox ? "mailbox" : "folder"),
          [&](std::ostream& out) { return runTop(options, out, error); });
  }
  HistoryOptions options;
  options.db = db;
  query("history", [&](std::ostream& out) { return runHistory(options, out, error); });
}

}  // namespace

int main(int argc, char** argv) {
  const char* tmp = std::getenv("TMPDIR");
  std::string base = tmp && tmp[0] == '/' ? tmp : "/tmp";
  unsigned runs = 3;
  uint64_t messages = 50000;
  unsigned extraFolders = 3000;
  unsigned long long folders = 1000000;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string name = argv[i];
    const char* value = argv[i + 1];
    if (name == "--work") base = value;
    else if (name == "--runs") runs = static_cast<unsigned>(std::strtoul(value, nullptr, 10));
    else if (name == "--messages") messages = std::strtoull(value, nullptr, 10);
    else if (name == "--extra-folders") extraFolders = static_cast<unsigned>(std::strtoul(value, nullptr, 10));
    else if (name == "--folders") folders = std::strtoull(value, nullptr, 10);
  }
  std::string work = base + "/bench-history-XXXXXX";
  if (!::mkdtemp(&work[0])) {
    std::perror("bench_history: mkdtemp");
    return 1;
  }
  if (runs > 0 && messages > 0) benchScan(work, runs, messages, extraFolders);
  if (folders > 0) benchHistory(work, folders, runs);
  std::filesystem::remove_all(work);
  return 0;
}
