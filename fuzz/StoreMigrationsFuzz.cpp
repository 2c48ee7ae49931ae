// Any store document migrates once to the latest version and then has nothing
// pending; the keys the migrations guard end up holding what their readers
// accept; and no other key changes. Nothing crashes.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "JSONValue.h"
#include "StoreMigrations.h"
#include "Text.h"

namespace {

bool guarded(std::string_view key) {
  return key == "theme" || key == "loginItem" || key == "onboardingStep" || key == "storeVersion";
}

// Checks the keys of the migrations that ran: those above version `from`.
void checkGuardedKeys(const vobbo::JSONObject& document, int64_t from) {
  const auto* theme = document.find("theme");
  if (from < 1 && theme) {
    const std::string* text = theme->string();
    if (!text || (*text != "light" && *text != "dark" && *text != "system")) std::abort();
  }
  const auto* loginItem = document.find("loginItem");
  if (from < 1 && loginItem && !loginItem->boolean() && !loginItem->isNull()) std::abort();
  const auto* step = document.find("onboardingStep");
  if (from < 2 && step && !step->isNull() &&
      (!step->string() || vobbo::Text::characterCount(*step->string()) > 32)) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace vobbo;
  auto parsed = JSONValue::parse(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!parsed || !parsed->object()) return 0;
  const JSONObject& before = *parsed->object();
  std::optional<JSONObject> migrated = StoreMigrations::plan(before);
  if (!migrated) {
    if (StoreMigrations::version(before) < StoreMigrations::latest()) std::abort();
    return 0;
  }
  if (StoreMigrations::version(*migrated) != StoreMigrations::latest()) std::abort();
  if (StoreMigrations::plan(*migrated)) std::abort();
  checkGuardedKeys(*migrated, StoreMigrations::version(before));
  for (const auto& [key, value] : before) {
    if (!guarded(key) && !(*migrated->find(key) == value)) std::abort();
  }
  return 0;
}
