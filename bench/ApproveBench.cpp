// The approval bridge, timed from the outside.
//   hookRoundTrip   quibly-approve claude < event, answered at once by a listener
//   hookNoListener  the same with nobody listening (the hook must give up at once)
//   spawnTrue       /bin/true started the same way: the floor for any hook
//   listenerThousand  1,000 hooks connected at once, each answered; peak memory reported
// Every spawn has the same shape (standard input from a file, output to a pipe
// that is read to the end), so the three spawn figures compare like with like.
// Medians and 99th percentiles are taken over the repetitions.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "ApprovalListener.h"
#include "ApproveSocket.h"

extern char** environ;

namespace {

using vobbo::ApprovalListener;
using vobbo::ApproveWire;

const std::string kEvent =
    std::string(QUIBLY_SOURCE_DIR) + "/samples/agents/claude-PermissionRequest-Bash.json";

std::string socketPath() { return "/tmp/quibly-bench-" + std::to_string(::getpid()) + ".sock"; }

// Spawns argv with standard input from kEvent; returns what it printed.
std::string spawnAndRead(const std::vector<std::string>& argv) {
  int out[2];
  if (::pipe(out) != 0) return "";
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, kEvent.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_addclose(&actions, out[0]);
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  pid_t pid = 0;
  int rc = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(out[1]);
  std::string printed;
  char buffer[512];
  for (ssize_t n; rc == 0 && (n = ::read(out[0], buffer, sizeof buffer)) > 0;)
    printed.append(buffer, static_cast<size_t>(n));
  ::close(out[0]);
  int status = 0;
  if (rc == 0) ::waitpid(pid, &status, 0);
  return printed;
}

double percentile(const std::vector<double>& v, double p) {
  std::vector<double> s = v;
  std::sort(s.begin(), s.end());
  return s[std::min(s.size() - 1, static_cast<size_t>(p * static_cast<double>(s.size())))];
}

// A listener on a fresh socket that allows every request at once.
vobbo::Result<std::unique_ptr<ApprovalListener>> startAllowing() {
  ApprovalListener::Handler handler;
  handler.requested = [](ApprovalListener::Id, const ApproveWire::Request&,
                         ApprovalListener::Reply reply) {
    reply.send(ApproveWire::Decision::allow);
  };
  return ApprovalListener::start({socketPath()}, handler);
}

void spawnTrue(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(spawnAndRead({"/bin/true"}));
}

void hookRoundTrip(benchmark::State& state) {
  auto listener = startAllowing();
  if (!listener) return state.SkipWithError(listener.error().c_str());
  ::setenv("QUIBLY_APPROVE_SOCKET", socketPath().c_str(), 1);
  for (auto _ : state) {
    if (spawnAndRead({QUIBLY_APPROVE_BIN, "claude"}).find("allow") == std::string::npos) {
      return state.SkipWithError("the hook did not print the answer");
    }
  }
}

void hookNoListener(benchmark::State& state) {
  ::setenv("QUIBLY_APPROVE_SOCKET", "/tmp/quibly-bench-nobody.sock", 1);
  for (auto _ : state) benchmark::DoNotOptimize(spawnAndRead({QUIBLY_APPROVE_BIN, "claude"}));
}

void listenerThousand(benchmark::State& state) {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
  auto listener = startAllowing();
  if (!listener) return state.SkipWithError(listener.error().c_str());
  const std::string line = ApproveWire::line(ApproveWire::Request{
      ApproveWire::Agent::claude, ApproveWire::Kind::approval, "Bash", "ls", "/w", "s", 1});
  const int hooks = static_cast<int>(state.range(0));
  for (auto _ : state) {
    std::vector<vobbo::Descriptor> clients;
    for (int i = 0; i < hooks; ++i) {
      auto fd = vobbo::ApproveSocket::connect(socketPath());
      if (!fd) return state.SkipWithError("connect failed");
      clients.push_back(std::move(*fd));
    }
    for (auto& c : clients) (void)vobbo::ApproveSocket::write(c.get(), line);
    int answered = 0;
    for (auto& c : clients)
      answered += vobbo::ApproveSocket::readLine(c.get(), 30, 65536).has_value();
    if (answered != hooks) return state.SkipWithError("not every hook was answered");
  }
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  state.counters["peak_rss_MB"] = static_cast<double>(usage.ru_maxrss) / 1024.0;
}

void withPercentiles(benchmark::internal::Benchmark* b) {
  b->Unit(benchmark::kMicrosecond)
      ->Iterations(1)
      ->Repetitions(1000)
      ->ComputeStatistics("p99", [](const std::vector<double>& v) { return percentile(v, 0.99); })
      ->ReportAggregatesOnly(true);
}

BENCHMARK(spawnTrue)->Apply(withPercentiles);
BENCHMARK(hookRoundTrip)->Apply(withPercentiles);
BENCHMARK(hookNoListener)->Apply(withPercentiles);
BENCHMARK(listenerThousand)
    ->Arg(1000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(9)
    ->ReportAggregatesOnly(true);

}  // namespace

BENCHMARK_MAIN();
