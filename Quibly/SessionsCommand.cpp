// `quibly sessions`: the coding-agent sessions on this machine as a table, one
// row per session, read from the agents' own transcript files under $HOME.
// `--watch` keeps the table up to date, redrawing when a transcript changes;
// `--json` prints each index entry with its folded state, one line each;
// `--all` includes sessions that have been quiet for more than a day.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <ostream>
#include <thread>

#include "Clock.h"
#include "Commands.h"
#include "Files.h"
#include "Format.h"
#include "Text.h"
#include "TranscriptIndex.h"

namespace quibly {

namespace {

using vobbo::IndexedTranscript;
using vobbo::Transcript;
using vobbo::TranscriptState;
using vobbo::Text::cut;

constexpr double kDayMs = 24 * 3600 * 1000.0;

struct Options {
  bool watch = false;
  bool json = false;
  bool all = false;
};

// When the session last did something: the agent's own time when it wrote one.
double activityMs(const IndexedTranscript& entry) {
  if (entry.agent != vobbo::AgentKind::aider && entry.state && entry.state->lastAt > 0) {
    return entry.state->lastAt;
  }
  return entry.mtimeMs;
}

std::string ageText(double ms) {
  double seconds = std::max(0.0, ms / 1000);
  if (seconds < 60) return fmt::format("{}s", static_cast<int64_t>(seconds));
  if (seconds < 3600) return fmt::format("{}m", static_cast<int64_t>(seconds / 60));
  if (seconds < 86400) return fmt::format("{}h", static_cast<int64_t>(seconds / 3600));
  return fmt::format("{}d", static_cast<int64_t>(seconds / 86400));
}

std::string tokenText(int64_t tokens) {
  if (tokens < 1000) return std::to_string(tokens);
  if (tokens < 1'000'000) return fmt::format("{:.1f}k", static_cast<double>(tokens) / 1e3);
  return fmt::format("{:.1f}M", static_cast<double>(tokens) / 1e6);
}

std::string toolText(const TranscriptState& s) {
  std::string tool = s.lastTool.value_or("a tool");
  if (s.lastText && !s.lastText->empty()) tool += " " + *s.lastText;
  return tool;
}

// What the session is doing now, in a few words.
std::string doing(const TranscriptState& s) {
  if (s.lastError == true) return "error";
  if (auto pending = Transcript::pendingOf(s)) {
    if (pending->questions) return "asked a question: " + pending->questions->front().text;
    if (pending->plan) return "plan waiting";
    return "waiting for you: " + toolText(s);
  }
  if (s.turnEnded == true) return "turn ended";
  if (!s.lastKind) return "starting";
  switch (*s.lastKind) {
    case vobbo::LineKind::assistantTool:
      return "running " + toolText(s);
    case vobbo::LineKind::interrupted:
      return "interrupted, waiting for you";
    default:
      return "working";
  }
}

std::string lastWords(const TranscriptState& s) {
  if (s.saidRaw) return *s.saidRaw;
  if (s.lastKind == vobbo::LineKind::user && s.lastText) return "you: " + *s.lastText;
  if (s.recent) {
    for (auto it = s.recent->rbegin(); it != s.recent->rend(); ++it) {
      if (it->kind != vobbo::LiveTailItem::Kind::tool) return it->text;
    }
  }
  return "";
}

std::string projectOf(const IndexedTranscript& entry) {
  if (!entry.cwd.empty()) return vobbo::Files::lastComponent(entry.cwd);
  return entry.slug.value_or("?");
}

using Row = std::vector<std::string>;

Row rowOf(const IndexedTranscript& entry, double nowMs) {
  const TranscriptState& s = *entry.state;
  int64_t agents = Transcript::runningAgents(s, nowMs);
  return {std::string(vobbo::rawValue(entry.agent)),
          cut(projectOf(entry), 24),
          cut(s.model.value_or("-"), 16),
          cut(vobbo::Text::squashSpaces(doing(s)), 48),
          cut(vobbo::Text::squashSpaces(lastWords(s)), 48),
          tokenText(s.tokens),
          agents > 0 ? std::to_string(agents) : "-",
          ageText(nowMs - activityMs(entry))};
}

void printTable(const std::vector<Row>& rows, std::ostream& out) {
  std::vector<size_t> widths(rows.front().size(), 0);
  for (const Row& row : rows) {
    for (size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], vobbo::Text::characterCount(row[i]));
    }
  }
  for (const Row& row : rows) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      if (i + 1 < row.size()) {
        line.append(widths[i] - vobbo::Text::characterCount(row[i]) + 2, ' ');
      }
    }
    out << vobbo::Text::trim(line, " ") << "\n";
  }
}

bool shown(const IndexedTranscript& entry, double nowMs, const Options& options) {
  if (!entry.state || entry.state->subagent == true) return false;
  return options.all || nowMs - activityMs(entry) < kDayMs;
}

void printSessions(const vobbo::TranscriptIndex& index, double nowMs, const Options& options,
                   const std::string& home, std::ostream& out) {
  std::vector<Row> rows{
      {"AGENT", "PROJECT", "MODEL", "NOW", "LAST WORDS", "TOKENS", "SUBAGENTS", "AGE"}};
  std::vector<const IndexedTranscript*> sessions;
  for (const IndexedTranscript& entry : index.entries()) {
    if (shown(entry, nowMs, options)) sessions.push_back(&entry);
  }
  std::stable_sort(sessions.begin(), sessions.end(),
                   [](const auto* a, const auto* b) { return activityMs(*a) > activityMs(*b); });
  for (const IndexedTranscript* entry : sessions) rows.push_back(rowOf(*entry, nowMs));
  if (rows.size() > 1) return printTable(rows, out);
  if (options.all) {
    out << fmt::format("No coding-agent sessions were found in {}.\n", home);
  } else {
    out << "No coding-agent session has been active in the last day. "
           "Add --all to see older ones.\n";
  }
}

void printJSON(const vobbo::TranscriptIndex& index, double nowMs, const Options& options,
               bool onlyChanged, std::ostream& out) {
  for (const IndexedTranscript& entry : index.entries()) {
    if (onlyChanged && !entry.dirty) continue;
    if (!options.all && nowMs - activityMs(entry) >= kDayMs) continue;
    out << vobbo::toJSON(entry).encode() << "\n";
  }
  out.flush();
}

std::vector<std::string> aiderFolders() {
  std::error_code ec;
  std::filesystem::path here = std::filesystem::current_path(ec);
  if (ec) return {};
  return {here.string()};
}

bool anyChanged(const vobbo::TranscriptIndex& index) {
  for (const IndexedTranscript& entry : index.entries()) {
    if (entry.dirty) return true;
  }
  return false;
}

int runSessions(const Options& options, Io& io) {
  std::string home = vobbo::Platform::homeDirectory(io.env);
  vobbo::TranscriptIndex index({.home = home, .aiderFolders = aiderFolders()});
  index.refresh();
  double nowMs = vobbo::Clock::now();
  if (options.json) printJSON(index, nowMs, options, false, io.out);
  if (!options.json) printSessions(index, nowMs, options, home, io.out);
  if (!options.watch) return 0;
  // Redraw when a transcript changed, and once in a while so the ages move on.
  constexpr int kQuietRedrawSeconds = 30;
  int quiet = 0;
  for (;;) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    size_t before = index.entries().size();
    index.refresh();
    nowMs = vobbo::Clock::now();
    bool changed = anyChanged(index) || index.entries().size() != before;
    if (options.json) {
      printJSON(index, nowMs, options, true, io.out);
      continue;
    }
    if (!changed && ++quiet < kQuietRedrawSeconds) continue;
    quiet = 0;
    io.out << "\x1b[H\x1b[2J";
    printSessions(index, nowMs, options, home, io.out);
    io.out.flush();
  }
}

}  // namespace

void addSessionsCommand(CLI::App& command, Io& io, int& status) {
  auto options = std::make_shared<Options>();
  command.add_flag("--watch", options->watch, "Keep the table up to date as transcripts change");
  command.add_flag("--json", options->json,
                   "Print each transcript's index entry and state as one JSON line");
  command.add_flag("--all", options->all, "Include sessions quiet for more than a day");
  command.callback([options, &io, &status] { status = runSessions(*options, io); });
}

}  // namespace quibly
