#pragma once
// Shared fixtures for the unit and end-to-end tests: temporary folders that
// clean up after themselves, child processes with their output captured, and
// the EXPECT_OK / EXPECT_ERROR macros for Result values.

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Result.h"

namespace vobbo::test {

// A fresh folder under `base` (by default $TMPDIR or /tmp), removed with
// everything in it when the object goes away. Paths are kept short so socket
// paths inside fit.
class TempDir {
 public:
  explicit TempDir(std::string_view base = {});
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir();
  const std::string& path() const { return path_; }
  std::string file(std::string_view name) const { return path_ + "/" + std::string(name); }

 private:
  std::string path_;
};

// Makes a folder read-only while the object lives. Root ignores permissions,
// so for root the folder is marked immutable instead, where the file system
// allows it; ok() says whether the folder is read-only now.
class ReadOnlyFolder {
 public:
  explicit ReadOnlyFolder(std::string folder);
  ReadOnlyFolder(const ReadOnlyFolder&) = delete;
  ReadOnlyFolder& operator=(const ReadOnlyFolder&) = delete;
  ~ReadOnlyFolder();
  bool ok() const { return ok_; }

 private:
  std::string folder_;
  bool ok_ = false;
};

// Reads and writes whole files; a failure stops the test.
std::string readFile(const std::string& path);
void writeFile(const std::string& path, std::string_view bytes);

struct ProcessResult {
  int exitCode = -1;  // -1 when killed by a signal
  std::string out;
  std::string err;
  double elapsedMs = 0;
};

struct ProcessOptions {
  // Written to standard input, which is then closed unless keepInputOpen.
  std::string input;
  bool keepInputOpen = false;
  // Set (or, with nullopt, unset) on top of our own environment.
  std::map<std::string, std::optional<std::string>> env;
  double timeoutSeconds = 30;  // then SIGKILL
};

// Runs a program with arguments (argv[0] included) and waits for it.
ProcessResult runProcess(const std::vector<std::string>& argv, const ProcessOptions& options = {});

// A child process left running, for tests that signal or race it.
class Child {
 public:
  // Starts argv with standard input from `input` (then closed) and output captured.
  static Child start(const std::vector<std::string>& argv, const ProcessOptions& options = {});
  Child(Child&& other) noexcept;
  Child& operator=(Child&&) = delete;
  Child(const Child&) = delete;
  ~Child();  // kills and reaps a child still running
  int pid() const { return pid_; }
  void kill(int signal);
  // With keepInputOpen: more bytes for standard input, and its end.
  void writeInput(std::string_view bytes);
  void closeInput();
  // Reads standard output until it holds `text` (true) or the time runs out
  // (false); what was read stays part of wait()'s output.
  bool readUntil(std::string_view text, double timeoutSeconds = 10);
  // Waits for the child to end (killing it after timeoutSeconds) and collects output.
  ProcessResult wait(double timeoutSeconds = 30);

 private:
  Child() = default;
  int pid_ = -1;
  int outFd_ = -1;
  int errFd_ = -1;
  int inFd_ = -1;
  double startMs_ = 0;
  std::string out_;
};

// Path of the data bundled under tests/data, and of a file in the repository.
std::string dataPath(std::string_view relative);
std::string sourcePath(std::string_view relative);

}  // namespace vobbo::test

#define EXPECT_OK(expr)                                                 \
  do {                                                                  \
    const auto& result_ = (expr);                                       \
    EXPECT_TRUE(result_.ok()) << (result_.ok() ? "" : result_.error()); \
  } while (0)

#define ASSERT_OK(expr)                                                 \
  do {                                                                  \
    const auto& result_ = (expr);                                       \
    ASSERT_TRUE(result_.ok()) << (result_.ok() ? "" : result_.error()); \
  } while (0)

#define EXPECT_ERROR(expr, sentence)      \
  do {                                    \
    const auto& result_ = (expr);         \
    ASSERT_FALSE(result_.ok());           \
    EXPECT_EQ(result_.error(), sentence); \
  } while (0)
