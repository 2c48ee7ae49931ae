#pragma once
// The thin layer over a local stream socket that carries one request line from
// the hook to the app and one reply line back. Client calls (connect, write,
// readLine) serve the hook; server calls (listen, accept) serve the app's
// listener. Every call reports failure as nothing or false and never raises a
// signal: a peer that went away makes write() return false. The calls share no
// state and may be used from any thread.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "Descriptor.h"

namespace vobbo {

struct ApproveSocket {
  // The longest socket path, in bytes, that both macOS and Linux can bind.
  static constexpr size_t kMaxPath = 103;

  // Connects to a listener; nothing when the path is too long, nobody listens
  // there, or the connection is refused. The descriptor stays blocking.
  static std::optional<Descriptor> connect(std::string_view path);

  // Listens at path, first removing whatever file is there. The socket file is
  // created with mode 0600 whatever the process's umask (which is restored).
  // Nothing when the path is too long or bind/listen fail.
  static std::optional<Descriptor> listen(std::string_view path);

  // Accepts one connection; the new descriptor is non-blocking.
  static std::optional<Descriptor> accept(int listener);

  // True when every byte was written. EINTR is retried; any other failure,
  // EAGAIN on a full non-blocking socket included, gives false.
  static bool write(int fd, std::string_view bytes);

  // Waits up to timeoutSeconds for one line and returns it without its "\n";
  // anything after the first line feed is dropped. Nothing when the time runs
  // out, the peer closes first (even with part of a line buffered), or more
  // than `max` bytes arrive without a line feed.
  static std::optional<std::string> readLine(int fd, double timeoutSeconds, size_t max);
};

}  // namespace vobbo
