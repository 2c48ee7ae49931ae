// The folds of the agents other than Claude Code. Each reads its agent's own
// records but keeps the Claude fold's meanings, so the session list treats all
// agents alike:
//
// - Codex writes rollout records {timestamp, type, payload}. Calls come as
//   response items, their ends as outputs or command events; the agent's words
//   can arrive three times (a response item, an agent_message event and an
//   item_completed record), so a repeated text is remembered once. A pending
//   approval leaves no trace in the file, so an approval shows only when the
//   agent writes an approval request event.
// - Gemini CLI writes one row per message and writes a row again, whole, when it
//   changes (a reply gains its tool calls). A row whose id was just folded
//   replaces the earlier one: its tokens and its prompt are not counted twice.
// - The Grok CLI's event rows say what happens as it happens.
// - Cursor's chat store holds messages {role, content} in the shape of the AI
//   SDK: text parts, tool-call parts and tool messages.
// - Aider's chat history is Markdown: "#### " lines are the person's prompt,
//   "> " lines the tool's own notes, everything else the model's reply.

#include <algorithm>
#include <charconv>
#include <cmath>

#include "Clock.h"
#include "Text.h"
#include "Transcript.h"
#include "TranscriptRecord.h"

namespace vobbo {

namespace {

using Record = Transcript::Record;
using Kind = LiveTailItem::Kind;

using TranscriptRecord::text;
using TranscriptRecord::tokenCount;

// Remembers an item unless it repeats the newest one.
void rememberOnce(TranscriptState& s, LiveTailItem item) {
  if (s.recent && !s.recent->empty()) {
    const LiveTailItem& last = s.recent->back();
    if (last.kind == item.kind && last.name == item.name && last.text == item.text) return;
  }
  Transcript::remember(s, std::move(item));
}

// Text the client adds to a conversation for the model's sake, not typed by the
// person: a whole message wrapped in one tag, or the project's agent notes.
bool isContext(std::string_view said) {
  said = Text::trim(said);
  if (said.starts_with("# AGENTS.md instructions")) return true;
  return said.size() > 2 && said.front() == '<' && said.back() == '>';
}

// Whether a prompt is new, or one already counted written again.
enum class Prompt { fresh, repeated };

void foldPrompt(TranscriptState& s, std::string key, std::string_view said,
                std::optional<double> time, Prompt prompt) {
  said = Text::trim(said);
  if (said.empty() || isContext(said)) return;
  s.turnEnded = false;
  s.lastKey = std::move(key);
  s.lastKind = LineKind::user;
  s.lastText = Text::cut(said, Transcript::kLastTextLimit);
  s.saidRaw.reset();
  if (prompt == Prompt::repeated) return;
  addChecked(s.turns, 1);
  Transcript::remember(
      s, {Kind::prompt, std::nullopt, Text::cut(said, Transcript::kTailTextLimit), time});
}

void foldSaid(TranscriptState& s, std::string key, std::string_view said,
              std::optional<double> time) {
  if (said.empty()) return;
  s.turnEnded = false;
  s.lastError.reset();
  s.lastKind = LineKind::assistantText;
  s.lastKey = std::move(key);
  s.lastText = Text::cut(said, Transcript::kLastTextLimit);
  s.saidRaw = std::string(said);
  rememberOnce(s, {Kind::text, std::nullopt, Text::cut(said, Transcript::kTailTextLimit), time});
}

struct Call {
  std::string key;
  std::string tool;
  std::string argument;
  std::optional<std::string> whole;
};

void foldCall(TranscriptState& s, Call call, std::optional<double> time) {
  s.turnEnded = false;
  s.lastError.reset();
  s.lastKind = LineKind::assistantTool;
  s.lastTool = call.tool;
  s.lastKey = std::move(call.key);
  s.toolAt = time.value_or(s.lastAt);
  s.lastText = call.argument;
  PendingCall pending;
  pending.call = call.whole ? std::move(call.whole) : std::optional<std::string>(call.argument);
  s.pendingRaw = std::move(pending);
  rememberOnce(s, {Kind::tool, std::move(call.tool), std::move(call.argument), time});
}

void foldResult(TranscriptState& s, std::string key) {
  s.turnEnded = false;
  s.approvalAsked.reset();
  s.lastKind = LineKind::toolResult;
  s.lastKey = std::move(key);
}

void endTurn(TranscriptState& s, std::optional<double> time) {
  s.turnEnded = true;
  s.turnEndedAt = time.value_or(s.lastAt);
}

void foldError(TranscriptState& s, std::optional<double> time) {
  endTurn(s, time);
  s.lastError = true;
  s.lastText = "stopped on an error";
}

void countRev(TranscriptState& s) {
  if (!s.rev) s.rev = 0;
  addChecked(*s.rev, 1);
}

}  // namespace

// ---- Codex --------------------------------------------------------------

std::optional<Transcript::CodexCall> Transcript::codexCall(const JSONValue& payload) {
  auto type = payload.stringAt("type");
  auto name = payload.nonEmptyStringAt("name");
  if (!type) return std::nullopt;
  std::string_view argumentsText;
  JSONValue arguments;
  if (*type == "function_call" && name) {
    argumentsText = payload.stringAt("arguments").value_or("");
    if (auto parsed = JSONValue::parse(argumentsText)) arguments = std::move(*parsed);
  } else if (*type == "custom_tool_call" && name) {
    argumentsText = payload.stringAt("input").value_or("");
  } else if (*type == "local_shell_call") {
    name = "local_shell";
    if (const JSONValue* action = payload.get("action")) arguments = *action;
  } else {
    return std::nullopt;
  }
  auto line = [](std::string_view s) { return Text::cut(Text::squashSpaces(s), kArgumentLimit); };
  if (*name == "exec_command" || *name == "local_shell" || *name == "container.exec" ||
      *name == "shell") {
    const JSONValue* command = arguments.firstOf({"cmd", "command"});
    std::string whole = command ? commandString(*command).value_or("") : "";
    return CodexCall{"Shell", line(whole), whole};
  }
  if (*name == "apply_patch") {
    std::string_view patch = argumentsText;
    if (patch.empty()) patch = arguments.stringAt("input").value_or("");
    // Show the first file the patch touches: "*** Update File: src/main.rs".
    std::string whole(patch);
    for (std::string_view marker : {"*** Update File: ", "*** Add File: ", "*** Delete File: "}) {
      size_t at = patch.find(marker);
      if (at == std::string_view::npos) continue;
      std::string_view rest = patch.substr(at + marker.size());
      whole = std::string(rest.substr(0, rest.find('\n')));
      break;
    }
    return CodexCall{"Edit", line(whole), whole};
  }
  if (*name == "write_stdin") {
    return CodexCall{"Shell", "input to a running command", "input to a running command"};
  }
  std::string argument =
      arguments.object() ? toolArgument(*name, arguments, argumentsText) : line(argumentsText);
  return CodexCall{std::string(*name), argument, std::string(argumentsText)};
}

namespace {

bool mentionsSubagent(const JSONValue* source) {
  if (!source) return false;
  if (const std::string* s = source->string()) return s->find("subagent") != std::string::npos;
  if (const JSONObject* o = source->object()) return o->contains("subagent");
  return false;
}

void foldCodexResponse(TranscriptState& s, const Record& r, const JSONValue& payload,
                       std::optional<double> time) {
  auto type = payload.stringAt("type").value_or("");
  if (auto call = Transcript::codexCall(payload)) {
    auto id = payload.nonEmptyStringAt("call_id");
    std::string key = id ? std::string(*id) : Transcript::lineKey(r, "tool");
    foldCall(s, {std::move(key), call->tool, call->text, call->whole}, time);
  } else if (type == "function_call_output" || type == "custom_tool_call_output") {
    foldResult(s, std::string(payload.stringAt("call_id").value_or("")) + ":out");
  } else if (type == "message") {
    auto role = payload.stringAt("role").value_or("");
    const JSONValue* content = payload.get("content");
    std::string said = content ? Transcript::textOf(*content) : "";
    if (role == "user") foldPrompt(s, Transcript::lineKey(r, "prompt"), said, time, Prompt::fresh);
    if (role == "assistant") foldSaid(s, Transcript::lineKey(r, "text"), said, time);
  }
}

void foldCodexApproval(TranscriptState& s, const JSONValue& payload, std::string tool,
                       std::optional<double> time) {
  std::string whole;
  if (const JSONValue* command = payload.get("command")) {
    whole = Transcript::commandString(*command).value_or("");
  } else if (const JSONObject* changes = payload.objectAt("changes");
             changes && !changes->empty()) {
    whole = changes->begin()->first;
  }
  auto id = payload.nonEmptyStringAt("call_id");
  std::string argument = Text::cut(Text::squashSpaces(whole), Transcript::kArgumentLimit);
  foldCall(s, {id ? std::string(*id) : "approval", std::move(tool), argument, whole}, time);
  s.approvalAsked = true;
}

void foldCodexItem(TranscriptState& s, const Record& r, const JSONValue& payload,
                   std::optional<double> time) {
  const JSONValue* item = payload.get("item");
  auto kind = item ? item->stringAt("type").value_or("") : "";
  if (kind == "AgentMessage") {
    const JSONValue* content = item->get("content");
    foldSaid(s, Transcript::lineKey(r, "text"), content ? Transcript::textOf(*content) : "", time);
  } else if (kind != "UserMessage") {
    foldResult(s, Transcript::lineKey(r, "item_completed"));
  }
}

void foldCodexEvent(TranscriptState& s, const Record& r, const JSONValue& payload,
                    std::optional<double> time) {
  auto type = payload.stringAt("type").value_or("");
  if (type == "exec_approval_request") {
    foldCodexApproval(s, payload, "Shell", time);
  } else if (type == "apply_patch_approval_request") {
    foldCodexApproval(s, payload, "Edit", time);
  } else if (type == "exec_command_begin") {
    s.turnEnded = false;
    s.approvalAsked = false;
    s.lastKind = LineKind::assistantTool;
    s.lastTool = "Shell";
    s.pendingRaw.reset();
  } else if (type == "exec_command_end") {
    foldResult(s, Transcript::lineKey(r, type));
  } else if (type == "item_completed") {
    foldCodexItem(s, r, payload, time);
  } else if (type == "agent_message") {
    foldSaid(s, Transcript::lineKey(r, "text"), payload.stringAt("message").value_or(""), time);
  } else if (type == "token_count") {
    const JSONValue* info = payload.get("info");
    const JSONValue* total = info ? info->get("total_token_usage") : nullptr;
    if (total && total->get("total_tokens")) s.tokens = tokenCount(total->get("total_tokens"));
  } else if (type == "task_started" || type == "turn_started") {
    s.turnEnded = false;
  } else if (type == "turn_aborted") {
    s.turnEnded = false;
    s.lastKind = LineKind::interrupted;
    s.lastKey = Transcript::lineKey(r, "interrupted");
  } else if (type == "task_complete") {
    auto said = payload.nonEmptyStringAt("last_agent_message");
    s.lastText = Text::cut(said.value_or("done"), Transcript::kLastTextLimit);
    if (said) s.saidRaw = std::string(*said);
    s.approvalAsked.reset();
    endTurn(s, time);
  } else if (type == "error" || type == "stream_error") {
    foldError(s, time);
  }
}

}  // namespace

void Transcript::foldCodexRow(TranscriptState& s, const Record& r) {
  std::optional<double> time = TranscriptRecord::time(s, r, "timestamp");
  auto type = r.stringAt("type");
  const JSONValue* payload = r.get("payload");
  if (!type || !payload || !payload->object()) return;
  if (*type == "session_meta") {
    if (!s.sessionId) s.sessionId = text(*payload, "id");
    if (!s.sessionId) s.sessionId = text(*payload, "session_id");
    if (!s.cwd) s.cwd = text(*payload, "cwd");
    if (mentionsSubagent(payload->get("source")) ||
        mentionsSubagent(payload->get("thread_source"))) {
      s.subagent = true;
    }
  } else if (*type == "turn_context") {
    if (!s.cwd) s.cwd = text(*payload, "cwd");
    if (auto model = payload->nonEmptyStringAt("model")) s.model = shortModel(*model);
  } else if (*type == "response_item") {
    countRev(s);
    foldCodexResponse(s, r, *payload, time);
  } else if (*type == "event_msg") {
    countRev(s);
    foldCodexEvent(s, r, *payload, time);
  }
}

// ---- Gemini CLI ---------------------------------------------------------

namespace {

std::string geminiKey(std::string_view id) { return "gemini:" + std::string(id); }

std::string partsText(const JSONValue& content) {
  if (const std::string* s = content.string()) return *s;
  std::string out;
  if (const JSONValue::Array* parts = content.array()) {
    for (const JSONValue& part : *parts) {
      auto t = part.stringAt("text");
      if (!t || t->empty()) continue;
      if (!out.empty()) out += '\n';
      out += *t;
    }
  }
  return out;
}

const JSONValue* functionResponse(const JSONValue& content) {
  const JSONValue::Array* parts = content.array();
  if (!parts) return nullptr;
  for (auto it = parts->rbegin(); it != parts->rend(); ++it) {
    if (const JSONValue* response = it->get("functionResponse")) return response;
  }
  return nullptr;
}

void foldGeminiToolCall(TranscriptState& s, const JSONValue& call, std::string_view rowId,
                        std::optional<double> time) {
  static const JSONValue kNoArgs = JSONValue(JSONObject{});
  std::string id(call.nonEmptyStringAt("id").value_or(rowId));
  auto status = call.stringAt("status").value_or("");
  const JSONValue* args = call.get("args");
  if (!args || !args->object()) args = &kNoArgs;
  std::string tool(call.nonEmptyStringAt("displayName")
                       .value_or(call.nonEmptyStringAt("name").value_or("a tool")));
  std::string rawArgs = args->encode();
  std::string argument = Transcript::toolArgument(tool, *args, rawArgs);
  PendingCall pending = Transcript::pendingSource(call.stringAt("name").value_or(""), *args);
  foldCall(s, {geminiKey(id), tool, argument, pending.call}, time);
  s.approvalAsked = status == "awaiting_approval" ? std::optional<bool>(true) : std::nullopt;
  // A call is often first written when it has already run.
  if (status == "success" || status == "error" || status == "cancelled") {
    foldResult(s, geminiKey(id) + ":out");
  }
}

// The first workspace folder named in the context Gemini CLI opens a session
// with: "- **Workspace Directories:**\n  - /home/me/project".
std::optional<std::string> workspaceOf(std::string_view context) {
  constexpr std::string_view kHeading = "Workspace Directories:**";
  size_t at = context.find(kHeading);
  if (!context.starts_with("<session_context>") || at == std::string_view::npos) {
    return std::nullopt;
  }
  std::string_view rest = context.substr(at + kHeading.size());
  size_t dash = rest.find("- ");
  if (dash == std::string_view::npos) return std::nullopt;
  std::string_view folder = Text::trim(rest.substr(dash + 2, rest.find('\n', dash) - dash - 2));
  if (folder.empty()) return std::nullopt;
  return std::string(folder);
}

void foldGeminiModel(TranscriptState& s, const JSONValue& row, std::string_view id,
                     std::optional<double> time) {
  if (auto model = row.nonEmptyStringAt("model")) s.model = Transcript::shortModel(*model);
  if (const JSONValue* tokens = row.get("tokens")) {
    int64_t added = tokenCount(tokens->get("total"));
    addChecked(s.tokens, added);
    addChecked(*s.rowTokens, added);
  }
  const JSONValue::Array* calls = row.arrayAt("toolCalls");
  if (calls && !calls->empty()) return foldGeminiToolCall(s, calls->back(), id, time);
  const JSONValue* content = row.get("content");
  std::string said = content ? partsText(*content) : "";
  if (said.empty()) return;
  foldSaid(s, geminiKey(id), said, time);
  endTurn(s, time);  // a reply without tool calls closes the turn
}

void foldGeminiMessage(TranscriptState& s, const JSONValue& row, std::optional<double> time) {
  auto type = row.stringAt("type").value_or("");
  std::string id(row.stringAt("id").value_or(""));
  // A row written again replaces its earlier self: take back what it added.
  bool again = !id.empty() && s.rowId == id;
  if (again && s.rowTokens) s.tokens -= std::min(*s.rowTokens, s.tokens);
  s.rowId = id;
  s.rowTokens = 0;
  if (type == "user") {
    const JSONValue* content = row.get("content");
    if (!content) return;
    if (const JSONValue* response = functionResponse(*content)) {
      return foldResult(s, geminiKey(response->stringAt("id").value_or(id)) + ":out");
    }
    std::string said = partsText(*content);
    if (!s.cwd) s.cwd = workspaceOf(said);
    foldPrompt(s, geminiKey(id), said, time, again ? Prompt::repeated : Prompt::fresh);
  } else if (type == "gemini") {
    foldGeminiModel(s, row, id, time);
  } else if (type == "error") {
    foldError(s, time);
  }
}

}  // namespace

void Transcript::foldGeminiRow(TranscriptState& s, const Record& r) {
  std::optional<double> time = TranscriptRecord::time(s, r, "timestamp");
  if (r.get("projectHash") || r.get("startTime")) {  // the session's header row
    if (!s.sessionId) s.sessionId = text(r, "sessionId");
    auto kind = r.stringAt("kind");
    if (kind && *kind == "subagent") s.subagent = true;
    return;
  }
  if (const JSONValue* set = r.get("$set")) {
    if (!set->object()) return;
    TranscriptRecord::time(s, *set, "lastUpdated");
    if (const JSONValue::Array* messages = set->arrayAt("messages")) {
      for (const JSONValue& row : *messages) {
        if (!row.object()) continue;
        countRev(s);
        foldGeminiMessage(s, row, TranscriptRecord::time(s, row, "timestamp"));
      }
    }
    return;
  }
  if (!r.stringAt("type")) return;
  countRev(s);
  foldGeminiMessage(s, r, time);
}

// ---- Grok CLI -----------------------------------------------------------

namespace {

std::string grokKey(const Record& r, std::string_view kind) {
  if (auto id = r.nonEmptyStringAt("tool_call_id")) return "grok:" + std::string(*id);
  return "grok:" + Transcript::lineKey(r, kind);
}

void foldGrokTool(TranscriptState& s, const Record& r, std::optional<double> time) {
  static const JSONValue kNoArgs = JSONValue(JSONObject{});
  std::string tool(r.nonEmptyStringAt("tool_name").value_or("a tool"));
  const JSONValue* args = r.firstOf({"args", "arguments", "input"});
  std::string rawArgs;
  JSONValue parsed;
  if (args && args->string()) {  // arguments may arrive as JSON text
    rawArgs = *args->string();
    if (auto p = JSONValue::parse(rawArgs)) parsed = std::move(*p);
    args = &parsed;
  } else if (args) {
    rawArgs = args->encode();
  }
  if (!args || !args->object()) args = &kNoArgs;
  std::string argument = Transcript::toolArgument(tool, *args, rawArgs);
  PendingCall pending = Transcript::pendingSource(tool, *args);
  foldCall(s, {grokKey(r, "tool"), tool, argument, pending.call}, time);
}

}  // namespace

void Transcript::foldGrokRow(TranscriptState& s, const Record& r) {
  std::optional<double> time = TranscriptRecord::time(s, r, "timestamp");
  if (auto model = r.nonEmptyStringAt("model_id")) s.model = shortModel(*model);
  if (!s.sessionId) s.sessionId = text(r, "session_id");
  if (!s.cwd) s.cwd = text(r, "cwd");
  auto type = r.stringAt("type");
  if (!type) return;
  countRev(s);
  if (*type == "turn_started") {
    auto prompt = r.stringAt("prompt");
    if (prompt) foldPrompt(s, grokKey(r, "prompt"), *prompt, time, Prompt::fresh);
    s.turnEnded = false;
  } else if (*type == "loop_started" || *type == "first_token" || *type == "phase_changed") {
    s.turnEnded = false;
  } else if (*type == "tool_started") {
    foldGrokTool(s, r, time);
  } else if (*type == "tool_completed") {
    foldResult(s, grokKey(r, "result") + ":out");
  } else if (*type == "permission_requested") {
    if (s.lastKind != LineKind::assistantTool) foldGrokTool(s, r, time);
    s.approvalAsked = true;
  } else if (*type == "permission_resolved") {
    s.approvalAsked.reset();
    auto decision = r.stringAt("decision");
    if (!decision || *decision != "allow") foldResult(s, grokKey(r, "denied") + ":out");
  } else if (*type == "turn_ended") {
    auto said = r.nonEmptyStringAt("text");
    if (said) foldSaid(s, grokKey(r, "text"), *said, time);
    auto outcome = r.stringAt("outcome");
    if (outcome && *outcome == "cancelled") s.lastKind = LineKind::interrupted;
    if (outcome && *outcome == "error") s.lastError = true;
    s.approvalAsked.reset();
    endTurn(s, time);
  }
}

// ---- Cursor -------------------------------------------------------------

namespace {

// Cursor wraps what the person typed in <user_query> tags.
std::string_view unwrapQuery(std::string_view said) {
  constexpr std::string_view kOpen = "<user_query>", kClose = "</user_query>";
  size_t open = said.find(kOpen);
  if (open == std::string_view::npos) return said;
  std::string_view inner = said.substr(open + kOpen.size());
  return inner.substr(0, inner.find(kClose));
}

}  // namespace

void Transcript::foldCursorRow(TranscriptState& s, const Record& r) {
  std::optional<double> time = TranscriptRecord::time(s, r, "timestamp");
  auto role = r.stringAt("role");
  const JSONValue* content = r.get("content");
  if (!role || !content) return;
  countRev(s);
  std::string key = "cursor:" + lineKey(r, std::string(*role));
  if (auto id = r.nonEmptyStringAt("id")) key = "cursor:" + std::string(*id);
  if (*role == "user") {
    std::string said = partsText(*content);
    foldPrompt(s, key, unwrapQuery(said), time, Prompt::fresh);
  } else if (*role == "assistant") {
    if (auto model = r.nonEmptyStringAt("model")) s.model = shortModel(*model);
    if (const JSONValue* call = hasBlock(*content, "tool-call")) {
      static const JSONValue kNoArgs = JSONValue(JSONObject{});
      const JSONValue* args = call->get("args");
      if (!args || !args->object()) args = &kNoArgs;
      std::string tool(call->nonEmptyStringAt("toolName").value_or("a tool"));
      auto id = call->nonEmptyStringAt("toolCallId");
      PendingCall pending = pendingSource(tool, *args);
      foldCall(s,
               {id ? "cursor:" + std::string(*id) : key, tool,
                toolArgument(tool, *args, args->encode()), pending.call},
               time);
      if (pending.questions || pending.plan) s.pendingRaw = pending;
      return;
    }
    foldSaid(s, key, partsText(*content), time);
  } else if (*role == "tool") {
    const JSONValue* result = hasBlock(*content, "tool-result");
    auto id = result ? result->nonEmptyStringAt("toolCallId") : std::nullopt;
    foldResult(s, (id ? "cursor:" + std::string(*id) : key) + ":out");
  }
}

// ---- Aider --------------------------------------------------------------

namespace {

// "1.2k" -> 1200, "431" -> 431; nothing for anything else.
std::optional<int64_t> aiderCount(std::string_view word) {
  double scale = 1;
  if (!word.empty() && (word.back() == 'k' || word.back() == 'K')) {
    scale = 1e3;
    word.remove_suffix(1);
  } else if (!word.empty() && (word.back() == 'M' || word.back() == 'm')) {
    scale = 1e6;
    word.remove_suffix(1);
  }
  double value = 0;
  auto [end, ec] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (ec != std::errc() || end != word.data() + word.size() || !(value >= 0) || value > 1e9) {
    return std::nullopt;
  }
  return static_cast<int64_t>(std::llround(value * scale));
}

// "> Tokens: 4.2k sent, 1.1k received. Cost: ..." ends each reply.
void foldAiderTokens(TranscriptState& s, std::string_view note) {
  note.remove_prefix(std::string_view("Tokens: ").size());
  for (std::string_view label : {" sent", " received"}) {
    size_t at = note.find(label);
    if (at == std::string_view::npos) continue;
    size_t start = note.rfind(' ', at - 1);
    start = start == std::string_view::npos ? 0 : start + 1;
    std::string_view word = note.substr(start, at - start);
    if (!word.empty() && word.front() == ',') word.remove_prefix(1);
    if (auto n = aiderCount(word)) addChecked(s.tokens, *n);
  }
  endTurn(s, std::nullopt);
}

void foldAiderNote(TranscriptState& s, std::string_view note) {
  if (note.starts_with("Tokens: ")) return foldAiderTokens(s, note);
  for (auto [prefix, tool] : {std::pair{"Applied edit to ", "Edit"}, {"Running ", "Shell"}}) {
    std::string_view p(prefix);
    if (!note.starts_with(p)) continue;
    std::string argument =
        Text::cut(Text::squashSpaces(note.substr(p.size())), Transcript::kArgumentLimit);
    foldCall(s, {"aider:" + std::string(note), tool, argument, std::nullopt}, std::nullopt);
    s.pendingRaw.reset();
    return;
  }
}

void foldAiderReply(TranscriptState& s, std::string_view line) {
  bool continuing = s.lastKind == LineKind::assistantText && s.saidRaw && s.turnEnded != true;
  std::string said = continuing ? *s.saidRaw + "\n" + std::string(line) : std::string(line);
  s.turnEnded = false;
  s.lastKind = LineKind::assistantText;
  s.lastKey = "aider:reply@" + std::to_string(s.turns);
  s.lastText = Text::cut(Text::squashSpaces(said), Transcript::kLastTextLimit);
  LiveTailItem item{Kind::text, std::nullopt, Text::cut(said, Transcript::kTailTextLimit),
                    std::nullopt};
  if (continuing && s.recent && !s.recent->empty() && s.recent->back().kind == Kind::text) {
    s.recent->back() = std::move(item);
  } else {
    Transcript::remember(s, std::move(item));
  }
  s.saidRaw = std::move(said);
}

}  // namespace

void Transcript::foldAiderLine(TranscriptState& s, std::string_view line) {
  constexpr std::string_view kStarted = "# aider chat started at ";
  if (Text::trim(line).empty()) return;
  if (line.starts_with(kStarted)) {
    if (auto at = Clock::parseISO(Text::trim(line.substr(kStarted.size())))) {
      s.lastAt = std::max(s.lastAt, *at);
    }
    return;
  }
  if (line.starts_with("#### ")) {
    std::string_view prompt = line.substr(5);
    bool continuing = s.lastKind == LineKind::user;  // a prompt of many lines counts once
    foldPrompt(s, "aider:prompt@" + std::to_string(s.turns), prompt, std::nullopt,
               continuing ? Prompt::repeated : Prompt::fresh);
    return;
  }
  if (line.starts_with("> ")) return foldAiderNote(s, Text::trim(line.substr(2)));
  if (line == ">") return;
  foldAiderReply(s, line);
}

}  // namespace vobbo
