#include "CorvaneControl/ControlCommandLine.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "CorvaneControl/Agent.h"
#include "CorvaneControl/AgentNotification.h"
#include "CorvaneControl/AgentProgress.h"
#include "CorvaneControl/Platform/Text.h"
#include "CorvaneControl/Unreachable.h"

namespace CorvaneControl::ControlCommandLine {

const std::string_view usage =
    R"(Usage: corvanectl <command> [options]

Commands:
  list [--json]        Every workspace; * marks the active one
  current [--json]     The active workspace's name
  switch <workspace>   Switch to a workspace, by name, the start of it, or - for the previous
  launch <workspace>   Open a workspace's apps and apply its layout
  stop <workspace>     End a workspace's terminal commands, close its windows, quit its apps
  subscribe            The active workspace, then each change, as JSON lines
  notify [options]     Mark the workspace of a folder as waiting for you
    --agent <name>       claude, codex or cursor: reads the agent's hook input
    --kind <kind>        needs-input (the default) or done
    --cwd <folder>       The agent's folder (default: the current one)
    --message <text>     Shown with the mark
  help                 This help
  version              The version of Corvane this command came with)";

namespace {

using Command = ControlRequest::Command;
using Options = std::map<std::string, std::string>;

constexpr std::array<std::string_view, 4> valuedOptions = {"--agent", "--kind", "--cwd",
                                                           "--message"};

/// The words after the command, told apart by what they are.
struct Words {
  Options options{};              ///< Those that take a value, with the value.
  std::set<std::string> flags{};  ///< Other words that begin with "--".
  std::vector<std::string> positional{};
  std::optional<std::string> withoutValue{};  ///< An option that came last, without its value.
};

Words classified(const std::vector<std::string>& arguments) {
  Words words;
  for (auto word = arguments.begin() + 1; word != arguments.end(); ++word) {
    if (std::ranges::find(valuedOptions, *word) != valuedOptions.end()) {
      const std::string& option = *word;
      if (++word == arguments.end()) {
        words.withoutValue = option;
        break;
      }
      words.options[option] = *word;
    } else if (word->starts_with("--")) {
      words.flags.insert(*word);
    } else {
      words.positional.push_back(*word);
    }
  }
  return words;
}

bool isOneOf(std::string_view word, std::initializer_list<std::string_view> words) {
  return std::ranges::find(words, word) != words.end();
}

std::optional<std::string> value(const Options& options, const char* name) {
  const auto found = options.find(name);
  if (found == options.end()) return std::nullopt;
  return found->second;
}

/// What every request of `notify` says of the process it comes from.
ControlRequest notifyRequest(std::string agent, const Process& process) {
  ControlRequest request;
  request.command = Command::notify;
  request.agent = std::move(agent);
  if (process.parentProcess) request.process = process.parentProcess();
  if (process.environment) request.cmux = CmuxPane::fromEnvironment(process.environment);
  return request;
}

Parsed progressRequest(std::string agent, AgentProgress progress, std::optional<std::string> cwd,
                       const Process& process) {
  ControlRequest request = notifyRequest(std::move(agent), process);
  request.cwd = cwd ? std::move(cwd) : std::move(progress.cwd);
  request.session = std::move(progress.session);
  request.activity = progress.activity;
  request.task = std::move(progress.task);
  request.toolCall = std::move(progress.toolCall);
  return Run{std::move(request), Format::text};
}

Parsed attentionRequest(std::string agent, AgentNotification::Event event, const Options& options,
                        const Process& process) {
  if (const auto name = value(options, "--kind")) {
    const auto kind = wireValue<AttentionKind>(*name);
    if (!kind) return Usage{"--kind is needs-input or done, not " + *name + "."};
    event.kind = *kind;
  }
  ControlRequest request = notifyRequest(std::move(agent), process);
  request.kind = event.kind;
  request.cwd = value(options, "--cwd");
  if (!request.cwd) request.cwd = std::move(event.cwd);
  if (!request.cwd) request.cwd = process.currentDirectory ? process.currentDirectory() : "";
  request.message = value(options, "--message");
  if (!request.message) request.message = std::move(event.message);
  request.session = std::move(event.session);
  request.permission = std::move(event.permission);
  request.toolCall = std::move(event.toolCall);
  return Run{std::move(request), Format::text};
}

/// A script's own call, without an agent's input.
Parsed manualRequest(std::string agent, const Options& options,
                     const std::vector<std::string>& positional, const Process& process) {
  if (!positional.empty()) return Usage{"notify takes options only."};
  return attentionRequest(std::move(agent), {}, options, process);
}

}  // namespace

Parsed parse(const std::vector<std::string>& arguments, const Process& process) {
  if (arguments.empty()) return Usage{};
  const std::string& command = arguments.front();
  Words words = classified(arguments);
  if (words.withoutValue) return Usage{*words.withoutValue + " needs a value."};
  const Format format = words.flags.erase("--json") > 0 ? Format::json : Format::text;

  // An option that takes a value is reported before a bare flag, and both before the command.
  if (command != "notify" && !words.options.empty()) {
    return Usage{"Unknown option for " + command + ": " + words.options.begin()->first};
  }
  if (!words.flags.empty()) {
    return Usage{"Unknown option for " + command + ": " + *words.flags.begin()};
  }

  if (isOneOf(command, {"help", "--help", "-h"})) return Help{};
  if (isOneOf(command, {"version", "-v", "--version"})) return Version{};
  const auto known = wireValue<Command>(command);
  if (!known) return Usage{"Unknown command: " + command};

  ControlRequest request;
  request.command = *known;
  switch (*known) {
    case Command::list:
    case Command::current:
    case Command::subscribe:
      if (!words.positional.empty()) return Usage{command + " takes no workspace."};
      return Run{std::move(request), format};
    case Command::switchTo:
    case Command::launch:
    case Command::stop:
      request.workspace = Text::joined(words.positional);
      if (request.workspace->empty()) return Usage{command + " needs a workspace."};
      return Run{std::move(request), format};
    case Command::notify:
      return notify(words.options, words.positional, process);
  }
  unreachable();
}

Parsed notify(const Options& options, const std::vector<std::string>& positional,
              const Process& process) {
  auto name = value(options, "--agent");
  if (!name) return manualRequest("agent", options, positional, process);

  const auto agent = wireValue<Agent>(Text::lowercasedASCII(*name));
  if (!agent) {
    if (options.contains("--kind")) {
      return manualRequest(std::move(*name), options, positional, process);
    }
    return Usage{"Unknown agent " + *name + ": use claude, codex or cursor, or give --kind."};
  }

  const JSON::Value* const input = process.standardInput ? process.standardInput() : nullptr;
  if (!input) return Nothing{};
  if (auto progress = AgentProgress::parse(*agent, *input)) {
    return progressRequest(std::move(*name), std::move(*progress), value(options, "--cwd"),
                           process);
  }
  auto event = AgentNotification::event(*agent, *input, {process.homeFolder, process.autoReviewed});
  if (!event) return Nothing{};
  return attentionRequest(std::move(*name), std::move(*event), options, process);
}

}  // namespace CorvaneControl::ControlCommandLine
