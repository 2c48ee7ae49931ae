#include "Base64.h"

#include <array>
#include <cstdint>

namespace vobbo::Base64 {

namespace {

constexpr std::string_view kStandard =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view kUrl =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr int8_t kSkip = -1;
constexpr int8_t kEnd = -2;

constexpr std::array<int8_t, 256> makeTable() {
  std::array<int8_t, 256> table{};
  for (auto& entry : table) entry = kSkip;
  for (size_t i = 0; i < kStandard.size(); ++i) {
    table[static_cast<unsigned char>(kStandard[i])] = static_cast<int8_t>(i);
    table[static_cast<unsigned char>(kUrl[i])] = static_cast<int8_t>(i);
  }
  table['='] = kEnd;
  return table;
}

constexpr auto kTable = makeTable();

}  // namespace

std::string encode(std::string_view bytes, Alphabet alphabet, Padding padding) {
  std::string_view chars = alphabet == Alphabet::url ? kUrl : kStandard;
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  auto byte = [&](size_t at) {
    return static_cast<uint32_t>(static_cast<unsigned char>(bytes[at]));
  };
  for (; i + 3 <= bytes.size(); i += 3) {
    uint32_t n = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
    out += chars[n >> 18 & 63];
    out += chars[n >> 12 & 63];
    out += chars[n >> 6 & 63];
    out += chars[n & 63];
  }
  size_t left = bytes.size() - i;
  if (left > 0) {
    uint32_t n = byte(i) << 16 | (left == 2 ? byte(i + 1) << 8 : 0);
    out += chars[n >> 18 & 63];
    out += chars[n >> 12 & 63];
    if (left == 2) out += chars[n >> 6 & 63];
    if (padding == Padding::keep) out.append(3 - left, '=');
  }
  return out;
}

std::string decode(std::string_view text) {
  std::string out;
  out.reserve(text.size() / 4 * 3 + 3);
  uint32_t bits = 0;
  int count = 0;
  for (char c : text) {
    int8_t v = kTable[static_cast<unsigned char>(c)];
    if (v == kEnd) break;
    if (v == kSkip) continue;
    bits = bits << 6 | static_cast<uint32_t>(v);
    count += 6;
    if (count >= 8) {
      count -= 8;
      out += static_cast<char>(bits >> count & 0xFF);
    }
  }
  return out;
}

}  // namespace vobbo::Base64
