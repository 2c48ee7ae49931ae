#pragma once
// Running other programs: a command whose output is wanted (a shell command the
// person approved, a desktop notifier), a long run left in the background with
// its output kept in a file (a headless coding-agent run), and a program that
// takes over the terminal (the person's editor). Every child gets its own
// process group, so stopping it stops everything it started, and no descriptor
// of ours leaks into it.
//
// Nothing here throws: a program that cannot be started is a sentence, and what
// a started program did (its status, a signal, the time limit) is reported in
// Output for the caller to judge.

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform.h"
#include "Result.h"

namespace vobbo::Processes {

struct Options {
  // Written to standard input, which is then closed. Standard input is empty
  // (/dev/null) when this is empty.
  std::string input;
  // Variables set (a value) or removed (nullopt) on top of this process's own
  // environment.
  std::vector<std::pair<std::string, std::optional<std::string>>> env;
  // The working folder; empty keeps ours.
  std::string cwd;
  // After this many seconds the whole process group is killed (0: no limit).
  double timeoutSeconds = 0;
  // At most this many bytes of each stream are kept; the rest is read and dropped.
  size_t maxOutput = 1 << 20;
};

struct Output {
  int exitCode = -1;       // the status it exited with; -1 when a signal ended it
  int signal = 0;          // the signal that ended it, or 0
  bool timedOut = false;   // killed because timeoutSeconds ran out
  bool truncated = false;  // more output came than maxOutput kept
  std::string out;
  std::string err;

  bool succeeded() const { return exitCode == 0; }
};

// Runs argv (argv[0] found on PATH when it has no "/") with output captured,
// and waits for it to end. Fails with a sentence when it cannot be started
// ("There is no program called X on this machine.").
Result<Output> run(const std::vector<std::string>& argv, const Options& options = {});

// Starts argv in the background in its own process group, with standard input
// from /dev/null and standard output and error appended to logPath (created
// 0600). Returns its process id, which is also its process group id. The child
// is never waited for here: reap it with reap() or leave it to outlive us.
Result<pid_t> startBackground(const std::vector<std::string>& argv, const std::string& logPath,
                              const Options& options = {});

// Runs argv on this process's own terminal (standard input, output and error
// inherited) and waits for it: how the person's editor is opened. Returns the
// exit status, or -1 when a signal ended it.
Result<int> runAttached(const std::vector<std::string>& argv, const Options& options = {});

// Whether a process (group, with group = true) is still running.
bool alive(pid_t pid);

// Sends SIGTERM to the process group, then SIGKILL to what is left after
// graceSeconds. Returns false when there was no such group.
bool stopGroup(pid_t group, double graceSeconds = 2);

// Collects a background child of ours that has ended, without blocking.
void reap(pid_t pid);

// The full path of a program found on the PATH of `env`, or nothing.
std::optional<std::string> which(std::string_view name, const Platform::Env& env);

// The exit status and signal of `output` as a sentence fragment: "exited with
// status 2", "was stopped by signal 9", "ran out of time".
std::string describeEnd(const Output& output);

}  // namespace vobbo::Processes
