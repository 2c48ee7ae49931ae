// The shared readers and the Claude Code fold. The other agents' folds live in
// TranscriptAgents.cpp; they reuse the readers here and keep the Claude fold's
// meanings: a tool call that needs an answer is pending, a prompt counts a turn,
// the turn's end is an explicit record.
//
// Claude Code writes one record per line, not always in time order: a prompt
// can be written after the replies to it, and even after the tool call that now
// waits for the person. Records are folded in file order, with two exceptions
// for time: `lastAt` only ever moves forward, and a prompt older than what the
// file already told counts as a turn and joins the tail at its place in time,
// but does not change what the session is doing now.

#include "Transcript.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>

#include "Clock.h"
#include "Files.h"
#include "JSRegex.h"
#include "Text.h"
#include "TranscriptRecord.h"

namespace vobbo {

void addChecked(int64_t& counter, int64_t amount) {
  if (__builtin_add_overflow(counter, amount, &counter)) std::abort();
}

namespace {

using Record = Transcript::Record;

using TranscriptRecord::text;
using TranscriptRecord::tokenCount;

std::string_view trimLeading(std::string_view s) {
  size_t i = 0;
  while (i < s.size() && (s[i] == ' ' || s[i] == '\t' || s[i] == '\n' || s[i] == '\r')) ++i;
  return s.substr(i);
}

bool isConversationType(std::string_view type) {
  return type == "user" || type == "assistant" || type == "system" || type == "attachment" ||
         type == "queue-operation";
}

}  // namespace

// ---- Small readers ------------------------------------------------------

int64_t TranscriptRecord::tokenCount(const JSONValue* value) {
  // No record reports more tokens than this; larger numbers are garbage, and
  // capping them keeps a counter from overflowing on anything short of
  // millions of such records.
  constexpr double kMaxTokensPerRecord = 1e12;
  const double* n = value ? value->number() : nullptr;
  if (!n || !std::isfinite(*n) || *n <= 0) return 0;
  return static_cast<int64_t>(std::min(*n, kMaxTokensPerRecord));
}

std::optional<std::string> TranscriptRecord::text(const JSONValue& object, std::string_view key) {
  auto s = object.stringAt(key);
  return s ? std::optional<std::string>(*s) : std::nullopt;
}

std::optional<double> TranscriptRecord::time(TranscriptState& state, const JSONValue& record,
                                             std::string_view key) {
  const JSONValue* stamp = record.get(key);
  if (!stamp) return std::nullopt;
  auto text = Transcript::stampString(*stamp);
  if (!text) return std::nullopt;
  auto time = Clock::parseISO(*text);
  if (time) state.lastAt = std::max(state.lastAt, *time);
  return time;
}

std::string Transcript::textOf(const JSONValue& content) {
  if (const std::string* s = content.string()) return *s;
  std::string out;
  if (const JSONValue::Array* blocks = content.array()) {
    for (const JSONValue& block : *blocks) {
      auto type = block.stringAt("type");
      auto text = block.stringAt("text");
      if (!type || !text) continue;
      if (*type != "text" && *type != "input_text" && *type != "output_text" && *type != "Text") {
        continue;
      }
      if (!out.empty()) out += '\n';
      out += *text;
    }
  }
  return out;
}

namespace {
void collectText(const JSONValue& value, std::string& out, int depth) {
  if (depth > 64) return;
  auto append = [&out](std::string_view s) {
    if (s.empty()) return;
    if (!out.empty()) out += '\n';
    out += s;
  };
  if (const std::string* s = value.string()) return append(*s);
  if (const JSONValue::Array* items = value.array()) {
    for (const JSONValue& item : *items) collectText(item, out, depth + 1);
    return;
  }
  if (value.object()) {
    if (auto t = value.stringAt("text")) append(*t);
    if (const JSONValue* nested = value.get("content")) collectText(*nested, out, depth + 1);
  }
}
}  // namespace

std::string Transcript::allText(const JSONValue& content) {
  std::string out;
  collectText(content, out, 0);
  return out;
}

const JSONValue* Transcript::hasBlock(const JSONValue& content, std::string_view type) {
  const JSONValue::Array* blocks = content.array();
  if (!blocks) return nullptr;
  for (auto it = blocks->rbegin(); it != blocks->rend(); ++it) {
    auto t = it->stringAt("type");
    if (t && *t == type) return &*it;
  }
  return nullptr;
}

std::string Transcript::lineKey(const Record& record, std::string_view kind) {
  if (auto uuid = record.stringAt("uuid")) return std::string(*uuid);
  std::string key(kind);
  key += '@';
  if (const JSONValue* stamp = record.get("timestamp")) key += stampString(*stamp).value_or("");
  return key;
}

std::optional<std::string> Transcript::stampString(const JSONValue& value) {
  if (const std::string* s = value.string()) return *s;
  if (const bool* b = value.boolean()) return *b ? "true" : "false";
  if (value.number()) return value.encode();
  return std::nullopt;
}

std::string Transcript::shortModel(std::string_view id) {
  const std::string lower = Text::asciiLower(id);
  if (lower.find("opus") != std::string::npos) return "Opus";
  if (lower.find("sonnet") != std::string::npos) return "Sonnet";
  if (lower.find("haiku") != std::string::npos) return "Haiku";
  return std::string(id);
}

std::optional<std::string> Transcript::commandString(const JSONValue& value) {
  if (const std::string* s = value.string()) return *s;
  const JSONValue::Array* words = value.array();
  if (!words) return std::nullopt;
  // ["bash", "-lc", "make test"] is shown as what the shell runs.
  if (words->size() == 3 && (*words)[1].string() && (*words)[2].string() &&
      (*(*words)[1].string() == "-lc" || *(*words)[1].string() == "-c")) {
    return *(*words)[2].string();
  }
  std::string out;
  for (const JSONValue& word : *words) {
    if (!word.string()) continue;
    if (!out.empty()) out += ' ';
    out += *word.string();
  }
  return out;
}

bool Transcript::isTruthy(const JSONValue* value) {
  if (!value) return false;
  if (const bool* b = value->boolean()) return *b;
  if (const double* n = value->number()) return *n != 0;
  if (const std::string* s = value->string()) return !s->empty() && *s != "false" && *s != "0";
  return false;
}

std::vector<std::string> Transcript::keyOrder(std::string_view raw, const JSONValue& input) {
  std::vector<std::pair<size_t, std::string>> placed;
  const JSONObject* object = input.object();
  if (!object) return {};
  // The input object starts after `"input"` and its colon; without one, the raw
  // text is taken to be the input itself.
  size_t start = 0;
  for (size_t at = raw.find("\"input\""); at != std::string_view::npos;
       at = raw.find("\"input\"", at + 1)) {
    std::string_view rest = trimLeading(raw.substr(at + 7));
    if (!rest.empty() && rest.front() == ':') {
      start = at + 7;
      break;
    }
  }
  for (const auto& [key, value] : *object) {
    size_t at = raw.find("\"" + key + "\"", start);
    placed.emplace_back(at, key);
  }
  std::stable_sort(placed.begin(), placed.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<std::string> keys;
  keys.reserve(placed.size());
  for (auto& [at, key] : placed) keys.push_back(std::move(key));
  return keys;
}

void Transcript::remember(TranscriptState& state, LiveTailItem item) {
  if (!state.recent) state.recent.emplace();
  auto& recent = *state.recent;
  recent.push_back(std::move(item));
  if (recent.size() > kMaxRecent) {
    recent.erase(recent.begin(), recent.begin() + static_cast<long>(recent.size() - kMaxRecent));
  }
}

void Transcript::agentStarted(TranscriptState& state, std::string_view id, double atMs) {
  if (id.empty()) return;
  if (!state.agents) state.agents.emplace();
  (*state.agents)[std::string(id)] = atMs;
}

void Transcript::agentsStopped(TranscriptState& state, std::string_view text) {
  if (!state.agents) return;
  for (const std::string& id : stoppedTasks(text)) state.agents->erase(id);
}

std::vector<std::string> Transcript::stoppedTasks(std::string_view text) {
  if (text.find("<task-notification>") == std::string_view::npos) return {};
  static const JSRegex kTask(R"(<task-id>([^<]+)</task-id>[\s\S]*?<status>([^<]+)</status>)");
  std::vector<std::string> stopped;
  for (const auto& match : kTask.allMatches(text)) {
    if (match.text(2) != "running") stopped.emplace_back(match.text(1));
  }
  return stopped;
}

int64_t Transcript::runningAgents(const TranscriptState& state, double nowMs) {
  if (!state.agents) return 0;
  int64_t running = 0;
  for (const auto& [id, startMs] : *state.agents) {
    if (startMs == 0 || nowMs - startMs < agentPatienceMs) ++running;
  }
  return running;
}

std::optional<PendingCall> Transcript::pendingOf(const TranscriptState& state) {
  if (state.lastKind != LineKind::assistantTool || !state.pendingRaw) return std::nullopt;
  if (state.turnEnded == true) return std::nullopt;
  const PendingCall& pending = *state.pendingRaw;
  if (pending.questions || pending.plan || state.approvalAsked == true) return pending;
  return std::nullopt;
}

// ---- Tool calls ---------------------------------------------------------

std::optional<std::vector<LiveQuestion>> Transcript::questionsOf(const JSONValue& input) {
  const JSONValue::Array* questions = input.arrayAt("questions");
  if (!questions) return std::nullopt;
  std::vector<LiveQuestion> out;
  for (const JSONValue& q : *questions) {
    auto text = q.stringAt("question");
    if (!text) continue;
    LiveQuestion question{std::string(*text), std::nullopt};
    if (const JSONValue::Array* options = q.arrayAt("options")) {
      question.options.emplace();
      for (const JSONValue& option : *options) {
        if (auto label = option.stringAt("label")) question.options->emplace_back(*label);
      }
    }
    out.push_back(std::move(question));
  }
  if (out.empty()) return std::nullopt;
  return out;
}

PendingCall Transcript::pendingSource(std::string_view name, const JSONValue& input) {
  PendingCall pending;
  if (name == "AskUserQuestion") {
    pending.questions = questionsOf(input);
  } else if (name == "ExitPlanMode") {
    pending.plan = text(input, "plan");
  } else {
    for (std::string_view key : {"command", "file_path", "notebook_path", "path", "pattern", "url",
                                 "description", "query"}) {
      if (auto value = input.stringAt(key)) {
        pending.call = std::string(*value);
        break;
      }
    }
  }
  return pending;
}

namespace {

// The first line of a plan that says something, without Markdown heading marks.
std::string planHeadline(std::string_view plan) {
  static const JSRegex kHeading(R"(^#+\s*)");
  while (!plan.empty()) {
    size_t end = plan.find('\n');
    std::string_view line = plan.substr(0, end);
    std::string cleaned = kHeading.replaceAll(Text::trim(line), "");
    if (!cleaned.empty()) return cleaned;
    if (end == std::string_view::npos) break;
    plan.remove_prefix(end + 1);
  }
  return "";
}

std::optional<std::string> knownArgument(const JSONValue& input) {
  if (auto plan = input.nonEmptyStringAt("plan")) return planHeadline(*plan);
  for (std::string_view key : {"file_path", "notebook_path", "path"}) {
    if (auto path = input.nonEmptyStringAt(key)) {
      std::string last = Files::lastComponent(*path);
      return last.empty() ? std::string(*path) : last;
    }
  }
  for (std::string_view key : {"command", "pattern", "description", "query", "prompt", "url"}) {
    if (auto value = input.nonEmptyStringAt(key)) return std::string(*value);
  }
  return std::nullopt;
}

}  // namespace

std::string Transcript::toolArgument([[maybe_unused]] std::string_view name, const JSONValue& input,
                                     std::string_view raw) {
  std::string argument;
  if (auto questions = questionsOf(input)) {
    argument = questions->front().text;
  } else if (auto known = knownArgument(input)) {
    argument = std::move(*known);
  } else {
    for (const std::string& key : keyOrder(raw, input)) {
      if (auto value = input.nonEmptyStringAt(key)) {
        argument = std::string(*value);
        break;
      }
    }
  }
  return Text::cut(Text::squashSpaces(argument), kArgumentLimit);
}

// ---- Claude Code --------------------------------------------------------

namespace {

void foldClaudeAssistant(TranscriptState& s, const Record& r, std::string_view raw,
                         std::optional<double> time) {
  const JSONValue* message = r.get("message");
  if (!message || !message->object()) return;
  auto model = message->stringAt("model");
  // An interrupted turn is closed by a reply the client writes itself.
  bool synthetic = model && *model == "<synthetic>";
  if (model && !synthetic) s.model = Transcript::shortModel(*model);
  if (const JSONValue* usage = message->get("usage")) {
    addChecked(s.tokens, tokenCount(usage->get("input_tokens")));
    addChecked(s.tokens, tokenCount(usage->get("output_tokens")));
  }
  double at = time.value_or(s.lastAt);
  if (synthetic) {
    s.turnEnded = true;
    s.turnEndedAt = at;
  }
  const JSONValue* content = message->get("content");
  if (!content) return;
  if (const JSONValue* use = Transcript::hasBlock(*content, "tool_use")) {
    static const JSONValue kNoInput = JSONValue(JSONObject{});
    const JSONValue* input = use->get("input");
    if (!input) input = &kNoInput;
    std::string name(use->nonEmptyStringAt("name").value_or("a tool"));
    std::string argument = Transcript::toolArgument(name, *input, raw);
    s.turnEnded = false;
    s.lastStop = text(*message, "stop_reason");
    s.lastError.reset();
    s.lastKind = LineKind::assistantTool;
    s.lastTool = name;
    auto id = use->nonEmptyStringAt("id");
    s.lastKey = id ? std::string(*id) : Transcript::lineKey(r, "tool");
    s.toolAt = at;
    s.lastText = argument;
    s.pendingRaw = Transcript::pendingSource(name, *input);
    Transcript::remember(s, {LiveTailItem::Kind::tool, name, argument, time});
    return;
  }
  std::string said = Transcript::textOf(*content);
  if (said.empty()) return;
  bool apiError = Transcript::isTruthy(r.get("isApiErrorMessage"));
  if (synthetic && !apiError) return;  // keeps the interruption showing
  s.turnEnded = synthetic;
  s.lastStop = text(*message, "stop_reason");
  s.lastError = apiError ? std::optional<bool>(true) : std::nullopt;
  s.lastKind = LineKind::assistantText;
  s.lastKey = Transcript::lineKey(r, "text");
  s.lastText = Text::cut(said, Transcript::kLastTextLimit);
  Transcript::remember(s, {LiveTailItem::Kind::text, std::nullopt,
                           Text::cut(said, Transcript::kTailTextLimit), time});
  s.saidRaw = std::move(said);
}

bool wakesAgent(const Record& r) {
  if (const JSONValue* origin = r.get("origin")) {
    auto kind = origin->stringAt("kind");
    if (kind && (*kind == "peer" || *kind == "task-notification")) return true;
  }
  return Transcript::isTruthy(r.get("isCompactSummary"));
}

void foldClaudeToolResult(TranscriptState& s, const Record& r, std::optional<double> time) {
  s.turnEnded = false;
  s.lastKind = LineKind::toolResult;
  s.lastKey = Transcript::lineKey(r, "result");
  const JSONValue* result = r.get("toolUseResult");
  if (!result || !result->object()) return;
  auto status = result->stringAt("status");
  if (status && *status == "async_launched") {
    if (auto id = result->nonEmptyStringAt("agentId")) {
      Transcript::agentStarted(s, *id, time.value_or(0));
    }
  }
  if (auto resumed = result->nonEmptyStringAt("resumedAgentId")) {
    Transcript::agentStarted(s, *resumed, time.value_or(0));
  }
}

// Remembers an item at its place in time: Claude Code sometimes writes a
// prompt after the replies to it.
void rememberInOrder(TranscriptState& s, LiveTailItem item) {
  if (!s.recent || !item.at) return Transcript::remember(s, std::move(item));
  auto& recent = *s.recent;
  auto at = recent.end();
  while (at != recent.begin() && std::prev(at)->at && *std::prev(at)->at > *item.at) --at;
  recent.insert(at, std::move(item));
  if (recent.size() > Transcript::kMaxRecent) recent.erase(recent.begin());
}

// A prompt counts a turn. One written late, older than what the file already
// told, is history: it must not hide the tool call waiting after it.
void foldClaudePrompt(TranscriptState& s, const Record& r, std::string_view prompt,
                      std::optional<double> time, double seenUntil) {
  addChecked(s.turns, 1);
  rememberInOrder(s, {LiveTailItem::Kind::prompt, std::nullopt,
                      Text::cut(prompt, Transcript::kTailTextLimit), time});
  if (time && *time < seenUntil) return;
  s.turnEnded = false;
  s.lastKey = Transcript::lineKey(r, "prompt");
  s.lastKind = LineKind::user;
  s.lastText = Text::cut(prompt, Transcript::kLastTextLimit);
  s.saidRaw.reset();
}

void foldClaudeUser(TranscriptState& s, const Record& r, std::optional<double> time,
                    double seenUntil) {
  if (auto mode = r.nonEmptyStringAt("permissionMode")) s.permissionMode = std::string(*mode);
  bool wakes = wakesAgent(r);
  if (!wakes && Transcript::isTruthy(r.get("isMeta"))) return;
  const JSONValue* message = r.get("message");
  static const JSONValue kNothing;
  const JSONValue& content =
      message && message->get("content") ? *message->get("content") : kNothing;
  if (wakes) {
    Transcript::agentsStopped(s, Transcript::allText(content));
    s.turnEnded = false;
    s.lastKind = LineKind::woken;
    s.lastKey = Transcript::lineKey(r, "woken");
    return;
  }
  if (Transcript::hasBlock(content, "tool_result")) return foldClaudeToolResult(s, r, time);
  std::string said = Transcript::textOf(content);
  std::string_view prompt = trimLeading(said);
  if (prompt.starts_with("[Request interrupted")) {
    s.turnEnded = false;
    s.lastKind = LineKind::interrupted;
    s.lastKey = Transcript::lineKey(r, "interrupted");
    return;
  }
  if (!prompt.empty()) foldClaudePrompt(s, r, prompt, time, seenUntil);
}

void foldClaudeTaskStatus(TranscriptState& s, const Record& r, std::optional<double> time) {
  auto taskType = r.stringAt("taskType");
  auto id = r.nonEmptyStringAt("taskId");
  if (!taskType || *taskType != "local_agent" || !id) return;
  auto status = r.stringAt("status");
  if (status && *status == "running") {
    Transcript::agentStarted(s, *id, time.value_or(0));
  } else if (s.agents) {
    s.agents->erase(std::string(*id));
  }
}

}  // namespace

void Transcript::foldClaudeRow(TranscriptState& s, const Record& r, std::string_view raw) {
  if (!s.cwd) s.cwd = text(r, "cwd");
  double seenUntil = s.lastAt;
  std::optional<double> time = TranscriptRecord::time(s, r, "timestamp");
  auto type = r.stringAt("type");
  if (!type) return;
  if (*type == "permission-mode") {
    if (auto mode = r.stringAt("permissionMode")) s.permissionMode = std::string(*mode);
    return;
  }
  if (isConversationType(*type)) {
    if (!s.rev) s.rev = 0;
    addChecked(*s.rev, 1);
    if (!s.sessionId) s.sessionId = text(r, "sessionId");
    // A subagent's own file starts with a side-chain record; older sessions
    // also kept side chains inside the main file, which stays a session.
    if (*s.rev == 1 && s.partial != true && isTruthy(r.get("isSidechain"))) s.subagent = true;
  }
  if (*type == "queue-operation") {
    auto operation = r.stringAt("operation");
    auto content = r.stringAt("content");
    if (operation && *operation == "enqueue" && content) agentsStopped(s, *content);
  } else if (*type == "system") {
    auto subtype = r.stringAt("subtype");
    if (subtype && *subtype == "turn_duration") {
      s.turnEnded = true;
      s.turnEndedAt = time.value_or(s.lastAt);
    }
  } else if (*type == "assistant") {
    foldClaudeAssistant(s, r, raw, time);
  } else if (*type == "user") {
    foldClaudeUser(s, r, time, seenUntil);
  } else if (*type == "attachment") {
    const JSONValue* attachment = r.get("attachment");
    auto kind = attachment ? attachment->stringAt("type") : std::nullopt;
    if (kind && *kind == "queued_command") {
      if (const JSONValue* prompt = attachment->get("prompt")) agentsStopped(s, allText(*prompt));
    }
  } else if (*type == "task_status") {
    foldClaudeTaskStatus(s, r, time);
  }
}

// ---- Line loops ---------------------------------------------------------

namespace {

// The line loop's first rule: a line of fewer than two characters (a lone
// brace, a blank) is skipped before parsing.
std::string_view usable(std::string_view line) {
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line.size() < 2 ? std::string_view{} : line;
}

template <class FoldRow>
void foldObjects(Transcript::Lines lines, TranscriptState& into, FoldRow foldRow) {
  for (std::string_view line : lines) {
    line = usable(line);
    if (line.empty()) continue;
    if (auto record = TranscriptRecord::readObject(line)) foldRow(into, *record);
  }
}

}  // namespace

void Transcript::foldClaude(Lines lines, TranscriptState& into) {
  for (std::string_view line : lines) {
    line = usable(line);
    if (line.empty()) continue;
    if (auto record = TranscriptRecord::readClaude(line)) foldClaudeRow(into, *record, line);
  }
}

void Transcript::foldCodex(Lines lines, TranscriptState& into) {
  foldObjects(lines, into, foldCodexRow);
}
void Transcript::foldGemini(Lines lines, TranscriptState& into) {
  foldObjects(lines, into, foldGeminiRow);
}
void Transcript::foldGrok(Lines lines, TranscriptState& into) {
  foldObjects(lines, into, foldGrokRow);
}
void Transcript::foldCursor(Lines lines, TranscriptState& into) {
  foldObjects(lines, into, foldCursorRow);
}
void Transcript::foldAider(Lines lines, TranscriptState& into) {
  for (std::string_view line : lines) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    foldAiderLine(into, line);
  }
}

void Transcript::fold(AgentKind agent, Lines lines, TranscriptState& into) {
  switch (agent) {
    case AgentKind::claude:
      return foldClaude(lines, into);
    case AgentKind::codex:
      return foldCodex(lines, into);
    case AgentKind::gemini:
      return foldGemini(lines, into);
    case AgentKind::grok:
      return foldGrok(lines, into);
    case AgentKind::cursor:
      return foldCursor(lines, into);
    case AgentKind::aider:
      return foldAider(lines, into);
  }
}

void Transcript::foldLine(AgentKind agent, std::string_view line, TranscriptState& into) {
  fold(agent, Lines(&line, 1), into);
}

namespace {
TranscriptState freshFold(Transcript::Lines lines,
                          void (*fold)(Transcript::Lines, TranscriptState&)) {
  TranscriptState state;
  fold(lines, state);
  return state;
}

std::vector<std::string_view> splitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    size_t end = text.find('\n');
    lines.push_back(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}
}  // namespace

TranscriptState Transcript::foldClaude(Lines lines) { return freshFold(lines, foldClaude); }
TranscriptState Transcript::foldCodex(Lines lines) { return freshFold(lines, foldCodex); }
TranscriptState Transcript::foldGemini(Lines lines) { return freshFold(lines, foldGemini); }
TranscriptState Transcript::foldGrok(Lines lines) { return freshFold(lines, foldGrok); }
TranscriptState Transcript::foldCursor(Lines lines) { return freshFold(lines, foldCursor); }
TranscriptState Transcript::foldAider(std::string_view text) {
  auto lines = splitLines(text);
  TranscriptState state;
  foldAider(Lines(lines), state);
  return state;
}

}  // namespace vobbo
