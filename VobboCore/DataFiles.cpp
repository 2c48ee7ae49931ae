#include "DataFiles.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <climits>
#include <cstdlib>

#include "Files.h"
#include "VobboStore.h"

namespace vobbo::DataFiles {

namespace {

MoveResult refuse(std::string message) { return MoveResult{false, std::move(message)}; }

// The folder as the system resolves it, so "/a/b/", "/a/./b" and a link to it
// compare equal; the path itself when it cannot be resolved.
std::string canonical(std::string_view path) {
  std::string text(path);
  char buffer[PATH_MAX];
  if (::realpath(text.c_str(), buffer)) return buffer;
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

// Turns one of our own failure sentences into a clause that fits after
// "Could not copy the data: ".
std::string reasonFrom(std::string sentence) {
  while (!sentence.empty() && sentence.back() == '.') sentence.pop_back();
  if (!sentence.empty())
    sentence[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(sentence[0])));
  return sentence;
}

// Whether anything, even a link to nowhere, already has the name: a copy
// written through such a link would land outside the chosen folder.
bool taken(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

MoveResult copyFailed(std::string_view reason) {
  return refuse("Could not copy the data: " + std::string(reason) + ". Nothing moved.");
}

std::string numbered(std::string_view fileName, int n) {
  std::string name(fileName);
  if (n < 2) return name;
  size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0) dot = name.size();
  return name.substr(0, dot) + "-" + std::to_string(n) + name.substr(dot);
}

}  // namespace

MoveResult check(std::string_view target, std::string_view currentDir,
                 std::string_view storeFileName) {
  if (target.empty()) return refuse("Choose a folder.");
  const std::string folder(target);
  struct stat st;
  if (::stat(folder.c_str(), &st) != 0) return refuse("That folder does not exist.");
  if (!S_ISDIR(st.st_mode)) return refuse("That is not a folder.");
  if (::access(folder.c_str(), W_OK | X_OK) != 0) {
    return refuse("Quibly cannot write there. Check the folder’s permissions.");
  }
  const std::string resolved = canonical(folder);
  const std::string current = canonical(currentDir);
  if (resolved == current) return refuse("Quibly’s data is already there.");
  if (resolved.starts_with(current + "/")) {
    return refuse("That folder is inside Quibly’s data folder, " + current +
                  ". Choose a folder outside it.");
  }
  const std::string name(storeFileName);
  if (taken(folder + "/" + name)) {
    return refuse("That folder already has a " + name +
                  ". Choose an empty folder so nothing is overwritten.");
  }
  if (!Files::exists(std::string(currentDir) + "/" + name)) {
    return MoveResult{true, "Nothing saved yet, so new data starts there."};
  }
  return MoveResult{true, "Quibly can move its data there."};
}

MoveResult moveStore(const std::string& fromFile, const std::string& toFile) {
  if (taken(toFile)) {
    return refuse("That folder already has a " + Files::lastComponent(toFile) +
                  ". Choose an empty folder so nothing is overwritten.");
  }
  auto original = Files::read(fromFile);
  if (!original.ok()) return copyFailed(reasonFrom(original.error()));
  if (!original->has_value()) return copyFailed("there is no store file at " + fromFile);
  struct stat st;
  const mode_t mode = ::stat(fromFile.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0600;
  if (auto wrote = Files::writeAtomically(toFile, **original, mode); !wrote.ok()) {
    return copyFailed(reasonFrom(wrote.error()));
  }
  auto copy = Files::read(toFile);
  if (!copy.ok() || !copy->has_value() || **copy != **original) {
    ::unlink(toFile.c_str());
    return copyFailed("the copy did not match");
  }
  return MoveResult{true, "Copied Quibly’s data to " + Files::parentOf(toFile) +
                              " and checked the copy byte for byte."};
}

Result<Exported> writeExport(const std::string& folder, std::string_view fileName,
                             const JSONValue& payload) {
  if (!Files::isDirectory(folder))
    return failure("Could not export: " + folder + " is not a folder.");
  std::string path;
  for (int n = 1;; ++n) {
    path = folder + "/" + numbered(fileName, n);
    if (!Files::exists(path)) break;
  }
  std::string bytes = payload.encode(JSONValue::Format::pretty);
  bytes += '\n';
  auto wrote = Files::writeAtomically(path, bytes, 0600, Files::Links::replace);
  if (!wrote.ok()) return failure("Could not export: " + reasonFrom(wrote.error()) + ".");
  return Exported{path, "Exported Quibly’s data to " + path + "."};
}

size_t erase(VobboStore& store, const std::vector<std::string>& keys) {
  size_t removed = 0;
  store.update([&](JSONObject& document) {
    for (const std::string& key : keys) {
      if (key != "storeVersion" && document.erase(key)) ++removed;
    }
    return removed > 0;
  });
  return removed;
}

DataLocations::FileFact fileFact(const std::string& path) {
  DataLocations::FileFact fact;
  fact.path = path;
  struct stat st;
  if (!path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
    fact.exists = true;
    fact.bytes = static_cast<int64_t>(st.st_size);
  }
  return fact;
}

}  // namespace vobbo::DataFiles
