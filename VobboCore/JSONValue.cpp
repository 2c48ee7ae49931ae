// Parsing: simdjson builds its tape, and one recursive walk turns the tape into
// our tree. Object members are collected in document order and sorted once per
// object, which is far cheaper than inserting into a map member by member.
//
// Encoding is hand-written because it is small and has to be exact: sorted keys,
// optional "\/" escaping, integral doubles without a fraction, and the shortest
// round-trip text for every other number (std::to_chars).

#include "JSONValue.h"

#include <simdjson.h>

#include <algorithm>
#include <charconv>
#include <cmath>

#include "Text.h"

namespace vobbo {

// ---- JSONObject ---------------------------------------------------------

JSONObject::JSONObject(std::initializer_list<Entry> entries)
    : JSONObject(fromUnsorted(std::vector<Entry>(entries))) {}

JSONObject JSONObject::fromUnsorted(std::vector<Entry> entries) {
  auto byKey = [](const Entry& a, const Entry& b) { return a.first < b.first; };
  if (!std::is_sorted(entries.begin(), entries.end(), byKey)) {
    // Objects are small: a stable insertion sort needs no scratch buffer.
    if (entries.size() <= 32) {
      for (size_t i = 1; i < entries.size(); ++i) {
        for (size_t j = i; j > 0 && byKey(entries[j], entries[j - 1]); --j)
          std::swap(entries[j], entries[j - 1]);
      }
    } else {
      std::stable_sort(entries.begin(), entries.end(), byKey);
    }
  }
  // For a repeated key keep the last entry, as a later member overrides an earlier one.
  size_t kept = 0;
  for (size_t i = 0; i < entries.size(); ++i) {
    if (kept > 0 && entries[kept - 1].first == entries[i].first) {
      entries[kept - 1].second = std::move(entries[i].second);
    } else if (kept != i) {
      entries[kept++] = std::move(entries[i]);
    } else {
      ++kept;
    }
  }
  entries.resize(kept);
  JSONObject o;
  o.entries_ = std::move(entries);
  return o;
}

JSONObject JSONObject::fromSortedUnique(std::vector<Entry> entries) {
  JSONObject o;
  o.entries_ = std::move(entries);
  return o;
}

std::vector<JSONObject::Entry>::const_iterator JSONObject::lowerBound(std::string_view key) const {
  return std::lower_bound(entries_.begin(), entries_.end(), key,
                          [](const Entry& e, std::string_view k) { return e.first < k; });
}

const JSONValue* JSONObject::find(std::string_view key) const {
  auto it = lowerBound(key);
  return it != entries_.end() && it->first == key ? &it->second : nullptr;
}

JSONValue* JSONObject::find(std::string_view key) {
  return const_cast<JSONValue*>(std::as_const(*this).find(key));
}

JSONValue& JSONObject::operator[](std::string_view key) {
  auto at = entries_.begin() + (lowerBound(key) - entries_.cbegin());
  if (at != entries_.end() && at->first == key) return at->second;
  return entries_.insert(at, Entry(std::string(key), JSONValue()))->second;
}

void JSONObject::set(std::string_view key, JSONValue value) { (*this)[key] = std::move(value); }

bool JSONObject::erase(std::string_view key) {
  auto it = lowerBound(key);
  if (it == entries_.end() || it->first != key) return false;
  entries_.erase(it);
  return true;
}

// ---- Readers ------------------------------------------------------------

const JSONValue* JSONValue::get(std::string_view key) const {
  const Object* o = object();
  return o ? o->find(key) : nullptr;
}

std::optional<std::string_view> JSONValue::stringAt(std::string_view key) const {
  const JSONValue* v = get(key);
  if (!v || !v->string()) return std::nullopt;
  return std::string_view(*v->string());
}

std::optional<std::string_view> JSONValue::nonEmptyStringAt(std::string_view key) const {
  auto s = stringAt(key);
  if (!s || s->empty()) return std::nullopt;
  return s;
}

std::optional<double> JSONValue::numberAt(std::string_view key) const {
  const JSONValue* v = get(key);
  if (!v || !v->number()) return std::nullopt;
  return *v->number();
}

std::optional<bool> JSONValue::boolAt(std::string_view key) const {
  const JSONValue* v = get(key);
  if (!v || !v->boolean()) return std::nullopt;
  return *v->boolean();
}

const JSONValue::Object* JSONValue::objectAt(std::string_view key) const {
  const JSONValue* v = get(key);
  return v ? v->object() : nullptr;
}

const JSONValue::Array* JSONValue::arrayAt(std::string_view key) const {
  const JSONValue* v = get(key);
  return v ? v->array() : nullptr;
}

const JSONValue* JSONValue::firstOf(std::initializer_list<std::string_view> keys) const {
  for (auto key : keys) {
    if (const JSONValue* v = get(key)) return v;
  }
  return nullptr;
}

// ---- Parsing ------------------------------------------------------------

namespace {

// Members of the objects being built, as a stack shared by the recursion: an
// object's members are sorted here as small plain records, and only then are
// keys and values built, once each, in their final order.
struct Member {
  std::string_view key;
  simdjson::dom::element value;
};
thread_local std::vector<Member> tMembers;

JSONValue fromElement(simdjson::dom::element e);

JSONValue fromObject(simdjson::dom::object o) {
  const size_t base = tMembers.size();
  for (simdjson::dom::key_value_pair kv : o) tMembers.push_back({kv.key, kv.value});
  auto first = tMembers.begin() + static_cast<std::ptrdiff_t>(base);
  auto byKey = [](const Member& a, const Member& b) { return a.key < b.key; };
  if (!std::is_sorted(first, tMembers.end(), byKey)) std::stable_sort(first, tMembers.end(), byKey);
  const size_t end = tMembers.size();
  std::vector<JSONObject::Entry> entries;
  entries.reserve(end - base);
  for (size_t i = base; i < end; ++i) {
    // For a repeated key the last member wins, as it overrides the earlier ones.
    if (i + 1 < end && tMembers[i + 1].key == tMembers[i].key) continue;
    Member m = tMembers[i];  // copied: the recursion may grow the stack
    entries.emplace_back(std::string(m.key), fromElement(m.value));
  }
  tMembers.resize(base);
  return JSONValue(JSONObject::fromSortedUnique(std::move(entries)));
}

JSONValue fromElement(simdjson::dom::element e) {
  using simdjson::dom::element_type;
  switch (e.type()) {
    case element_type::ARRAY: {
      simdjson::dom::array a = e.get_array().value_unsafe();
      JSONValue::Array out;
      out.reserve(a.size());
      for (simdjson::dom::element child : a) out.push_back(fromElement(child));
      return JSONValue(std::move(out));
    }
    case element_type::OBJECT:
      return fromObject(e.get_object().value_unsafe());
    case element_type::INT64:
      return JSONValue(static_cast<double>(e.get_int64().value_unsafe()));
    case element_type::UINT64:
      return JSONValue(static_cast<double>(e.get_uint64().value_unsafe()));
    case element_type::DOUBLE:
      return JSONValue(e.get_double().value_unsafe());
    case element_type::STRING:
      return JSONValue(std::string(e.get_string().value_unsafe()));
    case element_type::BOOL:
      return JSONValue(e.get_bool().value_unsafe());
    case element_type::NULL_VALUE:
      return JSONValue();
  }
  return JSONValue();
}

std::string parseFailure(simdjson::error_code code) {
  switch (code) {
    case simdjson::EMPTY:
      return "The text is empty, so it is not JSON.";
    case simdjson::UTF8_ERROR:
      return "The text is not valid UTF-8, so it is not JSON.";
    case simdjson::DEPTH_ERROR:
      return "The JSON nests more than 512 levels deep.";
    case simdjson::CAPACITY:
      return "The text is too large to read as JSON.";
    case simdjson::MEMALLOC:
      return "There was not enough memory to read the JSON.";
    case simdjson::T_ATOM_ERROR:
    case simdjson::F_ATOM_ERROR:
    case simdjson::N_ATOM_ERROR:
      return "The text is not valid JSON: it holds a word other than true, false or null "
             "outside quotes.";
    case simdjson::NUMBER_ERROR:
    case simdjson::NUMBER_OUT_OF_RANGE:
      return "The text is not valid JSON: it holds a number that is malformed or too large.";
    case simdjson::STRING_ERROR:
    case simdjson::UNCLOSED_STRING:
    case simdjson::UNESCAPED_CHARS:
      return "The text is not valid JSON: a string in it is not closed, has a bad escape, or "
             "holds a raw control character.";
    default:
      return "The text is not valid JSON: a bracket, brace, comma or colon is missing or out "
             "of place, or something follows the end.";
  }
}

// One parser per thread: its buffers are reused between calls, which matters
// for the many small documents of a transcript. A parser that grew for a very
// large document is given back so a thread does not keep the memory.
constexpr size_t kKeepParserCapacity = 16u << 20;

}  // namespace

Result<JSONValue> JSONValue::parse(std::string_view text) {
  thread_local simdjson::dom::parser parser;
  if (parser.max_depth() != static_cast<size_t>(kMaxDepth)) {
    if (parser.allocate(4096, kMaxDepth) != simdjson::SUCCESS) {
      return failure(parseFailure(simdjson::MEMALLOC));
    }
  }
  // A byte-order mark is not JSON, but editors on some systems write one.
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
  simdjson::dom::element root;
  auto error = parser.parse(text.data(), text.size(), true).get(root);
  if (error) return failure(parseFailure(error));
  JSONValue value = fromElement(root);
  if (parser.capacity() > kKeepParserCapacity) {
    if (parser.allocate(4096, kMaxDepth) != simdjson::SUCCESS) {
      // Keeping the large buffers is harmless; the next parse reuses them.
    }
  }
  return value;
}

// ---- Encoding -----------------------------------------------------------

namespace {

void encodeNumber(std::string& out, double d) {
  if (!std::isfinite(d)) {
    out += "null";
    return;
  }
  char buf[64];
  std::to_chars_result r;
  // Doubles up to 2^53 hold every integer exactly; print those as integers.
  if (d == std::trunc(d) && std::fabs(d) < 9007199254740992.0) {
    if (d == 0 && std::signbit(d)) {
      out += "-0";
      return;
    }
    r = std::to_chars(buf, buf + sizeof buf, static_cast<int64_t>(d));
  } else if (std::fabs(d) >= 9007199254740992.0) {
    // Large whole numbers in plain digits would read back as integers too big
    // for the parser; the exponent form reads back as the same double.
    r = std::to_chars(buf, buf + sizeof buf, d, std::chars_format::scientific);
  } else {
    r = std::to_chars(buf, buf + sizeof buf, d);
  }
  out.append(buf, r.ptr);
}

void encodeString(std::string& out, std::string_view s, JSONValue::Slashes slashes) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string repaired;
  if (!Text::isValidUTF8(s)) {
    repaired = Text::sanitizeUTF8(s);
    s = repaired;
  }
  out += '"';
  size_t runStart = 0;
  for (size_t i = 0; i < s.size(); ++i) {
    auto c = static_cast<unsigned char>(s[i]);
    const char* escape = nullptr;
    char unicode[7];
    switch (c) {
      case '"':
        escape = "\\\"";
        break;
      case '\\':
        escape = "\\\\";
        break;
      case '\b':
        escape = "\\b";
        break;
      case '\f':
        escape = "\\f";
        break;
      case '\n':
        escape = "\\n";
        break;
      case '\r':
        escape = "\\r";
        break;
      case '\t':
        escape = "\\t";
        break;
      case '/':
        if (slashes == JSONValue::Slashes::escaped) escape = "\\/";
        break;
      default:
        if (c < 0x20) {
          unicode[0] = '\\', unicode[1] = 'u', unicode[2] = '0', unicode[3] = '0';
          unicode[4] = kHex[c >> 4], unicode[5] = kHex[c & 15], unicode[6] = 0;
          escape = unicode;
        }
    }
    if (escape) {
      out.append(s.data() + runStart, i - runStart);
      out += escape;
      runStart = i + 1;
    }
  }
  out.append(s.data() + runStart, s.size() - runStart);
  out += '"';
}

struct Encoder {
  std::string& out;
  JSONValue::Format format;
  JSONValue::Slashes slashes;

  void newline(int depth) {
    if (format != JSONValue::Format::pretty) return;
    out += '\n';
    out.append(static_cast<size_t>(depth) * 2, ' ');
  }

  void value(const JSONValue& v, int depth) {
    switch (v.kind()) {
      case JSONValue::Kind::boolean:
        out += *v.boolean() ? "true" : "false";
        break;
      case JSONValue::Kind::number:
        encodeNumber(out, *v.number());
        break;
      case JSONValue::Kind::string:
        encodeString(out, *v.string(), slashes);
        break;
      case JSONValue::Kind::null:
        out += "null";
        break;
      case JSONValue::Kind::array:
        array(*v.array(), depth);
        break;
      case JSONValue::Kind::object:
        object(*v.object(), depth);
        break;
    }
  }

  void array(const JSONValue::Array& a, int depth) {
    out += '[';
    bool first = true;
    for (const auto& item : a) {
      if (!first) out += ',';
      first = false;
      newline(depth + 1);
      value(item, depth + 1);
    }
    if (!a.empty()) newline(depth);
    out += ']';
  }

  void object(const JSONObject& o, int depth) {
    out += '{';
    bool first = true;
    for (const auto& [key, item] : o) {
      if (!first) out += ',';
      first = false;
      newline(depth + 1);
      encodeString(out, key, slashes);
      out += format == JSONValue::Format::pretty ? ": " : ":";
      value(item, depth + 1);
    }
    if (!o.empty()) newline(depth);
    out += '}';
  }
};

}  // namespace

void JSONValue::encodeTo(std::string& out, Format format, Slashes slashes) const {
  Encoder{out, format, slashes}.value(*this, 0);
}

std::string JSONValue::encode(Format format, Slashes slashes) const {
  std::string out;
  encodeTo(out, format, slashes);
  return out;
}

}  // namespace vobbo
