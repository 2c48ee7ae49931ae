#include <condition_variable>
#include <mutex>

#include "ApprovalListener.h"
#include "ApproveSocket.h"
#include "Files.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

using Decision = ApproveWire::Decision;

// Records what the listener reports and can answer every request by itself.
class Recorder {
 public:
  std::optional<Decision> autoReply;

  ApprovalListener::Handler handler() {
    return {[this](ApprovalListener::Id id, const ApproveWire::Request& r,
                   ApprovalListener::Reply reply) {
              std::lock_guard lock(mutex_);
              requests_.push_back(r);
              replies_[id] = reply;
              if (autoReply) reply.send(*autoReply);
              changed_.notify_all();
            },
            [this](ApprovalListener::Id id) { note(withdrawn_, id); },
            [this](ApprovalListener::Id id) { note(expired_, id); }};
  }

  // Waits until f() holds under the lock; false after the timeout.
  template <class F>
  bool waitFor(F f, double seconds = 5) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return f(); });
  }
  template <class F>
  auto locked(F f) {
    std::lock_guard lock(mutex_);
    return f();
  }
  size_t requestCount() {
    return locked([&] { return requests_.size(); });
  }
  std::vector<ApprovalListener::Id> withdrawn() {
    return locked([&] { return withdrawn_; });
  }
  ApprovalListener::Reply reply(ApprovalListener::Id id) {
    return locked([&] { return replies_[id]; });
  }

  std::mutex mutex_;
  std::vector<ApproveWire::Request> requests_;
  std::vector<ApprovalListener::Id> withdrawn_, expired_;

 private:
  void note(std::vector<ApprovalListener::Id>& list, ApprovalListener::Id id) {
    std::lock_guard lock(mutex_);
    list.push_back(id);
    changed_.notify_all();
  }
  std::map<ApprovalListener::Id, ApprovalListener::Reply> replies_;
  std::condition_variable changed_;
};

ApproveWire::Request approval(std::string summary = "ls") {
  return {ApproveWire::Agent::claude,
          ApproveWire::Kind::approval,
          "Bash",
          std::move(summary),
          "/w",
          "s",
          7};
}

class ApprovalListenerTest : public ::testing::Test {
 protected:
  void start(double waitSeconds = ApproveWire::waitSeconds) {
    auto l = ApprovalListener::start({dir.file("a.sock"), waitSeconds}, recorder.handler());
    ASSERT_OK(l);
    listener = std::move(*l);
  }
  Descriptor send(std::string_view bytes) {
    auto fd = ApproveSocket::connect(dir.file("a.sock"));
    EXPECT_TRUE(fd);
    if (!fd) return Descriptor();
    EXPECT_TRUE(ApproveSocket::write(fd->get(), bytes));
    return std::move(*fd);
  }
  test::TempDir dir;
  Recorder recorder;
  std::unique_ptr<ApprovalListener> listener;
};

TEST_F(ApprovalListenerTest, RepliesOnceToAnApproval) {
  start();
  Descriptor hook = send(ApproveWire::line(approval()));
  ASSERT_TRUE(recorder.waitFor([&] { return recorder.requests_.size() == 1; }));
  EXPECT_EQ(recorder.requests_[0], approval());
  auto reply = recorder.reply(1);
  EXPECT_TRUE(reply.send(Decision::deny));
  EXPECT_FALSE(reply.send(Decision::allow));  // only the first decision counts
  EXPECT_EQ(ApproveSocket::readLine(hook.get(), 5, 65536), R"({"decision":"deny"})");
  EXPECT_FALSE(ApproveSocket::readLine(hook.get(), 1, 65536));  // and the connection is closed
}

TEST_F(ApprovalListenerTest, ClosesAWaitingNoticeAtOnce) {
  start();
  auto notice = approval();
  notice.agent = ApproveWire::Agent::gemini;
  notice.kind = ApproveWire::Kind::waiting;
  Descriptor hook = send(ApproveWire::line(notice));
  EXPECT_FALSE(ApproveSocket::readLine(hook.get(), 5, 65536));
  EXPECT_EQ(recorder.requestCount(), 1u);
  EXPECT_FALSE(recorder.reply(1).send(Decision::allow));
}

TEST_F(ApprovalListenerTest, DropsPeersThatDoNotSpeakTheProtocolWhileServingOthers) {
  recorder.autoReply = Decision::allow;
  start();
  Descriptor silent = send("");
  Descriptor garbage = send("not a request\n");
  Descriptor flood = send(std::string(70 * 1024, 'x'));
  Descriptor good = send(ApproveWire::line(approval()));
  EXPECT_EQ(ApproveSocket::readLine(good.get(), 5, 65536), R"({"decision":"allow"})");
  EXPECT_FALSE(ApproveSocket::readLine(garbage.get(), 5, 65536));
  EXPECT_FALSE(ApproveSocket::readLine(flood.get(), 5, 65536));
  EXPECT_EQ(recorder.requestCount(), 1u);
}

TEST_F(ApprovalListenerTest, AHookThatGoesAwayWithdrawsItsRequest) {
  start();
  {
    Descriptor hook = send(ApproveWire::line(approval()));
    ASSERT_TRUE(recorder.waitFor([&] { return recorder.requests_.size() == 1; }));
  }
  ASSERT_TRUE(recorder.waitFor([&] { return recorder.withdrawn_.size() == 1; }));
  EXPECT_EQ(recorder.withdrawn(), std::vector<ApprovalListener::Id>{1});
  EXPECT_FALSE(recorder.reply(1).send(Decision::allow));
}

TEST_F(ApprovalListenerTest, AnUnansweredRequestExpiresAndSilentPeersAreDropped) {
  start(0.3);
  Descriptor silent = send("");
  Descriptor hook = send(ApproveWire::line(approval()));
  ASSERT_TRUE(recorder.waitFor([&] { return recorder.expired_.size() == 1; }));
  EXPECT_FALSE(recorder.reply(1).send(Decision::allow));  // too late: dropped
  EXPECT_FALSE(ApproveSocket::readLine(hook.get(), 2, 65536));
  EXPECT_FALSE(ApproveSocket::readLine(silent.get(), 2, 65536));
  EXPECT_TRUE(recorder.withdrawn().empty());
}

TEST_F(ApprovalListenerTest, StopClosesEverythingAndRemovesTheSocket) {
  start();
  Descriptor hook = send(ApproveWire::line(approval()));
  ASSERT_TRUE(recorder.waitFor([&] { return recorder.requests_.size() == 1; }));
  listener->stop();
  EXPECT_FALSE(ApproveSocket::readLine(hook.get(), 2, 65536));
  EXPECT_FALSE(Files::exists(dir.file("a.sock")));
  EXPECT_FALSE(recorder.reply(1).send(Decision::allow));
  listener->stop();  // a second stop is harmless
}

TEST_F(ApprovalListenerTest, LeavesAnotherListenersSocketInPlace) {
  start();
  auto other = ApprovalListener::start({dir.file("a.sock")}, {});
  ASSERT_OK(other);
  listener->stop();
  EXPECT_TRUE(Files::exists(dir.file("a.sock")));
  EXPECT_TRUE(ApproveSocket::connect(dir.file("a.sock")));
}

TEST_F(ApprovalListenerTest, RefusesAPathTooLongForASocket) {
  EXPECT_ERROR(ApprovalListener::start({"/tmp/" + std::string(120, 'x')}, {}),
               "The socket path /tmp/" + std::string(120, 'x') +
                   " is longer than the 103 bytes a socket address can hold.");
}

}  // namespace
}  // namespace vobbo
