#include "history_queries.h"

namespace vorlane {
namespace cli {

namespace {

// The ids as an SQL list; they come from the database, never from the user.
std::string idList(const std::vector<ScanRef>& scans) {
  std::string list;
  for (const ScanRef& scan : scans) list += (list.empty() ? "" : ",") + std::to_string(scan.id);
  return list.empty() ? "NULL" : list;
}

ScanRef scanAt(const Statement& s, int first) {
  ScanRef scan;
  scan.id = s.integer(first);
  scan.node = s.bytes(first + 1);
  scan.date = s.bytes(first + 2);
  scan.partial = s.integer(first + 3) != 0;
  return scan;
}

// Steps through every row, handing each to `row`; false with the database's message on failure.
template <typename RowFn>
bool eachRow(HistoryDb& db, Statement& s, RowFn row, std::string& error) {
  int result;
  while ((result = s.step()) == SQLITE_ROW) row(s);
  if (result == SQLITE_DONE) return true;
  error = db.lastError();
  return false;
}

// "2026-10-24" stands for the end of that day; a full time is taken as it is.
std::string sinceBound(const std::string& since) {
  return since.size() == 10 ? since + "T23:59:59Z" : since;
}

const char* filterClause(const NameFilter& filter) {
  if (!filter.mailbox.empty()) return " AND domain = ?2 AND mailbox = ?3";
  if (!filter.domain.empty()) return " AND domain = ?2";
  return "";
}

void bindFilter(Statement& s, const NameFilter& filter) {
  if (!filter.domain.empty()) s.bindBytes(2, filter.domain);
  if (!filter.mailbox.empty()) s.bindBytes(3, filter.mailbox);
}

}  // namespace

bool selectScans(HistoryDb& db, const std::string& node, long long scanId, std::vector<ScanRef>& scans,
                 std::string& error) {
  scans.clear();
  const char* sql = scanId != 0
                        ? "SELECT id, node, date, partial FROM scan WHERE id = ?2 AND (?1 = '' OR node = ?1)"
                        : "SELECT id, node, date, partial FROM scan s WHERE (?1 = '' OR node = ?1) AND NOT EXISTS "
                          "(SELECT 1 FROM scan t WHERE t.node = s.node AND (t.date > s.date OR "
                          "(t.date = s.date AND t.id > s.id))) ORDER BY node";
  Statement s;
  if (!db.prepare(sql, s, error)) return false;
  s.bindText(1, node);
  if (scanId != 0) s.bind(2, scanId);
  if (!eachRow(db, s, [&](const Statement& row) { scans.push_back(scanAt(row, 0)); }, error)) return false;
  if (!scans.empty()) return true;
  if (scanId != 0) {
    error = "no scan " + std::to_string(scanId) + (node.empty() ? "" : " of node " + node) + " in " + db.path();
  } else {
    error = "no scans" + (node.empty() ? "" : " of node " + node) + " in " + db.path();
  }
  return false;
}

bool queryTop(HistoryDb& db, const std::vector<ScanRef>& scans, TopLevel level, TopOrder order, unsigned limit,
              std::vector<TopRow>& rows, std::string& error) {
  rows.clear();
  const char* orderColumn = order == TopOrder::Bytes ? "5" : order == TopOrder::Messages ? "4" : "6";
  std::string sql;
  switch (level) {
    case TopLevel::Folder:
      sql = "SELECT domain, mailbox, folder, messages, bytes, largest FROM folder";
      break;
    case TopLevel::Mailbox:
      sql = "SELECT domain, mailbox, '', SUM(messages), SUM(bytes), MAX(largest) FROM mailbox";
      break;
    case TopLevel::Domain:
      sql = "SELECT domain, '', '', SUM(messages), SUM(bytes), MAX(largest) FROM mailbox";
      break;
  }
  sql += " WHERE scan IN (" + idList(scans) + ")";
  if (level == TopLevel::Mailbox) sql += " GROUP BY domain, mailbox";
  if (level == TopLevel::Domain) sql += " GROUP BY domain";
  sql += std::string(" ORDER BY ") + orderColumn + " DESC, 1, 2, 3 LIMIT ?1";
  Statement s;
  if (!db.prepare(sql.c_str(), s, error)) return false;
  s.bind(1, limit);
  return eachRow(db, s,
                 [&](const Statement& r) {
                   rows.push_back(TopRow{r.bytes(0), r.bytes(1), r.bytes(2), r.count(3), r.count(4), r.count(5)});
                 },
                 error);
}

bool queryScanTotals(HistoryDb& db, const std::string& node, const NameFilter& filter, std::vector<ScanTotals>& rows,
                     std::string& error) {
  rows.clear();
  // The whole store's sums are kept with each scan; a domain's or mailbox's come from its mailbox rows.
  std::string sums = "s.messages, s.bytes, s.folders";
  if (*filterClause(filter)) {
    sums.clear();
    for (const char* column : {"messages", "bytes", "folders"}) {
      sums += std::string(sums.empty() ? "" : ", ") + "(SELECT COALESCE(SUM(" + column +
              "), 0) FROM mailbox WHERE scan = s.id" + filterClause(filter) + ")";
    }
  }
  const std::string sql = "SELECT s.id, s.node, s.date, s.partial, s.report_messages, s.report_bytes, " + sums +
                          " FROM scan s WHERE (?1 = '' OR s.node = ?1) ORDER BY s.date, s.id";
  Statement s;
  if (!db.prepare(sql.c_str(), s, error)) return false;
  s.bindText(1, node);
  bindFilter(s, filter);
  return eachRow(db, s,
                 [&](const Statement& r) {
                   ScanTotals t;
                   t.scan = scanAt(r, 0);
                   t.reportMessages = r.count(4);
                   t.reportBytes = r.count(5);
                   t.messages = r.count(6);
                   t.bytes = r.count(7);
                   t.folders = r.count(8);
                   rows.push_back(t);
                 },
                 error);
}

bool selectBaselines(HistoryDb& db, const std::vector<ScanRef>& latest, const std::string& since,
                     std::vector<ScanRef>& baselines, std::string& error) {
  baselines.clear();
  // Newest before the bound (or before the newest scan), falling back to the oldest with a bound.
  const char* sql = since.empty()
                        ? "SELECT id, node, date, partial FROM scan WHERE node = ?1 AND id <> ?2 AND "
                          "(date < ?3 OR (date = ?3 AND id < ?2)) ORDER BY date DESC, id DESC LIMIT 1"
                        : "SELECT id, node, date, partial FROM scan WHERE node = ?1 ORDER BY date <= ?4 DESC, "
                          "CASE WHEN date <= ?4 THEN date END DESC, date, id LIMIT 1";
  for (const ScanRef& newest : latest) {
    Statement s;
    if (!db.prepare(sql, s, error)) return false;
    s.bindText(1, newest.node);
    s.bind(2, newest.id);
    s.bindText(3, newest.date);
    if (!since.empty()) s.bindText(4, sinceBound(since));
    if (!eachRow(db, s,
                 [&](const Statement& r) {
                   ScanRef base = scanAt(r, 0);
                   if (base.id != newest.id) baselines.push_back(base);
                 },
                 error)) {
      return false;
    }
  }
  return true;
}

bool queryGrowth(HistoryDb& db, const std::vector<ScanRef>& before, const std::vector<ScanRef>& now,
                 const NameFilter& filter, unsigned limit, std::vector<GrowthRow>& rows, std::string& error) {
  rows.clear();
  const std::string nowIds = idList(now);
  const std::string beforeIds = idList(before);
  const std::string sql =
      "SELECT domain, mailbox, SUM(CASE WHEN scan IN (" + beforeIds + ") THEN bytes ELSE 0 END) AS b0, "
      "SUM(CASE WHEN scan IN (" + nowIds + ") THEN bytes ELSE 0 END) AS b1, "
      "SUM(CASE WHEN scan IN (" + beforeIds + ") THEN messages ELSE 0 END), "
      "SUM(CASE WHEN scan IN (" + nowIds + ") THEN messages ELSE 0 END) FROM mailbox WHERE scan IN (" + beforeIds +
      "," + nowIds + ")" + filterClause(filter) + " GROUP BY domain, mailbox HAVING b1 > b0 ORDER BY b1 - b0 DESC, 1, 2 LIMIT ?1";
  Statement s;
  if (!db.prepare(sql.c_str(), s, error)) return false;
  s.bind(1, limit);
  bindFilter(s, filter);
  return eachRow(db, s,
                 [&](const Statement& r) {
                   rows.push_back(GrowthRow{r.bytes(0), r.bytes(1), r.integer(2), r.integer(3), r.integer(4),
                                            r.integer(5)});
                 },
                 error);
}

}  // namespace cli
}  // namespace vorlane
