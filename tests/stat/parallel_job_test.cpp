// The statistics job with parser threads must be indistinguishable from the job without them: the same
// report bytes, the same progress events and the same error lines in the same order, also when a stop
// arrives after some message and when files vanish while the walk goes on. Compared on generated stores
// with FIFOs named like messages mixed in.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "../support/temp_dir.h"
#include "mkstore/store_generator.h"
#include "stat/statistics_job.h"

using vorlane::testing::TempDir;

namespace {

// What a requester sees of one job.
struct Transcript {
  std::vector<std::string> events;
  std::vector<std::string> lines;
  std::string report;
};

// Records everything; the test's trigger may act on each event or line as it goes out (request the
// stop, remove files).
class RecordingChannel : public JobChannel {
 public:
  explicit RecordingChannel(Transcript& transcript) : transcript_(transcript) {}
  int sendProgressMsg(vorlane::vstat::EventBuffT& ev) override {
    std::ostringstream text;
    text << ev.dom << '|' << ev.mbox << '|' << ev.processed << '/' << ev.mailboxes << '|' << ev.run << ev.done;
    transcript_.events.push_back(text.str());
    if (onEvent) onEvent(transcript_.events.size(), *this);
    return 0;
  }
  void sendErrMsg(const std::string& text) override {
    transcript_.lines.push_back(text);
    if (onLine) onLine(transcript_.lines, *this);
  }
  void reportFailure(const std::string& text) override { transcript_.lines.push_back("failure: " + text); }

  std::function<void(size_t count, RecordingChannel&)> onEvent;
  std::function<void(const std::vector<std::string>& lines, RecordingChannel&)> onLine;

 private:
  Transcript& transcript_;
};

std::vector<std::string> messageDirectories(const std::string& root) {
  std::vector<std::string> dirs;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    if (entry.is_directory() && entry.path().filename() == "#msgs") dirs.push_back(entry.path().string());
  }
  std::sort(dirs.begin(), dirs.end());
  return dirs;
}

// A generated store (the same bytes every time) with a FIFO named like a message in every third message
// directory.
std::string makeStore(const TempDir& dir) {
  const vorlane::mkstore::StoreOptions options{300, 14, dir.file("store"), false};  // messages, seed
  vorlane::mkstore::Manifest manifest;
  std::string error;
  if (!vorlane::mkstore::generateStore(options, manifest, error)) {
    ADD_FAILURE() << error;
    return "";
  }
  const std::vector<std::string> dirs = messageDirectories(options.outDir + "/mail");
  for (size_t i = 0; i < dirs.size(); i += 3) ::mkfifo((dirs[i] + "/pipe.eml").c_str(), 0600);
  return options.outDir;
}

// Removes every second message file of every message directory: those already walked are counted, the
// others are not seen (or seen listed and then missing).
void removeEverySecondMessage(const std::string& store) {
  for (const std::string& dir : messageDirectories(store + "/mail")) {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) files.push_back(entry.path().string());
    std::sort(files.begin(), files.end());
    for (size_t i = 0; i < files.size(); i += 2) ::unlink(files[i].c_str());
  }
}

struct Scenario {
  const char* name;
  std::function<void(RecordingChannel&, const std::string& store)> arm;
};

bool isSkippedLine(const std::string& line) { return line.find("not a regular file") != std::string::npos; }

// Requests the stop as the k-th skipped FIFO is reported: the messages before it in the same folder are
// counted, those after it are not, whatever the parser threads had read ahead.
Scenario stopAtSkippedFile(unsigned k) {
  return {"stop at skipped file", [k](RecordingChannel& channel, const std::string&) {
            channel.onLine = [k](const std::vector<std::string>& lines, RecordingChannel& c) {
              if (isSkippedLine(lines.back()) &&
                  static_cast<unsigned>(std::count_if(lines.begin(), lines.end(), isSkippedLine)) == k) {
                c.stopRequested = true;
              }
            };
          }};
}

// Runs on different stores name different paths; everything else must match.
std::string withoutStorePath(std::string text, const std::string& store) {
  for (size_t at = text.find(store); at != std::string::npos; at = text.find(store, at)) text.replace(at, store.size(), "STORE");
  return text;
}

Transcript runJob(const std::string& store, unsigned threads, const Scenario& scenario, const std::string& reportPath) {
  Transcript transcript;
  RecordingChannel channel(transcript);
  scenario.arm(channel, store);
  vorlane::vstat::ProcessStoreReqBuffT request{};
  store.copy(request.storeDir, sizeof request.storeDir - 1);
  ScanSettings settings;
  settings.threads = threads;
  StatisticsJob job(request, channel, reportPath, settings);
  job.run();
  std::ifstream report(reportPath);
  std::ostringstream bytes;
  bytes << report.rdbuf();
  transcript.report = withoutStorePath(bytes.str(), store);
  for (std::string& line : transcript.lines) line = withoutStorePath(line, store);
  return transcript;
}

}  // namespace

TEST(ParallelJob, ParserThreadsChangeNothingTheRequesterSees) {
  const Scenario whole{"whole store", [](RecordingChannel&, const std::string&) {}};
  const Scenario vanishing{"files removed during the walk", [](RecordingChannel& channel, const std::string& store) {
                             channel.onEvent = [store](size_t count, RecordingChannel&) {
                               if (count == 4) removeEverySecondMessage(store);
                             };
                           }};
  const Scenario stopAtMailbox{"stop at a mailbox", [](RecordingChannel& channel, const std::string&) {
                                 channel.onEvent = [](size_t count, RecordingChannel& c) {
                                   if (count == 5) c.stopRequested = true;
                                 };
                               }};
  // One store for the scenarios that leave it as it is; a fresh one for every run that removes files.
  TempDir shared;
  const std::string sharedStore = makeStore(shared);
  ASSERT_FALSE(sharedStore.empty());
  Transcript wholeStore;
  for (const Scenario& scenario : {whole, stopAtMailbox, stopAtSkippedFile(1), stopAtSkippedFile(2),
                                   stopAtSkippedFile(5), vanishing}) {
    Transcript single;
    for (unsigned threads : {1u, 2u, 8u}) {
      TempDir own;
      const std::string store = scenario.name == vanishing.name ? makeStore(own) : sharedStore;
      ASSERT_FALSE(store.empty());
      const Transcript t = runJob(store, threads, scenario, own.file("report.xml"));
      if (threads == 1) {
        single = t;
        continue;
      }
      EXPECT_EQ(t.events, single.events) << scenario.name << ", " << threads << " threads";
      EXPECT_EQ(t.lines, single.lines) << scenario.name << ", " << threads << " threads";
      EXPECT_TRUE(t.report == single.report) << scenario.name << ", " << threads << " threads: the reports differ";
    }
    ASSERT_FALSE(single.report.empty()) << scenario.name;
    if (scenario.name == whole.name) {
      wholeStore = single;
    } else {
      EXPECT_TRUE(single.report != wholeStore.report) << scenario.name << " changed nothing: the case tests nothing";
    }
  }
}
