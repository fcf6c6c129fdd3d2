// Times one statistics job of the real vstatserver (ProcessStore request until the process has exited)
// on generated stores with 1, 2 and the default number of parser threads, against a plain single-threaded
// walk that reads the same message files with 4096-byte reads in the same run, with a warm page cache and,
// when this process may drop the page cache (root), with a cold one; reports the server's peak resident
// memory and how much the page cache grew during a cold job with and without gentle mode. Prints figures
// only; asserts nothing.
//
//   bench_scan [--runs R] [--work DIR] [MESSAGES ...]      (default: 5000 50000, 3 runs)
//   bench_scan [--runs R] --store STORE_DIR                 (an existing store, e.g. one written by mkstore)
//
// Generated stores are written below DIR (default $TMPDIR or /tmp) and removed afterwards. The server is taken
// from the directory of this program. The job writes /tmp/VStatReport.xml, whose totals are compared
// with the generator's manifest as a plausibility check.
#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "mkstore/output_files.h"
#include "mkstore/report_check.h"
#include "mkstore/store_generator.h"
#include "stat/job_facts.h"
#include "stat/stat_job_client.h"
#include "stat/store_walk.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

bool isDirectory(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

int folderType(const std::string& dir) {
  std::ifstream status(dir + "/status.fld");
  std::string line;
  int type = 0;
  while (std::getline(status, line)) {
    if (!line.empty() && line[0] == 'T') type = atoi(line.c_str() + 1);
  }
  return type;
}

// The "#msgs" directories whose files the server parses: those of type-0 folders the walk enters.
void collectMessageDirs(const std::string& dir, std::vector<std::string>& out) {
  if (folderType(dir) == 0 && isDirectory(dir + "/#msgs")) out.push_back(dir + "/#msgs");
  DIR* d = opendir(dir.c_str());
  if (!d) return;
  std::vector<std::string> subdirs;
  while (const dirent* e = readdir(d)) {
    if (!isForbiddenDir(e->d_name) && isDirectory(dir + "/" + e->d_name)) subdirs.push_back(dir + "/" + e->d_name);
  }
  closedir(d);
  for (const std::string& s : subdirs) collectMessageDirs(s, out);
}

struct ReadTotals {
  uint64_t files = 0;
  uint64_t bytes = 0;
};

// Lists each message directory and reads every "eml" file in it with 4096-byte reads.
ReadTotals plainRead(const std::vector<std::string>& messageDirs) {
  ReadTotals totals;
  char buffer[4096];
  std::string path;
  for (const std::string& dir : messageDirs) {
    DIR* d = opendir(dir.c_str());
    if (!d) continue;
    while (const dirent* e = readdir(d)) {
      const size_t len = strlen(e->d_name);
      if (len < 3 || strcasecmp(e->d_name + len - 3, "eml") != 0) continue;
      path = dir + "/" + e->d_name;
      const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
      if (fd < 0) continue;
      ssize_t n;
      while ((n = read(fd, buffer, sizeof buffer)) > 0) totals.bytes += static_cast<uint64_t>(n);
      close(fd);
      ++totals.files;
    }
    closedir(d);
  }
  return totals;
}

// Peak resident size of a live process in KiB (VmHWM), or 0 when it cannot be read (for example once the
// process has ended). ru_maxrss from wait4 is no substitute here: it also counts the pages the child
// shared with this process between fork and exec, so it would report the benchmark's own size.
long peakResidentKiB(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.compare(0, 6, "VmHWM:") == 0) return atol(line.c_str() + 6);
  }
  return 0;
}

struct JobResult {
  bool ok = false;
  std::string problem;
  double seconds = 0;
  long peakKiB = 0;
  double userSeconds = 0;    // CPU time of the server, to tell parsing cost from file-system cost
  double systemSeconds = 0;
  unsigned events = 0;
  bool reportWritten = false;
};

JobResult runJob(const std::string& server, const std::string& storeDir) {
  using namespace vorlane;
  JobResult r;
  vstat::StatJobClient child;
  if (!child.start(server)) {
    r.problem = child.lastError();
    return r;
  }
  vstat::ProcessStoreReqBuffT req = {};
  snprintf(req.storeDir, sizeof req.storeDir, "%s", storeDir.c_str());
  snprintf(req.productVersion, sizeof req.productVersion, "bench");
  snprintf(req.osName, sizeof req.osName, "Linux");

  const Clock::time_point start = Clock::now();
  if (!child.startJob(req, 5000)) {
    r.problem = "sending ProcessStore failed: " + child.lastError();
    return r;
  }
  // The server ends itself after the job; its output closes then. Heartbeats do not count as progress:
  // two silent minutes without a progress event mean the job hangs.
  Clock::time_point lastProgress = Clock::now();
  bool answered = false;
  for (;;) {
    vstat::JobMessage msg;
    const vcom::ServerProcess::Result res = child.next(msg, 1000);
    // The high-water mark only rises, so the last reading before the process ends is its peak. Readings
    // start with the first message: before it, the child may not have reached exec yet.
    answered |= res == vcom::ServerProcess::kOk;
    if (answered) r.peakKiB = std::max(r.peakKiB, peakResidentKiB(child.pid()));
    if (res == vcom::ServerProcess::kClosed) break;
    if (res == vcom::ServerProcess::kTimeout && secondsSince(lastProgress) < 120) continue;
    if (res != vcom::ServerProcess::kOk) {
      r.problem = res == vcom::ServerProcess::kTimeout ? "no progress for 120 s" : child.lastError();
      child.kill();
      break;
    }
    if (msg.kind == vstat::JobMessage::Progress) {
      ++r.events;
      lastProgress = Clock::now();
      if (msg.event.run == 0) r.reportWritten = msg.event.done == 1;
    } else if (msg.kind == vstat::JobMessage::Refused) {
      r.problem = "the server refused the request: " + msg.text;
      child.kill();
      break;
    }
  }
  vcom::ChildExit exit;
  if (!child.finish(60000, exit)) {
    r.problem = "the server did not end";
    return r;
  }
  r.seconds = secondsSince(start);
  r.userSeconds = static_cast<double>(exit.usage.ru_utime.tv_sec) + exit.usage.ru_utime.tv_usec / 1e6;
  r.systemSeconds = static_cast<double>(exit.usage.ru_stime.tv_sec) + exit.usage.ru_stime.tv_usec / 1e6;
  r.ok = r.problem.empty() && exit.exited && exit.code == 0;
  if (r.problem.empty() && !r.ok) r.problem = "the server ended abnormally";
  return r;
}

void checkReport(const vorlane::mkstore::Manifest& m) {
  std::ifstream in(vorlane::vstat::kReportPath);
  std::stringstream s;
  s << in.rdbuf();
  std::vector<vorlane::mkstore::ReportFigure> figures;
  std::string error;
  if (!vorlane::mkstore::compareReport(s.str(), m, figures, error)) {
    printf("  report check        %s\n", error.c_str());
    return;
  }
  size_t differing = 0;
  for (const vorlane::mkstore::ReportFigure& f : figures) {
    if (f.found == f.expected) continue;
    ++differing;
    printf("  report DIFFERS      %s / %s: %" PRIu64 " in the report, %" PRIu64 " generated\n", f.collection.c_str(),
           f.counter.c_str(), f.found, f.expected);
  }
  if (differing == 0) {
    printf("  report check        all %zu figures match the generator (%" PRIu64 " messages, %" PRIu64
           " bytes, %" PRIu64 " folders, %" PRIu64 " domains)\n",
           figures.size(), m.reportMessageCount(), m.reportMessageBytes(), m.folders, m.domains);
  }
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

// The server's own default: online CPUs, at most 8.
unsigned defaultThreads() {
  const long cpus = sysconf(_SC_NPROCESSORS_ONLN);
  return cpus < 1 ? 1 : cpus > 8 ? 8 : static_cast<unsigned>(cpus);
}

// The server takes its parser thread count and its gentle mode from the environment it inherits.
JobResult runJobWith(const std::string& server, const std::string& storeDir, unsigned threads, bool gentle) {
  setenv("VSTAT_THREADS", std::to_string(threads).c_str(), 1);
  if (gentle) {
    setenv("VSTAT_GENTLE", "1", 1);
  } else {
    unsetenv("VSTAT_GENTLE");
  }
  return runJob(server, storeDir);
}

// Writes back and drops the whole page cache; false when this process may not (not root, or a container).
bool dropPageCache() {
  sync();
  const int fd = open("/proc/sys/vm/drop_caches", O_WRONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool dropped = write(fd, "3", 1) == 1;
  close(fd);
  return dropped;
}

// Bytes of the message files that are in the page cache: what a job left cached of the store, free of the
// noise other processes add to /proc/meminfo.
double cachedStoreBytes(const std::vector<std::string>& messageDirs) {
  const long pageSize = sysconf(_SC_PAGESIZE);
  std::vector<unsigned char> pages;
  double bytes = 0;
  for (const std::string& dir : messageDirs) {
    DIR* d = opendir(dir.c_str());
    if (!d) continue;
    while (const dirent* e = readdir(d)) {
      const int fd = openat(dirfd(d), e->d_name, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
      if (fd < 0) continue;
      struct stat st;
      if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0) {
        void* map = mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ, MAP_SHARED, fd, 0);
        if (map != MAP_FAILED) {
          pages.resize((static_cast<size_t>(st.st_size) + pageSize - 1) / pageSize);
          if (mincore(map, static_cast<size_t>(st.st_size), pages.data()) == 0) {
            for (unsigned char p : pages) bytes += (p & 1) ? pageSize : 0;
          }
          munmap(map, static_cast<size_t>(st.st_size));
        }
      }
      close(fd);
    }
    closedir(d);
  }
  return bytes;
}

// The page cache's size in KiB ("Cached" in /proc/meminfo).
long cachedKiB() {
  std::ifstream meminfo("/proc/meminfo");
  std::string line;
  while (std::getline(meminfo, line)) {
    if (line.compare(0, 7, "Cached:") == 0) return atol(line.c_str() + 7);
  }
  return 0;
}

// CPU time (user + system) this process has used so far.
double ownCpuSeconds() {
  struct rusage ru;
  getrusage(RUSAGE_SELF, &ru);
  return static_cast<double>(ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) +
         static_cast<double>(ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6;
}

// One single-threaded 4 KiB read of the store: elapsed and CPU seconds.
struct Floor {
  double seconds = 0;
  double cpu = 0;
};

Floor timedPlainRead(const std::vector<std::string>& messageDirs) {
  const Clock::time_point start = Clock::now();
  const double cpuStart = ownCpuSeconds();
  plainRead(messageDirs);
  return {secondsSince(start), ownCpuSeconds() - cpuStart};
}

// Medians of one job configuration over the runs.
struct JobFigures {
  std::vector<double> seconds, ratios, cpuRatios, user, system, peakKiB, cacheGrowthKiB, storeCached;
  void add(const JobResult& r, const Floor& floor) {
    seconds.push_back(r.seconds);
    ratios.push_back(r.seconds / floor.seconds);
    cpuRatios.push_back((r.userSeconds + r.systemSeconds) / floor.cpu);
    user.push_back(r.userSeconds);
    system.push_back(r.systemSeconds);
    peakKiB.push_back(static_cast<double>(r.peakKiB));
  }
  void print(const std::string& label, double megabytes) const {
    const double t = median(seconds);
    printf("  %-22s %7.3f s  %6.1f MB/s  x%.2f of the floor  CPU %.2f user %.2f sys (x%.2f of the floor's)  peak %.1f MiB",
           label.c_str(), t, megabytes / t, median(ratios), median(user), median(system), median(cpuRatios),
           median(peakKiB) / 1024.0);
    if (!cacheGrowthKiB.empty()) {
      printf("\n  %-22s page cache +%.1f MB (%.1f %% of the store), store files left cached %.1f MB (%.1f %%)", "",
             median(cacheGrowthKiB) / 1024.0, median(cacheGrowthKiB) * 1024 / 1e6 / megabytes * 100,
             median(storeCached) / 1e6, median(storeCached) / 1e6 / megabytes * 100);
    }
    printf("\n");
  }
};

// Runs one job; on failure prints why and returns false.
bool runInto(const std::string& server, const std::string& storeDir, unsigned threads, bool gentle,
             const Floor& floor, JobFigures& figures, JobResult& last) {
  last = runJobWith(server, storeDir, threads, gentle);
  if (!last.ok) {
    printf("  job with %u threads FAILED: %s\n", threads, last.problem.c_str());
    return false;
  }
  figures.add(last, floor);
  return true;
}

// Warm cache: the job with 1, 2 and the default number of parser threads against the single-threaded
// 4 KiB read floor, run after run. Cold cache (when this process may drop the page cache): the floor, the
// job with 1 and the default threads, and the default job in gentle mode, each after dropping the cache;
// the page cache's growth during the default and the gentle job.
void measure(const std::string& server, const std::string& storeDir, int runs,
             const vorlane::mkstore::Manifest* manifest) {
  std::vector<std::string> messageDirs;
  collectMessageDirs(storeDir + vorlane::vstat::kMailRoot, messageDirs);
  const ReadTotals totals = plainRead(messageDirs);  // warms the page cache
  const double megabytes = static_cast<double>(totals.bytes) / 1e6;
  printf("  message files       %" PRIu64 " (%.1f MB) read by the walk\n", totals.files, megabytes);

  const unsigned threadsN = defaultThreads();
  std::vector<unsigned> threadCounts = {1, 2};
  if (threadsN > 2) threadCounts.push_back(threadsN);
  std::vector<JobFigures> warm(threadCounts.size());
  std::vector<double> floors, floorCpu;
  JobResult last;
  for (int r = 0; r < runs; ++r) {
    const Floor floor = timedPlainRead(messageDirs);
    floors.push_back(floor.seconds);
    floorCpu.push_back(floor.cpu);
    for (size_t i = 0; i < threadCounts.size(); ++i) {
      if (!runInto(server, storeDir, threadCounts[i], false, floor, warm[i], last)) return;
    }
  }
  printf("  warm cache (default threads: %u)\n", threadsN);
  printf("  %-22s %7.3f s  %6.1f MB/s  CPU %.2f s\n", "4 KiB read floor", median(floors),
         megabytes / median(floors), median(floorCpu));
  for (size_t i = 0; i < threadCounts.size(); ++i) {
    warm[i].print("job, " + std::to_string(threadCounts[i]) + " thread" + (threadCounts[i] > 1 ? "s" : ""), megabytes);
  }
  printf("  (%u progress events, report %s)\n", last.events, last.reportWritten ? "written" : "NOT written");
  if (manifest) checkReport(*manifest);

  if (!dropPageCache()) {
    printf("  cold cache          not measured: /proc/sys/vm/drop_caches is not writable here\n");
    return;
  }
  std::vector<double> coldFloors;
  JobFigures coldOne, coldN, coldGentle;
  for (int r = 0; r < runs; ++r) {
    dropPageCache();
    const Floor floor = timedPlainRead(messageDirs);
    coldFloors.push_back(floor.seconds);
    dropPageCache();
    if (!runInto(server, storeDir, 1, false, floor, coldOne, last)) return;
    dropPageCache();
    long before = cachedKiB();
    if (!runInto(server, storeDir, threadsN, false, floor, coldN, last)) return;
    coldN.cacheGrowthKiB.push_back(static_cast<double>(cachedKiB() - before));
    coldN.storeCached.push_back(cachedStoreBytes(messageDirs));
    dropPageCache();
    before = cachedKiB();
    if (!runInto(server, storeDir, threadsN, true, floor, coldGentle, last)) return;
    coldGentle.cacheGrowthKiB.push_back(static_cast<double>(cachedKiB() - before));
    coldGentle.storeCached.push_back(cachedStoreBytes(messageDirs));
  }
  printf("  cold cache (page cache dropped before each; cache growth from /proc/meminfo, store %.1f MB)\n",
         megabytes);
  printf("  %-22s %7.3f s  %6.1f MB/s\n", "4 KiB read floor", median(coldFloors), megabytes / median(coldFloors));
  coldOne.print("job, 1 thread", megabytes);
  coldN.print("job, " + std::to_string(threadsN) + " threads", megabytes);
  coldGentle.print("job, " + std::to_string(threadsN) + " threads, gentle", megabytes);
}

}  // namespace

int main(int argc, char** argv) {
  int runs = 3;
  const char* tmp = getenv("TMPDIR");
  std::string work = tmp && *tmp ? tmp : "/tmp";
  std::vector<uint64_t> sizes;
  std::string store;
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--runs") == 0 && i + 1 < argc) {
      runs = std::max(1, atoi(argv[++i]));
    } else if (strcmp(argv[i], "--store") == 0 && i + 1 < argc) {
      store = argv[++i];
    } else if (strcmp(argv[i], "--work") == 0 && i + 1 < argc) {
      work = argv[++i];
    } else if (argv[i][0] != '-' && strtoull(argv[i], nullptr, 10) > 0) {
      sizes.push_back(strtoull(argv[i], nullptr, 10));
    } else {
      fprintf(stderr, "usage: bench_scan [--runs R] [--work DIR] [MESSAGES ...] | [--runs R] --store STORE_DIR\n");
      return 2;
    }
  }
  if (sizes.empty()) sizes = {5000, 50000};
  std::string error;
  using vorlane::vstat::StatJobClient;
  const std::string server = StatJobClient::locateServer(StatJobClient::ownDirectory(error));
  if (access(server.c_str(), X_OK) != 0) {
    fprintf(stderr, "bench_scan: cannot run %s: %s\n", server.c_str(), strerror(errno));
    return 1;
  }

  printf("bench_scan: %d runs per store, medians reported; server %s\n", runs, server.c_str());
  if (!store.empty()) {
    printf("store %s\n", store.c_str());
    measure(server, store, runs, nullptr);
    return 0;
  }
  for (uint64_t messages : sizes) {
    std::string dir = work + "/bench-scan-XXXXXX";
    if (!mkdtemp(&dir[0])) {
      fprintf(stderr, "bench_scan: cannot create a directory in %s: %s\n", work.c_str(), strerror(errno));
      return 1;
    }
    vorlane::mkstore::StoreOptions options;
    options.messages = messages;
    options.seed = 2026;
    options.outDir = dir + "/store";
    vorlane::mkstore::Manifest manifest;
    std::string error;
    const Clock::time_point genStart = Clock::now();
    if (!vorlane::mkstore::generateStore(options, manifest, error)) {
      fprintf(stderr, "bench_scan: %s\n", error.c_str());
      vorlane::mkstore::removeTree(dir, error);
      return 1;
    }
    const double genSeconds = secondsSince(genStart);
    printf("store of %" PRIu64 " messages (%.1f MB on disk)\n", messages,
           static_cast<double>(manifest.diskBytes) / 1e6);
    printf("  generation          %.2f s (%.1f MB/s)\n", genSeconds,
           static_cast<double>(manifest.diskBytes) / 1e6 / genSeconds);
    measure(server, options.outDir, runs, &manifest);
    fflush(stdout);
    vorlane::mkstore::removeTree(dir, error);
  }
  return 0;
}
