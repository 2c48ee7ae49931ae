// How the store keeps the one document safe while many threads use it.
//
// Three locks, always taken in this order and never the other way round:
//   notifyLock (recursive) -> saveLock -> lock.
// `lock` guards the document, the write counter, the observer table and what
// loading found; it is held only for short memory work. Saving runs under
// `saveLock`: it takes a snapshot of the latest document under `lock`, then
// encodes and writes it (flush, rename, folder flush) with `lock` released, so
// readers and writers never wait for the disk. Saves coalesce: each write
// knows its number, and a writer whose document is already on disk (because a
// later save included its change) skips the disk altogether. The file always
// ends with the latest document.
//
// Observers run under `notifyLock`, one document at a time, and are handed the
// latest document when their turn comes; writes that land meanwhile are carried
// by that document and need no call of their own. `notifyLock` is recursive so a
// callback may write the store again on the same thread; cancelling a
// subscription takes it too, which is what guarantees that a cancelled callback
// is not running anywhere once cancel() returns.
//
// Snapshots are shared, not copied: the document lives in a shared_ptr, and a
// write copies it first only while a snapshot is still out (copy-on-write).
// With no save or callback in flight a write changes the document in place,
// which matters for large documents.

#include "VobboStore.h"

#include <dirent.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "Clock.h"
#include "Files.h"

namespace vobbo {

namespace {

struct ObserverEntry {
  VobboStore::Observer callback;
  bool live = true;  // guarded by notifyLock
};

// A store file found at load that could not be read or parsed. It is set aside
// before the first save replaces it.
struct Unreadable {
  std::optional<std::string> bytes;  // nothing when the file could not be read at all
};

std::string utcStamp(double ms) {
  time_t seconds = static_cast<time_t>(ms / 1000);
  struct tm t {};
  gmtime_r(&seconds, &t);
  return fmt::format("{:04d}{:02d}{:02d}T{:02d}{:02d}{:02d}Z", t.tm_year + 1900, t.tm_mon + 1,
                     t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
}

// Temporary files of saves that never finished (the process died between
// writing and renaming) are named ".vobbo-store.json.XXXXXX". Any older than a
// minute belongs to no save still running, and is removed.
void removeLeftoverTemporaries(const std::string& dir) {
  const std::string prefix = "." + std::string(VobboStore::kFileName) + ".";
  DIR* folder = ::opendir(dir.c_str());
  if (!folder) return;
  const time_t cutoff = ::time(nullptr) - 60;
  while (const dirent* entry = ::readdir(folder)) {
    std::string_view name = entry->d_name;
    if (name.size() != prefix.size() + 6 || !name.starts_with(prefix)) continue;
    const std::string path = dir + "/" + std::string(name);
    struct stat st;
    if (::lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && st.st_mtime < cutoff) {
      ::unlink(path.c_str());
    }
  }
  ::closedir(folder);
}

bool isBlank(std::string_view text) {
  return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

}  // namespace

struct VobboStore::State {
  std::string dir;
  std::string file;

  std::mutex lock;
  std::shared_ptr<JSONValue> document;  // an object; null until loaded
  uint64_t writes = 0;
  std::map<uint64_t, std::shared_ptr<ObserverEntry>> observers;
  uint64_t nextSubscription = 1;
  std::shared_ptr<const Unreadable> unreadable;  // found by loading, not yet set aside

  std::mutex saveLock;
  uint64_t savedWrite = 0;
  bool swept = false;  // leftovers of earlier runs removed

  std::recursive_mutex notifyLock;
  uint64_t notifiedWrite = 0;

  // Requires: lock held.
  JSONValue& loaded();
  // Requires: saveLock held.
  bool setAside(const Unreadable& found);
  void save(uint64_t write);
  void notify(uint64_t write);
  void cancel(uint64_t id);
};

JSONValue& VobboStore::State::loaded() {
  if (document) return *document;
  JSONValue loadedDocument{JSONObject{}};
  unreadable.reset();
  auto text = Files::read(file);
  if (!text.ok()) {
    unreadable = std::make_shared<Unreadable>();
  } else if (text->has_value() && !isBlank(**text)) {
    auto parsed = JSONValue::parse(**text);
    if (parsed.ok() && parsed->object()) {
      loadedDocument = std::move(*parsed);
    } else {
      unreadable = std::make_shared<Unreadable>(Unreadable{std::move(**text)});
    }
  }
  document = std::make_shared<JSONValue>(std::move(loadedDocument));
  return *document;
}

// Keeps the unreadable file under a new name beside the store file.
bool VobboStore::State::setAside(const Unreadable& found) {
  const std::string base = file + ".unreadable-" + utcStamp(Clock::now());
  std::string aside = base;
  for (int n = 2; Files::exists(aside); ++n) aside = base + "-" + std::to_string(n);
  if (found.bytes) {
    return Files::writeAtomically(aside, *found.bytes, 0600, Files::Links::replace).ok();
  }
  return std::rename(file.c_str(), aside.c_str()) == 0 || !Files::exists(file);
}

void VobboStore::State::save(uint64_t write) {
  std::lock_guard<std::mutex> saveGuard(saveLock);
  if (write <= savedWrite) return;  // a later save already holds this change
  uint64_t latest = 0;
  std::shared_ptr<const JSONValue> snapshot;
  std::shared_ptr<const Unreadable> found;
  {
    std::lock_guard<std::mutex> guard(lock);
    if (!document) return;  // reloaded since: the file is the truth again
    latest = writes;
    snapshot = document;
    found = unreadable;
  }
  std::string bytes;
  snapshot->encodeTo(bytes, JSONValue::Format::pretty);
  bytes += '\n';
  snapshot.reset();  // let the next write change the document in place

  if (found) {
    if (!setAside(*found)) return;
    std::lock_guard<std::mutex> guard(lock);
    if (unreadable == found) unreadable.reset();
  }
  if (!Files::createDirectories(dir).ok()) return;
  if (!std::exchange(swept, true)) removeLeftoverTemporaries(dir);
  if (!Files::writeAtomically(file, bytes).ok()) return;
  savedWrite = latest;
}

void VobboStore::State::notify(uint64_t write) {
  std::lock_guard<std::recursive_mutex> notifyGuard(notifyLock);
  if (write <= notifiedWrite) return;  // a later document already went out with this change
  uint64_t latest = 0;
  std::shared_ptr<const JSONValue> snapshot;
  std::vector<std::shared_ptr<ObserverEntry>> entries;
  {
    std::lock_guard<std::mutex> guard(lock);
    if (!document) return;
    latest = writes;
    for (const auto& [id, entry] : observers) entries.push_back(entry);
    if (!entries.empty()) snapshot = document;
  }
  notifiedWrite = latest;
  for (const auto& entry : entries) {
    // A callback wrote again and the newer document has gone out already.
    if (notifiedWrite != latest) return;
    if (entry->live) entry->callback(*snapshot->object());
  }
}

void VobboStore::State::cancel(uint64_t id) {
  std::lock_guard<std::recursive_mutex> notifyGuard(notifyLock);
  std::lock_guard<std::mutex> guard(lock);
  auto found = observers.find(id);
  if (found == observers.end()) return;
  found->second->live = false;
  observers.erase(found);
}

Subscription::Subscription(std::function<void()> cancelFn) : cancelFn_(std::move(cancelFn)) {}

Subscription::Subscription(Subscription&& other) noexcept
    : cancelFn_(std::exchange(other.cancelFn_, nullptr)) {}

Subscription& Subscription::operator=(Subscription&& other) noexcept {
  if (this != &other) {
    cancel();
    cancelFn_ = std::exchange(other.cancelFn_, nullptr);
  }
  return *this;
}

Subscription::~Subscription() { cancel(); }

void Subscription::cancel() {
  if (auto fn = std::exchange(cancelFn_, nullptr)) fn();
}

VobboStore& VobboStore::shared() {
  static VobboStore store(defaultDir(Platform::processEnv()));
  return store;
}

std::string VobboStore::defaultDir(const Platform::Env& env) {
  if (auto chosen = env("VOBBO_DATA_DIR"); chosen && !chosen->empty()) {
    if ((*chosen)[0] == '~' && (chosen->size() == 1 || (*chosen)[1] == '/')) {
      return Platform::homeDirectory(env) + chosen->substr(1);
    }
    return *chosen;
  }
  return Platform::applicationSupportDirectory(Platform::homeDirectory(env), env) + "/Vobbo Native";
}

VobboStore::VobboStore(std::string dir) : state_(std::make_shared<State>()) {
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  state_->file = dir + "/" + std::string(kFileName);
  state_->dir = std::move(dir);
}

VobboStore::~VobboStore() = default;

const std::string& VobboStore::dir() const { return state_->dir; }
const std::string& VobboStore::file() const { return state_->file; }

JSONObject VobboStore::read() {
  std::lock_guard<std::mutex> guard(state_->lock);
  return *state_->loaded().object();
}

std::optional<JSONValue> VobboStore::value(std::string_view key) {
  std::lock_guard<std::mutex> guard(state_->lock);
  const JSONValue* found = state_->loaded().get(key);
  if (!found) return std::nullopt;
  return *found;
}

std::optional<bool> VobboStore::boolAt(std::string_view key) {
  std::lock_guard<std::mutex> guard(state_->lock);
  return state_->loaded().boolAt(key);
}

void VobboStore::setBool(std::string_view key, bool value) { encode(value, key); }

void VobboStore::write(JSONObject document) {
  State& s = *state_;
  uint64_t write = 0;
  {
    std::lock_guard<std::mutex> guard(s.lock);
    s.loaded();  // a damaged file must be found, to be set aside before it is replaced
    s.document = std::make_shared<JSONValue>(std::move(document));
    write = ++s.writes;
  }
  s.save(write);
  s.notify(write);
}

bool VobboStore::update(const std::function<bool(JSONObject& document)>& change) {
  State& s = *state_;
  uint64_t write = 0;
  {
    std::lock_guard<std::mutex> guard(s.lock);
    s.loaded();
    // An observer may still hold the last snapshot: change a copy, not it.
    if (s.document.use_count() > 1) s.document = std::make_shared<JSONValue>(*s.document);
    if (!change(*s.document->object())) return false;
    write = ++s.writes;
  }
  s.save(write);
  s.notify(write);
  return true;
}

Subscription VobboStore::onWrite(Observer observer) {
  uint64_t id = 0;
  {
    std::lock_guard<std::mutex> guard(state_->lock);
    id = state_->nextSubscription++;
    state_->observers.emplace(id,
                              std::make_shared<ObserverEntry>(ObserverEntry{std::move(observer)}));
  }
  std::weak_ptr<State> weak = state_;
  return Subscription([weak, id] {
    if (auto state = weak.lock()) state->cancel(id);
  });
}

void VobboStore::reload() {
  std::lock_guard<std::mutex> guard(state_->lock);
  state_->document.reset();
}

}  // namespace vobbo
