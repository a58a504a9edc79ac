#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/Platform/SystemDifferences.h"
#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl::System {

std::optional<std::string> environmentValue(std::string_view name) {
  const char* const value = std::getenv(std::string(name).c_str());
  if (!value) return std::nullopt;
  return Text::repaired(value);
}

std::optional<std::string> homeFolder() {
  auto home = environmentValue("HOME");
  if (home && !home->empty()) return home;
  home = homeInUserDatabase();
  if (home && !home->empty()) return home;
  return std::nullopt;
}

std::optional<std::string> applicationSupportFolder() {
  const auto home = homeFolder();
  if (home) {
    std::string folder = *home + "/Library/Application Support";
    if (usesLibraryFolderAlways) return folder;
    struct stat status {};
    if (::stat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return folder;
  }
  if (!usesLibraryFolderAlways) {
    auto data = environmentValue("XDG_DATA_HOME");
    if (data && data->starts_with('/')) return data;
  }
  if (!home) return std::nullopt;
  return *home + "/.local/share";
}

mode_t permissionsInOtherGroup(mode_t permissions) {
  const unsigned common = (permissions >> 3U) & permissions & S_IRWXO;
  return static_cast<mode_t>((permissions & (S_ISUID | S_ISVTX | S_IRWXU)) | (common << 3U) |
                             common);
}

namespace {

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};
using Folder = std::unique_ptr<DIR, CloseFolder>;

/// Opens a folder, relative to another one; null at failure.
Folder openFolder(int start, const char* path) {
  const int descriptor = ::openat(start, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return nullptr;
  Folder folder(::fdopendir(descriptor));
  if (!folder) ::close(descriptor);
  return folder;
}

bool isSameFile(const struct stat& left, const struct stat& right) {
  return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

/// The name of a folder in the one above it; absent when there is none.
std::optional<std::string> nameOf(const struct stat& folder, DIR* above) {
  while (const dirent* const entry = ::readdir(above)) {
    const std::string_view name = entry->d_name;
    struct stat status {};
    if (name != "." && name != ".." &&
        ::fstatat(::dirfd(above), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        isSameFile(status, folder)) {
      return std::string(name);
    }
  }
  return std::nullopt;
}

/// The current folder, found out by walking up: the system tells no path beyond its own limit, and
/// not every C library does this by itself.
std::optional<std::string> currentFolderByWalking() {
  std::string path;
  Folder folder = openFolder(AT_FDCWD, ".");
  for (struct stat status{}; folder && ::fstat(::dirfd(folder.get()), &status) == 0;) {
    Folder above = openFolder(::dirfd(folder.get()), "..");
    struct stat statusAbove {};
    if (!above || ::fstat(::dirfd(above.get()), &statusAbove) != 0) break;
    if (isSameFile(status, statusAbove)) return path.empty() ? "/" : path;
    const auto name = nameOf(status, above.get());
    if (!name) break;
    path.insert(0, "/" + *name);
    folder = std::move(above);
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> currentFolder() {
  char path[4096];  // not cleared; a system that allows longer ones says so
  if (::getcwd(path, sizeof path)) return path;
  if (errno != ERANGE && errno != ENAMETOOLONG) return std::nullopt;
  return currentFolderByWalking();
}

bool occupyStandardDescriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (::fcntl(descriptor, F_GETFD) != -1 || errno != EBADF) continue;
    // What is opened takes the lowest number that is free: this one.
    if (::open("/dev/null", O_RDWR) < 0 && ::open("/", O_RDONLY | O_DIRECTORY) < 0) return false;
  }
  return true;
}

std::string errorText(int code) { return std::strerror(code); }

}  // namespace CorvaneControl::System
