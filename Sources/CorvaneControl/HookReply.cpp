#include "CorvaneControl/HookReply.h"

#include <algorithm>
#include <array>
#include <utility>

#include "CorvaneControl/Agent.h"
#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/Platform/Text.h"
#include "CorvaneControl/ToolInput.h"

namespace CorvaneControl {

namespace {

using Action = AgentPermission::Action;
using JSON::Member;
using JSON::Value;
using Answers = std::map<std::string, std::string>;

std::string_view refusalMessage(Action action) {
  return action == Action::plan
             ? "The user wants to keep planning. Stop and wait for what they want to change."
             : "The user declined to answer from Corvane. Stop and wait for their instructions.";
}

// The agent only takes leave for a question or a plan together with its own tool input.

/// Allowing a plan, with the permission mode to go on in.
std::string planAcceptance(const Value& input, std::string_view mode) {
  const std::array change{Member{"destination", Value::ofString("session")},
                          Member{"mode", Value::ofString(mode)},
                          Member{"type", Value::ofString("setMode")}};
  const std::array changes{Value::ofObject(change)};
  const std::array decision{Member{"behavior", Value::ofString("allow")},
                            Member{"updatedInput", input},
                            Member{"updatedPermissions", Value::ofArray(changes)}};
  return HookReply::output(Value::ofObject(decision));
}

/// Allowing a question: the input carries the answers.
std::string questionAcceptance(const Value& input, const Answers& answers) {
  std::vector<Member> written;
  written.reserve(answers.size());
  for (const auto& [question, labels] : answers) {
    written.push_back({question, Value::ofString(labels)});
  }
  const Member member{"answers", Value::ofObject(written)};

  std::vector<Member> members(input.members().begin(), input.members().end());
  const auto place = std::ranges::lower_bound(members, member.key, {}, &Member::key);
  if (place != members.end() && place->key == member.key) {
    *place = member;
  } else {
    members.insert(place, member);
  }
  const std::array decision{Member{"behavior", Value::ofString("allow")},
                            Member{"updatedInput", Value::ofObject(members)}};
  return HookReply::output(Value::ofObject(decision));
}

/// The labels of the chosen options of one question; absent when the choice does not fit it.
std::optional<std::string> chosenLabels(const std::vector<std::int64_t>& choice,
                                        const Value& question) {
  const auto options = ToolInput::objects(question.find("options"));
  if (!options || choice.empty()) return std::nullopt;
  if (choice.size() > 1 && !ToolInput::takesSeveral(question)) return std::nullopt;

  std::vector<std::string_view> labels;
  for (const auto index : choice) {
    if (index < 0 || std::cmp_greater_equal(index, options->size())) return std::nullopt;
    const auto label = (*options)[static_cast<std::size_t>(index)].string("label");
    if (!label) return std::nullopt;
    labels.push_back(*label);
  }
  return Text::joined(labels, ", ");
}

bool asksOrPlans(const ControlRequest& request) {
  if (!request.permission) return false;
  const auto action = request.permission->action;
  return action == Action::ask || action == Action::plan;
}

}  // namespace

namespace HookReply {

std::string output(const Value& decision) {
  const std::array content{Member{"decision", decision},
                           Member{"hookEventName", Value::ofString("PermissionRequest")}};
  const std::array reply{Member{"hookSpecificOutput", Value::ofObject(content)}};
  std::string line;
  JSON::write(Value::ofObject(reply), JSON::Slashes::escaped, line);
  line += '\n';
  return line;
}

std::string refusal(std::string_view agent, std::string_view message) {
  std::vector<Member> decision{{"behavior", Value::ofString("deny")}};
  // Told only to deny, Claude goes on with its turn; other agents take "interrupt" for an error.
  if (wireValue<Agent>(Text::lowercasedASCII(agent)) == Agent::claude) {
    decision.push_back({"interrupt", Value::ofBoolean(true)});
  }
  decision.push_back({"message", Value::ofString(message)});
  return output(Value::ofObject(decision));
}

std::string hookOutput(PermissionAnswer answer, std::string_view agent) {
  if (answer == PermissionAnswer::denied) {
    return refusal(agent,
                   "The user denied this from Corvane. Stop and wait for their instructions.");
  }
  const std::array decision{Member{"behavior", Value::ofString("allow")}};
  return output(Value::ofObject(decision));
}

}  // namespace HookReply

std::optional<std::string> ControlResponse::hookOutput(const ControlRequest& request,
                                                       const JSON::Value* hookInput) const {
  if (!decision) return std::nullopt;
  const auto agent = request.agent ? std::string_view(*request.agent) : "";
  if (!asksOrPlans(request)) return HookReply::hookOutput(*decision, agent);
  const auto action = request.permission->action;
  if (decision == PermissionAnswer::denied) {
    return HookReply::refusal(agent, refusalMessage(action));
  }

  const auto* input = hookInput ? hookInput->object("tool_input") : nullptr;
  if (!input) return std::nullopt;
  if (action == Action::plan) {
    return planAcceptance(*input, approval == PlanApproval::automatic ? "auto" : "default");
  }
  const auto chosen =
      answers(choices.value_or(std::vector<std::vector<std::int64_t>>{}), input->find("questions"));
  return chosen ? std::optional(questionAcceptance(*input, *chosen)) : std::nullopt;
}

std::optional<std::map<std::string, std::string>> ControlResponse::answers(
    const std::vector<std::vector<std::int64_t>>& choices, const JSON::Value* questions) {
  const auto asked = ToolInput::objects(questions);
  if (!asked || asked->empty() || asked->size() != choices.size()) return std::nullopt;

  Answers answers;
  for (std::size_t index = 0; index < asked->size(); ++index) {
    const auto question = (*asked)[index].string("question");
    if (!question) return std::nullopt;
    auto labels = chosenLabels(choices[index], (*asked)[index]);
    if (!labels) return std::nullopt;
    answers.insert_or_assign(std::string(*question), std::move(*labels));
  }
  return answers;
}

}  // namespace CorvaneControl
