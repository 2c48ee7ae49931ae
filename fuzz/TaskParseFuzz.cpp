// Any bytes parse to a task: tokens are ordered, non-empty and within the text,
// every tag appears in a tag token, and nothing crashes. The first byte picks the
// zone and the next four the current time, so calendar paths vary too.
#include <date/tz.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "TaskParse.h"
#include "Text.h"

namespace {

const date::time_zone& zoneFor(uint8_t pick) {
  static const date::time_zone* const kZones[] = {
      date::locate_zone("UTC"), date::locate_zone("Europe/London"),
      date::locate_zone("America/New_York"), date::locate_zone("Australia/Lord_Howe"),
      date::locate_zone("Pacific/Kiritimati")};
  return *kZones[pick % std::size(kZones)];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 5) return 0;
  uint32_t seconds = 0;
  std::memcpy(&seconds, data + 1, sizeof seconds);
  vobbo::TaskParse::Now now{static_cast<double>(seconds), zoneFor(data[0])};
  std::string_view text(reinterpret_cast<const char*>(data + 5), size - 5);
  vobbo::ParsedTask task = vobbo::TaskParse::parse(text, now);
  size_t characters = vobbo::Text::characterCount(text);
  size_t previousEnd = 0;
  for (const vobbo::TaskToken& token : task.tokens) {
    if (token.start < previousEnd || token.end <= token.start || token.end > characters) {
      std::abort();
    }
    previousEnd = token.end;
  }
  if (task.title.size() > text.size()) std::abort();
  return 0;
}
