#include "Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "Descriptor.h"

namespace vobbo::Files {

namespace {

std::string reason(int error) { return std::strerror(error); }

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

// Where the bytes really go: the target of a symbolic link, followed as the
// system would (relative targets resolve against the link's folder).
std::string resolveLinks(const std::string& path) {
  std::string current = path;
  for (int hops = 0; hops < 40; ++hops) {
    struct stat st;
    if (::lstat(current.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return current;
    char target[PATH_MAX];
    ssize_t n = ::readlink(current.c_str(), target, sizeof target - 1);
    if (n <= 0) return current;
    std::string t(target, static_cast<size_t>(n));
    current = t.front() == '/' ? t : parentOf(current) + "/" + t;
  }
  return current;
}

}  // namespace

std::string parentOf(std::string_view path) {
  size_t slash = path.find_last_of('/');
  if (slash == std::string_view::npos) return ".";
  if (slash == 0) return "/";
  return std::string(path.substr(0, slash));
}

std::string lastComponent(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  size_t slash = path.find_last_of('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

bool exists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

bool isDirectory(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

void syncFolder(const std::string& folder) {
  Descriptor dir(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dir.valid()) (void)::fsync(dir.get());
}

Result<std::optional<std::string>> read(const std::string& path) {
  int raw = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (raw < 0) {
    if (errno == ENOENT) return std::optional<std::string>();
    return failure("Could not read " + path + ": " + reason(errno) + ".");
  }
  Descriptor fd(raw);
  struct stat st;
  if (::fstat(fd.get(), &st) == 0 && S_ISDIR(st.st_mode)) {
    return failure("Could not read " + path + ": it is a folder, not a file.");
  }
  std::string out;
  if (st.st_size > 0) out.reserve(static_cast<size_t>(st.st_size));
  char buffer[65536];
  for (;;) {
    ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return failure("Could not read " + path + ": " + reason(errno) + ".");
    if (n == 0) break;
    out.append(buffer, static_cast<size_t>(n));
  }
  return std::optional<std::string>(std::move(out));
}

Result<void> createDirectories(const std::string& path, mode_t mode) {
  if (path.empty() || isDirectory(path)) return {};
  std::string parent = parentOf(path);
  if (parent != path) {
    auto made = createDirectories(parent, mode);
    if (!made) return made;
  }
  if (::mkdir(path.c_str(), mode) != 0 && errno != EEXIST) {
    return failure("Could not create the folder " + path + ": " + reason(errno) + ".");
  }
  if (!isDirectory(path))
    return failure("Could not create the folder " + path + ": a file is in the way.");
  return {};
}

Result<void> writeAtomically(const std::string& path, std::string_view bytes, mode_t newFileMode,
                             Links links) {
  const std::string target = links == Links::follow ? resolveLinks(path) : path;
  const std::string folder = parentOf(target);
  auto fail = [&](int error) {
    return failure("Could not write " + path + ": " + reason(error) + ".");
  };

  mode_t mode = newFileMode;
  struct stat st;
  if (::stat(target.c_str(), &st) == 0) mode = st.st_mode & 07777;

  std::string temp = folder + "/." + lastComponent(target) + ".XXXXXX";
  Descriptor fd(::mkstemp(temp.data()));
  if (fd.get() < 0) return fail(errno);
  auto discard = [&](int error) {
    ::unlink(temp.c_str());
    return fail(error);
  };
  if (::fchmod(fd.get(), mode) != 0) return discard(errno);
  if (!writeAll(fd.get(), bytes)) return discard(errno ? errno : EIO);
  if (::fsync(fd.get()) != 0) return discard(errno);
  if (::close(fd.release()) != 0) return discard(errno);
  if (::rename(temp.c_str(), target.c_str()) != 0) return discard(errno);

  // Flush the folder so the new name is on disk too; a failure here cannot undo
  // the rename and the data is already written, so it is not reported.
  syncFolder(folder);
  return {};
}

}  // namespace vobbo::Files
