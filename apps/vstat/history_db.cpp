#include "history_db.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace vorlane {
namespace cli {

namespace {

// The tables, as a new database gets them. Rows of one scan are one key range in every table but
// `scan`, so the questions about the newest scans read only those.
const char* const kScanTable = R"(
CREATE TABLE scan (
  id INTEGER PRIMARY KEY,
  node TEXT NOT NULL,
  date TEXT NOT NULL,
  imported TEXT NOT NULL,
  store BLOB NOT NULL,
  product_version BLOB NOT NULL,
  build INTEGER NOT NULL,
  os_name BLOB NOT NULL,
  os_code INTEGER NOT NULL,
  partial INTEGER NOT NULL,
  report_messages INTEGER NOT NULL,
  report_bytes INTEGER NOT NULL,
  report_largest INTEGER NOT NULL,
  report_folders INTEGER NOT NULL,
  report_domains INTEGER NOT NULL,
  messages INTEGER NOT NULL DEFAULT 0,
  bytes INTEGER NOT NULL DEFAULT 0,
  folders INTEGER NOT NULL DEFAULT 0
);
CREATE INDEX scan_by_node_date ON scan(node, date);
)";

const char* const kFolderTable = R"(
CREATE TABLE folder (
  scan INTEGER NOT NULL REFERENCES scan(id),
  seq INTEGER NOT NULL,
  domain BLOB NOT NULL,
  mailbox BLOB NOT NULL,
  folder BLOB NOT NULL,
  type INTEGER NOT NULL,
  public INTEGER NOT NULL,
  status INTEGER NOT NULL,
  messages INTEGER NOT NULL,
  bytes INTEGER NOT NULL,
  largest INTEGER NOT NULL,
  header_bytes INTEGER NOT NULL,
  plain_bytes INTEGER NOT NULL,
  html_bytes INTEGER NOT NULL,
  rtf_bytes INTEGER NOT NULL,
  signed INTEGER NOT NULL,
  encrypted INTEGER NOT NULL,
  PRIMARY KEY (scan, seq)
) WITHOUT ROWID;
)";

const char* const kMailboxTable = R"(
CREATE TABLE mailbox (
  scan INTEGER NOT NULL REFERENCES scan(id),
  domain BLOB NOT NULL,
  mailbox BLOB NOT NULL,
  folders INTEGER NOT NULL,
  messages INTEGER NOT NULL,
  bytes INTEGER NOT NULL,
  largest INTEGER NOT NULL,
  PRIMARY KEY (scan, domain, mailbox)
) WITHOUT ROWID;
)";

// Version 1 kept folder rows by row id with an index on the scan, and no sums in `scan`.
const char* const kUpgradeFromVersion1 = R"(
ALTER TABLE scan ADD COLUMN messages INTEGER NOT NULL DEFAULT 0;
ALTER TABLE scan ADD COLUMN bytes INTEGER NOT NULL DEFAULT 0;
ALTER TABLE scan ADD COLUMN folders INTEGER NOT NULL DEFAULT 0;
UPDATE scan SET (messages, bytes, folders) = (SELECT COALESCE(SUM(messages), 0), COALESCE(SUM(bytes), 0),
  COALESCE(SUM(folders), 0) FROM mailbox WHERE mailbox.scan = scan.id);
DROP INDEX folder_by_scan;
ALTER TABLE folder RENAME TO folder_version1;
)";

const char* const kCopyVersion1Folders = R"(
INSERT INTO folder SELECT scan, row_number() OVER (PARTITION BY scan ORDER BY rowid), domain, mailbox, folder,
  type, public, status, messages, bytes, largest, header_bytes, plain_bytes, html_bytes, rtf_bytes, signed,
  encrypted FROM folder_version1;
DROP TABLE folder_version1;
)";

std::string nowUtc() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

// mkdir -p with mode 0700 for the directories it makes.
bool makeParents(const std::string& path, std::string& error) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    const std::string prefix = path.substr(0, slash);
    if (::mkdir(prefix.c_str(), 0700) != 0 && errno != EEXIST) {
      error = "cannot create directory " + prefix + ": " + std::strerror(errno);
      return false;
    }
  }
  return true;
}

long long asInteger(unsigned long long value) { return static_cast<long long>(value); }

}  // namespace

std::string defaultHistoryPath() {
  if (::geteuid() == 0) return "/var/lib/vstat/history.sqlite";
  const char* data = std::getenv("XDG_DATA_HOME");
  if (data && data[0] == '/') return std::string(data) + "/vstat/history.sqlite";
  const char* home = std::getenv("HOME");
  return std::string(home && home[0] == '/' ? home : "") + "/.local/share/vstat/history.sqlite";
}

void Statement::bindBytes(int index, const std::string& bytes) {
  sqlite3_bind_blob64(stmt_, index, bytes.data(), bytes.size(), SQLITE_TRANSIENT);
}

void Statement::bindText(int index, const std::string& text) {
  sqlite3_bind_text64(stmt_, index, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

std::string Statement::bytes(int column) const {
  const void* data = sqlite3_column_blob(stmt_, column);
  const int size = sqlite3_column_bytes(stmt_, column);
  return data ? std::string(static_cast<const char*>(data), static_cast<size_t>(size)) : std::string();
}

bool HistoryDb::open(const std::string& path, bool create, std::string& error, int busyTimeoutMs,
                     bool createParents) {
  path_ = path;
  busyTimeoutMs_ = busyTimeoutMs;
  const bool memory = path == ":memory:";
  if (!memory && create) {
    if (createParents && !makeParents(path, error)) return false;
    // Made here rather than by SQLite so that it is private from the first moment; SQLite gives its
    // journal the same permissions.
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
      error = "cannot create history database " + path + ": " + std::strerror(errno);
      return false;
    }
    ::close(fd);
  }
  if (!memory && !create && ::access(path.c_str(), F_OK) != 0) {
    error = "no history database at " + path + ": " + std::strerror(errno);
    return false;
  }
  if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK) {
    error = lastError();
    return false;
  }
  sqlite3_busy_timeout(db_, busyTimeoutMs);
  std::string ignored;
  exec("PRAGMA temp_store = MEMORY", ignored);
  return checkSchema(create, error);
}

bool HistoryDb::probeSchema(SchemaState& state, std::string& error) {
  Statement probe;
  if (!prepare("SELECT (SELECT application_id FROM pragma_application_id), (SELECT user_version FROM "
               "pragma_user_version), (SELECT COUNT(*) FROM sqlite_schema)",
               probe, error)) {
    return false;
  }
  if (probe.step() != SQLITE_ROW) {
    error = lastError();
    return false;
  }
  state.applicationId = probe.integer(0);
  state.version = probe.integer(1);
  state.objects = probe.integer(2);
  return true;
}

bool HistoryDb::changeSchema(long long fromVersion, const std::string& sql, std::string& error) {
  if (!exec("BEGIN IMMEDIATE", error)) return false;
  SchemaState state;
  std::string ignored;
  if (!probeSchema(state, error)) {
    exec("ROLLBACK", ignored);
    return false;
  }
  if (state.version == fromVersion && (fromVersion != 0 || state.objects == 0) && !exec(sql.c_str(), error)) {
    exec("ROLLBACK", ignored);
    return false;
  }
  return exec("COMMIT", error);
}

bool HistoryDb::checkSchema(bool create, std::string& error) {
  SchemaState state;
  if (!probeSchema(state, error)) return false;
  const std::string setVersion = "PRAGMA user_version = " + std::to_string(kHistorySchemaVersion) + ";";
  if (state.applicationId == 0 && state.version == 0 && state.objects == 0) {
    if (!create) {
      error = path_ + " holds no scan history (empty database)";
      return false;
    }
    // Larger pages than the default 4 KiB: fewer of them to write and to read per scan.
    std::string ignored;
    exec("PRAGMA page_size = 16384", ignored);
    // Two importers may create the same new database at once: the write lock decides, the loser then
    // finds the schema in place.
    return changeSchema(0,
                        "PRAGMA application_id = " + std::to_string(kApplicationId) + ";" + setVersion + kScanTable +
                            kFolderTable + kMailboxTable,
                        error) &&
           checkSchema(false, error);
  }
  if (state.applicationId != kApplicationId) {
    error = path_ + " is not a vstat history database";
    return false;
  }
  if (state.version > kHistorySchemaVersion) {
    error = path_ + " has history schema version " + std::to_string(state.version) + ", newer than the version " +
            std::to_string(kHistorySchemaVersion) + " this vstat knows; use a newer vstat";
    return false;
  }
  if (state.version < 1) {
    error = path_ + " has no history schema version; it is damaged";
    return false;
  }
  if (state.version == 1) {
    return changeSchema(1, std::string(kUpgradeFromVersion1) + kFolderTable + kCopyVersion1Folders + setVersion,
                        error) &&
           checkSchema(false, error);
  }
  return true;
}

bool HistoryDb::exec(const char* sql, std::string& error) {
  if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK) return true;
  error = lastError();
  return false;
}

bool HistoryDb::prepare(const char* sql, Statement& statement, std::string& error) {
  if (sqlite3_prepare_v2(db_, sql, -1, statement.out(), nullptr) == SQLITE_OK) return true;
  error = lastError();
  return false;
}

std::string HistoryDb::lastError() const {
  if (!db_) return "cannot open history database " + path_;
  const int code = sqlite3_errcode(db_);
  if (code == SQLITE_BUSY || code == SQLITE_LOCKED) {
    return "history database " + path_ + " is locked by another writer; gave up after " +
           std::to_string(busyTimeoutMs_) + " ms";
  }
  return "history database " + path_ + ": " + sqlite3_errmsg(db_);
}

bool ScanImport::Sums::add(const Sums& more) {
  largest = folders == 0 ? more.largest : std::max(largest, more.largest);
  return !__builtin_add_overflow(folders, more.folders, &folders) &&
         !__builtin_add_overflow(messages, more.messages, &messages) &&
         !__builtin_add_overflow(bytes, more.bytes, &bytes);
}

ScanImport::~ScanImport() {
  if (open_) {
    std::string ignored;
    db_.exec("ROLLBACK", ignored);
  }
}

bool ScanImport::begin(const ScanHeader& h, std::string& error) {
  // A whole scan goes in as one transaction: with the default small page cache, SQLite would spill
  // (and sync) pages of the journal long before the commit. Readers keep the small cache: filling a
  // large one costs them more than it saves.
  if (!db_.exec("PRAGMA cache_size = -65536; BEGIN IMMEDIATE", error)) return false;
  open_ = true;
  Statement insert;
  if (!db_.prepare("INSERT INTO scan (node, date, imported, store, product_version, build, os_name, os_code, "
                   "partial, report_messages, report_bytes, report_largest, report_folders, report_domains) "
                   "VALUES (?, ?, ?, ?, ?, ?, ?, ?, 0, ?, ?, ?, ?, ?)",
                   insert, error)) {
    return false;
  }
  insert.bindText(1, h.node);
  insert.bindText(2, h.job.date);
  insert.bindText(3, nowUtc());
  insert.bindBytes(4, h.job.store);
  insert.bindBytes(5, h.job.productVersion);
  insert.bind(6, asInteger(h.job.build));
  insert.bindBytes(7, h.job.osName);
  insert.bind(8, asInteger(h.job.osCode));
  insert.bind(9, asInteger(h.reportMessages));
  insert.bind(10, asInteger(h.reportBytes));
  insert.bind(11, asInteger(h.reportLargest));
  insert.bind(12, asInteger(h.reportFolders));
  insert.bind(13, asInteger(h.reportDomains));
  if (insert.step() != SQLITE_DONE) {
    error = db_.lastError();
    return false;
  }
  scanId_ = sqlite3_last_insert_rowid(db_.handle());
  return db_.prepare("INSERT INTO folder VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)", insertFolder_,
                     error) &&
         db_.prepare("SELECT folders, messages, bytes, largest FROM mailbox WHERE scan = ? AND domain = ? AND "
                     "mailbox = ?",
                     findMailbox_, error) &&
         db_.prepare("INSERT INTO mailbox VALUES (?, ?, ?, ?, ?, ?, ?) ON CONFLICT DO NOTHING", addMailbox_, error) &&
         db_.prepare("INSERT OR REPLACE INTO mailbox VALUES (?, ?, ?, ?, ?, ?, ?)", replaceMailbox_, error);
}

bool ScanImport::addFolder(const FolderDetails& f, std::string& error) {
  Statement& s = insertFolder_;
  s.bind(1, scanId_);
  s.bind(2, scan_.folders + 1);
  s.bindBytesInPlace(3, f.domain);
  s.bindBytesInPlace(4, f.mailbox);
  s.bindBytesInPlace(5, f.folder);
  s.bind(6, f.type);
  s.bind(7, f.isPublic ? 1 : 0);
  s.bind(8, f.hasStatus ? 1 : 0);
  s.bind(9, asInteger(f.messages));
  s.bind(10, asInteger(f.bytes));
  s.bind(11, asInteger(f.largest));
  s.bind(12, asInteger(f.headerBytes));
  s.bind(13, asInteger(f.plainBytes));
  s.bind(14, asInteger(f.htmlBytes));
  s.bind(15, asInteger(f.rtfBytes));
  s.bind(16, asInteger(f.signedMessages));
  s.bind(17, asInteger(f.encryptedMessages));
  const int result = s.step();
  s.reset();
  if (result != SQLITE_DONE) {
    error = db_.lastError();
    return false;
  }
  const bool sameMailbox = scan_.folders > 0 && f.mailbox == mailbox_ && f.domain == domain_;
  if (scan_.folders > 0 && !sameMailbox && !storeMailbox(error)) return false;
  if (!sameMailbox) {
    domain_ = f.domain;
    mailbox_ = f.mailbox;
    mailboxSums_ = Sums();
  }
  const Sums one{1, asInteger(f.messages), asInteger(f.bytes), asInteger(f.largest)};
  return (mailboxSums_.add(one) && scan_.add(one)) || overflow(error);
}

bool ScanImport::writeMailbox(Statement& s, std::string& error) {
  s.bind(1, scanId_);
  s.bindBytes(2, domain_);
  s.bindBytes(3, mailbox_);
  s.bind(4, mailboxSums_.folders);
  s.bind(5, mailboxSums_.messages);
  s.bind(6, mailboxSums_.bytes);
  s.bind(7, mailboxSums_.largest);
  const int result = s.step();
  s.reset();
  if (result == SQLITE_DONE) return true;
  error = db_.lastError();
  return false;
}

bool ScanImport::storeMailbox(std::string& error) {
  if (!writeMailbox(addMailbox_, error)) return false;
  if (sqlite3_changes(db_.handle()) > 0) return true;
  // The mailbox came back after other mailboxes' folders: what is stored for it joins the sums.
  findMailbox_.bind(1, scanId_);
  findMailbox_.bindBytes(2, domain_);
  findMailbox_.bindBytes(3, mailbox_);
  const int found = findMailbox_.step();
  const Sums stored{findMailbox_.integer(0), findMailbox_.integer(1), findMailbox_.integer(2), findMailbox_.integer(3)};
  findMailbox_.reset();
  if (found != SQLITE_ROW) {
    error = db_.lastError();
    return false;
  }
  return (mailboxSums_.add(stored) || overflow(error)) && writeMailbox(replaceMailbox_, error);
}

bool ScanImport::overflow(std::string& error) const {
  error = "history database " + db_.path() + ": integer overflow in the per-mailbox or per-scan sums";
  return false;
}

bool ScanImport::commit(bool partial, long long& scanId, std::string& error) {
  if (scan_.folders > 0 && !storeMailbox(error)) return false;
  Statement finish;
  if (!db_.prepare("UPDATE scan SET partial = ?, messages = ?, bytes = ?, folders = ? WHERE id = ?", finish, error)) {
    return false;
  }
  finish.bind(1, partial ? 1 : 0);
  finish.bind(2, scan_.messages);
  finish.bind(3, scan_.bytes);
  finish.bind(4, scan_.folders);
  finish.bind(5, scanId_);
  if (finish.step() != SQLITE_DONE) {
    error = db_.lastError();
    return false;
  }
  if (!db_.exec("COMMIT", error)) return false;
  open_ = false;
  scanId = scanId_;
  return true;
}

}  // namespace cli
}  // namespace vorlane
