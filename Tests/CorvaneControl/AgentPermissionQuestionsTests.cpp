#include <gtest/gtest.h>

#include "CorvaneControl/AgentPermission.h"
#include "CorvaneControl/AgentPermissionTesting.h"
#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl {
namespace {

using Action = AgentPermission::Action;
using Permission = AgentPermission;
using Asked = AgentPermission::Question;
using Choice = Asked::Option;

constexpr std::string_view accented = "e\xCC\x81";  // "é" of two scalars, but one character

struct LabelCase {
  const char* name;
  std::string label;
  Choice::Reading reading;
};

const LabelCase labelCases[] = {
    {"isRecommended", "Use SQLite (Recommended)", {"Use SQLite", true}},
    {"isRecommendedInSmallLetters", "Use SQLite (recommended)", {"Use SQLite", true}},
    {"isRecommendedInCapitals", "A(RECOMMENDED)", {"A", true}},
    {"isRecommendedWithSpaces", "A \t( recommended\u00A0) ", {"A", true}},
    {"isRecommendedInFullWidth", "Option （empfohlen）", {"Option", true}},
    {"isRecommendedWithMixedParentheses", "Option (empfohlen）", {"Option", true}},
    {"isRecommendedInFrench", "A (recommandé)", {"A", true}},
    {"isRecommendedInFrenchWithoutAccent", "A (recommandee)", {"A", true}},
    {"isRecommendedInSpanish", "A (recomendado)", {"A", true}},
    {"isRecommendedInPortuguese", "A (Recomendada)", {"A", true}},
    {"isRecommendedInItalian", "A (consigliata)", {"A", true}},
    {"isNothingElse", "(Recommended)", {"", true}},
    {"keepsTheFirstOfTwo", "A (Recommended) (Recommended)", {"A (Recommended)", true}},
    {"isNotRecommendedInFront", "(recommended) first", {"(recommended) first", false}},
    {"isNotRecommendedWithoutParentheses", "A recommended", {"A recommended", false}},
    {"isNotRecommendedInBrackets", "A [recommended]", {"A [recommended]", false}},
    {"isNotRecommendedByMore", "A (recommended by me)", {"A (recommended by me)", false}},
    {"isPlain", " A ", {" A ", false}},
    {"isEmpty", "", {"", false}},
};

class Label : public testing::TestWithParam<LabelCase> {};

TEST_P(Label, losesItsRecommendation) {
  EXPECT_EQ(Choice::reading(GetParam().label), GetParam().reading)
      << testing::PrintToString(Choice::reading(GetParam().label).label);
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, Label, testing::ValuesIn(labelCases), named);

struct AskCase {
  const char* name;
  std::string input;
  std::optional<std::vector<Asked>> questions;
  bool complete = true;
};

/// So many copies of a JSON text in a list.
std::string list(std::size_t count, const std::string& element) {
  std::string text = "[";
  for (std::size_t index = 0; index < count; ++index) text += (index > 0 ? "," : "") + element;
  return text + "]";
}

const std::string plainQuestion = R"({"question":"A?","options":[{"label":"a"}]})";
const Asked plainAsked{.text = "A?", .options = {{.label = "a"}}};

std::string questionWith(const std::string& members) {
  return R"({"questions":[{"question":"A?",)" + members + "}]}";
}

std::string optionWith(const std::string& members) {
  return questionWith(R"("options":[{"label":"a"},{)" + members + "}]");
}

Asked askedWith(Choice option) {
  return {.text = "A?", .options = {{.label = "a"}, std::move(option)}};
}

/// A question all of whose texts are the same.
std::string questionOf(const std::string& text) {
  return R"({"questions":[{"question":")" + text + R"(","header":")" + text +
         R"(","options":[{"label":")" + text + R"(","description":")" + text + R"("}]}]})";
}

Asked askedOf(const std::string& text) {
  return {.header = text, .text = text, .options = {{.label = text, .detail = text}}};
}

const AskCase askCases[] = {
    {"asksAll",
     R"j({"questions":[
         {"question":"Which database?","header":"Database","options":[
           {"label":"SQLite (Recommended)","description":"One file"},
           {"label":"Postgres","description":"A server"}],"multiSelect":false},
         {"question":"Which extras?","header":"Extras","options":[
           {"label":"Docs","description":"Write docs"},{"label":"CI"}],"multiSelect":true}]})j",
     {{{.header = "Database",
        .text = "Which database?",
        .options = {{.label = "SQLite", .detail = "One file", .recommended = true},
                    {.label = "Postgres", .detail = "A server"}}},
       {.header = "Extras",
        .text = "Which extras?",
        .options = {{.label = "Docs", .detail = "Write docs"}, {.label = "CI"}},
        .multiSelect = true}}}},

    // The list
    {"noListAsksNothing", "{}", std::nullopt},
    {"anEmptyListAsksNothing", R"({"questions":[]})", std::nullopt},
    {"anotherTypeAsksNothing", R"({"questions":{"question":"A?"}})", std::nullopt},
    {"nullAsksNothing", R"({"questions":null})", std::nullopt},
    {"textsAskNothing", R"({"questions":["A?"]})", std::nullopt},
    {"oneTextAmongThemAsksNothing", R"({"questions":[{"question":"A?"},"B?"]})", std::nullopt},
    {"oneTextBehindFourAsksNothing",
     R"({"questions":[{"question":"A?"},{"question":"A?"},{"question":"A?"},{"question":"A?"},1]})",
     std::nullopt},
    {"fourQuestionsAreKept", R"({"questions":)" + list(4, plainQuestion) + "}",
     std::vector(4, plainAsked)},
    {"fiveQuestionsAreCut", R"({"questions":)" + list(5, plainQuestion) + "}",
     std::vector(4, plainAsked), false},
    {"aQuestionBehindFourIsNotRead", R"({"questions":[{},{},{},{},)" + plainQuestion + "]}",
     std::nullopt},

    // The question
    {"isTrimmed",
     R"({"questions":[{"question":" \n\u2028A?\nB\u00a0\r\n","options":[{"label":"a"}]}]})",
     {{{.text = "A?\nB", .options = {{.label = "a"}}}}}},
    {"withoutTextIsLeftOut",
     R"({"questions":[{"options":[{"label":"a"}]},)" + plainQuestion + "]}",
     {{plainAsked}},
     false},
    {"withABlankTextIsLeftOut",
     R"({"questions":[)" + plainQuestion + R"(,{"question":" \n","options":[{"label":"a"}]}]})",
     {{plainAsked}},
     false},
    {"withAnotherTypeOfTextIsLeftOut",
     R"({"questions":[)" + plainQuestion + R"(,{"question":1,"options":[{"label":"a"}]}]})",
     {{plainAsked}},
     false},
    {"leftOutAloneAsksNothing", R"({"questions":[{"question":""}]})", std::nullopt},
    {"keepsItsHeaderAsItIs",
     questionWith(R"("header":" H\n","options":[{"label":"a"}])"),
     {{{.header = " H\n", .text = "A?", .options = {{.label = "a"}}}}}},
    {"hasNoHeaderOfAnotherType",
     questionWith(R"("header":1,"options":[{"label":"a"}])"),
     {{plainAsked}}},
    {"takesSeveralOnlyWhenTrue",
     questionWith(R"("multiSelect":1,"options":[{"label":"a"}])"),
     {{plainAsked}}},
    {"takesSeveralNotByAText",
     questionWith(R"("multiSelect":"true","options":[{"label":"a"}])"),
     {{plainAsked}}},
    {"takesSeveralNotByNull",
     questionWith(R"("multiSelect":null,"options":[{"label":"a"}])"),
     {{plainAsked}}},

    // Its options
    {"withoutOptionsIsIncomplete",
     R"({"questions":[{"question":"A?"}]})",
     {{{.text = "A?"}}},
     false},
    {"withAnEmptyListIsIncomplete", questionWith(R"("options":[])"), {{{.text = "A?"}}}, false},
    {"withOptionsOfAnotherTypeIsIncomplete",
     questionWith(R"("options":{"label":"a"})"),
     {{{.text = "A?"}}},
     false},
    {"withOneTextAmongTheOptionsHasNone",
     questionWith(R"("options":[{"label":"a"},"b"])"),
     {{{.text = "A?"}}},
     false},
    {"keepsSixOptions",
     questionWith("\"options\":" + list(6, R"({"label":"a"})")),
     {{{.text = "A?", .options = std::vector(6, Choice{.label = "a"})}}}},
    {"cutsSevenOptions",
     questionWith("\"options\":" + list(7, R"({"label":"a"})")),
     {{{.text = "A?", .options = std::vector(6, Choice{.label = "a"})}}},
     false},
    {"leavesAnOptionWithoutLabelOut", optionWith(R"("description":"x")"), {{plainAsked}}, false},
    {"leavesAnOptionWithAnEmptyLabelOut", optionWith(R"("label":"")"), {{plainAsked}}, false},
    {"leavesAnOptionWithAnotherTypeOfLabelOut",
     optionWith(R"("label":["b"])"),
     {{plainAsked}},
     false},
    {"keepsALabelAsItIs", optionWith(R"("label":" b\n")"), {{askedWith({.label = " b\n"})}}},
    {"keepsAnOptionThatIsOnlyRecommended",
     optionWith(R"j("label":"(Recommended)")j"),
     {{askedWith({.recommended = true})}}},
    {"trimsADetail",
     optionWith(R"("label":"b","description":" \n x\ny\t\r\n")"),
     {{askedWith({.label = "b", .detail = "x\ny"})}}},
    {"hasNoBlankDetail",
     optionWith(R"("label":"b","description":" \n")"),
     {{askedWith({.label = "b"})}}},
    {"hasNoDetailOfAnotherType",
     optionWith(R"("label":"b","description":{"a":1})"),
     {{askedWith({.label = "b"})}}},
    {"isIncompleteWithAPreview",
     optionWith(R"("label":"b","preview":"x")"),
     {{askedWith({.label = "b"})}},
     false},
    {"isCompleteWithAnEmptyPreview",
     optionWith(R"("label":"b","preview":"")"),
     {{askedWith({.label = "b"})}}},
    {"isCompleteWithAPreviewOfAnotherType",
     optionWith(R"("label":"b","preview":["x"])"),
     {{askedWith({.label = "b"})}}},

    // Texts of 400 and 401 characters: cutting one leaves the card complete
    {"keeps400Characters",
     questionOf(repeated(accented, 400)),
     {{askedOf(repeated(accented, 400))}}},
    {"cuts401Characters",
     questionOf(repeated(accented, 401)),
     {{askedOf(repeated(accented, 400) + "…")}}},
    {"readsTheRecommendationBeforeItCuts",
     optionWith(R"("label":")" + std::string(400, 'x') + R"j( (Recommended)")j"),
     {{askedWith({.label = std::string(400, 'x'), .recommended = true})}}},
};

class Ask : public testing::TestWithParam<AskCase> {};

TEST_P(Ask, theUser) {
  const auto& row = GetParam();
  const Parsed input(row.input);
  std::optional<Permission> expected;
  if (row.questions) {
    expected = Permission{.action = Action::ask,
                          .subject = row.questions->front().text,
                          .complete = row.complete,
                          .questions = row.questions};
  }
  EXPECT_EQ(Permission::question(*input, {}), expected);
  if (expected) expected->folder = "~/x";
  EXPECT_EQ(Permission::question(*input, {.cwd = "/u/me/x", .home = "/u/me"}), expected);
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, Ask, testing::ValuesIn(askCases), named);

TEST(Ask, nothingByInputThatIsNoObject) {
  for (const char* const text : {"null", "[]", R"([{"question":"A?"}])", "\"questions\"", "1"}) {
    const Parsed input(text);
    EXPECT_EQ(Permission::question(*input, {.cwd = "/p"}), std::nullopt) << text;
    EXPECT_EQ(Permission::plan(*input, {.cwd = "/p"}), std::nullopt) << text;
  }
}

struct PlanCase {
  const char* name;
  std::string plan;
  std::optional<Permission> card;
  std::size_t steps = 0;
};

/// The card of a plan, in the short form of its lines.
Permission planned(std::string subject, const std::vector<std::string>& texts,
                   bool complete = true) {
  Permission card{.action = Action::plan, .subject = std::move(subject), .complete = complete};
  for (const auto& text : texts) card.lines.push_back({text});
  return card;
}

const PlanCase planCases[] = {
    {"losesBlankLinesAtItsEnds", "\n# My *plan*\n1. a\n2) b\n\n",
     planned("My plan", {"# My *plan*", "1. a", "2) b"}), 2},
    {"losesLinesOfBlanksAtItsEnds", " \n\t\r\n\u00A0\u3000\na\n \n\t\r\n\r", planned("a", {"a"})},
    {"keepsBlankLinesInside", "a\n\n \nb", planned("a", {"a", "", " ", "b"})},
    {"keepsTheBlanksOfItsLines", "  a \n\tb\t", planned("a", {"  a ", "\tb\t"})},
    {"losesCarriageReturns", "a\r\n\r\nb\r\n", planned("a", {"a", "", "b"})},
    {"isOneLine", "a", planned("a", {"a"})},
    {"isEmpty", "", std::nullopt},
    {"isBlank", " \n\t\r\n\u00A0\n\n", std::nullopt},
    {"isALineFeed", "\n", std::nullopt},
    {"isACarriageReturn", "\r", std::nullopt},

    {"hasASubjectWithoutMarks", "## Use `make` and **[the docs](http://x)**",
     planned("Use make and the docs", {"## Use `make` and **[the docs](http://x)**"})},
    {"hasAnIndentedHeading", " \t### Heading ", planned("Heading", {" \t### Heading "})},
    {"hasAHeadingOfSixMarks", "###### H", planned("H", {"###### H"})},
    {"hasSevenMarks", "####### H", planned("####### H", {"####### H"})},
    {"hasAMarkWithoutSpace", "#H", planned("#H", {"#H"})},
    {"hasAMarkAlone", "#", planned("#", {"#"})},
    {"hasAMarkAndASpaceAlone", "# ", planned("", {"# "})},
    {"hasAHeadingInAHeading", "# # H", planned("# H", {"# # H"})},
    {"hasAListAtItsHead", "1. a\n2. b", planned("1. a", {"1. a", "2. b"}), 2},
    {"hasACarriageReturnBeforeAMark", "a\rb *c*\nd", planned("a\rb c", {"a\rb *c*", "d"})},
    {"hasOnlyMarks", "# ** **", planned("** **", {"# ** **"})},
    {"hasASubjectOf400Characters", "# " + repeated(accented, 400),
     planned(repeated(accented, 400), {"# " + repeated(accented, 400)})},
    {"hasASubjectOf401Characters", "# " + repeated(accented, 401) + "\nb",
     planned(repeated(accented, 400) + "…", {"# " + repeated(accented, 401), "b"})},

    {"keeps300Lines", repeated("a\n", 300), planned("a", std::vector<std::string>(300, "a"))},
    {"cuts301Lines", repeated("a\n", 301), planned("a", std::vector<std::string>(300, "a"), false)},
    {"doesNotCountBlankLinesAtItsEnds", "\n\n" + repeated("a\n", 300) + "\n \n",
     planned("a", std::vector<std::string>(300, "a"))},
    {"countsBlankLinesInside", "a\n" + repeated("\n", 299) + "b",
     planned(
         "a",
         [] {
           std::vector<std::string> texts(300);
           texts[0] = "a";
           return texts;
         }(),
         false)},
    {"keeps20000Bytes", "a\n" + std::string(19999, 'b'),
     planned("a", {"a", std::string(19999, 'b')})},
    {"cuts20001Bytes", "a\n" + std::string(20000, 'b'), planned("a", {"a"}, false)},
    {"cutsAllBehindALineThatDoesNotFit", "a\n" + std::string(20000, 'b') + "\nc",
     planned("a", {"a"}, false)},
    {"countsBytesOfWideCharacters", repeated("漢", 6666) + "\nab",
     planned(repeated("漢", 400) + "…", {repeated("漢", 6666), "ab"})},
    {"cutsBytesOfWideCharacters", repeated("漢", 6666) + "\nabc",
     planned(repeated("漢", 400) + "…", {repeated("漢", 6666)}, false)},
    {"keepsEmptyLinesWhenTheBudgetIsUsed", std::string(20000, 'a') + "\n\nb",
     planned(std::string(400, 'a') + "…", {std::string(20000, 'a'), ""}, false)},
    {"keepsNoLineWhenTheFirstIsTooLong", std::string(20001, 'a') + "\nb",
     planned(std::string(400, 'a') + "…", {}, false)},
    {"doesNotCountCarriageReturns", "a\r\n" + std::string(19999, 'b') + "\r\n",
     planned("a", {"a", std::string(19999, 'b')})},
};

class Plan : public testing::TestWithParam<PlanCase> {};

TEST_P(Plan, becomesACard) {
  auto expected = GetParam().card;
  const Parsed input(object({{"plan", GetParam().plan}, {"planFilePath", "/p"}}));
  const auto card = Permission::plan(*input, {});
  EXPECT_EQ(card, expected);
  EXPECT_EQ(card ? card->steps() : 0, GetParam().steps);
  if (expected) expected->folder = "~/x";
  EXPECT_EQ(Permission::plan(*input, {.cwd = "/u/me/x", .home = "/u/me"}), expected);
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, Plan, testing::ValuesIn(planCases), named);

TEST(Plan, hasToBeAText) {
  for (const char* const text :
       {"{}", R"({"plan":null})", R"({"plan":1})", R"({"plan":["a"]})", R"({"plan":{"a":"b"}})"}) {
    const Parsed input(text);
    EXPECT_EQ(Permission::plan(*input, {}), std::nullopt) << text;
  }
}

/// Only the beginning of a line can be read as Markdown: what is cut off before that reading must
/// not be missing from the subject.
TEST(Plan, hasASubjectEvenWhenMarksFillTheBeginning) {
  for (const std::size_t marks : {10'920U, 10'922U, 10'923U, 11'000U}) {  // of three bytes
    const auto plan =
        repeated("[](", 1) + std::string(3 * marks, 'u') + ")" + std::string(500, 'x');
    const Parsed input(object({{"plan", plan}}));
    const auto card = Permission::plan(*input, {});
    ASSERT_TRUE(card);
    EXPECT_EQ(Text::characters(card->subject), 401U) << marks;
  }
}

TEST(Plan, hasASubjectBehindALotOfWhiteSpace) {
  for (const std::size_t blanks : {32'767U, 33'169U, 33'170U, 33'171U, 100'000U}) {
    const Parsed input(object({{"plan", std::string(blanks, ' ') + "Title  \nb"}}));
    const auto card = Permission::plan(*input, {});
    ASSERT_TRUE(card);
    EXPECT_EQ(card->subject, "Title") << blanks;
  }
}

TEST(Plan, hasASubjectAroundALotOfWhiteSpace) {
  const Parsed input(object({{"plan", "# a" + std::string(100'000, ' ') + "b"}}));
  const auto card = Permission::plan(*input, {});
  ASSERT_TRUE(card);
  EXPECT_EQ(card->subject, "a" + std::string(399, ' ') + "…");
}

TEST(Steps, areNumberedLines) {
  const Permission card{.lines = lines({" 1. a", " 2) b", "    10. c", " \t3. d", " 1.e", " 1 . f",
                                        " a 1. g", " 4.", " 5. ", " - h", " ", " ٣. i", "+6. j"})};
  EXPECT_EQ(card.steps(), 7U);
  EXPECT_EQ(Permission{}.steps(), 0U);
}

}  // namespace
}  // namespace CorvaneControl
