// `quibly mail triage PATH...`: sorts .eml files the way the mail card does
// without a model key. Private mail (codes, bank, card and UPI notices) is
// handled by the on-device prefilter and shown redacted; everything else goes
// through the rule stage. Rows are grouped by urgency; --json prints the rows.

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Commands.h"
#include "Eml.h"
#include "Files.h"
#include "Format.h"
#include "Output.h"
#include "Text.h"
#include "Triage.h"

namespace quibly {

namespace {

using vobbo::MailMessage;
using vobbo::Result;
using vobbo::Triage;
using vobbo::TriagedMessage;

struct TriageOptions {
  std::vector<std::string> paths;
  bool json = false;
};

bool isEmlFile(const std::filesystem::path& path) {
  return vobbo::Text::asciiLower(path.extension().string()) == ".eml";
}

// The .eml files a path names: the file itself, or every .eml file under a folder
// in name order. Fails with a sentence for a path that is not there.
Result<std::vector<std::string>> emlFilesAt(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::exists(path, error)) {
    return vobbo::failure(fmt::format("There is no file or folder at {}.", path));
  }
  if (!std::filesystem::is_directory(path, error)) return std::vector<std::string>{path};
  std::vector<std::string> files;
  auto options = std::filesystem::directory_options::skip_permission_denied;
  for (auto it = std::filesystem::recursive_directory_iterator(path, options, error);
       !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
    if (it->is_regular_file(error) && isEmlFile(it->path())) files.push_back(it->path().string());
  }
  if (error)
    return vobbo::failure(fmt::format("Could not list the folder {}: {}.", path, error.message()));
  std::sort(files.begin(), files.end());
  if (files.empty()) return vobbo::failure(fmt::format("There are no .eml files in {}.", path));
  return files;
}

// Reads every file as a message; a file that cannot be read is reported on err
// and left out.
std::vector<MailMessage> readMessages(const std::vector<std::string>& files, Io& io, int& status) {
  std::vector<MailMessage> messages;
  for (const std::string& file : files) {
    auto text = vobbo::Files::read(file);
    if (!text || !*text) {
      io.err << (text ? fmt::format("Could not read {}.", file) : text.error()) << "\n";
      status = 1;
      continue;
    }
    std::filesystem::path path(file);
    messages.push_back(vobbo::Eml::message(**text, path.stem().string()));
  }
  // Thread sizes count the messages of each thread among those read.
  std::map<std::string, int64_t> sizes;
  for (const MailMessage& message : messages) ++sizes[message.threadId];
  for (MailMessage& message : messages) message.threadSize = sizes[message.threadId];
  return messages;
}

std::string_view urgencyHeading(Triage::Urgency urgency) {
  switch (urgency) {
    case Triage::Urgency::now:
      return "Now";
    case Triage::Urgency::today:
      return "Today";
    case Triage::Urgency::this_week:
      return "This week";
    case Triage::Urgency::someday:
      return "Someday";
    case Triage::Urgency::ignore:
      return "Ignore";
  }
  return {};
}

void printRows(const std::vector<TriagedMessage>& rows, std::ostream& out) {
  constexpr size_t kSummaryWidth = 72;
  out << Triage::kRulesWithoutKey << "\n";
  for (Triage::Urgency urgency : vobbo::allCases<Triage::Urgency>()) {
    std::vector<const TriagedMessage*> group;
    for (const TriagedMessage& row : rows) {
      if (row.verdict.urgency == urgency) group.push_back(&row);
    }
    if (group.empty()) continue;
    out << "\n" << fmt::format("{} ({})", urgencyHeading(urgency), group.size()) << "\n";
    for (const TriagedMessage* row : group) {
      out << fmt::format(
          "  {:<13}  {}  from {}\n", row->verdict.category,
          vobbo::Text::cut(vobbo::Text::squashSpaces(row->verdict.summary), kSummaryWidth),
          row->message.senderLabel());
    }
  }
  size_t local = std::count_if(rows.begin(), rows.end(), [](const TriagedMessage& r) {
    return r.source == Triage::Source::local;
  });
  if (local > 0) {
    out << "\n"
        << fmt::format(
               "{} of {} mails hold codes or payment details and were sorted on this "
               "machine with their digits hidden.",
               local, rows.size())
        << "\n";
  }
}

void printJSON(const std::vector<TriagedMessage>& rows, std::ostream& out) {
  printPretty(out, vobbo::toJSON(rows));
}

int runTriage(const TriageOptions& options, Io& io) {
  std::vector<std::string> files;
  for (const std::string& path : options.paths) {
    auto found = emlFilesAt(path);
    if (!found) {
      io.err << found.error() << "\n";
      return 1;
    }
    files.insert(files.end(), found->begin(), found->end());
  }
  int status = 0;
  std::vector<MailMessage> messages = readMessages(files, io, status);
  if (messages.empty()) return 1;
  std::vector<TriagedMessage> rows = Triage::triageByRules(std::move(messages));
  if (options.json) {
    printJSON(rows, io.out);
  } else {
    printRows(rows, io.out);
  }
  return status;
}

}  // namespace

void addMailCommand(CLI::App& command, Io& io, int& status) {
  command.require_subcommand(1);
  auto options = std::make_shared<TriageOptions>();
  CLI::App* triage = command.add_subcommand(
      "triage", "Sort .eml files by urgency on this machine, without sending them anywhere");
  triage->add_option("paths", options->paths, ".eml files, or folders holding them")->required();
  triage->add_flag("--json", options->json, "Print the sorted rows as JSON");
  triage->callback([options, &io, &status] { status = runTriage(*options, io); });
}

}  // namespace quibly
