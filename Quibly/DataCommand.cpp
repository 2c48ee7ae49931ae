// `quibly data`: where each kind of Quibly's data lives, and the data folder's
// tools: export, move and migrate. The facts shown are the ones this program can
// know from the data folder, the files in it and the environment; places that
// only the desktop app knows (the keychain, its crash log) show as not set up.

#include <date/tz.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <chrono>
#include <cmath>
#include <ostream>

#include "Clock.h"
#include "Commands.h"
#include "DataFiles.h"
#include "DataLocations.h"
#include "Files.h"
#include "Output.h"
#include "StoreMigrations.h"
#include "VobboStore.h"

namespace quibly {

namespace {

using namespace vobbo;
using DataLocations::Facts;

enum class Output { text, json };

// Far above any version this table will reach, far below where a double stops
// holding whole numbers.
constexpr double kLargestVersion = 1e6;

// Environment variables that hold keys or tokens; only whether they are set is read.
constexpr std::string_view kSecretVariables[] = {"ANTHROPIC_API_KEY", "HOME_ASSISTANT_TOKEN",
                                                 "VOBBO_GOOGLE_CLIENT_SECRET",
                                                 "GMAIL_CLIENT_SECRET"};

bool isSet(const Platform::Env& env, std::string_view name) {
  auto value = env(name);
  return value && !value->empty();
}

std::vector<DataLocations::ReadFact> transcriptFolders(const std::string& home) {
  const std::pair<std::string_view, std::string_view> places[] = {
      {"Claude Code transcripts", "/.claude/projects"},
      {"Codex sessions", "/.codex/sessions"},
      {"Gemini CLI sessions", "/.gemini/tmp"},
      {"Grok CLI sessions", "/.grok/sessions"},
  };
  std::vector<DataLocations::ReadFact> reads;
  for (const auto& [label, relative] : places) {
    std::string path = home + std::string(relative);
    reads.push_back({std::string(label), path, Files::isDirectory(path)});
  }
  return reads;
}

Facts gatherFacts(const Platform::Env& env) {
  Facts facts;
  facts.home = Platform::homeDirectory(env);
  facts.userData = Platform::applicationSupportDirectory(facts.home, env) + "/Vobbo Native";
  facts.dataDir = VobboStore::defaultDir(env);
  facts.dataDirIsDefault = !isSet(env, "VOBBO_DATA_DIR");
  if (!facts.dataDirIsDefault && !Files::isDirectory(facts.dataDir)) {
    facts.dataDirMissing = facts.dataDir;
  }
  facts.store = DataFiles::fileFact(facts.dataDir + "/" + std::string(VobboStore::kFileName));
  for (std::string_view name : kSecretVariables) facts.vault.keys += isSet(env, name) ? 1 : 0;
  if (auto vault = env("OBSIDIAN_VAULT_PATH"); vault && !vault->empty()) {
    facts.obsidian = {*vault, true, Files::isDirectory(*vault), *vault, false};
  }
  if (auto bridge = env("VOBBO_BOTS_BRIDGE_PATH"); bridge && !bridge->empty()) {
    DataLocations::FileFact file = DataFiles::fileFact(*bridge);
    facts.bridge = {*bridge, file.exists, file.bytes, false};
  }
  facts.sync.apiUrl = env("VOBBO_API_URL").value_or("");
  facts.reads = transcriptFolders(facts.home);
  return facts;
}

// The store reads a damaged file as empty and sets it aside on the next save.
// Here the person is asked first, so an export or migration never stands in
// for data they still have: a sentence when the file is there but unusable.
std::optional<std::string> damagedStore(const std::string& file) {
  auto text = Files::read(file);
  if (!text.ok()) return text.error();
  if (!text->has_value()) return std::nullopt;
  auto parsed = JSONValue::parse(**text);
  if (parsed.ok() && parsed->object()) return std::nullopt;
  return file +
         " does not hold Quibly’s data as a JSON object, so it was left as it is. "
         "Repair or remove it, then try again.";
}

int showLocations(Io& io, Output output) {
  const Facts facts = gatherFacts(io.env);
  const std::vector<DataLocations::Row> rows = DataLocations::dataRows(facts, Clock::now());
  if (output == Output::json) {
    printPretty(io.out, JSONObject{{"facts", toJSON(facts)}, {"rows", toJSON(rows)}});
    return 0;
  }
  io.out << "Where Quibly keeps your data:\n";
  for (const auto& row : rows) {
    std::string place = row.shown;
    if (!row.size.empty()) place += " (" + row.size + ")";
    if (!row.exists && row.shown.starts_with('/')) place += " (not there yet)";
    io.out << "\n" << row.title << ": " << place << "\n  " << row.what << "\n";
    if (row.note) io.out << "  " << *row.note << "\n";
  }
  io.out << "\nQuibly only reads these:\n";
  for (const auto& read : facts.reads) {
    io.out << "  " << read.label << ": " << read.path << (read.exists ? "" : " (not found)")
           << "\n";
  }
  return 0;
}

// The export's time stamp, "2026-11-21T16:00:00.000Z".
std::string isoText(double ms) {
  using namespace std::chrono;
  const sys_time<milliseconds> at{milliseconds{static_cast<int64_t>(std::floor(ms))}};
  return date::format("%FT%TZ", at);
}

const date::time_zone& localZone() {
  try {
    return *date::current_zone();
  } catch (const std::exception&) {
    return *date::locate_zone("UTC");  // no zone configured on this machine
  }
}

// Prints the outcome: a sentence (on `err` when it failed), or with --json one
// document holding ok, the message and the command's own fields.
int report(Io& io, Output output, bool ok, const std::string& message, JSONObject fields = {}) {
  if (output == Output::json) {
    fields.set("ok", ok);
    fields.set("message", message);
    printPretty(io.out, fields);
  } else {
    (ok ? io.out : io.err) << message << "\n";
  }
  return ok ? 0 : 1;
}

// Whether the document holds anything of the person's: a store with only its
// version holds no tasks, notes or settings.
bool holdsData(const JSONObject& document) {
  for (const auto& [key, value] : document) {
    if (key != "storeVersion") return true;
  }
  return false;
}

int exportData(Io& io, const std::string& folder, Output output) {
  VobboStore store(VobboStore::defaultDir(io.env));
  if (auto damaged = damagedStore(store.file())) return report(io, output, false, *damaged);
  const JSONObject document = store.read();
  const double now = Clock::now();
  const JSONValue payload =
      DataLocations::exportPayload(StoreMigrations::version(document), isoText(now), document);
  auto exported = DataFiles::writeExport(absolutePath(folder),
                                         DataLocations::exportFileName(now, localZone()), payload);
  if (!exported.ok()) return report(io, output, false, exported.error());
  std::string message = exported->message;
  if (!holdsData(document)) {
    message += fmt::format(
        " Nothing was saved yet in {}, so the export holds no tasks, notes or settings.",
        store.dir());
  }
  return report(io, output, true, message,
                JSONObject{{"path", exported->path}, {"empty", !holdsData(document)}});
}

// The check's sentence, with the folder named when the sentence does not name
// it already, so the person sees which path was meant.
std::string refusal(const std::string& message, const std::string& target) {
  if (target.empty() || message.find(target) != std::string::npos) return message;
  return fmt::format("{} You named {}.", message, target);
}

int moveData(Io& io, const std::string& folder, Output output) {
  const std::string dataDir = VobboStore::defaultDir(io.env);
  const std::string fileName(VobboStore::kFileName);
  const std::string oldFile = dataDir + "/" + fileName;
  const std::string target = folder.empty() ? folder : absolutePath(folder);
  DataFiles::MoveResult result = DataFiles::check(folder, dataDir, fileName);
  const bool copying = result.ok && Files::exists(oldFile);
  if (copying) result = DataFiles::moveStore(oldFile, target + "/" + fileName);
  if (!result.ok) {
    if (output == Output::json) {
      return report(io, output, false, result.message, JSONObject{{"folder", target}});
    }
    return report(io, output, false, refusal(result.message, target));
  }
  // One sentence a line for the person; one message for scripts.
  std::vector<std::string> sentences{
      result.message,
      fmt::format("Quibly keeps using {} until you set VOBBO_DATA_DIR={}.", dataDir, target)};
  JSONObject fields{{"dataDir", target}};
  if (copying) {
    sentences.push_back(fmt::format("The old file stays at {} until you remove it.", oldFile));
    fields.set("oldFile", oldFile);
  }
  const std::string message =
      fmt::format("{}", fmt::join(sentences, output == Output::json ? " " : "\n"));
  return report(io, output, true, message, std::move(fields));
}

// A store from a newer Quibly, or with a storeVersion no Quibly ever wrote
// (1e300 would otherwise print as a huge clamped integer), is left as it
// stands: this build's migrations do not know what it holds.
int reportNewer(Io& io, Output output, const std::string& file, const JSONObject& document) {
  const JSONValue* stored = document.find("storeVersion");
  const double* number = stored ? stored->number() : nullptr;
  const bool versionNumber = number && *number >= 0 && *number <= kLargestVersion;
  const std::string message =
      versionNumber
          ? fmt::format(
                "The store at {} was written by a newer Quibly (version {}; this one knows "
                "versions up to {}), so it was left as it is.",
                file, StoreMigrations::version(document), StoreMigrations::latest())
          : fmt::format(
                "The store at {} has storeVersion {}, which is not a version number, so it was "
                "left as it is. Repair it, then try again.",
                file, number ? *number : 0.0);
  return report(io, output, versionNumber, message,
                JSONObject{{"applied", JSONValue::Array{}},
                           {"storeVersion", stored ? *stored : JSONValue()},
                           {"saved", true}});
}

int migrateData(Io& io, Output output) {
  VobboStore store(VobboStore::defaultDir(io.env));
  if (!Files::exists(store.file())) {
    return report(
        io, output, true,
        fmt::format("There is no store at {} yet, so there is nothing to migrate.", store.file()),
        JSONObject{{"applied", JSONValue::Array{}}, {"saved", true}});
  }
  if (auto damaged = damagedStore(store.file())) return report(io, output, false, *damaged);
  const JSONObject before = store.read();
  const int64_t found = StoreMigrations::version(before);
  if (found > StoreMigrations::latest()) return reportNewer(io, output, store.file(), before);
  const std::vector<std::string> applied = StoreMigrations::run(store);
  // The store never reports a failed save, so read back what reached the disk.
  const int64_t onDisk = StoreMigrations::version(VobboStore(store.dir()).read());
  const bool saved = applied.empty() || onDisk == StoreMigrations::latest();
  JSONObject fields{{"applied", JSONValue::Array(applied.begin(), applied.end())},
                    {"storeVersion", onDisk},
                    {"saved", saved}};
  if (!saved) {
    return report(io, output, false,
                  fmt::format("Could not save the migrated store to {}.", store.file()),
                  std::move(fields));
  }
  if (applied.empty()) {
    return report(io, output, true,
                  fmt::format("The store at {} is up to date (version {}).", store.file(), onDisk),
                  std::move(fields));
  }
  std::string message = fmt::format(
      "Applied {} to {}:",
      applied.size() == 1 ? "1 migration" : fmt::format("{} migrations", applied.size()),
      store.file());
  for (const auto& name : applied) message += "\n  " + name;
  return report(io, output, true, message, std::move(fields));
}

}  // namespace

void addDataCommand(CLI::App& command, Io& io, int& status) {
  struct Options {
    bool json = false;
    std::string exportFolder = ".";
    std::string moveFolder;
  };
  auto options = std::make_shared<Options>();
  command.add_flag("--json", options->json, "Print JSON");
  auto output = [options] { return options->json ? Output::json : Output::text; };

  CLI::App* exportCommand =
      command.add_subcommand("export", "Write tasks, notes and settings to one JSON file");
  exportCommand->add_option("DIR", options->exportFolder, "Folder for the export (default: here)");
  exportCommand->add_flag("--json", options->json, "Print JSON");
  exportCommand->callback([&io, &status, options, output] {
    status = exportData(io, options->exportFolder, output());
  });

  CLI::App* moveCommand = command.add_subcommand("move", "Move the data folder to DIR");
  moveCommand->add_option("DIR", options->moveFolder, "The new data folder")->required();
  moveCommand->add_flag("--json", options->json, "Print JSON");
  moveCommand->callback(
      [&io, &status, options, output] { status = moveData(io, options->moveFolder, output()); });

  CLI::App* migrateCommand =
      command.add_subcommand("migrate", "Bring the store up to this version of Quibly");
  migrateCommand->add_flag("--json", options->json, "Print JSON");
  migrateCommand->callback([&io, &status, output] { status = migrateData(io, output()); });

  command.require_subcommand(0, 1);
  command.callback([&command, &io, &status, output] {
    if (command.get_subcommands().empty()) status = showLocations(io, output());
  });
}

}  // namespace quibly
