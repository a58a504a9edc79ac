#pragma once

#include <map>
#include <optional>
#include <string>

namespace CorvaneControl {

/// The texts in the information dictionary (Contents/Info.plist) of the application bundle that
/// contains the running executable, symbolic links to it resolved; absent outside a bundle, and
/// when the dictionary cannot be read.
std::optional<std::map<std::string, std::string>> enclosingAppInfo();

}  // namespace CorvaneControl
