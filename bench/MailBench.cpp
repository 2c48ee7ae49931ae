// Parsing and triaging a folder of .eml files, one thread, files already in
// memory so the disk is not measured. The folder comes from QUIBLY_MAIL_CORPUS;
// bench/mail_bench.sh generates it and runs the Python and Node baselines on
// the same files in the same run.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Eml.h"
#include "Triage.h"

namespace {

struct Corpus {
  std::vector<std::string> files;
  int64_t bytes = 0;
};

const Corpus& corpus() {
  static const Corpus loaded = [] {
    Corpus c;
    const char* folder = std::getenv("QUIBLY_MAIL_CORPUS");
    if (!folder) return c;
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (entry.path().extension() == ".eml") paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    for (const auto& path : paths) {
      std::ifstream in(path, std::ios::binary);
      c.files.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
      c.bytes += static_cast<int64_t>(c.files.back().size());
    }
    return c;
  }();
  return loaded;
}

bool haveCorpus(benchmark::State& state) {
  if (!corpus().files.empty()) return true;
  state.SkipWithError(
      "Set QUIBLY_MAIL_CORPUS to a folder of .eml files (bench/mail_bench.sh makes one).");
  return false;
}

void BM_EmlParse(benchmark::State& state) {
  if (!haveCorpus(state)) return;
  for (auto _ : state) {
    for (const std::string& file : corpus().files) {
      benchmark::DoNotOptimize(vobbo::Eml::message(file, "bench"));
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(corpus().files.size()));
  state.SetBytesProcessed(state.iterations() * corpus().bytes);
}

void BM_EmlParseAndTriage(benchmark::State& state) {
  if (!haveCorpus(state)) return;
  for (auto _ : state) {
    std::vector<vobbo::MailMessage> messages;
    messages.reserve(corpus().files.size());
    for (const std::string& file : corpus().files)
      messages.push_back(vobbo::Eml::message(file, "bench"));
    benchmark::DoNotOptimize(vobbo::Triage::triageByRules(std::move(messages)));
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(corpus().files.size()));
  state.SetBytesProcessed(state.iterations() * corpus().bytes);
}

BENCHMARK(BM_EmlParse)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_EmlParseAndTriage)->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace

BENCHMARK_MAIN();
