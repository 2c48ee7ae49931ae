#pragma once
// Records convert to and from JSONValue under their field names. A record lists
// its fields once, in their documented order, in a JSONFields specialisation:
//
//   template <> struct JSONFields<ApproveWire::Reply> {
//     static constexpr auto list = std::tuple{JSONField{"decision",
//     &ApproveWire::Reply::decision}};
//   };
//
// Field types may be bool, numbers, std::string, enums with raw texts, JSONValue,
// std::optional of any of these (absent key when empty, as null is not written),
// std::vector, std::map with string keys, and other records. Decoding is strict,
// as a typed decoder should be: a missing non-optional field, a wrong JSON case,
// a fraction or out-of-range value for an integer, or an unknown raw text makes
// the whole decode yield nothing. Unknown keys are ignored.

#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

#include "JSONValue.h"
#include "RawEnum.h"

namespace vobbo {

template <class T>
struct JSONFields;

template <class T, class M>
struct JSONField {
  std::string_view name;
  M T::*member;
};
template <class T, class M>
JSONField(std::string_view, M T::*) -> JSONField<T, M>;
template <class T, class M>
JSONField(const char*, M T::*) -> JSONField<T, M>;

template <class T>
concept JSONRecord = requires {
  JSONFields<T>::list;
};

namespace json_detail {
template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};
template <class T>
struct IsVector : std::false_type {};
template <class T, class A>
struct IsVector<std::vector<T, A>> : std::true_type {};
template <class T>
struct IsStringMap : std::false_type {};
template <class V, class C, class A>
struct IsStringMap<std::map<std::string, V, C, A>> : std::true_type {};
template <class>
inline constexpr bool kUnsupported = false;
}  // namespace json_detail

template <class T>
JSONValue toJSON(const T& value) {
  using namespace json_detail;
  if constexpr (std::is_same_v<T, JSONValue>) {
    return value;
  } else if constexpr (std::is_same_v<T, JSONObject>) {
    return JSONValue(value);
  } else if constexpr (std::is_same_v<T, bool>) {
    return JSONValue(value);
  } else if constexpr (std::is_arithmetic_v<T>) {
    return JSONValue(static_cast<double>(value));
  } else if constexpr (std::is_same_v<T, std::string>) {
    return JSONValue(value);
  } else if constexpr (HasRawValues<T>) {
    return JSONValue(rawValue(value));
  } else if constexpr (IsOptional<T>::value) {
    return value ? toJSON(*value) : JSONValue();
  } else if constexpr (IsVector<T>::value) {
    JSONValue::Array out;
    out.reserve(value.size());
    for (const auto& item : value) out.push_back(toJSON(item));
    return JSONValue(std::move(out));
  } else if constexpr (IsStringMap<T>::value) {
    std::vector<JSONObject::Entry> entries;
    entries.reserve(value.size());
    for (const auto& [k, v] : value) entries.emplace_back(k, toJSON(v));
    return JSONValue(JSONObject::fromUnsorted(std::move(entries)));
  } else if constexpr (JSONRecord<T>) {
    std::vector<JSONObject::Entry> entries;
    std::apply(
        [&](const auto&... field) {
          auto add = [&](const auto& f) {
            const auto& member = value.*(f.member);
            if constexpr (IsOptional<std::decay_t<decltype(member)>>::value) {
              if (!member) return;
            }
            entries.emplace_back(std::string(f.name), toJSON(member));
          };
          (add(field), ...);
        },
        JSONFields<T>::list);
    return JSONValue(JSONObject::fromUnsorted(std::move(entries)));
  } else {
    static_assert(kUnsupported<T>, "no JSON coding for this type");
  }
}

// Decodes into `out`; returns false (leaving `out` partly written) on any mismatch.
template <class T>
bool fromJSON(const JSONValue& json, T& out) {
  using namespace json_detail;
  if constexpr (std::is_same_v<T, JSONValue>) {
    out = json;
    return true;
  } else if constexpr (std::is_same_v<T, bool>) {
    if (!json.boolean()) return false;
    out = *json.boolean();
    return true;
  } else if constexpr (std::is_floating_point_v<T>) {
    if (!json.number()) return false;
    out = static_cast<T>(*json.number());
    return true;
  } else if constexpr (std::is_integral_v<T>) {
    const double* d = json.number();
    const double limit = std::ldexp(1.0, std::numeric_limits<T>::digits);  // exclusive upper bound
    if (!d || std::trunc(*d) != *d || *d < static_cast<double>(std::numeric_limits<T>::min()) ||
        *d >= limit) {
      return false;
    }
    out = static_cast<T>(*d);
    return true;
  } else if constexpr (std::is_same_v<T, std::string>) {
    if (!json.string()) return false;
    out = *json.string();
    return true;
  } else if constexpr (HasRawValues<T>) {
    if (!json.string()) return false;
    auto e = fromRaw<T>(*json.string());
    if (!e) return false;
    out = *e;
    return true;
  } else if constexpr (IsOptional<T>::value) {
    if (json.isNull()) {
      out.reset();
      return true;
    }
    typename T::value_type inner{};
    if (!fromJSON(json, inner)) return false;
    out = std::move(inner);
    return true;
  } else if constexpr (IsVector<T>::value) {
    const JSONValue::Array* a = json.array();
    if (!a) return false;
    out.clear();
    out.reserve(a->size());
    for (const auto& item : *a) {
      typename T::value_type v{};
      if (!fromJSON(item, v)) return false;
      out.push_back(std::move(v));
    }
    return true;
  } else if constexpr (IsStringMap<T>::value) {
    const JSONObject* o = json.object();
    if (!o) return false;
    out.clear();
    for (const auto& [k, item] : *o) {
      typename T::mapped_type v{};
      if (!fromJSON(item, v)) return false;
      out.emplace(k, std::move(v));
    }
    return true;
  } else if constexpr (JSONRecord<T>) {
    if (!json.object()) return false;
    return std::apply(
        [&](const auto&... field) {
          auto read = [&](const auto& f) {
            auto& member = out.*(f.member);
            const JSONValue* v = json.get(f.name);
            if (!v) {
              if constexpr (IsOptional<std::decay_t<decltype(member)>>::value) {
                member.reset();
                return true;
              }
              return false;
            }
            return fromJSON(*v, member);
          };
          return (read(field) && ...);
        },
        JSONFields<T>::list);
  } else {
    static_assert(kUnsupported<T>, "no JSON coding for this type");
  }
}

template <class T>
std::optional<T> fromJSON(const JSONValue& json) {
  T out{};
  if (!fromJSON(json, out)) return std::nullopt;
  return out;
}

}  // namespace vobbo
