#include "ApproveHook.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "ApproveSocket.h"
#include "ApproveWire.h"

namespace vobbo {

namespace {

// All of standard input, whatever its size; nothing if reading fails.
std::optional<std::string> readAll(int fd) {
  std::string out;
  char buffer[65536];
  for (;;) {
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return std::nullopt;
    if (n == 0) return out;
    out.append(buffer, static_cast<size_t>(n));
  }
}

void writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
}

// The decision for one request, or nothing on any failure along the way.
std::optional<ApproveWire::Decision> ask(const ApproveWire::Request& request,
                                         const std::string& socketPath) {
  auto socket = ApproveSocket::connect(socketPath);
  if (!socket) return std::nullopt;  // the app is not running
  if (!ApproveSocket::write(socket->get(), ApproveWire::line(request))) return std::nullopt;
  if (request.kind == ApproveWire::Kind::waiting) return std::nullopt;  // fire and forget
  auto line =
      ApproveSocket::readLine(socket->get(), ApproveWire::waitSeconds, ApproveWire::kMaxLine);
  if (!line) return std::nullopt;
  auto reply = ApproveWire::parse<ApproveWire::Reply>(*line);
  if (!reply) return std::nullopt;
  return reply->decision;
}

}  // namespace

int ApproveHook::run(int argc, const char* const* argv, Io io, const Platform::Env& env,
                     int32_t parentPid) {
  auto agent = argc >= 2 ? fromRaw<ApproveWire::Agent>(argv[1]) : std::nullopt;
  if (!agent) {
    writeAll(io.err, kUsage);
    return 0;
  }
  auto event = readAll(io.in);
  if (!event) return 0;
  auto request = ApproveWire::request(*event, *agent, parentPid);
  if (!request) return 0;
  auto socketPath = ApproveWire::socketPath(Platform::homeDirectory(env), env);
  auto decision = ask(*request, socketPath);
  if (!decision) return 0;
  if (auto answer = ApproveWire::hookOutput(*decision)) writeAll(io.out, *answer + "\n");
  return 0;
}

}  // namespace vobbo
