// Platform differences live here and only here: macOS suppresses SIGPIPE per
// socket with SO_NOSIGPIPE, Linux per call with MSG_NOSIGNAL; macOS addresses
// carry a length byte. Both sides use the same 106-byte address (family, and
// 104 bytes of path ending in a zero byte), so the 103-byte path limit holds on
// every platform and the hook and the app always agree on what fits.

#include "ApproveSocket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace vobbo {

namespace {

constexpr socklen_t kAddressLength = offsetof(sockaddr_un, sun_path) + 104;
static_assert(sizeof(sockaddr_un::sun_path) >= 104);

std::optional<sockaddr_un> address(std::string_view path) {
  if (path.size() > ApproveSocket::kMaxPath) return std::nullopt;
  sockaddr_un addr;
  std::memset(&addr, 0, sizeof addr);
#if defined(__APPLE__)
  addr.sun_len = static_cast<unsigned char>(kAddressLength);
#endif
  addr.sun_family = AF_UNIX;
  std::memcpy(addr.sun_path, path.data(), path.size());
  return addr;
}

Descriptor openSocket() {
  Descriptor fd(::socket(AF_UNIX, SOCK_STREAM, 0));
  if (!fd.valid()) return fd;
  (void)::fcntl(fd.get(), F_SETFD, FD_CLOEXEC);
#if defined(SO_NOSIGPIPE)
  int one = 1;
  (void)::setsockopt(fd.get(), SOL_SOCKET, SO_NOSIGPIPE, &one, sizeof one);
#endif
  return fd;
}

#if defined(MSG_NOSIGNAL)
constexpr int kSendFlags = MSG_NOSIGNAL;
#else
constexpr int kSendFlags = 0;
#endif

double steadySeconds() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace

std::optional<Descriptor> ApproveSocket::connect(std::string_view path) {
  auto addr = address(path);
  if (!addr) return std::nullopt;
  Descriptor fd = openSocket();
  if (!fd.valid()) return std::nullopt;
  int rc;
  do {
    rc = ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&*addr), kAddressLength);
  } while (rc != 0 && errno == EINTR);
  if (rc != 0) return std::nullopt;
  return fd;
}

std::optional<Descriptor> ApproveSocket::listen(std::string_view path) {
  const std::string file(path);
  (void)::unlink(file.c_str());
  auto addr = address(path);
  if (!addr) return std::nullopt;
  Descriptor fd = openSocket();
  if (!fd.valid()) return std::nullopt;
  // The socket file takes its mode from the umask at bind time: make sure it is
  // never readable or writable by others, even for an instant.
  mode_t previous = ::umask(077);
  int bound = ::bind(fd.get(), reinterpret_cast<const sockaddr*>(&*addr), kAddressLength);
  ::umask(previous);
  if (bound != 0 || ::listen(fd.get(), 8) != 0) return std::nullopt;
  (void)::chmod(file.c_str(), 0600);
  return fd;
}

std::optional<Descriptor> ApproveSocket::accept(int listener) {
  int raw;
  do {
    raw = ::accept(listener, nullptr, nullptr);
  } while (raw < 0 && errno == EINTR);
  if (raw < 0) return std::nullopt;
  Descriptor fd(raw);
  (void)::fcntl(fd.get(), F_SETFD, FD_CLOEXEC);
#if defined(SO_NOSIGPIPE)
  int one = 1;
  (void)::setsockopt(fd.get(), SOL_SOCKET, SO_NOSIGPIPE, &one, sizeof one);
#endif
  int flags = ::fcntl(fd.get(), F_GETFL);
  if (flags >= 0) (void)::fcntl(fd.get(), F_SETFL, flags | O_NONBLOCK);
  return fd;
}

bool ApproveSocket::write(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = ::send(fd, bytes.data(), bytes.size(), kSendFlags);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

std::optional<std::string> ApproveSocket::readLine(int fd, double timeoutSeconds, size_t max) {
  const double deadline = steadySeconds() + timeoutSeconds;
  char buffer[4096];
  std::string line;
  for (double left = timeoutSeconds; left > 0; left = deadline - steadySeconds()) {
    // One poll waits at most an hour, so the millisecond count never overflows.
    double waitMs = std::min(left, 3600.0) * 1000.0;
    pollfd p{fd, POLLIN, 0};
    int ready = ::poll(&p, 1, static_cast<int>(waitMs));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return std::nullopt;
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) continue;
    if (n <= 0) return std::nullopt;
    line.append(buffer, static_cast<size_t>(n));
    if (size_t newline = line.find('\n', line.size() - static_cast<size_t>(n));
        newline != std::string::npos) {
      line.resize(newline);
      return line;
    }
    if (line.size() > max) return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace vobbo
