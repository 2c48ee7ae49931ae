#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "Files.h"
#include "HookInstaller.h"
#include "TestSupport.h"

namespace vobbo {
namespace {

using Target = HookConfig::Target;
using State = HookInstaller::State;
using Action = HookInstaller::Action;

constexpr std::string_view kHelper = "/opt/quibly/bin/quibly-approve";
constexpr std::string_view kUserSettings =
    "{\n\t\"model\": \"opus\",\n\t\"hooks\": {\"Stop\": [{\"hooks\": [{\"command\": \"say "
    "done\"}]}]}\n}\n";

struct stat statOf(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
  return st;
}

mode_t modeOf(const std::string& path) { return statOf(path).st_mode & 07777; }

// A home folder with one agent's settings file in place.
struct Home {
  test::TempDir dir;
  Target target;

  explicit Home(Target (*make)(std::string_view)) : target(make(dir.path())) {}
  void settings(std::string_view bytes) const {
    ASSERT_OK(Files::createDirectories(Files::parentOf(target.path)));
    test::writeFile(target.path, bytes);
  }
  std::string bytes() const { return test::readFile(target.path); }
  std::string backup() const { return HookInstaller::backupPath(target); }
};

TEST(HookInstallerTest, InstallsAndRemovesThroughTheStates) {
  Home home(Target::claude);
  EXPECT_EQ(HookInstaller::state(home.target), State::off);

  auto installed = HookInstaller::install(home.target, kHelper);
  ASSERT_OK(installed);
  EXPECT_EQ(*installed, (HookInstaller::Change{Action::installed, home.target.path, std::nullopt}));
  EXPECT_EQ(HookInstaller::state(home.target), State::on);
  EXPECT_EQ(modeOf(home.target.path), 0600u);
  EXPECT_FALSE(Files::exists(home.backup()));

  // Installing again writes nothing: same file, same bytes.
  const ino_t inode = statOf(home.target.path).st_ino;
  const std::string bytes = home.bytes();
  auto again = HookInstaller::install(home.target, kHelper);
  ASSERT_OK(again);
  EXPECT_EQ(again->action, Action::unchanged);
  EXPECT_EQ(statOf(home.target.path).st_ino, inode);

  auto removed = HookInstaller::remove(home.target);
  ASSERT_OK(removed);
  EXPECT_EQ(*removed, (HookInstaller::Change{Action::removed, home.target.path, home.backup()}));
  EXPECT_EQ(HookInstaller::state(home.target), State::off);
  EXPECT_EQ(test::readFile(home.backup()), bytes);
  EXPECT_EQ(modeOf(home.backup()), 0600u);

  // Removing what is not there leaves a hand-formatted file's bytes alone.
  home.settings(kUserSettings);
  auto removedAgain = HookInstaller::remove(home.target);
  ASSERT_OK(removedAgain);
  EXPECT_EQ(removedAgain->action, Action::unchanged);
  EXPECT_EQ(home.bytes(), kUserSettings);
}

TEST(HookInstallerTest, LeavesUnreadableFilesUntouched) {
  Home broken(Target::codex);
  broken.settings("{\"model\": \"opus\",");
  EXPECT_EQ(HookInstaller::state(broken.target), State::unreadable);
  EXPECT_FALSE(HookInstaller::install(broken.target, kHelper).ok());
  EXPECT_FALSE(HookInstaller::remove(broken.target).ok());
  EXPECT_EQ(broken.bytes(), "{\"model\": \"opus\",");
  EXPECT_FALSE(Files::exists(broken.backup()));

  // A folder where the file should be.
  Home home(Target::codex);
  ASSERT_OK(Files::createDirectories(home.target.path));
  const std::string sentence = home.target.path +
                               " cannot be read as settings, so Quibly left it unchanged. Could "
                               "not read " +
                               home.target.path + ": it is a folder, not a file.";
  EXPECT_EQ(HookInstaller::state(home.target), State::unreadable);
  EXPECT_ERROR(HookInstaller::install(home.target, kHelper), sentence);
  EXPECT_ERROR(HookInstaller::remove(home.target), sentence);
}

TEST(HookInstallerTest, KeepsPermissionsAndLinks) {
  Home home(Target::gemini);
  home.settings(kUserSettings);
  ASSERT_EQ(::chmod(home.target.path.c_str(), 0644), 0);
  test::writeFile(home.backup(), "an old backup");
  ASSERT_EQ(::chmod(home.backup().c_str(), 0644), 0);
  ASSERT_OK(HookInstaller::install(home.target, kHelper));
  EXPECT_EQ(modeOf(home.target.path), 0644u);
  EXPECT_EQ(modeOf(home.backup()), 0600u);
  EXPECT_EQ(test::readFile(home.backup()), kUserSettings);

  // A settings file kept elsewhere behind a relative link.
  const std::string real = home.dir.file("dotfiles.json");
  ASSERT_EQ(::rename(home.target.path.c_str(), real.c_str()), 0);
  ASSERT_EQ(::symlink("../dotfiles.json", home.target.path.c_str()), 0);
  ASSERT_OK(HookInstaller::remove(home.target));
  EXPECT_TRUE(S_ISLNK(statOf(home.target.path).st_mode));
  EXPECT_FALSE(HookConfig::isInstalled(test::readFile(real), home.target));
  ASSERT_OK(HookInstaller::install(home.target, kHelper));
  EXPECT_TRUE(S_ISLNK(statOf(home.target.path).st_mode));
  EXPECT_TRUE(HookConfig::isInstalled(test::readFile(real), home.target));
  EXPECT_EQ(HookInstaller::state(home.target), State::on);
}

TEST(HookInstallerTest, DeletesAFileThatHeldOnlyTheHook) {
  Home home(Target::grok);
  auto installed = HookInstaller::install(home.target, kHelper);
  ASSERT_OK(installed);
  EXPECT_TRUE(Files::exists(home.target.path));

  auto removed = HookInstaller::remove(home.target);
  ASSERT_OK(removed);
  EXPECT_EQ(removed->action, Action::deleted);
  EXPECT_FALSE(Files::exists(home.target.path));
  EXPECT_TRUE(Files::exists(home.backup()));

  // Once the person adds something of their own, the file is theirs too.
  home.settings(R"({"note": "mine"})");
  ASSERT_OK(HookInstaller::install(home.target, kHelper));
  auto kept = HookInstaller::remove(home.target);
  ASSERT_OK(kept);
  EXPECT_EQ(kept->action, Action::removed);
  EXPECT_TRUE(test::readFile(home.target.path).find("mine") != std::string::npos);
}

TEST(HookInstallerTest, WriteRefusesAFileChangedSinceItWasRead) {
  Home home(Target::claude);
  home.settings("{\"changed\": \"by the agent\"}");
  EXPECT_ERROR(HookInstaller::write(home.target, std::string("{}"), std::string("{\"new\": 1}")),
               home.target.path +
                   " changed while Quibly was editing it, so Quibly left it as it "
                   "is. Try again.");
  EXPECT_EQ(home.bytes(), "{\"changed\": \"by the agent\"}");
}

// A child installs and removes in a loop and is killed at random moments; at
// every moment each file must be whole: the settings the person had, with or
// without our entry, and never half of either.
TEST(HookInstallerTest, SurvivesBeingKilledAtAnyMoment) {
  Home claude(Target::claude);
  claude.settings(kUserSettings);
  const Target grok = Target::grok(claude.dir.path());
  const JSONObject original = *HookConfig::root(kUserSettings, "");
  std::random_device seed;
  const unsigned seedValue = seed();
  std::mt19937 random(seedValue);
  SCOPED_TRACE(testing::Message() << "seed " << seedValue);

  for (int round = 0; round < 200; ++round) {
    pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      for (;;) {
        (void)HookInstaller::install(claude.target, kHelper);
        (void)HookInstaller::install(grok, kHelper);
        (void)HookInstaller::remove(claude.target);
        (void)HookInstaller::remove(grok);
      }
    }
    ::usleep(std::uniform_int_distribution<useconds_t>(0, 15000)(random));
    ::kill(pid, SIGKILL);
    ASSERT_EQ(::waitpid(pid, nullptr, 0), pid);

    auto data = Files::read(claude.target.path);
    ASSERT_TRUE(data.ok() && data->has_value()) << "round " << round;
    auto removed = HookConfig::remove(**data, claude.target);
    ASSERT_OK(removed);
    ASSERT_EQ(*HookConfig::root(*removed, ""), original) << "round " << round << ":\n" << **data;
    for (const std::string& path :
         {HookInstaller::backupPath(claude.target), grok.path, HookInstaller::backupPath(grok)}) {
      auto other = Files::read(path);
      ASSERT_TRUE(other.ok());
      if (other->has_value()) ASSERT_OK(HookConfig::root(**other, path));
    }
  }
}

}  // namespace
}  // namespace vobbo
