#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "CorvaneControl/Record.h"

namespace CorvaneControl {

/// The coding agents whose hooks call the command. What is said of an agent elsewhere (its hook
/// file, its events, how it takes an answer) is a table or an exhaustive switch over these, so that
/// a new one breaks the build wherever somebody has to think about it.
enum class Agent : std::uint8_t { claude, codex, cursor };

/// Their names, as `--agent`, the control socket and the hook entries write them.
constexpr auto wireNames(Agent) {
  return std::array{WireName{Agent::claude, "claude"}, WireName{Agent::codex, "codex"},
                    WireName{Agent::cursor, "cursor"}};
}

/// All that have a name, in the order of the names.
inline constexpr auto allAgents = [] {
  constexpr auto names = wireNames(Agent{});
  std::array<Agent, names.size()> agents{};
  for (std::size_t index = 0; index < names.size(); ++index) agents[index] = names[index].value;
  return agents;
}();

}  // namespace CorvaneControl
