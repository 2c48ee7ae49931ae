#include <date/tz.h>

#include "Clock.h"
#include "DataLocations.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

using namespace DataLocations;

Facts someFacts() {
  Facts facts;
  facts.home = "/home/ann";
  facts.userData = "/home/ann/.local/share/Vobbo Native";
  facts.dataDir = facts.userData;
  facts.store = {facts.dataDir + "/vobbo-store.json", true, 12'400};
  facts.vault = {"", false, 0, 2, false};
  facts.obsidian = {"", false, false, "", true};
  return facts;
}

const Row& rowOf(const std::vector<Row>& rows, std::string_view id) {
  auto found = std::find_if(rows.begin(), rows.end(), [&](const Row& r) { return r.id == id; });
  EXPECT_NE(found, rows.end()) << id;
  return *found;
}

TEST(DataLocationsTest, RowsComeInTheirOrderWithWhatEachPlaceOffers) {
  Facts facts = someFacts();
  std::vector<Row> rows = dataRows(facts, 0);
  std::vector<std::string> ids;
  for (const Row& r : rows) ids.push_back(r.id);
  EXPECT_EQ(ids, (std::vector<std::string>{"vault", "store", "token", "notes", "bridge", "sync",
                                           "crash"}));
  const Row& store = rowOf(rows, "store");
  EXPECT_EQ(store.shown, facts.store.path);
  EXPECT_EQ(store.size, "12 KB");
  EXPECT_EQ(store.actions, (std::vector<Action>{Action::reveal, Action::move}));
  EXPECT_EQ(rowOf(rows, "vault").size, "2 keys");
  EXPECT_EQ(rowOf(rows, "notes").actions, std::vector<Action>{Action::choose});

  facts.dataDirIsDefault = false;
  facts.dataDir = "/mnt/usb/quibly";
  facts.dataDirMissing = facts.dataDir;
  facts.store = {facts.dataDir + "/vobbo-store.json", false, 0};
  facts.obsidian = {"/home/ann/Vault", true, false, "/home/ann/Vault/Quibly", false};
  rows = dataRows(facts, 0);
  EXPECT_EQ(rowOf(rows, "store").actions, (std::vector<Action>{Action::move, Action::defaultDir}));
  EXPECT_EQ(rowOf(rows, "store").note,
            "The folder /mnt/usb/quibly does not exist yet. Quibly creates it when it next saves.");
  EXPECT_EQ(rowOf(rows, "notes").shown, "/home/ann/Vault/Quibly");
  EXPECT_EQ(rowOf(rows, "notes").actions, (std::vector<Action>{Action::choose, Action::notesApp}));
  EXPECT_EQ(rowOf(rows, "notes").note, "The vault folder cannot be found.");
}

TEST(DataLocationsTest, SyncRowSaysWhenItLastWorked) {
  const double now = *Clock::parseISO("2026-11-21T16:00:00Z");
  const struct {
    SyncFact sync;
    std::string shown;
    std::optional<std::string> note;
  } cases[] = {
      {{"", std::nullopt, std::nullopt}, "Off", std::nullopt},
      {{"https://sync.example", std::nullopt, std::nullopt},
       "https://sync.example",
       "Not synced yet."},
      {{"https://s", "2026-11-21T15:55:00.000Z", std::nullopt},
       "https://s",
       "Last synced 5 minutes ago."},
      {{"https://s", "2026-11-19T12:00:00.000Z", "The server said no"},
       "https://s",
       "The last sync failed: The server said no."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.shown + " " + c.sync.lastSuccessAt.value_or("-"));
    Facts facts = someFacts();
    facts.sync = c.sync;
    const std::vector<Row> rows = dataRows(facts, now);
    const Row& row = rowOf(rows, "sync");
    EXPECT_EQ(row.shown, c.shown);
    EXPECT_EQ(row.note, c.note);
  }
}

TEST(DataLocationsTest, ResetRemovesOnlyOurOwnFilesAndSaysWhatStays) {
  Facts facts = someFacts();
  facts.googleToken = {"/t/google.json", false, 0};
  facts.crashLog = {"/t/crash.log", true, 10};
  facts.vault = {"/k/login.keychain", true, 100, 3, true};
  facts.obsidian = {"/v", true, true, "/v", false};
  ResetPlan plan = resetPlan(facts);
  EXPECT_EQ(plan.removeFiles, (std::vector<std::string>{facts.store.path, "/t/crash.log"}));
  EXPECT_TRUE(plan.clearKeychain);
  EXPECT_EQ(plan.keeps,
            std::vector<std::string>{"Notes in your Obsidian vault stay where they are."});
}

TEST(DataLocationsTest, ExportLeavesOutSecretsAtAnyDepth) {
  JSONObject document{
      {"tasks", JSONValue::Array{JSONObject{{"title", "Pay"}, {"syncToken", "abc"}}}},
      {"settings", JSONObject{{"apiKey", "k"}, {"client_secret", "s"}, {"tokensUsed", 5}}},
      {"Password", "p"}};
  JSONValue payload = exportPayload(2, "2026-11-21T16:00:00.000Z", document);
  EXPECT_EQ(payload.encode(),
            R"({"about":"Tasks, notes and settings from Quibly. No keys or tokens are ever )"
            R"(included.","data":{"settings":{"tokensUsed":5},"tasks":[{"title":"Pay"}]},)"
            R"("exportedAt":"2026-11-21T16:00:00.000Z","storeVersion":2})");
}

TEST(DataLocationsTest, ExportFileNameUsesTheLocalDate) {
  const double lateUtc = *Clock::parseISO("2026-11-21T23:30:00Z");
  EXPECT_EQ(exportFileName(lateUtc, *date::locate_zone("UTC")), "vobbo-export-2026-11-21.json");
  EXPECT_EQ(exportFileName(lateUtc, *date::locate_zone("Pacific/Auckland")),
            "vobbo-export-2026-11-22.json");
  EXPECT_EQ(exportFileName(*Clock::parseISO("2027-01-01T03:00:00Z"),
                           *date::locate_zone("America/New_York")),
            "vobbo-export-2026-12-31.json");
}

TEST(DataLocationsTest, SizesReadNaturally) {
  const struct {
    int64_t bytes;
    std::string_view text;
  } cases[] = {{0, "0 bytes"},           {1, "1 byte"},       {999, "999 bytes"},
               {1000, "1.0 KB"},         {9'949, "9.9 KB"},   {9'950, "10 KB"},
               {999'499, "999 KB"},      {999'950, "1.0 MB"}, {3'400'000, "3.4 MB"},
               {2'000'000'000, "2.0 GB"}};
  for (const auto& c : cases) EXPECT_EQ(sizeText(c.bytes), c.text) << c.bytes;
}

}  // namespace
}  // namespace vobbo
