#include "Commands.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <vector>

namespace quibly {

namespace {

constexpr Command kCommands[] = {
    {"approve", "Answer coding agents' permission requests in this terminal", addApproveCommand},
    {"hooks", "Show, install or remove the approval hook in each coding agent's settings",
     addHooksCommand},
    {"sessions", "Show the coding-agent sessions on this machine and what each is doing",
     addSessionsCommand},
    {"transcript", "Fold one transcript file and print its state as JSON", addTranscriptCommand},
    {"task", "Parse a typed task into its title, due date, repeat, tags and priority",
     addTaskCommand},
    {"data", "Show where Quibly keeps your data; export, move or migrate it", addDataCommand},
    {"mail", "Sort mail by urgency on this machine (mail triage PATH...)", addMailCommand},
};

std::string selfPath(const char* argv0) {
  char buffer[PATH_MAX];
#if defined(__linux__)
  ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  if (n > 0) return std::string(buffer, static_cast<size_t>(n));
#endif
  if (argv0 && ::realpath(argv0, buffer)) return buffer;
  return argv0 ? argv0 : "quibly";
}

// "approve, hooks, ... and mail", for sentences that list the commands.
std::string commandNames() {
  std::string out;
  const size_t n = std::size(kCommands);
  for (size_t i = 0; i < n; ++i) {
    if (i > 0) out += i + 1 == n ? " and " : ", ";
    out += kCommands[i].name;
  }
  return out;
}

bool isCommand(std::string_view word) {
  for (const Command& command : kCommands) {
    if (word == command.name) return true;
  }
  return false;
}

// "quibly data move": the command line as far as it was understood.
std::string commandPath(const CLI::App& app) {
  std::string path = app.get_name();
  for (const CLI::App* at = &app; !at->get_subcommands().empty();) {
    at = at->get_subcommands().front();
    path += " " + at->get_name();
  }
  return path;
}

// CLI11's own messages ("file is required") as a sentence that says where to look.
std::string usageSentence(const CLI::App* app, const CLI::Error& e) {
  std::string what = e.what();
  if (!what.empty()) what[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(what[0])));
  if (!what.empty() && what.back() != '.') what += '.';
  std::string path = commandPath(*app);
  return path + ": " + what + " Run '" + path + " --help' to see what it takes.\n";
}

}  // namespace

int run(int argc, char** argv, Io& io) {
  if (io.selfPath.empty()) io.selfPath = selfPath(argc > 0 ? argv[0] : nullptr);
  CLI::App app{
      "quibly: the terminal companion of Quibly's core. It answers coding agents' "
      "permission requests, installs the approval hook, shows live agent sessions, "
      "sorts mail and parses typed tasks."};
  app.name("quibly");
  app.set_version_flag("--version", "quibly " QUIBLY_VERSION);
  app.require_subcommand(1);
  app.failure_message(usageSentence);
  std::vector<std::string> args(argv, argv + argc);
  if (args.size() >= 2 && args[1] == "help") args[1] = "--help";
  if (args.size() >= 2 && !isCommand(args[1]) && args[1] != "--help" && args[1] != "-h" &&
      args[1] != "--version") {
    io.err << "quibly: there is no " << (args[1][0] == '-' ? "option" : "command") << " \""
           << args[1] << "\". The commands are " << commandNames()
           << "; run 'quibly --help' to see what each does.\n";
    return 2;
  }
  int status = 0;
  for (const Command& command : kCommands) {
    CLI::App* sub = app.add_subcommand(command.name, command.summary);
    command.add(*sub, io, status);
  }
  try {
    // CLI11 takes the arguments without the program's name, last first.
    args.erase(args.begin());
    std::reverse(args.begin(), args.end());
    app.parse(std::move(args));
  } catch (const CLI::ParseError& e) {
    // CLI11 reports help and usage errors as exceptions; they end here. Help
    // exits 0, any usage error 2.
    int code = app.exit(e, io.out, io.err);
    return code == 0 ? 0 : 2;
  }
  return status;
}

}  // namespace quibly
