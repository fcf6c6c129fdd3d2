// The statistics job with parser threads must be indistinguishable from the job without them: the same
// report bytes, the same progress events and the same error lines in the same order, also when a stop
// arrives after some message and when files vanish while the walk goes on. Compared on generated stores
// with FIFOs named like messages mixed in.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "../support/generated_store.h"
#include "../support/temp_dir.h"
#include "recording_channel.h"

using vorlane::testing::RecordingChannel;
using vorlane::testing::TempDir;

namespace {

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
  vorlane::mkstore::Manifest manifest;
  if (!vorlane::testing::generateStore(dir.file("store"), 300, 14, manifest)) return "";
  const std::vector<std::string> dirs = messageDirectories(dir.file("store/mail"));
  for (size_t i = 0; i < dirs.size(); i += 3) ::mkfifo((dirs[i] + "/pipe.eml").c_str(), 0600);
  return dir.file("store");
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
            channel.onLine = [k](const std::string& line, RecordingChannel& c) {
              if (isSkippedLine(line) &&
                  static_cast<unsigned>(std::count_if(c.lines.begin(), c.lines.end(), isSkippedLine)) == k) {
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

// What a requester sees of one job: its events, its lines and its report, without the store's path.
struct Transcript {
  std::vector<std::string> events, lines;
  std::string report;
};

Transcript runJob(const std::string& store, unsigned threads, const Scenario& scenario, const std::string& reportPath) {
  RecordingChannel channel;
  scenario.arm(channel, store);
  ScanSettings settings;
  settings.threads = threads;
  vorlane::testing::runJob(store, channel, reportPath, settings);
  for (std::string& line : channel.lines) line = withoutStorePath(line, store);
  return {channel.events, channel.lines, withoutStorePath(vorlane::testing::readFile(reportPath), store)};
}

}  // namespace

TEST(ParallelJob, ParserThreadsChangeNothingTheRequesterSees) {
  const Scenario whole{"whole store", [](RecordingChannel&, const std::string&) {}};
  const Scenario vanishing{"files removed during the walk", [](RecordingChannel& channel, const std::string& store) {
                             channel.onEvent = [store](const vorlane::vstat::EventBuffT&, RecordingChannel& c) {
                               if (c.events.size() == 4) removeEverySecondMessage(store);
                             };
                           }};
  const Scenario stopAtMailbox{"stop at a mailbox", [](RecordingChannel& channel, const std::string&) {
                                 channel.onEvent = [](const vorlane::vstat::EventBuffT&, RecordingChannel& c) {
                                   if (c.events.size() == 5) c.stopRequested = true;
                                 };
                               }};
  // One store for the scenarios that leave it as it is; a fresh one for every run that removes files.
  TempDir shared(TempDir::InMemory);
  const std::string sharedStore = makeStore(shared);
  ASSERT_FALSE(sharedStore.empty());
  Transcript wholeStore;
  for (const Scenario& scenario : {whole, stopAtMailbox, stopAtSkippedFile(1), stopAtSkippedFile(2),
                                   stopAtSkippedFile(5), vanishing}) {
    Transcript single;
    for (unsigned threads : {1u, 2u, 8u}) {
      TempDir own(TempDir::InMemory);
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
