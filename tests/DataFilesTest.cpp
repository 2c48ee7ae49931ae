#include <filesystem>

#include "DataFiles.h"
#include "Files.h"
#include "TestSupport.h"
#include "VobboStore.h"

namespace vobbo {
namespace {

using DataFiles::MoveResult;
using test::TempDir;

TEST(DataFilesTest, CheckRefusesInOrderAndCopiesNothing) {
  TempDir tmp;
  const std::string current = tmp.file("current");
  ASSERT_OK(Files::createDirectories(current));
  test::writeFile(current + "/vobbo-store.json", "{}");
  ASSERT_OK(Files::createDirectories(tmp.file("taken")));
  test::writeFile(tmp.file("taken/vobbo-store.json"), "{\"theirs\":true}");
  test::writeFile(tmp.file("plain"), "a file");
  ASSERT_OK(Files::createDirectories(tmp.file("empty")));
  ASSERT_OK(Files::createDirectories(current + "/backups"));
  ASSERT_OK(Files::createDirectories(tmp.file("current2")));  // a sibling, not inside
  std::filesystem::create_directory_symlink(current, tmp.file("link"));
  ASSERT_OK(Files::createDirectories(tmp.file("dangling")));
  std::filesystem::create_symlink(tmp.file("elsewhere"), tmp.file("dangling/vobbo-store.json"));

  const struct {
    std::string target;
    MoveResult expected;
  } cases[] = {
      {"", {false, "Choose a folder."}},
      {tmp.file("nowhere"), {false, "That folder does not exist."}},
      {tmp.file("plain"), {false, "That is not a folder."}},
      {current, {false, "Quibly’s data is already there."}},
      {current + "/", {false, "Quibly’s data is already there."}},
      {tmp.file("link"), {false, "Quibly’s data is already there."}},
      // A copy inside the data folder would go wherever the folder goes.
      {current + "/backups",
       {false, "That folder is inside Quibly’s data folder, " + current +
                   ". Choose a folder outside it."}},
      {tmp.file("link/backups"),
       {false, "That folder is inside Quibly’s data folder, " + current +
                   ". Choose a folder outside it."}},
      {tmp.file("current2"), {true, "Quibly can move its data there."}},
      {tmp.file("taken"),
       {false,
        "That folder already has a vobbo-store.json. Choose an empty folder so nothing is "
        "overwritten."}},
      {tmp.file("dangling"),
       {false,
        "That folder already has a vobbo-store.json. Choose an empty folder so nothing is "
        "overwritten."}},
      {tmp.file("empty"), {true, "Quibly can move its data there."}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.target);
    EXPECT_EQ(DataFiles::check(c.target, current, "vobbo-store.json"), c.expected);
  }
  EXPECT_EQ(test::readFile(tmp.file("taken/vobbo-store.json")), "{\"theirs\":true}");
  EXPECT_FALSE(Files::exists(tmp.file("empty/vobbo-store.json")));
  EXPECT_EQ(DataFiles::check(tmp.file("empty"), tmp.file("fresh"), "vobbo-store.json"),
            (MoveResult{true, "Nothing saved yet, so new data starts there."}));
}

TEST(DataFilesTest, CheckRefusesAFolderItCannotWrite) {
  TempDir tmp;
  ASSERT_OK(Files::createDirectories(tmp.file("locked")));
  test::ReadOnlyFolder locked(tmp.file("locked"));
  if (!locked.ok()) GTEST_SKIP() << "cannot make a folder read-only here";
  EXPECT_EQ(DataFiles::check(tmp.file("locked"), tmp.file("current"), "vobbo-store.json"),
            (MoveResult{false, "Quibly cannot write there. Check the folder’s permissions."}));
}

TEST(DataFilesTest, MoveCopiesWithTheOriginalsPermissionsAndKeepsTheOriginal) {
  TempDir tmp;
  const std::string bytes = "{\n  \"notes\": [\"caf\u00e9\"]\n}\n";
  test::writeFile(tmp.file("vobbo-store.json"), bytes);
  ASSERT_EQ(::chmod(tmp.file("vobbo-store.json").c_str(), 0640), 0);
  ASSERT_OK(Files::createDirectories(tmp.file("new")));
  EXPECT_EQ(DataFiles::moveStore(tmp.file("vobbo-store.json"), tmp.file("new/vobbo-store.json")),
            (MoveResult{true, "Copied Quibly’s data to " + tmp.file("new") +
                                  " and checked the copy byte for byte."}));
  EXPECT_EQ(test::readFile(tmp.file("new/vobbo-store.json")), bytes);
  EXPECT_EQ(test::readFile(tmp.file("vobbo-store.json")), bytes);
  struct stat st;
  ASSERT_EQ(::stat(tmp.file("new/vobbo-store.json").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0640u);
}

TEST(DataFilesTest, FailedMoveLeavesTheOriginalAndNoPartialCopy) {
  TempDir tmp;
  const std::string from = tmp.file("vobbo-store.json");
  test::writeFile(from, std::string(64 * 1024, 'x'));
  ASSERT_OK(Files::createDirectories(tmp.file("new")));
  const std::string to = tmp.file("new/vobbo-store.json");

  EXPECT_EQ(DataFiles::moveStore(from, tmp.file("gone/vobbo-store.json")),
            (MoveResult{false, "Could not copy the data: could not write " +
                                   tmp.file("gone/vobbo-store.json") +
                                   ": No such file or directory. Nothing moved."}));
  test::writeFile(to, "theirs");
  EXPECT_FALSE(DataFiles::moveStore(from, to).ok);
  EXPECT_EQ(test::readFile(to), "theirs");
  EXPECT_EQ(test::readFile(from), std::string(64 * 1024, 'x'));
  std::filesystem::remove(to);
  EXPECT_EQ(std::filesystem::directory_iterator(tmp.file("new")),
            std::filesystem::directory_iterator())
      << "no partial copy left behind";
}

TEST(DataFilesTest, ExportNeverOverwritesAnEarlierExport) {
  TempDir tmp;
  const JSONValue payload = JSONObject{{"storeVersion", 2}};
  EXPECT_EQ(DataFiles::writeExport(tmp.path(), "vobbo-export-2026-11-21.json", payload)->message,
            "Exported Quibly’s data to " + tmp.file("vobbo-export-2026-11-21.json") + ".");
  EXPECT_EQ(DataFiles::writeExport(tmp.path(), "vobbo-export-2026-11-21.json", payload)->message,
            "Exported Quibly’s data to " + tmp.file("vobbo-export-2026-11-21-2.json") + ".");
  EXPECT_EQ(test::readFile(tmp.file("vobbo-export-2026-11-21-2.json")),
            "{\n  \"storeVersion\": 2\n}\n");
  EXPECT_ERROR(DataFiles::writeExport(tmp.file("nope"), "x.json", payload),
               "Could not export: " + tmp.file("nope") + " is not a folder.");
}

TEST(DataFilesTest, EraseRemovesChosenKeysButNeverTheVersion) {
  TempDir tmp;
  VobboStore store(tmp.path());
  store.write(JSONObject{{"notes", 1}, {"tasks", 2}, {"theme", "dark"}, {"storeVersion", 2}});
  EXPECT_EQ(DataFiles::erase(store, {"notes", "tasks", "storeVersion", "missing"}), 2u);
  EXPECT_EQ(VobboStore(tmp.path()).read(), (JSONObject{{"storeVersion", 2}, {"theme", "dark"}}));
  EXPECT_EQ(DataFiles::fileFact(store.file()).bytes,
            static_cast<int64_t>(test::readFile(store.file()).size()));
  EXPECT_FALSE(DataFiles::fileFact(tmp.path()).exists) << "a folder is not a file";
}

}  // namespace
}  // namespace vobbo
