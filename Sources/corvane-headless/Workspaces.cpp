#include "corvane-headless/Workspaces.h"

#include <algorithm>
#include <utility>

#include "CorvaneControl/Platform/Text.h"
#include "corvane-headless/Visible.h"

namespace CorvaneControl::Headless {

namespace {

/// More names than these don't help in a message.
constexpr std::size_t mostNamesListed = 20;
/// Scalars of a name that a message repeats.
constexpr std::size_t longestNameRepeated = 100;

/// "Mail", "Mail or Site", "Mail, Site or Notes".
std::string alternatives(const std::vector<std::string_view>& names, std::string_view lastJoint) {
  std::string text;
  const std::size_t listed = std::min(names.size(), mostNamesListed);
  for (std::size_t index = 0; index < listed; ++index) {
    if (index > 0) text.append(index + 1 == names.size() ? lastJoint : ", ");
    text.append(names[index]);
  }
  if (listed < names.size()) {
    text.append(" and ").append(std::to_string(names.size() - listed)).append(" more");
  }
  return text;
}

std::string quoted(std::string_view name) {
  return "\"" + visibleStart(name, longestNameRepeated) + "\"";
}

}  // namespace

Workspaces::Workspaces(std::vector<WorkspaceSummary> all) : all_(std::move(all)) {
  for (std::size_t position = 0; position < all_.size(); ++position) {
    WorkspaceSummary& workspace = all_[position];
    closedWindows_.push_back(std::max<std::int64_t>(workspace.windows, 1));
    if (workspace.active) current_ = position;
    if (workspace.project) workspace.project = normalizedPath(*workspace.project);
  }
}

Result<std::size_t, Workspaces::Refusal> Workspaces::find(std::string_view name) const {
  const auto exact = std::ranges::find(all_, name, &WorkspaceSummary::name);
  if (exact != all_.end()) return static_cast<std::size_t>(exact - all_.begin());
  if (name == "-") {
    if (!previous_) return Refusal{"There is no previous workspace yet."};
    return *previous_;
  }

  std::vector<std::string_view> names;
  std::vector<std::string_view> matches;
  std::size_t match = 0;
  const std::string start = Text::caseFolded(name);
  for (std::size_t position = 0; position < all_.size(); ++position) {
    const std::string& candidate = all_[position].name;
    names.push_back(candidate);
    if (start.empty() || !Text::caseFolded(candidate).starts_with(start)) continue;
    matches.push_back(candidate);
    match = position;
  }
  if (matches.size() == 1) return match;
  if (!matches.empty()) {
    return Refusal{quoted(name) + " could be " + alternatives(matches, " or ") + "."};
  }
  const std::string problem =
      name.empty() ? "Which workspace?" : "No workspace is called " + quoted(name) + ".";
  if (names.empty()) return Refusal{problem + " There are none."};
  return Refusal{problem + " There " + (names.size() == 1 ? "is " : "are ") +
                 alternatives(names, " and ") + "."};
}

bool Workspaces::switchTo(std::size_t position) {
  if (current_ == position) return false;
  if (current_) all_[*current_].active = false;
  previous_ = std::exchange(current_, position);
  all_[position].active = true;
  return true;
}

std::int64_t Workspaces::launch(std::size_t position) {
  std::int64_t& windows = all_[position].windows;
  return std::exchange(windows, windows == 0 ? closedWindows_[position] : windows + 1);
}

std::int64_t Workspaces::stop(std::size_t position) {
  std::int64_t& windows = all_[position].windows;
  if (windows > 0) closedWindows_[position] = windows;
  return std::exchange(windows, 0);
}

std::optional<std::size_t> Workspaces::holding(std::string_view folder) const {
  if (!folder.starts_with('/')) return std::nullopt;
  const std::string inside = normalizedPath(folder);
  std::optional<std::size_t> deepest;
  for (std::size_t position = 0; position < all_.size(); ++position) {
    const std::optional<std::string>& project = all_[position].project;
    if (!project || !isInside(inside, *project)) continue;
    // Both contain the folder, so the longer path is the deeper one.
    if (!deepest || project->size() > all_[*deepest].project->size()) deepest = position;
  }
  return deepest;
}

void Workspaces::mark(std::size_t position, Attention attention) {
  all_[position].attention = std::move(attention);
}

bool Workspaces::clearMark(std::size_t position) {
  return std::exchange(all_[position].attention, std::nullopt).has_value();
}

std::string normalizedPath(std::string_view path) {
  std::vector<std::string_view> components;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string_view component = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    if (component == "..") {
      if (!components.empty()) components.pop_back();
    } else if (!component.empty() && component != ".") {
      components.push_back(component);
    }
  }
  std::string result;
  for (const std::string_view component : components) result.append("/").append(component);
  return result.empty() ? "/" : result;
}

bool isInside(std::string_view folder, std::string_view parent) {
  if (parent == "/") return true;
  return folder.starts_with(parent) &&
         (folder.size() == parent.size() || folder[parent.size()] == '/');
}

}  // namespace CorvaneControl::Headless
