#include <algorithm>
#include <array>
#include <utility>

#include "CorvaneControl/AgentPermission.h"
#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/Platform/Text.h"

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

/// Allowing a question or a plan: the agent only takes it together with its own tool input.
std::string acceptance(const Value& updatedInput) {
  const std::array decision{Member{"behavior", Value::ofString("allow")},
                            Member{"updatedInput", updatedInput}};
  return HookReply::output(Value::ofObject(decision));
}

/// The same for a plan, with the permission mode to go on in.
std::string acceptance(const Value& updatedInput, std::string_view mode) {
  const std::array change{Member{"destination", Value::ofString("session")},
                          Member{"mode", Value::ofString(mode)},
                          Member{"type", Value::ofString("setMode")}};
  const std::array changes{Value::ofObject(change)};
  const std::array decision{Member{"behavior", Value::ofString("allow")},
                            Member{"updatedInput", updatedInput},
                            Member{"updatedPermissions", Value::ofArray(changes)}};
  return HookReply::output(Value::ofObject(decision));
}

std::string acceptance(const Value& input, const Answers& answers) {
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
  return acceptance(Value::ofObject(members));
}

bool areObjects(const Value* list) {
  return list && list->isArray() && std::ranges::all_of(list->elements(), &Value::isObject);
}

/// The labels of the chosen options of one question; absent when the choice does not fit it.
std::optional<std::string> chosenLabels(const std::vector<std::int64_t>& choice,
                                        const Value& question) {
  const auto* options = question.find("options");
  if (!areObjects(options) || choice.empty()) return std::nullopt;
  const auto* multiSelect = question.find("multiSelect");
  const bool several = multiSelect && multiSelect->asBoolean().value_or(false);
  if (choice.size() > 1 && !several) return std::nullopt;

  std::string labels;
  std::string_view separator;
  for (const auto index : choice) {
    if (index < 0 || std::cmp_greater_equal(index, options->elements().size())) {
      return std::nullopt;
    }
    const auto label = options->elements()[static_cast<std::size_t>(index)].string("label");
    if (!label) return std::nullopt;
    labels += separator;
    labels += *label;
    separator = ", ";
  }
  return labels;
}

bool asksOrPlans(const ControlRequest& request) {
  if (!request.permission) return false;
  const auto action = request.permission->action;
  return action == Action::ask || action == Action::plan;
}

/// Whether the reply to this answer needs the agent's hook input.
bool returnsInput(const ControlResponse& response, const ControlRequest& request) {
  return response.decision == PermissionAnswer::allowed && asksOrPlans(request);
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
  if (Text::lowercasedASCII(agent) == "claude") {
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
  if (!returnsInput(*this, request)) {
    const auto agent = request.agent ? std::string_view(*request.agent) : "";
    if (asksOrPlans(request)) {
      return HookReply::refusal(agent, refusalMessage(request.permission->action));
    }
    return HookReply::hookOutput(*decision, agent);
  }

  const auto* input = hookInput ? hookInput->object("tool_input") : nullptr;
  if (!input) return std::nullopt;
  if (request.permission->action == Action::plan) {
    return acceptance(*input, approval == PlanApproval::automatic ? "auto" : "default");
  }
  const auto chosen =
      answers(choices.value_or(std::vector<std::vector<std::int64_t>>{}), input->find("questions"));
  if (!chosen) return std::nullopt;
  return acceptance(*input, *chosen);
}

std::optional<std::string> ControlResponse::hookOutput(const ControlRequest& request,
                                                       std::optional<std::string> hookInput) const {
  const Value* none = nullptr;
  if (!hookInput || !returnsInput(*this, request)) return hookOutput(request, none);
  const auto document = JSON::Document::parse(*hookInput);
  return hookOutput(request, document ? &document->root() : none);
}

std::optional<std::map<std::string, std::string>> ControlResponse::answers(
    const std::vector<std::vector<std::int64_t>>& choices, const JSON::Value* questions) {
  if (!areObjects(questions)) return std::nullopt;
  const auto asked = questions->elements();
  if (asked.empty() || asked.size() != choices.size()) return std::nullopt;

  Answers answers;
  for (std::size_t index = 0; index < asked.size(); ++index) {
    const auto question = asked[index].string("question");
    if (!question) return std::nullopt;
    auto labels = chosenLabels(choices[index], asked[index]);
    if (!labels) return std::nullopt;
    answers.insert_or_assign(std::string(*question), std::move(*labels));
  }
  return answers;
}

}  // namespace CorvaneControl
