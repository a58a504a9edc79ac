#include "corvane-headless/WorkspacesFile.h"

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/Platform/Text.h"
#include "Fuzz/Input.h"
#include "corvane-headless/Visible.h"

using CorvaneControl::ControlResponse;
using CorvaneControl::WorkspaceSummary;
using CorvaneTests::require;
namespace ControlCoding = CorvaneControl::ControlCoding;
namespace Text = CorvaneControl::Text;
namespace WorkspacesFile = CorvaneControl::Headless::WorkspacesFile;

namespace {

constexpr std::string_view home = "/home/user";

/// Longer than any place that a file has with any reason that there is.
constexpr std::size_t longestProblem = 800;

bool isVisible(const std::string& text) { return CorvaneControl::Headless::visible(text) == text; }

void check(std::string_view problem) {
  require(problem.starts_with("file:") && problem.size() <= longestProblem);
  while (!problem.empty()) {
    const Text::Scalar scalar = Text::firstScalar(problem);
    require(!Text::isDeceptive(scalar.value));
    problem.remove_prefix(scalar.size);
  }
}

void check(const std::vector<WorkspaceSummary>& workspaces) {
  std::set<std::string> names;
  std::set<std::string> identifiers;
  std::size_t active = 0;
  for (const WorkspaceSummary& workspace : workspaces) {
    require(names.insert(workspace.name).second && !Text::isBlank(workspace.name));
    require(identifiers.insert(workspace.id.text()).second);
    require(isVisible(workspace.name) && isVisible(workspace.section));
    require(!workspace.shortcut || isVisible(*workspace.shortcut));
    require(workspace.windows >= 0 && workspace.windows <= WorkspacesFile::mostWindows);
    require(!workspace.project || workspace.project->starts_with('/'));
    if (workspace.active) ++active;
  }
  require(active <= 1);
}

}  // namespace

/// Any text is refused with one line that a terminal can show, or gives workspaces that differ, and
/// what the command prints of them is a file that gives the same.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CorvaneTests::Input input(data, size);
  const auto read = WorkspacesFile::parse(std::string(input.text()), "file", std::string(home));
  if (!read) {
    check(read.failure().description);
    return 0;
  }
  check(*read);
  const ControlResponse printed{.ok = true, .workspaces = *read};
  const auto again = WorkspacesFile::parse(ControlCoding::line(printed), "file", std::string(home));
  require(again && *again == *read);
  return 0;
}
