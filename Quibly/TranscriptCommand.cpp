// `quibly transcript FILE [--agent NAME]`: folds one whole transcript file and
// prints its state as JSON, for debugging the reader and for scripts.

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <ostream>

#include "Commands.h"
#include "Descriptor.h"
#include "Format.h"
#include "Output.h"
#include "TranscriptIndex.h"

namespace quibly {

namespace {

constexpr int kUsage = 2;

// Nothing, or a sentence saying why the file cannot be read; checked before
// the agent is guessed from the path, so a typo is reported as the typo.
std::optional<std::string> unreadable(const std::string& path) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) {
    return fmt::format("Quibly could not read {}: {}.", path, std::strerror(errno));
  }
  if (S_ISDIR(st.st_mode)) {
    return fmt::format("Quibly could not read {}: it is a folder. Name one transcript file in it.",
                       path);
  }
  vobbo::Descriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) return fmt::format("Quibly could not read {}: {}.", path, std::strerror(errno));
  return std::nullopt;
}

int runTranscript(const std::string& path, const std::string& agentName, Io& io) {
  // A misspelt --agent is bad usage whatever the file; a file that cannot be
  // read is said so before any guess is made from its name.
  std::optional<vobbo::AgentKind> agent;
  if (!agentName.empty()) {
    agent = vobbo::fromRaw<vobbo::AgentKind>(agentName);
    if (!agent) {
      io.err << fmt::format("There is no agent called \"{}\". Name one of {}.\n", agentName,
                            choiceWords<vobbo::AgentKind>());
      return kUsage;
    }
  }
  if (auto problem = unreadable(path)) {
    io.err << *problem << "\n";
    return 1;
  }
  if (!agent) agent = vobbo::TranscriptIndex::agentOf(path);
  if (!agent) {
    io.err << fmt::format("Quibly cannot tell which agent wrote {}. Name it with --agent ({}).\n",
                          path, choiceWords<vobbo::AgentKind>());
    return kUsage;
  }
  auto state = vobbo::TranscriptIndex::foldFile(path, *agent);
  if (!state) {
    io.err << state.error() << "\n";
    return 1;
  }
  printPretty(io.out, vobbo::toJSON(*state));
  return 0;
}

}  // namespace

void addTranscriptCommand(CLI::App& command, Io& io, int& status) {
  auto path = std::make_shared<std::string>();
  auto agent = std::make_shared<std::string>();
  command.add_option("file", *path, "The transcript file to read")->required();
  command.add_option(
      "--agent", *agent,
      "The agent that wrote it: " + choiceWords<vobbo::AgentKind>() + " (guessed from the path)");
  command.callback([path, agent, &io, &status] { status = runTranscript(*path, *agent, io); });
}

}  // namespace quibly
