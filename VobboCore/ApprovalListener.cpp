// One thread, one poll loop. Each pass polls the listening socket, a wake-up
// pipe and every connection, with a timeout that ends at the nearest deadline:
//
//   wake-up pipe   replies queued by Reply::send (from any thread) are written
//                  to their connections, which are then closed
//   listener       new connections are accepted until none are left
//   reading        bytes go through ApproveLineBuffer until one line is whole
//   waiting        the only thing a waiting hook can send is end-of-file: it
//                  died, most often because the agent was answered in its own
//                  terminal and killed the hook; the request is withdrawn
//   deadlines      silent peers are dropped, unanswered requests expire
//
// Every approval ends in exactly one of three ways, decided under one lock: a
// reply was sent, it was withdrawn, or it expired. The handler hears about the
// last two only if no reply beat them to it.

#include "ApprovalListener.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "ApproveSocket.h"
#include "Descriptor.h"

namespace vobbo {

struct ApprovalListener::Shared {
  std::mutex mutex;
  std::unordered_set<Id> pending;  // approvals still waiting for a decision
  std::vector<std::pair<Id, ApproveWire::Decision>> outbox;
  Descriptor wakeRead;
  Descriptor wakeWrite;

  void wake() const {
    char byte = 1;
    while (::write(wakeWrite.get(), &byte, 1) < 0 && errno == EINTR) {
    }
  }
  // Takes the request out of the pending set; false when something else already did.
  bool settle(Id id) {
    std::lock_guard lock(mutex);
    return pending.erase(id) == 1;
  }
};

bool ApprovalListener::Reply::send(ApproveWire::Decision decision) const {
  auto shared = shared_.lock();
  if (!shared) return false;
  {
    std::lock_guard lock(shared->mutex);
    if (shared->pending.erase(id_) == 0) return false;
    shared->outbox.emplace_back(id_, decision);
  }
  shared->wake();
  return true;
}

namespace {

double steadyMs() {
  using namespace std::chrono;
  return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
}

bool makePipe(Descriptor& read, Descriptor& write) {
  int fds[2];
  if (::pipe(fds) != 0) return false;
  read.reset(fds[0]);
  write.reset(fds[1]);
  for (int fd : fds) {
    (void)::fcntl(fd, F_SETFD, FD_CLOEXEC);
    (void)::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
  }
  return true;
}

}  // namespace

class ApprovalListener::Loop {
 public:
  Loop(Options options, Handler handler, Descriptor listener, std::shared_ptr<Shared> shared)
      : options_(std::move(options)),
        handler_(std::move(handler)),
        listener_(std::move(listener)),
        shared_(std::move(shared)) {
    struct stat st;
    if (::stat(options_.path.c_str(), &st) == 0) {
      socketDevice_ = st.st_dev;
      socketInode_ = st.st_ino;
    }
    thread_ = std::thread([this] { run(); });
  }

  void stop() {
    if (!thread_.joinable()) return;
    stopping_ = true;
    shared_->wake();
    thread_.join();
  }

 private:
  enum class Phase { reading, waiting };
  struct Connection {
    Descriptor fd;
    ApproveLineBuffer buffer;
    Phase phase = Phase::reading;
    Id id = 0;
    double deadlineMs = 0;
  };
  enum class Outcome { keep, close };

  void run() {
    while (!stopping_) {
      std::vector<pollfd> fds = pollSet();
      int rc = ::poll(fds.data(), fds.size(), timeoutMs());
      if (rc < 0 && errno != EINTR) break;
      if (rc > 0 && fds[0].revents) deliverReplies();
      if (stopping_) break;
      if (rc > 0 && fds[1].fd >= 0 && fds[1].revents) acceptAll();
      if (rc > 0) serveReadable(fds);
      expireDeadlines();
    }
    shutDown();
  }

  std::vector<pollfd> pollSet() const {
    std::vector<pollfd> fds;
    fds.reserve(connections_.size() + 2);
    fds.push_back({shared_->wakeRead.get(), POLLIN, 0});
    bool acceptPaused = steadyMs() < acceptPausedUntilMs_;
    fds.push_back({acceptPaused ? -1 : listener_.get(), POLLIN, 0});
    for (const auto& [fd, connection] : connections_) fds.push_back({fd, POLLIN, 0});
    return fds;
  }

  int timeoutMs() const {
    const double now = steadyMs();
    double nearest = acceptPausedUntilMs_ > now ? acceptPausedUntilMs_ : 0;
    for (const auto& [fd, c] : connections_) {
      if (nearest == 0 || c.deadlineMs < nearest) nearest = c.deadlineMs;
    }
    if (nearest == 0) return -1;
    double left = nearest - now;
    return left <= 0 ? 0 : static_cast<int>(std::min(left, 3600000.0)) + 1;
  }

  void deliverReplies() {
    char drain[256];
    while (::read(shared_->wakeRead.get(), drain, sizeof drain) > 0) {
    }
    std::vector<std::pair<Id, ApproveWire::Decision>> outbox;
    {
      std::lock_guard lock(shared_->mutex);
      outbox.swap(shared_->outbox);
    }
    for (const auto& [id, decision] : outbox) {
      auto it = byId_.find(id);
      if (it == byId_.end()) continue;  // the hook left meanwhile
      (void)ApproveSocket::write(it->second, ApproveWire::line(ApproveWire::Reply{decision}));
      close(it->second);
    }
  }

  void acceptAll() {
    for (int i = 0; i < 256; ++i) {
      auto fd = ApproveSocket::accept(listener_.get());
      if (!fd) {
        // Out of descriptors: stop accepting for a moment instead of spinning.
        if (errno == EMFILE || errno == ENFILE) acceptPausedUntilMs_ = steadyMs() + 100;
        return;
      }
      acceptPausedUntilMs_ = 0;
      int raw = fd->get();
      Connection c;
      c.fd = std::move(*fd);
      c.deadlineMs = steadyMs() + options_.waitSeconds * 1000;
      connections_.emplace(raw, std::move(c));
    }
  }

  void serveReadable(const std::vector<pollfd>& fds) {
    for (size_t i = 2; i < fds.size(); ++i) {
      if (!fds[i].revents) continue;
      auto it = connections_.find(fds[i].fd);
      if (it == connections_.end()) continue;
      if (readFrom(it->second) == Outcome::close) close(fds[i].fd);
    }
  }

  Outcome readFrom(Connection& c) {
    char buffer[4096];
    for (;;) {
      ssize_t n = ::read(c.fd.get(), buffer, sizeof buffer);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return Outcome::keep;
      if (n <= 0) return peerLeft(c);
      if (c.phase == Phase::waiting) continue;  // nothing more is expected; ignore it
      if (auto line = c.buffer.feed(std::string_view(buffer, static_cast<size_t>(n)))) {
        if (take(c, *line) == Outcome::close) return Outcome::close;
      } else if (c.buffer.overflowing()) {
        return Outcome::close;
      }
    }
  }

  Outcome peerLeft(Connection& c) {
    if (c.phase == Phase::waiting && shared_->settle(c.id) && handler_.withdrawn) {
      handler_.withdrawn(c.id);
    }
    return Outcome::close;
  }

  Outcome take(Connection& c, const std::string& line) {
    auto request = ApproveWire::parse<ApproveWire::Request>(line);
    if (!request) return Outcome::close;
    Id id = nextId_++;
    if (request->kind == ApproveWire::Kind::waiting) {
      if (handler_.requested) handler_.requested(id, *request, Reply());
      return Outcome::close;
    }
    c.phase = Phase::waiting;
    c.id = id;
    c.deadlineMs = steadyMs() + options_.waitSeconds * 1000;
    c.buffer.buf.clear();
    byId_[id] = c.fd.get();
    {
      std::lock_guard lock(shared_->mutex);
      shared_->pending.insert(id);
    }
    if (handler_.requested) handler_.requested(id, *request, Reply(shared_, id));
    return Outcome::keep;
  }

  void expireDeadlines() {
    double now = steadyMs();
    std::vector<int> due;
    for (const auto& [fd, c] : connections_) {
      if (c.deadlineMs <= now) due.push_back(fd);
    }
    for (int fd : due) {
      auto it = connections_.find(fd);
      if (it == connections_.end()) continue;
      Id id = it->second.id;
      bool expired = it->second.phase == Phase::waiting && shared_->settle(id);
      close(fd);
      if (expired && handler_.expired) handler_.expired(id);
    }
  }

  void close(int fd) {
    auto it = connections_.find(fd);
    if (it == connections_.end()) return;
    if (it->second.phase == Phase::waiting) byId_.erase(it->second.id);
    connections_.erase(it);
  }

  void shutDown() {
    connections_.clear();
    byId_.clear();
    {
      std::lock_guard lock(shared_->mutex);
      shared_->pending.clear();
      shared_->outbox.clear();
    }
    listener_.reset();
    // Remove the socket file only if it is still the one we made: another
    // listener may have taken the path since.
    struct stat st;
    if (::stat(options_.path.c_str(), &st) == 0 && st.st_dev == socketDevice_ &&
        st.st_ino == socketInode_) {
      ::unlink(options_.path.c_str());
    }
  }

  Options options_;
  Handler handler_;
  Descriptor listener_;
  std::shared_ptr<Shared> shared_;
  std::unordered_map<int, Connection> connections_;
  std::unordered_map<Id, int> byId_;  // approvals waiting, by id, to their descriptor
  Id nextId_ = 1;
  double acceptPausedUntilMs_ = 0;
  dev_t socketDevice_ = 0;
  ino_t socketInode_ = 0;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

Result<std::unique_ptr<ApprovalListener>> ApprovalListener::start(Options options,
                                                                  Handler handler) {
  if (options.path.size() > ApproveSocket::kMaxPath) {
    return failure("The socket path " + options.path + " is longer than the " +
                   std::to_string(ApproveSocket::kMaxPath) + " bytes a socket address can hold.");
  }
  // Listening replaces whatever is at the path; never let that be a file of the
  // person's, a folder, or a link to one.
  struct stat st;
  if (::lstat(options.path.c_str(), &st) == 0 && !S_ISSOCK(st.st_mode)) {
    return failure("There is already something at " + options.path +
                   " that is not a socket, so Quibly left it alone and did not listen there.");
  }
  auto listener = ApproveSocket::listen(options.path);
  if (!listener) {
    return failure("Could not listen at " + options.path + ": " + std::strerror(errno) + ".");
  }
  (void)::fcntl(listener->get(), F_SETFL, ::fcntl(listener->get(), F_GETFL) | O_NONBLOCK);
  auto shared = std::make_shared<Shared>();
  if (!makePipe(shared->wakeRead, shared->wakeWrite)) {
    ::unlink(options.path.c_str());
    return failure("Could not start listening: " + std::string(std::strerror(errno)) + ".");
  }
  auto loop = std::make_unique<Loop>(options, std::move(handler), std::move(*listener), shared);
  return std::unique_ptr<ApprovalListener>(
      new ApprovalListener(std::move(options), std::move(loop)));
}

ApprovalListener::ApprovalListener(Options options, std::unique_ptr<Loop> loop)
    : options_(std::move(options)), loop_(std::move(loop)) {}

ApprovalListener::~ApprovalListener() { stop(); }

void ApprovalListener::stop() {
  if (loop_) loop_->stop();
}

}  // namespace vobbo
