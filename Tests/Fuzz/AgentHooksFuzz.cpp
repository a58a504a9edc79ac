#include "CorvaneControl/AgentHooks.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "CorvaneControl/OrderedJSON.h"
#include "Fuzz/Input.h"
#include "Support/HookWalk.h"

using CorvaneControl::Agent;
using CorvaneControl::allAgents;
using CorvaneControl::OrderedJSON;
using CorvaneControl::wireName;
using CorvaneTests::HookWalk;
using CorvaneTests::require;
namespace AgentHooks = CorvaneControl::AgentHooks;

namespace {

HookWalk walk(std::string_view text, Agent agent) {
  const auto root = OrderedJSON::parse(text);
  return {root ? *root : OrderedJSON(), wireName(agent)};
}

void checkRefusal(std::string_view text, const AgentHooks::Problem& problem, Agent agent,
                  std::string_view tool) {
  require(!problem.line ||
          (*problem.line >= 1 && *problem.line <= 1 + std::ranges::count(text, '\n')));
  const auto removed = AgentHooks::removing(text, agent);
  require(!removed && removed.failure() == problem);
  const auto state = AgentHooks::state(text, agent, tool);
  require(!state && state.failure() == problem);
}

void requireState(AgentHooks::State expected, std::string_view text, Agent agent,
                  std::string_view tool) {
  const auto state = AgentHooks::state(text, agent, tool);
  require(state && *state == expected);
}

void checkAdded(std::string_view before, const std::string& added, Agent agent,
                std::string_view tool) {
  const auto again = AgentHooks::adding(added, agent, tool);
  require(again && *again == added);
  requireState(AgentHooks::State::added, added, agent, tool);
  require(walk(added, agent).users() == walk(before, agent).users());
}

void checkRemoved(std::string_view before, Agent agent, std::string_view tool) {
  const auto removed = AgentHooks::removing(before, agent);
  require(bool(removed));
  const auto again = AgentHooks::removing(*removed, agent);
  require(again && *again == *removed);
  requireState(AgentHooks::State::absent, *removed, agent, tool);
  require(walk(*removed, agent).all() == walk(before, agent).users());
}

}  // namespace

/// Any settings are refused for the same reason whatever is asked of them, or take our entries,
/// know them again, give them up, and keep every handler of the user's. The first byte picks the
/// agent, the others are the settings.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto agent = allAgents.at(data[0] % allAgents.size());
  const CorvaneTests::Input input(data + 1, size - 1);
  const std::string_view text = input.text();
  // A unit is written once for every line and level, so a long one makes the output explode.
  if (OrderedJSON::indentation(text).size() > 16) return 0;
  constexpr std::string_view tool = "/opt/it's here/corvanectl";
  const auto added = AgentHooks::adding(text, agent, tool);
  if (!added) {
    checkRefusal(text, added.failure(), agent, tool);
    return 0;
  }
  checkAdded(text, *added, agent, tool);
  checkRemoved(text, agent, tool);
  checkRemoved(*added, agent, tool);
  return 0;
}
