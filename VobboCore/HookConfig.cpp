#include "HookConfig.h"

#include <fmt/format.h>

#include <utility>

namespace vobbo {

namespace {

using Agent = ApproveWire::Agent;
using Target = HookConfig::Target;

std::string join(std::string_view home, std::string_view suffix) {
  while (!home.empty() && home.back() == '/') home.remove_suffix(1);
  return std::string(home) + std::string(suffix);
}

std::string_view describe(const JSONValue& value) {
  switch (value.kind()) {
    case JSONValue::Kind::boolean:
      return "true or false";
    case JSONValue::Kind::number:
      return "a number";
    case JSONValue::Kind::string:
      return "text";
    case JSONValue::Kind::array:
      return "a list";
    case JSONValue::Kind::object:
      return "an object";
    case JSONValue::Kind::null:
      return "null";
  }
  return "something else";
}

bool isOurs(const JSONValue& entry) {
  const JSONValue::Array* hooks = entry.arrayAt("hooks");
  if (!hooks) return false;
  for (const JSONValue& hook : *hooks) {
    auto command = hook.stringAt("command");
    if (command && command->find(HookConfig::kHelperName) != std::string_view::npos) return true;
  }
  return false;
}

JSONValue entryFor(const Target& target, std::string_view helper) {
  JSONObject hook{{"type", "command"},
                  {"command", HookConfig::command(helper, target.agent)},
                  {"timeout", target.timeout}};
  JSONObject entry{{"hooks", JSONValue::Array{JSONValue(std::move(hook))}}};
  if (target.matcher) entry.set("matcher", *target.matcher);
  return entry;
}

// The "hooks" object of the settings, created when missing. A null counts as
// missing, since replacing it loses nothing; any other non-object would be lost
// by an edit, so the file is refused instead.
Result<JSONObject*> hooksOf(JSONObject& root, const Target& target) {
  JSONValue& hooks = root["hooks"];
  if (hooks.isNull()) hooks = JSONObject{};
  if (!hooks.object()) {
    return HookConfig::unreadable(
        target.path, fmt::format("Its \"hooks\" key holds {}, not an object.", describe(hooks)));
  }
  return hooks.object();
}

// The event's list of entries, created empty when missing, under the same rule.
Result<JSONValue::Array*> entriesOf(JSONObject& hooks, const Target& target) {
  JSONValue& entries = hooks[target.event];
  if (entries.isNull()) entries = JSONValue::Array{};
  if (!entries.array()) {
    return HookConfig::unreadable(
        target.path, fmt::format("Its \"hooks\" object holds {} under \"{}\", not a list.",
                                 describe(entries), target.event));
  }
  return entries.array();
}

}  // namespace

Target Target::claude(std::string_view home) {
  return {Agent::claude,
          join(home, "/.claude/settings.json"),
          "PermissionRequest",
          std::nullopt,
          false,
          120};
}

Target Target::codex(std::string_view home) {
  return {Agent::codex, join(home, "/.codex/hooks.json"), "PermissionRequest", std::nullopt, false,
          120};
}

Target Target::grok(std::string_view home) {
  return {Agent::grok,    join(home, "/.grok/hooks/quibly.json"),
          "Notification", "permission_prompt",
          true,           120};
}

// Gemini CLI counts hook timeouts in milliseconds, the others in seconds.
Target Target::gemini(std::string_view home) {
  return {Agent::gemini, join(home, "/.gemini/settings.json"), "Notification", std::nullopt, false,
          10000};
}

std::vector<Target> Target::all(std::string_view home) {
  return {claude(home), codex(home), grok(home), gemini(home)};
}

Target Target::of(Agent agent, std::string_view home) {
  switch (agent) {
    case Agent::claude:
      return claude(home);
    case Agent::codex:
      return codex(home);
    case Agent::grok:
      return grok(home);
    case Agent::gemini:
      return gemini(home);
  }
  return claude(home);
}

std::string HookConfig::command(std::string_view helper, Agent agent) {
  std::string out = "'";
  for (char c : helper) {
    if (c == '\'') {
      out += "'\\''";  // close the quote, an escaped quote, open again
    } else {
      out += c;
    }
  }
  out += "' ";
  out += rawValue(agent);
  return out;
}

Result<JSONObject> HookConfig::root(std::optional<std::string_view> data, std::string_view path) {
  if (!data) return JSONObject{};
  auto parsed = JSONValue::parse(*data);
  if (!parsed) return HookConfig::unreadable(path, parsed.error());
  if (!parsed->object()) {
    return HookConfig::unreadable(
        path, fmt::format("Its top level is {}, not an object.", describe(*parsed)));
  }
  return std::move(*parsed->object());
}

Result<std::string> HookConfig::install(std::optional<std::string_view> data, const Target& target,
                                        std::string_view helper) {
  if (helper.find(kHelperName) == std::string_view::npos) {
    return failure(
        fmt::format("The hook command {} does not contain \"{}\", so Quibly could not "
                    "find its entry again to replace or remove it.",
                    helper, kHelperName));
  }
  auto settings = root(data, target.path);
  if (!settings) return settings.failure();
  auto hooks = hooksOf(*settings, target);
  if (!hooks) return hooks.failure();
  auto entries = entriesOf(**hooks, target);
  if (!entries) return entries.failure();

  // Taking out any entry of ours first makes installing twice leave one entry,
  // and lets a moved helper replace the old path.
  JSONValue::Array& list = **entries;
  list = without(list);
  list.push_back(entryFor(target, helper));
  return encode(*settings);
}

Result<std::string> HookConfig::remove(std::optional<std::string_view> data, const Target& target) {
  auto settings = root(data, target.path);
  if (!settings) return settings.failure();
  // Settings without our event are given back as they were: removal never adds
  // an empty "hooks" nor turns a null into an object.
  const JSONValue* hooksValue = settings->find("hooks");
  if (!hooksValue || hooksValue->isNull()) return encode(*settings);
  auto hooks = hooksOf(*settings, target);
  if (!hooks) return hooks.failure();
  const JSONValue* listValue = (*hooks)->find(target.event);
  if (!listValue || listValue->isNull()) return encode(*settings);
  auto entries = entriesOf(**hooks, target);
  if (!entries) return entries.failure();

  JSONValue::Array rest = without(**entries);
  if (rest.empty()) {
    (*hooks)->erase(target.event);
  } else {
    **entries = std::move(rest);
  }
  return encode(*settings);
}

Result<bool> HookConfig::check(std::optional<std::string_view> data, const Target& target) {
  auto settings = root(data, target.path);
  if (!settings) return settings.failure();
  auto hooks = hooksOf(*settings, target);
  if (!hooks) return hooks.failure();
  auto entries = entriesOf(**hooks, target);
  if (!entries) return entries.failure();
  for (const JSONValue& entry : **entries) {
    if (isOurs(entry)) return true;
  }
  return false;
}

bool HookConfig::isInstalled(std::optional<std::string_view> data, const Target& target) {
  auto installed = check(data, target);
  return installed && *installed;
}

JSONValue::Array HookConfig::without(const JSONValue::Array& entries) {
  JSONValue::Array out;
  out.reserve(entries.size());
  for (const JSONValue& entry : entries) {
    if (!isOurs(entry)) out.push_back(entry);
  }
  return out;
}

// Names the file, says nothing was changed and gives the reason, so the person
// can fix the file by hand.
Failure HookConfig::unreadable(std::string_view path, std::string_view reason) {
  return failure(
      fmt::format("{} cannot be read as settings, so Quibly left it unchanged. {}", path, reason));
}

std::string HookConfig::encode(const JSONObject& root) {
  std::string out =
      JSONValue(root).encode(JSONValue::Format::pretty, JSONValue::Slashes::unescaped);
  out += '\n';
  return out;
}

}  // namespace vobbo
