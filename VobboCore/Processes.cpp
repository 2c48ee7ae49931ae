#include "Processes.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>

#include "Descriptor.h"

extern char** environ;

namespace vobbo::Processes {

namespace {

using SteadyClock = std::chrono::steady_clock;

// posix_spawn's C structures, released however the set-up ends.
struct SpawnSetup {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attr;
  SpawnSetup() {
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attr);
  }
  ~SpawnSetup() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;
};

// The child starts with every signal at its default and none blocked, whatever
// this process ignores (the hook and the terminal commands ignore SIGPIPE).
void resetSignals(posix_spawnattr_t& attr, short extraFlags) {
  sigset_t all, none;
  sigfillset(&all);
  sigemptyset(&none);
  posix_spawnattr_setsigdefault(&attr, &all);
  posix_spawnattr_setsigmask(&attr, &none);
  posix_spawnattr_setflags(
      &attr, static_cast<short>(POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | extraFlags));
}

// Our environment with the options' changes applied, as "NAME=value" strings.
std::vector<std::string> childEnvironment(const Options& options) {
  std::vector<std::string> out;
  for (char** e = environ; e && *e; ++e) {
    std::string_view entry(*e);
    std::string_view name = entry.substr(0, entry.find('='));
    bool replaced = false;
    for (const auto& [key, value] : options.env) replaced = replaced || key == name;
    if (!replaced) out.emplace_back(entry);
  }
  for (const auto& [key, value] : options.env) {
    if (value) out.push_back(key + "=" + *value);
  }
  return out;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> out;
  out.reserve(strings.size() + 1);
  for (std::string& s : strings) out.push_back(s.data());
  out.push_back(nullptr);
  return out;
}

Platform::Env envWith(const Options& options) {
  return [&options](std::string_view name) -> std::optional<std::string> {
    for (const auto& [key, value] : options.env) {
      if (key == name) return value;
    }
    return Platform::processEnv()(name);
  };
}

Result<std::string> programPath(const std::vector<std::string>& argv, const Options& options) {
  if (argv.empty() || argv.front().empty()) return failure("No program was named to run.");
  if (auto path = which(argv.front(), envWith(options))) return *path;
  return failure(fmt::format("There is no program called {} on this machine.", argv.front()));
}

Result<pid_t> spawn(const std::string& path, const std::vector<std::string>& argv,
                    const Options& options, SpawnSetup& setup) {
  if (!options.cwd.empty()) {
#if defined(__APPLE__) || (defined(__GLIBC__) && (__GLIBC__ > 2 || __GLIBC_MINOR__ >= 29))
    posix_spawn_file_actions_addchdir_np(&setup.actions, options.cwd.c_str());
#else
    return failure("Running a program in another folder is not supported on this system.");
#endif
  }
  std::vector<std::string> args(argv.begin(), argv.end());
  std::vector<std::string> env = childEnvironment(options);
  std::vector<char*> argp = pointers(args);
  std::vector<char*> envp = pointers(env);
  pid_t pid = -1;
  int error =
      ::posix_spawn(&pid, path.c_str(), &setup.actions, &setup.attr, argp.data(), envp.data());
  if (error != 0) {
    return failure(fmt::format("Could not start {}: {}.", argv.front(), std::strerror(error)));
  }
  return pid;
}

Result<void> makePipe(Descriptor& readEnd, Descriptor& writeEnd) {
  int fds[2];
#if defined(__APPLE__)
  if (::pipe(fds) != 0)
    return failure(fmt::format("Could not make a pipe: {}.", std::strerror(errno)));
  ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
  ::fcntl(fds[1], F_SETFD, FD_CLOEXEC);
#else
  if (::pipe2(fds, O_CLOEXEC) != 0) {
    return failure(fmt::format("Could not make a pipe: {}.", std::strerror(errno)));
  }
#endif
  readEnd.reset(fds[0]);
  writeEnd.reset(fds[1]);
  return {};
}

// Writes to a pipe whose reader may have gone, without taking SIGPIPE: the
// signal is blocked on this thread for the write and a signal it raised is
// consumed before unblocking. Returns the bytes written, or -1 with errno set.
ssize_t writeWithoutSigpipe(int fd, const char* data, size_t size) {
  sigset_t pipeOnly, old, pending;
  sigemptyset(&pipeOnly);
  sigaddset(&pipeOnly, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipeOnly, &old);
  sigpending(&pending);
  bool wasPending = sigismember(&pending, SIGPIPE);
  ssize_t n = ::write(fd, data, size);
  int saved = errno;
  if (n < 0 && saved == EPIPE && !wasPending) {
#if defined(__APPLE__)
    int sig = 0;
    sigwait(&pipeOnly, &sig);
#else
    timespec zero{0, 0};
    while (sigtimedwait(&pipeOnly, nullptr, &zero) < 0 && errno == EINTR) {
    }
#endif
  }
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  errno = saved;
  return n;
}

int waitFor(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return 0;
  }
  return status;
}

void recordEnd(Output& output, int status) {
  if (WIFEXITED(status)) {
    output.exitCode = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    output.exitCode = -1;
    output.signal = WTERMSIG(status);
  }
}

// One captured stream: appends what arrives, keeping at most `limit` bytes.
struct Capture {
  Descriptor fd;
  std::string* into;
  bool* truncated;
  size_t limit;

  // Returns false at the end of the stream.
  bool drain() {
    char buffer[8192];
    ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) return true;
    if (n <= 0) {
      fd.reset();
      return false;
    }
    size_t room = limit > into->size() ? limit - into->size() : 0;
    size_t keep = std::min(room, static_cast<size_t>(n));
    into->append(buffer, keep);
    if (keep < static_cast<size_t>(n)) *truncated = true;
    return true;
  }
};

// Feeds standard input and collects both outputs until the child closes them,
// killing its group when the time runs out.
void exchange(pid_t pid, Descriptor& input, std::string_view toWrite, Capture& out, Capture& err,
              const Options& options, Output& output) {
  if (input.valid()) ::fcntl(input.get(), F_SETFL, ::fcntl(input.get(), F_GETFL) | O_NONBLOCK);
  const bool limited = options.timeoutSeconds > 0;
  auto deadline = SteadyClock::now() + std::chrono::duration_cast<SteadyClock::duration>(
                                           std::chrono::duration<double>(options.timeoutSeconds));
  // After a kill, what is still in the pipes is read for at most this long:
  // a grandchild that left the group could hold them open for ever.
  auto drainUntil = SteadyClock::time_point::max();
  size_t written = 0;
  while (out.fd.valid() || err.fd.valid()) {
    pollfd fds[3];
    nfds_t n = 0;
    int outAt = -1, errAt = -1, inAt = -1;
    if (out.fd.valid()) fds[outAt = static_cast<int>(n++)] = {out.fd.get(), POLLIN, 0};
    if (err.fd.valid()) fds[errAt = static_cast<int>(n++)] = {err.fd.get(), POLLIN, 0};
    if (input.valid()) fds[inAt = static_cast<int>(n++)] = {input.get(), POLLOUT, 0};
    auto now = SteadyClock::now();
    if (now >= drainUntil) break;
    int waitMs = -1;
    if (limited && !output.timedOut) {
      if (now >= deadline) {
        output.timedOut = true;
        ::kill(-pid, SIGKILL);
        drainUntil = now + std::chrono::seconds(1);
        continue;
      }
      waitMs = static_cast<int>(
          std::ceil(std::chrono::duration<double, std::milli>(deadline - now).count()));
    } else if (drainUntil != SteadyClock::time_point::max()) {
      waitMs = static_cast<int>(
          std::ceil(std::chrono::duration<double, std::milli>(drainUntil - now).count()));
    }
    int ready = ::poll(fds, n, waitMs);
    if (ready < 0 && errno != EINTR) break;
    if (ready <= 0) continue;
    if (outAt >= 0 && fds[outAt].revents) out.drain();
    if (errAt >= 0 && fds[errAt].revents) err.drain();
    if (inAt >= 0 && fds[inAt].revents) {
      ssize_t w = writeWithoutSigpipe(input.get(), toWrite.data() + written,
                                      std::min<size_t>(toWrite.size() - written, 65536));
      if (w > 0) written += static_cast<size_t>(w);
      if ((w < 0 && errno != EAGAIN && errno != EINTR) || written == toWrite.size()) input.reset();
    }
  }
}

}  // namespace

Result<Output> run(const std::vector<std::string>& argv, const Options& options) {
  auto path = programPath(argv, options);
  if (!path) return path.failure();
  Descriptor inRead, inWrite, outRead, outWrite, errRead, errWrite;
  for (auto [r, w] : {std::pair{&outRead, &outWrite}, std::pair{&errRead, &errWrite}}) {
    if (auto made = makePipe(*r, *w); !made) return made.failure();
  }
  SpawnSetup setup;
  if (options.input.empty()) {
    posix_spawn_file_actions_addopen(&setup.actions, 0, "/dev/null", O_RDONLY, 0);
  } else {
    if (auto made = makePipe(inRead, inWrite); !made) return made.failure();
    posix_spawn_file_actions_adddup2(&setup.actions, inRead.get(), 0);
  }
  posix_spawn_file_actions_adddup2(&setup.actions, outWrite.get(), 1);
  posix_spawn_file_actions_adddup2(&setup.actions, errWrite.get(), 2);
  resetSignals(setup.attr, POSIX_SPAWN_SETPGROUP);
  posix_spawnattr_setpgroup(&setup.attr, 0);
  auto pid = spawn(*path, argv, options, setup);
  if (!pid) return pid.failure();
  inRead.reset();
  outWrite.reset();
  errWrite.reset();

  Output output;
  Capture out{std::move(outRead), &output.out, &output.truncated, options.maxOutput};
  Capture err{std::move(errRead), &output.err, &output.truncated, options.maxOutput};
  exchange(*pid, inWrite, options.input, out, err, options, output);
  if (output.timedOut) ::kill(-*pid, SIGKILL);
  recordEnd(output, waitFor(*pid));
  return output;
}

Result<pid_t> startBackground(const std::vector<std::string>& argv, const std::string& logPath,
                              const Options& options) {
  auto path = programPath(argv, options);
  if (!path) return path.failure();
  Descriptor log(::open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  if (!log.valid()) {
    return failure(
        fmt::format("Could not open {} for the run's output: {}.", logPath, std::strerror(errno)));
  }
  SpawnSetup setup;
  posix_spawn_file_actions_addopen(&setup.actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&setup.actions, log.get(), 1);
  posix_spawn_file_actions_adddup2(&setup.actions, log.get(), 2);
  resetSignals(setup.attr, POSIX_SPAWN_SETPGROUP);
  posix_spawnattr_setpgroup(&setup.attr, 0);
  return spawn(*path, argv, options, setup);
}

Result<int> runAttached(const std::vector<std::string>& argv, const Options& options) {
  auto path = programPath(argv, options);
  if (!path) return path.failure();
  // The child stays in our process group: it must be the terminal's foreground
  // group to read from it.
  SpawnSetup setup;
  resetSignals(setup.attr, 0);
  auto pid = spawn(*path, argv, options, setup);
  if (!pid) return pid.failure();
  Output output;
  recordEnd(output, waitFor(*pid));
  return output.exitCode;
}

bool alive(pid_t pid) { return pid != 0 && (::kill(pid, 0) == 0 || errno == EPERM); }

bool stopGroup(pid_t group, double graceSeconds) {
  if (group <= 0 || ::kill(-group, SIGTERM) != 0) return false;
  auto until = SteadyClock::now() + std::chrono::duration_cast<SteadyClock::duration>(
                                        std::chrono::duration<double>(graceSeconds));
  while (SteadyClock::now() < until) {
    reap(group);  // a zombie leader would otherwise keep the group "alive"
    if (!alive(-group)) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ::kill(-group, SIGKILL);
  reap(group);
  return true;
}

void reap(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, WNOHANG) < 0 && errno == EINTR) {
  }
}

std::optional<std::string> which(std::string_view name, const Platform::Env& env) {
  auto runnable = [](const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
  };
  if (name.empty()) return std::nullopt;
  if (name.find('/') != std::string_view::npos) {
    std::string path(name);
    return runnable(path) ? std::optional(path) : std::nullopt;
  }
  std::string searchPath = env("PATH").value_or("/usr/local/bin:/usr/bin:/bin");
  size_t start = 0;
  while (start <= searchPath.size()) {
    size_t end = searchPath.find(':', start);
    if (end == std::string::npos) end = searchPath.size();
    std::string folder = searchPath.substr(start, end - start);
    std::string candidate = (folder.empty() ? "." : folder) + "/" + std::string(name);
    if (runnable(candidate)) return candidate;
    start = end + 1;
  }
  return std::nullopt;
}

std::string describeEnd(const Output& output) {
  if (output.timedOut) return "ran out of time";
  if (output.signal != 0) return fmt::format("was stopped by signal {}", output.signal);
  return fmt::format("exited with status {}", output.exitCode);
}

}  // namespace vobbo::Processes
