#pragma once
// Reading coding agents' transcripts into live session state. Each agent writes
// a transcript of every session, as a rule one JSON object a line (Aider's chat
// history is plain text). The folds here take those records one at a time and
// fold them into one small accumulator per file, TranscriptState: the model, the
// folder, the running tool and its argument, the last words, the question or
// plan waiting for the person, running subagents, tokens, whether the turn ended.
//
// Everything here is pure: the folds never open files and keep nothing between
// calls. The caller owns each TranscriptState and hands it back with the next
// batch of lines (TranscriptIndex is that caller). Folding a file whole or in any
// number of batches of whole lines gives the same state.
//
// Nothing fails loudly: lines that are too short, not JSON, not an object, or
// hold fields of the wrong JSON type are passed over and the state keeps what
// it had. Integer counters add with overflow checking; an overflow aborts.

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "JSONCodec.h"
#include "JSONValue.h"
#include "RawEnum.h"

namespace vobbo {

// Which coding agent wrote a transcript.
enum class AgentKind { claude, codex, gemini, grok, cursor, aider };

// What the last meaningful record was. No record yet is an empty optional.
enum class LineKind { assistantText, assistantTool, toolResult, user, woken, interrupted };

// One entry of the short history shown under a session.
struct LiveTailItem {
  enum class Kind { tool, text, prompt };
  Kind kind = Kind::text;
  std::optional<std::string> name;  // the tool's name, for a tool item
  std::string text;                 // what was said, or the tool's argument
  std::optional<double> at;         // milliseconds since 1970
  bool operator==(const LiveTailItem&) const = default;
};

// One question the agent asks the person, with its answer labels.
struct LiveQuestion {
  std::string text;
  std::optional<std::vector<std::string>> options;
  bool operator==(const LiveQuestion&) const = default;
};

// What waits for the person's answer when the agent's last act was a tool call
// that needs one: questions, a plan offered for approval, or a one-line call.
struct PendingCall {
  std::optional<std::vector<LiveQuestion>> questions;
  std::optional<std::string> plan;
  std::optional<std::string> call;
  bool operator==(const PendingCall&) const = default;
};

// The accumulator, one per transcript file. Texts kept here are bounded: 72
// characters for lastText, 280 for tail items, at most 40 tail items.
struct TranscriptState {
  int64_t offset = 0;  // bytes of the file consumed; moved by the caller only
  int64_t tokens = 0;
  int64_t turns = 0;  // prompts the person typed
  std::optional<std::string> model;
  std::optional<std::string> cwd;  // set once, from the first record that carries one
  double lastAt = 0;               // latest record time, milliseconds since 1970
  std::optional<LineKind> lastKind;
  std::optional<std::string> lastText;
  std::optional<std::string> lastTool;
  std::optional<std::string> lastKey;  // identity of the last meaningful record
  std::optional<double> toolAt;
  std::optional<bool> turnEnded;
  std::optional<double> turnEndedAt;
  std::optional<std::string> permissionMode;
  std::optional<bool> approvalAsked;
  std::optional<bool> partial;  // built from only the tail of the file
  std::optional<bool> align;    // the caller must drop a partial first line
  std::optional<std::vector<LiveTailItem>> recent;
  std::optional<std::string> saidRaw;  // the agent's last full text reply
  std::optional<PendingCall> pendingRaw;
  std::optional<std::string> lastStop;
  std::optional<std::map<std::string, double>> agents;  // id -> start time (0: unknown)
  std::optional<int64_t> rev;                           // conversation records folded
  std::optional<bool> lastError;
  std::optional<std::string> sessionId;
  std::optional<bool> subagent;
  // Gemini CLI writes a row again whole when it changes; these remember the last
  // row and the tokens it added, so a rewrite replaces its count instead of adding.
  std::optional<std::string> rowId;
  std::optional<int64_t> rowTokens;
  bool operator==(const TranscriptState&) const = default;
};

// One entry of an index of transcript files.
struct IndexedTranscript {
  std::string path;
  std::string id;  // the session id
  AgentKind agent = AgentKind::claude;
  double mtimeMs = 0;
  int64_t size = 0;
  std::optional<TranscriptState> state;
  std::string cwd;
  std::optional<std::string> slug;
  bool dirty = false;  // the file changed since the state was folded
  bool operator==(const IndexedTranscript&) const = default;
};

// The light form of an index entry handed to code that pairs processes with sessions.
struct TranscriptRef {
  std::string id;
  std::string path;
  AgentKind agent = AgentKind::claude;
  std::string cwd;
  double mtimeMs = 0;
  std::optional<std::string> slug;
  bool operator==(const TranscriptRef&) const = default;
};

struct Transcript {
  using Record = JSONValue;  // a parsed line: an object
  using Lines = std::span<const std::string_view>;

  // Subagents started longer ago than this count as finished even without a
  // notification: a two-hour task that never reported is almost surely gone.
  static constexpr double agentPatienceMs = 7'200'000;
  static constexpr size_t kMaxRecent = 40;
  static constexpr size_t kLastTextLimit = 72;
  static constexpr size_t kTailTextLimit = 280;
  static constexpr size_t kArgumentLimit = 44;

  // ---- Whole-file folds: a fresh state from a list of lines ----
  static TranscriptState foldClaude(Lines lines);
  static TranscriptState foldCodex(Lines lines);
  static TranscriptState foldGemini(Lines lines);
  static TranscriptState foldGrok(Lines lines);
  static TranscriptState foldCursor(Lines lines);
  static TranscriptState foldAider(std::string_view text);

  // ---- Incremental folds: new whole lines into an existing state ----
  static void foldClaude(Lines lines, TranscriptState& into);
  static void foldCodex(Lines lines, TranscriptState& into);
  static void foldGemini(Lines lines, TranscriptState& into);
  static void foldGrok(Lines lines, TranscriptState& into);
  static void foldCursor(Lines lines, TranscriptState& into);
  static void foldAider(Lines lines, TranscriptState& into);
  // The fold of the given agent, for callers that hold transcripts of many agents.
  static void fold(AgentKind agent, Lines lines, TranscriptState& into);
  // Folds one line of the given agent (the line loop's rules apply).
  static void foldLine(AgentKind agent, std::string_view line, TranscriptState& into);

  // ---- Per-record folds: one parsed record (an object) into the state ----
  // `raw` is the record's line as written; it is read only for key order.
  static void foldClaudeRow(TranscriptState& into, const Record& record, std::string_view raw);
  static void foldCodexRow(TranscriptState& into, const Record& record);
  static void foldGeminiRow(TranscriptState& into, const Record& record);
  static void foldGrokRow(TranscriptState& into, const Record& record);
  static void foldCursorRow(TranscriptState& into, const Record& record);
  static void foldAiderLine(TranscriptState& into, std::string_view line);

  // ---- What the state says ----
  // How many subagents still count as running at `nowMs`.
  static int64_t runningAgents(const TranscriptState& state, double nowMs);
  // The pending call when the agent's last act was a tool call still unanswered.
  static std::optional<PendingCall> pendingOf(const TranscriptState& state);

  // ---- Tool calls ----
  // The questions of an AskUserQuestion input, or nothing when it holds none.
  static std::optional<std::vector<LiveQuestion>> questionsOf(const JSONValue& input);
  // What a call of tool `name` with `input` waits for.
  static PendingCall pendingSource(std::string_view name, const JSONValue& input);
  // The call's argument as one line of at most 44 characters. `raw` is the line
  // the call was read from (or its arguments text); it gives the input's key order.
  static std::string toolArgument(std::string_view name, const JSONValue& input,
                                  std::string_view raw);
  // Ids of background tasks that a task notification reports as no longer running.
  static std::vector<std::string> stoppedTasks(std::string_view text);

  // ---- Small readers ----
  // The text of a message content: a string, or its "text" blocks joined by newlines.
  static std::string textOf(const JSONValue& content);
  // Every text in the content, nested tool results included, joined by newlines.
  static std::string allText(const JSONValue& content);
  // The last block of a content list whose "type" is `type`, or nullptr.
  static const JSONValue* hasBlock(const JSONValue& content, std::string_view type);
  // The record's identity: its "uuid", else kind + "@" + its timestamp as text.
  static std::string lineKey(const Record& record, std::string_view kind);
  // A JSON value as text: strings as they are, booleans, numbers as written.
  static std::optional<std::string> stampString(const JSONValue& value);
  // "Opus", "Sonnet" or "Haiku" when the model id names one; else the id.
  static std::string shortModel(std::string_view id);
  // A command given as text or as a list of words, as one text.
  static std::optional<std::string> commandString(const JSONValue& value);
  struct CodexCall {
    std::string tool;   // the label shown: "Shell", "Edit" or the tool's own name
    std::string text;   // the call on one line, at most 44 characters
    std::string whole;  // the call uncut
  };
  // The tool call a Codex response item makes, or nothing when it makes none.
  static std::optional<CodexCall> codexCall(const JSONValue& payload);
  static bool isTruthy(const JSONValue* value);
  // The keys of `input` in the order they stand in the raw line: after its
  // quoted key "input" and colon, or from the start when the line has none.
  static std::vector<std::string> keyOrder(std::string_view raw, const JSONValue& input);
  // Appends to `recent`, keeping only the newest 40 items.
  static void remember(TranscriptState& state, LiveTailItem item);
  static void agentStarted(TranscriptState& state, std::string_view id, double atMs);
  static void agentsStopped(TranscriptState& state, std::string_view text);
};

// Adds to a counter, aborting on overflow: a wrapped count would be a silent lie.
void addChecked(int64_t& counter, int64_t amount);

template <>
struct RawValues<AgentKind> {
  static constexpr std::pair<AgentKind, std::string_view> values[] = {
      {AgentKind::claude, "claude"}, {AgentKind::codex, "codex"},   {AgentKind::gemini, "gemini"},
      {AgentKind::grok, "grok"},     {AgentKind::cursor, "cursor"}, {AgentKind::aider, "aider"}};
};

template <>
struct RawValues<LineKind> {
  static constexpr std::pair<LineKind, std::string_view> values[] = {
      {LineKind::assistantText, "assistantText"},
      {LineKind::assistantTool, "assistantTool"},
      {LineKind::toolResult, "toolResult"},
      {LineKind::user, "user"},
      {LineKind::woken, "woken"},
      {LineKind::interrupted, "interrupted"}};
};

template <>
struct RawValues<LiveTailItem::Kind> {
  static constexpr std::pair<LiveTailItem::Kind, std::string_view> values[] = {
      {LiveTailItem::Kind::tool, "tool"},
      {LiveTailItem::Kind::text, "text"},
      {LiveTailItem::Kind::prompt, "prompt"}};
};

template <>
struct JSONFields<LiveTailItem> {
  static constexpr auto list =
      std::tuple{JSONField{"kind", &LiveTailItem::kind}, JSONField{"name", &LiveTailItem::name},
                 JSONField{"text", &LiveTailItem::text}, JSONField{"at", &LiveTailItem::at}};
};

template <>
struct JSONFields<LiveQuestion> {
  static constexpr auto list = std::tuple{JSONField{"text", &LiveQuestion::text},
                                          JSONField{"options", &LiveQuestion::options}};
};

template <>
struct JSONFields<PendingCall> {
  static constexpr auto list =
      std::tuple{JSONField{"questions", &PendingCall::questions},
                 JSONField{"plan", &PendingCall::plan}, JSONField{"call", &PendingCall::call}};
};

template <>
struct JSONFields<TranscriptState> {
  using S = TranscriptState;
  static constexpr auto list = std::tuple{JSONField{"offset", &S::offset},
                                          JSONField{"tokens", &S::tokens},
                                          JSONField{"turns", &S::turns},
                                          JSONField{"model", &S::model},
                                          JSONField{"cwd", &S::cwd},
                                          JSONField{"lastAt", &S::lastAt},
                                          JSONField{"lastKind", &S::lastKind},
                                          JSONField{"lastText", &S::lastText},
                                          JSONField{"lastTool", &S::lastTool},
                                          JSONField{"lastKey", &S::lastKey},
                                          JSONField{"toolAt", &S::toolAt},
                                          JSONField{"turnEnded", &S::turnEnded},
                                          JSONField{"turnEndedAt", &S::turnEndedAt},
                                          JSONField{"permissionMode", &S::permissionMode},
                                          JSONField{"approvalAsked", &S::approvalAsked},
                                          JSONField{"partial", &S::partial},
                                          JSONField{"align", &S::align},
                                          JSONField{"recent", &S::recent},
                                          JSONField{"saidRaw", &S::saidRaw},
                                          JSONField{"pendingRaw", &S::pendingRaw},
                                          JSONField{"lastStop", &S::lastStop},
                                          JSONField{"agents", &S::agents},
                                          JSONField{"rev", &S::rev},
                                          JSONField{"lastError", &S::lastError},
                                          JSONField{"sessionId", &S::sessionId},
                                          JSONField{"subagent", &S::subagent},
                                          JSONField{"rowId", &S::rowId},
                                          JSONField{"rowTokens", &S::rowTokens}};
};

template <>
struct JSONFields<IndexedTranscript> {
  using I = IndexedTranscript;
  static constexpr auto list =
      std::tuple{JSONField{"path", &I::path},   JSONField{"id", &I::id},
                 JSONField{"agent", &I::agent}, JSONField{"mtimeMs", &I::mtimeMs},
                 JSONField{"size", &I::size},   JSONField{"state", &I::state},
                 JSONField{"cwd", &I::cwd},     JSONField{"slug", &I::slug},
                 JSONField{"dirty", &I::dirty}};
};

template <>
struct JSONFields<TranscriptRef> {
  using R = TranscriptRef;
  static constexpr auto list = std::tuple{
      JSONField{"id", &R::id},   JSONField{"path", &R::path},       JSONField{"agent", &R::agent},
      JSONField{"cwd", &R::cwd}, JSONField{"mtimeMs", &R::mtimeMs}, JSONField{"slug", &R::slug}};
};

}  // namespace vobbo
