#include "Ids.h"

#include <array>
#include <cstdint>
#include <random>

namespace vobbo::Ids {

std::string uuid() {
  // random_device reads the system's random source (getrandom or
  // /dev/urandom); a seeded engine would repeat ids across processes.
  thread_local std::random_device source;
  std::array<uint8_t, 16> bytes{};
  for (size_t i = 0; i < bytes.size(); i += 4) {
    uint32_t word = source();
    for (size_t k = 0; k < 4; ++k) bytes[i + k] = static_cast<uint8_t>(word >> (8 * k));
  }
  bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0f) | 0x40);  // version 4
  bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3f) | 0x80);  // RFC 4122 variant
  static constexpr char kHex[] = "0123456789abcdef";
  std::string out;
  out.reserve(36);
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out += '-';
    out += kHex[bytes[i] >> 4];
    out += kHex[bytes[i] & 0x0f];
  }
  return out;
}

bool isUuid(std::string_view text) {
  if (text.size() != 36) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (c != '-') return false;
    } else if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) {
      return false;
    }
  }
  return true;
}

}  // namespace vobbo::Ids
