// vstat scan STORE_DIR [options]: runs one statistics job the way the mail server does. It starts
// vstatserver as a child over a pipe, sends ProcessStore, shows the progress events, and when the server
// has written its report prints the report's summary and path.
//
// Ctrl-C: the first asks the server to stop (StopProcessing; the server then reports what it has counted
// so far and ends); the second kills the server and ends at once. The server runs in its own process
// group, so the terminal's SIGINT reaches only us. The handler only counts; the receive loop polls with a
// short time-out and acts on the count.
//
// Exit status (also in --help):
//   0  the report was written (and copied, with --report)
//   1  the job failed, was refused, or was stopped by Ctrl-C (a partial report is still shown and copied)
//   2  usage error, including a --report or -o target whose directory is missing or not writable
//   3  STORE_DIR/mail is missing or not a directory
//   4  the server program is missing, not executable, or cannot be started
//   5  the server died, hung, or broke the protocol before the job ended
//   6  the report was written but cannot be read or copied to --report FILE
//   7  another scan holds the report lock and --no-wait was given
//   8  the scan was not stored in the history (--history)
//
// Two scans on one machine would share the fixed report path: the report lock (report_lock.h) is taken
// before the server starts and held until the report has been read and copied; a second scan waits
// for it (and says so), or with --no-wait gives up at once.
#include <signal.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

#include "command_line.h"
#include "commands.h"
#include "history_import.h"
#include "progress_display.h"
#include "report_reader.h"
#include "report_output.h"
#include "stat/job_facts.h"
#include "stat/report_file.h"
#include "stat/report_lock.h"
#include "stat/scan_settings.h"
#include "stat/stat_job_client.h"
#include "terminal_text.h"
#include "stat/vstat_messages.h"
#include "utils/string_utils.h"
#include "vcom/message_types.h"

namespace vorlane {
namespace cli {

namespace {

enum ExitCode {
  kExitReport = 0,
  kExitFailed = 1,
  kExitNoStore = 3,
  kExitNoServer = 4,
  kExitServerDied = 5,
  kExitReportUnusable = 6,
  kExitBusy = 7,
  kExitHistoryFailed = 8,
};

using vstat::kReportPath;

// Defaults for the informational header fields of the report. A report made from the command line is
// marked as such instead of pretending to come from a mail server release.
const char kDefaultProductVersion[] = "standalone";
const unsigned long kDefaultBuild = 0;
const unsigned long kDefaultOsCode = 0;

// How long the receive loop sleeps between looks at the Ctrl-C count and the clock.
const long kPollMs = 200;
// Writing a request into an empty pipe is immediate; a full one means the server is not reading.
const long kSendTimeoutMs = 5000;
// The server sends a heartbeat every 60 s however busy the walk is; three missed ones mean it hangs.
const double kSilenceLimitSeconds = 180;
// After its final event the server ends by itself within milliseconds; after a stop request or a
// closed pipe, within its own grace of a few seconds.
const long kExitWaitMs = 5000;

std::atomic<int> g_interrupts(0);
static_assert(std::atomic<int>::is_always_lock_free, "the SIGINT handler needs a lock-free counter");

extern "C" void onInterrupt(int) { g_interrupts.fetch_add(1); }

// Installs the Ctrl-C counter for one scan and puts the previous handler back afterwards, so that
// several scans can run in one process (tests do).
class InterruptGuard {
 public:
  InterruptGuard() {
    g_interrupts.store(0);
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    installed_ = sigaction(SIGINT, &action, &previous_) == 0;
  }
  ~InterruptGuard() {
    if (installed_) sigaction(SIGINT, &previous_, nullptr);
  }
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;

 private:
  struct sigaction previous_;
  bool installed_;
};

struct ScanOptions {
  std::string storeDir;
  std::string serverPath;
  std::string reportCopy;
  std::string productVersion = kDefaultProductVersion;
  unsigned long build = kDefaultBuild;
  std::string osName;
  unsigned long osCode = kDefaultOsCode;
  bool verbose = false;
  bool noWait = false;
  unsigned threads = 0;  // 0: the server's own default
  bool gentle = false;
  std::shared_ptr<OutputOptions> output = std::make_shared<OutputOptions>();
  bool history = false;   // store the scan in the history database
  ImportOptions import;   // where, and under which node name
};

std::string defaultOsName() {
  struct utsname u;
  if (uname(&u) != 0) return "unknown";
  return std::string(u.sysname) + " " + u.release;
}

// The store is checked before anything is started: the server would only find an empty walk.
int checkStore(ScanOptions& options) {
  const std::string mail = options.storeDir + vstat::kMailRoot;
  struct stat st;
  if (stat(mail.c_str(), &st) != 0) {
    std::fprintf(stderr, "vstat scan: '%s' is not a message store: cannot access '%s': %s\n",
                 options.storeDir.c_str(), mail.c_str(), std::strerror(errno));
    return kExitNoStore;
  }
  if (!S_ISDIR(st.st_mode)) {
    std::fprintf(stderr, "vstat scan: '%s' is not a message store: '%s' is not a directory\n",
                 options.storeDir.c_str(), mail.c_str());
    return kExitNoStore;
  }
  // The server is handed an absolute path, so that nothing depends on its working directory.
  char resolved[PATH_MAX];
  if (!realpath(options.storeDir.c_str(), resolved)) {
    std::fprintf(stderr, "vstat scan: cannot resolve '%s': %s\n", options.storeDir.c_str(), std::strerror(errno));
    return kExitNoStore;
  }
  if (std::strlen(resolved) >= sizeof(vstat::ProcessStoreReqBuffT().storeDir)) {
    std::fprintf(stderr, "vstat scan: the store path '%s' is longer than %zu characters\n", resolved,
                 sizeof(vstat::ProcessStoreReqBuffT().storeDir) - 1);
    return kExitUsage;
  }
  options.storeDir = resolved;
  return kExitReport;
}

// A file is written into its directory (a temporary name, then a rename), so the directory must be
// writable; checked before the scan, so that a long scan does not end in an output that cannot be made.
int checkWritableDirectory(const std::string& file, const char* what) {
  const size_t slash = file.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
  if (access(dir.c_str(), W_OK) != 0) {
    std::fprintf(stderr, "vstat scan: cannot write the %s into '%s': %s\n", what, dir.c_str(), std::strerror(errno));
    return kExitUsage;
  }
  return kExitReport;
}

// A --report directory receives the report under its own name.
int checkOutputTargets(ScanOptions& options) {
  if (!options.output->file.empty()) {
    const int status = checkWritableDirectory(options.output->file, "output");
    if (status != kExitReport) return status;
  }
  if (options.reportCopy.empty()) return kExitReport;
  struct stat st;
  if (stat(options.reportCopy.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
    while (options.reportCopy.size() > 1 && options.reportCopy.back() == '/') options.reportCopy.pop_back();
    if (options.reportCopy != "/") options.reportCopy += "/";
    options.reportCopy += std::strrchr(kReportPath, '/') + 1;
  }
  return checkWritableDirectory(options.reportCopy, "report copy");
}

// The server lives next to the vstat program (or in the installed layout) unless --server names it.
int findServer(ScanOptions& options) {
  if (options.serverPath.empty()) {
    std::string error;
    const std::string dir = vstat::StatJobClient::ownDirectory(error);
    if (dir.empty()) {
      std::fprintf(stderr, "vstat scan: %s; use --server\n", error.c_str());
      return kExitNoServer;
    }
    options.serverPath = vstat::StatJobClient::locateServer(dir);
  }
  const char* path = options.serverPath.c_str();
  struct stat st;
  if (stat(path, &st) != 0) {
    std::fprintf(stderr, "vstat scan: server program '%s' not found: %s\n", path, std::strerror(errno));
    return kExitNoServer;
  }
  if (!S_ISREG(st.st_mode)) {
    std::fprintf(stderr, "vstat scan: server program '%s' is not a regular file\n", path);
    return kExitNoServer;
  }
  if (access(path, X_OK) != 0) {
    std::fprintf(stderr, "vstat scan: server program '%s' is not executable: %s\n", path, std::strerror(errno));
    return kExitNoServer;
  }
  return kExitReport;
}

std::string describeExit(const vcom::ChildExit& e) {
  char text[160];
  if (e.exited) {
    std::snprintf(text, sizeof text, "exit status %d%s", e.code,
                  e.code == 255 ? " (it could not set up its pipe or threads)" : "");
  } else if (e.signaled) {
    const char* name = strsignal(e.signal);
    std::snprintf(text, sizeof text, "signal %d (%s)", e.signal, name ? name : "unknown");
  } else {
    std::snprintf(text, sizeof text, "an unknown status");
  }
  return text;
}

vstat::ProcessStoreReqBuffT buildRequest(const ScanOptions& options) {
  vstat::ProcessStoreReqBuffT request;
  std::memset(&request, 0, sizeof request);
  utils::strncpys(request.storeDir, options.storeDir.c_str(), sizeof request.storeDir);
  utils::strncpys(request.productVersion, options.productVersion.c_str(), sizeof request.productVersion);
  request.build = static_cast<uint32_t>(options.build);
  utils::strncpys(request.osName, options.osName.c_str(), sizeof request.osName);
  request.osCode = static_cast<uint32_t>(options.osCode);
  return request;
}

struct JobOutcome {
  bool finished = false;       // the final progress event arrived
  bool reportWritten = false;  // and it said the report file was written
  bool stopRequested = false;
  unsigned long processed = 0;
  unsigned long mailboxes = 0;
  std::string lastError;  // the text of the server's last error record
};

class ScanRun {
 public:
  explicit ScanRun(const ScanOptions& options)
      : options_(options), display_(std::cout, isatty(STDOUT_FILENO) == 1, terminalWidth(STDOUT_FILENO)) {}

  // The report as it was read while the report lock was held; empty when none was read.
  const std::string& reportText() const { return reportText_; }

  int run() {
    const int locked = lockReport();
    if (locked != kExitReport) return locked;
    if (!server_.start(options_.serverPath)) {
      std::fprintf(stderr, "vstat scan: cannot start the server: %s\n", server_.lastError().c_str());
      return kExitNoServer;
    }
    if (!server_.startJob(buildRequest(options_), kSendTimeoutMs)) {
      return serverGone("could not send the scan request: " + server_.lastError());
    }

    const int status = receiveLoop();
    if (status != kExitReport) return status;
    return finish();
  }

 private:
  int receiveLoop() {
    auto lastHeard = std::chrono::steady_clock::now();
    for (;;) {
      const int interrupts = g_interrupts.load();
      if (interrupts >= 2) {
        server_.kill();
        vcom::ChildExit e;
        server_.finish(kExitWaitMs, e);
        display_.finish("");
        std::fprintf(stderr, "vstat scan: aborted; the server was killed and no report was made\n");
        return kExitFailed;
      }
      if (interrupts == 1 && !outcome_.stopRequested) {
        outcome_.stopRequested = true;
        display_.note("Stopping: the server reports what it has counted so far (Ctrl-C again to abort).");
        if (!server_.requestStop(kSendTimeoutMs)) {
          return serverGone("could not send the stop request: " + server_.lastError());
        }
      }

      vstat::JobMessage msg;
      const vcom::ServerProcess::Result r = server_.next(msg, kPollMs);
      const auto now = std::chrono::steady_clock::now();
      if (r == vcom::ServerProcess::kTimeout) {
        display_.tick();
        if (std::chrono::duration<double>(now - lastHeard).count() > kSilenceLimitSeconds) {
          server_.kill();
          return serverGone("the server sent nothing for " + std::to_string(static_cast<int>(kSilenceLimitSeconds)) +
                            " s (not even a heartbeat) and was killed");
        }
        continue;
      }
      if (r == vcom::ServerProcess::kClosed) return serverGone("its output ended");
      if (r == vcom::ServerProcess::kError) {
        server_.kill();
        return serverGone("protocol error from the server: " + server_.lastError());
      }
      lastHeard = now;
      const int status = handle(msg);
      if (status >= 0) return status;
      if (outcome_.finished) return kExitReport;
    }
  }

  // Takes the report lock, waiting for another scan unless --no-wait; kExitReport once it is ours (or
  // cannot be had at all, which only costs the protection).
  int lockReport() {
    std::string error;
    ReportLock::Result result = server_.tryLockReport(error);
    if (result == ReportLock::Busy) {
      if (options_.noWait) {
        std::fprintf(stderr, "vstat scan: another scan is running (%s is locked); not waiting (--no-wait)\n",
                     vstat::kReportLockPath);
        return kExitBusy;
      }
      display_.note("waiting for another scan to finish");
      while ((result = server_.tryLockReport(error)) == ReportLock::Busy) {
        if (g_interrupts.load() > 0) {
          display_.finish("");
          std::fprintf(stderr, "vstat scan: interrupted while waiting for another scan; nothing was scanned\n");
          return kExitFailed;
        }
        display_.tick();
        std::this_thread::sleep_for(std::chrono::milliseconds(ReportLock::kPollMs));
      }
    }
    if (result == ReportLock::Failed) display_.note("warning: " + error + "; scanning without the report lock");
    return kExitReport;
  }

  // Returns an exit status when the job is over with an error, -1 to go on.
  int handle(const vstat::JobMessage& msg) {
    switch (msg.kind) {
      case vstat::JobMessage::Progress: {
        ProgressEvent e;
        e.domain = msg.event.dom;
        e.mailbox = msg.event.mbox;
        e.processed = msg.event.processed;
        e.mailboxes = msg.event.mailboxes;
        outcome_.processed = e.processed;
        outcome_.mailboxes = e.mailboxes;
        if (msg.event.run == 0) {
          outcome_.finished = true;
          outcome_.reportWritten = msg.event.done != 0;
        }
        display_.update(e);
        return -1;
      }
      case vstat::JobMessage::Answer:
        if (msg.started) return -1;
        display_.finish("");
        std::fprintf(stderr, "vstat scan: the server did not start the job (a job is already running there)\n");
        return kExitFailed;
      case vstat::JobMessage::Refused:
        display_.finish("");
        if (msg.code == vcom::kRespUnknownRequest) {
          std::fprintf(stderr, "vstat scan: the server at '%s' does not run store scans (\"%s\", code %d)\n",
                       options_.serverPath.c_str(), msg.text.c_str(), msg.code);
        } else {
          std::fprintf(stderr, "vstat scan: the server refused the scan request: \"%s\" (code %d)\n",
                       msg.text.c_str(), msg.code);
        }
        return kExitFailed;
      case vstat::JobMessage::Log:
        if (msg.logType == vcom::LogErr) {
          outcome_.lastError = msg.text;
          display_.note("server error: " + msg.text);
        } else if (msg.logType == vcom::LogWrn) {
          display_.note("server warning: " + msg.text);
        } else if (options_.verbose) {
          display_.note("server: " + msg.text);
        }
        return -1;
      case vstat::JobMessage::Other:
        // Heartbeats, the stop acknowledgement and anything newer carry nothing to show.
        return -1;
    }
    return -1;
  }

  // The server ended (or broke the protocol) before its final event.
  int serverGone(const std::string& what) {
    display_.finish("");
    vcom::ChildExit e;
    if (server_.finish(kExitWaitMs, e)) {
      std::fprintf(stderr, "vstat scan: the server ended with %s before the job was done (%s)\n",
                   describeExit(e).c_str(), what.c_str());
    } else {
      std::fprintf(stderr, "vstat scan: %s; the server did not end and was killed\n", what.c_str());
    }
    return kExitServerDied;
  }

  int finish() {
    // The server ends by itself right after its final event; its status only matters when odd.
    vcom::ChildExit e;
    if (server_.finish(kExitWaitMs, e) && (!e.exited || e.code != 0)) {
      display_.note("note: the server ended with " + describeExit(e));
    }
    char closing[160];
    std::snprintf(closing, sizeof closing, "%s %lu of %lu mailboxes in %s.",
                  outcome_.stopRequested ? "Stopped after" : "Scanned", outcome_.processed, outcome_.mailboxes,
                  formatElapsed(display_.elapsedSeconds()).c_str());
    display_.finish(closing);
    if (!outcome_.reportWritten) {
      // The server's last error record says why (the report path blocked, the directory full, ...).
      std::fprintf(stderr, "vstat scan: the job ended without writing a report%s%s\n",
                   outcome_.lastError.empty() ? "" : ": ", outcome_.lastError.c_str());
      return kExitFailed;
    }

    int status = outcome_.stopRequested ? kExitFailed : kExitReport;
    // Read once: the summary, the copy and the history import come from the same text, whatever happens
    // to the file once the report lock is released.
    std::string& text = reportText_;
    Report report;
    std::string error;
    if (!readReportText(kReportPath, text, report.fileTime, error) || !parseReport(text, report, error)) {
      std::fprintf(stderr, "vstat scan: %s: %s\n", kReportPath, terminalSafe(error).c_str());
      return kExitReportUnusable;
    }
    const bool onScreen = options_.output->file.empty();
    if (onScreen) std::cout << "\n";
    if (!emitReport(std::cout, report, *options_.output, error)) {
      std::fprintf(stderr, "vstat scan: cannot write the output: %s\n", terminalSafe(error).c_str());
      status = kExitReportUnusable;
    } else if (!onScreen) {
      std::cout << "Written to: " << options_.output->file << "\n";
    }
    if (onScreen && options_.output->format == ReportFormat::Text) std::cout << "\nReport: " << kReportPath << "\n";
    if (!options_.reportCopy.empty()) {
      if (replaceFileContents(options_.reportCopy, text, error)) {
        std::cout << "Copied to: " << options_.reportCopy << "\n";
      } else {
        std::fprintf(stderr, "vstat scan: cannot copy the report: %s\n", error.c_str());
        status = kExitReportUnusable;
      }
    }
    if (outcome_.stopRequested) std::cout << "The scan was stopped: the report covers only part of the store.\n";
    std::cout.flush();
    return status;
  }

  const ScanOptions& options_;
  vstat::StatJobClient server_;
  ProgressDisplay display_;
  JobOutcome outcome_;
  std::string reportText_;
};

int runScan(ScanOptions& options) {
  int status = checkStore(options);
  if (status != kExitReport) return status;
  status = checkOutputTargets(options);
  if (status != kExitReport) return status;
  status = findServer(options);
  if (status != kExitReport) return status;

  // The server takes both from the environment it inherits.
  if (options.threads) setenv(kThreadsVariable, std::to_string(options.threads).c_str(), 1);
  if (options.gentle) setenv(kGentleVariable, "1", 1);
  InterruptGuard interrupts;
  if (!options.history) return ScanRun(options).run();

  // The server inherits the variable and writes the details there; they are imported with the report
  // (also a stopped scan's, marked as such) and removed.
  TemporaryDetails details;
  if (details.path().empty() || ::setenv(vstat::kDetailsVariable, details.path().c_str(), 1) != 0) {
    std::fprintf(stderr, "vstat scan: cannot make a temporary details file: %s\n", std::strerror(errno));
    return kExitHistoryFailed;
  }
  ScanRun run(options);
  status = run.run();
  ::unsetenv(vstat::kDetailsVariable);
  if (::access(details.path().c_str(), F_OK) != 0 || run.reportText().empty()) return status;
  // Another scan may replace the fixed report path as soon as ours released the lock: the import takes
  // the text this scan read.
  std::string error;
  if (!replaceFileContents(details.reportPath(), run.reportText(), error)) {
    std::fprintf(stderr, "vstat scan: not stored in the history: %s\n", error.c_str());
    return status == kExitReport ? kExitHistoryFailed : status;
  }
  ImportOptions import = options.import;
  import.report = details.reportPath();
  import.details = details.path();
  long long scanId = 0;
  if (!importScan(import, scanId, error)) {
    std::fprintf(stderr, "vstat scan: not stored in the history: %s\n", error.c_str());
    return status == kExitReport ? kExitHistoryFailed : status;
  }
  std::cout << "Stored in the history as scan " << scanId << ".\n";
  return status;
}

}  // namespace

void addScanCommand(CommandLine& cli) {
  auto options = std::make_shared<ScanOptions>();
  options->osName = defaultOsName();
  auto historyOption = std::make_shared<CLI::Option*>(nullptr);
  CLI::App* scan = cli.addCommand("scan", "Scan a message store with vstatserver and summarise its report",
                                  [options, historyOption] {
                                    // --history may come without a value: it is its presence that counts.
                                    options->history = (*historyOption)->count() > 0;
                                    return runScan(*options);
                                  });
  const vstat::ProcessStoreReqBuffT request{};
  scan->add_option("STORE_DIR", options->storeDir, "The store; its messages are under STORE_DIR/mail")->required();
  scan->add_option("--server", options->serverPath, "The server program (default: vstatserver next to vstat)")
      ->check(textOfLength(PATH_MAX - 1))
      ->type_name("PATH");
  scan->add_option("--report", options->reportCopy, "Also copy the report to FILE (or into FILE, a directory)")
      ->check(textOfLength(PATH_MAX - 1))
      ->type_name("FILE");
  // The limits are those of the request's fixed fields, less the terminating NUL.
  scan->add_option("--product-version", options->productVersion, "Product version written into the report")
      ->check(textOfLength(sizeof request.productVersion - 1, true))
      ->capture_default_str();
  scan->add_option("--build", options->build, "Build number written into the report")
      ->check(numberUpTo(0xFFFFFFFFul))
      ->capture_default_str();
  scan->add_option("--os-name", options->osName, "Operating system name (default: uname system and release)")
      ->check(textOfLength(sizeof request.osName - 1, true));
  scan->add_option("--os-code", options->osCode, "Operating system code written into the report")
      ->check(numberUpTo(0xFFFFFFFFul))
      ->capture_default_str();
  scan->add_option("--threads", options->threads,
                   "Parser threads of the server (1: none; default: online CPUs, at most 8)")
      ->check(numberUpTo(kMaxParserThreads, 1))
      ->type_name("N");
  scan->add_flag("--gentle", options->gentle,
                 "Idle I/O and CPU priority for the server; the cache pages it brought in are handed back");
  scan->add_flag("-v,--verbose", options->verbose, "Also show the server's debug log records");
  scan->add_flag("--no-wait", options->noWait, "Fail at once when another scan is running, instead of waiting");
  addOutputOptions(scan, options->output);
  *historyOption = scan->add_option("--history", options->import.db,
                   "Also store the scan in the history database DB (default " + defaultHistoryPath() + ")")
      ->expected(0, 1)
      ->type_name("[DB]");
  scan->add_option("--node", options->import.node, "Node name of the scan in the history (default: host name)")
      ->type_name("NAME");
  scan->footer(std::string("The server writes its report to ") + kReportPath +
               ". Ctrl-C stops the scan and reports what was counted; a second Ctrl-C aborts at once.\n"
               "Exit status: 0 report written, 1 job failed or stopped, 2 usage error, 3 store missing,\n"
               "4 server program missing, 5 server died or hung, 6 report unreadable or not copied,\n"
               "7 another scan is running (--no-wait), 8 scan not stored in the history.");
}

}  // namespace cli
}  // namespace vorlane
