// A Claude Code line is parsed by simdjson into its tape, and the record is
// built from the tape by walking the top-level fields once. Each field is either
// copied whole (small scalars and the few small objects the fold reads), copied
// in part through a projection (the message, its content blocks, the tool-use
// result, attachments), or skipped, which costs nothing: the tape already knows
// where each value ends. Records of a type the fold ignores keep only "type",
// "timestamp" and "cwd".
//
// One subtlety: a tool result's nested content is read only for task
// notifications (a waking record hands all its text to the subagent tracker), so
// that content is copied only when its raw text mentions one. Everything else in
// a tool result, which is where most of a transcript's bytes are, is skipped.

#include "TranscriptRecord.h"

#include <simdjson.h>

#include <algorithm>
#include <string>
#include <vector>

namespace vobbo::TranscriptRecord {

namespace {

namespace dom = simdjson::dom;

constexpr std::string_view kTaskNotification = "<task-notification>";
// A parser grown for a very large line gives its memory back afterwards.
constexpr size_t kKeepParserCapacity = 8u << 20;

JSONValue convert(dom::element e) {
  switch (e.type()) {
    case dom::element_type::ARRAY: {
      dom::array a = e.get_array().value_unsafe();
      JSONValue::Array out;
      out.reserve(a.size());
      for (dom::element child : a) out.push_back(convert(child));
      return JSONValue(std::move(out));
    }
    case dom::element_type::OBJECT: {
      dom::object o = e.get_object().value_unsafe();
      std::vector<JSONObject::Entry> entries;
      entries.reserve(o.size());
      for (dom::key_value_pair kv : o) entries.emplace_back(std::string(kv.key), convert(kv.value));
      return JSONValue(JSONObject::fromUnsorted(std::move(entries)));
    }
    case dom::element_type::INT64:
      return JSONValue(static_cast<double>(e.get_int64().value_unsafe()));
    case dom::element_type::UINT64:
      return JSONValue(static_cast<double>(e.get_uint64().value_unsafe()));
    case dom::element_type::DOUBLE:
      return JSONValue(e.get_double().value_unsafe());
    case dom::element_type::STRING:
      return JSONValue(e.get_string().value_unsafe());
    case dom::element_type::BOOL:
      return JSONValue(e.get_bool().value_unsafe());
    case dom::element_type::NULL_VALUE:
      return JSONValue();
  }
  return JSONValue();
}

// How much of a field to copy.
enum class Take { whole, skip, message, content, usage, toolUseResult, attachment, nested };

JSONValue project(dom::element e, Take take);

// Copies the members `pick` keeps; a value that is not an object is copied whole,
// since the fold treats a wrong JSON case as absent anyway.
template <class Pick>
JSONValue projectObject(dom::element e, Pick pick) {
  dom::object object;
  if (e.get_object().get(object)) return convert(e);
  std::vector<JSONObject::Entry> entries;
  for (dom::key_value_pair kv : object) {
    Take take = pick(kv.key);
    if (take != Take::skip) entries.emplace_back(std::string(kv.key), project(kv.value, take));
  }
  return JSONValue(JSONObject::fromUnsorted(std::move(entries)));
}

Take pickMessage(std::string_view key) {
  if (key == "content") return Take::content;
  if (key == "usage") return Take::usage;
  if (key == "model" || key == "stop_reason" || key == "role") return Take::whole;
  return Take::skip;
}

Take pickBlock(std::string_view key) {
  if (key == "content") return Take::nested;
  if (key == "type" || key == "text" || key == "id" || key == "name" || key == "input") {
    return Take::whole;
  }
  return Take::skip;
}

// Whether any text inside mentions a task notification.
bool mentionsTask(dom::element e, int depth) {
  if (depth > JSONValue::kMaxDepth) return false;
  std::string_view s;
  if (!e.get_string().get(s)) return s.find(kTaskNotification) != std::string_view::npos;
  dom::array a;
  if (!e.get_array().get(a)) {
    for (dom::element child : a) {
      if (mentionsTask(child, depth + 1)) return true;
    }
    return false;
  }
  dom::object o;
  if (!e.get_object().get(o)) {
    for (dom::key_value_pair kv : o) {
      if (mentionsTask(kv.value, depth + 1)) return true;
    }
  }
  return false;
}

JSONValue project(dom::element e, Take take) {
  switch (take) {
    case Take::whole:
      return convert(e);
    case Take::message:
      return projectObject(e, pickMessage);
    case Take::content: {
      dom::array blocks;
      if (e.get_array().get(blocks)) return convert(e);
      JSONValue::Array out;
      out.reserve(blocks.size());
      for (dom::element block : blocks) out.push_back(projectObject(block, pickBlock));
      return JSONValue(std::move(out));
    }
    case Take::nested:
      // A tool result's own output: only a task notification in it matters.
      return mentionsTask(e, 0) ? convert(e) : JSONValue(JSONValue::Array{});
    case Take::usage:
      return projectObject(e, [](std::string_view key) {
        return key == "input_tokens" || key == "output_tokens" ? Take::whole : Take::skip;
      });
    case Take::toolUseResult:
      return projectObject(e, [](std::string_view key) {
        return key == "status" || key == "agentId" || key == "resumedAgentId" ? Take::whole
                                                                              : Take::skip;
      });
    case Take::attachment:
      return projectObject(e, [](std::string_view key) {
        return key == "type" || key == "prompt" ? Take::whole : Take::skip;
      });
    case Take::skip:
      break;
  }
  return JSONValue();
}

// Record types whose bodies the Claude fold reads.
bool foldedType(std::string_view type) {
  constexpr std::string_view kTypes[] = {"user",       "assistant",       "system",
                                         "attachment", "queue-operation", "permission-mode",
                                         "task_status"};
  return std::find(std::begin(kTypes), std::end(kTypes), type) != std::end(kTypes);
}

Take pickClaudeRoot(std::string_view key) {
  constexpr std::string_view kWhole[] = {
      "type",   "cwd",       "timestamp", "uuid",        "permissionMode",   "subtype",
      "origin", "operation", "content",   "isMeta",      "isCompactSummary", "taskType",
      "status", "taskId",    "sessionId", "isSidechain", "isApiErrorMessage"};
  if (key == "message") return Take::message;
  if (key == "toolUseResult") return Take::toolUseResult;
  if (key == "attachment") return Take::attachment;
  if (std::find(std::begin(kWhole), std::end(kWhole), key) != std::end(kWhole)) return Take::whole;
  return Take::skip;
}

Take pickIgnoredRoot(std::string_view key) {
  return key == "type" || key == "timestamp" || key == "cwd" ? Take::whole : Take::skip;
}

// The parser, set up as JSONValue::parse sets up its own so both refuse the same
// lines (too deep, not UTF-8).
dom::parser& threadParser() {
  thread_local dom::parser parser;
  if (parser.max_depth() != static_cast<size_t>(JSONValue::kMaxDepth)) {
    // Failing to allocate here shows up as a parse error on the next line.
    [[maybe_unused]] simdjson::error_code error = parser.allocate(4096, JSONValue::kMaxDepth);
  }
  return parser;
}

}  // namespace

std::optional<JSONValue> readClaude(std::string_view line) {
  dom::parser& parser = threadParser();
  dom::element root;
  if (parser.parse(line.data(), line.size(), true).get(root)) return std::nullopt;
  dom::object object;
  if (root.get_object().get(object)) return std::nullopt;
  // "type" first: it decides how much of the record to read.
  std::string_view type;
  bool folded = !object["type"].get_string().get(type) && foldedType(type);
  std::vector<JSONObject::Entry> entries;
  for (dom::key_value_pair kv : object) {
    Take take = folded ? pickClaudeRoot(kv.key) : pickIgnoredRoot(kv.key);
    if (take != Take::skip) entries.emplace_back(std::string(kv.key), project(kv.value, take));
  }
  if (parser.capacity() > kKeepParserCapacity) {
    [[maybe_unused]] simdjson::error_code error = parser.allocate(4096, JSONValue::kMaxDepth);
  }
  return JSONValue(JSONObject::fromUnsorted(std::move(entries)));
}

std::optional<JSONValue> readObject(std::string_view line) {
  auto parsed = JSONValue::parse(line);
  if (!parsed || !parsed->object()) return std::nullopt;
  return std::move(*parsed);
}

}  // namespace vobbo::TranscriptRecord
