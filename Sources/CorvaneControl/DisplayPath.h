#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Paths as people are shown them. Nothing is looked up on the disk, and nothing resolved.
namespace CorvaneControl::DisplayPath {

/// `path` with the user's home folder written as "~"; as it is when it lies elsewhere, or without a
/// home. A slash too many in `home` does no harm: "/u//me/" is the home of "/u/me/x".
std::string abbreviated(std::string_view path, std::optional<std::string_view> home);

/// `path` as seen from `folder`; `abbreviated` when it lies elsewhere, or without a folder.
std::string relative(std::string_view path, std::optional<std::string_view> folder,
                     std::optional<std::string_view> home);

/// The file name at the end of a path; slashes that follow it do not count. "/" itself for a path
/// of nothing else.
std::string_view lastComponent(std::string_view path);

}  // namespace CorvaneControl::DisplayPath
