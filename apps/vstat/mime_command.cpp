// vstat mime [--json] FILE...: shows why a message counts as it does by printing the MIME part tree the
// store scan sees, as an outline or as one JSON object per file and line.
#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "mime/mail_struct.h"
#include "mime_tree_output.h"
#include "report_json.h"
#include "stat/message_file.h"
#include "terminal_text.h"

namespace vorlane {
namespace cli {

namespace {

// What the store scan would add to the statistic for this message (a message the parser rejects
// counts with zero header and body sizes).
Json classificationJson(const MessageFacts& c) {
  Json j;
  j["header"] = static_cast<unsigned long long>(c.headerSize);
  j["plain"] = static_cast<unsigned long long>(c.plainTextSize);
  j["html"] = static_cast<unsigned long long>(c.htmlSize);
  j["rtf"] = static_cast<unsigned long long>(c.rtfSize);
  j["signed"] = c.isSigned;
  j["encrypted"] = c.isEncrypted;
  return j;
}

void writeClassificationText(std::ostream& out, const MessageFacts& c) {
  out << "counted as: header " << c.headerSize << ", plain text " << c.plainTextSize << ", HTML " << c.htmlSize
      << ", RTF " << c.rtfSize << ", signed " << (c.isSigned ? "yes" : "no") << ", encrypted "
      << (c.isEncrypted ? "yes" : "no") << '\n';
}

// Reads one file as the store scan reads a message and writes its tree; false (with a message on `err`)
// when the file cannot be read.
bool showFile(const char* path, bool asJson, std::ostream& out, std::ostream& err) {
  const std::string name(path);
  MessageFacts classification;
  std::string error;
  std::unique_ptr<mime::mail_struct> tree;
  errno = 0;
  if (!readMessage(MessageEntry{AT_FDCWD, path, DT_UNKNOWN, name}, classification, error, &tree)) {
    // errno is left by the system call that failed, and stays 0 for a file refused for its type.
    const int reason = errno;
    error.pop_back();  // the line end
    err << "vstat mime: " << terminalSafe(error) << (reason ? ": " : "") << (reason ? std::strerror(reason) : "") << '\n';
    return false;
  }

  if (asJson) {
    Json j;
    j["file"] = path;
    j["parsed"] = tree != nullptr;
    j["tree"] = tree ? mimeTreeJson(tree.get()) : Json(nullptr);
    j["classification"] = classificationJson(classification);
    out << jsonLine(j) << '\n';
  } else {
    out << terminalSafe(path) << " (" << classification.size << " bytes)\n";
    if (tree) {
      writeMimeTreeText(out, tree.get());
    } else {
      out << "not parsed: parts nested deeper than " << mime::MIME_MAX_DEPTH << " levels\n";
    }
    writeClassificationText(out, classification);
  }
  return true;
}

}  // namespace

void addMimeCommand(CommandLine& cli) {
  struct MimeOptions {
    bool json = false;
    std::vector<std::string> files;
  };
  auto options = std::make_shared<MimeOptions>();
  CLI::App* mime = cli.addCommand("mime", "Show how message files are parsed and counted", [options, &cli] {
    int status = 0;
    for (const std::string& path : options->files) {
      if (!showFile(path.c_str(), options->json, cli.out(), cli.err())) status = 1;
    }
    cli.out().flush();
    return status;
  });
  mime->add_flag("--json", options->json, "One JSON object per file and line");
  mime->add_option("FILE", options->files, "Message files ('--' before a name that starts with '-')")->required();
  mime->footer("Exit status: 0 all shown, 1 a file could not be read, 2 usage error.");
}

}  // namespace cli
}  // namespace vorlane
