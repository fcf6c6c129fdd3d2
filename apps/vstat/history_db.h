// The scan history: an SQLite database holding, per scan, the report's header and totals and one row
// per folder of the scan's details, so that top lists and growth can be asked for later and across the
// nodes of a cluster (every scan is labelled with the node that ran it).
//
// Schema version 2 (PRAGMA user_version; PRAGMA application_id is kApplicationId). Names are BLOBs
// holding the exact bytes found on disk; counts and sizes are INTEGERs (unsigned 64-bit values stored
// as their two's-complement bit pattern). Every table but `scan` is keyed by scan first, so the rows of
// one scan are one range:
//   scan(id, node, date, imported, store, product_version, build, os_name, os_code, partial,
//        report_messages, report_bytes, report_largest, report_folders, report_domains,
//        messages, bytes, folders)                  -- the last three: the folder rows summed
//   folder(scan, seq, domain, mailbox, folder, type, public, status, messages, bytes, largest,
//          header_bytes, plain_bytes, html_bytes, rtf_bytes, signed, encrypted)   -- seq: 1, 2, ... as read
//   mailbox(scan, domain, mailbox, folders, messages, bytes, largest)   -- the folders summed per mailbox
// A version-1 database (folder rows by row id, no sums in `scan`) is upgraded in place, in one
// transaction, when it is opened. A database of a newer version, or one that is not a history
// database, is refused.
//
// The file is created with mode 0600 (per-user figures). A database locked by another writer is waited
// for at most the busy time-out, then the operation fails saying so. One HistoryDb per thread.
#pragma once

#include <sqlite3.h>

#include <string>
#include <vector>

#include "details_reader.h"
#include "stat/folder_details.h"

namespace vorlane {
namespace cli {

const int kHistorySchemaVersion = 2;
const int kApplicationId = 0x76737461;  // "vsta"
const int kDefaultBusyTimeoutMs = 5000;

// /var/lib/vstat/history.sqlite for root, otherwise $XDG_DATA_HOME/vstat/history.sqlite (with
// ~/.local/share when XDG_DATA_HOME is unset or not absolute).
std::string defaultHistoryPath();

// One prepared statement; finalized with its owner.
class Statement {
 public:
  Statement() = default;
  ~Statement() { sqlite3_finalize(stmt_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  sqlite3_stmt* get() const { return stmt_; }
  sqlite3_stmt** out() { return &stmt_; }

  // Bind by position (1-based).
  void bind(int index, long long value) { sqlite3_bind_int64(stmt_, index, value); }
  void bindBytes(int index, const std::string& bytes);
  // Without a copy: `bytes` must stay as they are until the statement has been stepped.
  void bindBytesInPlace(int index, const std::string& bytes) {
    sqlite3_bind_blob64(stmt_, index, bytes.data(), bytes.size(), SQLITE_STATIC);
  }
  void bindText(int index, const std::string& text);
  // SQLITE_ROW, SQLITE_DONE or an error code.
  int step() { return sqlite3_step(stmt_); }
  void reset() { sqlite3_reset(stmt_); }
  long long integer(int column) const { return sqlite3_column_int64(stmt_, column); }
  unsigned long long count(int column) const { return static_cast<unsigned long long>(integer(column)); }
  std::string bytes(int column) const;

 private:
  sqlite3_stmt* stmt_ = nullptr;
};

// What a scan is stored with: its node, the header of its details file and the report's totals.
struct ScanHeader {
  std::string node;
  DetailsFileHeader job;
  unsigned long long reportMessages = 0;  // "Any folder class - any folder type": "Message count"
  unsigned long long reportBytes = 0;     // its "Message size" sum
  unsigned long long reportLargest = 0;   // its "Message size" maximum
  unsigned long long reportFolders = 0;   // its "Folder count"
  unsigned long long reportDomains = 0;   // its "Domain count"
};

class HistoryDb {
 public:
  HistoryDb() = default;
  ~HistoryDb() { sqlite3_close(db_); }
  HistoryDb(const HistoryDb&) = delete;
  HistoryDb& operator=(const HistoryDb&) = delete;

  // Opens the database at `path` (":memory:" for a private one). With `create`, a missing file is made
  // (mode 0600, parent directories 0700 when `createParents`) and given the schema; without it, a missing
  // file is an error. False with the path and reason in `error`.
  bool open(const std::string& path, bool create, std::string& error, int busyTimeoutMs = kDefaultBusyTimeoutMs,
            bool createParents = false);

  // Runs SQL without results; false with the database's message in `error`.
  bool exec(const char* sql, std::string& error);
  bool prepare(const char* sql, Statement& statement, std::string& error);
  // The database's message for the last failure, with the path; says so plainly when it was a lock.
  std::string lastError() const;
  const std::string& path() const { return path_; }
  sqlite3* handle() const { return db_; }

 private:
  struct SchemaState {
    long long applicationId = 0;
    long long version = 0;
    long long objects = 0;  // tables and indexes
  };
  bool probeSchema(SchemaState& state, std::string& error);
  // Creates or upgrades the schema; a database of an older version is upgraded in place.
  bool checkSchema(bool create, std::string& error);
  // Runs `sql` in one transaction under the write lock when the schema is still at `fromVersion`
  // (0: an empty database), so that of two processes doing it at once the second finds it done.
  bool changeSchema(long long fromVersion, const std::string& sql, std::string& error);

  sqlite3* db_ = nullptr;
  std::string path_;
  int busyTimeoutMs_ = kDefaultBusyTimeoutMs;
};

// Adds one scan in one transaction: begin() takes the write lock, folders are added as they are read,
// commit() makes it all visible at once. Destroyed without commit(), nothing of it stays.
// The per-mailbox and per-scan sums are kept as the folders go by (a mailbox's folders normally come
// one after another; one that comes back is added to what is stored). Sums past 2^63 fail the import.
class ScanImport {
 public:
  explicit ScanImport(HistoryDb& db) : db_(db) {}
  ~ScanImport();
  ScanImport(const ScanImport&) = delete;
  ScanImport& operator=(const ScanImport&) = delete;

  bool begin(const ScanHeader& header, std::string& error);
  bool addFolder(const FolderDetails& folder, std::string& error);
  // Stores the sums and whether the scan was stopped, and commits. Returns the scan's id through `scanId`.
  bool commit(bool partial, long long& scanId, std::string& error);

 private:
  // Folders, messages, bytes (summed) and largest (the maximum), as the database holds them: signed.
  struct Sums {
    long long folders = 0;
    long long messages = 0;
    long long bytes = 0;
    long long largest = 0;
    bool add(const Sums& more);
  };
  bool storeMailbox(std::string& error);
  bool writeMailbox(Statement& statement, std::string& error);
  bool overflow(std::string& error) const;

  HistoryDb& db_;
  Statement insertFolder_;
  Statement addMailbox_;
  Statement findMailbox_;
  Statement replaceMailbox_;
  long long scanId_ = 0;
  Sums scan_;
  std::string domain_;  // the mailbox being summed, when scan_.folders > 0
  std::string mailbox_;
  Sums mailboxSums_;
  bool open_ = false;
};

}  // namespace cli
}  // namespace vorlane
