// Transcript folding throughput, side by side with its limit, and the cost of
// a refresh after one appended line on a small and on a 1 GB transcript.
//
// The transcript is generated from the real Claude Code records in tests/data:
// turns of a prompt, attachments, replies, tool calls and their results, with
// most bytes in tool output (written twice, as Claude Code does: in the message
// and in toolUseResult) and in large file-history snapshots. It is written once
// to $TMPDIR and reused.
//
//   Fold/claude          TranscriptIndex::foldFile on the file (pieces read from disk)
//   Limit/simdjsonDom    the same pieces and lines, each parsed by simdjson's DOM
//                        parser and its "type" field read: nothing can fold faster
//   Refresh/...          one line appended, then TranscriptIndex::refresh
//
// `transcript_bench --generate PATH [MB]` only writes a transcript (the script
// bench/transcript_vs_ccusage.sh uses it for the comparison with ccusage).

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <simdjson.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "JSONValue.h"
#include "TranscriptIndex.h"

namespace {

using vobbo::JSONObject;
using vobbo::JSONValue;

std::string sampleLine(int index) {
  std::ifstream in(std::string(QUIBLY_SOURCE_DIR) +
                   "/tests/data/transcripts/claude/"
                   "-home-dev-scratch-claude-runs-bash-tui-allow-20261121-151236-work/"
                   "d6d05332-27e6-47e1-b20a-19fcb9d9d762.jsonl");
  std::string line;
  for (int i = 0; i <= index && std::getline(in, line); ++i) {
  }
  return line;
}

// Tool output: words, paths, quotes, backslashes, tabs and a little non-ASCII.
std::string toolOutput(std::mt19937& random, size_t bytes) {
  static const char* const kWords[] = {"src/main.cpp:42:",
                                       "error:",
                                       "warning:",
                                       "\"quoted\"",
                                       "path\\to\\file",
                                       "été",
                                       "ok",
                                       "PASS",
                                       "FAIL",
                                       "\t",
                                       "--verbose",
                                       "0x7ffd5e",
                                       "✓",
                                       "build",
                                       "test",
                                       "the"};
  std::string out;
  out.reserve(bytes + 32);
  while (out.size() < bytes) {
    out += kWords[random() % std::size(kWords)];
    out += random() % 9 == 0 ? '\n' : ' ';
  }
  return out;
}

class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {
    prompt_ = *JSONValue::parse(sampleLine(6));
    reply_ = *JSONValue::parse(sampleLine(3));
    call_ = *JSONValue::parse(sampleLine(4));
    result_ = *JSONValue::parse(sampleLine(10));
    end_ = *JSONValue::parse(sampleLine(12));
    attachment_ = *JSONValue::parse(sampleLine(8));
  }

  // Appends one turn of records to `out`.
  void turn(std::string& out) {
    add(out, prompt_);
    add(out, attachment_);
    add(out, reply_);
    add(out, call_);
    JSONValue result = result_;
    std::string output = toolOutput(random_, 2'000 + random_() % 60'000);
    (*(*(*result.object())["message"].object())["content"].array())[0].object()->set("content",
                                                                                     output);
    result.object()->find("toolUseResult")->object()->set("stdout", output);
    add(out, result);
    add(out, reply_);
    add(out, end_);
    if (++turns_ % 8 == 0) snapshot(out);
  }

 private:
  void add(std::string& out, JSONValue record) {
    JSONObject& o = *record.object();
    if (o.contains("uuid")) o.set("uuid", std::to_string(++serial_) + "-bench");
    if (o.contains("timestamp")) {
      char stamp[40];
      long ms = 1'790'000'000'000L / 1000 + serial_;
      std::snprintf(stamp, sizeof stamp, "2026-09-%02ldT%02ld:%02ld:%02ld.000Z",
                    1 + (ms / 86400) % 28, (ms / 3600) % 24, (ms / 60) % 60, ms % 60);
      o.set("timestamp", std::string(stamp));
    }
    record.encodeTo(out);
    out += '\n';
  }

  // A file-history snapshot tracking many files: one of the largest records.
  void snapshot(std::string& out) {
    JSONObject backups;
    size_t files = 500 + random_() % 3000;
    for (size_t i = 0; i < files; ++i) {
      backups.set("src/module" + std::to_string(i) + "/file.cpp",
                  JSONObject{{"backupFileName", "b" + std::to_string(random_()) + "@v2"},
                             {"version", 2},
                             {"backupTime", "2026-09-01T10:00:00.000Z"}});
    }
    JSONValue record(JSONObject{{"type", "file-history-snapshot"},
                                {"messageId", std::to_string(serial_)},
                                {"isSnapshotUpdate", false},
                                {"snapshot", JSONObject{{"trackedFileBackups", std::move(backups)},
                                                        {"timestamp", "2026-09-01T10:00:00Z"}}}});
    record.encodeTo(out);
    out += '\n';
  }

  std::mt19937 random_;
  JSONValue prompt_, reply_, call_, result_, end_, attachment_;
  long serial_ = 0;
  int turns_ = 0;
};

bool writeTranscript(const std::string& path, size_t megabytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  Generator generator(7);
  std::string chunk;
  size_t written = 0;
  while (written < megabytes << 20) {
    chunk.clear();
    generator.turn(chunk);
    out.write(chunk.data(), static_cast<std::streamsize>(chunk.size()));
    written += chunk.size();
  }
  return out.good();
}

std::string benchFolder() {
  const char* tmp = std::getenv("TMPDIR");
  return std::string(tmp && *tmp ? tmp : "/tmp") + "/quibly-transcript-bench";
}

// The size of a file, 0 when there is none.
int64_t sizeOf(const std::string& path) {
  std::error_code ec;
  auto size = std::filesystem::file_size(path, ec);
  return ec ? 0 : static_cast<int64_t>(size);
}

// The 128 MB transcript, written on first use.
const std::string& transcriptPath() {
  static const std::string path = [] {
    std::string folder = benchFolder();
    std::filesystem::create_directories(folder);
    std::string file = folder + "/claude-128mb.jsonl";
    if (sizeOf(file) < (128 << 20)) writeTranscript(file, 128);
    return file;
  }();
  return path;
}

void Fold(benchmark::State& state) {
  const std::string& path = transcriptPath();
  for (auto _ : state) {
    auto folded = vobbo::TranscriptIndex::foldFile(path, vobbo::AgentKind::claude);
    if (!folded) state.SkipWithError(folded.error().c_str());
    benchmark::DoNotOptimize(folded);
  }
  state.SetBytesProcessed(state.iterations() * sizeOf(path));
}
BENCHMARK(Fold)->Name("Fold/claude")->Unit(benchmark::kMillisecond);

// The same reading as the fold (pieces of a megabyte, split into lines), with
// each line parsed by simdjson and one field read.
void Limit(benchmark::State& state) {
  const std::string& path = transcriptPath();
  simdjson::dom::parser parser;
  std::vector<char> buffer(1 << 20);
  for (auto _ : state) {
    int fd = ::open(path.c_str(), O_RDONLY);
    size_t held = 0;
    int64_t offset = 0;
    size_t types = 0;
    for (;;) {
      if (held == buffer.size()) buffer.resize(buffer.size() * 2);
      ssize_t n = ::pread(fd, buffer.data() + held, buffer.size() - held,
                          offset + static_cast<int64_t>(held));
      if (n <= 0) break;
      std::string_view piece(buffer.data(), held + static_cast<size_t>(n));
      size_t end = piece.rfind('\n');
      if (end == std::string_view::npos) {
        held = piece.size();
        continue;
      }
      for (std::string_view rest = piece.substr(0, end + 1); !rest.empty();) {
        size_t nl = rest.find('\n');
        std::string_view line = rest.substr(0, nl);
        rest.remove_prefix(nl + 1);
        simdjson::dom::element doc;
        std::string_view type;
        if (!parser.parse(line.data(), line.size(), true).get(doc) &&
            !doc["type"].get_string().get(type)) {
          types += type.size();
        }
      }
      offset += static_cast<int64_t>(end + 1);
      held = piece.size() - end - 1;
      std::memmove(buffer.data(), buffer.data() + end + 1, held);
    }
    ::close(fd);
    benchmark::DoNotOptimize(types);
  }
  state.SetBytesProcessed(state.iterations() * sizeOf(transcriptPath()));
}
BENCHMARK(Limit)->Name("Limit/simdjsonDom")->Unit(benchmark::kMillisecond);

// One line appended, then a refresh of an index holding one transcript of the
// given size. Reading starts from the tail, so the size should not matter.
void Refresh(benchmark::State& state) {
  size_t megabytes = static_cast<size_t>(state.range(0));
  std::string home = benchFolder() + "/home-" + std::to_string(megabytes);
  std::string folder = home + "/.claude/projects/-bench";
  std::filesystem::create_directories(folder);
  std::string file = folder + "/session.jsonl";
  if (sizeOf(file) < static_cast<int64_t>(megabytes << 20)) {
    if (megabytes >= 128) {  // 1 GB: the 128 MB transcript over and over
      std::ofstream out(file, std::ios::binary | std::ios::trunc);
      std::ifstream in(transcriptPath(), std::ios::binary);
      std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      for (size_t written = 0; written < megabytes << 20; written += bytes.size()) out << bytes;
    } else {
      writeTranscript(file, megabytes);
    }
  }
  vobbo::TranscriptIndex index({.home = home, .aiderFolders = {}});
  index.refresh();
  const std::string line =
      R"({"type":"user","uuid":"x","timestamp":"2026-11-21T10:00:00Z","message":{"content":"one more"}})"
      "\n";
  for (auto _ : state) {
    state.PauseTiming();
    {
      std::ofstream out(file, std::ios::binary | std::ios::app);
      out << line;
    }
    state.ResumeTiming();
    index.refresh();
  }
  state.counters["fileMB"] = static_cast<double>(sizeOf(file)) / (1 << 20);
}
BENCHMARK(Refresh)->Name("Refresh/afterOneLine")->Arg(1)->Arg(1024)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 3 && std::string_view(argv[1]) == "--generate") {
    size_t megabytes = argc >= 4 ? std::strtoul(argv[3], nullptr, 10) : 128;
    return writeTranscript(argv[2], megabytes) ? 0 : 1;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
