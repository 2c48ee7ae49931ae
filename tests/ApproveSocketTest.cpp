#include <sys/socket.h>
#include <sys/stat.h>

#include <thread>

#include "ApproveSocket.h"
#include "Files.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

// A path of exactly n bytes inside the folder.
std::string pathOfLength(const test::TempDir& dir, size_t n) {
  std::string p = dir.path() + "/";
  return p + std::string(n - p.size(), 's');
}

TEST(ApproveSocketTest, PathsUpTo103BytesWorkAndLongerOnesFailBothWays) {
  test::TempDir dir;
  std::string ok = pathOfLength(dir, 103);
  auto listener = ApproveSocket::listen(ok);
  ASSERT_TRUE(listener);
  EXPECT_TRUE(ApproveSocket::connect(ok));

  std::string tooLong = pathOfLength(dir, 104);
  EXPECT_FALSE(ApproveSocket::listen(tooLong));
  EXPECT_FALSE(ApproveSocket::connect(tooLong));
  EXPECT_FALSE(Files::exists(tooLong));
}

TEST(ApproveSocketTest, SocketFileIsPrivateWhateverTheUmask) {
  test::TempDir dir;
  mode_t previous = ::umask(0);
  auto listener = ApproveSocket::listen(dir.file("a.sock"));
  mode_t during = ::umask(previous);
  ASSERT_TRUE(listener);
  EXPECT_EQ(during, 0u);  // the mask is restored
  struct stat st;
  ASSERT_EQ(::stat(dir.file("a.sock").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  // A stale file at the path is replaced.
  test::writeFile(dir.file("b.sock"), "stale");
  EXPECT_TRUE(ApproveSocket::listen(dir.file("b.sock")));
}

TEST(ApproveSocketTest, NobodyListeningMeansNoConnection) {
  test::TempDir dir;
  EXPECT_FALSE(ApproveSocket::connect(dir.file("none.sock")));
  { auto gone = ApproveSocket::listen(dir.file("gone.sock")); }
  EXPECT_FALSE(ApproveSocket::connect(dir.file("gone.sock")));  // refused
}

struct Pair {
  Descriptor a, b;
  Pair() {
    int fds[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    a.reset(fds[0]);
    b.reset(fds[1]);
  }
};

TEST(ApproveSocketTest, ReadLineTakesTheFirstLineOnly) {
  Pair p;
  ASSERT_TRUE(ApproveSocket::write(p.b.get(), "a\nb"));
  EXPECT_EQ(ApproveSocket::readLine(p.a.get(), 1, 65536), "a");

  Pair split;
  std::thread writer([&] {
    (void)ApproveSocket::write(split.b.get(), "{\"decision\"");
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    (void)ApproveSocket::write(split.b.get(), ":\"allow\"}\n");
  });
  EXPECT_EQ(ApproveSocket::readLine(split.a.get(), 5, 65536), "{\"decision\":\"allow\"}");
  writer.join();
}

TEST(ApproveSocketTest, ReadLineGivesUpOnCloseTimeoutAndOverflow) {
  Pair closed;
  ASSERT_TRUE(ApproveSocket::write(closed.b.get(), "abc"));
  closed.b.reset();
  EXPECT_FALSE(ApproveSocket::readLine(closed.a.get(), 1, 65536));

  Pair silent;
  EXPECT_FALSE(ApproveSocket::readLine(silent.a.get(), 0.05, 65536));

  Pair flood;
  std::thread writer([&] { (void)ApproveSocket::write(flood.b.get(), std::string(70000, 'x')); });
  EXPECT_FALSE(ApproveSocket::readLine(flood.a.get(), 5, 65536));
  flood.a.reset();
  writer.join();
}

TEST(ApproveSocketTest, WritingToAClosedPeerFailsWithoutASignal) {
  Pair p;
  p.b.reset();
  // SIGPIPE would end the test program; reaching the expectation is the test.
  EXPECT_FALSE(ApproveSocket::write(p.a.get(), std::string(100000, 'x')));
}

}  // namespace
}  // namespace vobbo
