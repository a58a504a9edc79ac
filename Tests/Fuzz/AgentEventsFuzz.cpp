#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "CorvaneControl/AgentNotification.h"
#include "CorvaneControl/AgentProgress.h"
#include "CorvaneControl/Platform/JSON.h"
#include "CorvaneControl/Platform/Text.h"
#include "Fuzz/Input.h"

using CorvaneControl::AgentProgress;
namespace AgentNotification = CorvaneControl::AgentNotification;
namespace JSON = CorvaneControl::JSON;
namespace Text = CorvaneControl::Text;

namespace {

void require(bool promise) {
  if (!promise) std::abort();
}

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

bool neverReviewed(const std::string&) { return false; }

}  // namespace

/// Any hook input gives marks and progress within their limits or none, and the same from its bytes
/// as from what was parsed.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CorvaneTests::Input input(data, size);
  const std::string bytes(input.text());
  std::string text = bytes;
  const auto document = JSON::Document::parse(text);

  for (const char* agent : {"claude", "codex", "cursor"}) {
    const auto progress = AgentProgress::parse(agent, bytes);
    check(progress);
    require(progress == (document ? AgentProgress::parse(agent, document->root()) : std::nullopt));
  }
  const auto claude = AgentNotification::claude(bytes);
  const auto codex = AgentNotification::codex(bytes, neverReviewed);
  const auto cursor = AgentNotification::cursor(bytes);
  check(claude);
  check(codex);
  check(cursor);
  if (!document) {
    require(!claude && !codex && !cursor);
    return 0;
  }
  require(claude == AgentNotification::claude(document->root()));
  require(codex == AgentNotification::codex(document->root(), neverReviewed));
  require(cursor == AgentNotification::cursor(document->root()));
  return 0;
}
