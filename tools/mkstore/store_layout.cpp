#include "mkstore/store_layout.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace vorlane {
namespace mkstore {

const char* const kSystemFolderNames[] = {
    "#assoc",      "#sync",           "__vorlanemapi__STORE", "__vorlanemapi__STORE_ROOT",
    "__vorlanemapi__IPM_ROOT", "IPM_VIEWS", "IPM_COMMON_VIEWS", "Reminders",
    "Search Root", "Freebusy Data",
};
const size_t kSystemFolderNameCount = sizeof(kSystemFolderNames) / sizeof(kSystemFolderNames[0]);

namespace {

struct FolderTemplate {
  const char* path;
  int type;
  unsigned weight;     // relative share of the mailbox's messages or entries
  unsigned perMille;   // how many mailboxes have it (1000 = all)
  bool outgoing;
  bool hasStatus;
};

// Parents precede their subfolders. The first mailbox of the store gets every folder.
const FolderTemplate kUserFolders[] = {
    {"INBOX", 0, 400, 1000, false, true},
    {"INBOX/Orders", 0, 60, 300, false, true},
    {"INBOX/Newsletters", 0, 60, 250, false, true},
    {"Sent Items", 0, 150, 1000, true, true},
    {"Deleted Items", 0, 80, 1000, false, true},
    {"Drafts", 0, 10, 1000, true, true},
    {"Junk E-mail", 0, 40, 1000, false, true},
    {"Archive", 0, 250, 500, false, true},
    {"Projects", 0, 20, 200, false, true},
    {"Projects/2025", 0, 50, 200, false, true},
    // Restored from a backup without its status file: its messages count, the folder itself does not.
    {"Imported", 0, 60, 50, false, false},
    {"Imported/2019", 0, 40, 50, false, true},
    {"Contacts", 1, 400, 1000, false, true},
    {"Suppliers", 1, 100, 200, false, true},
    {"Calendar", 2, 300, 1000, false, true},
    {"Team Calendar", 2, 80, 100, false, true},
    {"Tasks", 3, 100, 1000, false, true},
    {"Follow-up", 3, 40, 100, false, true},
    {"Journal", 4, 50, 1000, false, true},
    {"Notes", 5, 50, 1000, false, true},
    {"Ideas", 5, 30, 200, false, true},
};

const FolderTemplate kPublicFolders[] = {
    {"Company News", 0, 600, 1000, false, true},
    {"Company News/Archive 2025", 0, 300, 1000, false, true},
    {"Support", 0, 300, 1000, false, true},
    {"Support/Tickets", 0, 500, 1000, false, true},
    {"Shared Contacts", 1, 900, 1000, false, true},
    {"Holidays", 2, 300, 1000, false, true},
    {"Team Tasks", 3, 200, 1000, false, true},
    {"Knowledge Base", 4, 100, 1000, false, true},
    {"Notice Board", 5, 100, 1000, false, true},
};

const char* const kDomainStems[] = {"alpha", "northwind", "bluebird", "keystone", "riverside",
                                    "summit", "harbor", "meadow", "granite", "lakeside"};
const char* const kDomainSuffixes[] = {".example.com", ".example.net", ".example.org", ".example"};
const char* const kFirst[] = {"anna", "ben", "clara", "david", "eva", "felix", "greta", "hugo", "ines",
                              "jonas", "karin", "lukas", "maria", "noah", "olga", "paul", "rosa", "simon",
                              "tara", "viktor", "wilma", "yusuf"};
const char* const kLast[] = {"berger", "novak", "schmidt", "lindqvist", "moreau", "rossi", "keller",
                             "hansen", "dvorak", "fischer", "weber", "horvat", "jensen", "meyer", "costa",
                             "baker"};

std::string capitalised(const std::string& s) {
  std::string r = s;
  if (!r.empty()) r[0] = static_cast<char>(toupper(static_cast<unsigned char>(r[0])));
  return r;
}

class Planner {
 public:
  Planner(uint64_t messages, uint64_t seed) : messages_(messages), rng_(seed ^ 0x6C61796F7574ULL) {}

  StorePlan run() {
    const uint64_t mailboxes = std::max<uint64_t>(3, std::min<uint64_t>(messages_ / 250, 20000));
    const uint64_t domains = std::min<uint64_t>(mailboxes, std::max<uint64_t>(3, std::min<uint64_t>(mailboxes / 20, 200)));
    plan_.domains = static_cast<uint32_t>(domains);
    plan_.mailboxes = static_cast<uint32_t>(mailboxes + 1);

    // Every domain has a mailbox; the rest go to domains with falling weights, so a few domains are large.
    std::vector<uint32_t> perDomain(domains, 1);
    std::vector<unsigned> domainWeights(domains);
    for (size_t d = 0; d < domains; ++d) domainWeights[d] = static_cast<unsigned>(1000 / (d + 1));
    for (uint64_t m = domains; m < mailboxes; ++m) ++perDomain[rng_.weighted(domainWeights.data(), domains)];

    systemFolder("#sync");
    stray("store.cfg");
    for (size_t d = 0; d < domains; ++d) {
      std::string domain = std::string(kDomainStems[d % 10]) + kDomainSuffixes[(d / 10) % 4];
      if (d >= 40) domain = std::to_string(d / 40) + domain;
      container(domain);
      if (d == 0) {
        firstDomain_ = domain;
        // Left behind at domain level by older server versions; a walk taking them for mailboxes would
        // count mailboxes and folders that do not exist.
        systemFolder(domain + "/#assoc");
        systemFolder(domain + "/Reminders");
        stray(domain + "/domain.cfg");
      }
      std::set<std::string> names;
      for (uint32_t m = 0; m < perDomain[d]; ++m) mailbox(domain, names);
    }
    publicTree();
    distribute();
    return std::move(plan_);
  }

 private:
  PlannedEntry& add(EntryKind kind, const std::string& path) {
    plan_.entries.emplace_back();
    plan_.entries.back().kind = kind;
    plan_.entries.back().path = path;
    return plan_.entries.back();
  }
  void container(const std::string& path) { add(EntryKind::Container, path); }
  void systemFolder(const std::string& path) { add(EntryKind::SystemFolder, path); }
  void stray(const std::string& path) { add(EntryKind::StrayFile, path); }

  void folder(const std::string& path, const FolderTemplate& t, unsigned owner, unsigned activity) {
    PlannedEntry& e = add(EntryKind::Folder, path);
    e.type = t.type;
    e.hasStatus = t.hasStatus;
    e.outgoing = t.outgoing;
    e.owner = owner;
    e.weight = t.weight * activity;
  }

  void mailbox(const std::string& domain, std::set<std::string>& names) {
    const bool first = plan_.owners.empty();
    std::string name = std::string(rng_.pick(kFirst)) + "." + rng_.pick(kLast);
    for (unsigned n = 2; !names.insert(name).second; ++n) {
      name = name.substr(0, name.find_last_not_of("0123456789") + 1) + std::to_string(n);
    }
    const std::string base = domain + "/" + name;
    container(base);
    const unsigned owner = static_cast<unsigned>(plan_.owners.size());
    const size_t dot = name.find('.');
    plan_.owners.push_back({capitalised(name.substr(0, dot)) + " " + capitalised(name.substr(dot + 1)),
                            name + "@" + domain});

    // A few very active mailboxes hold most of the mail, as in real stores.
    static const unsigned kActivityWeights[] = {40, 30, 20, 10};
    const unsigned activity = 1u << rng_.weighted(kActivityWeights, 4);
    bool projects = false, imported = false;
    for (const FolderTemplate& t : kUserFolders) {
      const std::string path(t.path);
      if (path.compare(0, 9, "Projects/") == 0 && !projects) continue;
      if (path.compare(0, 9, "Imported/") == 0 && !imported) continue;
      if (!first && !rng_.chance(t.perMille)) continue;
      if (path == "Projects") projects = true;
      if (path == "Imported") imported = true;
      folder(base + "/" + path, t, owner, activity);
      PlannedEntry& e = plan_.entries.back();
      if (path == "INBOX") {
        e.junkTemp = first || rng_.chance(50);
        if (first || rng_.chance(300)) systemFolder(base + "/INBOX/#assoc");
      }
      if (path == "Contacts" && first) e.entries = 2;  // the store always has a contact and a list
    }
    for (size_t s = 0; s < kSystemFolderNameCount; ++s) {
      if (first || rng_.chance(400)) systemFolder(base + "/" + kSystemFolderNames[s]);
    }
    if (plan_.owners.size() == 2) {
      // Names are matched without regard to case; older clients created them in other spellings.
      systemFolder(base + "/SEARCH ROOT");
      systemFolder(base + "/reminders");
    }
    if (first) {
      add(EntryKind::Symlink, base + "/Shortcut to INBOX").target = "INBOX";
      stray(base + "/mailbox.cfg");
    }
  }

  void publicTree() {
    container("#public");
    systemFolder("#public/#assoc");
    const unsigned owner = static_cast<unsigned>(plan_.owners.size());
    plan_.owners.push_back({"Public Folders", "public@" + firstDomain_});
    for (const FolderTemplate& t : kPublicFolders) {
      folder(std::string("#public/") + t.path, t, owner, 1);
      if (std::string(t.path) == "Support") systemFolder("#public/Support/IPM_VIEWS");
    }
  }

  // Hands out the messages to mail folders and the index entries (a quarter as many, plus one per folder)
  // to the other folders, each by weight.
  void distribute() {
    std::vector<size_t> mail, other;
    std::vector<uint64_t> mailCum, otherCum;
    for (size_t i = 0; i < plan_.entries.size(); ++i) {
      const PlannedEntry& e = plan_.entries[i];
      if (e.kind != EntryKind::Folder || e.weight == 0) continue;
      std::vector<size_t>& ids = e.type == 0 ? mail : other;
      std::vector<uint64_t>& cum = e.type == 0 ? mailCum : otherCum;
      ids.push_back(i);
      cum.push_back((cum.empty() ? 0 : cum.back()) + e.weight);
    }
    const auto draw = [this](const std::vector<size_t>& ids, const std::vector<uint64_t>& cum) -> PlannedEntry& {
      const uint64_t r = rng_.below(cum.back());
      return plan_.entries[ids[std::upper_bound(cum.begin(), cum.end(), r) - cum.begin()]];
    };
    for (uint64_t m = 0; m < messages_; ++m) ++draw(mail, mailCum).messages;
    const uint64_t entries = messages_ / 4 + other.size();
    for (uint64_t n = 0; n < entries; ++n) ++draw(other, otherCum).entries;
  }

  uint64_t messages_;
  Prng rng_;
  std::string firstDomain_;
  StorePlan plan_;
};

}  // namespace

StorePlan planStore(uint64_t messages, uint64_t seed) { return Planner(messages, seed).run(); }

}  // namespace mkstore
}  // namespace vorlane
