// Reading transcript files incrementally. Each entry remembers how many bytes
// of its file were consumed (TranscriptState::offset, always at a line's end).
// A refresh stats the file and, when it grew, reads from that offset in pieces
// of a megabyte, folds each whole line and moves the offset past it. Bytes after
// the last newline are left for the next refresh: an agent may be halfway
// through writing that line. A piece that holds no newline at all grows until
// it does, so the memory used is about the longest line, whatever the file.
//
// Starting over: a file whose size fell below the offset, or whose device and
// inode changed, was truncated or replaced; its state is folded afresh.
//
// A large file seen for the first time starts at its last `tailBytes`. That
// point usually falls inside a line, so the state is marked `align` and the
// first (partial) line is dropped before folding; `partial` stays set to say the
// state does not cover the whole file.

#include "TranscriptIndex.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <unordered_map>

#include "Descriptor.h"
#include "Files.h"

namespace vobbo {

namespace fs = std::filesystem;

namespace {

constexpr size_t kPiece = 1 << 20;

std::string readFailure(const std::string& path, int error) {
  return "Quibly could not read " + path + ": " + std::strerror(error) + ".";
}

// Reads at most `count` bytes at `offset`, retrying interrupted reads. Returns the
// number read (0 at the end of the file) or -1.
ssize_t readAt(int fd, char* into, size_t count, int64_t offset) {
  for (;;) {
    ssize_t n = ::pread(fd, into, count, static_cast<off_t>(offset));
    if (n >= 0 || errno != EINTR) return n;
  }
}

// Folds the whole lines of the file from `offset` on; returns the offset just
// past the last newline folded, or nothing when reading failed. With `align`,
// the first line is dropped unfolded. With FinalLine::fold, bytes after the last
// newline are folded as a line too (the whole file is being read).
enum class FinalLine { wait, fold };

std::optional<int64_t> foldFrom(int fd, int64_t offset, AgentKind agent, TranscriptState& state,
                                FinalLine finalLine) {
  std::string buffer(kPiece, '\0');
  size_t held = 0;  // bytes of an unfinished line carried from the last piece
  std::vector<std::string_view> lines;
  for (;;) {
    if (held == buffer.size()) buffer.resize(buffer.size() * 2);  // one very long line
    ssize_t n =
        readAt(fd, buffer.data() + held, buffer.size() - held, offset + static_cast<int64_t>(held));
    if (n < 0) return std::nullopt;
    size_t filled = held + static_cast<size_t>(n);
    std::string_view piece(buffer.data(), filled);
    size_t end = n == 0 ? std::string_view::npos : piece.rfind('\n');
    if (n == 0 && (finalLine == FinalLine::wait || filled == 0)) return offset;
    size_t usable = end == std::string_view::npos ? filled : end + 1;
    if (n != 0 && end == std::string_view::npos) {  // no whole line yet: read more
      held = filled;
      continue;
    }
    lines.clear();
    for (std::string_view rest = piece.substr(0, usable); !rest.empty();) {
      size_t nl = rest.find('\n');
      std::string_view line = rest.substr(0, nl);
      if (state.align == true) {
        state.align.reset();
      } else {
        lines.push_back(line);
      }
      rest.remove_prefix(nl == std::string_view::npos ? rest.size() : nl + 1);
    }
    Transcript::fold(agent, lines, state);
    offset += static_cast<int64_t>(usable);
    if (n == 0) return offset;
    held = filled - usable;
    std::memmove(buffer.data(), buffer.data() + usable, held);
    if (buffer.size() > kPiece && held < kPiece) buffer.resize(std::max(kPiece, held));
  }
}

// Whether the byte before `offset` ends a line, so reading can start there cleanly.
bool startsLine(int fd, int64_t offset) {
  char before = 0;
  return offset == 0 || (readAt(fd, &before, 1, offset - 1) == 1 && before == '\n');
}

double mtimeMsOf(const struct stat& st) {
#if defined(__APPLE__)
  const timespec& t = st.st_mtimespec;
#else
  const timespec& t = st.st_mtim;
#endif
  return static_cast<double>(t.tv_sec) * 1000.0 + static_cast<double>(t.tv_nsec) / 1e6;
}

}  // namespace

Result<void> TranscriptIndex::update(IndexedTranscript& entry, FileIdentity& identity,
                                     int64_t tailBytes) {
  Descriptor file(::open(entry.path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat st {};
  if (file.get() < 0 || ::fstat(file.get(), &st) != 0)
    return failure(readFailure(entry.path, errno));
  if (!S_ISREG(st.st_mode))
    return failure("Quibly could not read " + entry.path + ": it is not a file.");
  FileIdentity now{static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino)};
  int64_t size = st.st_size;
  TranscriptState state = entry.state.value_or(TranscriptState{});
  bool fresh = !entry.state || identity != now || size < state.offset;
  if (fresh) {
    state = TranscriptState{};
    if (size > tailBytes && tailBytes >= 0) {
      state.offset = size - tailBytes;
      state.partial = true;
      if (!startsLine(file.get(), state.offset)) state.align = true;
    }
  }
  entry.size = size;
  entry.mtimeMs = mtimeMsOf(st);
  if (!fresh && size == state.offset) {
    entry.dirty = false;
    return {};
  }
  auto consumed = foldFrom(file.get(), state.offset, entry.agent, state, FinalLine::wait);
  if (!consumed) return failure(readFailure(entry.path, errno));
  entry.dirty = fresh || *consumed != state.offset;
  state.offset = *consumed;
  entry.state = std::move(state);
  identity = now;
  return {};
}

Result<TranscriptState> TranscriptIndex::foldFile(const std::string& path, AgentKind agent) {
  Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat st {};
  if (file.get() < 0 || ::fstat(file.get(), &st) != 0) return failure(readFailure(path, errno));
  if (S_ISDIR(st.st_mode)) return failure("Quibly could not read " + path + ": it is a folder.");
  TranscriptState state;
  auto consumed = foldFrom(file.get(), 0, agent, state, FinalLine::fold);
  if (!consumed) return failure(readFailure(path, errno));
  state.offset = *consumed;
  return state;
}

// ---- Finding the files --------------------------------------------------

namespace {

bool endsWith(std::string_view s, std::string_view suffix) { return s.ends_with(suffix); }

// The entries of a folder (files and folders alike); nothing when it cannot be read.
std::vector<fs::path> listFolder(const fs::path& folder) {
  std::vector<fs::path> out;
  std::error_code ec;
  fs::directory_iterator it(folder, ec);
  for (; !ec && it != fs::directory_iterator(); it.increment(ec)) out.push_back(it->path());
  std::sort(out.begin(), out.end());
  return out;
}

bool isFolder(const fs::path& path) {
  std::error_code ec;
  return fs::is_directory(path, ec);
}

bool isFile(const fs::path& path) {
  std::error_code ec;
  return fs::is_regular_file(path, ec);
}

// Files under `folder` (to `depth` levels of folders) whose names pass `keep`.
template <class Keep>
void collect(const fs::path& folder, int depth, Keep keep, std::vector<fs::path>& out) {
  for (const fs::path& path : listFolder(folder)) {
    if (isFolder(path)) {
      if (depth > 0) collect(path, depth - 1, keep, out);
    } else if (keep(path.filename().string()) && isFile(path)) {
      out.push_back(path);
    }
  }
}

}  // namespace

std::vector<TranscriptIndex::Found> TranscriptIndex::discover() const {
  std::vector<Found> found;
  fs::path home(options_.home);
  auto jsonl = [](const std::string& name) { return endsWith(name, ".jsonl"); };
  for (const fs::path& project : listFolder(home / ".claude" / "projects")) {
    if (!isFolder(project)) continue;
    std::string slug = project.filename().string();
    for (const fs::path& path : listFolder(project)) {
      if (isFile(path) && jsonl(path.filename().string())) {
        found.push_back({path.string(), AgentKind::claude, slug});
      } else if (isFolder(path)) {
        std::vector<fs::path> subagents;
        collect(path / "subagents", 0, jsonl, subagents);
        for (const fs::path& sub : subagents)
          found.push_back({sub.string(), AgentKind::claude, slug});
      }
    }
  }
  auto rollout = [](const std::string& name) {
    return name.starts_with("rollout-") && endsWith(name, ".jsonl");
  };
  std::vector<fs::path> codex;
  collect(home / ".codex" / "sessions", 3, rollout, codex);
  collect(home / ".codex" / "archived_sessions", 0, jsonl, codex);
  for (const fs::path& path : codex)
    found.push_back({path.string(), AgentKind::codex, std::nullopt});
  for (const fs::path& project : listFolder(home / ".gemini" / "tmp")) {
    std::vector<fs::path> chats;
    collect(
        project / "chats", 0,
        [](const std::string& name) {
          return name.starts_with("session-") && endsWith(name, ".jsonl");
        },
        chats);
    for (const fs::path& path : chats) {
      found.push_back({path.string(), AgentKind::gemini, project.filename().string()});
    }
  }
  std::vector<fs::path> grok;
  collect(home / ".grok" / "sessions", 2, jsonl, grok);
  for (const fs::path& path : grok) found.push_back({path.string(), AgentKind::grok, std::nullopt});
  for (const std::string& folder : options_.aiderFolders) {
    fs::path history = fs::path(folder) / ".aider.chat.history.md";
    if (isFile(history)) found.push_back({history.string(), AgentKind::aider, std::nullopt});
  }
  return found;
}

namespace {

// A session id from the file name: Claude's "<uuid>.jsonl", Codex's
// "rollout-<date>-<uuid>.jsonl", Gemini's "session-<date>-<id>.jsonl".
std::string idFromName(const std::string& path, AgentKind agent) {
  std::string stem = fs::path(path).stem().string();
  if (agent == AgentKind::codex && stem.size() > 36) return stem.substr(stem.size() - 36);
  if (agent == AgentKind::aider) return Files::parentOf(path);
  return stem;
}

void describe(IndexedTranscript& entry) {
  const TranscriptState* state = entry.state ? &*entry.state : nullptr;
  bool subagent = entry.path.find("/subagents/") != std::string::npos;
  if (entry.agent == AgentKind::claude || !state || !state->sessionId || subagent) {
    entry.id = idFromName(entry.path, entry.agent);
  } else {
    entry.id = *state->sessionId;
  }
  if (state && state->cwd) {
    entry.cwd = *state->cwd;
  } else if (entry.agent == AgentKind::aider) {
    entry.cwd = Files::parentOf(entry.path);
  }
  if (subagent && entry.state) entry.state->subagent = true;
}

}  // namespace

TranscriptIndex::TranscriptIndex(Options options) : options_(std::move(options)) {}

void TranscriptIndex::refresh() {
  std::unordered_map<std::string, size_t> known;
  for (size_t i = 0; i < entries_.size(); ++i) known.emplace(entries_[i].path, i);
  std::vector<IndexedTranscript> entries;
  std::vector<FileIdentity> identities;
  for (Found& file : discover()) {
    IndexedTranscript entry;
    FileIdentity identity;
    if (auto it = known.find(file.path); it != known.end()) {
      entry = std::move(entries_[it->second]);
      identity = identities_[it->second];
    } else {
      entry.path = file.path;
      entry.agent = file.agent;
      entry.slug = file.slug;
    }
    if (!update(entry, identity, options_.tailBytes)) continue;  // vanished or unreadable
    describe(entry);
    entries.push_back(std::move(entry));
    identities.push_back(identity);
  }
  // Most recently changed first; identities follow their entries.
  std::vector<size_t> order(entries.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return entries[a].mtimeMs > entries[b].mtimeMs; });
  entries_.clear();
  identities_.clear();
  for (size_t i : order) {
    entries_.push_back(std::move(entries[i]));
    identities_.push_back(identities[i]);
  }
}

std::vector<TranscriptRef> TranscriptIndex::refs() const {
  std::vector<TranscriptRef> out;
  out.reserve(entries_.size());
  for (const IndexedTranscript& e : entries_) {
    out.push_back({e.id, e.path, e.agent, e.cwd, e.mtimeMs, e.slug});
  }
  return out;
}

std::optional<AgentKind> TranscriptIndex::agentOf(const std::string& path) {
  std::string name = fs::path(path).filename().string();
  if (name.ends_with(".aider.chat.history.md")) return AgentKind::aider;
  if (path.find("/.claude/") != std::string::npos) return AgentKind::claude;
  if (path.find("/.codex/") != std::string::npos || name.starts_with("rollout-")) {
    return AgentKind::codex;
  }
  if (path.find("/.gemini/") != std::string::npos || name.starts_with("session-")) {
    return AgentKind::gemini;
  }
  if (path.find("/.grok/") != std::string::npos) return AgentKind::grok;
  if (path.find("/.cursor/") != std::string::npos) return AgentKind::cursor;
  if (name.ends_with(".jsonl")) return AgentKind::claude;  // the most common by far
  return std::nullopt;
}

}  // namespace vobbo
