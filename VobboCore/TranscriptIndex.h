#pragma once
// The index of the coding agents' transcript files on this machine, each with
// the state folded from it. It finds the files where each agent keeps them under
// the home folder:
//
//   Claude Code  .claude/projects/<folder>/<session>.jsonl, and its subagents'
//                files in .claude/projects/<folder>/<session>/subagents/*.jsonl
//   Codex        .codex/sessions/YYYY/MM/DD/rollout-*.jsonl, .codex/archived_sessions/*.jsonl
//   Gemini CLI   .gemini/tmp/<project>/chats/session-*.jsonl
//   Grok CLI     .grok/sessions/**/*.jsonl
//   Aider        .aider.chat.history.md in the folders given as aiderFolders
//
// Each refresh reads only the bytes appended to a file since the last one and
// folds whole lines only: a partial last line waits for the next refresh. A
// large file seen for the first time is read from its tail (the state is marked
// partial), so opening a transcript of a gigabyte is instant. A file that shrank
// or was replaced is read again from the start; a file that vanished is
// forgotten. Memory stays bounded by the longest line, never by the file.
//
// The index reads files and never writes them. It is not shared between
// threads; give each thread its own.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Result.h"
#include "Transcript.h"

namespace vobbo {

class TranscriptIndex {
 public:
  struct Options {
    std::string home;                       // the folder the agents keep their files under
    std::vector<std::string> aiderFolders;  // project folders that may hold an Aider history
    // A file larger than this, seen for the first time, is read from its last
    // tailBytes only.
    int64_t tailBytes = 8 << 20;
  };

  explicit TranscriptIndex(Options options);

  // Finds the transcript files and folds what each gained since the last
  // refresh. Files that cannot be read are left out; nothing fails.
  void refresh();

  // The files found by the last refresh, most recently changed first. `dirty`
  // marks those whose state changed in that refresh.
  const std::vector<IndexedTranscript>& entries() const { return entries_; }
  std::vector<TranscriptRef> refs() const;

  // Which file on disk an entry's state was folded from, to tell a file that was
  // replaced under the same name.
  struct FileIdentity {
    uint64_t device = 0;
    uint64_t inode = 0;
    bool operator==(const FileIdentity&) const = default;
  };

  // Folds the new whole lines of one file into its entry, starting over when
  // the file shrank or was replaced. Exposed for callers that watch one file.
  // Fails with a sentence when the file cannot be read; the entry keeps its state.
  static Result<void> update(IndexedTranscript& entry, FileIdentity& identity, int64_t tailBytes);

  // Folds a whole file from its start, reading it in pieces.
  static Result<TranscriptState> foldFile(const std::string& path, AgentKind agent);

  // The agent whose transcript a path looks like, from where the file is kept
  // and how it is named; nothing when it matches no agent's layout.
  static std::optional<AgentKind> agentOf(const std::string& path);

 private:
  struct Found {
    std::string path;
    AgentKind agent;
    std::optional<std::string> slug;
  };
  std::vector<Found> discover() const;

  Options options_;
  std::vector<IndexedTranscript> entries_;
  std::vector<FileIdentity> identities_;  // one per entry
};

}  // namespace vobbo
