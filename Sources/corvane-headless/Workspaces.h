#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/Result.h"

namespace CorvaneControl::Headless {

/// The workspaces and which of them is the current one. Pure state: it opens no window and starts
/// no program. Workspaces are told apart by their position in the list, which never changes.
class Workspaces {
 public:
  /// Why something can't be done, in one line for the user.
  struct Refusal {
    std::string message{};
  };

  /// At most one of `all` may be active; projects are absolute paths.
  explicit Workspaces(std::vector<WorkspaceSummary> all);

  const std::vector<WorkspaceSummary>& all() const { return all_; }
  const WorkspaceSummary& operator[](std::size_t position) const { return all_[position]; }

  /// The position of the current workspace; absent when none is active.
  std::optional<std::size_t> current() const { return current_; }

  /// The workspace that a user means: its exact name, else "-" for the one that was current before,
  /// else the start of the name, ignoring case, when only one begins that way. A refusal lists the
  /// candidates.
  Result<std::size_t, Refusal> find(std::string_view name) const;

  /// Makes it the current one. False when it was already: "-" then stays as it is.
  bool switchTo(std::size_t position);

  /// Opens the windows that the last `stop` closed, or that the workspace began with, at least one;
  /// one more when it has windows already. Gives the count before.
  std::int64_t launch(std::size_t position);
  /// Closes all its windows. Gives the count before.
  std::int64_t stop(std::size_t position);

  /// The workspace whose project folder contains `folder`, or is it; of several the one whose
  /// folder is the deepest. Whole path components count: "/a/site" does not contain "/a/site-2".
  std::optional<std::size_t> holding(std::string_view folder) const;

  void mark(std::size_t position, Attention attention);
  /// Takes the mark off; false when there was none.
  bool clearMark(std::size_t position);

 private:
  std::vector<WorkspaceSummary> all_;
  std::vector<std::int64_t> closedWindows_{};  // what `launch` opens, by position
  std::optional<std::size_t> current_{};
  std::optional<std::size_t> previous_{};
};

/// An absolute path without empty components, "." and ".."; nothing is looked up on disk.
std::string normalizedPath(std::string_view path);

/// Whether `folder` is `parent` or lies in it; both normalized.
bool isInside(std::string_view folder, std::string_view parent);

}  // namespace CorvaneControl::Headless
