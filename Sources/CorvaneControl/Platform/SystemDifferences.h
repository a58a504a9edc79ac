#pragma once

#include <optional>
#include <string>

/// What SystemPOSIX.cpp asks of SystemLinux.cpp and SystemDarwin.cpp; nobody else includes this.
namespace CorvaneControl::System {

/// Whether applications keep their data in "~/Library/Application Support" even while that folder
/// does not exist.
extern const bool usesLibraryFolderAlways;

/// The current user's home folder in the user database; absent when there is no entry.
std::optional<std::string> homeInUserDatabase();

}  // namespace CorvaneControl::System
