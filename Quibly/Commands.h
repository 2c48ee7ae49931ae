#pragma once
// The companion program's commands. Each command lives in its own file and
// registers itself through one row of the table in Commands.cpp, so adding a
// command is one row and the help text cannot drift from what runs.
//
// Commands print sentences for the person on `out`, problems on `err`, and
// return the exit status: 0 on success, 1 when the work failed, 2 for bad usage.

#include <CLI/CLI.hpp>
#include <iosfwd>
#include <string>

#include "Platform.h"

namespace quibly {

struct Io {
  std::istream& in;
  std::ostream& out;
  std::ostream& err;
  vobbo::Platform::Env env;
  // Absolute path of the running `quibly` (for finding `quibly-approve` beside it).
  std::string selfPath;
};

// A command's set-up: add options to `command` and a callback that stores the
// exit status in `status`.
using AddCommand = void (*)(CLI::App& command, Io& io, int& status);

struct Command {
  const char* name;
  const char* summary;
  AddCommand add;
};

// Parses the arguments, runs the chosen command and returns the exit status.
int run(int argc, char** argv, Io& io);

// The rows of the table; each is defined in the command's own file.
void addApproveCommand(CLI::App& command, Io& io, int& status);
void addHooksCommand(CLI::App& command, Io& io, int& status);
void addSessionsCommand(CLI::App& command, Io& io, int& status);
void addTranscriptCommand(CLI::App& command, Io& io, int& status);
void addTaskCommand(CLI::App& command, Io& io, int& status);
void addDataCommand(CLI::App& command, Io& io, int& status);
void addMailCommand(CLI::App& command, Io& io, int& status);

}  // namespace quibly
