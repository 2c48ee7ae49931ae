#include "DataLocations.h"

#include <date/tz.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cmath>

#include "Clock.h"

namespace vobbo::DataLocations {

namespace {

constexpr std::string_view kExportAbout =
    "Tasks, notes and settings from Quibly. No keys or tokens are ever included.";

std::string countText(int64_t n, std::string_view one, std::string_view many) {
  return fmt::format("{} {}", n, n == 1 ? one : many);
}

Row startRow(std::string_view id, std::string_view title) {
  Row row;
  row.id = id;
  row.title = title;
  return row;
}

std::string sizeIfExists(bool exists, int64_t bytes) { return exists ? sizeText(bytes) : ""; }

// "just now", "5 minutes ago", "3 hours ago", "2 days ago".
std::string agoText(double thenMs, double nowMs) {
  const int64_t seconds = static_cast<int64_t>(std::max(0.0, nowMs - thenMs) / 1000);
  if (seconds < 60) return "just now";
  if (seconds < 3600) return countText(seconds / 60, "minute", "minutes") + " ago";
  if (seconds < 86400) return countText(seconds / 3600, "hour", "hours") + " ago";
  return countText(seconds / 86400, "day", "days") + " ago";
}

std::string sentence(std::string text) {
  if (!text.empty() && text.back() != '.' && text.back() != '!' && text.back() != '?') text += '.';
  return text;
}

Row vaultRow(const VaultFact& vault) {
  Row row = startRow("vault", "Keys and tokens");
  row.size = countText(vault.keys, "key", "keys");
  if (vault.keychain) {
    row.what =
        "API keys and sign-in tokens, kept in your login keychain and never in Quibly’s "
        "data folder.";
    row.shown = vault.path.empty() ? "Login keychain" : vault.path;
    row.exists = vault.exists;
    if (vault.exists && !vault.path.empty()) row.actions = {Action::reveal};
  } else {
    row.what = "API keys and tokens, read from environment variables and never written to disk.";
    row.shown = "Environment variables";
    row.exists = vault.keys > 0;
  }
  return row;
}

Row storeRow(const Facts& facts) {
  Row row = startRow("store", "Tasks, notes and settings");
  row.what = "One JSON file holds the tasks, notes, settings and sync bookkeeping Quibly keeps.";
  row.shown = facts.store.path;
  row.exists = facts.store.exists;
  row.size = sizeIfExists(facts.store.exists, facts.store.bytes);
  if (facts.store.exists) row.actions.push_back(Action::reveal);
  row.actions.push_back(Action::move);
  if (!facts.dataDirIsDefault) row.actions.push_back(Action::defaultDir);
  if (!facts.dataDirMissing.empty()) {
    row.note = "The folder " + facts.dataDirMissing +
               " does not exist yet. Quibly creates it when it next saves.";
  } else if (!facts.store.exists) {
    row.note = "Nothing saved yet.";
  }
  return row;
}

Row tokenRow(const FileFact& token) {
  Row row = startRow("token", "Google sign-in");
  row.what = "The sign-in that lets Quibly read your mail and calendar.";
  row.shown = token.path.empty() ? "Not signed in" : token.path;
  row.exists = token.exists;
  row.size = sizeIfExists(token.exists, token.bytes);
  if (token.exists) row.actions = {Action::reveal};
  return row;
}

Row notesRow(const Facts& facts) {
  const ObsidianFact& obsidian = facts.obsidian;
  Row row = startRow("notes", "Notes");
  if (obsidian.inAppOnly) {
    row.what = "Notes are kept in Quibly’s store file.";
    row.shown = facts.store.path;
    row.exists = facts.store.exists;
    row.actions = {Action::choose};
    if (!obsidian.vault.empty() && obsidian.exists) row.actions.push_back(Action::notesVault);
    return row;
  }
  row.what = "Notes are Markdown files in your Obsidian vault.";
  row.shown = obsidian.notesDir.empty() ? obsidian.vault : obsidian.notesDir;
  row.exists = obsidian.exists;
  if (obsidian.exists) row.actions.push_back(Action::reveal);
  row.actions.push_back(Action::choose);
  row.actions.push_back(Action::notesApp);
  if (!obsidian.exists) row.note = "The vault folder cannot be found.";
  return row;
}

Row bridgeRow(const BridgeFact& bridge) {
  Row row = startRow("bridge", "Bots bridge");
  row.what = "The file Quibly shares with the Grok Bot app for its bots, chats and outbox.";
  row.shown = bridge.path.empty() ? "Not set up" : bridge.path;
  row.exists = bridge.exists;
  row.size = sizeIfExists(bridge.exists, bridge.bytes);
  if (bridge.exists) row.actions = {Action::reveal};
  if (!bridge.isDefault) row.note = "Set by VOBBO_BOTS_BRIDGE_PATH.";
  return row;
}

Row syncRow(const SyncFact& sync, double nowMs) {
  Row row = startRow("sync", "Sync");
  if (sync.apiUrl.empty()) {
    row.what = "Sync is off, so tasks and notes stay on this computer.";
    row.shown = "Off";
    return row;
  }
  row.what = "Tasks and notes sync with this server.";
  row.shown = sync.apiUrl;
  row.exists = true;
  if (sync.lastError) {
    row.note = sentence("The last sync failed: " + *sync.lastError);
  } else if (auto at = sync.lastSuccessAt ? Clock::parseISO(*sync.lastSuccessAt) : std::nullopt) {
    row.note = "Last synced " + agoText(*at, nowMs) + ".";
  } else {
    row.note = "Not synced yet.";
  }
  return row;
}

Row crashRow(const FileFact& crash) {
  Row row = startRow("crash", "Crash log");
  row.what = "Written only if Quibly crashes, so the problem can be found and fixed.";
  row.shown = crash.path.empty() ? "No crash log" : crash.path;
  row.exists = crash.exists;
  row.size = sizeIfExists(crash.exists, crash.bytes);
  if (crash.exists) row.actions = {Action::reveal};
  return row;
}

// Key names that hold secrets wherever they appear: accessToken, apiKey,
// client_secret, password. Compared without case, "_" or "-".
bool namesSecret(std::string_view key) {
  std::string folded;
  for (char c : key) {
    if (c != '_' && c != '-')
      folded += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  for (std::string_view end : {"token", "secret", "password", "apikey"}) {
    if (folded.size() >= end.size() && folded.ends_with(end)) return true;
  }
  return false;
}

JSONValue withoutSecrets(const JSONValue& value) {
  if (const JSONObject* object = value.object()) {
    JSONObject out;
    for (const auto& [key, item] : *object) {
      if (!namesSecret(key)) out.set(key, withoutSecrets(item));
    }
    return out;
  }
  if (const JSONValue::Array* array = value.array()) {
    JSONValue::Array out;
    out.reserve(array->size());
    for (const JSONValue& item : *array) out.push_back(withoutSecrets(item));
    return out;
  }
  return value;
}

}  // namespace

std::vector<Row> dataRows(const Facts& facts, double nowMs) {
  return {vaultRow(facts.vault),   storeRow(facts),         tokenRow(facts.googleToken),
          notesRow(facts),         bridgeRow(facts.bridge), syncRow(facts.sync, nowMs),
          crashRow(facts.crashLog)};
}

ResetPlan resetPlan(const Facts& facts) {
  ResetPlan plan;
  for (const FileFact* file : {&facts.store, &facts.googleToken, &facts.crashLog}) {
    if (file->exists && !file->path.empty()) plan.removeFiles.push_back(file->path);
  }
  plan.clearKeychain = facts.vault.keychain && facts.vault.keys > 0;
  if (facts.obsidian.chosen)
    plan.keeps.push_back("Notes in your Obsidian vault stay where they are.");
  if (facts.bridge.exists)
    plan.keeps.push_back("The bots bridge belongs to the Grok Bot app and stays.");
  if (!facts.vault.keychain && facts.vault.keys > 0) {
    plan.keeps.push_back("Keys set in environment variables are yours to remove.");
  }
  if (!facts.sync.apiUrl.empty()) {
    plan.keeps.push_back("Tasks and notes already on the sync server stay there.");
  }
  if (!facts.reads.empty()) {
    plan.keeps.push_back("Coding agents’ transcripts are only read, never touched.");
  }
  return plan;
}

JSONValue exportPayload(int64_t storeVersion, std::string_view exportedAt,
                        const JSONObject& document) {
  JSONObject payload;
  payload.set("about", kExportAbout);
  payload.set("exportedAt", exportedAt);
  payload.set("storeVersion", storeVersion);
  payload.set("data", withoutSecrets(JSONValue(document)));
  return payload;
}

std::string exportFileName(double nowMs, const date::time_zone& zone) {
  using namespace std::chrono;
  const sys_time<milliseconds> instant{milliseconds{static_cast<int64_t>(std::floor(nowMs))}};
  const auto local = zone.to_local(instant);
  const date::year_month_day day{date::floor<date::days>(local)};
  return fmt::format("vobbo-export-{:04d}-{:02d}-{:02d}.json", static_cast<int>(day.year()),
                     static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()));
}

std::string sizeText(int64_t bytes) {
  if (bytes < 1000) return countText(bytes, "byte", "bytes");
  constexpr std::string_view kUnits[] = {"KB", "MB", "GB", "TB"};
  double value = static_cast<double>(bytes);
  size_t unit = 0;
  for (value /= 1000; value >= 999.95 && unit + 1 < std::size(kUnits); value /= 1000) ++unit;
  if (value < 9.95) return fmt::format("{:.1f} {}", value, kUnits[unit]);
  return fmt::format("{:.0f} {}", value, kUnits[unit]);
}

}  // namespace vobbo::DataLocations
