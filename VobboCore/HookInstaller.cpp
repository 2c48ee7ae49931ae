#include "HookInstaller.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Files.h"

namespace vobbo {

namespace {

using Target = HookConfig::Target;
using Bytes = std::optional<std::string>;

std::optional<std::string_view> view(const Bytes& bytes) {
  if (!bytes) return std::nullopt;
  return std::string_view(*bytes);
}

// The file's bytes, nothing when it does not exist, or the unreadable failure
// when it exists but cannot be read (a folder, no permission).
Result<Bytes> readSettings(const Target& target) {
  auto data = Files::read(target.path);
  if (!data) return HookConfig::unreadable(target.path, data.error());
  return std::move(*data);
}

// Whether writing `next` would change nothing but the formatting of `old`.
bool sameSettings(const Bytes& old, const std::string& next, const Target& target) {
  if (!old) return false;
  auto root = HookConfig::root(*old, target.path);
  return root && HookConfig::encode(*root) == next;
}

// Whether settings hold nothing at all once our hook is gone: no keys, or only
// an empty "hooks".
bool holdsNothing(const std::string& bytes, const Target& target) {
  auto root = HookConfig::root(bytes, target.path);
  if (!root) return false;
  if (root->empty()) return true;
  const JSONValue* hooks = root->find("hooks");
  return root->size() == 1 && hooks && hooks->object() && hooks->object()->empty();
}

Result<void> saveBackup(const Target& target, const std::string& old) {
  const std::string path = HookInstaller::backupPath(target);
  // The backup is a file of its own: a link at its place is replaced, not followed.
  auto saved = Files::writeAtomically(path, old, 0600, Files::Links::replace);
  if (!saved) return saved;
  // An older backup may have had wider permissions; settings can hold secrets.
  if (::chmod(path.c_str(), 0600) != 0) {
    return failure(
        fmt::format("Could not make the backup {} private: {}.", path, std::strerror(errno)));
  }
  return {};
}

// Removes the file (a link itself, not what it points to) and flushes the folder
// so the removal survives a crash.
Result<void> deleteFile(const std::string& path) {
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
    return failure(fmt::format("Could not delete {}: {}.", path, std::strerror(errno)));
  }
  Files::syncFolder(Files::parentOf(path));
  return {};
}

HookInstaller::Change unchanged(const Target& target) {
  return {HookInstaller::Action::unchanged, target.path, std::nullopt};
}

}  // namespace

std::string HookInstaller::backupPath(const Target& target) {
  return target.path + ".quibly-backup";
}

Result<bool> HookInstaller::check(const Target& target) {
  auto data = readSettings(target);
  if (!data) return data.failure();
  return HookConfig::check(view(*data), target);
}

HookInstaller::State HookInstaller::state(const Target& target) {
  auto installed = check(target);
  if (!installed) return State::unreadable;
  return *installed ? State::on : State::off;
}

Result<HookInstaller::Change> HookInstaller::install(const Target& target,
                                                     std::string_view helper) {
  auto old = readSettings(target);
  if (!old) return old.failure();
  auto next = HookConfig::install(view(*old), target, helper);
  if (!next) return next.failure();
  if (sameSettings(*old, *next, target)) return unchanged(target);

  auto written = write(target, *old, *next);
  if (!written) return written.failure();
  return Change{Action::installed, target.path,
                old->has_value() ? Bytes(backupPath(target)) : Bytes()};
}

Result<HookInstaller::Change> HookInstaller::remove(const Target& target) {
  auto old = readSettings(target);
  if (!old) return old.failure();
  if (!old->has_value()) return unchanged(target);
  auto next = HookConfig::remove(view(*old), target);
  if (!next) return next.failure();
  if (sameSettings(*old, *next, target)) return unchanged(target);

  Bytes bytes = std::move(*next);
  Action action = Action::removed;
  if (target.ownsFile && holdsNothing(*bytes, target)) {
    bytes.reset();
    action = Action::deleted;
  }
  auto written = write(target, *old, bytes);
  if (!written) return written.failure();
  return Change{action, target.path, backupPath(target)};
}

Result<void> HookInstaller::write(const Target& target, const Bytes& old, const Bytes& bytes) {
  // Another program (often the agent itself) may have rewritten the file since
  // it was read; writing now would drop its change.
  auto current = readSettings(target);
  if (!current) return current.failure();
  if (*current != old) {
    return failure(
        fmt::format("{} changed while Quibly was editing it, so Quibly left it as it "
                    "is. Try again.",
                    target.path));
  }
  if (old) {
    auto saved = saveBackup(target, *old);
    if (!saved) return saved;
  }
  if (!bytes) return deleteFile(target.path);
  auto folder = Files::createDirectories(Files::parentOf(target.path));
  if (!folder) return folder;
  return Files::writeAtomically(target.path, *bytes);
}

}  // namespace vobbo
