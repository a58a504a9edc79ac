#include "corvane-headless/HooksCommand.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

#include <unistd.h>

#include "CorvaneControl/AgentHooks.h"
#include "CorvaneControl/Result.h"
#include "corvane-headless/Visible.h"

namespace CorvaneControl::Headless {

namespace {

using Action = CommandLine::Hooks::Action;
using Found = Result<AgentHooks::State, AgentHookFile::Failure>;

std::string_view text(AgentHooks::State state) {
  switch (state) {
    case AgentHooks::State::absent:
      return "absent";
    case AgentHooks::State::added:
      return "added";
    case AgentHooks::State::outdated:
      return "outdated";
  }
  return {};
}

/// "~/.claude/settings.json:3: not JSON"
std::string describe(const AgentHookFile& file, const AgentHookFile::Failure& failure) {
  const std::string name = file.displayPath();
  if (failure.file) return name + ": " + visible(failure.file->description());
  if (failure.problem && failure.problem->line) {
    return name + ":" + std::to_string(*failure.problem->line) + ": not JSON";
  }
  return name + ": JSON, but not of the shape that hooks are kept in";
}

/// Columns as wide as their widest cell; the texts are ASCII.
std::string table(const std::vector<std::array<std::string, 4>>& rows) {
  std::array<std::size_t, 4> widths{};
  for (const auto& row : rows) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], row[column].size());
    }
  }
  std::string drawing;
  for (const auto& row : rows) {
    for (std::size_t column = 0; column + 1 < row.size(); ++column) {
      drawing.append(row[column]).append(widths[column] + 2 - row[column].size(), ' ');
    }
    drawing.append(row.back()).append("\n");
  }
  return drawing;
}

class HooksCommand {
 public:
  HooksCommand(const CommandLine::Hooks& options, const std::string& home, const std::string& tool)
      : options_(options), tool_(tool) {
    const auto add = [&](Agent agent) { files_.push_back({.agent = agent, .home = home}); };
    if (options.agents.empty()) {
      std::ranges::for_each(allAgents, add);
    } else {
      std::ranges::for_each(options.agents, add);
    }
  }

  HooksReport run() {
    switch (options_.action) {
      case Action::status:
        status();
        break;
      case Action::show:
        show();
        break;
      case Action::add:
        if (canBeAdded() && allAreUnderstood()) add();
        break;
      case Action::remove:
        if (allAreUnderstood()) remove();
        break;
    }
    return std::move(report_);
  }

 private:
  void say(const AgentHookFile& file, std::string_view what) {
    report_.output.append(wireName(file.agent)).append(": ").append(what).append("\n");
  }
  void complain(std::string message) {
    report_.messages.push_back(std::move(message));
    report_.hasProblem = true;
  }

  void status() {
    std::vector<std::array<std::string, 4>> rows{{"AGENT", "HERE", "FILE", "HOOKS"}};
    for (const AgentHookFile& file : files_) {
      const Found state = file.state(tool_);
      if (!state) complain(describe(file, state.failure()));
      rows.push_back({std::string(wireName(file.agent)), file.isSetUp() ? "yes" : "no",
                      file.displayPath(), std::string(state ? text(*state) : "unknown")});
    }
    report_.output = table(rows);
  }

  void show() {
    for (const AgentHookFile& file : files_) {
      // A single snippet is printed alone, so that it can be redirected into a file.
      if (files_.size() > 1) report_.output.append(file.displayPath()).append(":\n");
      report_.output.append(AgentHooks::snippet(file.agent, tool_));
    }
  }

  /// Whether the hooks can be told from the user's own afterwards.
  bool canBeAdded() {
    if (tool_.find("corvanectl") == std::string::npos) {
      complain(
          "the tool's path has no \"corvanectl\" in it, so its hooks could not be recognised "
          "and removed again: " +
          visible(tool_));
      return false;
    }
    if (::access(tool_.c_str(), X_OK) != 0) {
      report_.messages.push_back("warning: there is no program at " + visible(tool_));
    }
    return true;
  }

  bool allAreUnderstood() {
    for (const AgentHookFile& file : files_) {
      if (!file.isSetUp()) continue;
      const Found state = file.state(tool_);
      if (!state) complain(describe(file, state.failure()) + "; nothing is changed");
    }
    return !report_.hasProblem;
  }

  bool isHere(const AgentHookFile& file) {
    if (!file.isSetUp()) {
      say(file,
          "not on this machine (there is no ~/" + AgentHooks::folder(file.agent) + "), skipped");
    }
    return file.isSetUp();
  }

  void add() {
    for (const AgentHookFile& file : files_) {
      if (!isHere(file)) continue;
      const Found state = file.state(tool_);
      const bool wasOutdated = state && *state == AgentHooks::State::outdated;
      const auto change = file.add(tool_);
      if (!change) {
        complain(describe(file, change.failure()) + "; it is left as it was");
      } else if (!change->written) {
        say(file, "the hooks are in " + file.displayPath() + " already");
      } else {
        say(file, (wasOutdated ? "hooks updated in " : "hooks added to ") + where(file, *change));
      }
    }
  }

  void remove() {
    for (const AgentHookFile& file : files_) {
      if (!isHere(file)) continue;
      const Found state = file.state(tool_);
      // Removing nothing would still lay out the text anew, or make a file.
      if (state && *state == AgentHooks::State::absent) {
        say(file, "there are no hooks in " + file.displayPath());
        continue;
      }
      const auto change = file.remove();
      if (!change) {
        complain(describe(file, change.failure()) + "; it is left as it was");
      } else {
        say(file, "hooks removed from " + where(file, *change));
      }
    }
  }

  /// "~/.claude/settings.json (as it was before: /home/ada/.claude/settings.json.corvane-backup)"
  static std::string where(const AgentHookFile& file, const AgentHookFile::Change& change) {
    std::string place = file.displayPath();
    if (change.path != file.url()) place += ", which is " + visible(change.path);
    return place + (change.backup ? " (as it was before: " + visible(*change.backup) + ")"
                                  : " (a new file)");
  }

  const CommandLine::Hooks& options_;
  const std::string& tool_;
  std::vector<AgentHookFile> files_{};
  HooksReport report_{};
};

}  // namespace

HooksReport lookAfterHooks(const CommandLine::Hooks& options, const std::string& home,
                           const std::string& tool) {
  return HooksCommand(options, home, tool).run();
}

}  // namespace CorvaneControl::Headless
