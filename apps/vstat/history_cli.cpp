#include "history_cli.h"

#include <iostream>
#include <map>
#include <memory>

#include "history_command.h"
#include "history_import.h"
#include "top_command.h"

namespace vorlane {
namespace cli {

namespace {

int finish(bool done, const char* command, const std::string& error) {
  if (done) return 0;
  std::cerr << "vstat " << command << ": " << error << "\n";
  return 1;
}

template <typename Value>
CLI::Option* addChoice(CLI::App* sub, const char* name, Value& target, const std::map<std::string, Value>& choices,
                       const char* help) {
  std::string words;
  for (const auto& choice : choices) words += (words.empty() ? "" : "|") + choice.first;
  return sub->add_option(name, target, help)
      ->transform(CLI::CheckedTransformer(choices).description(""))
      ->type_name(words);
}

}  // namespace

void addHistorySubcommands(CLI::App& app, int& status) {
  auto import = std::make_shared<ImportOptions>();
  CLI::App* sub = app.add_subcommand("import", "Store a report and its details file in the history database");
  sub->add_option("REPORT", import->report, "the scan's XML report")->required();
  sub->add_option("DETAILS", import->details, "the scan's details file (JSON Lines)")->required();
  sub->add_option("--db", import->db, "history database (default " + defaultHistoryPath() + ")");
  sub->add_option("--node", import->node, "node label of the scan (default: host name)");
  sub->callback([import, &status] {
    long long scanId = 0;
    std::string error;
    const bool done = importScan(*import, scanId, error);
    if (done) std::cout << "imported scan " << scanId << "\n";
    status = finish(done, "import", error);
  });

  const std::map<std::string, TopLevel> levels{
      {"domain", TopLevel::Domain}, {"mailbox", TopLevel::Mailbox}, {"folder", TopLevel::Folder}};
  const std::map<std::string, TopOrder> orders{
      {"bytes", TopOrder::Bytes}, {"messages", TopOrder::Messages}, {"largest", TopOrder::Largest}};
  auto top = std::make_shared<TopOptions>();
  sub = app.add_subcommand("top", "The largest domains, mailboxes or folders of the newest scans");
  CLI::Option* db = sub->add_option("--db", top->db, "history database (default " + defaultHistoryPath() + ")");
  sub->add_option("--details", top->details, "rank a details file instead of the database")->excludes(db);
  addChoice(sub, "--level", top->level, levels, "domain, mailbox (default) or folder");
  addChoice(sub, "--by", top->order, orders, "bytes (default), messages or largest");
  sub->add_option("-n", top->limit, "how many (default 10)")->check(CLI::Range(1u, 1000000u));
  addChoice(sub, "--format", top->format,
            std::map<std::string, OutputFormat>{
                {"text", OutputFormat::Text}, {"json", OutputFormat::Json}, {"csv", OutputFormat::Csv}},
            "text (default), json or csv");
  sub->add_option("--scan", top->scan, "this scan instead of the newest")->check(CLI::PositiveNumber);
  sub->add_option("--node", top->node, "only this node's scans (default: every node)");
  sub->callback([top, &status] {
    std::string error;
    status = finish(runTop(*top, std::cout, error), "top", error);
  });

  auto history = std::make_shared<HistoryOptions>();
  sub = app.add_subcommand("history", "Store totals per scan and the mailboxes that grew most");
  sub->add_option("--db", history->db, "history database (default " + defaultHistoryPath() + ")");
  sub->add_option("--domain", history->filter.domain, "only this domain");
  sub->add_option("--mailbox", history->filter.mailbox, "only this mailbox (of --domain)")
      ->needs(sub->get_option("--domain"));
  sub->add_option("--since", history->since, "compare with the scan as of this UTC date (default: the one before)");
  sub->add_option("-n", history->limit, "how many growing mailboxes (default 10)")->check(CLI::Range(1u, 1000000u));
  addChoice(sub, "--format", history->format,
            std::map<std::string, OutputFormat>{
                {"text", OutputFormat::Text}, {"json", OutputFormat::Json}, {"html", OutputFormat::Html}},
            "text (default), json or html");
  sub->add_option("--node", history->node, "only this node's scans (default: every node)");
  sub->callback([history, &status] {
    std::string error;
    status = finish(runHistory(*history, std::cout, error), "history", error);
  });
}

int runHistoryCommand(int argc, char** argv) {
  CLI::App app("vstat: scan history");
  app.require_subcommand(1);
  int status = 0;
  addHistorySubcommands(app, status);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : 2;
  }
  return status;
}

}  // namespace cli
}  // namespace vorlane
