// Building our tree from JSON text, against simdjson parsing the same text
// alone (the limit). The documents are generated: records shaped like the lines
// of a coding agent's transcript (ids, timestamps, nested message content,
// long tool output), 4 MB (the size of a busy store document) and 64 MB.
#include <benchmark/benchmark.h>
#include <simdjson.h>

#include <map>
#include <random>
#include <string>

#include "JSONValue.h"

namespace {

std::string makeDocument(size_t bytes) {
  {
    std::mt19937 random(42);
    std::string out = "[";
    for (int i = 0; out.size() < bytes; ++i) {
      if (i) out += ',';
      std::string output(200 + random() % 4000, 'x');
      for (size_t k = 0; k < output.size(); k += 60) output[k] = ' ';
      out +=
          R"({"type":"assistant","uuid":"9f0c2a1e-)" + std::to_string(i) +
          R"(","timestamp":"2026-11-21T15:11:16.123Z","sessionId":"d6d05332-27e6-47e1-b20a-19fcb9d9d762",)"
          R"("message":{"model":"claude-opus-4","role":"assistant","usage":{"input_tokens":)" +
          std::to_string(random() % 100000) + R"(,"output_tokens":)" +
          std::to_string(random() % 5000) +
          R"(,"cache_read_input_tokens":12345},"content":[{"type":"text","text":"Let me look at the build."},)"
          R"({"type":"tool_use","id":"toolu_01","name":"Bash","input":{"command":"ls -la /work/src","description":"List files"}}]},)"
          R"("toolUseResult":{"stdout":")" +
          output + R"(","stderr":"","interrupted":false,"ratio":0.25}})";
    }
    out += "]";
    return out;
  }
}

const std::string& document(int64_t megabytes) {
  static std::map<int64_t, std::string> docs;
  auto& doc = docs[megabytes];
  if (doc.empty()) doc = makeDocument(static_cast<size_t>(megabytes) << 20);
  return doc;
}

void simdjsonAlone(benchmark::State& state) {
  simdjson::dom::parser parser;
  const std::string& doc = document(state.range(0));
  for (auto _ : state) {
    simdjson::dom::element root;
    if (parser.parse(doc.data(), doc.size(), true).get(root)) state.SkipWithError("parse failed");
    benchmark::DoNotOptimize(root);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.size()));
}

void jsonValueTree(benchmark::State& state) {
  const std::string& doc = document(state.range(0));
  for (auto _ : state) {
    auto value = vobbo::JSONValue::parse(doc);
    if (!value) state.SkipWithError("parse failed");
    benchmark::DoNotOptimize(value);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.size()));
}

BENCHMARK(simdjsonAlone)
    ->Arg(4)
    ->Arg(64)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(9)
    ->ReportAggregatesOnly(true);
BENCHMARK(jsonValueTree)
    ->Arg(4)
    ->Arg(64)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(9)
    ->ReportAggregatesOnly(true);

}  // namespace

BENCHMARK_MAIN();
