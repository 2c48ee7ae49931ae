#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "Files.h"
#include "TestSupport.h"
#include "TranscriptIndex.h"

namespace vobbo {
namespace {

namespace fs = std::filesystem;

void append(const std::string& path, std::string_view bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::app);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  ASSERT_TRUE(out.good());
}

// A home folder with each agent's files where the agent keeps them.
class TranscriptIndexTest : public ::testing::Test {
 protected:
  std::string claudeFile(std::string_view project, std::string_view session) {
    std::string folder = home_.path() + "/.claude/projects/" + std::string(project);
    EXPECT_OK(Files::createDirectories(folder));
    return folder + "/" + std::string(session) + ".jsonl";
  }
  std::string place(const std::string& relative) {
    std::string path = home_.path() + "/" + relative;
    EXPECT_OK(Files::createDirectories(Files::parentOf(path)));
    return path;
  }
  const IndexedTranscript* entry(const TranscriptIndex& index, const std::string& path) {
    for (const auto& e : index.entries()) {
      if (e.path == path) return &e;
    }
    return nullptr;
  }
  TranscriptIndex::Options options() { return {.home = home_.path(), .aiderFolders = {}}; }

  test::TempDir home_;
};

std::string claudeSample() {
  return test::readFile(test::dataPath(
      "transcripts/claude/-home-dev-scratch-claude-runs-agent-tui-allow-20261121-151646-work/"
      "7c6e173d-f95c-4c12-8641-e07165238fb1.jsonl"));
}

TEST_F(TranscriptIndexTest, FindsEachAgentsFilesWhereTheyKeepThem) {
  std::string sample = test::dataPath("transcripts/");
  std::string claude = claudeFile("-home-me-app", "7c6e173d-f95c-4c12-8641-e07165238fb1");
  test::writeFile(claude, claudeSample());
  std::string sub = place(
      ".claude/projects/-home-me-app/7c6e173d-f95c-4c12-8641-e07165238fb1/"
      "subagents/agent-a1.jsonl");
  test::writeFile(sub, "");
  std::string codex = place(
      ".codex/sessions/2026/11/21/rollout-2026-11-21T15-11-16-"
      "01a1fea9-62f8-7723-aba9-854d45647fb6.jsonl");
  test::writeFile(codex, test::readFile(sample + "codex/allow-tui-1.rollout.jsonl"));
  std::string archived = place(".codex/archived_sessions/rollout-old.jsonl");
  test::writeFile(archived, "");
  std::string gemini = place(".gemini/tmp/ws/chats/session-2026-11-21T15-15-7bfd.jsonl");
  test::writeFile(gemini, test::readFile(sample + "gemini/allow-once.session.jsonl"));
  test::writeFile(place(".gemini/tmp/ws/chats/notes.txt"), "not a transcript");
  std::string aider = home_.file("proj/.aider.chat.history.md");
  test::writeFile(place("proj/.aider.chat.history.md"), "#### hello\n");

  TranscriptIndex::Options o = options();
  o.aiderFolders = {home_.file("proj")};
  TranscriptIndex index(o);
  index.refresh();
  ASSERT_EQ(index.entries().size(), 6u);
  const struct {
    std::string path;
    AgentKind agent;
    std::string id;
  } expected[] = {
      {claude, AgentKind::claude, "7c6e173d-f95c-4c12-8641-e07165238fb1"},
      {sub, AgentKind::claude, "agent-a1"},
      {codex, AgentKind::codex, "01a1fea9-62f8-7723-aba9-854d45647fb6"},
      {archived, AgentKind::codex, "rollout-old"},
      {gemini, AgentKind::gemini, "7bfdc2ae-60c9-4991-9169-f126dfddaa1f"},
      {aider, AgentKind::aider, home_.file("proj")},
  };
  for (const auto& e : expected) {
    SCOPED_TRACE(e.path);
    const IndexedTranscript* found = entry(index, e.path);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->agent, e.agent);
    EXPECT_EQ(found->id, e.id);
    EXPECT_EQ(found->size, static_cast<int64_t>(fs::file_size(e.path)));
    EXPECT_TRUE(found->dirty);
  }
  EXPECT_EQ(entry(index, sub)->state->subagent, true);
  EXPECT_EQ(entry(index, claude)->slug, "-home-me-app");
  EXPECT_EQ(entry(index, gemini)->cwd, "/home/dev/scratch/gemini/run-1795274111/ws");
  EXPECT_EQ(index.refs().size(), 6u);

  // Nothing changed: nothing is dirty, and a vanished file is forgotten.
  ASSERT_EQ(::unlink(gemini.c_str()), 0);
  index.refresh();
  EXPECT_EQ(index.entries().size(), 5u);
  for (const auto& e : index.entries()) EXPECT_FALSE(e.dirty) << e.path;
}

// Whatever batches the bytes arrive in, splits inside lines included, the
// index ends with the state of folding the whole file at once.
TEST_F(TranscriptIndexTest, AnySplitIntoBatchesFoldsLikeTheWholeFile) {
  std::string sample = test::dataPath("transcripts/");
  const struct {
    AgentKind agent;
    std::string relative;
    std::string bytes;
  } files[] = {
      {AgentKind::claude, ".claude/projects/p/s.jsonl", claudeSample() + claudeSample()},
      {AgentKind::codex, ".codex/sessions/2026/11/21/rollout-x.jsonl",
       test::readFile(sample + "codex/allow-tui-1.rollout.jsonl")},
      {AgentKind::gemini, ".gemini/tmp/ws/chats/session-x.jsonl",
       test::readFile(sample + "gemini/allow-once.session.jsonl") + "\n"},
  };
  for (const auto& file : files) {
    // The whole-file fold: every line at once, straight through the reader.
    std::vector<std::string_view> lines;
    for (std::string_view rest = file.bytes; !rest.empty();) {
      size_t end = rest.find('\n');
      lines.push_back(rest.substr(0, end));
      rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
    TranscriptState expected;
    Transcript::fold(file.agent, lines, expected);
    expected.offset = static_cast<int64_t>(file.bytes.size());
    for (unsigned seed = 1; seed <= 12; ++seed) {
      SCOPED_TRACE(testing::Message() << file.relative << " seed " << seed);
      std::string path = place(file.relative);
      test::writeFile(path, "");
      TranscriptIndex index(options());
      std::mt19937 random(seed);
      size_t written = 0;
      while (written < file.bytes.size()) {
        size_t most = seed % 3 == 0 ? 40 : 3000;  // some runs in very small batches
        size_t n = std::min(file.bytes.size() - written, 1 + random() % most);
        append(path, std::string_view(file.bytes).substr(written, n));
        written += n;
        index.refresh();
      }
      const IndexedTranscript* e = entry(index, path);
      ASSERT_TRUE(e && e->state);
      EXPECT_EQ(toJSON(*e->state).encode(), toJSON(expected).encode());
    }
  }
}

TEST_F(TranscriptIndexTest, TruncatedOrReplacedFileStartsOver) {
  std::string path = claudeFile("p", "s");
  std::string one =
      R"({"type":"user","uuid":"u","timestamp":"2026-11-21T10:00:00Z","message":{"content":"one"}})"
      "\n";
  std::string two =
      R"({"type":"user","uuid":"v","timestamp":"2026-11-21T10:00:01Z","message":{"content":"two"}})"
      "\n";
  test::writeFile(path, one + two);
  TranscriptIndex index(options());
  index.refresh();
  EXPECT_EQ(index.entries()[0].state->turns, 2);

  ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(one.size())), 0);
  index.refresh();
  EXPECT_EQ(index.entries()[0].state->turns, 1);
  EXPECT_EQ(index.entries()[0].state->lastText, "one");

  // Replaced by a new file of at least the same size: still read afresh.
  std::string replacement = home_.file("new.jsonl");
  test::writeFile(replacement, two + two);
  ASSERT_EQ(::rename(replacement.c_str(), path.c_str()), 0);
  index.refresh();
  EXPECT_EQ(index.entries()[0].state->turns, 2);
  EXPECT_EQ(index.entries()[0].state->lastText, "two");
}

TEST_F(TranscriptIndexTest, LargeFileStartsFromItsTail) {
  std::string path = claudeFile("p", "s");
  std::string bytes;
  for (int i = 0; i < 2000; ++i) {
    bytes += R"({"type":"user","uuid":"u)" + std::to_string(i) +
             R"(","message":{"content":"prompt )" + std::to_string(i) + "\"}}\n";
  }
  test::writeFile(path, bytes);
  TranscriptIndex::Options o = options();
  o.tailBytes = 1000;
  TranscriptIndex index(o);
  index.refresh();
  const TranscriptState& s = *index.entries()[0].state;
  EXPECT_EQ(s.partial, true);
  EXPECT_FALSE(s.align);  // the partial first line was dropped
  EXPECT_EQ(s.offset, static_cast<int64_t>(bytes.size()));
  EXPECT_GT(s.turns, 5);
  EXPECT_LT(s.turns, 20);
  EXPECT_EQ(s.lastText, "prompt 1999");

  // A single line far longer than a reading piece, then ordinary lines again.
  std::string huge =
      R"({"type":"user","uuid":"h","message":{"content":")" + std::string(3 << 20, 'x') + "\"}}\n";
  append(path, huge + R"({"type":"user","uuid":"z","message":{"content":"after"}})"
                      "\n");
  index.refresh();
  EXPECT_EQ(index.entries()[0].state->lastText, "after");
}

TEST_F(TranscriptIndexTest, HugeGarbageLineIsPassedOver) {
  std::string path = home_.file("huge.jsonl");
  std::string garbage(50 << 20, '\x9c');
  garbage[0] = '{';
  test::writeFile(path, garbage + "\n" +
                            R"({"type":"user","uuid":"z","message":{"content":"still here"}})"
                            "\n");
  auto state = TranscriptIndex::foldFile(path, AgentKind::claude);
  ASSERT_OK(state);
  EXPECT_EQ(state->lastText, "still here");
  EXPECT_EQ(state->turns, 1);
}

TEST_F(TranscriptIndexTest, FoldFileExplainsWhatItCannotRead) {
  EXPECT_ERROR(
      TranscriptIndex::foldFile(home_.file("missing.jsonl"), AgentKind::claude),
      "Quibly could not read " + home_.file("missing.jsonl") + ": No such file or directory.");
  EXPECT_ERROR(TranscriptIndex::foldFile(home_.path(), AgentKind::claude),
               "Quibly could not read " + home_.path() + ": it is a folder.");
}

TEST(TranscriptIndexAgentTest, GuessesTheAgentFromThePath) {
  const struct {
    std::string_view path;
    std::optional<AgentKind> agent;
  } cases[] = {
      {"/h/.claude/projects/p/s.jsonl", AgentKind::claude},
      {"/h/.codex/sessions/2026/01/01/rollout-a.jsonl", AgentKind::codex},
      {"rollout-2026.jsonl", AgentKind::codex},
      {"/h/.gemini/tmp/x/chats/session-1.jsonl", AgentKind::gemini},
      {"/h/.grok/sessions/a.jsonl", AgentKind::grok},
      {"/h/.cursor/chats/a/b.jsonl", AgentKind::cursor},
      {"/p/.aider.chat.history.md", AgentKind::aider},
      {"/tmp/notes.txt", std::nullopt},
      {"/tmp/notes.md", std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    EXPECT_EQ(TranscriptIndex::agentOf(std::string(c.path)), c.agent);
  }
}

}  // namespace
}  // namespace vobbo
