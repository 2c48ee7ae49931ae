#include "StoreMigrations.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "Text.h"
#include "VobboStore.h"

namespace vobbo::StoreMigrations {

namespace {

constexpr size_t kOnboardingStepLimit = 32;

// `theme` holds one of the three themes the appearance settings know; anything
// else becomes "light". `loginItem` holds a boolean: the text "true" (exactly)
// becomes true, other texts false, other kinds null.
JSONObject themeAndLoginItem(JSONObject document) {
  if (JSONValue* theme = document.find("theme")) {
    const std::string* text = theme->string();
    if (!text || (*text != "light" && *text != "dark" && *text != "system")) *theme = "light";
  }
  if (JSONValue* loginItem = document.find("loginItem")) {
    if (const std::string* text = loginItem->string()) {
      *loginItem = *text == "true";
    } else if (!loginItem->boolean()) {
      *loginItem = nullptr;
    }
  }
  return document;
}

// `onboardingStep` is null or a string of at most 32 characters; a longer
// string keeps its first 32. Any other kind names no step the welcome flow can
// resume, so it becomes null and the flow starts over.
JSONObject shortOnboardingStep(JSONObject document) {
  JSONValue* step = document.find("onboardingStep");
  if (!step || step->isNull()) return document;
  if (const std::string* text = step->string()) {
    if (Text::characterCount(*text) > kOnboardingStepLimit) {
      *step = std::string(Text::prefix(*text, kOnboardingStepLimit));
    }
  } else {
    *step = nullptr;
  }
  return document;
}

constexpr Migration kAll[] = {
    {1, "theme and loginItem hold only what their readers accept", themeAndLoginItem},
    {2, "a half-done welcome step is a string of at most 32", shortOnboardingStep},
};

}  // namespace

std::span<const Migration> all() { return kAll; }

int64_t latest() {
  int64_t highest = 0;
  for (const Migration& m : kAll) highest = std::max(highest, m.version);
  return highest;
}

int64_t version(const JSONObject& document) {
  const JSONValue* stored = document.find("storeVersion");
  const double* number = stored ? stored->number() : nullptr;
  if (!number) return 0;
  // Clamp before converting: a double beyond int64_t is undefined to convert.
  constexpr double kLimit = 9.0e18;
  return static_cast<int64_t>(std::clamp(std::trunc(*number), -kLimit, kLimit));
}

std::vector<Migration> pending(const JSONObject& document) {
  const int64_t current = version(document);
  std::vector<Migration> out;
  for (const Migration& m : kAll) {
    if (m.version > current) out.push_back(m);
  }
  std::stable_sort(out.begin(), out.end(),
                   [](const Migration& a, const Migration& b) { return a.version < b.version; });
  return out;
}

std::optional<JSONObject> plan(const JSONObject& document) {
  std::vector<Migration> todo = pending(document);
  if (todo.empty()) return std::nullopt;
  JSONObject migrated = document;
  for (const Migration& m : todo) migrated = m.patch(std::move(migrated));
  migrated.set("storeVersion", latest());
  return migrated;
}

std::vector<std::string> run(VobboStore& store) {
  std::vector<std::string> applied;
  store.update([&](JSONObject& document) {
    std::optional<JSONObject> migrated = plan(document);
    if (!migrated) return false;
    for (const Migration& m : pending(document)) applied.emplace_back(m.name);
    document = std::move(*migrated);
    return true;
  });
  return applied;
}

}  // namespace vobbo::StoreMigrations
