#include "Printing.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "CorvaneControl/JSON.h"
#include "CorvaneControl/Platform/Text.h"

using CorvaneControl::ControlRequest;
using CorvaneControl::ControlResponse;
using CorvaneControl::WorkspaceSummary;
using CorvaneControl::ControlCommandLine::Format;

namespace {

/// One line for each workspace: the mark of the active one, the name, the windows, the shortcut.
std::string table(const std::vector<WorkspaceSummary>& workspaces) {
  std::vector<std::size_t> widths;
  widths.reserve(workspaces.size());
  for (const WorkspaceSummary& workspace : workspaces) {
    widths.push_back(CorvaneControl::Text::characters(workspace.name));
  }
  const std::size_t width = widths.empty() ? 0 : *std::ranges::max_element(widths);

  std::string text;
  for (std::size_t index = 0; index < workspaces.size(); ++index) {
    const WorkspaceSummary& workspace = workspaces[index];
    text.append(workspace.active ? "* " : "  ").append(workspace.name);
    text.append(width - widths[index] + 2, ' ');
    CorvaneControl::JSON::writeInteger(workspace.windows, text);
    text.append(workspace.windows == 1 ? " window" : " windows");
    if (workspace.shortcut) text.append("  ").append(*workspace.shortcut);
    text.push_back('\n');
  }
  return text;
}

}  // namespace

std::string printed(const ControlResponse& response, Format format,
                    ControlRequest::Command command) {
  if (format == Format::json) return CorvaneControl::ControlCoding::line(response);
  if (command == ControlRequest::Command::current && response.workspace) {
    return response.workspace->name + "\n";
  }
  if (command == ControlRequest::Command::list && response.workspaces) {
    return table(*response.workspaces);
  }
  return {};
}
