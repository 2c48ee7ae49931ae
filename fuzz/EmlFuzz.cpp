// Any bytes read as an .eml file give a message whose display texts are valid
// UTF-8, that triage can sort, and whose JSON form parses back; nothing crashes.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Eml.h"
#include "JSONValue.h"
#include "Prefilter.h"
#include "RuleTriage.h"
#include "Text.h"
#include "Triage.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace vobbo;
  std::string_view text(reinterpret_cast<const char*>(data), size);
  MailMessage message = Eml::message(text, "fuzz");
  for (const std::string* shown : {&message.subject, &message.body, &message.snippet}) {
    if (!Text::isValidUTF8(*shown)) std::abort();
  }
  (void)Eml::parseDate(message.date);
  (void)Triage::signals(message);
  TriagedMessage row = RuleTriage::triaged(message);
  if (auto classification = Prefilter::classify(message))
    row = Prefilter::triaged(message, *classification);
  if (!JSONValue::parse(toJSON(row).encode())) std::abort();
  return 0;
}
