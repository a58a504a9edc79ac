#include "corvane-headless/CardAnswers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "CorvaneControl/Platform/Text.h"

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
    "That is no answer. Type a, d or l; Enter alone shows it again."};
const CardDialog::Hint oneOfThree{
    "That is no answer. Type one of the numbers 1-3, d or l; Enter alone shows it again."};
const CardDialog::Hint someOfTwo{
    "That is no answer. Type one or more of the numbers 1-2 (such as 1,2), d or l; Enter alone "
    "shows it again."};
const CardDialog::Hint cutHint{"That is no answer. Type d or l; Enter alone shows it again."};

const DialogCase dialogCases[] = {
    {"allows", command(), {"a"}, Decided{allowed}},
    {"allowsByTheWord", command(), {"allow"}, Decided{allowed}},
    {"allowsInCapitals", command(), {"  A \r"}, Decided{allowed}},
    {"allowsWithBlanksAround", command(), {" \tAllow "}, Decided{allowed}},
    {"denies", command(), {"d"}, Decided{denied}},
    {"deniesByTheWord", command(), {"DENY"}, Decided{denied}},
    {"leaves", command(), {"l"}, LeftToAgent{}},
    {"leavesByTheWord", command(), {"Leave"}, LeftToAgent{}},
    {"drawsAgain", command(), {""}, DrawAgain{}},
    {"drawsAgainForBlanks", command(), {"   "}, DrawAgain{}},
    {"showsAll", command(), {"s"}, DrawAgain{}},
    {"showsAllByTheWord", command(), {"Show"}, DrawAgain{}},
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
     CardDialog::Hint{"That is no answer. Type a, m, k or l; Enter alone shows it again."}},
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

/// What a dialog says can be typed.
std::string promptOf(const CardDialog& dialog, const std::string& agent = "Claude") {
  return Text::joined(dialog.prompt(agent), "  ");
}

TEST(Dialog, saysWhatCanBeTyped) {
  EXPECT_EQ(promptOf(CardDialog(command())), "[a] allow  [d] deny  [l] leave it to Claude");
  EXPECT_EQ(promptOf(CardDialog(plan())),
            "[a] approve, and go on without asking  [m] approve, and go on asking  [k] keep "
            "planning  [l] leave it to Claude");
  CardDialog dialog(questions());
  EXPECT_EQ(promptOf(dialog, "Codex"),
            "[1-3] choose one  [d] decline to answer  [l] leave it to Codex");
  dialog.typed("1");
  EXPECT_EQ(promptOf(dialog, "Codex"),
            "[1-2] choose one or more, such as 1,2  [d] decline to answer  [l] leave it to Codex");
}

TEST(Dialog, offersToShowAllWhenSomethingIsFolded) {
  CardDialog dialog(command());
  EXPECT_EQ(dialog.cautions(), std::vector<std::string>{});
  dialog.leavesOut({.untilAsked = true});
  EXPECT_EQ(promptOf(dialog), "[allow] allow  [d] deny  [s] show all  [l] leave it to Claude");
  EXPECT_EQ(dialog.cautions(), std::vector<std::string>{"Not all of it is shown yet; s shows it"});
}

TEST(Dialog, approvesWhatIsNotSeenByTheWholeWordOnly) {
  for (const LeftOut leftOut : {LeftOut{.untilAsked = true}, LeftOut{.forGood = true},
                                LeftOut{.untilAsked = true, .forGood = true}}) {
    CardDialog dialog(command());
    dialog.leavesOut(leftOut);
    for (const char* const typed : {"a", "A", "y", "al"}) {
      EXPECT_TRUE(std::holds_alternative<CardDialog::Hint>(dialog.typed(typed))) << typed;
    }
    EXPECT_TRUE(dialog.typed("allow") == CardDialog::Outcome(Decided{allowed}));
    EXPECT_TRUE(dialog.typed("d") == CardDialog::Outcome(Decided{denied}));
    EXPECT_TRUE(dialog.typed("l") == CardDialog::Outcome(LeftToAgent{}));

    CardDialog plans(plan());
    plans.leavesOut(leftOut);
    for (const char* const typed : {"a", "m"}) {
      EXPECT_TRUE(std::holds_alternative<CardDialog::Hint>(plans.typed(typed))) << typed;
    }
    EXPECT_TRUE(plans.typed("auto") ==
                CardDialog::Outcome(Decided{approved(PlanApproval::automatic)}));
    EXPECT_TRUE(plans.typed("manual") ==
                CardDialog::Outcome(Decided{approved(PlanApproval::manual)}));
    EXPECT_TRUE(plans.typed("k") == CardDialog::Outcome(Decided{denied}));
  }
}

TEST(Dialog, tellsWhyALetterDoesNotApprove) {
  CardDialog cut(command());
  cut.leavesOut({.forGood = true});
  EXPECT_EQ(promptOf(cut), "[allow] allow  [d] deny  [l] leave it to Claude");
  EXPECT_EQ(cut.cautions(),
            std::vector<std::string>{"Not all of it can be shown here; l shows it at the agent"});
  EXPECT_TRUE(cut.typed("a") == CardDialog::Outcome(CardDialog::Hint{
                                    "Not all of it can be shown here; l shows it at the agent. To "
                                    "allow it anyway, type the whole word allow."}));
  CardDialog folded(plan());
  folded.leavesOut({.untilAsked = true});
  EXPECT_TRUE(folded.typed("m") == CardDialog::Outcome(CardDialog::Hint{
                                       "Not all of it is shown yet; s shows it. To approve it "
                                       "anyway, type the whole word manual."}));
  EXPECT_TRUE(folded.typed("x") ==
              CardDialog::Outcome(CardDialog::Hint{
                  "That is no answer. Type auto, manual, k, s or l; Enter alone shows it again."}));
}

TEST(Dialog, recommendsTheAgentForPatchesThatSayLittle) {
  const AgentPermission deletes{.action = Action::edit, .subject = "a.c", .note = "src/a.c"};
  EXPECT_EQ(CardDialog(deletes).cautions(),
            std::vector<std::string>{"It has no lines to show: it may delete or move files; l "
                                     "shows it at the agent"});
  EXPECT_EQ(promptOf(CardDialog(deletes), "Codex"),
            "[a] allow  [d] deny  [l] leave it to Codex (recommended)");
  const AgentPermission several{.action = Action::edit,
                                .subject = "a.c and 2 more",
                                .note = "Edits 3 files",
                                .lines = {{.text = "x"}}};
  EXPECT_EQ(CardDialog(several).cautions(),
            std::vector<std::string>{"It is about several files, not told apart here, and may "
                                     "delete or move some; l shows it at the agent"});
  EXPECT_EQ(promptOf(CardDialog(several), "Codex"),
            "[a] allow  [d] deny  [l] leave it to Codex (recommended)");
  const AgentPermission one{
      .action = Action::edit, .subject = "a.c", .note = "src/a.c", .lines = {{.text = "x"}}};
  EXPECT_EQ(CardDialog(one).cautions(), std::vector<std::string>{});
  // Files of such a name are one file all the same.
  AgentPermission named{.action = Action::edit, .subject = "2 more", .lines = {{.text = "x"}}};
  for (const char* const note : {"Edits 3", "src of 3 files"}) {
    named.note = note;
    EXPECT_EQ(CardDialog(named).cautions(), std::vector<std::string>{}) << note;
  }
  named.note.reset();
  EXPECT_EQ(CardDialog(named).cautions(), std::vector<std::string>{});
}

}  // namespace
}  // namespace CorvaneControl::Headless
