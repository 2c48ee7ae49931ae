#pragma once
// Enumerations whose cases have fixed raw texts ("claude", "allow", "approval")
// declare them once, in a RawValues specialisation next to the enum:
//
//   template <> struct RawValues<ApproveWire::Kind> {
//     static constexpr std::pair<ApproveWire::Kind, std::string_view> values[] = {
//         {ApproveWire::Kind::approval, "approval"}, {ApproveWire::Kind::waiting, "waiting"}};
//   };
//
// and get rawValue(), fromRaw<E>(), allCases<E>(), JSON coding (JSONCodec.h) and
// fmt formatting (Format.h) from that one table. Cases are listed in their order.

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

namespace vobbo {

template <class E>
struct RawValues;

template <class E>
concept HasRawValues = requires {
  RawValues<E>::values;
};

template <HasRawValues E>
constexpr std::string_view rawValue(E e) {
  for (const auto& [value, raw] : RawValues<E>::values) {
    if (value == e) return raw;
  }
  return {};
}

// The case whose raw text is exactly `raw` (case-sensitive), or nothing.
template <HasRawValues E>
constexpr std::optional<E> fromRaw(std::string_view raw) {
  for (const auto& [value, text] : RawValues<E>::values) {
    if (text == raw) return value;
  }
  return std::nullopt;
}

template <HasRawValues E>
constexpr auto allCases() {
  constexpr size_t n = std::size(RawValues<E>::values);
  std::array<E, n> out{};
  for (size_t i = 0; i < n; ++i) out[i] = RawValues<E>::values[i].first;
  return out;
}

}  // namespace vobbo
