#include "CorvaneControl/Bundle.h"

#include <string_view>

#include "CorvaneControl/Platform/Files.h"
#include "CorvaneControl/Platform/PropertyList.h"
#include "CorvaneControl/Platform/System.h"

namespace CorvaneControl {

namespace {

std::string_view parent(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

}  // namespace

std::optional<std::map<std::string, std::string>> enclosingAppInfo() {
  const auto executable = System::executablePath();
  if (!executable) return std::nullopt;
  const std::string contents(parent(parent(*executable)));
  if (!contents.ends_with("/Contents")) return std::nullopt;
  const auto file = Files::read(contents + "/Info.plist");
  if (!file || !*file) return std::nullopt;
  return PropertyList::strings((*file)->bytes);
}

}  // namespace CorvaneControl
