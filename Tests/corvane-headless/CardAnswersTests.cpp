#include "corvane-headless/CardAnswers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace CorvaneControl::Headless {
namespace {

using Action = AgentPermission::Action;
using Question = AgentPermission::Question;
using Choices = std::vector<std::vector<std::int64_t>>;
using Decided = CardDialog::Decided;
using DrawAgain = CardDialog::DrawAgain;
using LeftToAgent = CardDialog::LeftToAgent;

const PermissionReply allowed{.answer = PermissionAnswer::allowed};
const PermissionReply denied{.answer = PermissionAnswer::denied};

PermissionReply chosen(Choices choices) {
  return {.answer = PermissionAnswer::allowed, .choices = std::move(choices)};
}
PermissionReply approved(PlanApproval approval) {
  return {.answer = PermissionAnswer::allowed, .approval = approval};
}

AgentPermission command() { return {.action = Action::run, .subject = "ls"}; }
AgentPermission plan() { return {.action = Action::plan, .subject = "A plan"}; }

/// A card with one question of three options, and one where several of two may be chosen.
AgentPermission questions() {
  return {.action = Action::ask,
          .subject = "Which?",
          .questions = std::vector<Question>{
              {.text = "Which?",
               .options = {{.label = "a"}, {.label = "b", .recommended = true}, {.label = "c"}}},
              {.text = "What else?",
               .options = {{.label = "d"}, {.label = "e"}},
               .multiSelect = true}}};
}

struct AutomaticCase {
  const char* name;
  AgentPermission card;
  PermissionAnswer answer;
  std::optional<PermissionReply> reply;
};

AgentPermission with(AgentPermission card, void (*change)(AgentPermission&)) {
  change(card);
  return card;
}

const AutomaticCase automaticCases[] = {
    {"allowsACommand", command(), PermissionAnswer::allowed, allowed},
    {"deniesACommand", command(), PermissionAnswer::denied, denied},
    {"approvesAPlan", plan(), PermissionAnswer::allowed, approved(PlanApproval::automatic)},
    {"keepsPlanning", plan(), PermissionAnswer::denied, denied},
    {"choosesTheRecommendedElseTheFirst", questions(), PermissionAnswer::allowed,
     chosen({{1}, {0}})},
    {"declinesQuestions", questions(), PermissionAnswer::denied, denied},
    {"allowsACommandThatWasCut", with(command(), [](auto& card) { card.complete = false; }),
     PermissionAnswer::allowed, allowed},
    {"leavesQuestionsThatWereCut", with(questions(), [](auto& card) { card.complete = false; }),
     PermissionAnswer::allowed, std::nullopt},
    {"declinesQuestionsThatWereCut", with(questions(), [](auto& card) { card.complete = false; }),
     PermissionAnswer::denied, denied},
    {"leavesAQuestionWithoutOptions",
     with(questions(), [](auto& card) { (*card.questions)[1].options.clear(); }),
     PermissionAnswer::allowed, std::nullopt},
    {"leavesAskingWithoutQuestions", with(questions(), [](auto& card) { card.questions.reset(); }),
     PermissionAnswer::allowed, std::nullopt},
    {"leavesAskingWithNoQuestions", with(questions(), [](auto& card) { card.questions->clear(); }),
     PermissionAnswer::allowed, std::nullopt},
};

class AutomaticReply : public testing::TestWithParam<AutomaticCase> {};
TEST_P(AutomaticReply, saysWhatItShould) {
  EXPECT_EQ(automaticReply(GetParam().card, GetParam().answer), GetParam().reply);
}
INSTANTIATE_TEST_SUITE_P(Headless, AutomaticReply, testing::ValuesIn(automaticCases),
                         [](const auto& row) { return std::string(row.param.name); });

struct DialogCase {
  const char* name;
  AgentPermission card;
  std::vector<std::string> lines;
  CardDialog::Outcome last;
};

const CardDialog::Hint commandHint{
    "That is no answer. Type a, d, s or l; Enter alone shows it again."};
const CardDialog::Hint oneOfThree{
    "That is no answer. Type one of the numbers 1-3, d, s or l; Enter alone shows it again."};
const CardDialog::Hint someOfTwo{
    "That is no answer. Type one or more of the numbers 1-2 (such as 1,2), d, s or l; Enter alone "
    "shows it again."};
const CardDialog::Hint cutHint{"That is no answer. Type d, s or l; Enter alone shows it again."};

const DialogCase dialogCases[] = {
    {"allows", command(), {"a"}, Decided{allowed}},
    {"allowsByTheWord", command(), {"allow"}, Decided{allowed}},
    {"allowsInCapitals", command(), {"  A \r"}, Decided{allowed}},
    {"allowsWithBlanksAround", command(), {" \tAllow "}, Decided{allowed}},
    {"denies", command(), {"d"}, Decided{denied}},
    {"deniesByTheWord", command(), {"DENY"}, Decided{denied}},
    {"leaves", command(), {"l"}, LeftToAgent{}},
    {"drawsAgain", command(), {""}, DrawAgain{}},
    {"drawsAgainForBlanks", command(), {"   "}, DrawAgain{}},
    {"showsAll", command(), {"s"}, DrawAgain{}},
    {"doesNotTakeYesForAnAnswer", command(), {"y"}, commandHint},
    {"doesNotTakeHalfAWord", command(), {"al"}, commandHint},
    {"doesNotTakeTwoAnswers", command(), {"a d"}, commandHint},
    {"doesNotTakeANumberForACommand", command(), {"1"}, commandHint},
    {"doesNotTakeBrokenText", command(), {"\xff"}, commandHint},
    {"doesNotTakeANul", command(), {std::string("a\0", 2)}, commandHint},
    {"answersAfterAHint", command(), {"x", "a"}, Decided{allowed}},
    {"approvesAPlan", plan(), {"a"}, Decided{approved(PlanApproval::automatic)}},
    {"approvesAPlanByHand", plan(), {"manual"}, Decided{approved(PlanApproval::manual)}},
    {"keepsPlanning", plan(), {"k"}, Decided{denied}},
    {"hasNoDenialOfAPlan",
     plan(),
     {"d"},
     CardDialog::Hint{"That is no answer. Type a, m, k, s or l; Enter alone shows it again."}},
    {"asksTheNextQuestion", questions(), {"3"}, DrawAgain{}},
    {"answersAllQuestions", questions(), {"3", "2"}, Decided{chosen({{2}, {1}})}},
    {"choosesSeveral", questions(), {"1", "2,1"}, Decided{chosen({{0}, {1, 0}})}},
    {"choosesSeveralWithBlanks", questions(), {"1", " 1 , 2 "}, Decided{chosen({{0}, {0, 1}})}},
    {"choosesEachOnce", questions(), {"1", "2 2 2"}, Decided{chosen({{0}, {1}})}},
    {"choosesOneWrittenTwice", questions(), {"2,2", "1"}, Decided{chosen({{1}, {0}})}},
    {"declinesQuestions", questions(), {"d"}, Decided{denied}},
    {"declinesTheSecondQuestion", questions(), {"1", "decline"}, Decided{denied}},
    {"doesNotTakeSeveralForOne", questions(), {"1,2"}, oneOfThree},
    {"doesNotTakeZero", questions(), {"0"}, oneOfThree},
    {"doesNotTakeANumberBeyond", questions(), {"4"}, oneOfThree},
    {"doesNotTakeAHugeNumber", questions(), {"99999999999999999999999"}, oneOfThree},
    {"doesNotTakeANegativeNumber", questions(), {"-1"}, oneOfThree},
    {"doesNotTakeAPartOfANumber", questions(), {"1x"}, oneOfThree},
    {"doesNotTakeCommasAlone", questions(), {","}, oneOfThree},
    {"doesNotTakeOneBadAmongGood", questions(), {"1", "1,3"}, someOfTwo},
    {"doesNotAnswerWhatWasCut",
     with(questions(), [](auto& card) { card.complete = false; }),
     {"1"},
     cutHint},
    {"doesNotAnswerMissingQuestions",
     with(questions(), [](auto& card) { card.questions.reset(); }),
     {"1"},
     cutHint},
};

class Dialog : public testing::TestWithParam<DialogCase> {};
TEST_P(Dialog, understands) {
  CardDialog dialog(GetParam().card);
  CardDialog::Outcome outcome;
  for (const std::string& line : GetParam().lines) outcome = dialog.typed(line);
  EXPECT_EQ(outcome.index(), GetParam().last.index());
  EXPECT_TRUE(outcome == GetParam().last);
}
INSTANTIATE_TEST_SUITE_P(Headless, Dialog, testing::ValuesIn(dialogCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(Dialog, keepsTheQuestionAfterAHint) {
  CardDialog dialog(questions());
  dialog.typed("1");
  EXPECT_EQ(dialog.question(), 1U);
  dialog.typed("9");
  EXPECT_EQ(dialog.question(), 1U);
}

TEST(Dialog, saysWhatCanBeTyped) {
  EXPECT_EQ(CardDialog(command()).prompt("Claude"),
            "[a] allow  [d] deny  [s] show all  [l] leave it to Claude");
  EXPECT_EQ(CardDialog(plan()).prompt("Claude"),
            "[a] approve, and go on without asking  [m] approve, and go on asking  [k] keep "
            "planning  [s] show all  [l] leave it to Claude");
  CardDialog dialog(questions());
  EXPECT_EQ(dialog.prompt("Codex"),
            "[1-3] choose one  [d] decline to answer  [s] show all  [l] leave it to Codex");
  dialog.typed("1");
  EXPECT_EQ(dialog.prompt("Codex"),
            "[1-2] choose one or more, such as 1,2  [d] decline to answer  [s] show all  [l] leave "
            "it to Codex");
}

}  // namespace
}  // namespace CorvaneControl::Headless
