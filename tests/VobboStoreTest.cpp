#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <random>
#include <thread>

#include "Files.h"
#include "TestSupport.h"
#include "VobboStore.h"

namespace vobbo {

struct Reminder {
  std::string title;
  int64_t dueMs = 0;
  std::optional<std::string> list;
  bool operator==(const Reminder&) const = default;
};

template <>
struct JSONFields<Reminder> {
  static constexpr auto list =
      std::tuple{JSONField{"title", &Reminder::title}, JSONField{"dueMs", &Reminder::dueMs},
                 JSONField{"list", &Reminder::list}};
};

namespace {

using test::TempDir;

std::vector<std::string> filesIn(const std::string& dir) {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(dir, ec)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

JSONObject parseObject(const std::string& text) {
  auto parsed = JSONValue::parse(text);
  EXPECT_TRUE(parsed.ok() && parsed->object()) << text;
  return parsed.ok() && parsed->object() ? *parsed->object() : JSONObject{};
}

TEST(VobboStoreTest, MissingFileReadsEmptyAndFirstWriteCreatesFoldersAndSortedPrettyFile) {
  TempDir tmp;
  VobboStore store(tmp.file("a/b"));
  EXPECT_TRUE(store.read().empty());
  EXPECT_FALSE(store.boolAt("loginItem").has_value());
  EXPECT_FALSE(Files::exists(tmp.file("a")));

  store.write(JSONObject{{"zeta", 1}, {"alpha", JSONValue::Array{"x/y"}}});
  EXPECT_EQ(test::readFile(store.file()),
            "{\n  \"alpha\": [\n    \"x/y\"\n  ],\n  \"zeta\": 1\n}\n");
  EXPECT_EQ(filesIn(tmp.file("a/b")), std::vector<std::string>{"vobbo-store.json"});
}

TEST(VobboStoreTest, UnreadableFileReadsEmptyAndIsSetAsideBeforeTheFirstWrite) {
  const std::string_view cases[] = {"{\"tasks\": [1, 2", "[1, 2]", "\"text\"", "{\"a\": \"\xff\"}"};
  for (std::string_view bytes : cases) {
    SCOPED_TRACE(bytes);
    TempDir tmp;
    VobboStore store(tmp.path());
    test::writeFile(store.file(), bytes);
    EXPECT_TRUE(store.read().empty());
    EXPECT_EQ(test::readFile(store.file()), bytes) << "reading never changes the file";

    store.setBool("loginItem", true);
    store.setBool("loginItem", false);  // set aside once, not on every write
    std::vector<std::string> names = filesIn(tmp.path());
    ASSERT_EQ(names.size(), 2u);
    EXPECT_TRUE(names[1].starts_with("vobbo-store.json.unreadable-")) << names[1];
    EXPECT_EQ(test::readFile(tmp.file(names[1])), bytes);
    EXPECT_EQ(parseObject(test::readFile(store.file())), (JSONObject{{"loginItem", false}}));
  }
}

TEST(VobboStoreTest, FolderInPlaceOfTheFileIsMovedAsideWithItsContents) {
  TempDir tmp;
  VobboStore store(tmp.path());
  ASSERT_OK(Files::createDirectories(store.file()));
  test::writeFile(store.file() + "/keep.txt", "mine");
  store.setBool("ready", true);
  EXPECT_EQ(store.boolAt("ready"), true);
  std::vector<std::string> names = filesIn(tmp.path());
  ASSERT_EQ(names.size(), 2u);
  EXPECT_EQ(test::readFile(tmp.file(names[1]) + "/keep.txt"), "mine");
  EXPECT_EQ(parseObject(test::readFile(store.file())), (JSONObject{{"ready", true}}));
}

TEST(VobboStoreTest, FirstSaveRemovesOnlyStaleTemporariesOfUnfinishedSaves) {
  TempDir tmp;
  for (const char* name :
       {".vobbo-store.json.Ab12Cd", ".vobbo-store.json.Fresh1", ".notes.Ab12Cd"}) {
    test::writeFile(tmp.file(name), "half a document");
  }
  const auto hourAgo = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
  std::filesystem::last_write_time(tmp.file(".vobbo-store.json.Ab12Cd"), hourAgo);
  std::filesystem::last_write_time(tmp.file(".notes.Ab12Cd"), hourAgo);
  VobboStore(tmp.path()).setBool("ready", true);
  EXPECT_EQ(
      filesIn(tmp.path()),
      (std::vector<std::string>{".notes.Ab12Cd", ".vobbo-store.json.Fresh1", "vobbo-store.json"}));
}

TEST(VobboStoreTest, TypedRecordsRoundTripAndBadValuesReadAsAbsent) {
  TempDir tmp;
  VobboStore store(tmp.path());
  const Reminder reminder{"Call the bank", 1'700'000'000'000, "Home"};
  store.encode(reminder, "reminder");
  store.encode(std::vector<Reminder>{reminder, {"Water plants", 5, std::nullopt}}, "all");
  store.encode(JSONValue(JSONObject{{"title", 3}}), "broken");
  store.encode(std::string("yes"), "flag");

  VobboStore fresh(tmp.path());
  EXPECT_EQ(fresh.decode<Reminder>("reminder"), reminder);
  EXPECT_EQ(fresh.decode<std::vector<Reminder>>("all")->at(1).title, "Water plants");
  EXPECT_FALSE(fresh.decode<Reminder>("broken").has_value());
  EXPECT_FALSE(fresh.decode<Reminder>("missing").has_value());
  EXPECT_FALSE(fresh.boolAt("flag").has_value());
}

TEST(VobboStoreTest, ReloadSeesWhatAnotherWriterSaved) {
  TempDir tmp;
  VobboStore mine(tmp.path());
  VobboStore theirs(tmp.path());
  mine.setBool("a", true);
  theirs.setBool("b", true);
  EXPECT_FALSE(mine.boolAt("b").has_value()) << "loaded once, kept in memory";
  mine.reload();
  EXPECT_EQ(mine.boolAt("b"), true);
}

TEST(VobboStoreTest, DefaultDirFollowsVobboDataDirThenApplicationSupport) {
  const struct {
    std::optional<std::string> dataDir;
    std::string expected;
  } cases[] = {
      {"~/Data", "/home/ann/Data"}, {"~", "/home/ann"},        {"/srv/quibly", "/srv/quibly"},
      {"~ann/x", "~ann/x"},         {"", "/xdg/Vobbo Native"}, {std::nullopt, "/xdg/Vobbo Native"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.dataDir.value_or("(unset)"));
    Platform::Env env = [&](std::string_view name) -> std::optional<std::string> {
      if (name == "HOME") return "/home/ann";
      if (name == "XDG_DATA_HOME") return "/xdg";
      if (name == "VOBBO_DATA_DIR") return c.dataDir;
      return std::nullopt;
    };
    std::string expected = c.expected;
#if defined(__APPLE__)
    if (!c.dataDir || c.dataDir->empty())
      expected = "/home/ann/Library/Application Support/Vobbo Native";
#endif
    EXPECT_EQ(VobboStore::defaultDir(env), expected);
  }
}

TEST(VobboStoreTest, ObserversGetEachNewDocumentUntilCancelledOrDestroyed) {
  TempDir tmp;
  VobboStore store(tmp.path());
  std::vector<JSONObject> seenA, seenB;
  Subscription a = store.onWrite([&](const JSONObject& d) { seenA.push_back(d); });
  {
    Subscription b = store.onWrite([&](const JSONObject& d) { seenB.push_back(d); });
    store.setBool("one", true);
  }
  store.setBool("two", true);
  a.cancel();
  store.setBool("three", true);
  EXPECT_EQ(seenB, (std::vector<JSONObject>{{{"one", true}}}));
  EXPECT_EQ(seenA, (std::vector<JSONObject>{{{"one", true}}, {{"one", true}, {"two", true}}}));
}

TEST(VobboStoreTest, ObserverMayReadAndWriteTheStoreFromItsCallback) {
  TempDir tmp;
  VobboStore store(tmp.path());
  int calls = 0;
  Subscription echo = store.onWrite([&](const JSONObject& document) {
    ++calls;
    if (!document.contains("echo")) store.encode(store.read().size(), "echo");
  });
  store.setBool("ping", true);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(parseObject(test::readFile(store.file())), (JSONObject{{"echo", 1}, {"ping", true}}));
}

TEST(VobboStoreTest, EightThreadsWritingDistinctKeysLoseNothing) {
  // A folder in memory where the machine has one: this test is about the locks,
  // and thousands of flushes to a real disk would only make it slow.
  TempDir tmp(Files::isDirectory("/dev/shm") ? "/dev/shm" : "");
  ASSERT_FALSE(tmp.path().empty());
  constexpr int kThreads = 8, kKeys = 1000;
  VobboStore store(tmp.path());
  // Callbacks never overlap, so plain variables do; documents only grow here,
  // so an older one arriving after a newer one shows as a shrink.
  int calls = 0;
  size_t lastSize = 0, shrinks = 0;
  Subscription watcher = store.onWrite([&](const JSONObject& document) {
    ++calls;
    if (document.size() < lastSize) ++shrinks;
    lastSize = document.size();
  });
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&store, t] {
      for (int k = 0; k < kKeys; ++k)
        store.encode(k, "t" + std::to_string(t) + "k" + std::to_string(k));
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(store.read().size(), size_t{kThreads * kKeys});
  EXPECT_EQ(parseObject(test::readFile(store.file())).size(), size_t{kThreads * kKeys});
  EXPECT_EQ(shrinks, 0u);
  EXPECT_EQ(lastSize, size_t{kThreads * kKeys}) << "the last document seen is the latest";
  EXPECT_LE(calls, kThreads * kKeys);
}

TEST(VobboStoreTest, SubscriptionDestroyedOnAnotherThreadStopsItsCallbackForGood) {
  TempDir tmp;
  VobboStore store(tmp.path());
  auto calls = std::make_shared<std::atomic<int>>(0);
  auto subscription = std::make_unique<Subscription>(store.onWrite([calls](const JSONObject&) {
    ++*calls;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }));
  std::atomic<bool> stop{false};
  std::thread writer([&] {
    for (int i = 0; !stop; ++i) store.encode(i, "n");
  });
  while (calls->load() < 5) std::this_thread::yield();
  std::thread([&] { subscription.reset(); }).join();
  const int afterCancel = calls->load();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  stop = true;
  writer.join();
  EXPECT_EQ(calls->load(), afterCancel);
}

TEST(VobboStoreTest, SubscriptionMayOutliveItsStore) {
  Subscription kept;
  {
    TempDir tmp;
    VobboStore store(tmp.path());
    kept = store.onWrite([](const JSONObject&) {});
  }
  kept.cancel();
}

// Writes fail for real while `blocked` holds; the store keeps working from memory.
void expectWritesRecoverAfter(VobboStore& store, const std::function<void()>& block,
                              const std::function<void()>& unblock) {
  store.setBool("before", true);
  block();
  store.setBool("during", true);
  EXPECT_EQ(store.boolAt("during"), true) << "memory stays the truth";
  EXPECT_FALSE(VobboStore(store.dir()).read().contains("during")) << "the write did fail";
  unblock();
  store.setBool("after", true);
  VobboStore fresh(store.dir());
  EXPECT_EQ(fresh.read(), (JSONObject{{"after", true}, {"before", true}, {"during", true}}));
}

TEST(VobboStoreTest, WriteToABlockedFolderFailsQuietlyAndTheNextWriteSavesEverything) {
  TempDir tmp;
  VobboStore store(tmp.file("data"));
  expectWritesRecoverAfter(
      store,
      [&] {
        std::filesystem::rename(tmp.file("data"), tmp.file("moved"));
        test::writeFile(tmp.file("data"), "a file where the folder was");
      },
      [&] {
        std::filesystem::remove(tmp.file("data"));
        std::filesystem::rename(tmp.file("moved"), tmp.file("data"));
      });
}

TEST(VobboStoreTest, WriteToAFullDiskFailsQuietlyAndTheNextWriteSavesEverything) {
  TempDir tmp;
  VobboStore store(tmp.path());
  rlimit saved{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &saved), 0);
  auto* previous = ::signal(SIGXFSZ, SIG_IGN);
  expectWritesRecoverAfter(
      store,
      [&] {
        rlimit tiny = saved;
        tiny.rlim_cur = 8;  // any write past 8 bytes fails with EFBIG, as on a full disk
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tiny), 0);
      },
      [&] { ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &saved), 0); });
  ::signal(SIGXFSZ, previous);
}

TEST(VobboStoreTest, WriteToAReadOnlyFolderFailsQuietlyAndTheNextWriteSavesEverything) {
  TempDir tmp;
  if (!test::ReadOnlyFolder(tmp.path()).ok()) GTEST_SKIP() << "cannot make a folder read-only here";
  VobboStore store(tmp.path());
  std::optional<test::ReadOnlyFolder> locked;
  expectWritesRecoverAfter(
      store, [&] { ASSERT_TRUE(locked.emplace(tmp.path()).ok()); }, [&] { locked.reset(); });
}

// A child saves documents whose parts agree with each other; it is killed at a
// random moment. Whatever it was doing, the file must hold one whole document.
TEST(VobboStoreTest, KilledWriterNeverLeavesAHalfWrittenFile) {
  TempDir tmp;
  std::mt19937 random(20261121);
  std::uniform_int_distribution<int> delayUs(0, 15000);
  int64_t lastSeen = -1;
  for (int round = 0; round < 200; ++round) {
    pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      VobboStore store(tmp.path());
      int64_t n = store.decode<int64_t>("n").value_or(0);
      for (;;) {
        ++n;
        store.write(JSONObject{{"n", n}, {"copy", std::string(4096 + n % 512, 'a' + n % 26)}});
      }
    }
    std::this_thread::sleep_for(std::chrono::microseconds(delayUs(random)));
    ::kill(pid, SIGKILL);
    ASSERT_EQ(::waitpid(pid, nullptr, 0), pid);

    if (!Files::exists(tmp.file("vobbo-store.json"))) continue;  // killed before its first save
    JSONObject document = parseObject(test::readFile(tmp.file("vobbo-store.json")));
    ASSERT_EQ(document.size(), 2u) << "round " << round;
    const int64_t n = static_cast<int64_t>(*document.find("n")->number());
    EXPECT_EQ(*document.find("copy")->string(), std::string(4096 + n % 512, 'a' + n % 26));
    EXPECT_GE(n, lastSeen) << "a saved document never goes back";
    lastSeen = n;
  }
  EXPECT_GT(lastSeen, 0);
}

}  // namespace
}  // namespace vobbo
