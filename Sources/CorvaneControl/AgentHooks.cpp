#include "CorvaneControl/AgentHooks.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl {
namespace AgentHooks {
namespace {

struct Description {
  std::string_view file;
  std::string_view bundleID;
  std::span<const std::string_view> events;
};

constexpr std::string_view claudeEvents[] = {"Notification",     "PermissionRequest", "Stop",
                                             "UserPromptSubmit", "PostToolUse",       "SessionEnd"};
constexpr std::string_view codexEvents[] = {"PermissionRequest", "Stop", "UserPromptSubmit",
                                            "PostToolUse", "SessionEnd"};
constexpr std::string_view cursorEvents[] = {"stop", "beforeSubmitPrompt", "postToolUse",
                                             "sessionEnd"};

/// In the order of the enumeration.
constexpr Description descriptions[] = {
    {"settings.json", "com.anthropic.claudefordesktop", claudeEvents},
    {"hooks.json", "com.openai.codex", codexEvents},
    {"hooks.json", "com.todesktop.230313mzl4w4u92", cursorEvents},
};

const Description& describe(Agent agent) { return descriptions[static_cast<std::size_t>(agent)]; }

/// Cursor's events hold handlers; those of the others hold groups, which hold handlers.
bool hasGroups(Agent agent) { return agent != Agent::cursor; }

std::string arguments(Agent agent) { return " notify --agent " + std::string(wireName(agent)); }

bool isBlank(std::string_view text) { return Text::trimmedOfLines(text).empty(); }

OrderedJSON string(std::string_view text) { return OrderedJSON(std::string(text)); }

bool isOfThisProgram(const OrderedJSON& handler, Agent agent) {
  const OrderedJSON* const member = handler.find("command");
  const std::string* const command = member != nullptr ? member->string() : nullptr;
  return command != nullptr && command->find("corvanectl") != std::string::npos &&
         command->ends_with(arguments(agent));
}

bool isGroup(const OrderedJSON& value) {
  if (value.object() == nullptr) return false;
  const OrderedJSON* const handlers = value.find("hooks");
  return handlers == nullptr || handlers->array() != nullptr;
}

bool isEvent(const OrderedJSON& value, Agent agent) {
  if (value.array() == nullptr) return false;
  return std::ranges::all_of(*value.array(), [&](const OrderedJSON& element) {
    return hasGroups(agent) ? isGroup(element) : element.object() != nullptr;
  });
}

bool areSettings(const OrderedJSON& root, Agent agent) {
  if (root.object() == nullptr) return false;
  const OrderedJSON* const hooks = root.find("hooks");
  if (hooks == nullptr) return true;
  return hooks->object() != nullptr &&
         std::ranges::all_of(*hooks->object(), [&](const OrderedJSON::Member& event) {
           return isEvent(event.value, agent);
         });
}

/// The parsed settings. Their whole shape is checked here, so that what edits them can rely on it.
Result<OrderedJSON, Problem> readRoot(std::string_view text, Agent agent) {
  if (isBlank(text)) return OrderedJSON(OrderedJSON::Object());
  auto root = OrderedJSON::parse(text);
  if (!root) return Problem::syntax(root.failure().line);
  if (!areSettings(*root, agent)) return Problem::shape();
  return *std::move(root);
}

/// The text of the changed settings, with the indentation and the end of the old one.
std::string written(std::string_view old, const OrderedJSON& root) {
  std::string text = root.text(OrderedJSON::indentation(old));
  if (isBlank(old) || old.ends_with('\n')) text += '\n';
  return text;
}

/// Passes every item to `edit`, and drops those for which it says false.
template <class Items, class Edit>
void editEach(Items& items, Edit edit) {
  Items kept;
  for (auto& item : items) {
    if (edit(item)) kept.push_back(std::move(item));
  }
  items = std::move(kept);
}

/// The command that an edit has yet to place: the first handler of this program takes it, and later
/// ones, finding none, are dropped.
using Placing = std::optional<std::string>;

void editHandlers(OrderedJSON::Array& handlers, Agent agent, Placing& command) {
  editEach(handlers, [&](OrderedJSON& handler) {
    if (!isOfThisProgram(handler, agent)) return true;
    if (!command) return false;
    handler.set("command", string(*std::exchange(command, std::nullopt)));
    return true;
  });
}

/// Placing drops every group that has no handler in the end, removing only those that it empties.
void editGroups(OrderedJSON::Array& groups, Agent agent, Placing& command) {
  const bool isPlacing = command.has_value();
  editEach(groups, [&](OrderedJSON& group) {
    OrderedJSON* const handlers = group.find("hooks");
    if (handlers == nullptr || handlers->array()->empty()) return !isPlacing;
    editHandlers(*handlers->array(), agent, command);
    return !handlers->array()->empty();
  });
}

void editEvent(OrderedJSON::Array& event, Agent agent, Placing& command) {
  hasGroups(agent) ? editGroups(event, agent, command) : editHandlers(event, agent, command);
}

/// Takes this program's handlers out of every event but those of `kept`, and the events that are
/// thereby empty with them.
void strip(OrderedJSON& hooks, Agent agent, std::span<const std::string_view> kept) {
  editEach(*hooks.object(), [&](OrderedJSON::Member& member) {
    OrderedJSON::Array& event = *member.value.array();
    if (event.empty() || std::ranges::find(kept, member.key) != kept.end()) return true;
    Placing nothing;
    editEvent(event, agent, nothing);
    return !event.empty();
  });
}

/// Puts the command into one event, where it belongs.
void place(OrderedJSON& hooks, std::string_view name, Agent agent, const std::string& command) {
  if (hooks.find(name) == nullptr) hooks.set(name, OrderedJSON(OrderedJSON::Array()));
  OrderedJSON::Array& event = *hooks.find(name)->array();
  Placing placing = command;
  editEvent(event, agent, placing);
  if (placing) event.push_back(entry(command, agent));
}

bool holdsEntry(const OrderedJSON::Array& handlers, Agent agent) {
  return std::ranges::any_of(
      handlers, [&](const OrderedJSON& handler) { return isOfThisProgram(handler, agent); });
}

bool eventHoldsEntry(const OrderedJSON::Array& event, Agent agent) {
  if (!hasGroups(agent)) return holdsEntry(event, agent);
  return std::ranges::any_of(event, [&](const OrderedJSON& group) {
    const OrderedJSON* const handlers = group.find("hooks");
    return handlers != nullptr && holdsEntry(*handlers->array(), agent);
  });
}

}  // namespace

std::string folder(Agent agent) { return "." + std::string(wireName(agent)); }
std::string_view file(Agent agent) { return describe(agent).file; }
std::string_view bundleID(Agent agent) { return describe(agent).bundleID; }
std::span<const std::string_view> events(Agent agent) { return describe(agent).events; }

std::string command(Agent agent, std::string_view toolPath) {
  std::string command = "'";
  for (const char byte : toolPath) {
    if (byte == '\'') {
      command += "'\\''";
    } else {
      command += byte;
    }
  }
  return command + "'" + arguments(agent);
}

OrderedJSON entry(std::string_view command, Agent agent) {
  OrderedJSON handler(
      OrderedJSON::Object{{"type", string("command")}, {"command", string(command)}});
  if (!hasGroups(agent)) return handler;
  return OrderedJSON(
      OrderedJSON::Object{{"hooks", OrderedJSON(OrderedJSON::Array{std::move(handler)})}});
}

std::string snippet(Agent agent, std::string_view toolPath) {
  auto text = adding("", agent, toolPath);
  return text ? *std::move(text) : std::string();
}

Result<std::string, Problem> adding(std::string_view text, Agent agent, std::string_view toolPath) {
  auto root = readRoot(text, agent);
  if (!root) return root.failure();
  if (agent == Agent::cursor && root->find("version") == nullptr) {
    root->set("version", OrderedJSON(OrderedJSON::Number{"1"}));
  }
  if (root->find("hooks") == nullptr) root->set("hooks", OrderedJSON(OrderedJSON::Object()));
  OrderedJSON& hooks = *root->find("hooks");
  strip(hooks, agent, events(agent));  // earlier versions may have used other events
  const std::string current = command(agent, toolPath);
  for (const std::string_view event : events(agent)) place(hooks, event, agent, current);
  return written(text, *root);
}

Result<std::string, Problem> removing(std::string_view text, Agent agent) {
  auto root = readRoot(text, agent);
  if (!root) return root.failure();
  if (OrderedJSON* const hooks = root->find("hooks")) strip(*hooks, agent, {});
  return written(text, *root);
}

Result<State, Problem> state(std::string_view text, Agent agent, std::string_view toolPath) {
  const auto added = adding(text, agent, toolPath);
  if (!added) return added.failure();
  const auto root = readRoot(text, agent);
  if (!root) return root.failure();
  const OrderedJSON* const hooks = root->find("hooks");
  if (hooks == nullptr) return State::absent;
  const bool holds = std::ranges::any_of(*hooks->object(), [&](const OrderedJSON::Member& event) {
    return eventHoldsEntry(*event.value.array(), agent);
  });
  if (!holds) return State::absent;
  return *added == text ? State::added : State::outdated;
}

}  // namespace AgentHooks

namespace {

using AgentHooks::Problem;
using Change = AgentHookFile::Change;
using Failure = AgentHookFile::Failure;

constexpr std::string_view backupSuffix = ".corvane-backup";

bool isUTF8(std::string_view text) { return Text::repaired(std::string(text)) == text; }

/// Replaces the file by what `edit` makes of its text, unless that is the same.
template <class EditText>
Result<Change, Failure> change(const AgentHookFile& file, Files::Calls& calls, EditText editText) {
  auto edit = Files::Edit::begin(file.url(), calls);
  if (!edit) return Failure{.file = edit.failure()};
  if (!isUTF8(edit->before())) return Failure{.problem = Problem::syntax(1)};
  const Result<std::string, Problem> after = editText(edit->before());
  if (!after) return Failure{.problem = after.failure()};
  Change change{.path = edit->path()};
  if (*after == edit->before()) return change;
  if (auto failure = edit->backUp(backupSuffix)) return Failure{.file = std::move(failure)};
  if (auto failure = edit->replace(*after)) return Failure{.file = std::move(failure)};
  change.written = true;
  if (edit->exists()) change.backup = edit->path() + std::string(backupSuffix);
  return change;
}

}  // namespace

std::string AgentHookFile::folder() const {
  return home + (home.ends_with('/') ? "" : "/") + AgentHooks::folder(agent);
}

std::string AgentHookFile::url() const {
  return folder() + "/" + std::string(AgentHooks::file(agent));
}

std::string AgentHookFile::displayPath() const {
  return "~/" + AgentHooks::folder(agent) + "/" + std::string(AgentHooks::file(agent));
}

bool AgentHookFile::isSetUp() const { return Files::isFolder(folder()); }

Result<AgentHooks::State, Failure> AgentHookFile::state(std::string_view toolPath,
                                                        Files::Calls& calls) const {
  const auto file = Files::read(url(), calls);
  if (!file) return Failure{.file = file.failure()};
  if (!*file) return AgentHooks::State::absent;
  const std::string& text = (*file)->bytes;
  if (!isUTF8(text)) return Failure{.problem = Problem::syntax(1)};
  const auto state = AgentHooks::state(text, agent, toolPath);
  if (!state) return Failure{.problem = state.failure()};
  return *state;
}

Result<Change, Failure> AgentHookFile::add(std::string_view toolPath, Files::Calls& calls) const {
  return change(*this, calls,
                [&](std::string_view text) { return AgentHooks::adding(text, agent, toolPath); });
}

Result<Change, Failure> AgentHookFile::remove(Files::Calls& calls) const {
  return change(*this, calls,
                [&](std::string_view text) { return AgentHooks::removing(text, agent); });
}

}  // namespace CorvaneControl
