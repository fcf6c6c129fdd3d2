#include "history_db.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace vorlane {
namespace cli {

namespace {

const char* const kSchema = R"(
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
  report_domains INTEGER NOT NULL
);
CREATE INDEX scan_by_node_date ON scan(node, date);
CREATE TABLE folder (
  scan INTEGER NOT NULL REFERENCES scan(id),
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
  encrypted INTEGER NOT NULL
);
CREATE INDEX folder_by_scan ON folder(scan);
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
  // A whole scan goes in as one transaction: with the default small page cache, SQLite would spill
  // (and sync) pages of the journal long before the commit. Sorting for the per-mailbox sums stays in memory.
  std::string ignored;
  exec("PRAGMA cache_size = -65536; PRAGMA temp_store = MEMORY", ignored);
  return checkSchema(create, error);
}

bool HistoryDb::checkSchema(bool create, std::string& error) {
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
  const long long applicationId = probe.integer(0);
  const long long version = probe.integer(1);
  const long long objects = probe.integer(2);
  probe.reset();
  if (applicationId == 0 && version == 0 && objects == 0) {
    if (!create) {
      error = path_ + " holds no scan history (empty database)";
      return false;
    }
    // Two importers may create the same new database at once: the write lock decides, the loser then
    // finds the schema in place.
    if (!exec("BEGIN IMMEDIATE", error)) return false;
    if (probe.step() == SQLITE_ROW && probe.integer(2) == 0) {
      const std::string pragmas = "PRAGMA application_id = " + std::to_string(kApplicationId) +
                                  "; PRAGMA user_version = " + std::to_string(kHistorySchemaVersion) + ";";
      if (!exec(kSchema, error) || !exec(pragmas.c_str(), error)) {
        exec("ROLLBACK", error);
        return false;
      }
    }
    probe.reset();
    return exec("COMMIT", error) && checkSchema(false, error);
  }
  if (applicationId != kApplicationId) {
    error = path_ + " is not a vstat history database";
    return false;
  }
  if (version > kHistorySchemaVersion) {
    error = path_ + " has history schema version " + std::to_string(version) + ", newer than the version " +
            std::to_string(kHistorySchemaVersion) + " this vstat knows; use a newer vstat";
    return false;
  }
  if (version < 1) {
    error = path_ + " has no history schema version; it is damaged";
    return false;
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

ScanImport::~ScanImport() {
  if (open_) {
    std::string ignored;
    insertFolder_.finalize();
    db_.exec("ROLLBACK", ignored);
  }
}

bool ScanImport::begin(const ScanHeader& h, std::string& error) {
  if (!db_.exec("BEGIN IMMEDIATE", error)) return false;
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
  return db_.prepare("INSERT INTO folder VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)", insertFolder_,
                     error);
}

bool ScanImport::addFolder(const FolderDetails& f, std::string& error) {
  Statement& s = insertFolder_;
  s.bind(1, scanId_);
  s.bindBytes(2, f.domain);
  s.bindBytes(3, f.mailbox);
  s.bindBytes(4, f.folder);
  s.bind(5, f.type);
  s.bind(6, f.isPublic ? 1 : 0);
  s.bind(7, f.hasStatus ? 1 : 0);
  s.bind(8, asInteger(f.messages));
  s.bind(9, asInteger(f.bytes));
  s.bind(10, asInteger(f.largest));
  s.bind(11, asInteger(f.headerBytes));
  s.bind(12, asInteger(f.plainBytes));
  s.bind(13, asInteger(f.htmlBytes));
  s.bind(14, asInteger(f.rtfBytes));
  s.bind(15, asInteger(f.signedMessages));
  s.bind(16, asInteger(f.encryptedMessages));
  const int result = s.step();
  s.reset();
  if (result == SQLITE_DONE) return true;
  error = db_.lastError();
  return false;
}

bool ScanImport::commit(bool partial, long long& scanId, std::string& error) {
  insertFolder_.finalize();
  Statement finish;
  if (!db_.prepare("UPDATE scan SET partial = ? WHERE id = ?", finish, error)) return false;
  finish.bind(1, partial ? 1 : 0);
  finish.bind(2, scanId_);
  if (finish.step() != SQLITE_DONE) {
    error = db_.lastError();
    return false;
  }
  Statement sums;
  if (!db_.prepare("INSERT INTO mailbox SELECT scan, domain, mailbox, COUNT(*), SUM(messages), SUM(bytes), "
                   "MAX(largest) FROM folder WHERE scan = ? GROUP BY domain, mailbox",
                   sums, error)) {
    return false;
  }
  sums.bind(1, scanId_);
  if (sums.step() != SQLITE_DONE) {
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
