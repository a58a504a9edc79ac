#include "CorvaneControl/AgentNotification.h"

#include <gtest/gtest.h>

#include <ostream>
#include <random>

#include "CorvaneControl/Patterns.h"
#include "CorvaneControl/Platform/Markdown.h"
#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl::AgentNotification {

/// What a failed comparison shows.
static void PrintTo(const Event& event, std::ostream* stream) {
  *stream << wireName(event.kind) << ", folder " << event.cwd.value_or("absent") << ", message "
          << event.message.value_or("absent") << ", session " << event.session.value_or("absent")
          << ", card " << (event.permission ? event.permission->subject : "absent") << ", call "
          << event.toolCall.value_or("absent");
}

namespace {

const auto named = [](const auto& row) { return std::string(row.param.name); };

std::string repeated(std::size_t count, std::string_view text) {
  std::string result;
  result.reserve(count * text.size());
  for (; count > 0; --count) result += text;
  return result;
}

/// The most a summary may hold, cut.
const std::string cut = repeated(119, "x") + "…";

/// A value read from JSON, with what it points into.
class Read {
 public:
  explicit Read(std::string text)
      : text_(std::move(text)), document_(JSON::Document::parse(text_)) {
    EXPECT_TRUE(document_) << text_;
  }
  const JSON::Value& value() const { return document_->root(); }

 private:
  std::string text_;
  std::optional<JSON::Document> document_;
};

/// A value of every JSON type, empty ones and a likely looking text among them.
const std::string everyType[] = {"null",  "true",      "false", "0",  "1",           "2.5",
                                 R"("")", R"("stop")", "[]",    "{}", R"(["text"])", R"({"a":1})"};

// Identifiers

struct IdentifierCase {
  const char* name;
  std::string value;  ///< As JSON.
  std::optional<std::string> identifier;
};
const IdentifierCase identifierCases[] = {
    {"aUUID", R"("0f8fad5b-d9cb-469f-a165-70867728950e")", "0f8fad5b-d9cb-469f-a165-70867728950e"},
    {"everyKindOfCharacter", R"("azAZ09_-")", "azAZ09_-"},
    {"oneCharacter", R"("-")", "-"},
    {"of127Characters", '"' + std::string(127, 'x') + '"', std::string(127, 'x')},
    {"of128Characters", '"' + std::string(128, 'x') + '"', std::string(128, 'x')},
    {"of129Characters", '"' + std::string(129, 'x') + '"', std::nullopt},
    {"ofAMillionCharacters", '"' + std::string(1'000'000, 'x') + '"', std::nullopt},
    {"anEscapedLetter", R"("\u0061")", "a"},
    {"empty", R"("")", std::nullopt},
    {"withADot", R"("a.b")", std::nullopt},
    {"withABlank", R"("a b")", std::nullopt},
    {"endingInALineFeed", R"("a\n")", std::nullopt},
    {"withANul", R"("a\u0000b")", std::nullopt},
    {"aLetterBeyondASCII", R"("é")", std::nullopt},
    {"aFullWidthLetter", R"("ａ")", std::nullopt},
    {"aCombiningAccent", R"("e\u0301")", std::nullopt},
    {"anArabicDigit", R"("٣")", std::nullopt},
    {"null", "null", std::nullopt},
    {"aBoolean", "true", std::nullopt},
    {"aNumber", "12", std::nullopt},
    {"aList", R"(["a"])", std::nullopt},
    {"anObject", R"({"a":"a"})", std::nullopt},
};
class Identifier : public testing::TestWithParam<IdentifierCase> {};
TEST_P(Identifier, isKeptWholeOrRefused) {
  EXPECT_EQ(identifier(&Read(GetParam().value).value()), GetParam().identifier);
}
INSTANTIATE_TEST_SUITE_P(AgentNotification, Identifier, testing::ValuesIn(identifierCases), named);

TEST(AgentNotification, identifiersAreMadeOfSixtyFourCharacters) {
  const std::string_view good = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
  for (int code = 0; code < 256; ++code) {
    const std::string text(1, static_cast<char>(code));
    const JSON::Value value = JSON::Value::ofString(text);
    EXPECT_EQ(identifier(&value).has_value(), good.find(text) != std::string_view::npos) << code;
  }
}

TEST(AgentNotification, whatIsMissingHasNoIdentifierAndNoSummary) {
  const JSON::Value* missing = nullptr;
  EXPECT_EQ(identifier(missing), std::nullopt);
  EXPECT_EQ(summary(missing), std::nullopt);
  EXPECT_EQ(summary(std::nullopt), std::nullopt);
  EXPECT_FALSE(isCodexSuggestion(missing));
}

// Summaries

struct TextCase {
  const char* name;
  std::string text;
  std::optional<std::string> result;
};

const std::string flag = "\U0001F1E9\U0001F1EA";
const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";

const TextCase summaryCases[] = {
    {"aLine", "Please do this.", "Please do this."},
    {"keepsMarkdown", "# **Title**", "# **Title**"},
    {"empty", "", std::nullopt},
    {"blank", " \t ", std::nullopt},
    {"onlyLineBreaks", "\r\n\n\v\f\u0085\u2028\u2029", std::nullopt},
    {"onlyOtherWhiteSpace", "\u00A0\u1680\u2000\u200A\u202F\u205F\u3000", std::nullopt},
    {"aZeroWidthSpaceIsNoWhiteSpace", "a\u200Bb", "a\u200Bb"},
    {"whiteSpaceAtTheEnds", " \na b\t\n", "a b"},
    {"runsOfWhiteSpace", "a \t\n\r\n b\u3000\u2003c\u0085d", "a b c d"},
    {"aNulIsKept", std::string("a\0b", 3), std::string("a\0b", 3)},
    {"of119Characters", repeated(119, "x"), repeated(119, "x")},
    {"of120Characters", repeated(120, "x"), repeated(120, "x")},
    {"of121Characters", repeated(121, "x"), cut},
    {"of130Characters", repeated(130, "x"), cut},
    {"of120CharactersAndBlanks", " " + repeated(120, "x") + "\n ", repeated(120, "x")},
    {"of120CharactersAndAWord", repeated(120, "x") + " y", cut},
    {"of118CharactersAndAWord", repeated(118, "x") + "  y", repeated(118, "x") + " y"},
    {"cutBehindABlank", repeated(118, "x") + " yyyy", repeated(118, "x") + " …"},
    {"cutInWords", repeated(100, "ab "), repeated(39, "ab ") + "ab…"},
    {"of120CharactersOfTwoBytes", repeated(120, "é"), repeated(120, "é")},
    {"of121CharactersOfTwoBytes", repeated(121, "é"), repeated(119, "é") + "…"},
    {"of120CombinedCharacters", repeated(120, "e\u0301"), repeated(120, "e\u0301")},
    {"of121CombinedCharacters", repeated(121, "e\u0301"), repeated(119, "e\u0301") + "…"},
    {"of120Families", repeated(120, family), repeated(120, family)},
    {"of121Families", repeated(121, family), repeated(119, family) + "…"},
    {"of120Flags", repeated(120, flag), repeated(120, flag)},
    {"of121Flags", repeated(121, flag), repeated(119, flag) + "…"},
    {"anAccentOnCharacter120", repeated(120, "x") + "\u0301", repeated(120, "x") + "\u0301"},
    {"anAccentOnCharacter121", repeated(121, "x") + "\u0301", cut},
    {"anAccentOnCharacter119", repeated(119, "x") + "\u0301yz", repeated(119, "x") + "\u0301…"},
};
class Summary : public testing::TestWithParam<TextCase> {};
TEST_P(Summary, isOneLineOf120Characters) {
  const std::string& text = GetParam().text;
  EXPECT_TRUE(summary(std::string_view(text)) == GetParam().result);
  const JSON::Value value = JSON::Value::ofString(text);
  EXPECT_TRUE(summary(&value) == GetParam().result);
}
INSTANTIATE_TEST_SUITE_P(AgentNotification, Summary, testing::ValuesIn(summaryCases), named);

// No rows of the table, which every test of this program would have to put together.
TEST(AgentNotification, megabytesHaveASummaryToo) {
  const std::string accents = "x" + repeated(1'000'000, "\u0301");
  EXPECT_TRUE(summary(std::string_view(accents)) == accents);
  EXPECT_TRUE(summary(std::string_view(std::string(10'000'000, 'x'))) == cut);
  EXPECT_TRUE(summary(std::string_view(std::string(10'000'000, ' ') + "x")) == "x");
}

TEST(AgentNotification, onlyTextsHaveASummary) {
  for (const char* json : {"null", "true", "12", "2.5", R"(["text"])", R"({"text":"text"})"}) {
    EXPECT_EQ(summary(&Read(json).value()), std::nullopt) << json;
  }
  EXPECT_EQ(summary(&Read(R"("a\nb")").value()), "a b");
}

// Previews of messages

const TextCase previewCases[] = {
    {"aLine", "All done.", "All done."},
    {"empty", "", std::nullopt},
    {"blank", " \t\u3000 ", std::nullopt},
    {"onlyLineBreaks", "\n\r\n\u2028", std::nullopt},
    {"lines", "a\nb\rc\r\nd\ve\ff\u0085g\u2028h\u2029i", "a b c d e f g h i"},
    {"trimmedLines", "  a \n\t b\t\n\u3000c", "a b c"},
    {"emptyLines", "\n\na\n \n\nb\n", "a b"},
    {"aHeadingAlone", "# Title", "Title"},
    {"aHeadingBeforeAList", "# Title\n\n- first\n- second", "first second"},
    {"headingsBetweenLines", "a\n## B\nc\n### D", "a c"},
    {"onlyHeadingsGiveTheFirst", "## First\n# Second", "First"},
    {"aHeadingBehindLines", "a\n# B", "a"},
    {"theDeepestHeading", "###### A\nb", "b"},
    {"sevenMarksAreNoHeading", "####### A\nb", "####### A b"},
    {"aHeadingNeedsWhiteSpace", "#A\nb", "#A b"},
    {"aHeadingWithATab", "#\tA\nb", "b"},
    {"aHeadingWithANoBreakSpace", "#\u00A0A\nb", "b"},
    {"anIndentedHeading", "   # A\nb", "b"},
    {"headingMarksAlone", "#\n##", "# ##"},
    {"headingMarksWithBlanksAreTrimmed", "# \nb", "# b"},
    {"aHeadingKeepsItsSecondMark", "# # A", "# A"},
    {"aHeadingOfAList", "# - A", "- A"},
    {"aHeadingWithMarkdown", "# The *plan*", "The plan"},
    {"aLongHeading", "# " + repeated(121, "x"), cut},
    {"aFence", "```sh\nmake test\n```", "make test"},
    {"aFenceOfTildes", "~~~\nmake test\n~~~~", "make test"},
    {"anIndentedFence", "  ```\n  make\n  ```", "make"},
    {"onlyFences", "```\n```", std::nullopt},
    {"aFenceInALine", "a ``` b", "a ``` b"},
    {"twoBackticksAreNoFence", "``a``", "a"},
    {"twoTildesAreNoFence", "~~a~~", "a"},
    {"fencesAndAHeading", "```\n# A\n```", "A"},
    {"aFenceIsNoFirstLine", "~~~\n# A\n# B", "A"},
    {"bullets", "- a\n* b\n+ c", "a b c"},
    {"aBulletNeedsWhiteSpace", "-a\n+b", "-a +b"},
    {"aBulletAlone", "-\n+", "- +"},
    {"aBulletWithATab", "-\ta", "a"},
    {"nestedBullets", "- a\n  - b", "a b"},
    {"onlyOneMarkIsTaken", "- - a\n> - b\n1. 2. c", "- a - b 2. c"},
    {"numbers", "1. a\n2) b\n10. c\n123456789012) d", "a b c d"},
    {"aNumberNeedsWhiteSpace", "1.a\n2)b", "1.a 2)b"},
    {"aNumberNeedsAMark", "1 a\n2: b", "1 a 2: b"},
    {"aNumberOfAnotherScript", "٣. a\n３) b", "a b"},
    {"quotes", "> a\n>b\n>\tc", "a b c"},
    {"aQuoteTakesOneBlank", ">  a", "a"},
    {"aQuoteInAQuote", ">> a", "> a"},
    {"anEmptyQuote", ">", std::nullopt},
    {"anEmptyQuoteBetweenLines", "> a\n>\n> b", "a b"},
    {"anEmptyQuoteIsNoHeading", ">\n# A", std::nullopt},
    {"aHeadingBeforeAnEmptyQuote", "# A\n>", std::nullopt},
    {"aRuleIsText", "a\n---\nb", "a --- b"},
    {"aTableIsText", "| a | b |\n|---|---|", "| a | b | |---|---|"},
    {"strong", "All **done**", "All done"},
    {"emphasis", "*a* _b_ __c__ ***d***", "a b c d"},
    {"code", "see `a.c`, ``b`c``", "see a.c, b`c"},
    {"codeKeepsMarks", "`**a**`", "**a**"},
    {"struckOut", "~~a~~ b", "a b"},
    {"links", "[a](https://example.org \"t\") [b](<c d>)", "a b"},
    {"anImage", "![a *b*](c.png)", "a b"},
    {"anAutolink", "<https://example.org/a>", "https://example.org/a"},
    {"entities", "a &amp; b &lt;c&gt; &#33;", "a & b <c> !"},
    {"escapes", "\\*a\\* \\# b", "*a* # b"},
    {"rawTags", "a <b>c</b>", "a <b>c</b>"},
    {"unclosedMarks", "**a [b `c", "**a [b `c"},
    {"underscoresInNames", "snake_case_name", "snake_case_name"},
    {"marksAcrossLines", "**a\nb** `c\nd`", "a b c d"},
    {"marksAcrossAList", "- **a\n- b**", "a b"},
    {"marksAcrossAHeading", "**a\n# B\nc**", "a c"},
    {"aLinkAcrossLines", "[a\nb](c)", "a b"},
    {"whiteSpaceInALine", "a  \t b", "a b"},
    {"whiteSpaceFromEntities", "a&nbsp;&#10;&#9;b", "a b"},
    {"onlyMarks", "[](a)", std::nullopt},
    {"of120Characters", repeated(120, "x"), repeated(120, "x")},
    {"of121Characters", repeated(121, "x"), cut},
    {"of130Characters", repeated(130, "x"), cut},
    {"of120CharactersAndMarks", "**" + repeated(120, "x") + "**", repeated(120, "x")},
    {"of121CharactersAndMarks", "**" + repeated(121, "x") + "**", cut},
    {"of120CharactersInLines", repeated(60, "x\n") + "x", repeated(59, "x ") + "x…"},
    {"aResult",
     "# Result\n\nAll **done**: see `a.c`.\n\n- first\n- second\n\n```sh\nmake test\n```\n",
     "All done: see a.c. first second make test"},
};
class Preview : public testing::TestWithParam<TextCase> {};
TEST_P(Preview, isTheMessageWithoutItsMarks) {
  EXPECT_EQ(messagePreview(GetParam().text), GetParam().result);
}
INSTANTIATE_TEST_SUITE_P(AgentNotification, Preview, testing::ValuesIn(previewCases), named);

TEST(AgentNotification, noMessageHasNoPreview) {
  EXPECT_EQ(messagePreview(std::nullopt), std::nullopt);
}

/// The same preview, made step by step of the whole text.
std::optional<std::string> wholePreview(std::string_view text) {
  std::vector<std::string_view> kept;
  while (const auto line = Text::nextLine(text)) {
    const std::string_view trimmed = Text::trimmed(*line);
    if (!trimmed.empty() && !trimmed.starts_with("```") && !trimmed.starts_with("~~~")) {
      kept.push_back(trimmed);
    }
  }
  std::vector<std::string_view> chosen;
  for (const std::string_view line : kept) {
    if (Patterns::headingMark(line) == 0) chosen.push_back(line);
  }
  if (chosen.empty() && !kept.empty()) chosen.push_back(kept.front());
  std::string joined;
  for (std::size_t index = 0; index < chosen.size(); ++index) {
    if (index > 0) joined += ' ';
    joined += chosen[index].substr(Patterns::blockMark(chosen[index]));
  }
  return summary(Markdown::plainText(joined));
}

/// Messages around the amount that is read at first, most of them written to need more.
struct LongCase {
  const char* name;
  std::string text;
};
const LongCase longCases[] = {
    {"oneLine", repeated(70'000, "x")},
    {"manyLines", repeated(50'000, "- x\n")},
    {"manyHeadings", repeated(50'000, "# x\n")},
    {"manyHeadingsAndALine", repeated(50'000, "# x\n") + "y"},
    {"manyFences", repeated(50'000, "```\n") + "# x"},
    {"manyEmptyQuotes", repeated(50'000, ">\n") + "x"},
    {"aLongHeading", "# " + repeated(100'000, "x")},
    {"aLongHeadingOfBlanks", "# a" + repeated(100'000, " ") + "b"},
    {"blanksInALine", "a" + repeated(100'000, " ") + "b"},
    {"blanksInALineAndMore", "a" + repeated(100'000, " ") + "b\n- c\n# d\ne"},
    {"tabsInManyLines", repeated(30, "a" + repeated(5'000, "\t") + "b\n")},
    {"marksAndBlanks", repeated(6'553, "[](a)") + "b" + repeated(40'000, " ") + "tail"},
    {"marksUpToTheLimit", repeated(20'000, "[](a)") + "tail"},
    {"aLinkToALongAddress", "[x](" + repeated(40'000, "a") + ") tail"},
    {"aLinkToAnAddressThatIsRead",
     "[x](" + repeated(30'000, "a") + ")" + repeated(50'000, " ") + "y"},
    {"oneCharacter", "a" + repeated(40'000, "\u0301") + " tail"},
    {"charactersOfThreeBytes", repeated(40'000, "漢")},
    {"charactersOfThreeBytesShifted", "x" + repeated(40'000, "漢")},
    {"charactersOfThreeBytesShiftedTwice", "xy" + repeated(40'000, "漢")},
    {"charactersOfFourBytesBehindMarks",
     "x" + repeated(6'000, "[](a)") + repeated(10'000, "\U0001F600")},
    {"noBreakSpaces", "a" + repeated(40'000, "\u00A0") + "b"},
    {"codeAcrossTheLimit", "`" + repeated(100, "a") + repeated(70'000, " ") + "b`"},
    {"exactlyWhatIsRead", repeated(65'536, " x").substr(0, 65'536)},
    {"aLineThatFillsWhatIsRead", "a" + repeated(65'535, "\u0020").substr(0, 65'534) + "b"},
    {"aLineThatFillsItAndAnother", "a" + repeated(65'534, " ") + "b\nc"},
    {"aLineOneByteShortAndAnother", "a" + repeated(65'533, " ") + "b\nc"},
    {"aLineOneByteLongAndAnother", "a" + repeated(65'535, " ") + "b\nc"},
};
class LongMessage : public testing::TestWithParam<LongCase> {};
TEST_P(LongMessage, hasThePreviewOfTheWhole) {
  EXPECT_TRUE(messagePreview(GetParam().text) == wholePreview(GetParam().text));
}
INSTANTIATE_TEST_SUITE_P(AgentNotification, LongMessage, testing::ValuesIn(longCases), named);

TEST(AgentNotification, everyMessageHasThePreviewOfTheWhole) {
  for (const auto& row : previewCases) {
    EXPECT_EQ(messagePreview(row.text), wholePreview(row.text)) << row.name;
  }
  std::mt19937 random(20261120);
  const std::string pieces[] = {"a",      " ",    "\n",
                                "- ",     "# ",   "> ",
                                "1. ",    "```",  "~~~",
                                "**",     "`",    "[",
                                "](b)",   "\\",   "&lt;",
                                "<",      "\r\n", "\t",
                                "\u3000", "漢",   "e\u0301",
                                "\u2028", "_",    "~~",
                                "text ",  "#",    "word word word word word word\n"};
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    for (auto count = random() % 40; count > 0; --count)
      text += pieces[random() % std::size(pieces)];
    const auto preview = messagePreview(text);
    EXPECT_EQ(preview, wholePreview(text)) << text;
    EXPECT_TRUE(!preview || Text::characters(*preview) <= 120) << text;
  }
}

// The start of a message is enough when nothing behind can change what it says.
TEST(AgentNotification, everyLongerMessageHasThePreviewOfTheWhole) {
  std::mt19937 random(20261121);
  const std::string words = "The quick brown fox jumps over the lazy dog and is gone before noon. ";
  const std::string marks[] = {"**",  "*",  "_", "`",   "``", "[", "]",  "](b)", "](<b c> \"d e\")",
                               "![",  "<",  ">", "<i>", "~~", "~", "\\", "&lt;", "&",
                               "***", "__", "!"};
  for (int round = 0; round < 4000; ++round) {
    std::string text;
    const std::size_t size = 100 + random() % 1500;
    const auto rarely = 1 + random() % 40;
    while (text.size() < size) {
      const std::size_t start = random() % words.size();
      text += words.substr(start, 1 + random() % 30);
      if (random() % rarely == 0) text += marks[random() % std::size(marks)];
      if (random() % 20 == 0) text += random() % 2 == 0 ? "\n- " : "\r\n";
    }
    ASSERT_EQ(messagePreview(text), wholePreview(text)) << text;
  }
}

TEST(AgentNotification, marksAreMatchedHoweverFarTheirOtherHalvesAre) {
  const std::string words = repeated(100, "word ");
  for (const std::string mark : {"*", "**", "_", "`", "~~"}) {
    EXPECT_EQ(messagePreview(mark + words + "end" + mark), messagePreview(words)) << mark;
    EXPECT_EQ(messagePreview(mark + words + "end"), messagePreview(mark + words)) << mark;
  }
  EXPECT_EQ(messagePreview("[" + words + "end](b)"), messagePreview(words));
  EXPECT_EQ(messagePreview("![" + words + "end](b)"), messagePreview(words));
  // Marks within brackets are not matched with those before them.
  const auto beginning = [](const std::string& message) {
    return messagePreview(message).value_or("").substr(0, 9);
  };
  EXPECT_EQ(beginning("*a [b* " + words + "](c)"), "*a b* wor");
  EXPECT_EQ(beginning("*a [b* " + words), "a [b word");
}

TEST(AgentNotification, aLongMessageIsReadInLinearTime) {
  for (const char* piece : {"[", "*", "`", "<", "![", "# ", "> ", "- ", "a\n", "\n", "[a](", "**a ",
                            "~~~\n", "_a_ ", "&amp;", "\\"}) {
    const auto preview = messagePreview(repeated(1'000'000, piece));
    EXPECT_TRUE(!preview || Text::characters(*preview) <= 120) << piece;
  }
}

// What stands around a message

struct BodyCase {
  const char* name;
  std::string text;
  std::optional<std::string> body;
};
const BodyCase claudeBodyCases[] = {
    {"plain", "Hello", "Hello"},
    {"plainIsNotTrimmed", " Hello\n", " Hello\n"},
    {"empty", "", ""},
    {"blank", " \n", " \n"},
    {"anAttributeWithAGreaterThan",
     "<cross-session-message from=\"a > b\">\nHello **there**\n</cross-session-message>",
     "Hello **there**"},
    {"anAttributeInSingleQuotes",
     "<cross-session-message from='a > \"b'>Hello</cross-session-message>", "Hello"},
    {"aSingleQuoteInDoubleOnes", "<cross-session-message from=\"it's >\">Hello", "Hello"},
    {"severalAttributes", "<cross-session-message a=\"1\" b='2' c=3 d>Hello", "Hello"},
    {"noAttribute", "<cross-session-message>Hello</cross-session-message>", "Hello"},
    {"aLineBreakInTheTag", "<cross-session-message\n from=\"a\"\n>Hello", "Hello"},
    {"whiteSpaceAround", "\n\t <cross-session-message>\r\n Hello \n</cross-session-message> \u2028",
     "Hello"},
    {"noClosingTag", "<cross-session-message>Hello", "Hello"},
    {"aClosingTagInTheMiddle", "<cross-session-message>a</cross-session-message>b",
     "a</cross-session-message>b"},
    {"twoClosingTags", "<cross-session-message>a</cross-session-message></cross-session-message>",
     "a</cross-session-message>"},
    {"aClosingTagInOtherCase", "<cross-session-message>a</Cross-Session-Message>",
     "a</Cross-Session-Message>"},
    {"aClosingTagWithABlank", "<cross-session-message>a</cross-session-message >",
     "a</cross-session-message >"},
    {"anotherTagInside", "<cross-session-message><b>a</b></cross-session-message>", "<b>a</b>"},
    {"aTagInATag",
     "<cross-session-message><cross-session-message>a</cross-session-message>"
     "</cross-session-message>",
     "<cross-session-message>a</cross-session-message>"},
    {"anEmptyBody", "<cross-session-message></cross-session-message>", std::nullopt},
    {"aBlankBody", "<cross-session-message> \n </cross-session-message>", std::nullopt},
    {"theTagAlone", "<cross-session-message>", std::nullopt},
    {"theTagsNameAlone", "<cross-session-message", std::nullopt},
    {"theTagsNameAndALineFeed", "<cross-session-message\n", std::nullopt},
    {"anUnfinishedTag", "<cross-session-message from=\"a\"", std::nullopt},
    {"anUnfinishedAttribute", "<cross-session-message from=\"a>Hello</cross-session-message>",
     std::nullopt},
    {"anUnfinishedSingleQuote", "<cross-session-message from='a>Hello", std::nullopt},
    {"aQuoteInTheBody", "<cross-session-message>it's", "it's"},
    {"aLongerName", "<cross-session-messages>Hello", "<cross-session-messages>Hello"},
    {"anotherSign", "<cross-session-message/>Hello", "<cross-session-message/>Hello"},
    {"aShorterName", "<cross-session>Hello", "<cross-session>Hello"},
    {"otherCase", "<Cross-session-message>Hello", "<Cross-session-message>Hello"},
    {"textBeforeTheTag", "a <cross-session-message>Hello", "a <cross-session-message>Hello"},
    {"aBlankInTheTag", "< cross-session-message>Hello", "< cross-session-message>Hello"},
    {"aNoBreakSpaceInTheTag", "<cross-session-message\u00A0a>Hello", "Hello"},
    {"onlyTheClosingTag", "Hello</cross-session-message>", "Hello</cross-session-message>"},
    {"manyQuotes", "<cross-session-message " + std::string(1'000'000, '\'') + ">Hello", "Hello"},
    {"anOddNumberOfQuotes", "<cross-session-message " + std::string(999'999, '"') + ">Hello",
     std::nullopt},
};
class ClaudeBody : public testing::TestWithParam<BodyCase> {};
TEST_P(ClaudeBody, isTakenOutOfItsTag) {
  const auto body = claudeMessageBody(GetParam().text);
  EXPECT_TRUE(body == GetParam().body) << body.value_or("nothing");
}
INSTANTIATE_TEST_SUITE_P(AgentNotification, ClaudeBody, testing::ValuesIn(claudeBodyCases), named);

const BodyCase codexBodyCases[] = {
    {"plain", "Please", "Please"},
    {"plainIsNotTrimmed", " Please\n", " Please\n"},
    {"empty", "", ""},
    {"aReply", "<send_user_message_question_reply>SQLite", std::nullopt},
    {"aReplyWithAttributes", "<send_user_message_question_reply id=\"1\">", std::nullopt},
    {"aReplyAfterWhiteSpace", " \r\n\t<send_user_message_question_reply>", std::nullopt},
    {"aReplyWithALineFeed", "<send_user_message_question_reply\n>", std::nullopt},
    {"anUnfinishedReply", "<send_user_message_question_reply", std::nullopt},
    {"aLongerName", "<send_user_message_question_reply2>", "<send_user_message_question_reply2>"},
    {"aShorterName", "<send_user_message_question>", "<send_user_message_question>"},
    {"anotherSign", "<send_user_message_question_reply/>", "<send_user_message_question_reply/>"},
    {"otherCase", "<Send_user_message_question_reply>", "<Send_user_message_question_reply>"},
    {"textBeforeTheTag", "a <send_user_message_question_reply>",
     "a <send_user_message_question_reply>"},
    {"anotherSessionsTag", "<cross-session-message>a", "<cross-session-message>a"},
};
class CodexBody : public testing::TestWithParam<BodyCase> {};
TEST_P(CodexBody, isNoReplyToItsOwnQuestion) {
  EXPECT_EQ(codexTaskBody(GetParam().text), GetParam().body);
}
INSTANTIATE_TEST_SUITE_P(AgentNotification, CodexBody, testing::ValuesIn(codexBodyCases), named);

TEST(AgentNotification, noMessageHasNoBody) {
  EXPECT_EQ(claudeMessageBody(std::nullopt), std::nullopt);
  EXPECT_EQ(codexTaskBody(std::nullopt), std::nullopt);
}

// Suggestions

struct SuggestionCase {
  const char* name;
  std::string text;
  bool isSuggestion;
};
const SuggestionCase suggestionCases[] = {
    {"noSuggestions", R"({"suggestions":[]})", true},
    {"suggestions", R"({"suggestions":["a",{"b":1}]})", true},
    {"aSuggestion", R"({"suggestion":"a"})", true},
    {"aSuggestionOfAnyType", R"({"suggestion":null})", true},
    {"aSuggestionThatIsAnObject", R"({"suggestion":{}})", true},
    {"whiteSpaceAround", " \r\n\t{ \"suggestions\" : [ ] }\n ", true},
    {"aByteOrderMark", "\uFEFF{\"suggestions\":[]}", true},
    {"anEscapedName", R"({"\u0073uggestions":[]})", true},
    {"anEscapeAtTheEndOfTheName", R"({"suggestion\u0073":[]})", true},
    {"anEscapedNameOfAnother", R"({"\u0061nswers":[]})", false},
    {"aLongerName", R"({"suggestionsToo":[]})", false},
    {"anEmptyName", R"({"":[]})", false},
    {"noName", R"({[]})", false},
    {"anUnfinishedName", R"({"answers})", false},
    {"anotherMemberFirst", R"({"done":true,"suggestions":[]})", false},
    {"theLastOfTwoCounts", R"({"suggestions":1,"suggestions":[]})", true},
    {"theLastOfTwoIsNoList", R"({"suggestions":[],"suggestions":1})", false},
    {"suggestionsThatAreAText", R"({"suggestions":"a"})", false},
    {"suggestionsThatAreAnObject", R"({"suggestions":{}})", false},
    {"suggestionsThatAreNull", R"({"suggestions":null})", false},
    {"aSecondMember", R"({"suggestions":[],"done":true})", false},
    {"bothNames", R"({"suggestion":"a","suggestions":[]})", false},
    {"anotherName", R"({"answers":[]})", false},
    {"otherCase", R"({"Suggestions":[]})", false},
    {"anEmptyObject", "{}", false},
    {"aList", R"([{"suggestions":[]}])", false},
    {"aTextInAText", R"("{\"suggestions\":[]}")", false},
    {"moreBehind", R"({"suggestions":[]} done)", false},
    {"moreBefore", R"(Done {"suggestions":[]})", false},
    {"aFence", "```\n{\"suggestions\":[]}\n```", false},
    {"cutShort", R"({"suggestions":[])", false},
    {"aTrailingComma", R"({"suggestions":[],})", false},
    {"empty", "", false},
    {"aBrace", "{", false},
    {"braces", "{}}", false},
    {"anotherWhiteSpace", "\u00A0{\"suggestions\":[]}", false},
    {"deepNesting", "{\"suggestions\":" + repeated(100'000, "[") + "}", false},
};
class Suggestion : public testing::TestWithParam<SuggestionCase> {};
TEST_P(Suggestion, isOneMemberOfAnObject) {
  const JSON::Value value = JSON::Value::ofString(GetParam().text);
  EXPECT_EQ(isCodexSuggestion(&value), GetParam().isSuggestion);
}
INSTANTIATE_TEST_SUITE_P(AgentNotification, Suggestion, testing::ValuesIn(suggestionCases), named);

TEST(AgentNotification, onlyATextIsASuggestion) {
  EXPECT_FALSE(isCodexSuggestion(&Read(R"({"suggestions":[]})").value()));
  for (const std::string& json : everyType) EXPECT_FALSE(isCodexSuggestion(&Read(json).value()));
}

// Folders

TEST(AgentNotification, aWorkingFolderIsAbsoluteAndOnOneLine) {
  for (const char* path : {"/", "/a", "/a b/", "//", "/é", "/../.", "/a\tb", "/\x7F", "/\u0084",
                           "/\u2027", "/\u202A"}) {
    EXPECT_TRUE(validFolder(path)) << path;
  }
  EXPECT_FALSE(validFolder(std::string_view("/a\0b", 4)));
  EXPECT_FALSE(validFolder(std::string_view("/\0", 2)));
  for (const char* path : {"", "a", "~", "./a", " /a", "/a\n", "/\n", "/a\vb", "/a\fb", "/a\rb",
                           "/a\r\nb", "/a\u0085b", "/a\u2028b", "/a\u2029b"}) {
    EXPECT_FALSE(validFolder(path)) << path;
  }
}

// Approvals

struct ApprovalCase {
  const char* name;
  std::string input;
  std::string message;
};
const ApprovalCase approvalCases[] = {
    {"nothing", "{}", "Needs your approval"},
    {"aTool", R"({"tool_name":"Bash"})", "Needs your approval for Bash"},
    {"aToolWithAnEmptyName", R"({"tool_name":""})", "Needs your approval for "},
    {"aToolThatIsNoText", R"({"tool_name":["Bash"]})", "Needs your approval"},
    {"aCommand", R"({"tool_name":"Bash","tool_input":{"command":"make test"}})",
     "Needs your approval: make test"},
    {"aCommandWithoutATool", R"({"tool_input":{"command":"make"}})", "Needs your approval: make"},
    {"aCommandOfSeveralLines", R"({"tool_input":{"command":" make \\\n\ttest\n"}})",
     "Needs your approval: make \\ test"},
    {"aCommandKeepsItsMarks", R"({"tool_input":{"command":"# **a**"}})",
     "Needs your approval: # **a**"},
    {"aCommandOf120Characters", R"({"tool_input":{"command":")" + repeated(120, "x") + "\"}}",
     "Needs your approval: " + repeated(120, "x")},
    {"aCommandOf121Characters", R"({"tool_input":{"command":")" + repeated(121, "x") + "\"}}",
     "Needs your approval: " + cut},
    {"aBlankCommand", R"({"tool_name":"Bash","tool_input":{"command":" \n"}})",
     "Needs your approval for Bash"},
    {"anEmptyCommand", R"({"tool_input":{"command":""}})", "Needs your approval"},
    {"words", R"({"tool_input":{"command":["git","status"]}})", "Needs your approval: git status"},
    {"oneWord", R"({"tool_input":{"command":["make"]}})", "Needs your approval: make"},
    {"wordsWithWhiteSpace", R"({"tool_input":{"command":[" a\nb ","","\t","c"]}})",
     "Needs your approval: a b c"},
    {"noWords", R"({"tool_name":"Bash","tool_input":{"command":[]}})",
     "Needs your approval for Bash"},
    {"blankWords", R"({"tool_name":"Bash","tool_input":{"command":[""," "]}})",
     "Needs your approval for Bash"},
    {"aWordThatIsNoText", R"({"tool_name":"Bash","tool_input":{"command":["git",1]}})",
     "Needs your approval for Bash"},
    {"aLateWordThatIsNoText",
     R"({"tool_name":"Bash","tool_input":{"command":[)" + repeated(200, "\"a\",") + "null]}}",
     "Needs your approval for Bash"},
    {"wordsOf120Characters",
     R"({"tool_input":{"command":[)" + repeated(59, "\"a\",") + "\"\",\"bb\"]}}",
     "Needs your approval: " + repeated(59, "a ") + "bb"},
    {"wordsOf121Characters",
     R"({"tool_input":{"command":[)" + repeated(59, "\"a\",") + "\" \",\"bbb\"]}}",
     "Needs your approval: " + repeated(59, "a ") + "b…"},
    {"manyWords", R"({"tool_input":{"command":[)" + repeated(100'000, "\"a\",") + "\"b\"]}}",
     "Needs your approval: " + repeated(59, "a ") + "a…"},
    {"aLongWordAmongOthers",
     R"({"tool_input":{"command":["a",")" + repeated(100'000, "x") + "\",\"b\"]}}",
     "Needs your approval: a " + repeated(117, "x") + "…"},
    {"manyBlankWordsBeforeOne",
     R"({"tool_input":{"command":[)" + repeated(100'000, "\" \",") + "\"b\"]}}",
     "Needs your approval: b"},
    {"accentsAsWords", R"({"tool_input":{"command":[)" + repeated(200, "\"\u0301\",") + "\"b\"]}}",
     "Needs your approval: \u0301" + repeated(118, " \u0301") + "…"},
    // The number sign joins the space behind it, the accents those before them.
    {"wordsThatShareTheirCharacters",
     R"({"tool_input":{"command":["\u0600",)" + repeated(120, "\"\u0301\",") + "\"b\"]}}",
     "Needs your approval: \u0600" + repeated(119, " \u0301") + "…"},
    {"aCommandThatIsANumber", R"({"tool_name":"Bash","tool_input":{"command":1}})",
     "Needs your approval for Bash"},
    {"aCommandThatIsAnObject", R"({"tool_name":"Bash","tool_input":{"command":{"a":"b"}}})",
     "Needs your approval for Bash"},
    {"anInputThatIsNoObject", R"({"tool_name":"Bash","tool_input":["make"]})",
     "Needs your approval for Bash"},
    {"aCommandBesideTheInput", R"({"tool_name":"Bash","command":"make"})",
     "Needs your approval for Bash"},
    {"charsAreNoCommand", R"({"tool_name":"write_stdin","tool_input":{"chars":"a"}})",
     "Needs your approval for write_stdin"},
};
class Approval : public testing::TestWithParam<ApprovalCase> {};
TEST_P(Approval, namesTheCommandOrTheTool) {
  EXPECT_EQ(approval(Read(GetParam().input).value()), GetParam().message);
}
INSTANTIATE_TEST_SUITE_P(AgentNotification, Approval, testing::ValuesIn(approvalCases), named);

// Events

struct EventCase {
  const char* name;
  std::string input;
  std::optional<Event> event;
};

/// The event of a hook input, given as bytes; absent when they are no JSON.
std::optional<Event> eventOf(Agent agent, std::string bytes, const AutoReviewed& autoReviewed) {
  const auto document = JSON::Document::parse(bytes);
  if (!document) return std::nullopt;
  return event(agent, document->root(),
               {.homeFolder = [] { return "/home/user"; }, .autoReviewed = autoReviewed});
}

bool neverReviewed(const std::string&) { return false; }

std::optional<Event> eventOf(Agent agent, std::string bytes) {
  return eventOf(agent, std::move(bytes), neverReviewed);
}

const std::string place = R"("cwd":"/home/user/project","session_id":"session-1")";

/// Input of Claude or Codex with a folder and a session.
std::string input(std::string_view event, std::string_view more = "") {
  std::string text = R"({"hook_event_name":")" + std::string(event) + "\"," + place;
  if (!more.empty()) text.append(",").append(more);
  return text + "}";
}

Event mark(AttentionKind kind, std::optional<std::string> message = {}) {
  return {.kind = kind,
          .cwd = "/home/user/project",
          .message = std::move(message),
          .session = "session-1"};
}
Event done(std::optional<std::string> message = {}) {
  return mark(AttentionKind::done, std::move(message));
}
Event needsInput(std::optional<std::string> message = {}) {
  return mark(AttentionKind::needsInput, std::move(message));
}

std::string notification(std::string_view type) {
  return input("Notification", R"("message":"Look","notification_type":)" + std::string(type));
}

const EventCase claudeCases[] = {
    {"aStop", input("Stop", R"("last_assistant_message":"All **done**.")"), done("All done.")},
    {"aStopWithoutAMessage", input("Stop"), done()},
    {"aStopWithANullMessage", input("Stop", R"("last_assistant_message":null)"), done()},
    {"aStopWithAListAsMessage", input("Stop", R"("last_assistant_message":["a"])"), done()},
    {"aStopWithAnEmptyMessage", input("Stop", R"("last_assistant_message":"")"), done()},
    {"aStopOnAHeading", input("Stop", R"("last_assistant_message":"# Title")"), done("Title")},
    {"aStopOf120Characters",
     input("Stop", R"("last_assistant_message":")" + repeated(120, "x") + '"'),
     done(repeated(120, "x"))},
    {"aStopOf130Characters",
     input("Stop", R"("last_assistant_message":")" + repeated(130, "x") + '"'), done(cut)},
    {"aStopOfAnotherSession",
     input("Stop", R"("last_assistant_message":"<cross-session-message from=\"a > b\">\n)"
                   R"(Hello **there**\n</cross-session-message>")"),
     done("Hello there")},
    {"aStopWithAnUnfinishedTag",
     input("Stop", R"("last_assistant_message":"<cross-session-message a=\"")"), done()},
    {"aStopWithSuggestions", input("Stop", R"("last_assistant_message":"{\"suggestions\":[]}")"),
     done(R"({"suggestions":[]})")},
    {"aStopHasNoCall", input("Stop", R"("tool_name":"Bash","tool_input":{"command":"a"})"), done()},
    {"aStopDoesNotLookAtMessage", input("Stop", R"("message":"a")"), done()},
    {"aNotification", input("Notification", R"("message":"Look **here**")"),
     needsInput("Look here")},
    {"aNotificationWithoutAMessage", input("Notification"), needsInput()},
    {"aNotificationOfAnotherSession",
     input("Notification", R"("message":"<cross-session-message>a</cross-session-message>")"),
     needsInput("a")},
    {"aNotificationWithAnotherMessage", input("Notification", R"("last_assistant_message":"a")"),
     needsInput()},
    {"aPermissionPrompt", notification(R"("permission_prompt")"), needsInput("Look")},
    {"anIdlePrompt", notification(R"("idle_prompt")"), needsInput("Look")},
    {"anElicitation", notification(R"("elicitation_dialog")"), needsInput("Look")},
    {"anElicitationByURL", notification(R"("elicitation_url_dialog")"), needsInput("Look")},
    {"anAgentThatNeedsInput", notification(R"("agent_needs_input")"), needsInput("Look")},
    {"anAgentThatCompleted", notification(R"("agent_completed")"), done("Look")},
    {"anAuthentication", notification(R"("auth_success")"), std::nullopt},
    {"anAnsweredElicitation", notification(R"("elicitation_response")"), std::nullopt},
    {"anEmptyType", notification(R"("")"), std::nullopt},
    {"aTypeInCapitals", notification(R"("Idle_prompt")"), std::nullopt},
    {"aTypeWithABlank", notification(R"("idle_prompt ")"), std::nullopt},
    {"aTypeThatIsNull", notification("null"), needsInput("Look")},
    {"aTypeThatIsANumber", notification("1"), needsInput("Look")},
    {"aTypeThatIsAList", notification(R"(["auth_success"])"), needsInput("Look")},
    {"theFolderAsItIs", R"({"hook_event_name":"Stop","cwd":"relative\npath"})",
     Event{.kind = AttentionKind::done, .cwd = "relative\npath"}},
    {"anEmptyFolder", R"({"hook_event_name":"Stop","cwd":""})",
     Event{.kind = AttentionKind::done, .cwd = ""}},
    {"noFolder", R"({"hook_event_name":"Stop"})", Event{.kind = AttentionKind::done}},
    {"aFolderThatIsNoText", R"({"hook_event_name":"Stop","cwd":1})",
     Event{.kind = AttentionKind::done}},
    {"aSessionWithADot", R"({"hook_event_name":"Stop","session_id":"a.b"})",
     Event{.kind = AttentionKind::done}},
    {"aSessionOf128Characters",
     R"({"hook_event_name":"Stop","session_id":")" + repeated(128, "x") + "\"}",
     Event{.kind = AttentionKind::done, .session = repeated(128, "x")}},
    {"aSessionOf129Characters",
     R"({"hook_event_name":"Stop","session_id":")" + repeated(129, "x") + "\"}",
     Event{.kind = AttentionKind::done}},
    {"cursorsSession", R"({"hook_event_name":"Stop","conversation_id":"a"})",
     Event{.kind = AttentionKind::done}},
    {"anUnknownEvent", input("SubagentStop"), std::nullopt},
    {"progress", input("PostToolUse"), std::nullopt},
    {"aPrompt", input("UserPromptSubmit"), std::nullopt},
    {"anEndOfASession", input("SessionEnd"), std::nullopt},
    {"cursorsStop", input("stop", R"("status":"completed","workspace_roots":["/a"])"),
     std::nullopt},
    {"aNameWithABlank", input("Stop "), std::nullopt},
    {"anEmptyName", input(""), std::nullopt},
    {"noName", "{" + place + "}", std::nullopt},
};
class ClaudeEvent : public testing::TestWithParam<EventCase> {};
TEST_P(ClaudeEvent, isAMark) {
  EXPECT_EQ(eventOf(Agent::claude, GetParam().input), GetParam().event);
}
INSTANTIATE_TEST_SUITE_P(AgentNotification, ClaudeEvent, testing::ValuesIn(claudeCases), named);

const EventCase codexCases[] = {
    {"aStop", input("Stop", R"("last_assistant_message":"All **done**.\n")"), done("All done.")},
    {"aStopWithoutAMessage", input("Stop"), done()},
    {"aStopWithANullMessage", input("Stop", R"("last_assistant_message":null)"), done()},
    {"aStopWithAnObjectAsMessage", input("Stop", R"("last_assistant_message":{"suggestions":[]})"),
     done()},
    {"suggestions", input("Stop", R"("last_assistant_message":"{\"suggestions\": []}")"),
     std::nullopt},
    {"aSuggestion", input("Stop", R"("last_assistant_message":"{\"suggestion\":\"a\"}")"),
     std::nullopt},
    {"suggestionsAndMore",
     input("Stop", R"("last_assistant_message":"{\"suggestions\":[],\"a\":1}")"),
     done(R"({"suggestions":[],"a":1})")},
    {"aMessageOfAnotherSession",
     input("Stop",
           R"("last_assistant_message":"<cross-session-message>a</cross-session-message>")"),
     done("<cross-session-message>a</cross-session-message>")},
    {"aReplyToAQuestion",
     input("Stop", R"("last_assistant_message":"<send_user_message_question_reply>")"),
     done("<send_user_message_question_reply>")},
    {"aNotification", input("Notification", R"("message":"Look")"), std::nullopt},
    {"noFolder", R"({"hook_event_name":"Stop","session_id":"a"})",
     Event{.kind = AttentionKind::done, .session = "a"}},
    {"anUnknownEvent", input("Interrupt"), std::nullopt},
    {"progress", input("PostToolUse"), std::nullopt},
    {"cursorsStop", input("stop", R"("status":"completed","workspace_roots":["/a"])"),
     std::nullopt},
    {"noName", "{" + place + "}", std::nullopt},
};
class CodexEvent : public testing::TestWithParam<EventCase> {};
TEST_P(CodexEvent, isAMark) {
  EXPECT_EQ(eventOf(Agent::codex, GetParam().input), GetParam().event);
}
INSTANTIATE_TEST_SUITE_P(AgentNotification, CodexEvent, testing::ValuesIn(codexCases), named);

std::string stop(std::string_view status, std::string_view more = "") {
  return R"({"hook_event_name":"stop","workspace_roots":["/home/user/project"],)"
         R"("conversation_id":"session-1")" +
         (status.empty() ? std::string() : R"(,"status":)" + std::string(status)) +
         std::string(more) + "}";
}
std::string stopIn(std::string_view roots) {
  return R"({"hook_event_name":"stop","conversation_id":"session-1","status":"completed")" +
         (roots.empty() ? std::string() : R"(,"workspace_roots":)" + std::string(roots)) + "}";
}

const EventCase cursorCases[] = {
    {"completed", stop(R"("completed")"), done()},
    {"anError", stop(R"("error")"), needsInput("Stopped with an error")},
    {"aborted", stop(R"("aborted")"), std::nullopt},
    {"anotherStatus", stop(R"("done")"), std::nullopt},
    {"completedInCapitals", stop(R"("Completed")"), std::nullopt},
    {"anEmptyStatus", stop(R"("")"), std::nullopt},
    {"noStatus", stop(""), std::nullopt},
    {"aStatusThatIsNull", stop("null"), std::nullopt},
    {"aStatusThatIsAList", stop(R"(["completed"])"), std::nullopt},
    {"itsMessageIsNotShown", stop(R"("completed")", R"(,"last_assistant_message":"a")"), done()},
    {"aSubAgent", stop(R"("completed")", R"(,"parent_tool_call_id":"a")"), done()},
    {"theFirstWorkingFolder", stopIn(R"(["","rel","/a\nb",null,["/x"],"/home/user/project","/y"])"),
     done()},
    {"noRoots", stopIn(""), std::nullopt},
    {"emptyRoots", stopIn("[]"), std::nullopt},
    {"relativeRoots", stopIn(R"(["a","./b"])"), std::nullopt},
    {"aRootWithANul", stopIn(R"(["/a\u0000"])"), std::nullopt},
    {"rootsThatAreAText", stopIn(R"("/home/user/project")"), std::nullopt},
    {"rootsThatAreAnObject", stopIn(R"({"a":"/home"})"), std::nullopt},
    {"aFolderInstead", R"({"hook_event_name":"stop","cwd":"/a","status":"completed"})",
     std::nullopt},
    {"noSession", R"({"hook_event_name":"stop","workspace_roots":["/a"],"status":"completed"})",
     Event{.kind = AttentionKind::done, .cwd = "/a"}},
    {"claudesSession",
     R"({"hook_event_name":"stop","workspace_roots":["/a"],"status":"error","session_id":"s"})",
     Event{.kind = AttentionKind::needsInput, .cwd = "/a", .message = "Stopped with an error"}},
    {"aSessionWithABlank",
     R"({"hook_event_name":"stop","workspace_roots":["/a"],"status":"completed",)"
     R"("conversation_id":"a b"})",
     Event{.kind = AttentionKind::done, .cwd = "/a"}},
    {"claudesStop", R"({"hook_event_name":"Stop","workspace_roots":["/a"],"status":"completed"})",
     std::nullopt},
    {"aPermissionRequest",
     R"({"hook_event_name":"PermissionRequest","workspace_roots":["/a"],"tool_name":"Bash"})",
     std::nullopt},
    {"noName", R"({"workspace_roots":["/a"],"status":"completed"})", std::nullopt},
};
class CursorEvent : public testing::TestWithParam<EventCase> {};
TEST_P(CursorEvent, isAMark) {
  EXPECT_EQ(eventOf(Agent::cursor, GetParam().input), GetParam().event);
}
INSTANTIATE_TEST_SUITE_P(AgentNotification, CursorEvent, testing::ValuesIn(cursorCases), named);

TEST(AgentNotification, whatIsNoHookInputIsNoEvent) {
  for (const std::string& bytes :
       {std::string(), std::string(" "), std::string("{"), std::string("stop"),
        std::string(R"([{"hook_event_name":"Stop"}])"),
        std::string(R"({"hook_event_name":"Stop"} x)"),
        std::string("{\"hook_event_name\":\"Stop\",\"cwd\":\"\xFF\"}"), repeated(100'000, "["),
        repeated(100'000, "{\"hook_event_name\":")}) {
    EXPECT_FALSE(eventOf(Agent::claude, bytes)) << bytes.substr(0, 50);
    EXPECT_FALSE(eventOf(Agent::codex, bytes)) << bytes.substr(0, 50);
    EXPECT_FALSE(eventOf(Agent::cursor, bytes)) << bytes.substr(0, 50);
  }
  for (const std::string& value : everyType) {
    const std::string event = R"({"workspace_roots":["/a"],"hook_event_name":)" + value + "}";
    for (const std::string& bytes : {value, event}) {
      EXPECT_FALSE(eventOf(Agent::claude, bytes)) << bytes;
      EXPECT_FALSE(eventOf(Agent::codex, bytes)) << bytes;
      EXPECT_FALSE(eventOf(Agent::cursor, bytes)) << bytes;
    }
  }
}

TEST(AgentNotification, everyAgentsInputIsReadByItsOwnFunction) {
  const Surroundings surroundings{.autoReviewed = neverReviewed};
  for (const auto& row : claudeCases) {
    EXPECT_EQ(claude(Read(row.input).value(), surroundings), row.event) << row.name;
  }
  for (const auto& row : codexCases) {
    EXPECT_EQ(codex(Read(row.input).value(), surroundings), row.event) << row.name;
  }
  for (const auto& row : cursorCases) {
    EXPECT_EQ(cursor(Read(row.input).value()), row.event) << row.name;
  }
}

TEST(AgentNotification, whatTheProcessDoesNotLendCountsAsNothing) {
  const std::string request = input("PermissionRequest", R"("transcript_path":"/a")");
  EXPECT_EQ(event(Agent::codex, Read(request).value(), {}), eventOf(Agent::codex, request));
  for (const Agent agent : allAgents) EXPECT_FALSE(event(agent, Read("{}").value(), {}));
}

// Permission requests

struct RequestCase {
  const char* name;
  std::string members;  ///< Of the hook input, beside the event, the folder and the session.
  std::string message;
};
const RequestCase requestCases[] = {
    {"aCommand", R"("tool_name":"Bash","tool_input":{"command":"make\ntest"})",
     "Needs your approval: make test"},
    {"aCommandOfWords", R"("tool_name":"Bash","tool_input":{"command":["git","status"]})",
     "Needs your approval: git status"},
    {"aBlankCommand", R"("tool_name":"Bash","tool_input":{"command":" "})",
     "Needs your approval for Bash"},
    {"aCommandWithoutInput", R"("tool_name":"Bash")", "Needs your approval for Bash"},
    {"whatIsTyped", R"("tool_name":"write_stdin","tool_input":{"chars":"y\n"})",
     "Needs your approval for write_stdin"},
    {"anEdit", R"("tool_name":"Edit","tool_input":{"file_path":"/home/user/project/src/a.c"})",
     "Needs your approval: Edit a.c"},
    {"anEditWithoutAPath", R"("tool_name":"Edit","tool_input":{"old_string":"a"})",
     "Needs your approval for Edit"},
    {"severalEdits", R"("tool_name":"MultiEdit","tool_input":{"file_path":"/a.c","edits":[]})",
     "Needs your approval: Edit a.c"},
    {"aNotebook", R"("tool_name":"NotebookEdit","tool_input":{"notebook_path":"/n.ipynb"})",
     "Needs your approval: Edit n.ipynb"},
    {"aWrite", R"("tool_name":"Write","tool_input":{"file_path":"/b.c","content":"x"})",
     "Needs your approval: Write b.c"},
    {"aPatch",
     R"("tool_name":"apply_patch","tool_input":{"command":"*** Update File: a.c\n-x\n+y"})",
     "Needs your approval: Edit a.c"},
    {"aPatchOfNothing", R"("tool_name":"apply_patch","tool_input":{"command":"x"})",
     "Needs your approval: x"},
    {"aFetch", R"("tool_name":"WebFetch","tool_input":{"url":"https://example.org/a/"})",
     "Needs your approval: Fetch example.org/a"},
    {"aSearchOnTwoLines", R"("tool_name":"WebSearch","tool_input":{"query":"a\nb"})",
     "Needs your approval: Search a\nb"},
    {"aSearch", R"("tool_name":"WebSearch","tool_input":{"query":"c++ json"})",
     "Needs your approval: Search c++ json"},
    {"anotherTool", R"("tool_name":"mcp__files__read","tool_input":{"a":1})",
     "Needs your approval: Use files · read"},
    {"anotherToolWithACommand", R"("tool_name":"Deploy","tool_input":{"command":"now"})",
     "Needs your approval: Use Deploy"},
    {"aLongSubject",
     R"("tool_name":"WebSearch","tool_input":{"query":")" + repeated(400, "x") + "\"}",
     "Needs your approval: Search " + repeated(400, "x")},
    {"aLongerSubject",
     R"("tool_name":"WebSearch","tool_input":{"query":")" + repeated(401, "x") + "\"}",
     "Needs your approval: Search " + repeated(400, "x") + "…"},
    {"questions",
     R"("tool_name":"AskUserQuestion","tool_input":{"questions":[{"question":"Which?",)"
     R"("options":[{"label":"A"}]}]})",
     "Asks you a question"},
    {"questionsThatCannotBeRead", R"("tool_name":"AskUserQuestion","tool_input":{})",
     "Asks you a question"},
    {"aPlan", R"("tool_name":"ExitPlanMode","tool_input":{"plan":"1. Do"})",
     "Waits for you to approve its plan"},
    {"aPlanWithoutText", R"("tool_name":"ExitPlanMode")", "Waits for you to approve its plan"},
    {"planning", R"("tool_name":"EnterPlanMode","tool_input":{})",
     "Needs your approval for EnterPlanMode"},
    {"otherCase", R"("tool_name":"exitPlanMode","tool_input":{"plan":"a"})",
     "Needs your approval: Use exitPlanMode"},
    {"noTool", R"("tool_input":{"command":"make"})", "Needs your approval: make"},
    {"anEmptyTool", R"("tool_name":"","tool_input":{})", "Needs your approval for "},
    {"neitherToolNorInput", R"("a":1)", "Needs your approval"},
    {"aToolThatIsNoText", R"("tool_name":1,"tool_input":{"command":"make"})",
     "Needs your approval: make"},
    {"anInputThatIsNoObject", R"("tool_name":"Edit","tool_input":[{"file_path":"/a"}])",
     "Needs your approval for Edit"},
};
class Request : public testing::TestWithParam<RequestCase> {
 protected:
  Request() : bytes_(input("PermissionRequest", GetParam().members)), input_(bytes_) {}

  std::string_view tool() const { return input_.value().string("tool_name").value_or(""); }
  const JSON::Value& toolInput() const {
    const JSON::Value* given = input_.value().object("tool_input");
    return given == nullptr ? nothing_ : *given;
  }
  void expectEvent(const std::optional<Event>& event, const std::string& message,
                   const std::optional<AgentPermission>& card) const {
    Event expected = needsInput(message);
    expected.permission = card;
    expected.toolCall = AgentPermission::fingerprint(tool(), &toolInput());
    EXPECT_TRUE(expected.toolCall);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->message, expected.message);
    EXPECT_EQ(event, expected);
  }

  const std::string bytes_;
  const Read input_;
  const JSON::Value nothing_ = JSON::Value::ofObject({});
  const AgentPermission::Folders folders_{.cwd = "/home/user/project", .home = "/home/user"};
};
TEST_P(Request, ofClaudeHasItsMessageCardAndCall) {
  const auto card = tool() == "AskUserQuestion" ? AgentPermission::question(toolInput(), folders_)
                    : tool() == "ExitPlanMode"
                        ? AgentPermission::plan(toolInput(), folders_)
                        : AgentPermission::parse(tool(), toolInput(), folders_);
  expectEvent(eventOf(Agent::claude, bytes_), GetParam().message, card);
}
TEST_P(Request, ofCodexHasTheOrdinaryCard) {
  expectEvent(eventOf(Agent::codex, bytes_), GetParam().message,
              AgentPermission::parse(tool(), toolInput(), folders_));
}
INSTANTIATE_TEST_SUITE_P(AgentNotification, Request, testing::ValuesIn(requestCases), named);

TEST(AgentNotification, questionsAndPlansHaveCardsFromClaudeOnly) {
  const std::string question =
      input("PermissionRequest",
            R"("tool_name":"AskUserQuestion","tool_input":{"questions":[{"question":"Which?",)"
            R"("options":[{"label":"A"}]}]})");
  const std::string plan =
      input("PermissionRequest", R"("tool_name":"ExitPlanMode","tool_input":{"plan":"1. Do"})");
  ASSERT_TRUE(eventOf(Agent::claude, question)->permission);
  EXPECT_EQ(eventOf(Agent::claude, question)->permission->action, AgentPermission::Action::ask);
  ASSERT_TRUE(eventOf(Agent::claude, plan)->permission);
  EXPECT_EQ(eventOf(Agent::claude, plan)->permission->action, AgentPermission::Action::plan);
  EXPECT_FALSE(eventOf(Agent::codex, question)->permission);
  EXPECT_FALSE(eventOf(Agent::codex, plan)->permission);
}

TEST(AgentNotification, aRequestWithoutAFolderHasACardWithoutOne) {
  const auto event =
      eventOf(Agent::claude, R"({"hook_event_name":"PermissionRequest","tool_name":"Bash",)"
                             R"("tool_input":{"command":"make"}})");
  ASSERT_TRUE(event && event->permission);
  EXPECT_EQ(event->cwd, std::nullopt);
  EXPECT_EQ(event->session, std::nullopt);
  EXPECT_EQ(event->permission->folder, std::nullopt);
}

TEST(AgentNotification, aMissingInputHasTheFingerprintOfAnEmptyOne) {
  const std::string empty = input("PermissionRequest", R"("tool_name":"Bash","tool_input":{})");
  const std::string missing = input("PermissionRequest", R"("tool_name":"Bash")");
  const std::string nameless = input("PermissionRequest");
  // 64-bit FNV-1a of "Bash", a zero byte and {}; of a zero byte and {}.
  EXPECT_EQ(eventOf(Agent::claude, empty)->toolCall, "62e942a48133044d");
  EXPECT_EQ(eventOf(Agent::claude, missing)->toolCall, "62e942a48133044d");
  EXPECT_EQ(eventOf(Agent::claude, nameless)->toolCall, "d884b5186b651423");
}

TEST(AgentNotification, aCardShowsTheHomeFolderThatIsLent) {
  const Read request(
      input("PermissionRequest", R"("tool_name":"Bash","tool_input":{"command":"make"})"));
  const auto folderAtHome = [&](std::optional<std::string> home) {
    return claude(request.value(), {.homeFolder = [home] { return home; }})->permission->folder;
  };
  EXPECT_EQ(folderAtHome("/home/user"), "~/project");
  EXPECT_EQ(folderAtHome("/home/user/project"), "~");
  EXPECT_EQ(folderAtHome("/home/other"), "/home/user/project");
  EXPECT_EQ(folderAtHome(std::nullopt), "/home/user/project");
  EXPECT_EQ(claude(request.value(), {})->permission->folder, "/home/user/project");
}

TEST(AgentNotification, onlyACardAsksForTheHomeFolder) {
  int asked = 0;
  const Surroundings surroundings{.homeFolder = [&asked] {
    ++asked;
    return std::optional<std::string>();
  }};
  claude(Read(input("Stop")).value(), surroundings);
  codex(Read(input("Stop")).value(), surroundings);
  claude(Read(input("Notification")).value(), surroundings);
  EXPECT_EQ(asked, 0);
  claude(Read(input("PermissionRequest")).value(), surroundings);
  codex(Read(input("PermissionRequest")).value(), surroundings);
  EXPECT_EQ(asked, 2);
}

// Automatic review

struct ReviewCase {
  const char* name;
  std::string input;
  std::vector<std::string> asked;  ///< The paths that are asked for.
};
const ReviewCase reviewCases[] = {
    {"aRequest", input("PermissionRequest", R"("transcript_path":"/a/b.jsonl")"), {"/a/b.jsonl"}},
    {"anEmptyPath", input("PermissionRequest", R"("transcript_path":"")"), {""}},
    {"noPath", input("PermissionRequest"), {}},
    {"aPathThatIsNull", input("PermissionRequest", R"("transcript_path":null)"), {}},
    {"aPathThatIsAList", input("PermissionRequest", R"("transcript_path":["/a"])"), {}},
    {"aStop", input("Stop", R"("transcript_path":"/a")"), {}},
    {"anotherEvent", input("PostToolUse", R"("transcript_path":"/a")"), {}},
    {"noEvent", R"({"transcript_path":"/a"})", {}},
};
class Review : public testing::TestWithParam<ReviewCase> {};
TEST_P(Review, isAskedForTheTranscriptOfARequest) {
  for (const bool reviewed : {true, false}) {
    std::vector<std::string> asked;
    const auto event =
        eventOf(Agent::codex, GetParam().input, [&asked, reviewed](const std::string& path) {
          asked.push_back(path);
          return reviewed;
        });
    EXPECT_EQ(asked, GetParam().asked);
    if (reviewed && !asked.empty()) {
      EXPECT_EQ(event, std::nullopt);
    } else {
      EXPECT_EQ(event, eventOf(Agent::codex, GetParam().input));
    }
  }
}
INSTANTIATE_TEST_SUITE_P(AgentNotification, Review, testing::ValuesIn(reviewCases), named);

}  // namespace
}  // namespace CorvaneControl::AgentNotification
