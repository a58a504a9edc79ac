#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "CorvaneControl/Agent.h"
#include "CorvaneControl/AgentNotification.h"
#include "CorvaneControl/AgentProgress.h"
#include "CorvaneControl/JSON.h"
#include "CorvaneControl/Platform/Text.h"
#include "Fuzz/Input.h"

using CorvaneControl::Agent;
using CorvaneControl::AgentProgress;
using CorvaneTests::require;
namespace AgentNotification = CorvaneControl::AgentNotification;
namespace JSON = CorvaneControl::JSON;
namespace Text = CorvaneControl::Text;

namespace {

bool isSummary(const std::string& text) {
  return !text.empty() && !Text::hasLineBreak(text) && Text::characters(text) <= 120;
}

bool isSession(const std::string& text) { return !text.empty() && text.size() <= 128; }

void check(const std::optional<AgentProgress>& progress) {
  if (!progress) return;
  require(AgentNotification::validFolder(progress->cwd) && isSession(progress->session));
  require(!progress->task || isSummary(*progress->task));
}

void check(const std::optional<AgentNotification::Event>& event) {
  if (!event) return;
  require(!event->session || isSession(*event->session));
  require(event->toolCall ? event->message.has_value() : !event->permission);
  require(event->toolCall || !event->message || isSummary(*event->message));
}

}  // namespace

/// Any hook input gives marks and progress within their limits or none, and each agent's input is
/// read the same by way of the agent's name and by the agent's own function.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CorvaneTests::Input input(data, size);
  std::string text(input.text());
  const auto document = JSON::Document::parse(text);
  if (!document) return 0;

  const JSON::Value& root = document->root();
  for (const Agent agent : CorvaneControl::allAgents) {
    check(AgentProgress::parse(agent, root));
    check(AgentNotification::event(agent, root, {}));
  }
  require(AgentNotification::event(Agent::claude, root, {}) == AgentNotification::claude(root, {}));
  require(AgentNotification::event(Agent::codex, root, {}) == AgentNotification::codex(root, {}));
  require(AgentNotification::event(Agent::cursor, root, {}) == AgentNotification::cursor(root));
  return 0;
}
