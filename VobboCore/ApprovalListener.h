#pragma once
// The app's end of the approval socket. It listens at a path and serves any
// number of hooks at once from one thread polling non-blocking descriptors:
// each connection sends one Request line; the listener hands the request to the
// handler with a one-shot Reply and, for an approval, keeps the connection open
// until the reply is sent, the hook goes away, or the wait runs out.
//
//   hook connects ── line ──> requested(id, request, reply)
//                              reply.send(allow)  ──> {"decision":"allow"}\n, close
//   hook killed first      ──> withdrawn(id)         (the agent was answered elsewhere)
//   no reply in waitSeconds ─> expired(id), close    (the hook has given up by now)
//
// A waiting notice (Grok, Gemini CLI) is handed over with an inert Reply and its
// connection closed at once. Peers that send something that is not a Request,
// overflow the line limit, or stay silent for waitSeconds are dropped without a
// word to the handler. The handler's functions run on the listener's thread and
// may send replies from there or from any other thread.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "ApproveWire.h"
#include "Result.h"

namespace vobbo {

class ApprovalListener {
 public:
  using Id = uint64_t;
  struct Shared;

  // The answer to one approval request. Copies refer to the same request; only
  // the first send() counts. Safe to use from any thread, and after the
  // listener has stopped (it then does nothing).
  class Reply {
   public:
    Reply() = default;
    // True when the decision was taken for a request that was still waiting.
    bool send(ApproveWire::Decision decision) const;

   private:
    friend class ApprovalListener;
    Reply(std::weak_ptr<Shared> shared, Id id) : shared_(std::move(shared)), id_(id) {}
    std::weak_ptr<Shared> shared_;
    Id id_ = 0;
  };

  struct Handler {
    std::function<void(Id, const ApproveWire::Request&, Reply)> requested;
    std::function<void(Id)> withdrawn;  // the hook went away before a reply
    std::function<void(Id)> expired;    // waitSeconds passed with no reply
  };

  struct Options {
    std::string path;
    double waitSeconds = ApproveWire::waitSeconds;
  };

  // Binds the socket (replacing a stale socket at the path) and starts serving.
  // Fails with a sentence when something other than a socket is at the path, or
  // the socket cannot be made there.
  static Result<std::unique_ptr<ApprovalListener>> start(Options options, Handler handler);

  ApprovalListener(const ApprovalListener&) = delete;
  ApprovalListener& operator=(const ApprovalListener&) = delete;
  ~ApprovalListener();

  // Closes every connection without answering (so every hook falls back to the
  // agent's own prompt), removes the socket file if it is still ours, and waits
  // for the listener's thread. Idempotent.
  void stop();

  const std::string& path() const { return options_.path; }

 private:
  class Loop;
  ApprovalListener(Options options, std::unique_ptr<Loop> loop);
  Options options_;
  std::unique_ptr<Loop> loop_;
};

}  // namespace vobbo
