// `quibly approve`: the terminal approver. It runs an ApprovalListener at the
// approval socket and shows each request as it arrives. The oldest request
// still waiting is the one the keys answer: a allows, d denies, p passes it
// back so the agent asks in its own way. Requests the agent withdraws (answered
// in its own terminal) and requests whose wait runs out leave the queue with a
// note. Grok and Gemini CLI only send notices; they are shown as one line.
//
// The listener calls back on its own thread; those calls only queue events and
// wake the main loop, which owns the terminal and all output.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <mutex>
#include <ostream>
#include <vector>

#include "ApprovalListener.h"
#include "ApproveSocket.h"
#include "Commands.h"
#include "Descriptor.h"
#include "Files.h"
#include "Format.h"

namespace quibly {

namespace {

using vobbo::ApprovalListener;
using vobbo::ApproveSocket;
using vobbo::ApproveWire;
using vobbo::Descriptor;
using vobbo::JSONObject;
using vobbo::JSONValue;

enum class Policy { ask, allow, deny, defer };
enum class Output { text, json };

struct Options {
  std::string socket;
  bool allowAll = false;
  bool denyAll = false;
  bool deferAll = false;
  bool json = false;
};

struct Event {
  enum class Type { request, notice, withdrawn, expired } type;
  ApprovalListener::Id id = 0;
  ApproveWire::Request request;
  ApprovalListener::Reply reply;
};

// Events from the listener's thread to the main loop, with a pipe to wake it.
class EventQueue {
 public:
  EventQueue() {
    int fds[2];
    if (::pipe(fds) == 0) {
      read_.reset(fds[0]);
      write_.reset(fds[1]);
      (void)::fcntl(fds[0], F_SETFL, O_NONBLOCK);
    }
  }
  void push(Event e) {
    {
      std::lock_guard lock(mutex_);
      events_.push_back(std::move(e));
    }
    char byte = 1;
    (void)!::write(write_.get(), &byte, 1);
  }
  std::deque<Event> take() {
    char drain[256];
    while (::read(read_.get(), drain, sizeof drain) > 0) {
    }
    std::lock_guard lock(mutex_);
    return std::exchange(events_, {});
  }
  int fd() const { return read_.get(); }

 private:
  std::mutex mutex_;
  std::deque<Event> events_;
  Descriptor read_, write_;
};

// Ctrl-C, SIGTERM and SIGHUP end the loop through a pipe, so the terminal is
// restored and the socket removed on the main thread.
int gSignalPipe = -1;
extern "C" void onStopSignal(int) {
  char byte = 1;
  (void)!::write(gSignalPipe, &byte, 1);
}

// Puts the terminal into single-key mode while alive; Ctrl-C still signals.
class RawTerminal {
 public:
  explicit RawTerminal(int fd) : fd_(fd) {
    if (!::isatty(fd) || ::tcgetattr(fd, &saved_) != 0) return;
    termios raw = saved_;
    raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    active_ = ::tcsetattr(fd, TCSANOW, &raw) == 0;
  }
  RawTerminal(const RawTerminal&) = delete;
  RawTerminal& operator=(const RawTerminal&) = delete;
  ~RawTerminal() {
    if (active_) ::tcsetattr(fd_, TCSANOW, &saved_);
  }

 private:
  int fd_;
  termios saved_{};
  bool active_ = false;
};

std::string_view pastTense(ApproveWire::Decision d) {
  switch (d) {
    case ApproveWire::Decision::allow:
      return "Allowed.";
    case ApproveWire::Decision::deny:
      return "Denied.";
    case ApproveWire::Decision::defer:
      return "Passed back to the agent.";
  }
  return "";
}

class Approver {
 public:
  Approver(Io& io, Policy policy, Output output) : io_(io), policy_(policy), output_(output) {}

  // Serves until a stop signal; returns the exit status.
  int serve(const std::string& socket);

 private:
  void handle(Event e);
  void decide(ApproveWire::Decision d, std::string_view how);
  void onKey(char key);
  void promptCurrent();
  void emit(std::string_view event, ApprovalListener::Id id, JSONObject fields = {});
  void say(std::string_view text) { io_.out << text << std::flush; }

  Io& io_;
  Policy policy_;
  Output output_;
  bool readKeys_ = true;     // keys can still arrive on standard input
  std::deque<Event> queue_;  // approvals waiting for the person, oldest first
};

void Approver::emit(std::string_view event, ApprovalListener::Id id, JSONObject fields) {
  fields.set("event", event);
  if (id) fields.set("id", static_cast<double>(id));
  io_.out << JSONValue(std::move(fields)).encode() << '\n' << std::flush;
}

void Approver::promptCurrent() {
  if (queue_.empty() || output_ == Output::json || !readKeys_) return;
  const Event& e = queue_.front();
  say(fmt::format("[{}] a allow · d deny · p pass{} › ", e.id,
                  queue_.size() > 1 ? fmt::format("  ({} more waiting)", queue_.size() - 1) : ""));
}

void Approver::handle(Event e) {
  const auto& r = e.request;
  switch (e.type) {
    case Event::Type::notice:
      if (output_ == Output::json) {
        emit("notice", e.id, JSONObject{{"request", vobbo::toJSON(r)}});
      } else {
        say(fmt::format("\n{} is waiting for you: {}{}\n", ApproveWire::displayName(r.agent),
                        r.summary.empty() ? r.tool : r.summary,
                        r.cwd.empty() ? "" : fmt::format(" (in {})", r.cwd)));
        promptCurrent();
      }
      return;
    case Event::Type::request:
      if (output_ == Output::json) {
        emit("request", e.id, JSONObject{{"request", vobbo::toJSON(r)}});
      } else {
        say(fmt::format("\n[{}] {} asks to run {}\n    {}\n    folder {}  session {}\n", e.id,
                        ApproveWire::displayName(r.agent), r.tool.empty() ? "a tool" : r.tool,
                        r.summary.empty() ? "(no details)" : r.summary,
                        r.cwd.empty() ? "unknown" : r.cwd,
                        r.session.empty() ? "unknown" : r.session));
      }
      queue_.push_back(std::move(e));
      if (policy_ == Policy::allow) return decide(ApproveWire::Decision::allow, "policy");
      if (policy_ == Policy::deny) return decide(ApproveWire::Decision::deny, "policy");
      if (policy_ == Policy::defer) return decide(ApproveWire::Decision::defer, "policy");
      promptCurrent();  // the keys still answer the oldest request
      return;
    case Event::Type::withdrawn:
    case Event::Type::expired: {
      auto it =
          std::find_if(queue_.begin(), queue_.end(), [&](const Event& q) { return q.id == e.id; });
      if (it == queue_.end()) return;
      bool wasCurrent = it == queue_.begin();
      queue_.erase(it);
      bool withdrawn = e.type == Event::Type::withdrawn;
      if (output_ == Output::json) {
        emit(withdrawn ? "withdrawn" : "expired", e.id);
      } else {
        say(withdrawn
                ? fmt::format("\n[{}] Withdrawn: the agent stopped waiting, most often because "
                              "it was answered in its own terminal.\n",
                              e.id)
                : fmt::format("\n[{}] Passed by itself: nobody answered within {} seconds.\n", e.id,
                              ApproveWire::waitSeconds));
        if (wasCurrent || !queue_.empty()) promptCurrent();
      }
      return;
    }
  }
}

void Approver::decide(ApproveWire::Decision d, std::string_view how) {
  if (queue_.empty()) return;
  Event e = std::move(queue_.front());
  queue_.pop_front();
  bool sent = e.reply.send(d);
  if (output_ == Output::json) {
    emit("decision", e.id,
         JSONObject{{"decision", vobbo::rawValue(d)}, {"by", how}, {"delivered", sent}});
  } else {
    say(fmt::format("[{}] {}\n", e.id,
                    sent ? pastTense(d) : "Too late: the agent stopped waiting."));
    promptCurrent();
  }
}

void Approver::onKey(char key) {
  switch (key) {
    case 'a':
    case 'A':
      return decide(ApproveWire::Decision::allow, "key");
    case 'd':
    case 'D':
      return decide(ApproveWire::Decision::deny, "key");
    case 'p':
    case 'P':
      return decide(ApproveWire::Decision::defer, "key");
    default:
      return;
  }
}

int Approver::serve(const std::string& socket) {
  if (ApproveSocket::connect(socket)) {
    io_.err << "Quibly is already listening at " << socket
            << ". Stop it first, or listen elsewhere with --socket.\n";
    return 1;
  }
  if (auto made = vobbo::Files::createDirectories(vobbo::Files::parentOf(socket)); !made) {
    io_.err << made.error() << '\n';
    return 1;
  }
  EventQueue events;
  ApprovalListener::Handler handler;
  handler.requested = [&](ApprovalListener::Id id, const ApproveWire::Request& r,
                          ApprovalListener::Reply reply) {
    auto type = r.kind == ApproveWire::Kind::waiting ? Event::Type::notice : Event::Type::request;
    events.push(Event{type, id, r, reply});
  };
  handler.withdrawn = [&](ApprovalListener::Id id) {
    events.push(Event{Event::Type::withdrawn, id, {}, {}});
  };
  handler.expired = [&](ApprovalListener::Id id) {
    events.push(Event{Event::Type::expired, id, {}, {}});
  };
  auto listener = ApprovalListener::start({socket, ApproveWire::waitSeconds}, std::move(handler));
  if (!listener) {
    io_.err << listener.error() << '\n';
    return 1;
  }

  int signalPipe[2];
  if (::pipe(signalPipe) != 0) return 1;
  Descriptor stopRead(signalPipe[0]), stopWrite(signalPipe[1]);
  gSignalPipe = stopWrite.get();
  struct sigaction action {};
  action.sa_handler = onStopSignal;
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(sig, &action, nullptr);

  if (output_ == Output::json) {
    emit("listening", 0, JSONObject{{"socket", socket}});
  } else {
    say(fmt::format("Listening for coding agents at {}.\n", socket));
    say(policy_ == Policy::ask
            ? "Keys: a allows, d denies, p passes the question back to the agent. Ctrl-C stops.\n"
            : "Answering every request by itself. Ctrl-C stops.\n");
  }

  readKeys_ = policy_ == Policy::ask;
  RawTerminal terminal(readKeys_ ? 0 : -1);
  for (;;) {
    pollfd fds[3] = {
        {stopRead.get(), POLLIN, 0}, {events.fd(), POLLIN, 0}, {readKeys_ ? 0 : -1, POLLIN, 0}};
    if (::poll(fds, 3, -1) < 0 && errno != EINTR) break;
    if (fds[0].revents) break;
    if (fds[1].revents) {
      for (auto& e : events.take()) handle(std::move(e));
    }
    if (fds[2].revents) {
      char keys[64];
      ssize_t n = ::read(0, keys, sizeof keys);
      if (n <= 0) {
        readKeys_ = false;
        if (output_ == Output::text) {
          say(
              fmt::format("\nNo more keys can come from standard input, so requests now pass by "
                          "themselves after {} seconds.\n",
                          ApproveWire::waitSeconds));
        }
        continue;
      }
      for (ssize_t i = 0; i < n; ++i) onKey(keys[i]);
    }
  }

  (*listener)->stop();
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) ::signal(sig, SIG_DFL);
  gSignalPipe = -1;
  if (output_ == Output::json) {
    emit("stopped", 0);
  } else {
    say("\nStopped. Agents ask in their own way again.\n");
  }
  return 0;
}

// Many hooks at once each hold a descriptor: allow as many as the system lets us.
void raiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
    limit.rlim_cur = limit.rlim_max;
    (void)::setrlimit(RLIMIT_NOFILE, &limit);
  }
}

}  // namespace

void addApproveCommand(CLI::App& command, Io& io, int& status) {
  auto options = std::make_shared<Options>();
  command.add_option("--socket", options->socket,
                     "Listen at this socket instead of the one the hook uses by default");
  auto* allow = command.add_flag("--allow-all", options->allowAll, "Allow every request at once");
  auto* deny = command.add_flag("--deny-all", options->denyAll, "Deny every request at once");
  auto* defer = command.add_flag("--defer-all", options->deferAll,
                                 "Pass every request back to the agent's own prompt");
  allow->excludes(deny)->excludes(defer);
  deny->excludes(defer);
  command.add_flag("--json", options->json, "Print one JSON line per event instead of text");
  command.callback([options, &io, &status, &command] {
    if (command.count("--socket") && options->socket.empty()) {
      io.err << "The --socket path is empty: name the socket file to listen at.\n";
      status = 2;
      return;
    }
    raiseDescriptorLimit();
    std::string socket =
        options->socket.empty()
            ? ApproveWire::socketPath(vobbo::Platform::homeDirectory(io.env), io.env)
            : options->socket;
    Policy policy = options->allowAll   ? Policy::allow
                    : options->denyAll  ? Policy::deny
                    : options->deferAll ? Policy::defer
                                        : Policy::ask;
    Approver approver(io, policy, options->json ? Output::json : Output::text);
    status = approver.serve(socket);
  });
}

}  // namespace quibly
