#pragma once

#include <array>
#include <cstdint>

#include "CorvaneControl/Record.h"

namespace CorvaneControl {

/// The coding agents whose hooks call the command. What is said of an agent elsewhere (its hook
/// file, its events, how it takes an answer) is a table or an exhaustive switch over these, so that
/// a new one breaks the build wherever somebody has to think about it.
enum class Agent : std::uint8_t { claude, codex, cursor };

inline constexpr std::array allAgents = {Agent::claude, Agent::codex, Agent::cursor};

/// Their names, as `--agent`, the control socket and the hook entries write them.
constexpr auto wireNames(Agent) {
  return std::array{WireName{Agent::claude, "claude"}, WireName{Agent::codex, "codex"},
                    WireName{Agent::cursor, "cursor"}};
}

}  // namespace CorvaneControl
