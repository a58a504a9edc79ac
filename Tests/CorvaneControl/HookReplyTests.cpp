#include "CorvaneControl/HookReply.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>

#include "CorvaneControl/AgentPermissionTesting.h"
#include "CorvaneControl/ControlProtocol.h"

namespace CorvaneControl {
namespace {

using Action = AgentPermission::Action;
using Choices = std::vector<std::vector<std::int64_t>>;
using Answers = std::map<std::string, std::string>;

std::string reply(const std::string& decision) {
  return R"({"hookSpecificOutput":{"decision":)" + decision +
         R"(,"hookEventName":"PermissionRequest"}})"
         "\n";
}

TEST(HookReply, isOneLineWithSortedKeysAndEscapedSlashes) {
  const Parsed decision(R"({ "z": "/tmp/\"é\"\n", "a": { "y": [1, 2.50, null], "x/": true } })");
  EXPECT_EQ(HookReply::output(*decision),
            R"({"hookSpecificOutput":{"decision":{"a":{"x\/":true,"y":[1,2.5,null]},)"
            R"("z":"\/tmp\/\"é\"\n"},"hookEventName":"PermissionRequest"}})"
            "\n");
}

struct RefusalCase {
  const char* name;
  const char* agent;
  bool interrupts;
};

const RefusalCase refusalCases[] = {
    {"interruptsClaude", "claude", true},
    {"interruptsClaudeInAnyCase", "Claude", true},
    {"interruptsClaudeInCapitals", "CLAUDE", true},
    {"doesNotInterruptCodex", "codex", false},
    {"doesNotInterruptCursor", "cursor", false},
    {"doesNotInterruptALongerName", "claude2", false},
    {"doesNotInterruptAShorterName", "claud", false},
    {"doesNotInterruptNobody", "", false},
};

class Refusal : public testing::TestWithParam<RefusalCase> {};

TEST_P(Refusal, tellsTheAgentToStop) {
  const std::string interrupt = GetParam().interrupts ? R"("interrupt":true,)" : "";
  EXPECT_EQ(HookReply::refusal(GetParam().agent, "No/\"é\"\n"),
            reply(R"({"behavior":"deny",)" + interrupt + R"("message":"No\/\"é\"\n"})"));
  EXPECT_EQ(HookReply::hookOutput(PermissionAnswer::denied, GetParam().agent),
            reply(R"({"behavior":"deny",)" + interrupt +
                  R"("message":"The user denied this from Corvane. )"
                  R"(Stop and wait for their instructions."})"));
}

TEST_P(Refusal, isNotAllowing) {
  EXPECT_EQ(HookReply::hookOutput(PermissionAnswer::allowed, GetParam().agent),
            reply(R"({"behavior":"allow"})"));
}

INSTANTIATE_TEST_SUITE_P(HookReply, Refusal, testing::ValuesIn(refusalCases), named);

struct ReplyCase {
  const char* name;
  ControlResponse response;
  std::optional<std::string> agent;
  std::optional<Action> action;
  std::optional<std::string> hookInput;
  std::optional<std::string> output;  // the decision in the reply
};

ControlResponse answer(PermissionAnswer decision, std::optional<Choices> choices = {},
                       std::optional<PlanApproval> approval = {}) {
  return {.ok = true, .decision = decision, .choices = std::move(choices), .approval = approval};
}

constexpr auto allowed = PermissionAnswer::allowed;
constexpr auto denied = PermissionAnswer::denied;

const std::string plainAllowance = R"({"behavior":"allow"})";
const std::string plainDenial =
    R"({"behavior":"deny","message":"The user denied this from Corvane. )"
    R"(Stop and wait for their instructions."})";
const std::string planDenial = R"({"behavior":"deny","message":"The user wants to keep planning. )"
                               R"(Stop and wait for what they want to change."})";
const std::string askDenial =
    R"({"behavior":"deny","message":"The user declined to answer from Corvane. )"
    R"(Stop and wait for their instructions."})";
const std::string claudePlanDenial =
    R"({"behavior":"deny","interrupt":true,"message":"The user wants to keep planning. )"
    R"(Stop and wait for what they want to change."})";

const std::string planInput =
    R"({"tool_name":"ExitPlanMode","tool_input":{"plan":"# a/b\n1. é","zeta":[1.0,{"y":1,"x":2}]}})";
const std::string writtenPlanInput = R"({"plan":"# a\/b\n1. é","zeta":[1,{"x":2,"y":1}]})";
std::string planAllowance(const std::string& mode) {
  return R"({"behavior":"allow","updatedInput":)" + writtenPlanInput +
         R"(,"updatedPermissions":[{"destination":"session","mode":")" + mode +
         R"(","type":"setMode"}]})";
}

const std::string askInput =
    R"j({"tool_input":{"questions":[{"question":"A/B?","options":[{"label":"a (Recommended)"},)j"
    R"({"label":"b/c"}],"multiSelect":true}]}})";
std::string askAllowance(const std::string& labels) {
  return R"({"behavior":"allow","updatedInput":{"answers":{"A\/B?":")" + labels +
         R"j("},"questions":[{"multiSelect":true,"options":[{"label":"a (Recommended)"},)j"
         R"({"label":"b\/c"}],"question":"A\/B?"}]}})";
}

const ReplyCase replyCases[] = {
    // Nothing decided
    {"noDecisionSaysNothing", {.ok = true}, "claude", Action::run, "{}", std::nullopt},
    {"aFailureSaysNothing", ControlResponse::failure("no"), "claude", Action::run, "{}",
     std::nullopt},
    {"choicesAloneSayNothing",
     {.ok = true, .choices = Choices{{0}}, .approval = PlanApproval::automatic},
     "claude",
     Action::ask,
     askInput,
     std::nullopt},

    // Neither question nor plan
    {"allowsACommand", answer(allowed), "codex", Action::run, std::nullopt, plainAllowance},
    {"allowsAnEdit", answer(allowed), "claude", Action::edit, "not JSON", plainAllowance},
    {"allowsAWrite", answer(allowed), "claude", Action::write, planInput, plainAllowance},
    {"allowsAPage", answer(allowed), "claude", Action::fetch, std::nullopt, plainAllowance},
    {"allowsASearch", answer(allowed), "claude", Action::search, std::nullopt, plainAllowance},
    {"allowsATool", answer(allowed), "claude", Action::tool, std::nullopt, plainAllowance},
    {"allowsWithoutACard", answer(allowed), "claude", std::nullopt, std::nullopt, plainAllowance},
    {"allowsWithoutAnAgent", answer(allowed), std::nullopt, Action::run, std::nullopt,
     plainAllowance},
    {"ignoresChoicesAndApprovalOfACommand", answer(allowed, Choices{{0}}, PlanApproval::automatic),
     "claude", Action::run, askInput, plainAllowance},
    {"allowsThoughTheResponseIsNotOK",
     {.error = "x", .decision = allowed},
     "claude",
     Action::run,
     std::nullopt,
     plainAllowance},
    {"deniesACommand", answer(denied), "codex", Action::run, std::nullopt, plainDenial},
    {"deniesWithoutACard", answer(denied), "cursor", std::nullopt, std::nullopt, plainDenial},
    {"deniesWithoutAnAgent", answer(denied), std::nullopt, Action::run, std::nullopt, plainDenial},

    // A plan
    {"deniesAPlan", answer(denied), "codex", Action::plan, planInput, planDenial},
    {"deniesAPlanOfClaude", answer(denied, {}, PlanApproval::automatic), "claude", Action::plan,
     planInput, claudePlanDenial},
    {"deniesAPlanWithoutInput", answer(denied), "codex", Action::plan, std::nullopt, planDenial},
    {"deniesAPlanWithBrokenInput", answer(denied), "codex", Action::plan, "{", planDenial},
    {"allowsAPlanToGoOnAlone", answer(allowed, {}, PlanApproval::automatic), "claude", Action::plan,
     planInput, planAllowance("auto")},
    {"allowsAPlanToGoOnAsUsual", answer(allowed, {}, PlanApproval::manual), "claude", Action::plan,
     planInput, planAllowance("default")},
    {"allowsAPlanWithoutSayingHow", answer(allowed), "claude", Action::plan, planInput,
     planAllowance("default")},
    {"allowsAPlanOfAnyAgent", answer(allowed), std::nullopt, Action::plan, planInput,
     planAllowance("default")},
    {"allowsAnEmptyPlan", answer(allowed), "claude", Action::plan, R"({"tool_input":{}})",
     R"({"behavior":"allow","updatedInput":{},"updatedPermissions":)"
     R"([{"destination":"session","mode":"default","type":"setMode"}]})"},
    {"ignoresTheAnswersOfAPlan", answer(allowed), "claude", Action::plan,
     R"({"tool_input":{"answers":1}})",
     R"({"behavior":"allow","updatedInput":{"answers":1},"updatedPermissions":)"
     R"([{"destination":"session","mode":"default","type":"setMode"}]})"},

    // A question
    {"deniesAQuestion", answer(denied, Choices{{0}}), "codex", Action::ask, askInput, askDenial},
    {"deniesAQuestionWithoutInput", answer(denied), "codex", Action::ask, std::nullopt, askDenial},
    {"answersAQuestion", answer(allowed, Choices{{0}}), "claude", Action::ask, askInput,
     askAllowance("a (Recommended)")},
    {"answersAQuestionTwice", answer(allowed, Choices{{1, 0}}), "claude", Action::ask, askInput,
     askAllowance(R"j(b\/c, a (Recommended))j")},
    {"replacesAnswersThatAreThere", answer(allowed, Choices{{0}}), "claude", Action::ask,
     R"({"tool_input":{"zeta":1,"answers":{"old":"x"},"alpha":2,"questions":)"
     R"([{"question":"Q","options":[{"label":"a"}]}]}})",
     R"({"behavior":"allow","updatedInput":{"alpha":2,"answers":{"Q":"a"},"questions":)"
     R"([{"options":[{"label":"a"}],"question":"Q"}],"zeta":1}})"},
    {"sortsTheAnswers", answer(allowed, Choices{{0}, {1}}), "claude", Action::ask,
     R"({"tool_input":{"questions":[{"question":"b","options":[{"label":"1"},{"label":"2"}]},)"
     R"({"question":"a","options":[{"label":"1"},{"label":"2"}]}]}})",
     R"({"behavior":"allow","updatedInput":{"answers":{"a":"2","b":"1"},"questions":)"
     R"([{"options":[{"label":"1"},{"label":"2"}],"question":"b"},)"
     R"({"options":[{"label":"1"},{"label":"2"}],"question":"a"}]}})"},
    {"needsChoices", answer(allowed), "claude", Action::ask, askInput, std::nullopt},
    {"needsChoicesThatFit", answer(allowed, Choices{{2}}), "claude", Action::ask, askInput,
     std::nullopt},
    {"needsQuestions", answer(allowed, Choices{{0}}), "claude", Action::ask, planInput,
     std::nullopt},

    // Input that allowing a question or a plan can not return
    {"needsInput", answer(allowed), "claude", Action::plan, std::nullopt, std::nullopt},
    {"needsInputThatIsNotEmpty", answer(allowed), "claude", Action::plan, "", std::nullopt},
    {"needsInputThatIsJSON", answer(allowed), "claude", Action::plan, planInput + "x",
     std::nullopt},
    {"needsInputThatIsUTF8", answer(allowed), "claude", Action::plan,
     "{\"tool_input\":{\"a\":\"\xFF\"}}", std::nullopt},
    {"needsInputThatIsAnObject", answer(allowed), "claude", Action::plan, "[" + planInput + "]",
     std::nullopt},
    {"needsTheToolsInput", answer(allowed), "claude", Action::plan, R"({"tool_name":"x"})",
     std::nullopt},
    {"needsTheToolsInputAsAnObject", answer(allowed), "claude", Action::plan,
     R"({"tool_input":[{}]})", std::nullopt},
    {"needsTheToolsInputNotToBeNull", answer(allowed), "claude", Action::plan,
     R"({"tool_input":null})", std::nullopt},
    {"needsTheToolsInputNotToBeAText", answer(allowed, Choices{{0}}), "claude", Action::ask,
     R"({"tool_input":"{}"})", std::nullopt},
};

class Reply : public testing::TestWithParam<ReplyCase> {
 protected:
  static ControlRequest request() {
    ControlRequest request{.command = ControlRequest::Command::notify, .agent = GetParam().agent};
    if (GetParam().action) request.permission = AgentPermission{.action = *GetParam().action};
    return request;
  }
  static std::optional<std::string> expected() {
    return GetParam().output ? std::optional(reply(*GetParam().output)) : std::nullopt;
  }
};

TEST_P(Reply, toTheHook) {
  std::string text = GetParam().hookInput.value_or("");
  const auto document = JSON::Document::parse(text);
  const JSON::Value* const input = document ? &document->root() : nullptr;
  EXPECT_EQ(GetParam().response.hookOutput(request(), input), expected());
}

INSTANTIATE_TEST_SUITE_P(HookReply, Reply, testing::ValuesIn(replyCases), named);

struct AnswersCase {
  const char* name;
  Choices choices;
  std::string questions;
  std::optional<Answers> answers;
};

/// A question with three options.
std::string threeOptions(const std::string& others = "") {
  return R"({"question":"Q",)" + others +
         R"("options":[{"label":"a"},{"label":"b"},{"label":"c"}]})";
}
std::string several() { return "[" + threeOptions(R"("multiSelect":true,)") + "]"; }
std::string one() { return "[" + threeOptions() + "]"; }

const AnswersCase answersCases[] = {
    {"takeTheFirst", {{0}}, one(), Answers{{"Q", "a"}}},
    {"takeTheLast", {{2}}, one(), Answers{{"Q", "c"}}},
    {"takeNoneBehindTheLast", {{3}}, one(), std::nullopt},
    {"takeNoneFarBehindTheLast", {{5}}, one(), std::nullopt},
    {"takeNoneBeforeTheFirst", {{-1}}, one(), std::nullopt},
    {"takeNoneOfTheLargest", {{INT64_MAX}}, one(), std::nullopt},
    {"takeNoneOfTheSmallest", {{INT64_MIN}}, one(), std::nullopt},
    {"takeNoneWithoutChoice", {{}}, one(), std::nullopt},
    {"takeNoneWithoutChoiceOfSeveral", {{}}, several(), std::nullopt},
    {"takeSeveralInTheirOrder", {{2, 0}}, several(), Answers{{"Q", "c, a"}}},
    {"takeOneOfSeveral", {{1}}, several(), Answers{{"Q", "b"}}},
    {"takeTheSameTwice", {{1, 1}}, several(), Answers{{"Q", "b, b"}}},
    {"takeNoneWhenOneOfSeveralIsWrong", {{0, 3}}, several(), std::nullopt},
    {"takeNoneOfTwoWhereOneIsAsked", {{0, 2}}, one(), std::nullopt},
    {"takeNoneOfTwoWhereFalseIsSaid",
     {{0, 2}},
     "[" + threeOptions(R"("multiSelect":false,)") + "]",
     std::nullopt},
    {"takeNoneOfTwoWhereOneStandsForTrue",
     {{0, 2}},
     "[" + threeOptions(R"("multiSelect":1,)") + "]",
     std::nullopt},
    {"takeNoneOfTwoWhereATextStandsForTrue",
     {{0, 2}},
     "[" + threeOptions(R"("multiSelect":"true",)") + "]",
     std::nullopt},
    {"takeOneForEachQuestion",
     {{0}, {1}},
     R"([{"question":"Q","options":[{"label":"a"}]},)"
     R"({"question":"R","options":[{"label":"b"},{"label":"c"}]}])",
     Answers{{"Q", "a"}, {"R", "c"}}},
    {"takeTheLaterOfTheSameQuestion",
     {{0}, {1}},
     "[" + threeOptions() + "," + threeOptions() + "]",
     Answers{{"Q", "b"}}},
    {"takeLabelsAsTheyAre",
     {{0, 1}},
     R"([{"question":" Q\n","multiSelect":true,"options":)"
     R"j([{"label":"A (recommended)"},{"label":""}]}])j",
     Answers{{" Q\n", "A (recommended), "}}},
    {"needNotReadOptionsThatAreNotChosen",
     {{1}},
     R"([{"question":"Q","options":[{},{"label":"b"},{"label":1}]}])",
     Answers{{"Q", "b"}}},
    {"needAnAnswerToEachQuestion",
     {{0}},
     "[" + threeOptions() + "," + threeOptions() + "]",
     std::nullopt},
    {"needAQuestionForEachAnswer", {{0}, {0}}, one(), std::nullopt},
    {"needChoices", {}, one(), std::nullopt},
    {"needQuestions", {}, "[]", std::nullopt},
    {"needAListOfQuestions", {{0}}, threeOptions(), std::nullopt},
    {"needQuestionsThatAreObjects", {{0}, {0}}, "[" + threeOptions() + ",1]", std::nullopt},
    {"needQuestionsThatAreNotNull", {{0}}, "null", std::nullopt},
    {"needTheTextOfAQuestion", {{0}}, R"([{"options":[{"label":"a"}]}])", std::nullopt},
    {"needAQuestionThatIsAText",
     {{0}},
     R"([{"question":1,"options":[{"label":"a"}]}])",
     std::nullopt},
    {"takeAnEmptyQuestion",
     {{0}},
     R"([{"question":"","options":[{"label":"a"}]}])",
     Answers{{"", "a"}}},
    {"needOptions", {{0}}, R"([{"question":"Q"}])", std::nullopt},
    {"needAListOfOptions", {{0}}, R"([{"question":"Q","options":{"label":"a"}}])", std::nullopt},
    {"needOneOption", {{0}}, R"([{"question":"Q","options":[]}])", std::nullopt},
    {"needOptionsThatAreObjects",
     {{0}},
     R"([{"question":"Q","options":[{"label":"a"},"b"]}])",
     std::nullopt},
    {"needALabel", {{0}}, R"([{"question":"Q","options":[{"description":"a"}]}])", std::nullopt},
    {"needALabelThatIsAText",
     {{0}},
     R"([{"question":"Q","options":[{"label":null}]}])",
     std::nullopt},
    {"needAllToFit", {{0}, {7}}, "[" + threeOptions() + "," + threeOptions() + "]", std::nullopt},
};

class AnswersTo : public testing::TestWithParam<AnswersCase> {};

TEST_P(AnswersTo, questions) {
  const Parsed questions(GetParam().questions);
  EXPECT_EQ(ControlResponse::answers(GetParam().choices, questions.get()), GetParam().answers);
}

INSTANTIATE_TEST_SUITE_P(HookReply, AnswersTo, testing::ValuesIn(answersCases), named);

TEST(AnswersTo, noQuestionsAreAbsent) {
  EXPECT_EQ(ControlResponse::answers({{0}}, nullptr), std::nullopt);
  EXPECT_EQ(ControlResponse::answers({}, nullptr), std::nullopt);
}

}  // namespace
}  // namespace CorvaneControl
