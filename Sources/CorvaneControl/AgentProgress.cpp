#include "CorvaneControl/AgentProgress.h"

#include <utility>

#include "CorvaneControl/AgentNotification.h"
#include "CorvaneControl/AgentPermission.h"

namespace CorvaneControl {
namespace {

enum class Agent : std::uint8_t { claude, codex, cursor };

std::optional<Agent> agentNamed(std::string_view name) {
  if (name == "claude") return Agent::claude;
  if (name == "codex") return Agent::codex;
  if (name == "cursor") return Agent::cursor;
  return std::nullopt;
}

/// Absent for an event that tells no progress.
std::optional<AgentActivity> activityOf(Agent agent, std::string_view event,
                                        const JSON::Value& input) {
  if (agent == Agent::cursor) {
    if (event == "beforeSubmitPrompt") return AgentActivity::started;
    if (event == "postToolUse") return AgentActivity::working;
    if (event == "sessionEnd") return AgentActivity::ended;
    if (event == "stop" && input.string("status") == "aborted") return AgentActivity::ended;
    return std::nullopt;
  }
  if (event == "UserPromptSubmit") return AgentActivity::started;
  if (event == "PostToolUse") return AgentActivity::working;
  if (event == "SessionEnd") return AgentActivity::ended;
  return std::nullopt;
}

std::optional<std::string> folderOf(Agent agent, const JSON::Value& input) {
  if (agent == Agent::cursor) return AgentNotification::cursorFolder(input);
  const auto cwd = input.string("cwd");
  if (!cwd || !AgentNotification::validFolder(*cwd)) return std::nullopt;
  return std::string(*cwd);
}

std::optional<std::string> sessionOf(Agent agent, const JSON::Value& input) {
  return AgentNotification::identifier(
      input.find(agent == Agent::cursor ? "conversation_id" : "session_id"));
}

std::optional<std::string> taskOf(Agent agent, const JSON::Value& input) {
  const auto prompt = input.string("prompt");
  switch (agent) {
    case Agent::claude:
      return AgentNotification::summary(AgentNotification::claudeMessageBody(prompt));
    case Agent::codex:
      return AgentNotification::summary(AgentNotification::codexTaskBody(prompt));
    case Agent::cursor:
      return AgentNotification::summary(prompt);
  }
  return std::nullopt;
}

std::optional<std::string> toolCallOf(const JSON::Value& input) {
  const auto tool = input.string("tool_name");
  if (!tool) return std::nullopt;
  const JSON::Value noInput = JSON::Value::ofObject({});
  const JSON::Value* toolInput = input.object("tool_input");
  return AgentPermission::fingerprint(*tool, toolInput == nullptr ? &noInput : toolInput);
}

}  // namespace

std::optional<AgentProgress> AgentProgress::parse(std::string_view agent,
                                                  const JSON::Value& input) {
  const auto known = agentNamed(agent);
  if (!known) return std::nullopt;
  if (input.find("agent_id") != nullptr || input.find("parent_tool_call_id") != nullptr) {
    return std::nullopt;
  }
  const auto event = input.string("hook_event_name");
  if (!event) return std::nullopt;
  const auto activity = activityOf(*known, *event, input);
  if (!activity) return std::nullopt;
  auto folder = folderOf(*known, input);
  if (!folder) return std::nullopt;
  auto session = sessionOf(*known, input);
  if (!session) return std::nullopt;

  AgentProgress progress{
      .activity = *activity, .cwd = std::move(*folder), .session = std::move(*session)};
  if (*activity == AgentActivity::started) progress.task = taskOf(*known, input);
  if (*activity == AgentActivity::working) progress.toolCall = toolCallOf(input);
  return progress;
}

std::optional<AgentProgress> AgentProgress::parse(std::string_view agent, std::string bytes) {
  const auto document = JSON::Document::parse(bytes, "tool_response");
  if (!document) return std::nullopt;
  return parse(agent, document->root());
}

}  // namespace CorvaneControl
