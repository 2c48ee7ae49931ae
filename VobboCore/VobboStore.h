#pragma once
// The app's own state in one JSON document on disk ("vobbo-store.json" in the
// data folder). Every model that keeps anything owns one top-level key of the
// document and reads and writes it through a VobboStore; nothing else opens the
// file.
//
// The store never fails its callers. A file that is missing or cannot be read
// or parsed reads as the empty document; a write that cannot reach the disk
// keeps the document in memory as the truth and the next write saves it all.
// An unreadable file is never silently replaced: before the first write it is
// set aside as "vobbo-store.json.unreadable-<time>" so the person can recover it.
// Temporary files left by a save that a crash cut short are removed by the
// first save of the next run.
//
// Thread safety: every call may come from any thread. One lock guards the
// document and the observer table; observers run outside it, one write at a
// time, and may read or write the store again from their callback.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "JSONCodec.h"
#include "JSONValue.h"
#include "Platform.h"

namespace vobbo {

// Keeps a write observer registered. Cancelling it, or letting it go, removes
// the observer: once cancel() returns the callback is not running on another
// thread and is never called again. Outliving the store is harmless.
class Subscription {
 public:
  Subscription() = default;
  explicit Subscription(std::function<void()> cancelFn);
  Subscription(Subscription&& other) noexcept;
  Subscription& operator=(Subscription&& other) noexcept;
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;
  ~Subscription();

  void cancel();

 private:
  std::function<void()> cancelFn_;
};

class VobboStore {
 public:
  using Observer = std::function<void(const JSONObject& document)>;
  static constexpr std::string_view kFileName = "vobbo-store.json";

  // The one store of the app, made on first use for defaultDir() of the
  // process's environment.
  static VobboStore& shared();

  // VOBBO_DATA_DIR when set and not empty (a leading "~" is the home folder),
  // else the per-user Application Support folder plus "Vobbo Native".
  static std::string defaultDir(const Platform::Env& env);

  // A store for the document in `dir`. Nothing is read until the first access.
  explicit VobboStore(std::string dir);
  VobboStore(const VobboStore&) = delete;
  VobboStore& operator=(const VobboStore&) = delete;
  ~VobboStore();

  const std::string& dir() const;
  // dir() + "/vobbo-store.json".
  const std::string& file() const;

  // The whole document (loading the file on first access).
  JSONObject read();

  // The value under a top-level key, or nothing when it is missing.
  std::optional<JSONValue> value(std::string_view key);

  // The record under `key`, or nothing when the key is missing or its value does
  // not decode into T.
  template <class T>
  std::optional<T> decode(std::string_view key) {
    std::optional<JSONValue> json = value(key);
    if (!json) return std::nullopt;
    return fromJSON<T>(*json);
  }

  // Stores the record under `key` (read-modify-write under the lock), saves the
  // document and tells the observers.
  template <class T>
  void encode(const T& record, std::string_view key) {
    JSONValue json = toJSON(record);
    update([&](JSONObject& document) {
      document.set(key, std::move(json));
      return true;
    });
  }

  // The common case of a boolean setting: nothing when missing or not a boolean.
  std::optional<bool> boolAt(std::string_view key);
  void setBool(std::string_view key, bool value);

  // Replaces the whole document, saves it and tells the observers.
  void write(JSONObject document);

  // Changes the document under the lock. `change` returns whether it changed
  // anything; only then is the document saved and the observers told. Returns
  // what `change` returned. `change` must not call the store.
  bool update(const std::function<bool(JSONObject& document)>& change);

  // Calls `observer` with the whole new document after each write, until the
  // subscription is cancelled. When several threads write at once an observer
  // may miss an intermediate document, but it never sees an older one after a
  // newer one, and the last document it sees is the latest.
  [[nodiscard]] Subscription onWrite(Observer observer);

  // Forgets the loaded document, so the next access reads the file again (after
  // another process or a move changed it).
  void reload();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace vobbo
