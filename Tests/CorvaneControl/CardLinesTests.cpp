#include "CorvaneControl/CardLines.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>

#include "CorvaneControl/AgentPermission.h"
#include "CorvaneControl/AgentPermissionTesting.h"

namespace CorvaneControl::CardLines {
namespace {

using Action = AgentPermission::Action;
using Kind = Line::Kind;

constexpr std::string_view accented = "e\xCC\x81";  // "é" of two scalars, but one character
constexpr std::string_view family = "\U0001F469\u200D\U0001F469\u200D\U0001F467";  // one, too

/// What `add` adds, alone and to a list that has room for fewer lines.
template <class Add>
void expectLines(const std::vector<Line>& expected, Add add) {
  List alone;
  EXPECT_TRUE(add(alone));
  EXPECT_TRUE(alone.complete());
  EXPECT_EQ(std::move(alone).take(), expected);
  for (std::size_t room = 0; room <= expected.size() + 1; ++room) {
    const auto before = mostLines - room;
    List list;
    for (std::size_t index = 0; index < before; ++index) list.add("before", Kind::plain);
    EXPECT_EQ(add(list), room >= expected.size()) << "with room for " << room;
    EXPECT_EQ(list.complete(), room >= expected.size()) << "with room for " << room;
    auto first = linesOf(before, "before");
    const auto fitting = std::min(room, expected.size());
    first.insert(first.end(), expected.begin(),
                 expected.begin() + static_cast<std::ptrdiff_t>(fitting));
    EXPECT_EQ(std::move(list).take(), first) << "with room for " << room;
  }
}

struct TextCase {
  const char* name;
  std::string text;
  std::vector<std::string> lines;
};

const TextCase textCases[] = {
    {"emptyIsOneLine", "", {""}},
    {"oneLine", "a", {"a"}},
    {"oneLineThatEnds", "a\n", {"a"}},
    {"twoLines", "a\nb", {"a", "b"}},
    {"oneLineFeedIsOneEmptyLine", "\n", {""}},
    {"twoLineFeedsAreTwoEmptyLines", "\n\n", {"", ""}},
    {"onlyTheLastEmptyLineIsDropped", "a\n\n\n", {"a", "", ""}},
    {"emptyLinesInFrontStay", "\n\na", {"", "", "a"}},
    {"carriageReturnsGo", "a\r\nb\r\n", {"a", "b"}},
    {"oneCarriageReturnGoes", "a\r\r\nb\r\r", {"a\r", "b\r"}},
    {"aCarriageReturnInsideStays", "a\rb", {"a\rb"}},
    {"aCarriageReturnAloneIsOneEmptyLine", "\r", {""}},
    {"aCarriageReturnAfterTheLastLineFeedIsDropped", "a\n\r", {"a"}},
    {"otherLineBreaksStay", "a\u2028b\u0085\v\f", {"a\u2028b\u0085\v\f"}},
    {"blanksStay", " \n\t\n ", {" ", "\t", " "}},
    {"aNulStays", std::string("a\0b\n", 4), {std::string("a\0b", 3)}},
};

class LinesOf : public testing::TestWithParam<TextCase> {};

TEST_P(LinesOf, aText) {
  for (const auto kind : {Kind::plain, Kind::added, Kind::removed}) {
    std::vector<Line> expected;
    for (const auto& text : GetParam().lines) expected.push_back({text, kind});
    expectLines(expected, [&](List& list) { return list.addText(GetParam().text, kind); });
  }
}

INSTANTIATE_TEST_SUITE_P(CardLines, LinesOf, testing::ValuesIn(textCases), named);

struct EditCase {
  const char* name;
  std::string input;  // with "old" and "new"
  std::vector<std::string> lines;
};

const EditCase editCases[] = {
    {"replaces", R"({"old":"a\nb","new":"c\nd\n"})", {"-a", "-b", "+c", "+d"}},
    {"inserts", R"({"old":"","new":"x"})", {"+x"}},
    {"removes", R"({"old":"a\n\nb"})", {"-a", "-", "-b"}},
    {"removesAll", R"({"old":"a","new":""})", {"-a", "+"}},
    {"ofNothingIsNothing", "{}", {}},
    {"ofAnEmptyTextAloneIsNothing", R"({"old":""})", {}},
    {"ofEmptyTextsAddsAnEmptyLine", R"({"old":"","new":""})", {"+"}},
    {"doesNotRemoveALineFeed", R"({"old":"\n","new":"x"})", {"+x"}},
    {"doesNotRemoveALineBreak", R"({"old":"\r\n","new":"x"})", {"+x"}},
    {"doesNotRemoveACarriageReturn", R"({"old":"\r","new":"x"})", {"+x"}},
    {"doesNotRemoveCarriageReturns", R"({"old":"\r\n\r","new":"x"})", {"+x"}},
    {"removesTwoEmptyLines", R"({"old":"\n\n","new":"x"})", {"-", "-", "+x"}},
    {"removesABlankLine", R"({"old":" ","new":"x"})", {"- ", "+x"}},
    {"removesAnEmptyLineBeforeAnother", R"({"old":"\na","new":"x"})", {"-", "-a", "+x"}},
    {"ofOtherTypesIsNothing", R"({"old":["a"],"new":{"b":"c"}})", {}},
    {"ofNullsIsNothing", R"({"old":null,"new":null})", {}},
    {"ofNumbersIsNothing", R"({"old":1,"new":true})", {}},
};

class Edit : public testing::TestWithParam<EditCase> {};

TEST_P(Edit, showsWhatGoesAndWhatComes) {
  const Parsed input(GetParam().input);
  expectLines(lines(GetParam().lines),
              [&](List& list) { return list.addEdit(input->find("old"), input->find("new")); });
}

INSTANTIATE_TEST_SUITE_P(CardLines, Edit, testing::ValuesIn(editCases), named);

struct ArgumentsCase {
  const char* name;
  std::string input;
  std::vector<std::string> lines;
};

const ArgumentsCase argumentsCases[] = {
    {"areSorted", R"({"b":1,"a":"x\ny"})", {" a: x", " y", " b: 1"}},
    {"areSortedByTheirBytes", R"({"é":1,"a":2,"Z":3,"":4})", {" : 4", " Z: 3", " a: 2", " é: 1"}},
    {"ofNothingAreNone", "{}", {}},
    {"ofAListAreNone", R"(["a"])", {}},
    {"ofATextAreNone", R"("a")", {}},
    {"showTextsAsTheyAre", R"({"a":"\"x\" /é\t"})", {" a: \"x\" /é\t"}},
    {"showOtherValuesAsJSON",
     R"({"a":null,"b":true,"c":false,"d":1.0,"e":2.5,"f":-3,"g":[],"h":{}})",
     {" a: null", " b: true", " c: false", " d: 1", " e: 2.5", " f: -3", " g: []", " h: {}"}},
    {"showJSONWithSortedKeys",
     R"({"a":{"z":[{"y":1,"x":2}],"b":"c"}})",
     {R"( a: {"b":"c","z":[{"x":2,"y":1}]})"}},
    {"showJSONOnOneLineWithEscapedSlashes",
     R"({"a":["x\ny/\"z\"é"]})",
     {R"( a: ["x\ny\/\"z\"é"])"}},
    {"keepAnEmptyText", R"({"a":"","b":"x"})", {" a: ", " b: x"}},
    {"dropTheLastEmptyLine", R"({"a":"x\n","b":"\n","c":"\n\n"})", {" a: x", " b: ", " c: ", " "}},
    {"takeCarriageReturnsOff", R"({"a":"x\r\ny\r","b":"\r"})", {" a: x", " y", " b: "}},
    {"splitKeysToo",
     R"({"a\nb":"x","\n":"y","c\r\n\nd\r":1})",
     {" ", " : y", " a", " b: x", " c", " ", " d\r: 1"}},
};

class Arguments : public testing::TestWithParam<ArgumentsCase> {};

TEST_P(Arguments, becomeLines) {
  const Parsed input(GetParam().input);
  const auto expected = lines(GetParam().lines);
  expectLines(expected, [&](List& list) { return list.addArguments(*input); });
  EXPECT_EQ(AgentPermission::parse("T", *input, {}),
            (AgentPermission{.action = Action::tool, .subject = "T", .lines = expected}));
}

INSTANTIATE_TEST_SUITE_P(CardLines, Arguments, testing::ValuesIn(argumentsCases), named);

/// A list of a hundred thousand numbers is many small pieces, of which a line takes the first.
TEST(CardLines, ofALongListShowItsBeginning) {
  const Parsed input(R"({"a":[1)" + repeated(",2", 100'000) + "]}");
  const Parsed shorter(R"({"a":[1)" + repeated(",2", 1000) + "]}");
  for (const Parsed* const given : {&input, &shorter}) {
    List list;
    EXPECT_TRUE(list.addArguments(**given));
    EXPECT_FALSE(list.complete());
    EXPECT_EQ(std::move(list).take(), linesOf(1, "a: [1" + repeated(",2", 197) + ",…"));
  }
}

/// The lines that were added, and whether they are all there.
struct Added {
  std::vector<Line> lines{};
  bool complete = true;
  bool operator==(const Added&) const = default;
};

Added added(std::size_t count, const std::string& text) {
  List list;
  for (std::size_t index = 0; index < count; ++index) list.add(text, Kind::plain);
  const bool complete = list.complete();
  return {std::move(list).take(), complete};
}

TEST(List, keeps300Lines) {
  for (const std::size_t count : {0U, 1U, 299U, 300U}) {
    EXPECT_EQ(added(count, "y"), (Added{linesOf(count, "y"), true})) << count;
  }
  for (const std::size_t count : {301U, 302U, 5000U}) {
    EXPECT_EQ(added(count, "y"), (Added{linesOf(300, "y"), false})) << count;
  }
}

TEST(List, keeps400CharactersOfALine) {
  for (const std::string_view character : {std::string_view("x"), accented, family}) {
    for (const std::size_t count : {1U, 399U, 400U}) {
      const auto text = repeated(character, count);
      EXPECT_EQ(added(2, text), (Added{linesOf(2, text), true})) << count << " of " << character;
    }
    const Added cut{linesOf(2, repeated(character, 400) + "…"), false};
    for (const std::size_t count : {401U, 402U, 1000U}) {
      EXPECT_EQ(added(2, repeated(character, count)), cut) << count << " of " << character;
    }
  }
}

TEST(List, countsALineBreakOfTwoAsOneCharacter) {
  const auto text = repeated("\r\n", 400);
  EXPECT_EQ(added(1, text), (Added{linesOf(1, text), true}));
}

/// The mark joins a scalar that reaches forward, so that the cut text has 400 characters itself.
TEST(List, knowsThatALineWasCutWhateverTheResultLooksLike) {
  const auto first = repeated("x", 399) + "\u0600";  // ARABIC NUMBER SIGN joins what follows
  const Added cut{linesOf(1, first + "…"), false};
  EXPECT_EQ(added(1, first + "\x01\x01"), cut);
  const Parsed input(object({{"query", first + "\x01\x01"}}));
  const auto parsed = AgentPermission::parse("WebSearch", *input, {});
  EXPECT_EQ(parsed->lines, cut.lines);
  EXPECT_FALSE(parsed->complete);
}

TEST(Shortened, keeps400Characters) {
  for (const std::string_view character : {std::string_view("x"), accented, family}) {
    const auto whole = repeated(character, 400);
    bool cut = false;
    EXPECT_EQ(shortened(whole, &cut), whole);
    EXPECT_EQ(shortened({repeated(character, 150), repeated(character, 250)}, &cut), whole);
    EXPECT_FALSE(cut);
    EXPECT_EQ(shortened(repeated(character, 401), &cut), whole + "…");
    EXPECT_TRUE(cut);
    cut = false;
    EXPECT_EQ(shortened({repeated(character, 150), repeated(character, 251)}, &cut), whole + "…");
    EXPECT_TRUE(cut);
    EXPECT_EQ(shortened({repeated(character, 500), "y"}), whole + "…");
  }
}

/// Characters that grow over the end of a piece.
TEST(Shortened, countsCharactersAcrossPieces) {
  const auto whole = repeated("x", 399) + "e";
  EXPECT_EQ(shortened({whole, "\xCC\x81"}), whole + "\xCC\x81");
  EXPECT_EQ(shortened({whole, "\xCC\x81", "y"}), whole + "\xCC\x81…");
}

}  // namespace
}  // namespace CorvaneControl::CardLines
