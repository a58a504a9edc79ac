#include "CorvaneControl/AgentProgress.h"

#include <string_view>
#include <utility>

#include "CorvaneControl/AgentNotification.h"
#include "CorvaneControl/AgentPermission.h"
#include "CorvaneControl/ToolInput.h"
#include "CorvaneControl/Unreachable.h"

namespace CorvaneControl {
namespace {

/// Absent for an event that tells no progress.
std::optional<AgentActivity> activityOf(Agent agent, std::string_view event,
                                        const JSON::Value& input) {
  switch (agent) {
    case Agent::claude:
    case Agent::codex:
      if (event == "UserPromptSubmit") return AgentActivity::started;
      if (event == "PostToolUse") return AgentActivity::working;
      if (event == "SessionEnd") return AgentActivity::ended;
      return std::nullopt;
    case Agent::cursor:
      if (event == "beforeSubmitPrompt") return AgentActivity::started;
      if (event == "postToolUse") return AgentActivity::working;
      if (event == "sessionEnd") return AgentActivity::ended;
      if (event == "stop" && input.string("status") == "aborted") return AgentActivity::ended;
      return std::nullopt;
  }
  unreachable();
}

std::optional<std::string> folderOf(Agent agent, const JSON::Value& input) {
  switch (agent) {
    case Agent::claude:
    case Agent::codex: {
      const auto cwd = input.string("cwd");
      if (!cwd || !AgentNotification::validFolder(*cwd)) return std::nullopt;
      return std::string(*cwd);
    }
    case Agent::cursor:
      return AgentNotification::cursorFolder(input);
  }
  unreachable();
}

std::optional<std::string> sessionOf(Agent agent, const JSON::Value& input) {
  switch (agent) {
    case Agent::claude:
    case Agent::codex:
      return AgentNotification::identifier(input.find("session_id"));
    case Agent::cursor:
      return AgentNotification::identifier(input.find("conversation_id"));
  }
  unreachable();
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
  unreachable();
}

std::optional<std::string> toolCallOf(const JSON::Value& input) {
  const auto tool = input.string("tool_name");
  if (!tool) return std::nullopt;
  const JSON::Value toolInput = ToolInput::of(input);
  return AgentPermission::fingerprint(*tool, &toolInput);
}

}  // namespace

std::optional<AgentProgress> AgentProgress::parse(Agent agent, const JSON::Value& input) {
  if (input.find("agent_id") != nullptr || input.find("parent_tool_call_id") != nullptr) {
    return std::nullopt;
  }
  const auto event = input.string("hook_event_name");
  if (!event) return std::nullopt;
  const auto activity = activityOf(agent, *event, input);
  if (!activity) return std::nullopt;
  auto folder = folderOf(agent, input);
  if (!folder) return std::nullopt;
  auto session = sessionOf(agent, input);
  if (!session) return std::nullopt;

  AgentProgress progress{
      .activity = *activity, .cwd = std::move(*folder), .session = std::move(*session)};
  if (*activity == AgentActivity::started) progress.task = taskOf(agent, input);
  if (*activity == AgentActivity::working) progress.toolCall = toolCallOf(input);
  return progress;
}

}  // namespace CorvaneControl
