// Parsing typed tasks as the entry field does on every keystroke. ParseAll runs
// the whole list of typed tasks per iteration; ParseOne/<n> times each task on
// its own so the per-task median can be taken. Both wall and CPU time are
// reported: on a shared machine CPU time is the steadier of the two. bench/task-parse.sh runs this
// and chrono-node on the same phrases in one run and prints the comparison.
#include <benchmark/benchmark.h>
#include <date/tz.h>

#include <fstream>
#include <string>
#include <vector>

#include "Clock.h"
#include "TaskParse.h"

namespace {

std::vector<std::string> typedTasks() {
  std::ifstream in(QUIBLY_SOURCE_DIR "/bench/data/typed-tasks.txt");
  std::vector<std::string> tasks;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty()) tasks.push_back(line);
  }
  return tasks;
}

}  // namespace

int main(int argc, char** argv) {
  static const std::vector<std::string> kTasks = typedTasks();
  static const vobbo::TaskParse::Now kNow{
      vobbo::TaskDue::fromMs(*vobbo::Clock::parseISO("2026-11-21T10:00:00Z")),
      *date::locate_zone("Europe/London")};
  benchmark::RegisterBenchmark("ParseAll", [](benchmark::State& state) {
    for (auto _ : state) {
      for (const std::string& task : kTasks) {
        benchmark::DoNotOptimize(vobbo::TaskParse::parse(task, kNow));
      }
    }
  });
  // Each rule's pattern scanned over the whole list, to see where the time goes.
  for (size_t r = 0; r < vobbo::TaskParse::rules().size(); ++r) {
    benchmark::RegisterBenchmark(("ScanRule/" + std::to_string(r + 1)).c_str(),
                                 [r](benchmark::State& state) {
                                   const vobbo::JSRegex& re = vobbo::TaskParse::rules()[r].re;
                                   for (auto _ : state) {
                                     for (const std::string& task : kTasks) {
                                       benchmark::DoNotOptimize(re.allMatches(task));
                                     }
                                   }
                                 });
  }
  for (size_t i = 0; i < kTasks.size(); ++i) {
    benchmark::RegisterBenchmark(
        ("ParseOne/" + std::to_string(i)).c_str(), [i](benchmark::State& state) {
          for (auto _ : state) {
            benchmark::DoNotOptimize(vobbo::TaskParse::parse(kTasks[i], kNow));
          }
        });
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
