#pragma once
// Fix-ups that run once over the whole store document at start-up, so readers
// can trust what they find under their keys. The document's `storeVersion`
// says which have run: each migration with a higher version is applied in
// order, then `storeVersion` becomes latest(). A document from a newer app
// (storeVersion above latest()) is left exactly as it is.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "JSONValue.h"

namespace vobbo {

class VobboStore;

namespace StoreMigrations {

struct Migration {
  int64_t version = 0;
  // One line on what the migration guarantees, for the log.
  std::string_view name;
  // Pure and synchronous: the whole document in, the fixed document out.
  JSONObject (*patch)(JSONObject document) = nullptr;
};

// The table, ordered by version.
std::span<const Migration> all();

// The highest version in the table.
int64_t latest();

// The document's `storeVersion`, truncated to an integer; 0 when it is missing
// or not a number.
int64_t version(const JSONObject& document);

// The migrations above the document's version, in ascending order.
std::vector<Migration> pending(const JSONObject& document);

// The migrated document with `storeVersion` set to latest(), or nothing when
// nothing is pending (then nothing needs writing).
std::optional<JSONObject> plan(const JSONObject& document);

// Migrates the store's document in one step under its lock and saves it when
// anything ran. Returns the names of the migrations applied, in order.
std::vector<std::string> run(VobboStore& store);

}  // namespace StoreMigrations
}  // namespace vobbo
