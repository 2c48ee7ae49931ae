#pragma once
// The generic JSON tree used wherever the app reads or writes JSON it does not
// own a schema for: agents' hook events and settings files, the store document,
// tool inputs. Cases, in order: bool, number (always a double), string, array,
// object, null. Objects keep their keys sorted and unique, so encoding is stable
// and equal trees encode to equal bytes.
//
// Parsing goes through simdjson; every failure is a sentence, never an exception.
// Text that is not UTF-8, or nests deeper than kMaxDepth, is refused.

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "Result.h"

namespace vobbo {

class JSONValue;

// A JSON object: entries sorted by key, one entry per key. A flat sorted vector
// is cheaper to build from parsed text than a node-based map and just as quick
// to search for the small objects JSON usually holds.
class JSONObject {
 public:
  using Entry = std::pair<std::string, JSONValue>;
  using const_iterator = std::vector<Entry>::const_iterator;
  using iterator = std::vector<Entry>::iterator;

  JSONObject() = default;
  JSONObject(std::initializer_list<Entry> entries);

  size_t size() const;
  bool empty() const;
  const_iterator begin() const;
  const_iterator end() const;
  iterator begin();
  iterator end();

  // The value at key, or nullptr.
  const JSONValue* find(std::string_view key) const;
  JSONValue* find(std::string_view key);
  bool contains(std::string_view key) const;
  // The value at key, inserting null first when the key is new.
  JSONValue& operator[](std::string_view key);
  void set(std::string_view key, JSONValue value);
  // Returns whether the key was there.
  bool erase(std::string_view key);

  bool operator==(const JSONObject& other) const;

  // Builds from entries in any order; for a repeated key the last one wins.
  static JSONObject fromUnsorted(std::vector<Entry> entries);
  // Adopts entries already sorted by key with no key repeated.
  static JSONObject fromSortedUnique(std::vector<Entry> entries);

 private:
  std::vector<Entry>::const_iterator lowerBound(std::string_view key) const;
  std::vector<Entry> entries_;
};

class JSONValue {
 public:
  using Array = std::vector<JSONValue>;
  using Object = JSONObject;
  enum class Kind { boolean, number, string, array, object, null };
  enum class Format { compact, pretty };
  enum class Slashes { escaped, unescaped };
  static constexpr int kMaxDepth = 512;

  JSONValue() : v_(nullptr) {}
  JSONValue(std::nullptr_t) : v_(nullptr) {}
  JSONValue(bool b) : v_(b) {}
  template <class N, std::enable_if_t<std::is_arithmetic_v<N> && !std::is_same_v<N, bool> &&
                                          !std::is_same_v<N, char>,
                                      int> = 0>
  JSONValue(N n) : v_(static_cast<double>(n)) {}
  JSONValue(const char* s) : v_(std::string(s)) {}
  JSONValue(std::string s) : v_(std::move(s)) {}
  JSONValue(std::string_view s) : v_(std::string(s)) {}
  JSONValue(Array a) : v_(std::move(a)) {}
  JSONValue(Object o) : v_(std::move(o)) {}

  Kind kind() const { return static_cast<Kind>(v_.index()); }
  bool isNull() const { return kind() == Kind::null; }

  // Typed views: the value when it is of that case, else nullptr.
  const bool* boolean() const { return std::get_if<bool>(&v_); }
  const double* number() const { return std::get_if<double>(&v_); }
  const std::string* string() const { return std::get_if<std::string>(&v_); }
  const Array* array() const { return std::get_if<Array>(&v_); }
  const Object* object() const { return std::get_if<Object>(&v_); }
  Array* array() { return std::get_if<Array>(&v_); }
  Object* object() { return std::get_if<Object>(&v_); }

  // Small readers over an object; each yields nothing when this is not an object
  // or the key is missing or holds another case.
  const JSONValue* get(std::string_view key) const;
  std::optional<std::string_view> stringAt(std::string_view key) const;
  // A string at key that is not empty: the one test hook events are read with.
  std::optional<std::string_view> nonEmptyStringAt(std::string_view key) const;
  std::optional<double> numberAt(std::string_view key) const;
  std::optional<bool> boolAt(std::string_view key) const;
  const Object* objectAt(std::string_view key) const;
  const Array* arrayAt(std::string_view key) const;
  // The value at the first of keys that exists, whatever its case.
  const JSONValue* firstOf(std::initializer_list<std::string_view> keys) const;

  // Parses JSON text. Fails with a sentence on bad syntax, text that is not
  // UTF-8, nesting deeper than kMaxDepth, or trailing content.
  static Result<JSONValue> parse(std::string_view text);

  // Encodes with keys sorted. Integral numbers print without a fraction (120),
  // others in the shortest form that reads back to the same double; NaN and
  // infinities, which JSON cannot carry, print as null. Invalid UTF-8 inside
  // strings is written as U+FFFD so the output always parses.
  std::string encode(Format format = Format::compact, Slashes slashes = Slashes::unescaped) const;
  void encodeTo(std::string& out, Format format = Format::compact,
                Slashes slashes = Slashes::unescaped) const;

  bool operator==(const JSONValue& other) const { return v_ == other.v_; }

 private:
  std::variant<bool, double, std::string, Array, Object, std::nullptr_t> v_;
};

// JSONObject's inline members need JSONValue complete.
inline size_t JSONObject::size() const { return entries_.size(); }
inline bool JSONObject::empty() const { return entries_.empty(); }
inline JSONObject::const_iterator JSONObject::begin() const { return entries_.begin(); }
inline JSONObject::const_iterator JSONObject::end() const { return entries_.end(); }
inline JSONObject::iterator JSONObject::begin() { return entries_.begin(); }
inline JSONObject::iterator JSONObject::end() { return entries_.end(); }
inline bool JSONObject::contains(std::string_view key) const { return find(key) != nullptr; }
inline bool JSONObject::operator==(const JSONObject& other) const {
  return entries_ == other.entries_;
}

}  // namespace vobbo
