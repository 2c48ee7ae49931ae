// Turning a hook event into a request. Each agent names things its own way:
// Claude Code and Codex send "tool_name" and "tool_input"; Gemini CLI sends a
// Notification whose "details" stand in for the input and whose "title" names
// the tool ("Confirm Shell Command"); some clients use camelCase keys. The
// summary is the one line the person decides on, so it shows the command, the
// file, or the question itself rather than just the tool's name:
//
//   Bash {"command":"ls -la"}                    -> "ls -la"
//   Read {"file_path":"/a/b.txt"}                -> "Read /a/b.txt"
//   WebFetch {"url":"u"}                         -> "WebFetch: u"
//   apply_patch "*** Update File: src/a.c ..."   -> "Edit a.c"
//   AskUserQuestion {"questions":[...]}          -> "AskUserQuestion: Which colour? (Blue, Red)"
//   a subagent's Bash call                       -> "general-purpose agent: ls -la"

#include "ApproveWire.h"

#include <algorithm>

#include "Files.h"
#include "Text.h"

namespace vobbo {

std::string_view ApproveWire::displayName(Agent agent) {
  switch (agent) {
    case Agent::claude:
      return "Claude Code";
    case Agent::codex:
      return "Codex";
    case Agent::grok:
      return "Grok";
    case Agent::gemini:
      return "Gemini CLI";
  }
  return "";
}

bool ApproveWire::answers(Agent agent) { return agent == Agent::claude || agent == Agent::codex; }

std::string ApproveWire::line(const Request& request) {
  std::string out = toJSON(request).encode(JSONValue::Format::compact, JSONValue::Slashes::escaped);
  out += '\n';
  return out;
}

std::string ApproveWire::line(const Reply& reply) {
  std::string out = toJSON(reply).encode(JSONValue::Format::compact, JSONValue::Slashes::escaped);
  out += '\n';
  return out;
}

std::string ApproveWire::socketPath(std::string_view home, const Platform::Env& env) {
  if (auto path = env("QUIBLY_APPROVE_SOCKET"); path && !path->empty()) return *path;
  return Platform::applicationSupportDirectory(home, env) + "/Vobbo Native/approve.sock";
}

std::optional<std::string> ApproveWire::hookOutput(Decision decision) {
  JSONObject behaviour;
  switch (decision) {
    case Decision::defer:
      return std::nullopt;
    case Decision::allow:
      behaviour.set("behavior", "allow");
      break;
    case Decision::deny:
      behaviour.set("behavior", "deny");
      behaviour.set("message", "Denied from Quibly.");
      break;
  }
  JSONValue answer(
      JSONObject{{"hookSpecificOutput", JSONObject{{"decision", std::move(behaviour)},
                                                   {"hookEventName", "PermissionRequest"}}}});
  return answer.encode(JSONValue::Format::compact, JSONValue::Slashes::unescaped);
}

namespace {

// The first usable value under keys, inside an object input: a non-empty string
// as it is, or an array's string elements joined with spaces.
std::optional<std::string> firstValue(const JSONValue& input,
                                      std::initializer_list<std::string_view> keys) {
  for (auto key : keys) {
    const JSONValue* v = input.get(key);
    if (!v) continue;
    if (const std::string* s = v->string(); s && !s->empty()) return *s;
    if (const JSONValue::Array* a = v->array()) {
      std::string joined;
      bool any = false;
      for (const auto& item : *a) {
        if (!item.string()) continue;
        if (any) joined += ' ';
        joined += *item.string();
        any = true;
      }
      if (any) return joined;
    }
  }
  return std::nullopt;
}

// "Which colour? (Blue, Red)" from AskUserQuestion's first question.
std::optional<std::string> firstQuestion(const JSONValue& input) {
  const JSONValue::Array* questions = input.arrayAt("questions");
  if (!questions || questions->empty()) return std::nullopt;
  auto text = questions->front().nonEmptyStringAt("question");
  if (!text) return std::nullopt;
  std::string out(*text);
  std::string labels;
  if (const JSONValue::Array* options = questions->front().arrayAt("options")) {
    for (const auto& option : *options) {
      auto label = option.nonEmptyStringAt("label");
      if (!label) continue;
      if (!labels.empty()) labels += ", ";
      labels += *label;
    }
  }
  if (!labels.empty()) out += " (" + labels + ")";
  return out;
}

// The first line of a plan with its heading marks dropped.
std::optional<std::string> planHeadline(const JSONValue& input) {
  auto plan = input.nonEmptyStringAt("plan");
  if (!plan) return std::nullopt;
  size_t start = 0;
  while (start < plan->size()) {
    size_t end = plan->find('\n', start);
    if (end == std::string_view::npos) end = plan->size();
    std::string_view line = Text::trim(plan->substr(start, end - start));
    while (!line.empty() && line.front() == '#') line.remove_prefix(1);
    line = Text::trim(line);
    if (!line.empty()) return std::string(line);
    start = end + 1;
  }
  return std::nullopt;
}

std::string cleanSummary(std::string summary) {
  std::replace(summary.begin(), summary.end(), '\n', ' ');
  return Text::cut(Text::trim(summary, " \t"), ApproveWire::kMaxSummary);
}

}  // namespace

std::string ApproveWire::summarize(std::string_view tool, const JSONValue* input) {
  std::string name(tool);
  if (!input) return name;
  if (tool == "apply_patch") {
    if (auto patch = input->stringAt("command")) {
      auto files = CodexPatch::files(*patch);
      if (!files.empty()) {
        std::string out = "Edit ";
        for (size_t i = 0; i < files.size(); ++i) out += (i ? ", " : "") + files[i];
        return out;
      }
    }
  }
  if (auto command = firstValue(*input, {"command", "cmd"})) return *command;
  if (auto path =
          firstValue(*input, {"file_path", "path", "notebook_path", "filePath", "target_file"})) {
    return name + " " + *path;
  }
  if (auto what = firstValue(*input, {"url", "query", "pattern", "description", "prompt"})) {
    return name + ": " + *what;
  }
  // Questions and plans arrive as permission requests too; show what is asked.
  if (auto question = firstQuestion(*input)) return name + ": " + *question;
  if (auto plan = planHeadline(*input)) return name + ": " + *plan;
  return name;
}

std::optional<ApproveWire::Request> ApproveWire::request(std::string_view hookEvent, Agent agent,
                                                         int32_t pid) {
  auto parsed = JSONValue::parse(hookEvent);
  if (!parsed || !parsed->object()) return std::nullopt;
  const JSONValue& event = *parsed;

  if (agent == Agent::gemini) {
    auto type = event.stringAt("notification_type");
    if (type && *type != "ToolPermission") return std::nullopt;
  }

  const JSONValue* input = event.firstOf({"tool_input", "toolInput", "details"});
  std::string tool;
  if (auto name = event.nonEmptyStringAt("tool_name")) {
    tool = *name;
  } else if (auto camel = event.nonEmptyStringAt("toolName")) {
    tool = *camel;
  } else if (agent == Agent::gemini && input && input->object()) {
    if (auto title = input->nonEmptyStringAt("title")) {
      tool = *title;
    } else if (auto inner = input->nonEmptyStringAt("toolName")) {
      tool = *inner;
    }
  }

  std::string summary = tool.empty() ? "" : summarize(tool, input);
  if (summary.empty()) {
    if (auto message = event.nonEmptyStringAt("message")) {
      summary = *message;
    } else if (auto title = event.stringAt("title")) {
      summary = *title;
    }
  }

  // Subagents: "subagentType" from clients that send it, "agent_type" from Claude Code.
  auto subagent = event.nonEmptyStringAt("subagentType");
  if (!subagent) subagent = event.nonEmptyStringAt("agent_type");
  if (subagent) {
    summary = summary.empty() ? std::string(*subagent) + " agent"
                              : std::string(*subagent) + " agent: " + summary;
  }

  Request r;
  r.agent = agent;
  r.kind = answers(agent) ? Kind::approval : Kind::waiting;
  r.tool = std::move(tool);
  r.summary = cleanSummary(std::move(summary));
  if (auto cwd = event.nonEmptyStringAt("cwd")) {
    r.cwd = *cwd;
  } else if (auto root = event.stringAt("workspaceRoot")) {
    r.cwd = *root;
  }
  if (auto session = event.nonEmptyStringAt("session_id")) {
    r.session = *session;
  } else if (auto camel = event.stringAt("sessionId")) {
    r.session = *camel;
  }
  r.pid = pid;
  return r;
}

std::vector<std::string> CodexPatch::files(std::string_view patch) {
  static constexpr std::string_view kPrefixes[] = {
      "*** Update File: ", "*** Add File: ", "*** Delete File: "};
  std::vector<std::string> out;
  size_t start = 0;
  while (start < patch.size()) {
    size_t end = patch.find('\n', start);
    if (end == std::string_view::npos) end = patch.size();
    std::string_view line = patch.substr(start, end - start);
    start = end + 1;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    for (auto prefix : kPrefixes) {
      if (line.substr(0, prefix.size()) != prefix) continue;
      std::string name = Files::lastComponent(line.substr(prefix.size()));
      if (!name.empty() && std::find(out.begin(), out.end(), name) == out.end())
        out.push_back(name);
      break;
    }
  }
  return out;
}

std::optional<std::string> ApproveLineBuffer::feed(std::string_view bytes) {
  buf.append(bytes);
  size_t newline = buf.find('\n');
  if (newline == std::string::npos) return std::nullopt;
  std::string line = buf.substr(0, newline);
  buf.erase(0, newline + 1);
  return line;
}

}  // namespace vobbo
