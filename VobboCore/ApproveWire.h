#pragma once
// What the hook command and the app agree on: who is asking (Agent), the request
// and the reply, their one-line JSON framing, the socket path, how long the hook
// waits, and how each agent's hook event becomes a request. Pure data handling:
// nothing here does input or output.
//
// A message on the wire is one compact JSON object followed by "\n". Encoding a
// Request or Reply and parsing the line back gives an equal record.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "JSONCodec.h"
#include "JSONValue.h"
#include "Platform.h"
#include "RawEnum.h"

namespace vobbo {

struct ApproveWire {
  enum class Agent { claude, codex, grok, gemini };
  // approval: the agent is blocked until the person decides; waiting: a notice
  // that the agent waits for the person, with no answer expected.
  enum class Kind { approval, waiting };
  // defer lets the agent ask in its own way.
  enum class Decision { allow, deny, defer };

  struct Request {
    Agent agent = Agent::claude;
    Kind kind = Kind::approval;
    std::string tool;     // "" when the event names none
    std::string summary;  // at most 400 characters: what the person is shown
    std::string cwd;      // "" when unknown
    std::string session;  // "" when unknown
    int32_t pid = 0;      // the agent's process (the hook's parent)
    bool operator==(const Request&) const = default;
  };

  struct Reply {
    Decision decision = Decision::defer;
    bool operator==(const Reply&) const = default;
  };

  // How long the hook waits for a reply, and so how long the app may take.
  static constexpr int waitSeconds = 110;
  // The longest line either side buffers before giving up on a peer.
  static constexpr size_t kMaxLine = 65536;
  static constexpr size_t kMaxSummary = 400;

  static std::string_view displayName(Agent agent);
  // Whether the agent's hook can carry a decision back (Claude Code and Codex).
  static bool answers(Agent agent);

  // Compact JSON plus "\n".
  static std::string line(const Request& request);
  static std::string line(const Reply& reply);
  // One line without its "\n" back to a record; nothing on any decoding error,
  // an unknown raw word included.
  template <class T>
  static std::optional<T> parse(std::string_view bytes);

  // QUIBLY_APPROVE_SOCKET when set and not empty; otherwise "Vobbo Native/approve.sock"
  // in the per-user application data folder.
  static std::string socketPath(std::string_view home, const Platform::Env& env);

  // The request for an agent's hook event, or nothing when the bytes are not a
  // JSON object or the event is not one to forward.
  static std::optional<Request> request(std::string_view hookEvent, Agent agent, int32_t pid);
  // One line saying what a tool call will do; `input` may be null.
  static std::string summarize(std::string_view tool, const JSONValue* input);
  // The line the agent reads for a decision (without "\n"), or nothing for defer.
  static std::optional<std::string> hookOutput(Decision decision);
};

// File names touched by a Codex patch, by last path component, in order of first
// appearance and without repeats.
struct CodexPatch {
  static std::vector<std::string> files(std::string_view patch);
};

// The receiving side's line splitter: feed() appends bytes and hands back the
// first complete line (without "\n") if one is buffered. It returns at most one
// line per call; call feed({}) again to drain further lines.
class ApproveLineBuffer {
 public:
  std::optional<std::string> feed(std::string_view bytes);
  // More than ApproveWire::kMaxLine bytes are buffered without a line feed: the
  // peer is not speaking the protocol and must be dropped.
  bool overflowing() const { return buf.size() > ApproveWire::kMaxLine; }

  std::string buf;
};

template <>
struct RawValues<ApproveWire::Agent> {
  static constexpr std::pair<ApproveWire::Agent, std::string_view> values[] = {
      {ApproveWire::Agent::claude, "claude"},
      {ApproveWire::Agent::codex, "codex"},
      {ApproveWire::Agent::grok, "grok"},
      {ApproveWire::Agent::gemini, "gemini"}};
};
template <>
struct RawValues<ApproveWire::Kind> {
  static constexpr std::pair<ApproveWire::Kind, std::string_view> values[] = {
      {ApproveWire::Kind::approval, "approval"}, {ApproveWire::Kind::waiting, "waiting"}};
};
template <>
struct RawValues<ApproveWire::Decision> {
  static constexpr std::pair<ApproveWire::Decision, std::string_view> values[] = {
      {ApproveWire::Decision::allow, "allow"},
      {ApproveWire::Decision::deny, "deny"},
      {ApproveWire::Decision::defer, "defer"}};
};

template <>
struct JSONFields<ApproveWire::Request> {
  using R = ApproveWire::Request;
  static constexpr auto list =
      std::tuple{JSONField{"agent", &R::agent}, JSONField{"kind", &R::kind},
                 JSONField{"tool", &R::tool},   JSONField{"summary", &R::summary},
                 JSONField{"cwd", &R::cwd},     JSONField{"session", &R::session},
                 JSONField{"pid", &R::pid}};
};
template <>
struct JSONFields<ApproveWire::Reply> {
  static constexpr auto list = std::tuple{JSONField{"decision", &ApproveWire::Reply::decision}};
};

template <class T>
std::optional<T> ApproveWire::parse(std::string_view bytes) {
  auto json = JSONValue::parse(bytes);
  if (!json) return std::nullopt;
  return fromJSON<T>(*json);
}

}  // namespace vobbo
