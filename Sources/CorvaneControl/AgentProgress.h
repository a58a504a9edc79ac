#pragma once

#include <optional>
#include <string>

#include "CorvaneControl/Agent.h"
#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/JSON.h"

namespace CorvaneControl {

/// How far an agent's turn is, as its hook input tells: the prompt that started it, the tool call
/// it has just finished, its end. A plain value.
struct AgentProgress {
  AgentActivity activity = AgentActivity::started;
  std::string cwd{};                      ///< The agent's working folder, always a valid one.
  std::string session{};                  ///< The agent's session identifier.
  std::optional<std::string> task{};      ///< The prompt in one line.
  std::optional<std::string> toolCall{};  ///< The fingerprint of the call just finished.

  bool operator==(const AgentProgress&) const = default;

  /// Reads an agent's hook input; absent when it tells no progress. A sub-agent's input tells
  /// nothing of the session's progress.
  static std::optional<AgentProgress> parse(Agent agent, const JSON::Value& input);
};

}  // namespace CorvaneControl
