#pragma once
// Puts HookConfig's edits on disk, one agent's settings file at a time, and
// says whether the hook is on, off, or cannot be judged.
//
// The promises to the person, who keeps hand-written settings in these files:
// - A file that cannot be read as settings is never written; the call fails
//   with a sentence that names the file and says nothing was changed.
// - A change is atomic and durable (Files::writeAtomically): at every moment the
//   file holds either the old or the new contents, both whole. The old file's
//   permissions are kept and a new file is 0600. A settings file that is a
//   symbolic link stays a link; the file it points to receives the change.
// - Before a change, the file as it was is saved at backupPath(). The backup is
//   refreshed at every change, so it always holds the file just before Quibly's
//   latest edit (an older backup would undo the person's own later edits if
//   restored). It is readable by the owner only, as settings may hold secrets.
// - A call that would not change the settings writes nothing, so a file the
//   person formatted by hand keeps its bytes.
// - A missing folder is created on install (the Grok file exists only for our
//   hook). Removing the hook from a file that exists only for it deletes the file.

#include <optional>
#include <string>
#include <string_view>

#include "HookConfig.h"
#include "RawEnum.h"
#include "Result.h"

namespace vobbo {

class HookInstaller {
 public:
  enum class State { on, off, unreadable };

  // What a successful install or remove did.
  enum class Action {
    installed,  // the entry was added, or replaced with a new path
    removed,    // our entries were taken out of the file
    deleted,    // the file existed only for our hook and is gone
    unchanged,  // the file already was as asked; nothing was written
  };
  struct Change {
    Action action = Action::unchanged;
    std::string path;                   // the settings file
    std::optional<std::string> backup;  // where the old contents are; absent when none were
    bool operator==(const Change&) const = default;
  };

  static State state(const HookConfig::Target& target);
  // Whether our entry is in the file, or the sentence saying why the file cannot
  // be judged.
  static Result<bool> check(const HookConfig::Target& target);

  // Adds our entry with `helper` as the hook command's path (absolute). Fails on
  // an unreadable file, or when a folder, backup or file cannot be written; then
  // the settings file is as it was.
  static Result<Change> install(const HookConfig::Target& target, std::string_view helper);
  // Takes our entries out. Fails as install does.
  static Result<Change> remove(const HookConfig::Target& target);

  // Saves `old` at the backup path (when there was a file), then writes `bytes`
  // to the settings path, or deletes the file when `bytes` is absent. Fails,
  // without writing the settings, when the file no longer holds `old` (someone
  // else changed it since it was read) or the backup cannot be written.
  static Result<void> write(const HookConfig::Target& target, const std::optional<std::string>& old,
                            const std::optional<std::string>& bytes);

  // The settings path followed by ".quibly-backup".
  static std::string backupPath(const HookConfig::Target& target);
};

template <>
struct RawValues<HookInstaller::State> {
  static constexpr std::pair<HookInstaller::State, std::string_view> values[] = {
      {HookInstaller::State::on, "on"},
      {HookInstaller::State::off, "off"},
      {HookInstaller::State::unreadable, "unreadable"}};
};
template <>
struct RawValues<HookInstaller::Action> {
  static constexpr std::pair<HookInstaller::Action, std::string_view> values[] = {
      {HookInstaller::Action::installed, "installed"},
      {HookInstaller::Action::removed, "removed"},
      {HookInstaller::Action::deleted, "deleted"},
      {HookInstaller::Action::unchanged, "unchanged"}};
};

}  // namespace vobbo
