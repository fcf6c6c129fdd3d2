#include "mkstore/store_generator.h"

#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "message_shape_check.h"
#include "mkstore/output_files.h"
#include "../support/temp_dir.h"

using vorlane::mkstore::Manifest;
using vorlane::mkstore::StoreOptions;
using vorlane::mkstore::generateStore;
using vorlane::testing::TempDir;
using vorlane::testing::readFile;

namespace {

// The names a store walk never enters, written down here independently of the generator.
const char* const kSkipped[] = {"#msgs",      "#assoc",    "#sync",       "__vorlanemapi__STORE",
                                "__vorlanemapi__STORE_ROOT", "__vorlanemapi__IPM_ROOT", "IPM_VIEWS",
                                "IPM_COMMON_VIEWS", "Reminders", "Search Root", "Freebusy Data"};

bool isSkipped(const std::string& name) {
  for (const char* s : kSkipped) {
    if (strcasecmp(s, name.c_str()) == 0) return true;
  }
  return false;
}

struct Entry {
  std::string name;
  struct stat st;
};

std::vector<Entry> list(const std::string& dir) {
  std::vector<Entry> entries;
  DIR* d = opendir(dir.c_str());
  if (!d) return entries;
  while (const dirent* e = readdir(d)) {
    const std::string name = e->d_name;
    if (name == "." || name == "..") continue;
    Entry entry{name, {}};
    if (lstat((dir + "/" + name).c_str(), &entry.st) == 0) entries.push_back(entry);
  }
  closedir(d);
  std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.name < b.name; });
  return entries;
}

// What the tree holds for the checks below: the skipped directories met (path and depth below the mail
// root, "#msgs" left out), whether a symbolic link was met, and the mail messages: "eml" files in a
// "#msgs" directory below no skipped name that are not items (items carry an X-Item-Class header).
struct Survey {
  std::vector<std::pair<std::string, int>> skipped;
  bool link = false;
  std::vector<std::string> messages;

  void visit(const std::string& dir, int depth, bool belowSkipped) {
    for (const Entry& e : list(dir)) {
      const std::string path = dir + "/" + e.name;
      link |= S_ISLNK(e.st.st_mode);
      if (S_ISDIR(e.st.st_mode)) {
        const bool skip = isSkipped(e.name) && e.name != "#msgs";
        if (skip) skipped.emplace_back(path, depth + 1);
        visit(path, depth + 1, belowSkipped || skip);
      } else if (S_ISREG(e.st.st_mode) && !belowSkipped && dir.size() > 6 &&
                 dir.compare(dir.size() - 6, 6, "/#msgs") == 0 && e.name.size() > 3 &&
                 strcasecmp(e.name.c_str() + e.name.size() - 4, ".eml") == 0 &&
                 readFile(path).compare(0, 13, "X-Item-Class:") != 0) {
        messages.push_back(path);
      }
    }
  }
};

// Every entry below `dir` (relative path, kind, size, and the content of files and links), in one text.
void describeTree(const std::string& dir, const std::string& rel, std::string& out, uint64_t& files,
                  uint64_t& bytes) {
  for (const Entry& e : list(dir)) {
    const std::string path = dir + "/" + e.name, relPath = rel + "/" + e.name;
    if (S_ISDIR(e.st.st_mode)) {
      out += "D " + relPath + "\n";
      describeTree(path, relPath, out, files, bytes);
    } else if (S_ISLNK(e.st.st_mode)) {
      char target[256] = {};
      out += "L " + relPath + " -> " + std::string(target, readlink(path.c_str(), target, sizeof target - 1)) + "\n";
    } else {
      ++files;
      bytes += static_cast<uint64_t>(e.st.st_size);
      out += "F " + relPath + "\n" + readFile(path) + "\n";
    }
  }
}

// Generates a store of `messages` messages from `seed` into `outDir`.
::testing::AssertionResult generate(const std::string& outDir, uint64_t messages, uint64_t seed, Manifest& manifest,
                                    bool force = false) {
  StoreOptions options;
  options.messages = messages;
  options.seed = seed;
  options.outDir = outDir;
  options.force = force;
  std::string error;
  if (generateStore(options, manifest, error)) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << error;
}

class GeneratedStore : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = new TempDir;
    ASSERT_FALSE(dir_->path().empty());
    ASSERT_TRUE(generate(dir_->file("store"), 400, 11, manifest_));
  }
  static void TearDownTestSuite() {
    delete dir_;
    dir_ = nullptr;
  }
  static std::string mailRoot() { return dir_->file("store/mail"); }

  static TempDir* dir_;
  static Manifest manifest_;
};
TempDir* GeneratedStore::dir_ = nullptr;
Manifest GeneratedStore::manifest_;

}  // namespace

// The walk totals (domains, mailboxes, folders, messages, index entries, distribution lists) are compared
// with the server's own walk of a generated store in the end-to-end scan test; here the disk as a whole.
TEST_F(GeneratedStore, ManifestCountsEveryFileOnDisk) {
  EXPECT_EQ(manifest_.messageFiles, 400u);
  EXPECT_GT(manifest_.distributionLists, 0u);
  EXPECT_GE(manifest_.domains, 3u);
  std::string tree;
  uint64_t files = 0, bytes = 0;
  describeTree(mailRoot(), "", tree, files, bytes);
  EXPECT_EQ(files, manifest_.diskFiles);
  EXPECT_EQ(bytes, manifest_.diskBytes);
}

// Each skipped name is present somewhere, at the domain, mailbox and folder levels, and each skipped
// folder holds messages, an index and a contacts subfolder, so entering one would change the totals.
TEST_F(GeneratedStore, EverySkippedSystemFolderIsPresentAndHoldsCountableJunk) {
  Survey survey;
  survey.visit(mailRoot(), 0, false);
  std::set<std::string> seen{"#msgs"};
  std::set<int> depths;
  bool caseVariant = false;
  for (const auto& s : survey.skipped) {
    const std::string name = s.first.substr(s.first.rfind('/') + 1);
    seen.insert(name);
    depths.insert(std::min(s.second, 3));
    caseVariant |= std::none_of(std::begin(kSkipped), std::end(kSkipped), [&](const char* k) { return name == k; });
    for (const char* file : {"/status.fld", "/index.fld", "/#msgs/1.eml", "/Data/index.fld"}) {
      EXPECT_EQ(access((s.first + file).c_str(), F_OK), 0) << s.first << file;
    }
  }
  for (const char* name : kSkipped) EXPECT_EQ(seen.count(name), 1u) << name;
  EXPECT_EQ(depths, (std::set<int>{1, 2, 3}));
  EXPECT_TRUE(caseVariant) << "no skipped name in another letter case";
  EXPECT_TRUE(survey.link) << "no symbolic link to a folder";
  EXPECT_EQ(survey.skipped.size(), manifest_.systemFolders);
}

// Every mail message (not the items, not the junk in skipped folders) is well-formed and of its shape.
TEST_F(GeneratedStore, EveryMailMessageIsWellFormedAndTheShapeCountsMatch) {
  Survey survey;
  survey.visit(mailRoot(), 0, false);
  std::map<std::string, uint64_t> shapes;
  uint64_t crlf = 0;
  for (const std::string& path : survey.messages) {
    const std::string text = readFile(path);
    ++shapes[vorlane::testing::shapeOf(text)];
    crlf += text.find("\r\n") != std::string::npos;
  }
  EXPECT_EQ(shapes.count(""), 0u) << "messages not well-formed or of no known shape";
  for (size_t s = 0; s < vorlane::mkstore::kShapeCount; ++s) {
    const char* name = vorlane::mkstore::shapeTraits(static_cast<vorlane::mkstore::MessageShape>(s)).name;
    EXPECT_EQ(shapes[name], manifest_.shapes[s]) << name;
    EXPECT_GT(manifest_.shapes[s], 0u) << name;
  }
  EXPECT_EQ(survey.messages.size(), manifest_.messageFiles);
  EXPECT_GT(crlf, 0u);
  EXPECT_LT(crlf, survey.messages.size());
}

TEST(StoreGenerator, TheSameSeedGivesAByteIdenticalStoreAndAnotherSeedDoesNot) {
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  std::string trees[3];
  const uint64_t seeds[3] = {5, 5, 6};
  for (int i = 0; i < 3; ++i) {
    const std::string outDir = dir.file("s" + std::to_string(i));
    Manifest manifest;
    ASSERT_TRUE(generate(outDir, 100, seeds[i], manifest));
    uint64_t files = 0, bytes = 0;
    describeTree(outDir, "", trees[i], files, bytes);
    trees[i] += vorlane::mkstore::manifestJson(manifest);
  }
  EXPECT_TRUE(trees[0] == trees[1]) << "two runs with seed 5 differ";
  EXPECT_FALSE(trees[0] == trees[2]) << "seeds 5 and 6 give the same store";
}

TEST(StoreGenerator, RefusesANonEmptyDirectoryUnlessForcedAndThenReplacesOnlyTheStore) {
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  std::string error;
  ASSERT_TRUE(vorlane::mkstore::writeFile(dir.file("keep.txt"), "x", 1, error));
  ASSERT_EQ(mkdir(dir.file("mail").c_str(), 0755), 0);
  ASSERT_TRUE(vorlane::mkstore::writeFile(dir.file("mail/stale.txt"), "x", 1, error));

  Manifest manifest;
  const ::testing::AssertionResult refused = generate(dir.path(), 5, 1, manifest);
  EXPECT_FALSE(refused);
  EXPECT_NE(std::string(refused.message()).find(dir.path()), std::string::npos) << refused.message();
  EXPECT_EQ(access(dir.file("mail/stale.txt").c_str(), F_OK), 0);

  ASSERT_TRUE(generate(dir.path(), 5, 1, manifest, true));
  EXPECT_NE(access(dir.file("mail/stale.txt").c_str(), F_OK), 0);
  EXPECT_EQ(access(dir.file("keep.txt").c_str(), F_OK), 0);
  EXPECT_EQ(manifest.messageFiles, 5u);
}

TEST(StoreGenerator, FailuresNameThePathAndTheSystemError) {
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  struct Case {
    std::string outDir;
    const char* cause;
  };
  std::string error;
  ASSERT_TRUE(vorlane::mkstore::writeFile(dir.file("file"), "x", 1, error));
  for (const Case& c : {Case{dir.file("missing/parent"), "No such file or directory"},
                        Case{dir.file("file"), "not a directory"}}) {
    Manifest manifest;
    const ::testing::AssertionResult failed = generate(c.outDir, 1, 1, manifest);
    EXPECT_FALSE(failed);
    const std::string text = failed.message();
    EXPECT_NE(text.find(c.outDir), std::string::npos) << text;
    EXPECT_NE(text.find(c.cause), std::string::npos) << text;
  }
}
