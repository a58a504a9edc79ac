#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/Result.h"

/// The file that says which workspaces there are: a JSON array of objects. Only "name" is needed:
///
///     [
///       {"name": "Site", "section": "Work", "shortcut": "⌥1", "windows": 3, "active": true,
///        "project": "~/Projects/site"},
///       {"name": "Mail"}
///     ]
///
/// "project" is an absolute path, or begins with "~". "id" is a UUID; without it the name decides,
/// the same one each time. "attention" is a mark as `corvanectl list --json` shows it, and the
/// object that this command prints is accepted in place of the array.
namespace CorvaneControl::Headless::WorkspacesFile {

/// Why a file gives no workspaces, in one line that says what is wrong and where.
struct Problem {
  std::string description{};
};

/// The most windows that a file may give to a workspace.
inline constexpr std::int64_t mostWindows = 1'000'000;
/// The size of the largest file.
inline constexpr std::size_t largestFileMiB = 16;
inline constexpr std::size_t largestFile = largestFileMiB << 20U;  // bytes

/// Reads all workspaces, or none. `file` is the name that problems call the text by: "FILE:LINE:
/// ..." for a text that is no JSON, "FILE: [2].windows: ..." for a wrong workspace. `home` stands
/// for "~".
Result<std::vector<WorkspaceSummary>, Problem> parse(const std::string& text, std::string_view file,
                                                     const std::optional<std::string>& home);

/// The same from a file on disk.
Result<std::vector<WorkspaceSummary>, Problem> read(const std::string& path,
                                                    const std::optional<std::string>& home);

/// The workspaces that are there without a file.
std::vector<WorkspaceSummary> sample(const std::optional<std::string>& home);

}  // namespace CorvaneControl::Headless::WorkspacesFile
