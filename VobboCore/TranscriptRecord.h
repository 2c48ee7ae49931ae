#pragma once
// Turning one transcript line into the record a fold reads. Claude Code lines
// are read selectively: only the fields the Claude fold looks at are copied out,
// and records it ignores (file snapshots, prompts history, modes) are passed over
// after their "type", "timestamp" and "cwd". A transcript's bytes are mostly tool
// output and file snapshots, so this is what keeps folding near the speed of
// parsing alone. Other agents' lines are read whole.
//
// Also here: the few field readers every agent's fold shares. This header is the
// folds' own; callers use Transcript.h.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "JSONValue.h"
#include "Transcript.h"

namespace vobbo::TranscriptRecord {

// The record of a Claude Code line, holding every field the Claude fold reads
// (and nothing it does not), or nothing when the line is not a JSON object.
std::optional<JSONValue> readClaude(std::string_view line);

// The whole record of a line, or nothing when the line is not a JSON object.
std::optional<JSONValue> readObject(std::string_view line);

// A token count read from a JSON number: 0 for anything that is not a positive
// number, and capped at a trillion.
int64_t tokenCount(const JSONValue* value);

// The text at key, copied; nothing when the key is absent or holds another case.
std::optional<std::string> text(const JSONValue& object, std::string_view key);

// The time of the record's `key` field (ISO 8601 text), moving the state's
// lastAt forward to it; nothing when the field is absent or unreadable.
std::optional<double> time(TranscriptState& state, const JSONValue& record, std::string_view key);

}  // namespace vobbo::TranscriptRecord
