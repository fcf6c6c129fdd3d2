// What the statistics server and every program that runs its jobs must agree on, beyond the wire
// format of vstat_messages.h: where the store's mail lies, where the report goes, and where a client
// finds the server program, and the report lock. Plain constants; nothing here is spelled anywhere else.
#pragma once

namespace vorlane {
namespace vstat {

// The walk starts at the request's store directory followed by this.
constexpr char kMailRoot[] = "/mail";
// Every job writes its report here, replacing the previous one.
constexpr char kReportPath[] = "/tmp/VStatReport.xml";
// The report lock (see report_lock.h) beside the report, and the environment variable by which a client
// that holds it tells the server it starts not to take it again.
constexpr char kReportLockPath[] = "/tmp/VStatReport.xml.lock";
constexpr char kReportLockHeldVariable[] = "VSTAT_REPORT_LOCK_HELD";
// The server program, looked for next to the client first, then at this path relative to the
// client's directory (the installed layout: bin/ beside lib/vstat/).
constexpr char kServerName[] = "vstatserver";
constexpr char kInstalledServerPath[] = "../lib/vstat/vstatserver";

}  // namespace vstat
}  // namespace vorlane
