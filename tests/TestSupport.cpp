#include "TestSupport.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#if defined(__linux__)
#include <linux/fs.h>
#include <sys/ioctl.h>
#endif
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace vobbo::test {

namespace {

double nowMs() {
  using namespace std::chrono;
  return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace

TempDir::TempDir(std::string_view base) {
  const char* tmp = std::getenv("TMPDIR");
  std::string pattern =
      (!base.empty() ? std::string(base) : std::string(tmp && *tmp ? tmp : "/tmp")) + "/qt.XXXXXX";
  char* made = ::mkdtemp(pattern.data());
  if (!made) {
    ADD_FAILURE() << "mkdtemp failed: " << std::strerror(errno);
    return;
  }
  path_ = made;
}

TempDir::~TempDir() {
  if (path_.empty()) return;
  std::error_code ec;
  // Make read-only folders writable again so they can be removed.
  for (auto it = std::filesystem::recursive_directory_iterator(path_, ec);
       !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
    if (it->is_directory(ec))
      std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                   std::filesystem::perm_options::add, ec);
  }
  std::filesystem::permissions(path_, std::filesystem::perms::owner_all,
                               std::filesystem::perm_options::add, ec);
  std::filesystem::remove_all(path_, ec);
}

namespace {

enum class Access { readOnly, writable };

bool setAccess(const std::string& folder, Access access) {
  const bool readOnly = access == Access::readOnly;
  if (::geteuid() != 0) return ::chmod(folder.c_str(), readOnly ? 0500 : 0700) == 0;
#if defined(__linux__)
  int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  int flags = 0;
  bool done = ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
  flags = readOnly ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
  done = done && ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
  ::close(fd);
  return done;
#else
  return false;
#endif
}

}  // namespace

ReadOnlyFolder::ReadOnlyFolder(std::string folder)
    : folder_(std::move(folder)), ok_(setAccess(folder_, Access::readOnly)) {}

ReadOnlyFolder::~ReadOnlyFolder() { setAccess(folder_, Access::writable); }

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in.good()) << "cannot read " << path;
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void writeFile(const std::string& path, std::string_view bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  ASSERT_TRUE(out.good()) << "cannot write " << path;
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string dataPath(std::string_view relative) {
  return std::string(QUIBLY_SOURCE_DIR) + "/tests/data/" + std::string(relative);
}

std::string sourcePath(std::string_view relative) {
  return std::string(QUIBLY_SOURCE_DIR) + "/" + std::string(relative);
}

Child Child::start(const std::vector<std::string>& argv, const ProcessOptions& options) {
  int in[2], out[2], err[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) {
    ADD_FAILURE() << "pipe failed";
    return Child();
  }
  Child child;
  child.startMs_ = nowMs();
  pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(in[0], 0);
    ::dup2(out[1], 1);
    ::dup2(err[1], 2);
    ::signal(SIGPIPE, SIG_DFL);
    for (const auto& [name, value] : options.env) {
      if (value) {
        ::setenv(name.c_str(), value->c_str(), 1);
      } else {
        ::unsetenv(name.c_str());
      }
    }
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    ::execv(args[0], args.data());
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  ::close(err[1]);
  child.pid_ = pid;
  child.outFd_ = out[0];
  child.errFd_ = err[0];
  // Feed standard input; a child that stops reading early just closes the pipe.
  ::signal(SIGPIPE, SIG_IGN);
  std::string_view rest = options.input;
  while (!rest.empty()) {
    ssize_t n = ::write(in[1], rest.data(), rest.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    rest.remove_prefix(static_cast<size_t>(n));
  }
  if (options.keepInputOpen) {
    child.inFd_ = in[1];
  } else {
    ::close(in[1]);
  }
  return child;
}

Child::Child(Child&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      outFd_(std::exchange(other.outFd_, -1)),
      errFd_(std::exchange(other.errFd_, -1)),
      inFd_(std::exchange(other.inFd_, -1)),
      startMs_(other.startMs_),
      out_(std::move(other.out_)) {}

Child::~Child() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  if (outFd_ >= 0) ::close(outFd_);
  if (errFd_ >= 0) ::close(errFd_);
  if (inFd_ >= 0) ::close(inFd_);
}

void Child::writeInput(std::string_view bytes) {
  while (inFd_ >= 0 && !bytes.empty()) {
    ssize_t n = ::write(inFd_, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
}

void Child::closeInput() {
  if (inFd_ >= 0) ::close(inFd_);
  inFd_ = -1;
}

bool Child::readUntil(std::string_view text, double timeoutSeconds) {
  const double deadline = nowMs() + timeoutSeconds * 1000;
  while (out_.find(text) == std::string::npos) {
    double left = deadline - nowMs();
    if (left <= 0 || outFd_ < 0) return false;
    pollfd p{outFd_, POLLIN, 0};
    int rc = ::poll(&p, 1, static_cast<int>(left) + 1);
    if (rc < 0 && errno == EINTR) continue;
    if (rc <= 0) return false;
    char buffer[4096];
    ssize_t n = ::read(outFd_, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    out_.append(buffer, static_cast<size_t>(n));
  }
  return true;
}

void Child::kill(int signal) {
  if (pid_ > 0) ::kill(pid_, signal);
}

ProcessResult Child::wait(double timeoutSeconds) {
  closeInput();
  ProcessResult result;
  result.out = std::move(out_);
  const double deadline = startMs_ + timeoutSeconds * 1000;
  pollfd fds[2] = {{outFd_, POLLIN, 0}, {errFd_, POLLIN, 0}};
  std::string* sinks[2] = {&result.out, &result.err};
  int open = 2;
  while (open > 0) {
    double left = deadline - nowMs();
    if (left <= 0) {
      kill(SIGKILL);
      break;
    }
    int rc = ::poll(fds, 2, static_cast<int>(left) + 1);
    if (rc < 0 && errno == EINTR) continue;
    if (rc <= 0) continue;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
      char buffer[65536];
      ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
      if (n > 0) {
        sinks[i]->append(buffer, static_cast<size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        fds[i].fd = -1;
        --open;
      }
    }
  }
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
  result.elapsedMs = nowMs() - startMs_;
  if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
  return result;
}

ProcessResult runProcess(const std::vector<std::string>& argv, const ProcessOptions& options) {
  Child child = Child::start(argv, options);
  return child.wait(options.timeoutSeconds);
}

}  // namespace vobbo::test
