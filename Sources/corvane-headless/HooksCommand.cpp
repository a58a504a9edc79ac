#include "corvane-headless/HooksCommand.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

#include <unistd.h>

#include "CorvaneControl/AgentHooks.h"
#include "CorvaneControl/Platform/Text.h"
#include "CorvaneControl/Result.h"
#include "CorvaneControl/Unreachable.h"
#include "corvane-headless/Visible.h"

namespace CorvaneControl::Headless {

namespace {

using Action = CommandLine::Hooks::Action;
using Draft = AgentHookFile::Draft;
using Failure = AgentHookFile::Failure;
using Problem = AgentHooks::Problem;

std::string_view text(AgentHooks::State state) {
  switch (state) {
    case AgentHooks::State::absent:
      return "absent";
    case AgentHooks::State::added:
      return "added";
    case AgentHooks::State::outdated:
      return "outdated";
  }
  unreachable();
}

/// A path in the agent's folder as "~/.claude/settings.json", any other as it is.
std::string shown(const AgentHookFile& file, const std::string& path) {
  const std::string folder = file.folder();
  const bool isInside = path == folder || path.starts_with(folder + "/");
  return isInside ? "~/" + AgentHooks::folder(file.agent) + visible(path.substr(folder.size()))
                  : visible(path);
}

/// "~/.claude/settings.json:3: not JSON"
std::string describe(const AgentHookFile& file, const Problem& problem) {
  const std::string name = file.displayPath();
  switch (problem.kind) {
    case Problem::Kind::syntax:
      return name + ":" + std::to_string(problem.line.value_or(1)) + ": not JSON";
    case Problem::Kind::shape:
      return name + ": JSON, but not of the shape that hooks are kept in";
    case Problem::Kind::toolPath:
      return name + ": the tool's path is not UTF-8, so it can't be written there";
  }
  unreachable();
}
std::string describe(const AgentHookFile& file, const Failure& failure) {
  if (failure.problem) return describe(file, *failure.problem);
  return shown(file, failure.file->path) + ": " + visible(failure.file->description());
}

using Row = std::array<std::string, 4>;
/// Columns as wide as their widest cell; the texts are ASCII.
std::string table(const std::vector<Row>& rows) {
  std::array<std::size_t, std::tuple_size_v<Row>> widths{};
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
  HooksCommand(const CommandLine::Hooks& options, const std::string& home, const std::string& tool,
               Files::Calls& calls)
      : options_(options), tool_(tool), calls_(calls) {
    const std::string real = Files::resolvedFolder(home, calls);
    const auto add = [&](Agent agent) { files_.push_back({.agent = agent, .home = real}); };
    if (options.agents.empty()) {
      std::ranges::for_each(allAgents, add);
    } else {
      std::ranges::for_each(options.agents, add);
    }
  }

  HooksReport run() {
    switch (options_.action) {
      case Action::status:
        if (toolCanBeWritten()) status();
        break;
      case Action::show:
        if (toolCanBeWritten()) show();
        break;
      case Action::add:
        if (toolCanBeWritten() && toolIsRecognised()) add();
        break;
      case Action::remove:
        remove();
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

  bool toolCanBeWritten() {
    if (Text::isUTF8(tool_)) return true;
    complain("the tool's path is not UTF-8, so no hook can name it: " + visible(tool_));
    return false;
  }

  /// Whether the hooks can be told from the user's own afterwards.
  bool toolIsRecognised() {
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

  void status() {
    std::vector<Row> rows{{"AGENT", "HERE", "FILE", "HOOKS"}};
    for (const AgentHookFile& file : files_) rows.push_back(row(file));
    report_.output = table(rows);
  }

  Row row(const AgentHookFile& file) {
    Row row{std::string(wireName(file.agent)), "unknown", file.displayPath(), "unknown"};
    const auto here = file.isHere(calls_);
    if (!here) {
      complain(describe(file, here.failure()));
      return row;
    }
    row[1] = *here ? "yes" : "no";
    const auto state = file.state(tool_, calls_);
    if (state) {
      row[3] = text(*state);
    } else {
      complain(describe(file, state.failure()));
    }
    return row;
  }

  void show() {
    for (const AgentHookFile& file : files_) {
      // A single snippet is printed alone, so that it can be redirected into a file.
      if (files_.size() > 1) report_.output.append(file.displayPath()).append(":\n");
      report_.output.append(AgentHooks::snippet(file.agent, tool_));
    }
  }

  void add() {
    change([&](const AgentHookFile& file) { return file.adding(tool_, calls_); },
           [&](const AgentHookFile& file, Draft& draft) {
             if (!draft.changesText()) {
               say(file, "the hooks are in " + file.displayPath() + " already");
             } else {
               write(file, draft, draft.hadEntries() ? "hooks updated in " : "hooks added to ");
             }
           });
  }

  void remove() {
    change([&](const AgentHookFile& file) { return file.removing(calls_); },
           [&](const AgentHookFile& file, Draft& draft) {
             // Removing nothing would still lay out the text anew, or make a file.
             if (!draft.hadEntries()) {
               say(file, "there are no hooks in " + file.displayPath());
             } else {
               write(file, draft, "hooks removed from ");
             }
           });
  }

  /// Works out the change of every file that is here before the first is written; when one of them
  /// can't be understood, none is.
  template <class MakeDraft, class Finish>
  void change(MakeDraft makeDraft, Finish finish) {
    std::vector<std::optional<Draft>> drafts;
    for (const AgentHookFile& file : files_) drafts.push_back(drafted(file, makeDraft));
    if (report_.hasProblem) return;
    for (std::size_t index = 0; index < files_.size(); ++index) {
      const AgentHookFile& file = files_[index];
      if (drafts[index]) {
        finish(file, *drafts[index]);
      } else {
        say(file,
            "not on this machine (there is no ~/" + AgentHooks::folder(file.agent) + "), skipped");
      }
    }
  }

  /// Absent when the agent isn't here, and after a complaint.
  template <class MakeDraft>
  std::optional<Draft> drafted(const AgentHookFile& file, MakeDraft makeDraft) {
    const auto refuse = [&](const Failure& failure) {
      complain(describe(file, failure) + "; nothing is changed");
      return std::nullopt;
    };
    const auto here = file.isHere(calls_);
    if (!here) return refuse(here.failure());
    if (!*here) return std::nullopt;
    Result<Draft, Failure> draft = makeDraft(file);
    if (!draft) return refuse(draft.failure());
    return *std::move(draft);
  }

  void write(const AgentHookFile& file, Draft& draft, const std::string& done) {
    const auto change = draft.write();
    if (change) {
      say(file, done + where(file, *change));
    } else {
      complain(describe(file, change.failure()) + "; " + file.displayPath() + " is left as it was");
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
  Files::Calls& calls_;
  std::vector<AgentHookFile> files_{};
  HooksReport report_{};
};

}  // namespace

HooksReport lookAfterHooks(const CommandLine::Hooks& options, const std::string& home,
                           const std::string& tool, Files::Calls& calls) {
  return HooksCommand(options, home, tool, calls).run();
}

}  // namespace CorvaneControl::Headless
