#include "CorvaneControl/AgentHooks.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>
#include <vector>

#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl {
namespace AgentHooks {
namespace {

struct Description {
  Agent agent;
  std::string_view file;
  std::string_view bundleID;
  std::span<const std::string_view> events;
  /// An event holds matcher groups, which hold handlers; without them it holds the handlers.
  bool hasGroups;
  bool hasVersion;  ///< The settings begin with the version of their form.
};

constexpr std::string_view claudeEvents[] = {"Notification",     "PermissionRequest", "Stop",
                                             "UserPromptSubmit", "PostToolUse",       "SessionEnd"};
constexpr std::string_view codexEvents[] = {"PermissionRequest", "Stop", "UserPromptSubmit",
                                            "PostToolUse", "SessionEnd"};
constexpr std::string_view cursorEvents[] = {"stop", "beforeSubmitPrompt", "postToolUse",
                                             "sessionEnd"};

constexpr std::array descriptions = {
    Description{.agent = Agent::claude,
                .file = "settings.json",
                .bundleID = "com.anthropic.claudefordesktop",
                .events = claudeEvents,
                .hasGroups = true,
                .hasVersion = false},
    Description{.agent = Agent::codex,
                .file = "hooks.json",
                .bundleID = "com.openai.codex",
                .events = codexEvents,
                .hasGroups = true,
                .hasVersion = false},
    Description{.agent = Agent::cursor,
                .file = "hooks.json",
                .bundleID = "com.todesktop.230313mzl4w4u92",
                .events = cursorEvents,
                .hasGroups = false,
                .hasVersion = true},
};
static_assert(std::ranges::equal(descriptions, allAgents, {}, &Description::agent),
              "every agent has its description, in the order of the enumeration");

const Description& describe(Agent agent) {
  return descriptions.at(static_cast<std::size_t>(agent));
}
bool hasGroups(Agent agent) { return describe(agent).hasGroups; }

std::string arguments(Agent agent) { return " notify --agent " + std::string(wireName(agent)); }

bool isBlank(std::string_view text) { return Text::trimmedOfLines(text).empty(); }

OrderedJSON string(std::string_view text) { return OrderedJSON(text); }

bool isOfThisProgram(const OrderedJSON& handler, Agent agent) {
  const OrderedJSON* const member = handler.find("command");
  const auto command = member != nullptr ? member->string() : std::nullopt;
  return command && command->find("corvanectl") != std::string_view::npos &&
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

/// Drops the items for which `keep` says false. Unlike that of std::erase_if it may change them.
template <class Items, class Keep>
void keepIf(Items& items, Keep keep) {
  auto end = items.begin();
  for (auto& item : items) {
    if (!keep(item)) continue;
    if (&item != &*end) *end = std::move(item);
    ++end;
  }
  items.erase(end, items.end());
}

/// A group's handlers; null when it has no list of them.
template <class Group>
auto* handlersOf(Group& group) {
  auto* const handlers = group.find("hooks");
  return handlers == nullptr ? nullptr : handlers->array();
}

/// Takes this program's handlers out of an event; a group that is thereby empty goes, one that was
/// empty before stays.
void takeOut(OrderedJSON::Array& event, Agent agent) {
  const auto takeOutHandlers = [&](OrderedJSON::Array& handlers) {
    std::erase_if(handlers,
                  [&](const OrderedJSON& handler) { return isOfThisProgram(handler, agent); });
  };
  if (!hasGroups(agent)) return takeOutHandlers(event);
  keepIf(event, [&](OrderedJSON& group) {
    OrderedJSON::Array* const handlers = handlersOf(group);
    if (handlers == nullptr || handlers->empty()) return true;
    takeOutHandlers(*handlers);
    return !handlers->empty();
  });
}

/// Gives the command to the first of this program's handlers in an event and takes the others out,
/// or makes one at the end. Every group without a handler goes.
void putIn(OrderedJSON::Array& event, Agent agent, const std::string& command) {
  bool isPlaced = false;
  const auto putIntoHandlers = [&](OrderedJSON::Array& handlers) {
    keepIf(handlers, [&](OrderedJSON& handler) {
      if (!isOfThisProgram(handler, agent)) return true;
      if (isPlaced) return false;
      handler.set("command", string(command));
      isPlaced = true;
      return true;
    });
  };
  if (hasGroups(agent)) {
    keepIf(event, [&](OrderedJSON& group) {
      OrderedJSON::Array* const handlers = handlersOf(group);
      if (handlers == nullptr) return false;
      putIntoHandlers(*handlers);
      return !handlers->empty();
    });
  } else {
    putIntoHandlers(event);
  }
  if (!isPlaced) event.push_back(entry(command, agent));
}

/// Takes this program's handlers out of every event but those of `kept`, and the events that are
/// thereby empty with them.
void strip(OrderedJSON& hooks, Agent agent, std::span<const std::string_view> kept) {
  keepIf(*hooks.object(), [&](OrderedJSON::Member& member) {
    OrderedJSON::Array& event = *member.value.array();
    if (event.empty() || std::ranges::find(kept, member.key()) != kept.end()) return true;
    takeOut(event, agent);
    return !event.empty();
  });
}

bool holdsEntry(const OrderedJSON::Array& handlers, Agent agent) {
  return std::ranges::any_of(
      handlers, [&](const OrderedJSON& handler) { return isOfThisProgram(handler, agent); });
}

bool eventHoldsEntry(const OrderedJSON::Array& event, Agent agent) {
  if (!hasGroups(agent)) return holdsEntry(event, agent);
  return std::ranges::any_of(event, [&](const OrderedJSON& group) {
    const OrderedJSON::Array* const handlers = handlersOf(group);
    return handlers != nullptr && holdsEntry(*handlers, agent);
  });
}

bool rootHoldsEntry(const OrderedJSON& root, Agent agent) {
  const OrderedJSON* const hooks = root.find("hooks");
  return hooks != nullptr &&
         std::ranges::any_of(*hooks->object(), [&](const OrderedJSON::Member& event) {
           return eventHoldsEntry(*event.value.array(), agent);
         });
}

void addEntries(OrderedJSON& root, Agent agent, std::string_view toolPath) {
  if (describe(agent).hasVersion && root.find("version") == nullptr) {
    root.set("version", OrderedJSON(OrderedJSON::Number{"1"}));
  }
  if (root.find("hooks") == nullptr) root.set("hooks", OrderedJSON(OrderedJSON::Object()));
  OrderedJSON& hooks = *root.find("hooks");
  strip(hooks, agent, events(agent));  // earlier versions may have used other events
  const std::string current = command(agent, toolPath);
  for (const std::string_view event : events(agent)) {
    if (hooks.find(event) == nullptr) hooks.set(event, OrderedJSON(OrderedJSON::Array()));
    putIn(*hooks.find(event)->array(), agent, current);
  }
}

/// What one reading of a text gives: how it was, and how it is to be.
struct Edited {
  bool hadEntries = false;
  std::string text{};
};

template <class Edit>
Result<Edited, Problem> edited(std::string_view text, Agent agent, Edit edit) {
  auto root = readRoot(text, agent);
  if (!root) return root.failure();
  const bool hadEntries = rootHoldsEntry(*root, agent);
  edit(*root);
  return Edited{hadEntries, written(text, *root)};
}

Result<Edited, Problem> withEntries(std::string_view text, Agent agent, std::string_view toolPath) {
  if (!Text::isUTF8(toolPath)) return Problem::toolPath();
  return edited(text, agent, [&](OrderedJSON& root) { addEntries(root, agent, toolPath); });
}

Result<Edited, Problem> withoutEntries(std::string_view text, Agent agent) {
  return edited(text, agent, [&](OrderedJSON& root) {
    if (OrderedJSON* const hooks = root.find("hooks")) strip(*hooks, agent, {});
  });
}

Result<std::string, Problem> textOf(Result<Edited, Problem> edited) {
  if (!edited) return edited.failure();
  return std::move(edited->text);
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
  return textOf(withEntries(text, agent, toolPath));
}

Result<std::string, Problem> removing(std::string_view text, Agent agent) {
  return textOf(withoutEntries(text, agent));
}

Result<State, Problem> state(std::string_view text, Agent agent, std::string_view toolPath) {
  const auto added = withEntries(text, agent, toolPath);
  if (!added) return added.failure();
  if (!added->hadEntries) return State::absent;
  return added->text == text ? State::added : State::outdated;
}

}  // namespace AgentHooks

namespace {

using AgentHooks::Edited;
using AgentHooks::Problem;
using Change = AgentHookFile::Change;
using Draft = AgentHookFile::Draft;
using Failure = AgentHookFile::Failure;

constexpr std::string_view backupSuffix = ".corvane-backup";

/// The file as it is, and what `editText` makes of its text.
template <class EditText>
Result<Draft, Failure> draft(const AgentHookFile& file, Files::Calls& calls, EditText editText) {
  auto edit = Files::Edit::begin(file.url(), calls);
  if (!edit) return Failure{.file = edit.failure()};
  if (!Text::isUTF8(edit->before())) return Failure{.problem = Problem::syntax(1)};
  Result<Edited, Problem> edited = editText(edit->before());
  if (!edited) return Failure{.problem = edited.failure()};
  return Draft(*std::move(edit), edited->hadEntries, std::move(edited->text));
}

Result<Change, Failure> written(Result<Draft, Failure> draft) {
  if (!draft) return draft.failure();
  return draft->write();
}

}  // namespace

AgentHookFile::Draft::Draft(Files::Edit edit, bool hadEntries, std::string after)
    : edit_(std::move(edit)), hadEntries_(hadEntries), after_(std::move(after)) {}

Result<Change, Failure> AgentHookFile::Draft::write() {
  Change change{.path = edit_.path()};
  if (!changesText()) return change;
  if (auto failure = edit_.backUp(backupSuffix)) return Failure{.file = std::move(failure)};
  if (auto failure = edit_.replace(after_)) return Failure{.file = std::move(failure)};
  change.written = true;
  if (edit_.exists()) change.backup = edit_.path() + std::string(backupSuffix);
  return change;
}

std::string AgentHookFile::folder() const {
  return home + (home.ends_with('/') ? "" : "/") + AgentHooks::folder(agent);
}

std::string AgentHookFile::url() const {
  return folder() + "/" + std::string(AgentHooks::file(agent));
}

std::string AgentHookFile::displayPath() const {
  return "~/" + AgentHooks::folder(agent) + "/" + std::string(AgentHooks::file(agent));
}

Result<bool, Failure> AgentHookFile::isHere(Files::Calls& calls) const {
  const auto found = Files::isFolder(folder(), calls);
  if (!found) return Failure{.file = found.failure()};
  return *found;
}

bool AgentHookFile::isSetUp() const {
  const auto here = isHere();
  return here && *here;
}

Result<AgentHooks::State, Failure> AgentHookFile::state(std::string_view toolPath,
                                                        Files::Calls& calls) const {
  const auto file = Files::read(url(), calls);
  if (!file) return Failure{.file = file.failure()};
  const std::string_view text = *file ? std::string_view((*file)->bytes) : std::string_view();
  if (!Text::isUTF8(text)) return Failure{.problem = Problem::syntax(1)};
  const auto state = AgentHooks::state(text, agent, toolPath);
  if (!state) return Failure{.problem = state.failure()};
  return *state;
}

Result<Draft, Failure> AgentHookFile::adding(std::string_view toolPath, Files::Calls& calls) const {
  return draft(*this, calls, [&](std::string_view text) {
    return AgentHooks::withEntries(text, agent, toolPath);
  });
}

Result<Draft, Failure> AgentHookFile::removing(Files::Calls& calls) const {
  return draft(*this, calls,
               [&](std::string_view text) { return AgentHooks::withoutEntries(text, agent); });
}

Result<Change, Failure> AgentHookFile::add(std::string_view toolPath, Files::Calls& calls) const {
  return written(adding(toolPath, calls));
}

Result<Change, Failure> AgentHookFile::remove(Files::Calls& calls) const {
  return written(removing(calls));
}

}  // namespace CorvaneControl
