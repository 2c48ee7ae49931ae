#pragma once
// The data folder's tools: moving the store to another folder, exporting the
// document, erasing chosen keys, and file facts for the data page. A move never
// overwrites anything and never loses anything: the store is copied, the copy
// is read back and compared byte for byte, and the original is left in place.
// Whoever switches to the new folder (the app, or the person setting
// VOBBO_DATA_DIR) removes the old file once the new folder is in use.

#include <string>
#include <string_view>
#include <vector>

#include "DataLocations.h"
#include "JSONValue.h"
#include "Result.h"

namespace vobbo {

class VobboStore;

namespace DataFiles {

struct MoveResult {
  bool ok = false;
  std::string message;  // shown to the person
  bool operator==(const MoveResult&) const = default;
};

// May the data move to `target`? Checks, in this order, that a folder is
// given, exists, is a folder, can be written, is not the current data folder
// nor a folder inside it, and holds no file named `storeFileName`. When the current folder has no
// store file yet, the answer is ok with "Nothing saved yet, so new data starts
// there."; otherwise ok with "Quibly can move its data there.".
MoveResult check(std::string_view target, std::string_view currentDir,
                 std::string_view storeFileName);

// Copies the store file `fromFile` to `toFile` (which must not exist) with the
// original's permissions, reads the copy back and compares it byte for byte.
// The original always stays. On any failure a partial copy is removed and the
// message says "Could not copy the data: <reason>. Nothing moved."
MoveResult moveStore(const std::string& fromFile, const std::string& toFile);

struct Exported {
  std::string path;
  std::string message;  // "Exported Quibly’s data to <path>."
};

// Writes the export payload into `folder` as `fileName`; when a file of that
// name exists, as "<name>-2.json", "-3" and so on, so nothing is overwritten.
// Fails with a sentence saying why the file could not be written.
Result<Exported> writeExport(const std::string& folder, std::string_view fileName,
                             const JSONValue& payload);

// Removes the given top-level keys from the store in one write (storeVersion is
// never removed). Returns how many keys were there.
size_t erase(VobboStore& store, const std::vector<std::string>& keys);

// Whether a file is at `path`, and its size.
DataLocations::FileFact fileFact(const std::string& path);

}  // namespace DataFiles
}  // namespace vobbo
