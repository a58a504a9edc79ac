#include <cstdlib>
#include <cstring>

#include <sys/stat.h>

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
  if (!home) return std::nullopt;
  std::string folder = *home + "/Library/Application Support";
  if (usesLibraryFolderAlways) return folder;
  struct stat status {};
  if (::stat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return folder;
  auto data = environmentValue("XDG_DATA_HOME");
  if (data && data->starts_with('/')) return data;
  return *home + "/.local/share";
}

mode_t permissionsInOtherGroup(mode_t permissions) {
  const unsigned common = (permissions >> 3U) & permissions & S_IRWXO;
  return static_cast<mode_t>((permissions & (S_ISUID | S_ISVTX | S_IRWXU)) | (common << 3U) |
                             common);
}

std::string errorText(int code) { return std::strerror(code); }

}  // namespace CorvaneControl::System
