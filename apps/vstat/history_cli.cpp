// The command line of the scan history: `vstat import`, `vstat top` and `vstat history`.
// Exit status of each: 0 done, 1 failed (the reason on standard error), 2 usage error.
#include <map>
#include <memory>

#include "commands.h"
#include "history_command.h"
#include "history_import.h"
#include "top_command.h"

namespace vorlane {
namespace cli {

namespace {

int finish(bool done, const char* command, const std::string& error, CommandLine& cli) {
  if (done) return 0;
  cli.err() << "vstat " << command << ": " << error << "\n";
  return 1;
}

template <typename Value>
CLI::Option* addChoice(CLI::App* command, const char* name, Value& target, const std::map<std::string, Value>& choices,
                       const char* help) {
  std::string words;
  for (const auto& choice : choices) words += (words.empty() ? "" : "|") + choice.first;
  return command->add_option(name, target, help)
      ->transform(CLI::CheckedTransformer(choices).description(""))
      ->type_name(words);
}

const char* const kExitStatus = "Exit status: 0 done, 1 failed, 2 usage error.";

}  // namespace

void addHistoryCommands(CommandLine& cli) {
  const std::string dbHelp = "The history database (default " + defaultHistoryPath() + ")";

  auto import = std::make_shared<ImportOptions>();
  CLI::App* command = cli.addCommand("import", "Store a scan's report and details file in the history database",
                                     [import, &cli] {
                                       long long scanId = 0;
                                       std::string error;
                                       const bool done = importScan(*import, scanId, error);
                                       if (done) cli.out() << "imported scan " << scanId << "\n";
                                       return finish(done, "import", error, cli);
                                     });
  command->add_option("REPORT", import->report, "The scan's XML report")->required();
  command->add_option("DETAILS", import->details, "The scan's details file (JSON Lines)")->required();
  command->add_option("--db", import->db, dbHelp)->type_name("DB");
  command->add_option("--node", import->node, "Node label of the scan (default: this host's name)")
      ->type_name("NAME");
  command->footer(kExitStatus);

  auto top = std::make_shared<TopOptions>();
  command = cli.addCommand("top", "The largest domains, mailboxes or folders of the newest scans", [top, &cli] {
    std::string error;
    return finish(runTop(*top, cli.out(), error), "top", error, cli);
  });
  CLI::Option* db = command->add_option("--db", top->db, dbHelp)->type_name("DB");
  command->add_option("--details", top->details, "Rank a details file instead of the database")
      ->type_name("FILE")
      ->excludes(db);
  addChoice(command, "--level", top->level,
            std::map<std::string, TopLevel>{
                {"domain", TopLevel::Domain}, {"mailbox", TopLevel::Mailbox}, {"folder", TopLevel::Folder}},
            "What to rank (default mailbox)");
  addChoice(command, "--by", top->order,
            std::map<std::string, TopOrder>{
                {"bytes", TopOrder::Bytes}, {"messages", TopOrder::Messages}, {"largest", TopOrder::Largest}},
            "Rank by (default bytes)");
  command->add_option("-n", top->limit, "How many (default 10)")->check(CLI::Range(1u, 1000000u))->type_name("N");
  addChoice(command, "--format", top->format,
            std::map<std::string, OutputFormat>{
                {"text", OutputFormat::Text}, {"json", OutputFormat::Json}, {"csv", OutputFormat::Csv}},
            "Output (default text)");
  command->add_option("--scan", top->scan, "This scan instead of the newest ones")
      ->check(CLI::PositiveNumber)
      ->type_name("ID");
  command->add_option("--node", top->node, "Only this node's scans (default: every node)")->type_name("NAME");
  command->footer(kExitStatus);

  auto history = std::make_shared<HistoryOptions>();
  command = cli.addCommand("history", "Store totals per scan and the mailboxes that grew most", [history, &cli] {
    std::string error;
    return finish(runHistory(*history, cli.out(), error), "history", error, cli);
  });
  command->add_option("--db", history->db, dbHelp)->type_name("DB");
  CLI::Option* domain = command->add_option("--domain", history->filter.domain, "Only this domain")->type_name("D");
  command->add_option("--mailbox", history->filter.mailbox, "Only this mailbox (of --domain)")
      ->needs(domain)
      ->type_name("M");
  command->add_option("--since", history->since,
                      "Compare with the scan as of this UTC date, YYYY-MM-DD[THH:MM:SSZ] (default: the one before)")
      ->type_name("DATE");
  command->add_option("-n", history->limit, "How many growing mailboxes (default 10)")
      ->check(CLI::Range(1u, 1000000u))
      ->type_name("N");
  addChoice(command, "--format", history->format,
            std::map<std::string, OutputFormat>{
                {"text", OutputFormat::Text}, {"json", OutputFormat::Json}, {"html", OutputFormat::Html}},
            "Output (default text)");
  command->add_option("--node", history->node, "Only this node's scans (default: every node)")->type_name("NAME");
  command->footer(kExitStatus);
}

}  // namespace cli
}  // namespace vorlane
