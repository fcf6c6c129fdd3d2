#include "mkstore/store_generator.h"

#include <strings.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "message_shape_check.h"
#include "../support/temp_dir.h"

namespace fs = std::filesystem;
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

// What the tree holds for the checks below: the skipped directories met (path and depth below the mail
// root, "#msgs" left out), whether a symbolic link was met, and the mail messages: "eml" files in a
// "#msgs" directory below no skipped name that are not items (items carry an X-Item-Class header).
struct Survey {
  std::vector<std::pair<std::string, int>> skipped;
  bool link = false;
  std::vector<std::string> messages;

  explicit Survey(const std::string& root) {
    for (fs::recursive_directory_iterator it(root), end; it != end; ++it) {
      const fs::path& path = it->path();
      const std::string name = path.filename().string();
      if (it->is_symlink()) {
        link = true;
      } else if (it->is_directory()) {
        if (isSkipped(name) && name != "#msgs") skipped.emplace_back(path.string(), it.depth() + 1);
      } else if (it->is_regular_file() && path.parent_path().filename() == "#msgs" && name.size() > 3 &&
                 strcasecmp(name.c_str() + name.size() - 4, ".eml") == 0 && !belowSkipped(root, path) &&
                 readFile(path.string()).compare(0, 13, "X-Item-Class:") != 0) {
        messages.push_back(path.string());
      }
    }
  }

  static bool belowSkipped(const std::string& root, const fs::path& file) {
    for (const fs::path& part : fs::relative(file.parent_path().parent_path(), root)) {
      if (part != "#msgs" && isSkipped(part.string())) return true;
    }
    return false;
  }
};

// Every entry below `root` by its relative path: its kind and the content of files and links.
std::map<std::string, std::string> treeOf(const std::string& root) {
  std::map<std::string, std::string> tree;
  for (const fs::directory_entry& e : fs::recursive_directory_iterator(root)) {
    std::string& entry = tree[e.path().string().substr(root.size())];
    if (e.is_symlink()) entry = "L " + fs::read_symlink(e.path()).string();
    else if (e.is_directory()) entry = "D";
    else entry = "F " + readFile(e.path().string());
  }
  return tree;
}

// Generates a store of `messages` messages from `seed` into `outDir`.
::testing::AssertionResult generate(const std::string& outDir, uint64_t messages, uint64_t seed, Manifest& manifest) {
  StoreOptions options;
  options.messages = messages;
  options.seed = seed;
  options.outDir = outDir;
  std::string error;
  if (generateStore(options, manifest, error)) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << error;
}

// One store of 400 messages from seed 11 for the tests below, removed when the program ends.
class GeneratedStore : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_FALSE(dir().path().empty());
    ASSERT_TRUE(generate(dir().file("store"), 400, 11, manifest_));
  }
  static const TempDir& dir() {
    static const TempDir store;
    return store;
  }
  static std::string mailRoot() { return dir().file("store/mail"); }

  static Manifest manifest_;
};
Manifest GeneratedStore::manifest_;

}  // namespace

// The walk totals (domains, mailboxes, folders, messages, index entries, distribution lists) are compared
// with the server's own walk of a generated store in the end-to-end scan test; here the disk as a whole.
TEST_F(GeneratedStore, ManifestCountsEveryFileOnDisk) {
  EXPECT_EQ(manifest_.messageFiles, 400u);
  EXPECT_GT(manifest_.distributionLists, 0u);
  EXPECT_GE(manifest_.domains, 3u);
  uint64_t files = 0, bytes = 0;
  for (const auto& entry : treeOf(mailRoot())) {
    if (entry.second[0] != 'F') continue;
    ++files;
    bytes += entry.second.size() - 2;
  }
  EXPECT_EQ(files, manifest_.diskFiles);
  EXPECT_EQ(bytes, manifest_.diskBytes);
}

// Each skipped name is present somewhere, at the domain, mailbox and folder levels, and each skipped
// folder holds messages, an index and a contacts subfolder, so entering one would change the totals.
TEST_F(GeneratedStore, EverySkippedSystemFolderIsPresentAndHoldsCountableJunk) {
  const Survey survey(mailRoot());
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
  const Survey survey(mailRoot());
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
  std::map<std::string, std::string> trees[3];
  const uint64_t seeds[3] = {5, 5, 6};
  for (int i = 0; i < 3; ++i) {
    const std::string outDir = dir.file("s" + std::to_string(i));
    Manifest manifest;
    ASSERT_TRUE(generate(outDir, 100, seeds[i], manifest));
    trees[i] = treeOf(outDir);
    trees[i]["manifest"] = vorlane::mkstore::manifestJson(manifest);
  }
  EXPECT_TRUE(trees[0] == trees[1]) << "two runs with seed 5 differ";
  EXPECT_FALSE(trees[0] == trees[2]) << "seeds 5 and 6 give the same store";
}

TEST(StoreGenerator, FailuresNameThePathAndTheSystemError) {
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  struct Case { std::string outDir; const char* cause; };
  dir.write("file", "x");
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
