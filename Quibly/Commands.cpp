#include "Commands.h"

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <iostream>

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

}  // namespace

int run(int argc, char** argv, Io& io) {
  if (io.selfPath.empty()) io.selfPath = selfPath(argc > 0 ? argv[0] : nullptr);
  CLI::App app{
      "quibly: the terminal companion of Quibly's core. It answers coding agents' "
      "permission requests, installs the approval hook, shows live agent sessions, "
      "sorts mail and parses typed tasks."};
  app.name("quibly");
  app.require_subcommand(1);
  app.failure_message([](const CLI::App*, const CLI::Error& e) {
    std::string what = e.what();
    if (!what.empty() && what.back() != '.') what += '.';
    return "quibly: " + what + " Run 'quibly --help' to see the commands and their options.\n";
  });
  int status = 0;
  for (const Command& command : kCommands) {
    CLI::App* sub = app.add_subcommand(command.name, command.summary);
    command.add(*sub, io, status);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // CLI11 reports help and usage errors as exceptions; they end here. Help
    // exits 0, any usage error 2.
    int code = app.exit(e, io.out, io.err);
    return code == 0 ? 0 : 2;
  }
  return status;
}

}  // namespace quibly
