// `quibly transcript FILE [--agent NAME]`: folds one whole transcript file and
// prints its state as JSON, for debugging the reader and for scripts.

#include <ostream>

#include "Commands.h"
#include "Format.h"
#include "Output.h"
#include "TranscriptIndex.h"

namespace quibly {

namespace {

int runTranscript(const std::string& path, const std::string& agentName, Io& io) {
  std::optional<vobbo::AgentKind> agent;
  if (!agentName.empty()) {
    agent = vobbo::fromRaw<vobbo::AgentKind>(agentName);
    if (!agent) {
      io.err << fmt::format("There is no agent called \"{}\". Name one of {}.\n", agentName,
                            choiceWords<vobbo::AgentKind>());
      return 2;
    }
  } else {
    agent = vobbo::TranscriptIndex::agentOf(path);
    if (!agent) {
      io.err << fmt::format("Quibly cannot tell which agent wrote {}. Name it with --agent ({}).\n",
                            path, choiceWords<vobbo::AgentKind>());
      return 2;
    }
  }
  auto state = vobbo::TranscriptIndex::foldFile(path, *agent);
  if (!state) {
    io.err << state.error() << "\n";
    return 1;
  }
  io.out << vobbo::toJSON(*state).encode(vobbo::JSONValue::Format::pretty) << "\n";
  return 0;
}

}  // namespace

void addTranscriptCommand(CLI::App& command, Io& io, int& status) {
  auto path = std::make_shared<std::string>();
  auto agent = std::make_shared<std::string>();
  command.add_option("file", *path, "The transcript file to read")->required();
  command.add_option("--agent", *agent,
                     "The agent that wrote it: " + choiceWords<vobbo::AgentKind>() + " (guessed from the path)");
  command.callback([path, agent, &io, &status] { status = runTranscript(*path, *agent, io); });
}

}  // namespace quibly
