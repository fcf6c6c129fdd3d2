#include "command_line.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>

#include "vstat_version.h"

namespace vorlane {
namespace cli {

namespace {

const char kProgram[] = "vstat";

}  // namespace

CommandLine::CommandLine(std::ostream& out, std::ostream& err)
    : out_(out), err_(err), app_("The front end of the message-store statistics service.", kProgram) {
  app_.set_version_flag("--version", VSTAT_VERSION, "Print the version and exit");
  app_.require_subcommand(1, 1);
  app_.get_formatter()->column_width(28);
  app_.footer("Run 'vstat COMMAND --help' for the options of a command.");
  CLI::App* helpCommand = app_.add_subcommand("help", "Describe the commands, or one command");
  helpCommand->add_option("COMMAND", helpTopic_, "The command to describe");
}

CLI::App* CommandLine::addCommand(const std::string& name, const std::string& description, std::function<int()> run) {
  CLI::App* command = app_.add_subcommand(name, description);
  command->get_formatter()->column_width(28);
  commands_.emplace_back(command, std::move(run));
  return command;
}

int CommandLine::run(int argc, char** argv) {
  // The command a usage error belongs to: the first argument that names one.
  std::string command;
  for (int i = 1; i < argc && command.empty(); ++i) {
    for (const auto& c : commands_) {
      if (c.first->get_name() == argv[i]) command = argv[i];
    }
  }
  try {
    app_.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    return help(command);
  } catch (const CLI::CallForVersion&) {
    out_ << VSTAT_VERSION << '\n';
    return 0;
  } catch (const CLI::ParseError& e) {
    // CLI11 reports a missing value as "NAME: 1 required TYPE missing", a failed check as "NAME: TEXT".
    std::string message = e.what();
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&e) != nullptr && message.find(" required ") != std::string::npos) {
      message = message.substr(0, message.find(':')) + " needs a value";
    } else if (message.find("subcommand") != std::string::npos) {
      message = "no command given";
    } else if (dynamic_cast<const CLI::ValidationError*>(&e) != nullptr && message.find(": ") != std::string::npos) {
      message.replace(message.find(": "), 2, " ");
    }
    return usageError(command, message);
  }
  if (app_.got_subcommand("help")) {
    if (helpTopic_.empty() || helpTopic_ == "help") return help(std::string());
    for (const auto& c : commands_) {
      if (c.first->get_name() == helpTopic_) return help(helpTopic_);
    }
    return usageError("help", "no command '" + helpTopic_ + "'");
  }
  for (auto& c : commands_) {
    if (c.first->parsed()) return c.second();
  }
  return usageError(command, "no command given");  // not reached: the parser requires one
}

int CommandLine::usageError(const std::string& command, std::string message) {
  const std::string prefix = command.empty() ? kProgram : std::string(kProgram) + " " + command;
  // "The following argument ..." reads on after the prefix; a name such as "STORE_DIR" stays as it is.
  if (message.size() > 1 && std::isupper(static_cast<unsigned char>(message[0])) &&
      !std::isupper(static_cast<unsigned char>(message[1]))) {
    message[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(message[0])));
  }
  err_ << prefix << ": " << message << "\nRun '" << prefix << " --help' for the options.\n";
  return kExitUsage;
}

int CommandLine::help(const std::string& command) {
  const CLI::App* shown = command.empty() ? &app_ : app_.get_subcommand(command);
  const std::string usage = command.empty() ? kProgram : std::string(kProgram) + " " + command;
  out_ << shown->get_formatter()->make_help(shown, usage, CLI::AppFormatMode::Normal);
  return 0;
}

CLI::Validator numberUpTo(unsigned long long max) {
  return CLI::Validator(
      [max](std::string& value) -> std::string {
        const bool digits = !value.empty() && value.find_first_not_of("0123456789") == std::string::npos;
        errno = 0;
        const unsigned long long n = digits ? std::strtoull(value.c_str(), nullptr, 10) : 0;
        if (digits && errno == 0 && n <= max) return std::string();
        return "needs a number from 0 to " + std::to_string(max) + ", not '" + value + "'";
      },
      "");
}

CLI::Validator textOfLength(size_t maxLength, bool mayBeEmpty) {
  return CLI::Validator(
      [maxLength, mayBeEmpty](std::string& value) -> std::string {
        if ((mayBeEmpty || !value.empty()) && value.size() <= maxLength) return std::string();
        return "must be " + std::string(mayBeEmpty ? "at most " : "1 to ") + std::to_string(maxLength) +
               " characters long";
      },
      "");
}

}  // namespace cli
}  // namespace vorlane
