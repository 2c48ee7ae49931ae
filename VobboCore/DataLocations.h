#pragma once
// What the data page tells the person about where each kind of their data
// lives. The facts are gathered by whoever knows them (the store, the vault,
// the sign-in, the sync service) and passed in; everything here turns facts into
// rows, a reset plan and an export, and reads no disk or clock of its own.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "JSONCodec.h"
#include "JSONValue.h"

namespace date {
class time_zone;
}

namespace vobbo::DataLocations {

struct FileFact {
  std::string path;
  bool exists = false;
  int64_t bytes = 0;
  bool operator==(const FileFact&) const = default;
};

// The secrets: API keys and sign-in tokens. With `keychain` they live in the
// login keychain at `path`; without, they come from environment variables.
struct VaultFact {
  std::string path;
  bool exists = false;
  int64_t bytes = 0;
  int64_t keys = 0;
  bool keychain = false;
  bool operator==(const VaultFact&) const = default;
};

struct ObsidianFact {
  std::string vault;
  bool chosen = false;
  bool exists = false;
  std::string notesDir;
  bool inAppOnly = true;  // no vault chosen: notes stay in the store
  bool operator==(const ObsidianFact&) const = default;
};

struct BridgeFact {
  std::string path;
  bool exists = false;
  int64_t bytes = 0;
  bool isDefault = true;
  bool operator==(const BridgeFact&) const = default;
};

struct SyncFact {
  std::string apiUrl;                        // empty when sync is off
  std::optional<std::string> lastSuccessAt;  // ISO 8601
  std::optional<std::string> lastError;
  bool operator==(const SyncFact&) const = default;
};

// A place the app only reads, such as a coding agent's transcripts.
struct ReadFact {
  std::string label;
  std::string path;
  bool exists = false;
  bool operator==(const ReadFact&) const = default;
};

struct Facts {
  std::string home;
  std::string userData;  // the default data folder
  std::string dataDir;   // the folder in use
  bool dataDirIsDefault = true;
  std::string dataDirMissing;  // the chosen folder when it does not exist, else empty
  FileFact store;
  VaultFact vault;
  FileFact googleToken;
  ObsidianFact obsidian;
  BridgeFact bridge;
  FileFact crashLog;
  std::vector<std::string> envFiles;
  SyncFact sync;
  std::vector<ReadFact> reads;
  bool operator==(const Facts&) const = default;
};

// What a row offers: show the file, move the data folder, go back to the
// default folder, choose a vault, keep notes in the app or in the vault.
enum class Action { reveal, move, defaultDir, choose, notesApp, notesVault };

struct Row {
  std::string id;     // vault, store, token, notes, bridge, sync, crash
  std::string title;  // "Tasks, notes and settings"
  std::string what;   // one sentence on what is kept there
  std::string shown;  // the place, as shown to the person
  bool exists = false;
  std::string size;  // "12 KB", "3 keys"; empty when it means nothing
  std::vector<Action> actions;
  std::optional<std::string> note;
  bool operator==(const Row&) const = default;
};

// What "Reset Quibly" removes and what it leaves alone.
struct ResetPlan {
  std::vector<std::string> removeFiles;  // only files that exist
  bool clearKeychain = false;
  std::vector<std::string> keeps;  // sentences on what is left alone, and why
  bool operator==(const ResetPlan&) const = default;
};

// The rows, always all seven in their order. `nowMs` dates the last sync.
std::vector<Row> dataRows(const Facts& facts, double nowMs);

ResetPlan resetPlan(const Facts& facts);

// The export file's content: what it is, the store version, when it was made,
// and the document with every key that names a secret (token, secret,
// password, API key) left out at any depth.
JSONValue exportPayload(int64_t storeVersion, std::string_view exportedAt,
                        const JSONObject& document);

// "vobbo-export-YYYY-MM-DD.json" for the local date of `nowMs` in `zone`.
std::string exportFileName(double nowMs, const date::time_zone& zone);

// "0 bytes", "1 byte", "950 bytes", "12 KB", "3.4 MB": sizes for people (1 KB = 1000 bytes).
std::string sizeText(int64_t bytes);

}  // namespace vobbo::DataLocations

namespace vobbo {

template <>
struct RawValues<DataLocations::Action> {
  using A = DataLocations::Action;
  static constexpr std::pair<A, std::string_view> values[] = {
      {A::reveal, "reveal"}, {A::move, "move"},         {A::defaultDir, "default"},
      {A::choose, "choose"}, {A::notesApp, "notesApp"}, {A::notesVault, "notesVault"}};
};

template <>
struct JSONFields<DataLocations::FileFact> {
  using T = DataLocations::FileFact;
  static constexpr auto list = std::tuple{
      JSONField{"path", &T::path}, JSONField{"exists", &T::exists}, JSONField{"bytes", &T::bytes}};
};

template <>
struct JSONFields<DataLocations::VaultFact> {
  using T = DataLocations::VaultFact;
  static constexpr auto list = std::tuple{
      JSONField{"path", &T::path}, JSONField{"exists", &T::exists}, JSONField{"bytes", &T::bytes},
      JSONField{"keys", &T::keys}, JSONField{"keychain", &T::keychain}};
};

template <>
struct JSONFields<DataLocations::ObsidianFact> {
  using T = DataLocations::ObsidianFact;
  static constexpr auto list =
      std::tuple{JSONField{"vault", &T::vault}, JSONField{"chosen", &T::chosen},
                 JSONField{"exists", &T::exists}, JSONField{"notesDir", &T::notesDir},
                 JSONField{"inAppOnly", &T::inAppOnly}};
};

template <>
struct JSONFields<DataLocations::BridgeFact> {
  using T = DataLocations::BridgeFact;
  static constexpr auto list =
      std::tuple{JSONField{"path", &T::path}, JSONField{"exists", &T::exists},
                 JSONField{"bytes", &T::bytes}, JSONField{"isDefault", &T::isDefault}};
};

template <>
struct JSONFields<DataLocations::SyncFact> {
  using T = DataLocations::SyncFact;
  static constexpr auto list =
      std::tuple{JSONField{"apiUrl", &T::apiUrl}, JSONField{"lastSuccessAt", &T::lastSuccessAt},
                 JSONField{"lastError", &T::lastError}};
};

template <>
struct JSONFields<DataLocations::ReadFact> {
  using T = DataLocations::ReadFact;
  static constexpr auto list = std::tuple{
      JSONField{"label", &T::label}, JSONField{"path", &T::path}, JSONField{"exists", &T::exists}};
};

template <>
struct JSONFields<DataLocations::Facts> {
  using T = DataLocations::Facts;
  static constexpr auto list = std::tuple{JSONField{"home", &T::home},
                                          JSONField{"userData", &T::userData},
                                          JSONField{"dataDir", &T::dataDir},
                                          JSONField{"dataDirIsDefault", &T::dataDirIsDefault},
                                          JSONField{"dataDirMissing", &T::dataDirMissing},
                                          JSONField{"store", &T::store},
                                          JSONField{"vault", &T::vault},
                                          JSONField{"googleToken", &T::googleToken},
                                          JSONField{"obsidian", &T::obsidian},
                                          JSONField{"bridge", &T::bridge},
                                          JSONField{"crashLog", &T::crashLog},
                                          JSONField{"envFiles", &T::envFiles},
                                          JSONField{"sync", &T::sync},
                                          JSONField{"reads", &T::reads}};
};

template <>
struct JSONFields<DataLocations::Row> {
  using T = DataLocations::Row;
  static constexpr auto list =
      std::tuple{JSONField{"id", &T::id},           JSONField{"title", &T::title},
                 JSONField{"what", &T::what},       JSONField{"shown", &T::shown},
                 JSONField{"exists", &T::exists},   JSONField{"size", &T::size},
                 JSONField{"actions", &T::actions}, JSONField{"note", &T::note}};
};

template <>
struct JSONFields<DataLocations::ResetPlan> {
  using T = DataLocations::ResetPlan;
  static constexpr auto list =
      std::tuple{JSONField{"removeFiles", &T::removeFiles},
                 JSONField{"clearKeychain", &T::clearKeychain}, JSONField{"keeps", &T::keeps}};
};

}  // namespace vobbo
