#include <gtest/gtest.h>

#include <cstddef>
#include <random>

#include "CorvaneControl/AgentPermission.h"
#include "CorvaneControl/AgentPermissionTesting.h"
#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl {
namespace {

using Action = AgentPermission::Action;
using Line = AgentPermission::Line;
using Kind = Line::Kind;
using Permission = AgentPermission;

constexpr std::string_view accented = "e\xCC\x81";  // "é" of two scalars, but one character
constexpr std::string_view family = "\U0001F469\u200D\U0001F469\u200D\U0001F467";  // one, too

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
    EXPECT_EQ(Card::text(GetParam().text, kind), expected);
    for (std::size_t limit = 0; limit <= expected.size() + 1; ++limit) {
      auto first = expected;
      first.resize(std::min(limit, first.size()));
      EXPECT_EQ(Card::text(GetParam().text, kind, limit), first) << "of at most " << limit;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, LinesOf, testing::ValuesIn(textCases), named);

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
  const auto* const old = input->find("old");
  const auto* const replacement = input->find("new");
  const auto expected = lines(GetParam().lines);
  EXPECT_EQ(Card::edit(old, replacement), expected);
  for (std::size_t limit = 0; limit <= expected.size(); ++limit) {
    const std::vector first(expected.begin(),
                            expected.begin() + static_cast<std::ptrdiff_t>(limit));
    EXPECT_EQ(Card::edit(old, replacement, limit), first) << "of at most " << limit;
  }
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, Edit, testing::ValuesIn(editCases), named);

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
  EXPECT_EQ(Card::arguments(*input), expected);
  for (std::size_t limit = 0; limit <= expected.size(); ++limit) {
    const std::vector first(expected.begin(),
                            expected.begin() + static_cast<std::ptrdiff_t>(limit));
    EXPECT_EQ(Card::arguments(*input, limit), first) << "of at most " << limit;
  }
  EXPECT_EQ(Permission::parse("T", *input, std::nullopt),
            (Permission{.action = Action::tool, .subject = "T", .lines = expected}));
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, Arguments, testing::ValuesIn(argumentsCases), named);

struct PatchCase {
  const char* name;
  std::string patch;
  std::optional<Permission> card;
};

const PatchCase patchCases[] = {
    {"ofOneFile",
     "*** Begin Patch\n*** Update File: src/a.c\n@@\n int main(void) {\n-    return 0;\n"
     "+    return 1;\n }\n*** End Patch",
     Permission{.action = Action::edit,
                .subject = "a.c",
                .note = "src/a.c",
                .lines = lines({" int main(void) {", "-    return 0;", "+    return 1;", " }"})}},
    {"ofSeveralFiles",
     "*** Begin Patch\n*** Add File: /p/sub/new.txt\n+one\n+\n+two\n*** Update File: b.txt\n"
     "*** Move to: c.txt\n@@\n alpha\n-beta\n+BETA\n*** Delete File: a.c\n*** End Patch\n",
     Permission{.action = Action::edit,
                .subject = "new.txt and 2 more",
                .note = "Edits 3 files",
                .lines = lines({"+one", "+", "+two", " alpha", "-beta", "+BETA"})}},
    {"ofTwoFiles", "*** Delete File: a\n*** Delete File: a",
     Permission{.action = Action::edit, .subject = "a and 1 more", .note = "Edits 2 files"}},
    {"withoutFileIsNone", "*** Begin Patch\n+x\n*** End Patch", std::nullopt},
    {"ofNothingIsNone", "", std::nullopt},
    {"withWindowsLineEnds", "*** Update File: a.c\r\n@@\r\n-x\r\n+y\r\n\r\n",
     Permission{
         .action = Action::edit, .subject = "a.c", .note = "a.c", .lines = lines({"-x", "+y"})}},
    {"showsWhatItDoesNotKnow", "oops\n*** Update File: a\nx\n\\ No newline\n\t+y",
     Permission{.action = Action::edit,
                .subject = "a",
                .note = "a",
                .lines = lines({" oops", " x", " \\ No newline", " \t+y"})}},
    {"skipsHeadsAndMarkers",
     "*** Update File: a\n@@ -1,2 +3,4 @@\n@@@\n*** End of File\n*** \n*** Other: x\n",
     Permission{.action = Action::edit, .subject = "a", .note = "a"}},
    {"showsLinesThatAreAlmostMarkers",
     "*** Update File: a\n***\n***x\n @@\n **** y\n+@@\n-*** Add File: b\n@\n++\n--\n  ",
     Permission{.action = Action::edit,
                .subject = "a",
                .note = "a",
                .lines = lines({" ***", " ***x", " @@", " **** y", "+@@", "-*** Add File: b", " @",
                                "++", "--", "  "})}},
    {"takesAnIndentedMarkerForALine", "*** Update File: a\n *** Update File: b",
     Permission{.action = Action::edit,
                .subject = "a",
                .note = "a",
                .lines = lines({" *** Update File: b"})}},
    {"needsTheSpaceBehindTheMarker", "*** Update File:\n*** Add File:a\n*** Rename File: b",
     std::nullopt},
    {"takesAnEmptyPath", "*** Update File: \n+x",
     Permission{.action = Action::edit, .note = "", .lines = lines({"+x"})}},
    {"keepsSpacesInAPath", "*** Add File:  a b \n",
     Permission{.action = Action::edit, .subject = " a b ", .note = " a b "}},
    {"dropsEmptyLinesButKeepsBlankOnes", "*** Add File: a\n\n+\n-\n \n\r\n",
     Permission{
         .action = Action::edit, .subject = "a", .note = "a", .lines = lines({"+", "-", " "})}},
};

class Patch : public testing::TestWithParam<PatchCase> {
  Home home_{"/u/me"};
};

TEST_P(Patch, becomesACard) {
  EXPECT_EQ(Permission::patch(GetParam().patch, std::nullopt), GetParam().card);
  auto inFolder = GetParam().card;
  if (inFolder) inFolder->folder = "~/x";
  EXPECT_EQ(Permission::patch(GetParam().patch, "/u/me/x"), inFolder);
}

/// The tool takes the patch from wherever an agent puts it.
TEST_P(Patch, isTheCardOfItsTool) {
  for (const char* const key : {"command", "input", "patch"}) {
    const Parsed input(object({{key, GetParam().patch}}));
    EXPECT_EQ(Permission::parse("apply_patch", *input, std::nullopt), GetParam().card) << key;
  }
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, Patch, testing::ValuesIn(patchCases), named);

struct PatchInputCase {
  const char* name;
  std::string input;
  std::optional<std::string> subject;
};

const PatchInputCase patchInputCases[] = {
    {"isTheCommandFirst",
     R"({"command":"*** Add File: a","input":"*** Add File: b","patch":"*** Add File: c"})", "a"},
    {"isTheInputNext", R"({"input":"*** Add File: b","patch":"*** Add File: c"})", "b"},
    {"isTheInputAfterAWrongCommand", R"({"command":[1],"input":"*** Add File: b"})", "b"},
    {"isThePatchAfterAWrongInput", R"({"input":1,"patch":"*** Add File: c"})", "c"},
    {"isJoinedFromWords", R"({"command":["apply_patch","\n*** Add File: a\n+x"]})", "a"},
    {"isNotLookedForBehindACommandWithoutFile", R"({"command":"x","input":"*** Add File: b"})",
     std::nullopt},
    {"isNotLookedForBehindNoWords", R"({"command":[],"input":"*** Add File: b"})", std::nullopt},
    {"isNotWhatIsTyped", R"({"chars":"*** Add File: a"})", std::nullopt},
    {"isMissing", "{}", std::nullopt},
};

class PatchInput : public testing::TestWithParam<PatchInputCase> {};

TEST_P(PatchInput, ofTheTool) {
  const Parsed input(GetParam().input);
  const auto card = Permission::parse("apply_patch", *input, std::nullopt);
  EXPECT_EQ(card ? std::optional(card->subject) : std::nullopt, GetParam().subject);
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, PatchInput, testing::ValuesIn(patchInputCases), named);

TEST(Limited, keepsWhatIsAbsentAbsent) { EXPECT_EQ(Card::limited(std::nullopt), std::nullopt); }

TEST(Limited, keeps300Lines) {
  for (const std::size_t count : {0U, 1U, 299U, 300U}) {
    const Permission card{.subject = "x", .lines = linesOf(count, "y")};
    EXPECT_EQ(Card::limited(card), card) << count;
  }
  const Permission kept{.subject = "x", .lines = linesOf(300, "y"), .complete = false};
  for (const std::size_t count : {301U, 302U, 5000U}) {
    EXPECT_EQ(Card::limited(Permission{.subject = "x", .lines = linesOf(count, "y")}), kept)
        << count;
  }
}

TEST(Limited, keeps400CharactersOfALine) {
  for (const std::string_view character : {std::string_view("x"), accented, family}) {
    for (const std::size_t count : {1U, 399U, 400U}) {
      const Permission card{.lines = linesOf(2, repeated(character, count))};
      EXPECT_EQ(Card::limited(card), card) << count << " of " << character;
    }
    const Permission cut{.lines = linesOf(2, repeated(character, 400) + "…"), .complete = false};
    for (const std::size_t count : {401U, 402U, 1000U}) {
      EXPECT_EQ(Card::limited(Permission{.lines = linesOf(2, repeated(character, count))}), cut)
          << count << " of " << character;
    }
  }
}

TEST(Limited, countsALineBreakOfTwoAsOneCharacter) {
  const Permission card{.lines = linesOf(1, repeated("\r\n", 400))};
  EXPECT_EQ(Card::limited(card), card);
}

/// The mark joins a scalar that reaches forward, so that the cut text has 400 characters itself.
TEST(Limited, knowsThatALineWasCutWhateverTheResultLooksLike) {
  const auto first = repeated("x", 399) + "\u0600";  // ARABIC NUMBER SIGN joins what follows
  const Permission card{.lines = linesOf(1, first + "\x01\x01")};
  const Permission cut{.lines = linesOf(1, first + "…"), .complete = false};
  EXPECT_EQ(Card::limited(card), cut);
  const Parsed input(object({{"query", first + "\x01\x01"}}));
  const auto parsed = Permission::parse("WebSearch", *input, std::nullopt);
  EXPECT_EQ(parsed->lines, cut.lines);
  EXPECT_FALSE(parsed->complete);
}

TEST(Limited, cutsASubjectAndStaysComplete) {
  for (const std::string_view character : {std::string_view("x"), accented, family}) {
    const Permission whole{.subject = repeated(character, 400)};
    EXPECT_EQ(Card::limited(whole), whole);
    EXPECT_EQ(Card::limited(Permission{.subject = repeated(character, 401)}),
              (Permission{.subject = repeated(character, 400) + "…"}));
  }
}

TEST(Limited, leavesTheRestAlone) {
  const auto longText = std::string(1000, 'x');
  const Permission card{.action = Action::plan,
                        .note = longText,
                        .folder = longText,
                        .complete = false,
                        .questions = {{{.header = longText, .text = longText}}}};
  EXPECT_EQ(Card::limited(card), card);
}

/// The tool, and the member of its input whose text of n lines gives n lines.
struct CutCase {
  const char* name;
  const char* tool;
  const char* member;
  const char* others;
  const char* linePrefix;  // what each line of the member's text begins with
  std::size_t linesBefore;
};

const CutCase cutCases[] = {
    {"ofACommand", "Bash", "command", "", "", 0},
    {"ofAWrittenFile", "Write", "content", R"("file_path":"/p/a",)", "", 0},
    {"ofANotebook", "NotebookEdit", "new_source", R"("notebook_path":"/p/a",)", "", 0},
    {"ofWhatAnEditRemoves", "Edit", "old_string", R"("file_path":"/p/a",)", "", 0},
    {"ofWhatAnEditAdds", "Edit", "new_string", R"("file_path":"/p/a","old_string":"x\ny",)", "", 2},
    {"ofAPatch", "apply_patch", "command", "", "+", 0},
    {"ofAnArgument", "T", "b", R"("a":1,)", "", 1},
};

class Cut : public testing::TestWithParam<CutCase> {
 protected:
  /// The card of a text of so many lines, the last of which is this.
  static std::optional<Permission> card(std::size_t count, const std::string& last) {
    const auto& row = GetParam();
    const std::string prefix = row.linePrefix;
    std::string text = row.tool == std::string_view("apply_patch") ? "*** Add File: a\n" : "";
    for (std::size_t index = row.linesBefore + 1; index < count; ++index) text += prefix + "x\n";
    text += prefix + last + '\n';
    std::string json = "{";
    json += row.others;
    json += '"';
    json += row.member;
    json += "\":";
    JSON::writeString(text, JSON::Slashes::plain, json);
    const Parsed input(json + "}");
    return Permission::parse(row.tool, *input, std::nullopt);
  }
};

TEST_P(Cut, keeps300Lines) {
  const auto whole = card(300, "last");
  ASSERT_TRUE(whole);
  EXPECT_TRUE(whole->complete);
  ASSERT_EQ(whole->lines.size(), 300U);
  EXPECT_EQ(whole->lines.back().text, "last");

  const auto cut = card(301, "last");
  ASSERT_TRUE(cut);
  EXPECT_FALSE(cut->complete);
  ASSERT_EQ(cut->lines.size(), 300U);
  EXPECT_EQ(cut->lines.back().text, "x");
}

TEST_P(Cut, keeps400CharactersOfALine) {
  for (const std::string_view character : {std::string_view("x"), accented, family}) {
    const auto whole = card(5, repeated(character, 400));
    ASSERT_TRUE(whole);
    EXPECT_TRUE(whole->complete);
    ASSERT_EQ(whole->lines.size(), 5U);
    EXPECT_EQ(whole->lines.back().text, repeated(character, 400));

    const auto cut = card(5, repeated(character, 401));
    ASSERT_TRUE(cut);
    EXPECT_FALSE(cut->complete);
    ASSERT_EQ(cut->lines.size(), 5U);
    EXPECT_EQ(cut->lines.back().text, repeated(character, 400) + "…");
  }
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, Cut, testing::ValuesIn(cutCases), named);

TEST(Cut, countsTheKeyOfAnArgument) {
  const Parsed whole(object({{"key", repeated(accented, 395)}}));
  const auto card = Permission::parse("T", *whole, std::nullopt);
  EXPECT_EQ(card->lines, linesOf(1, "key: " + repeated(accented, 395)));
  EXPECT_TRUE(card->complete);
  const Parsed cut(object({{"key", repeated(accented, 396)}}));
  const auto cutCard = Permission::parse("T", *cut, std::nullopt);
  EXPECT_EQ(cutCard->lines, linesOf(1, "key: " + repeated(accented, 395) + "…"));
  EXPECT_FALSE(cutCard->complete);
}

TEST(Cut, countsTheCharactersOfAWrittenValue) {
  const auto value = [](std::string_view character, std::size_t count) {
    return "{\"k\":[\"" + repeated(character, count) + "\"]}";
  };
  for (const std::string_view character : {std::string_view("x"), accented, family}) {
    // 3 characters of the key and 4 around the text
    const Parsed whole(value(character, 393));
    const auto card = Permission::parse("T", *whole, std::nullopt);
    EXPECT_EQ(card->lines, linesOf(1, "k: [\"" + repeated(character, 393) + "\"]"));
    EXPECT_TRUE(card->complete);
    const Parsed cut(value(character, 394));
    const auto cutCard = Permission::parse("T", *cut, std::nullopt);
    EXPECT_EQ(cutCard->lines, linesOf(1, "k: [\"" + repeated(character, 394) + "\"…"));
    EXPECT_FALSE(cutCard->complete);
  }
}

TEST(Cut, ofManyEditsCountsTheSeparators) {
  const auto card = [](std::size_t edits) {
    std::string json = R"({"file_path":"/p/a","edits":[)";
    for (std::size_t index = 0; index < edits; ++index) json += R"({"new_string":"x"},)";
    json.back() = ']';
    const Parsed input(json + "}");
    return Permission::parse("MultiEdit", *input, std::nullopt);
  };
  EXPECT_EQ(card(150)->lines.size(), 299U);
  EXPECT_TRUE(card(150)->complete);
  EXPECT_EQ(card(151)->lines.size(), 300U);
  EXPECT_FALSE(card(151)->complete);
  EXPECT_EQ(card(151)->lines.back().text, "⋯");
  EXPECT_EQ(card(5000), card(151));
}

TEST(Cut, ofAnEditWhoseOldTextFillsTheCardHidesTheNewOne) {
  const Parsed input(
      object({{"file_path", "/p/a"}, {"old_string", repeated("x\n", 300)}, {"new_string", "y"}}));
  const auto card = Permission::parse("Edit", *input, std::nullopt);
  EXPECT_EQ(card->removed(), 300U);
  EXPECT_EQ(card->added(), 0U);
  EXPECT_FALSE(card->complete);
}

TEST(Cut, findsTheSubjectBehindTheLastLine) {
  const Parsed input(object({{"command", repeated(" \n", 5000) + "  rm -r x  \nls"}}));
  const auto card = Permission::parse("Bash", *input, std::nullopt);
  ASSERT_TRUE(card);
  EXPECT_EQ(card->subject, "rm -r x");
  EXPECT_EQ(card->lines, linesOf(300, " "));
  EXPECT_FALSE(card->complete);
}

TEST(Cut, ofAPatchCountsTheFilesBehindTheLastLine) {
  const auto patch = "*** Add File: a\n" + repeated("+x\n", 5000) + "*** Add File: b\n+y";
  const Parsed input(object({{"command", patch}}));
  const auto card = Permission::parse("apply_patch", *input, std::nullopt);
  ASSERT_TRUE(card);
  EXPECT_EQ(card->subject, "a and 1 more");
  EXPECT_EQ(card->note, "Edits 2 files");
  EXPECT_EQ(card->lines.size(), 300U);
  EXPECT_FALSE(card->complete);

  const auto uncut = Permission::patch(patch, std::nullopt);
  EXPECT_EQ(uncut->lines.size(), 301U);
  EXPECT_TRUE(uncut->complete);
  EXPECT_EQ(Card::limited(uncut), card);
}

TEST(Cut, appliesToSubjects) {
  const auto long400 = repeated(accented, 400);
  const auto long401 = repeated(accented, 401);
  const auto subject = [](const char* tool, const std::string& input) {
    const Parsed parsed(input);
    return Permission::parse(tool, *parsed, std::nullopt)->subject;
  };
  EXPECT_EQ(subject("Bash", object({{"command", long400}})), long400);
  EXPECT_EQ(subject("Bash", object({{"command", long401}})), long400 + "…");
  EXPECT_EQ(subject("Write", object({{"file_path", "/" + long400}})), long400);
  EXPECT_EQ(subject("Write", object({{"file_path", "/" + long401}})), long400 + "…");
  EXPECT_EQ(subject("WebSearch", object({{"query", long401}})), long400 + "…");
  EXPECT_EQ(subject("WebFetch", object({{"url", long401}})), long400 + "…");
  EXPECT_EQ(subject(long401.c_str(), "{}"), long400 + "…");
  EXPECT_EQ(subject("apply_patch", object({{"patch", "*** Add File: " + long401}})), long400 + "…");
  const auto twoFiles = "*** Add File: " + repeated("x", 399) + "\n*** Add File: b";
  EXPECT_EQ(subject("apply_patch", object({{"patch", twoFiles}})), repeated("x", 399) + " …");
}

TEST(Cut, ofASubjectLeavesTheCardComplete) {
  const Parsed input(object({{"file_path", "/" + std::string(401, 'x')}, {"content", "y"}}));
  const auto card = Permission::parse("Write", *input, std::nullopt);
  EXPECT_EQ(card->subject, std::string(400, 'x') + "…");
  EXPECT_EQ(card->note, "/" + std::string(401, 'x'));  // notes are never cut
  EXPECT_TRUE(card->complete);
}

/// A text of what is known to be tricky, in random order.
std::string randomText(std::mt19937& random, std::size_t pieces) {
  static const std::string parts[] = {"\n",
                                      "\n",
                                      "\n",
                                      "\r",
                                      "\r\n",
                                      " ",
                                      "\t",
                                      "\u00A0",
                                      "a",
                                      "+",
                                      "-",
                                      "@@",
                                      "*** ",
                                      "*** Add File: x/y\n",
                                      "\n*** Update File: ",
                                      std::string(accented),
                                      std::string(family),
                                      "\u0600",
                                      "\u0301",
                                      "\U0001F1E9",
                                      "\u200D",
                                      std::string(398, 'x'),
                                      std::string(399, 'y'),
                                      repeated(accented, 399),
                                      std::string("\0", 1),
                                      "…",
                                      "\u2028"};
  std::string text;
  for (std::size_t index = 0; index < pieces; ++index) {
    text += parts[random() % std::size(parts)];
  }
  return text;
}

/// Lines as they are described: split, strip, drop the last.
std::vector<Line> splitPlainly(const std::string& text, Kind kind) {
  std::vector<Line> all{{"", kind}};
  for (const char byte : text) {
    if (byte == '\n') {
      all.push_back({"", kind});
    } else {
      all.back().text += byte;
    }
  }
  for (auto& line : all) {
    if (line.text.ends_with('\r')) line.text.pop_back();
  }
  if (all.size() > 1 && all.back().text.empty()) all.pop_back();
  return all;
}

TEST(CuttingEarly, givesWhatCuttingLateGives) {
  std::mt19937 random(20261120);
  for (int round = 0; round < 400; ++round) {
    const auto pieces = round % 4 == 0 ? 1200 : random() % 30;
    const auto first = randomText(random, pieces);
    const auto second = randomText(random, random() % 30);
    const Parsed input(object({{"file_path", "/p/a"},
                               {"content", first},
                               {"old_string", first},
                               {"new_string", second},
                               {"command", first},
                               {"query", first}}));
    const auto expect = [&](const char* tool, std::vector<Line> whole) {
      const auto card = Permission::parse(tool, *input, std::nullopt);
      if (!card) return;  // a blank command, a patch without files
      auto uncut = *card;
      uncut.lines = std::move(whole);
      uncut.complete = true;
      EXPECT_EQ(card, Card::limited(uncut)) << tool << " in round " << round;
    };

    expect("Write", splitPlainly(first, Kind::added));
    expect("Bash", splitPlainly(first, Kind::plain));
    expect("WebSearch", {{first, Kind::plain}});
    auto edit = splitPlainly(first, Kind::removed);
    if (edit == std::vector<Line>{{"", Kind::removed}}) edit.clear();
    const auto added = splitPlainly(second, Kind::added);
    edit.insert(edit.end(), added.begin(), added.end());
    EXPECT_EQ(Card::edit(input->find("old_string"), input->find("new_string")), edit);
    expect("Edit", edit);
    std::vector<Line> arguments;
    for (const auto& [key, value] : input->members()) {
      const auto more =
          splitPlainly(std::string(key) + ": " + std::string(*value.asString()), Kind::plain);
      arguments.insert(arguments.end(), more.begin(), more.end());
    }
    EXPECT_EQ(Card::arguments(*input), arguments);
    expect("T", arguments);
    if (const auto patch = Permission::patch(first, std::nullopt))
      expect("apply_patch", patch->lines);
  }
}

struct RowsCase {
  const char* name;
  std::vector<std::string> lines;
  std::size_t rows;
};

const RowsCase rowsCases[] = {
    {"ofNoLines", {}, 0},
    {"ofAnEmptyLine", {""}, 1},
    {"ofOneCharacter", {"x"}, 1},
    {"of49Characters", {std::string(49, 'x')}, 1},
    {"of50Characters", {std::string(50, 'x')}, 1},
    {"of51Characters", {std::string(51, 'x')}, 2},
    {"of100Characters", {std::string(100, 'x')}, 2},
    {"of101Characters", {std::string(101, 'x')}, 3},
    {"of50CombinedCharacters", {repeated(accented, 50)}, 1},
    {"of51CombinedCharacters", {repeated(accented, 51)}, 2},
    {"of50Families", {repeated(family, 50)}, 1},
    {"of51Families", {repeated(family, 51)}, 2},
    {"areAddedUp", {"", std::string(51, 'x'), "", "x"}, 5},
};

class Rows : public testing::TestWithParam<RowsCase> {};

TEST_P(Rows, areCounted) {
  std::vector<Line> all;
  for (const auto& text : GetParam().lines) all.push_back({text});
  EXPECT_EQ(Permission::rowsFor(all), GetParam().rows);
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, Rows, testing::ValuesIn(rowsCases), named);

constexpr Action acting[] = {Action::run,   Action::edit,   Action::write,
                             Action::fetch, Action::search, Action::tool};

TEST(FitsCard, within14Rows) {
  for (const auto action : acting) {
    Permission card{.action = action, .lines = linesOf(14, std::string(50, 'x'))};
    EXPECT_TRUE(card.fitsCard());
    card.lines[7].text += 'x';
    EXPECT_FALSE(card.fitsCard());
    card.lines = linesOf(15, "");
    EXPECT_FALSE(card.fitsCard());
    card.lines = linesOf(1, std::string(700, 'x'));
    EXPECT_TRUE(card.fitsCard());
    card.lines = {};
    EXPECT_TRUE(card.fitsCard());
  }
}

TEST(FitsCard, onlyWhenComplete) {
  for (const auto action : acting) {
    EXPECT_FALSE((Permission{.action = action, .complete = false}).fitsCard());
  }
  for (const auto action : {Action::ask, Action::plan}) {
    const Permission card{.action = action, .lines = linesOf(300, "x")};
    EXPECT_TRUE(card.fitsCard());
    EXPECT_FALSE((Permission{.action = action, .complete = false}).fitsCard());
  }
}

TEST(Preview, isAllOfACardThatFits) {
  const Permission card{.lines = linesOf(14, "x")};
  EXPECT_EQ(card.preview(), (Permission::Preview{card.lines, 0}));
  const Permission plan{.action = Action::plan, .lines = linesOf(300, "x")};
  EXPECT_EQ(plan.preview(), (Permission::Preview{plan.lines, 0}));
  EXPECT_EQ(Permission{}.preview(), Permission::Preview{});
}

TEST(Preview, isEightLinesOfACardThatDoesNot) {
  const auto longLine = std::string(400, 'x');
  const auto previewOf = [&](std::size_t count) {
    Permission card{.lines = linesOf(count, longLine)};
    card.lines.back().text = "last";
    return card.preview();
  };
  for (const std::size_t count : {5U, 8U}) {
    EXPECT_EQ(previewOf(count).lines.size(), count);
    EXPECT_EQ(previewOf(count).lines.back().text, "last");
    EXPECT_EQ(previewOf(count).hidden, 0U);
  }
  EXPECT_EQ(previewOf(9), (Permission::Preview{linesOf(8, longLine), 1}));
  EXPECT_EQ(previewOf(300), (Permission::Preview{linesOf(8, longLine), 292}));
}

TEST(Preview, isEightLinesOfACardThatWasCut) {
  const Permission card{.action = Action::plan, .lines = linesOf(9, "x"), .complete = false};
  EXPECT_EQ(card.preview(), (Permission::Preview{linesOf(8, "x"), 1}));
  const Permission shorter{.lines = linesOf(8, "x"), .complete = false};
  EXPECT_EQ(shorter.preview(), (Permission::Preview{linesOf(8, "x"), 0}));
}

TEST(Counts, addedAndRemovedLines) {
  const Permission card{.lines = lines({"+a", "-b", " c", "+", "+d"})};
  EXPECT_EQ(card.added(), 3U);
  EXPECT_EQ(card.removed(), 1U);
  EXPECT_EQ(Permission{}.added(), 0U);
  EXPECT_EQ(Permission{}.removed(), 0U);
}

}  // namespace
}  // namespace CorvaneControl
