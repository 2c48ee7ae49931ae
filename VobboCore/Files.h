#pragma once
// File helpers shared by everything that keeps data on disk. The one rule they
// exist for: a file the person relies on is never left half-written. Writes go
// to a temporary file in the same folder, are flushed to disk, renamed over the
// old file in one step, and the folder is flushed so the rename survives a crash.

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "Result.h"

namespace vobbo::Files {

// Whether to follow a symbolic link at the destination of a write.
enum class Links { follow, replace };

// The whole file, or nothing when no file is there. Fails with a sentence naming
// the file when it exists but cannot be read (a folder, no permission).
Result<std::optional<std::string>> read(const std::string& path);

// Replaces the file's contents atomically and durably (see above). An existing
// file keeps its permissions; a new one gets newFileMode. With Links::follow a
// symbolic link stays a link and the file it points to receives the bytes.
// Fails with a sentence naming the file; the old contents are then untouched.
Result<void> writeAtomically(const std::string& path, std::string_view bytes,
                             mode_t newFileMode = 0600, Links links = Links::follow);

// Creates the folder and any missing parents (each new one with `mode`).
Result<void> createDirectories(const std::string& path, mode_t mode = 0700);

// Flushes a folder's entries to disk, so a rename or removal in it survives a
// crash. Best effort: a folder that cannot be opened is passed over.
void syncFolder(const std::string& folder);

// The folder part of a path ("." for a bare name) and the last component.
std::string parentOf(std::string_view path);
std::string lastComponent(std::string_view path);

bool exists(const std::string& path);
bool isDirectory(const std::string& path);

}  // namespace vobbo::Files
