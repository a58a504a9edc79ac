#include <gtest/gtest.h>

#include <algorithm>
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

class Patch : public testing::TestWithParam<PatchCase> {};

/// The tool takes the patch from wherever an agent puts it.
TEST_P(Patch, becomesACard) {
  for (const char* const key : {"command", "input", "patch"}) {
    const Parsed input(object({{key, GetParam().patch}}));
    auto expected = GetParam().card;
    EXPECT_EQ(Permission::parse("apply_patch", *input, {}), expected) << key;
    if (expected) expected->folder = "~/x";
    EXPECT_EQ(Permission::parse("apply_patch", *input, {.cwd = "/u/me/x", .home = "/u/me"}),
              expected)
        << key;
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
  const auto card = Permission::parse("apply_patch", *input, {});
  EXPECT_EQ(card ? std::optional(card->subject) : std::nullopt, GetParam().subject);
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, PatchInput, testing::ValuesIn(patchInputCases), named);

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
    JSON::write(JSON::Value::ofString(text), JSON::Slashes::plain, json);
    const Parsed input(json + "}");
    return Permission::parse(row.tool, *input, {});
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
  const auto card = Permission::parse("T", *whole, {});
  EXPECT_EQ(card->lines, linesOf(1, "key: " + repeated(accented, 395)));
  EXPECT_TRUE(card->complete);
  const Parsed cut(object({{"key", repeated(accented, 396)}}));
  const auto cutCard = Permission::parse("T", *cut, {});
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
    const auto card = Permission::parse("T", *whole, {});
    EXPECT_EQ(card->lines, linesOf(1, "k: [\"" + repeated(character, 393) + "\"]"));
    EXPECT_TRUE(card->complete);
    const Parsed cut(value(character, 394));
    const auto cutCard = Permission::parse("T", *cut, {});
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
    return Permission::parse("MultiEdit", *input, {});
  };
  EXPECT_EQ(card(150)->lines.size(), 299U);
  EXPECT_TRUE(card(150)->complete);
  EXPECT_EQ(card(151)->lines.size(), 300U);
  EXPECT_FALSE(card(151)->complete);
  EXPECT_EQ(card(151)->lines.back().text, "⋯");
  EXPECT_EQ(card(5000), card(151));
}

TEST(Cut, ofAnEditThatFillsTheCardHidesTheSeparatorOfTheNextOne) {
  for (const std::size_t count : {299U, 300U}) {
    const Parsed input(R"({"file_path":"/p/a","edits":[{"new_string":")" + repeated("x\\n", count) +
                       R"("},{"new_string":"y"}]})");
    const auto card = Permission::parse("MultiEdit", *input, {});
    ASSERT_EQ(card->lines.size(), 300U);
    EXPECT_EQ(card->lines.back().text, count == 299 ? "⋯" : "x");
    EXPECT_FALSE(card->complete);
  }
}

TEST(Cut, ofAnEditWhoseOldTextFillsTheCardHidesTheNewOne) {
  const Parsed input(
      object({{"file_path", "/p/a"}, {"old_string", repeated("x\n", 300)}, {"new_string", "y"}}));
  const auto card = Permission::parse("Edit", *input, {});
  EXPECT_EQ(card->removed(), 300U);
  EXPECT_EQ(card->added(), 0U);
  EXPECT_FALSE(card->complete);
}

TEST(Cut, findsTheSubjectBehindTheLastLine) {
  const Parsed input(object({{"command", repeated(" \n", 5000) + "  rm -r x  \nls"}}));
  const auto card = Permission::parse("Bash", *input, {});
  ASSERT_TRUE(card);
  EXPECT_EQ(card->subject, "rm -r x");
  EXPECT_EQ(card->lines, linesOf(300, " "));
  EXPECT_FALSE(card->complete);
}

TEST(Cut, ofAPatchCountsTheFilesBehindTheLastLine) {
  const auto patch = "*** Add File: a\n" + repeated("+x\n", 5000) + "*** Add File: b\n+y";
  const Parsed input(object({{"command", patch}}));
  const auto card = Permission::parse("apply_patch", *input, {});
  ASSERT_TRUE(card);
  EXPECT_EQ(card->subject, "a and 1 more");
  EXPECT_EQ(card->note, "Edits 2 files");
  EXPECT_EQ(card->lines.size(), 300U);
  EXPECT_FALSE(card->complete);
}

TEST(Cut, appliesToSubjects) {
  const auto long400 = repeated(accented, 400);
  const auto long401 = repeated(accented, 401);
  const auto subject = [](const char* tool, const std::string& input) {
    const Parsed parsed(input);
    return Permission::parse(tool, *parsed, {})->subject;
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

TEST(Cut, leavesNotesAndFoldersAlone) {
  const auto longText = std::string(1000, 'x');
  const Parsed input(object({{"command", "ls"}, {"description", longText}}));
  const Permission expected{
      .subject = "ls", .note = longText, .lines = lines({" ls"}), .folder = longText};
  EXPECT_EQ(Permission::parse("Bash", *input, {.cwd = longText}), expected);
}

TEST(Cut, ofASubjectLeavesTheCardComplete) {
  const Parsed input(object({{"file_path", "/" + std::string(401, 'x')}, {"content", "y"}}));
  const auto card = Permission::parse("Write", *input, {});
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

/// The limits as they are described, on lines that are all there.
Permission cutPlainly(Permission card) {
  card.complete = card.lines.size() <= 300;
  card.lines.resize(std::min<std::size_t>(card.lines.size(), 300));
  for (auto& line : card.lines) {
    if (Text::characters(line.text) <= 400) continue;
    line.text = std::string(Text::prefix(line.text, 400)) + "…";
    card.complete = false;
  }
  return card;
}

/// A patch's lines as they are described.
std::vector<Line> patchedPlainly(const std::string& text) {
  std::vector<Line> all;
  for (const auto& [line, kind] : splitPlainly(text + '\n', Kind::plain)) {
    if (line.empty() || line.starts_with("*** ") || line.starts_with("@@")) continue;
    const bool hasMark = line[0] == '+' || line[0] == '-' || line[0] == ' ';
    const auto shown = line[0] == '+' ? Kind::added : line[0] == '-' ? Kind::removed : Kind::plain;
    all.push_back({line.substr(hasMark ? 1 : 0), shown});
  }
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
      const auto card = Permission::parse(tool, *input, {});
      if (!card) return;  // a blank command, a patch without files
      auto uncut = *card;
      uncut.lines = std::move(whole);
      EXPECT_EQ(card, cutPlainly(uncut)) << tool << " in round " << round;
      EXPECT_LE(Text::characters(card->subject), 401U);
    };

    expect("Write", splitPlainly(first, Kind::added));
    expect("Bash", splitPlainly(first, Kind::plain));
    expect("WebSearch", {{first, Kind::plain}});
    auto edit = splitPlainly(first, Kind::removed);
    if (edit == std::vector<Line>{{"", Kind::removed}}) edit.clear();
    const auto added = splitPlainly(second, Kind::added);
    edit.insert(edit.end(), added.begin(), added.end());
    expect("Edit", edit);
    std::vector<Line> arguments;
    for (const auto& [key, value] : input->members()) {
      const auto more =
          splitPlainly(std::string(key) + ": " + std::string(*value.asString()), Kind::plain);
      arguments.insert(arguments.end(), more.begin(), more.end());
    }
    expect("T", arguments);
    expect("apply_patch", patchedPlainly(first));
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
