// The store's write path against its limit. One key written into a document of
// about 1 MB (encode, flush, rename, folder flush) is measured side by side
// with writing, flushing and renaming the same bytes through plain POSIX calls,
// which is as fast as a durable write of that document can be. A second pair
// measures a write with 0 and with 100 observers on a memory file system, so
// the difference over 100 is the cost of one observer.
//
// Run: VobboStoreBench --benchmark_repetitions=9 --benchmark_report_aggregates_only=true
//      --benchmark_enable_random_interleaving=true

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "Files.h"
#include "VobboStore.h"

namespace {

using vobbo::JSONObject;
using vobbo::JSONValue;
using vobbo::VobboStore;

class BenchDir {
 public:
  explicit BenchDir(const char* base) {
    std::string pattern = std::string(base) + "/vobbo-bench.XXXXXX";
    if (::mkdtemp(pattern.data())) path_ = pattern;
  }
  ~BenchDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

const char* diskBase() {
  const char* tmp = std::getenv("TMPDIR");
  return tmp && *tmp ? tmp : "/tmp";
}

// About 1 MB of tasks, as a busy person's store might hold.
JSONObject megabyteDocument() {
  JSONValue::Array tasks;
  for (int i = 0; tasks.size() < 4200; ++i) {
    tasks.push_back(
        JSONObject{{"id", "5f0c1d9e-8b1a-4c47-9e2b-" + std::to_string(100000000000 + i)},
                   {"title", "Follow up on the quarterly report draft #" + std::to_string(i)},
                   {"done", i % 3 == 0},
                   {"createdMs", 1.7e12 + i * 1000.0},
                   {"tags", JSONValue::Array{"work", "later"}}});
  }
  return JSONObject{{"tasks", std::move(tasks)}, {"theme", "dark"}, {"storeVersion", 2}};
}

void BM_StoreEncodeOneKeyInto1MB(benchmark::State& state) {
  BenchDir dir(diskBase());
  VobboStore store(dir.path());
  store.write(megabyteDocument());
  int64_t n = 0;
  for (auto _ : state) store.encode(++n, "counter");
  state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(store.file()));
}

void BM_PosixWriteFsyncRename1MB(benchmark::State& state) {
  BenchDir dir(diskBase());
  JSONObject document = megabyteDocument();
  document.set("counter", 1);
  const std::string bytes = JSONValue(document).encode(JSONValue::Format::pretty) + "\n";
  const std::string file = dir.path() + "/vobbo-store.json";
  const std::string temp = dir.path() + "/.vobbo-store.json.tmp";
  for (auto _ : state) {
    int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0 || ::write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()) ||
        ::fsync(fd) != 0 || ::close(fd) != 0 || ::rename(temp.c_str(), file.c_str()) != 0) {
      state.SkipWithError("write failed");
      break;
    }
    int folder = ::open(dir.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::fsync(folder);
    ::close(folder);
  }
  state.counters["bytes"] = static_cast<double>(bytes.size());
}

void BM_StoreWriteWithObservers(benchmark::State& state) {
  BenchDir dir("/dev/shm");
  VobboStore store(dir.path());
  store.write(JSONObject{{"theme", "dark"}, {"loginItem", true}});
  int64_t seen = 0;
  std::vector<vobbo::Subscription> subscriptions;
  for (int64_t i = 0; i < state.range(0); ++i) {
    subscriptions.push_back(store.onWrite([&seen](const JSONObject& d) { seen += d.size(); }));
  }
  int64_t n = 0;
  for (auto _ : state) store.encode(++n, "counter");
  benchmark::DoNotOptimize(seen);
}

BENCHMARK(BM_StoreEncodeOneKeyInto1MB)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PosixWriteFsyncRename1MB)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StoreWriteWithObservers)
    ->Arg(0)
    ->Arg(100)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
