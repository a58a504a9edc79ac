#include "CorvaneControl/DisplayPath.h"

#include <algorithm>

namespace CorvaneControl::DisplayPath {

namespace {

/// What follows the folder in a path below it, from the slash on; absent for other paths. Of
/// several slashes in a row the folder may have more than the path.
std::optional<std::string_view> remainder(std::string_view path, std::string_view folder) {
  if (folder.empty()) return std::nullopt;
  // Slashes at the end name the same folder; only the root is one slash.
  folder = folder.substr(0, std::max(folder.find_last_not_of('/') + 1, std::size_t{1}));
  char before = '\0';
  for (const char byte : folder) {
    if (path.starts_with(byte)) {
      path.remove_prefix(1);
    } else if (byte != '/' || before != '/') {
      return std::nullopt;
    }
    before = byte;
  }
  return path.empty() || path.front() == '/' ? std::optional(path) : std::nullopt;
}

}  // namespace

std::string abbreviated(std::string_view path, std::optional<std::string_view> home) {
  const auto rest = home ? remainder(path, *home) : std::nullopt;
  return rest ? std::string("~").append(*rest) : std::string(path);
}

std::string relative(std::string_view path, std::optional<std::string_view> folder,
                     std::optional<std::string_view> home) {
  if (folder && path.starts_with(*folder)) {
    const auto rest = path.substr(folder->size());
    if (folder->ends_with('/')) return std::string(rest);
    if (rest.starts_with('/')) return std::string(rest.substr(1));
  }
  return abbreviated(path, home);
}

std::string_view lastComponent(std::string_view path) {
  const auto last = path.find_last_not_of('/');
  if (last == std::string_view::npos) return path.substr(0, 1);
  const auto name = path.substr(0, last + 1);
  return name.substr(name.rfind('/') + 1);
}

}  // namespace CorvaneControl::DisplayPath
