#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneControl/AgentPermission.h"
#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/JSON.h"
#include "CorvaneControl/Platform/Text.h"
#include "Fuzz/Input.h"

using CorvaneControl::AgentPermission;
using CorvaneControl::ControlRequest;
using CorvaneControl::ControlResponse;
using CorvaneControl::PermissionAnswer;
using CorvaneTests::require;
namespace JSON = CorvaneControl::JSON;
namespace Text = CorvaneControl::Text;

namespace {

using Action = AgentPermission::Action;

/// The input stands deeper in the reply than in the hook input, maybe too deep for our own parser.
bool isDeep(const std::string& json) {
  constexpr std::ptrdiff_t deepestNesting = 512;
  return std::ranges::count(json, '{') + std::ranges::count(json, '[') > deepestNesting;
}

/// 400 characters and the mark that says that there were more.
bool isShort(const std::string& text) { return Text::characters(text) <= 401; }

void checkQuestion(const AgentPermission::Question& question) {
  require(isShort(question.header) && isShort(question.text) && question.options.size() <= 6);
  for (const auto& option : question.options) {
    require(isShort(option.label) && isShort(option.detail.value_or("")));
  }
}

void checkLines(const AgentPermission& card) {
  for (const auto& line : card.lines) {
    const bool isCut = Text::characters(line.text) > 400;
    require(!isCut || (!card.complete && isShort(line.text) && line.text.ends_with("…")));
  }
}

void checkPlan(const AgentPermission& card) {
  std::size_t bytes = 0;
  for (const auto& line : card.lines) bytes += line.text.size();
  require(bytes <= 20000 && !card.questions);
}

void check(const AgentPermission& card) {
  require(isShort(card.subject) && card.lines.size() <= 300);
  const bool splits = card.action != Action::fetch && card.action != Action::search;
  for (const auto& line : card.lines) {
    require(!splits || line.text.find('\n') == std::string::npos);
  }
  require(card.questions.has_value() == (card.action == Action::ask));
  if (card.questions) {
    require(!card.questions->empty() && card.questions->size() <= 4 && card.lines.empty());
    std::ranges::for_each(*card.questions, checkQuestion);
  } else if (card.action == Action::plan) {
    checkPlan(card);
  } else {
    checkLines(card);
  }
  const auto preview = card.preview();
  require(preview.lines.size() + preview.hidden == card.lines.size());
  require(card.added() + card.removed() <= card.lines.size() && card.steps() <= card.lines.size());
}

/// The answer that takes the first option of everything.
ControlResponse allowing(const std::optional<AgentPermission>& card) {
  ControlResponse response{.ok = true, .decision = PermissionAnswer::allowed};
  if (card && card->questions) {
    response.choices.emplace(card->questions->size(), std::vector<std::int64_t>{0});
  }
  return response;
}

void checkReplies(const std::optional<AgentPermission>& card, const JSON::Value& input) {
  const ControlRequest request{.agent = "claude", .permission = card};
  auto response = allowing(card);
  for (const auto decision : {PermissionAnswer::allowed, PermissionAnswer::denied}) {
    response.decision = decision;
    auto reply = response.hookOutput(request, &input);
    require(reply || (card && decision == PermissionAnswer::allowed));
    if (!reply) continue;
    require(reply->ends_with("}\n"));
    require(isDeep(*reply) || JSON::Document::parse(*reply));
  }
}

}  // namespace

/// Any object becomes a card within its limits or none, and what a user answers to it a reply that
/// is JSON or none.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CorvaneTests::Input bytes(data, size);
  std::string text(bytes.text());
  const auto document = JSON::Document::parse(text);
  if (!document) return 0;
  const auto& input = document->root();
  const auto tool = input.string("tool_name").value_or("");
  const auto* const toolInput = input.find("tool_input");
  const auto fingerprint = AgentPermission::fingerprint(tool, toolInput);
  require(!fingerprint || (fingerprint->size() >= 1 && fingerprint->size() <= 16));
  if (!toolInput) return 0;

  const AgentPermission::Folders folders{.cwd = input.string("cwd"), .home = input.string("home")};
  for (const auto& card : {AgentPermission::parse(tool, *toolInput, folders),
                           AgentPermission::question(*toolInput, folders),
                           AgentPermission::plan(*toolInput, folders)}) {
    if (card) check(*card);
    checkReplies(card, input);
  }
  return 0;
}
