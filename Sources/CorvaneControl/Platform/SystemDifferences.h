#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

/// What SystemPOSIX.cpp and the systems' own sources ask of each other; nobody else includes this.
namespace CorvaneControl::System {

/// Whether applications keep their data in "~/Library/Application Support" even while that folder
/// does not exist.
extern const bool usesLibraryFolderAlways;

/// The current user's home folder in the user database; absent when there is no entry.
std::optional<std::string> homeInUserDatabase();

/// The permissions for a file whose group is another one now, and which has no access control list
/// that speaks of its group. The new group's members were "others" before, and those of the former
/// group are now: both get only what both had.
mode_t permissionsInOtherGroup(mode_t permissions);

}  // namespace CorvaneControl::System
