// `quibly hooks`: shows, installs and removes the approval hook in each coding
// agent's settings file. The work is HookInstaller's; this file chooses the
// agents and the helper path, and tells the person what happened in each file
// and what the agent still needs (a restart, a trust step).
//
// Every agent is handled on its own: a file that cannot be read is reported and
// left alone while the others go ahead, and the exit status is 1 if any failed.

#include <fmt/format.h>
#include <unistd.h>

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "ApproveWire.h"
#include "Commands.h"
#include "Files.h"
#include "HookConfig.h"
#include "HookInstaller.h"
#include "JSONCodec.h"
#include "Output.h"

namespace quibly {

namespace {

using vobbo::ApproveWire;
using vobbo::HookConfig;
using vobbo::HookInstaller;
using vobbo::Result;
using Agent = ApproveWire::Agent;
using Target = HookConfig::Target;

// One row of `quibly hooks --json`.
struct StatusRow {
  Agent agent = Agent::claude;
  HookInstaller::State state = HookInstaller::State::off;
  std::string path;
  std::optional<std::string> problem;  // why the file cannot be judged
};

// One row of `quibly hooks install|remove --json`: an action, or an error.
struct ChangeRow {
  Agent agent = Agent::claude;
  std::string path;
  std::optional<HookInstaller::Action> action;
  std::optional<std::string> backup;
  std::optional<std::string> error;
  std::optional<std::string> note;  // what the agent still needs from the person
};

}  // namespace
}  // namespace quibly

template <>
struct vobbo::JSONFields<quibly::StatusRow> {
  using R = quibly::StatusRow;
  static constexpr auto list =
      std::tuple{JSONField{"agent", &R::agent}, JSONField{"state", &R::state},
                 JSONField{"path", &R::path}, JSONField{"problem", &R::problem}};
};
template <>
struct vobbo::JSONFields<quibly::ChangeRow> {
  using R = quibly::ChangeRow;
  static constexpr auto list =
      std::tuple{JSONField{"agent", &R::agent},   JSONField{"path", &R::path},
                 JSONField{"action", &R::action}, JSONField{"backup", &R::backup},
                 JSONField{"error", &R::error},   JSONField{"note", &R::note}};
};

namespace quibly {
namespace {

struct Options {
  std::vector<std::string> agents;
  std::string helper;
  bool json = false;
};

enum class Operation { install, remove };

constexpr int kUsage = 2;

constexpr std::string_view kBackupNote =
    "Before a change, the settings file as it was is saved beside it as <file>.quibly-backup. "
    "The backup is refreshed at every change, so it holds the file just before Quibly's latest "
    "edit.";

// The targets named with --agent, in the table's order; all four when none is
// named. Fails on a word that names no agent.
Result<std::vector<Target>> chosenTargets(const std::vector<std::string>& words,
                                          const std::string& home) {
  std::vector<Target> out;
  for (const std::string& word : words) {
    if (!vobbo::fromRaw<Agent>(word)) {
      return vobbo::failure(
          fmt::format("There is no agent called \"{}\": name {}.", word, choiceWords<Agent>()));
    }
  }
  for (const Target& target : Target::all(home)) {
    bool named = words.empty();
    for (const std::string& word : words) named = named || word == vobbo::rawValue(target.agent);
    if (named) out.push_back(target);
  }
  return out;
}

// The helper the agents will run: --helper made absolute (agents start hooks
// from any folder), else the quibly-approve installed beside this quibly. Links
// are kept as given, so a helper reached through a stable link survives upgrades.
Result<std::string> helperPath(const Options& options, const Io& io) {
  const bool given = !options.helper.empty();
  const std::string path =
      given ? absolutePath(options.helper)
            : vobbo::Files::parentOf(io.selfPath) + "/" + std::string(HookConfig::kHelperName);
  if (given &&
      vobbo::Files::lastComponent(path).find(HookConfig::kHelperName) == std::string::npos) {
    return vobbo::failure(fmt::format(
        "The helper {} is not a {} program: its name must contain \"{}\" so Quibly can find its "
        "entry again.",
        path, HookConfig::kHelperName, HookConfig::kHelperName));
  }
  if (::access(path.c_str(), X_OK) != 0 || vobbo::Files::isDirectory(path)) {
    if (!given) {
      return vobbo::failure(fmt::format(
          "There is no {} beside quibly at {}. Install it there, or name it with --helper PATH.",
          HookConfig::kHelperName, path));
    }
    return vobbo::failure(fmt::format("The helper {} is not a program that can be run.", path));
  }
  return path;
}

// What the agent needs before the change takes effect, if anything.
std::optional<std::string> noteFor(Agent agent, Operation operation) {
  switch (agent) {
    case Agent::claude:
      if (operation == Operation::remove) {
        return "Claude Code sessions that are already running keep using the hook until they "
               "are restarted.";
      }
      return "Claude Code reads hooks when a session starts: restart Claude Code sessions that "
             "are already running.";
    case Agent::codex:
      if (operation == Operation::remove) return std::nullopt;
      return "Codex runs a new or changed hook only after you trust it: open Codex and approve "
             "the hook in its \"Hooks need review\" screen.";
    case Agent::gemini:
      if (operation == Operation::remove) return std::nullopt;
      return "Gemini CLI runs hooks only in folders you have trusted: trust your project folders "
             "in Gemini CLI to get approvals there.";
    case Agent::grok:
      return std::nullopt;
  }
  return std::nullopt;
}

std::string describeChange(const ChangeRow& row, Operation operation) {
  const std::string_view name = ApproveWire::displayName(row.agent);
  const std::string saved =
      row.backup ? fmt::format(" The file as it was is saved at {}.", *row.backup) : "";
  switch (*row.action) {
    case HookInstaller::Action::installed:
      if (!row.backup)
        return fmt::format("Installed the approval hook for {} in {}, a new file.", name, row.path);
      return fmt::format("Installed the approval hook for {} in {}.{}", name, row.path, saved);
    case HookInstaller::Action::removed:
      return fmt::format("Removed the approval hook for {} from {}.{}", name, row.path, saved);
    case HookInstaller::Action::deleted:
      return fmt::format(
          "Removed the approval hook for {} by deleting {}, which held only that hook.{}", name,
          row.path, saved);
    case HookInstaller::Action::unchanged:
      if (operation == Operation::install) {
        return fmt::format(
            "The approval hook for {} was already installed in {}; nothing was changed.", name,
            row.path);
      }
      return fmt::format("The approval hook for {} was not installed in {}; nothing was changed.",
                         name, row.path);
  }
  return "";
}

ChangeRow apply(const Target& target, Operation operation, const std::string& helper) {
  ChangeRow row{target.agent, target.path, std::nullopt, std::nullopt, std::nullopt, std::nullopt};
  auto change = operation == Operation::install ? HookInstaller::install(target, helper)
                                                : HookInstaller::remove(target);
  if (!change) {
    row.error = change.error();
    return row;
  }
  row.action = change->action;
  row.backup = change->backup;
  if (change->action != HookInstaller::Action::unchanged)
    row.note = noteFor(target.agent, operation);
  return row;
}

int runChange(Io& io, const Options& options, Operation operation) {
  auto targets = chosenTargets(options.agents, vobbo::Platform::homeDirectory(io.env));
  if (!targets) {
    io.err << targets.error() << "\n";
    return kUsage;
  }
  std::string helper;
  if (operation == Operation::install) {
    auto path = helperPath(options, io);
    if (!path) {
      io.err << path.error() << "\n";
      return options.helper.empty() ? 1 : kUsage;
    }
    helper = *path;
  }

  std::vector<ChangeRow> rows;
  for (const Target& target : *targets) rows.push_back(apply(target, operation, helper));
  bool failed = false;
  for (const ChangeRow& row : rows) failed = failed || row.error.has_value();

  if (options.json) {
    printPretty(io.out, vobbo::toJSON(rows));
  } else {
    for (const ChangeRow& row : rows) {
      if (row.error) {
        io.err << *row.error << "\n";
        continue;
      }
      io.out << describeChange(row, operation) << "\n";
      if (row.note) io.out << *row.note << "\n";
    }
  }
  return failed ? 1 : 0;
}

int runStatus(Io& io, bool json) {
  std::vector<StatusRow> rows;
  for (const Target& target : Target::all(vobbo::Platform::homeDirectory(io.env))) {
    auto installed = HookInstaller::check(target);
    StatusRow row{target.agent, HookInstaller::State::off, target.path, std::nullopt};
    if (!installed) {
      row.state = HookInstaller::State::unreadable;
      row.problem = installed.error();
    } else if (*installed) {
      row.state = HookInstaller::State::on;
    }
    rows.push_back(std::move(row));
  }
  if (json) {
    printPretty(io.out, vobbo::toJSON(rows));
    return 0;
  }
  io.out << fmt::format("{:<12} {:<11} {}\n", "Agent", "Hook", "Settings file");
  for (const StatusRow& row : rows) {
    io.out << fmt::format("{:<12} {:<11} {}\n", ApproveWire::displayName(row.agent),
                          vobbo::rawValue(row.state), row.path);
  }
  for (const StatusRow& row : rows) {
    if (row.problem) io.out << *row.problem << "\n";
  }
  return 0;
}

// `parentJson` is `quibly hooks --json`, which counts for the subcommand too.
void addChangeCommand(CLI::App& parent, Io& io, int& status, Operation operation,
                      std::shared_ptr<bool> parentJson) {
  const bool install = operation == Operation::install;
  CLI::App* command =
      install ? parent.add_subcommand("install",
                                      "Install the approval hook for every agent, or for those "
                                      "named with --agent")
              : parent.add_subcommand("remove",
                                      "Remove the approval hook, keeping everything else in the "
                                      "settings files");
  command->footer(std::string(kBackupNote));
  auto options = std::make_shared<Options>();
  command
      ->add_option("--agent", options->agents,
                   "Only this agent: claude, codex, grok or gemini (repeatable; default all)")
      ->type_name("NAME");
  if (install) {
    command
        ->add_option("--helper", options->helper,
                     "The quibly-approve program the agents run (default: the one beside quibly)")
        ->type_name("PATH");
  }
  command->add_flag("--json", options->json, "Print the result as JSON");
  command->callback([&io, &status, options, operation, parentJson] {
    options->json = options->json || *parentJson;
    status = runChange(io, *options, operation);
  });
}

}  // namespace

void addHooksCommand(CLI::App& command, Io& io, int& status) {
  command.require_subcommand(0, 1);
  auto json = std::make_shared<bool>(false);
  command.add_flag("--json", *json, "Print the status (or the changes) as JSON");
  addChangeCommand(command, io, status, Operation::install, json);
  addChangeCommand(command, io, status, Operation::remove, json);
  command.footer(
      "Without a subcommand, shows for each agent whether the hook is on, off, or unreadable "
      "(a settings file Quibly cannot read is reported and never changed).\n" +
      std::string(kBackupNote));
  // CLI11 runs this after a chosen subcommand's callback; the status table is
  // only for `quibly hooks` alone.
  CLI::App* self = &command;
  command.callback([&io, &status, json, self] {
    if (!self->get_subcommands().empty()) return;
    status = runStatus(io, *json);
  });
}

}  // namespace quibly
