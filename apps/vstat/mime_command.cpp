#include "mime_command.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "json_writer.h"
#include "mime/mail_struct.h"
#include "mime_tree_output.h"
#include "stat/message_file.h"

namespace vorlane {
namespace cli {

namespace {

void printUsage(std::ostream& err) { err << "usage: vstat mime [--json] FILE...\n"; }

// What the store scan would add to the statistic for this message (a message the parser rejects
// counts with zero header and body sizes).
void writeClassificationJson(JsonWriter& json, const MessageFacts& c) {
  json.beginObject();
  json.key("header").value(static_cast<unsigned long long>(c.headerSize));
  json.key("plain").value(static_cast<unsigned long long>(c.plainTextSize));
  json.key("html").value(static_cast<unsigned long long>(c.htmlSize));
  json.key("rtf").value(static_cast<unsigned long long>(c.rtfSize));
  json.key("signed").value(c.isSigned);
  json.key("encrypted").value(c.isEncrypted);
  json.endObject();
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
    err << "vstat mime: " << error << (reason ? ": " : "") << (reason ? std::strerror(reason) : "") << '\n';
    return false;
  }

  if (asJson) {
    JsonWriter json(out);
    json.beginObject();
    json.key("file").value(path);
    json.key("parsed").value(tree != nullptr);
    json.key("tree");
    if (tree) {
      writeMimeTreeJson(json, tree.get());
    } else {
      json.null();
    }
    json.key("classification");
    writeClassificationJson(json, classification);
    json.endObject();
    out << '\n';
  } else {
    out << path << " (" << classification.size << " bytes)\n";
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

int runMimeCommandTo(int argc, char** argv, std::ostream& out, std::ostream& err) {
  bool asJson = false;
  std::vector<const char*> files;
  bool optionsDone = false;
  for (int i = 0; i < argc; ++i) {
    const char* arg = argv[i];
    if (!optionsDone && std::strcmp(arg, "--json") == 0) {
      asJson = true;
    } else if (!optionsDone && std::strcmp(arg, "--") == 0) {
      optionsDone = true;
    } else if (!optionsDone && arg[0] == '-' && arg[1] != '\0') {
      err << "vstat mime: unknown option '" << arg << "'\n";
      printUsage(err);
      return 2;
    } else {
      files.push_back(arg);
    }
  }
  if (files.empty()) {
    printUsage(err);
    return 2;
  }
  int status = 0;
  for (const char* path : files) {
    if (!showFile(path, asJson, out, err)) status = 1;
  }
  out.flush();
  return status;
}

int runMimeCommand(int argc, char** argv) { return runMimeCommandTo(argc, argv, std::cout, std::cerr); }

}  // namespace cli
}  // namespace vorlane
