#include "mkstore/store_generator.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "message_shape_check.h"
#include "mkstore/output_files.h"
#include "../support/temp_dir.h"

using vorlane::mkstore::Manifest;
using vorlane::mkstore::StoreOptions;
using vorlane::mkstore::generateStore;
using vorlane::testing::TempDir;

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

std::string readAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
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

// What a walk of the store finds, by the store's own rules: folders are real directories (no links),
// skipped names are passed over when `honourSkips`, mail folders (type 0, also without status.fld) count
// their "eml" files, other folders count their index lines; folder levels below a mailbox, and every
// level of the public tree, count as folders when they have status.fld.
struct Walk {
  explicit Walk(bool honourSkips) : honourSkips(honourSkips) {}

  bool honourSkips;
  uint64_t domains = 0, mailboxes = 0, folders = 0, files = 0, fileBytes = 0, entries = 0, entryBytes = 0,
           distLists = 0;
  std::vector<std::string> messagePaths;

  std::vector<std::string> subfolders(const std::string& dir) const {
    std::vector<std::string> names;
    for (const Entry& e : list(dir)) {
      if (S_ISDIR(e.st.st_mode) && !(e.name == "#msgs" || (honourSkips && isSkipped(e.name)))) {
        names.push_back(e.name);
      }
    }
    return names;
  }

  void root(const std::string& dir) {
    contents(dir, false);
    for (const std::string& top : subfolders(dir)) {
      contents(dir + "/" + top, false);
      if (top == "#public") {
        ++mailboxes;
        for (const std::string& f : subfolders(dir + "/" + top)) folder(dir + "/" + top + "/" + f);
        continue;
      }
      ++domains;
      for (const std::string& mb : subfolders(dir + "/" + top)) {
        ++mailboxes;
        const std::string mbDir = dir + "/" + top + "/" + mb;
        contents(mbDir, false);
        for (const std::string& f : subfolders(mbDir)) folder(mbDir + "/" + f);
      }
    }
  }

  void folder(const std::string& dir) {
    contents(dir, true);
    for (const std::string& f : subfolders(dir)) folder(dir + "/" + f);
  }

  void contents(const std::string& dir, bool countsAsFolder) {
    int type = 0;
    std::ifstream status(dir + "/status.fld");
    if (status) {
      folders += countsAsFolder;
      std::string line;
      while (std::getline(status, line)) {
        if (!line.empty() && line[0] == 'T') type = atoi(line.c_str() + 1);
      }
    }
    if (type != 0) {
      std::ifstream index(dir + "/index.fld");
      std::string line, token;
      while (std::getline(index, line)) {
        ++entries;
        std::istringstream tokens(line);
        while (tokens >> token) {
          if (token[0] == 'S') entryBytes += strtoull(token.c_str() + 1, nullptr, 10);
          if (token == "CIPM.DistList") ++distLists;
        }
      }
      return;
    }
    for (const Entry& e : list(dir + "/#msgs")) {
      if (!S_ISREG(e.st.st_mode) || e.name.size() < 3 || strcasecmp(e.name.c_str() + e.name.size() - 3, "eml") != 0)
        continue;
      ++files;
      fileBytes += static_cast<uint64_t>(e.st.st_size);
      messagePaths.push_back(dir + "/#msgs/" + e.name);
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
      out += "F " + relPath + "\n" + readAll(path) + "\n";
    }
  }
}

class GeneratedStore : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = new TempDir;
    ASSERT_FALSE(dir_->path().empty());
    StoreOptions options;
    options.messages = 400;
    options.seed = 11;
    options.outDir = dir_->file("store");
    std::string error;
    ASSERT_TRUE(generateStore(options, manifest_, error)) << error;
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

TEST_F(GeneratedStore, ManifestAgreesWithAWalkOfTheDisk) {
  Walk walk(true);
  walk.root(mailRoot());
  EXPECT_EQ(walk.domains, manifest_.domains);
  EXPECT_EQ(walk.mailboxes, manifest_.mailboxes);
  EXPECT_EQ(walk.folders, manifest_.folders);
  EXPECT_EQ(walk.files, manifest_.messageFiles);
  EXPECT_EQ(walk.fileBytes, manifest_.messageBytes);
  EXPECT_EQ(walk.entries, manifest_.indexEntries);
  EXPECT_EQ(walk.entryBytes, manifest_.indexBytes);
  EXPECT_EQ(walk.distLists, manifest_.distributionLists);
  EXPECT_EQ(manifest_.messageFiles, 400u);
  EXPECT_GT(manifest_.distributionLists, 0u);
  EXPECT_GE(manifest_.domains, 3u);

  std::string tree;
  uint64_t files = 0, bytes = 0;
  describeTree(mailRoot(), "", tree, files, bytes);
  EXPECT_EQ(files, manifest_.diskFiles);
  EXPECT_EQ(bytes, manifest_.diskBytes);
}

// Each skipped name is present somewhere, and entering them (or following the link) would change the totals.
TEST_F(GeneratedStore, EverySkippedSystemFolderIsPresentAndHoldsCountableJunk) {
  std::set<std::string> seen;
  std::vector<std::string> stack{mailRoot()};
  bool link = false, caseVariant = false;
  while (!stack.empty()) {
    const std::string dir = stack.back();
    stack.pop_back();
    for (const Entry& e : list(dir)) {
      link |= S_ISLNK(e.st.st_mode);
      if (!S_ISDIR(e.st.st_mode)) continue;
      if (isSkipped(e.name)) {
        seen.insert(e.name);
        caseVariant |= std::find_if(std::begin(kSkipped), std::end(kSkipped), [&](const char* s) {
                         return e.name == s;
                       }) == std::end(kSkipped);
      }
      stack.push_back(dir + "/" + e.name);
    }
  }
  for (const char* name : kSkipped) EXPECT_EQ(seen.count(name), 1u) << name;
  EXPECT_TRUE(caseVariant) << "no skipped name in another letter case";
  EXPECT_TRUE(link) << "no symbolic link to a folder";

  Walk careless(false);
  careless.root(mailRoot());
  EXPECT_GT(careless.domains, manifest_.domains);
  EXPECT_GT(careless.mailboxes, manifest_.mailboxes);
  EXPECT_GT(careless.folders, manifest_.folders);
  EXPECT_GT(careless.files, manifest_.messageFiles);
  EXPECT_GT(careless.entries, manifest_.indexEntries);
}

TEST_F(GeneratedStore, EveryWalkedMessageIsWellFormedAndTheShapeCountsMatch) {
  Walk walk(true);
  walk.root(mailRoot());
  std::map<std::string, uint64_t> shapes;
  uint64_t crlf = 0;
  for (const std::string& path : walk.messagePaths) {
    const std::string text = readAll(path);
    ++shapes[vorlane::testing::shapeOf(text)];
    crlf += text.find("\r\n") != std::string::npos;
  }
  EXPECT_EQ(shapes.count(""), 0u) << "messages not well-formed or of no known shape";
  for (size_t s = 0; s < vorlane::mkstore::kShapeCount; ++s) {
    const char* name = vorlane::mkstore::shapeTraits(static_cast<vorlane::mkstore::MessageShape>(s)).name;
    EXPECT_EQ(shapes[name], manifest_.shapes[s]) << name;
    EXPECT_GT(manifest_.shapes[s], 0u) << name;
  }
  EXPECT_GT(crlf, 0u);
  EXPECT_LT(crlf, walk.messagePaths.size());
}

TEST(StoreGenerator, TheSameSeedGivesAByteIdenticalStoreAndAnotherSeedDoesNot) {
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  std::string trees[3];
  const uint64_t seeds[3] = {5, 5, 6};
  for (int i = 0; i < 3; ++i) {
    StoreOptions options;
    options.messages = 100;
    options.seed = seeds[i];
    options.outDir = dir.file("s" + std::to_string(i));
    Manifest manifest;
    std::string error;
    ASSERT_TRUE(generateStore(options, manifest, error)) << error;
    uint64_t files = 0, bytes = 0;
    describeTree(options.outDir, "", trees[i], files, bytes);
    trees[i] += vorlane::mkstore::manifestJson(manifest);
  }
  EXPECT_TRUE(trees[0] == trees[1]) << "two runs with seed 5 differ";
  EXPECT_FALSE(trees[0] == trees[2]) << "seeds 5 and 6 give the same store";
}

TEST(StoreGenerator, MessageBytesGrowRoughlyLinearlyWithTheCount) {
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  uint64_t bytes[2];
  const uint64_t counts[2] = {150, 600};
  for (int i = 0; i < 2; ++i) {
    StoreOptions options;
    options.messages = counts[i];
    options.seed = 3;
    options.outDir = dir.file("s" + std::to_string(i));
    Manifest manifest;
    std::string error;
    ASSERT_TRUE(generateStore(options, manifest, error)) << error;
    bytes[i] = manifest.messageBytes;
  }
  const double ratio = static_cast<double>(bytes[1]) / static_cast<double>(bytes[0]);
  EXPECT_GT(ratio, 2.0);
  EXPECT_LT(ratio, 8.0);
}

TEST(StoreGenerator, RefusesANonEmptyDirectoryUnlessForcedAndThenReplacesOnlyTheStore) {
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  std::string error;
  ASSERT_TRUE(vorlane::mkstore::writeFile(dir.file("keep.txt"), "x", 1, error));
  ASSERT_EQ(mkdir(dir.file("mail").c_str(), 0755), 0);
  ASSERT_TRUE(vorlane::mkstore::writeFile(dir.file("mail/stale.txt"), "x", 1, error));

  StoreOptions options;
  options.messages = 5;
  options.seed = 1;
  options.outDir = dir.path();
  Manifest manifest;
  EXPECT_FALSE(generateStore(options, manifest, error));
  EXPECT_NE(error.find(dir.path()), std::string::npos) << error;
  EXPECT_EQ(access(dir.file("mail/stale.txt").c_str(), F_OK), 0);

  options.force = true;
  ASSERT_TRUE(generateStore(options, manifest, error)) << error;
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
    StoreOptions options;
    options.messages = 1;
    options.outDir = c.outDir;
    Manifest manifest;
    error.clear();
    EXPECT_FALSE(generateStore(options, manifest, error));
    EXPECT_NE(error.find(c.outDir), std::string::npos) << error;
    EXPECT_NE(error.find(c.cause), std::string::npos) << error;
  }
}
