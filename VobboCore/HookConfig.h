#pragma once
// Where each coding agent keeps the setting that makes it run our approval hook,
// and how that settings file is edited. Everything here is pure: each operation
// takes the file's current bytes (nothing when the file does not exist) and
// gives the bytes to write; HookInstaller does the disk work.
//
// The edits add or take out exactly this program's entry and carry every other
// key through unchanged, at any depth. An entry is this program's when a command
// in its nested "hooks" list mentions "quibly-approve". A file that is not a
// JSON object, or whose "hooks" have a shape we cannot edit without losing
// something, is never rewritten: the operation fails with the one failure this
// type has, "unreadable", as a sentence that names the file and says that
// nothing was changed.
//
// An installed entry, under root["hooks"][event]:
//   {"matcher": "permission_prompt",            (only when the target has one)
//    "hooks": [{"type": "command", "command": "'/path/quibly-approve' grok", "timeout": 120}]}

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ApproveWire.h"
#include "JSONValue.h"
#include "Result.h"

namespace vobbo {

struct HookConfig {
  // One agent's settings file and the entry that belongs in it.
  struct Target {
    ApproveWire::Agent agent = ApproveWire::Agent::claude;
    std::string path;                    // the home folder plus a fixed suffix
    std::string event;                   // the hook event the entry is registered under
    std::optional<std::string> matcher;  // absent: no "matcher" key is written
    bool ownsFile = false;               // the whole file exists only for this hook
    int timeout = 120;                   // in the agent's own unit (Gemini: milliseconds)
    bool operator==(const Target&) const = default;

    static Target claude(std::string_view home);
    static Target codex(std::string_view home);
    static Target grok(std::string_view home);
    static Target gemini(std::string_view home);
    // The four above, in that order.
    static std::vector<Target> all(std::string_view home);
    static Target of(ApproveWire::Agent agent, std::string_view home);
  };

  // The text every command of ours contains; how our entries are recognised.
  static constexpr std::string_view kHelperName = "quibly-approve";

  // The hook command line: the helper's path in single quotes (a quote inside
  // written as '\'') so a shell reads it as one word, a space, the agent's word.
  static std::string command(std::string_view helper, ApproveWire::Agent agent);

  // The settings as a JSON object; no bytes give an empty object. Fails with the
  // unreadable sentence naming `path` when the bytes are not a JSON object.
  static Result<JSONObject> root(std::optional<std::string_view> data, std::string_view path);

  // The settings with exactly one entry of ours under the target's event, after
  // the event's other entries, which keep their order. Fails when the file is
  // unreadable, or when `helper` does not mention "quibly-approve" (such an entry
  // could never be recognised again).
  static Result<std::string> install(std::optional<std::string_view> data, const Target& target,
                                     std::string_view helper);

  // The settings without our entries under the target's event; an event left
  // with no entries loses its key, while "hooks" itself stays. Fails when the
  // file is unreadable.
  static Result<std::string> remove(std::optional<std::string_view> data, const Target& target);

  // Whether an entry of ours is under the target's event; false for a file that
  // is missing or unreadable.
  static bool isInstalled(std::optional<std::string_view> data, const Target& target);
  // The same, but an unreadable file fails with its sentence instead of reading
  // as false.
  static Result<bool> check(std::optional<std::string_view> data, const Target& target);

  // The entries that are not ours, in their order.
  static JSONValue::Array without(const JSONValue::Array& entries);

  // The unreadable failure: names the file, says nothing was changed, then gives
  // `reason` (a whole sentence).
  static Failure unreadable(std::string_view path, std::string_view reason);

  // Pretty JSON, keys sorted, "/" unescaped, ending in a line feed.
  static std::string encode(const JSONObject& root);
};

}  // namespace vobbo
