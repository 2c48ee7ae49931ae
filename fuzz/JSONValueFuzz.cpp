// Any bytes either parse to a tree whose encoding parses back to the same tree,
// or fail with a sentence; nothing crashes.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "JSONValue.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using vobbo::JSONValue;
  std::string_view text(reinterpret_cast<const char*>(data), size);
  auto parsed = JSONValue::parse(text);
  if (!parsed) return 0;
  for (auto format : {JSONValue::Format::compact, JSONValue::Format::pretty}) {
    auto again = JSONValue::parse(parsed->encode(format, JSONValue::Slashes::escaped));
    if (!again || !(*again == *parsed)) std::abort();
  }
  return 0;
}
