#include "CorvaneControl/Platform/Markdown.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <new>
#include <string>
#include <string_view>

#include <sys/resource.h>

#include "Support/Repeated.h"
#include "Support/SystemUnderTest.h"

namespace {

using CorvaneControl::Markdown::plainText;
using CorvaneTests::repeated;

struct MarkdownCase {
  const char* name;
  std::string line;
  std::string plain;
};
const auto named = [](const auto& row) { return std::string(row.param.name); };

const MarkdownCase inlineCases[] = {
    {"nothing", "", ""},
    {"plainText", "just words", "just words"},
    {"plainTextBeyondASCII", "d\u00E9j\u00E0 vu \U0001F600", "d\u00E9j\u00E0 vu \U0001F600"},

    {"emphasisByStars", "a *b* c", "a b c"},
    {"emphasisByLowLines", "a _b_ c", "a b c"},
    {"emphasisAtTheStart", "*a* b", "a b"},
    {"emphasisOfEverything", "*a b*", "a b"},
    {"emphasisWithinAWord", "un*frigging*believable", "unfriggingbelievable"},
    {"noEmphasisByLowLinesWithinAWord", "snake_case_name", "snake_case_name"},
    {"strong", "**a** and __b__", "a and b"},
    {"strongAndEmphasis", "***a***", "a"},
    {"strongWithinEmphasis", "*a **b** c*", "a b c"},
    {"starsBetweenSpaces", "2 * 3 * 4", "2 * 3 * 4"},
    {"aLoneStar", "*", "*"},
    {"aStarThatOpensNothing", "*a b", "*a b"},
    {"starsThatDoNotMatch", "**a*", "*a"},
    {"emptyStrong", "****", "****"},
    {"starBeforePunctuation", "a*\"b\"*", "a*\"b\"*"},
    {"patternInFileNames", "**n_*.json:** x", "n_*.json: x"},

    {"codeSpan", "run `ls -l` now", "run ls -l now"},
    {"codeSpanWithABacktick", "`` a`b ``", "a`b"},
    {"codeSpanKeepsItsMarks", "`*a*` and `[b](c)`", "*a* and [b](c)"},
    {"codeSpanKeepsBackslashes", "`a\\*b`", "a\\*b"},
    {"codeSpanKeepsEntities", "`&amp;`", "&amp;"},
    {"codeSpanLosesOneSpaceAtEachEnd", "`  a  `", " a "},
    {"codeSpanOfSpacesOnly", "`   `", "   "},
    {"codeSpanThatDoesNotEnd", "`a b", "`a b"},
    {"codeSpanOfOtherLength", "``a`", "``a`"},
    {"codeSpanBindsBeforeEmphasis", "*a`*`", "*a*"},

    {"link", "see [the page](https://example.org/a) now", "see the page now"},
    {"linkWithATitle", "[a](b \"c\")", "a"},
    {"linkWithAPointedAddress", "[a](<b c>)", "a"},
    {"linkWithNothing", "[]()", ""},
    {"linkWithEmphasis", "[a *b* `c`](d)", "a b c"},
    {"linkWithParentheses", "[a](b(c)d)", "a"},
    {"linkWithASpaceInItsAddress", "[a](b c)", "[a](b c)"},
    {"linkThatDoesNotEnd", "[a](b", "[a](b"},
    {"linkThatIsOnlyBrackets", "[a] [b][c]", "[a] [b][c]"},
    {"linkWithinALink", "[a [b](c) d](e)", "[a b d](e)"},
    {"taskBrackets", "[ ] a [x] b", "[ ] a [x] b"},
    {"image", "an ![alternative text](i.png) here", "an alternative text here"},
    {"imageWithEmphasis", "![a *b*](c \"d\")", "a b"},
    {"imageWithoutText", "a![](b)c", "ac"},
    {"imageInALink", "[![a](b)](c)", "a"},
    {"imageThatIsOnlyAMark", "wow![a]", "wow![a]"},
    {"autolink", "<https://example.org/?a=b&c>", "https://example.org/?a=b&c"},
    {"autolinkOfAnotherScheme", "<made-up:x>", "made-up:x"},
    {"autolinkOfAMailAddress", "to <me@example.org>", "to me@example.org"},
    {"autolinkKeepsBackslashes", "<https://a/\\[\\>", "https://a/\\[\\"},
    {"aBareAddressStays", "https://example.org/a_b_c*d*", "https://example.org/a_b_cd"},
    {"noAutolinkWithASpace", "<https://a b>", "<https://a b>"},
    {"noFootnote", "a[^1]", "a[^1]"},

    {"namedEntity", "a &amp; b &lt; &copy; &AElig;", "a & b < \u00A9 \u00C6"},
    {"numericEntities", "&#35; &#1234; &#x22; &#XD06;", "# \u04D2 \" \u0D06"},
    {"entityOfNul", "&#0;", "\uFFFD"},
    {"entityThatIsNone", "a&b; &nosuchthing; &#; &#xg;", "a&b; &nosuchthing; &#; &#xg;"},
    {"entityWithoutSemicolon", "&copy", "&copy"},
    {"entitiesAreNoMarks", "&#42;a&#42; &#91;a](b)", "*a* [a](b)"},
    {"entityOfALineFeed", "a&#10;b", "a\nb"},
    {"backslashEscapes", "\\*a\\* \\`b\\` \\[c\\] \\\\ \\< \\& \\~", "*a* `b` [c] \\ < & ~"},
    {"backslashBeforeLetters", "C:\\dir\\file", "C:\\dir\\file"},
    {"backslashBeforeASpace", "a\\ b", "a\\ b"},
    {"backslashAtTheEnd", "a\\", "a\\"},
    {"backslashBeforeTheSpacesThatEndIt", "a\\  ", "a\\  "},

    {"strikethrough", "a ~~b~~ c", "a b c"},
    {"strikethroughByOneTilde", "a ~b~ c", "a b c"},
    {"strikethroughWithEmphasis", "~~a *b*~~", "a b"},
    {"strikethroughOfThreeTildes", "~~~a~~~", "~~~a~~~"},
    {"tildesInPaths", "~/a and ~/b", "~/a and ~/b"},
    {"aLoneTilde", "about ~5 MB", "about ~5 MB"},

    {"rawTag", "a <b class=\"c\">d</b> e", "a <b class=\"c\">d</b> e"},
    {"rawTagKeepsItsMarks", "<a title='*b* &amp;'>*c*", "<a title='*b* &amp;'>c"},
    {"rawComment", "a <!-- *b* --> c", "a <!-- *b* --> c"},
    {"rawInstruction", "<?*a*?>", "<?*a*?>"},
    {"rawDeclaration", "<!DOCTYPE *a*>", "<!DOCTYPE *a*>"},
    {"rawCharacterData", "<![CDATA[*a*]]>", "<![CDATA[*a*]]>"},
    {"rawScript", "<script>*a*</script>", "<script>a</script>"},
    {"noTag", "a < b > c <3 <>", "a < b > c <3 <>"},
    {"typeParameters", "vector<int, *>", "vector<int, *>"},

    {"spacesInside", "a   *b*   c", "a   b   c"},
    {"spacesAtTheStart", "   *a*", "   a"},
    {"spacesAtTheEnd", "*a*  ", "a  "},
    {"tabs", "\t*a*\t\tb\t", "\ta\t\tb\t"},
    {"otherWhiteSpace", "\u3000*a*\u00A0\u2003", "\u3000a\u00A0\u2003"},
    {"formFeedAndVerticalTab", "\v*a*\f\v", "\va\f\v"},
    {"onlySpaces", "  \t ", "  \t "},
    {"noBreakSpacesAtTheStart", "\u00A0\u00A0*a*", "\u00A0\u00A0a"},
    {"byteOrderMark", "\uFEFF*a*", "\uFEFFa"},
    {"onlyANul", std::string("a\0b", 3), "a\uFFFDb"},
    {"onlyABackslash", "a\\!", "a!"},
    {"aNul", std::string("a\0*b*", 5), "a\uFFFDb"},
    {"smartPunctuationStays", "\"a\" -- 'b'... *c*", "\"a\" -- 'b'... c"},
    {"aLineFeedEndsTheReading", "*a*\n# *b*", "a\n# *b*"},
    {"aCarriageReturnDoesNotEndTheReading", "*a*\r- *b*", "a\r- b"},
    {"carriageReturnsInARow", "*a*\r\r\r*b*", "a\r\r\rb"},
    {"carriageReturnsAtTheEnds", "\r\r*a*\r \r", "\r\ra\r \r"},
    {"carriageReturnWithinEmphasis", "*a\rb*", "a\rb"},
    {"carriageReturnThatClosesNoEmphasis", "*a\r* b", "*a\r* b"},
    {"carriageReturnInACodeSpan", "`a\rb`", "a\rb"},
    {"carriageReturnBeforeALinksTitle", "[a](b\r\"c\") *d*", "a d"},
    {"carriageReturnInATag", "<a\rb='*c*'>*d*", "<a\rb='*c*'>d"},
    {"carriageReturnBehindABackslash", "a\\\r*b*", "a\\\rb"},
    {"carriageReturnBehindSpaces", "a  \r  *b*", "a  \r  b"},
    {"carriageReturnsBesideOtherWhiteSpace", "*a*\f\r\v\f\r\rb", "a\f\r\v\f\r\rb"},
    {"carriageReturnOfAnEntity", "a&#13;b", "a\rb"},
    {"carriageReturnBeforeABlock", "a\r# *b*\r===\r> c", "a\r# b\r===\r> c"},
    {"aLineFeedBehindACarriageReturnEndsTheReading", "*a*\r\n*b*", "a\r\n*b*"},
};

class MarkdownInline : public testing::TestWithParam<MarkdownCase> {};
TEST_P(MarkdownInline, isReadAsPlainCharacters) {
  EXPECT_EQ(plainText(GetParam().line), GetParam().plain);
}
INSTANTIATE_TEST_SUITE_P(Markdown, MarkdownInline, testing::ValuesIn(inlineCases), named);

// Each with emphasis behind it, so that the library is asked at all.
const MarkdownCase blockCases[] = {
    {"bulletByDash", "- *x*", "- x"},
    {"bulletByPlus", "+ *x*", "+ x"},
    {"bulletByStar", "* *x*", "* x"},
    {"heading", "# *x*", "# x"},
    {"headingWithClosingMarks", "## *x* ##", "## x ##"},
    {"quote", "> *x*", "> x"},
    {"numberedItem", "1. *x*", "1. x"},
    {"numberedItemByParenthesis", "2) *x*", "2) x"},
    {"ruleOfStars", "***", "***"},
    {"ruleOfSpacedStars", "* * *", "* * *"},
    {"ruleOfLowLines", "___", "___"},
    {"ruleOfDashes", "---", "---"},
    {"underlineOfEquals", "=== `x`", "=== x"},
    {"fenceOfBackticks", "```", "```"},
    {"fenceOfBackticksWithAWord", "```swift", "```swift"},
    {"fenceOfTildes", "~~~", "~~~"},
    {"fenceOfTildesWithAWord", "~~~ *x*", "~~~ x"},
    {"linkDefinition", "[a]: b", "[a]: b"},
    {"linkDefinitionWithATitle", "[a]: <b> \"c\"", "[a]: <b> \"c\""},
    {"footnoteDefinition", "[^1]: *x*", "[^1]: x"},
    {"tableRow", "| a | *b* |", "| a | b |"},
    {"tableRule", "| --- | :-: | `x`", "| --- | :-: | x"},
    {"codeByFourSpaces", "    *x*", "    x"},
    {"codeByATab", "\t*x*", "\tx"},
    {"blockTag", "<div>*x*", "<div>x"},
    {"blockComment", "<!-- x", "<!-- x"},
    {"frontMatter", "--- *x*", "--- x"},
};

class MarkdownBlock : public testing::TestWithParam<MarkdownCase> {};
TEST_P(MarkdownBlock, neverBegins) { EXPECT_EQ(plainText(GetParam().line), GetParam().plain); }
INSTANTIATE_TEST_SUITE_P(Markdown, MarkdownBlock, testing::ValuesIn(blockCases), named);

struct SettledCase {
  const char* name;
  std::string line;
  std::string settled;
};
const SettledCase settledCases[] = {
    {"noMarks", "a b", "a b"},
    {"nothing", "", ""},
    {"wholePairs", "*a* **b** `c` ~~d~~ [e](f) ![g](h) <ii:j>", "a b c d e g ii:j"},
    {"aMark", "a * b", "a "},
    {"aMarkAtTheStart", "*a b", ""},
    {"onlyWhatIsBeforeTheFirstMark", "*a* b [c *d* _e", "a b "},
    {"aMarkInAWord", "a b_c d", "a b"},
    {"theMarkOfAnImage", "a![b c", "a"},
    {"aMarkOfAnImageBehindAnother", "*a*![b c", "a"},
    {"exclamations", "a! *b*! !", "a! b! !"},
    {"aMarkWithinAPair", "a *b [c* d", "a "},
    {"aMarkDeepWithinPairs", "a **b *c `d* e** f", "a "},
    {"marksInCode", "a `*_[]<~` b", "a *_[]<~ b"},
    {"marksInATag", "a <b c='*'> d", "a <b c='*'> d"},
    {"anEscapedMark", "a \\* b", "a "},
    {"aBackslashAndAnEntityOfItsOwn", "a \\ & &amp; *b*", "a \\ & & b"},
    {"carriageReturns", "\r*a*\rb* c", "\ra\rb"},
    {"twoLines", "*a*\nb", "a"},
};
class MarkdownSettled : public testing::TestWithParam<SettledCase> {};
TEST_P(MarkdownSettled, endsWhereAMarkIsLeft) {
  const CorvaneControl::Markdown::Reading reading = CorvaneControl::Markdown::read(GetParam().line);
  EXPECT_EQ(reading.text.substr(0, reading.settled), GetParam().settled);
  EXPECT_EQ(reading.text, plainText(GetParam().line));
}
INSTANTIATE_TEST_SUITE_P(Markdown, MarkdownSettled, testing::ValuesIn(settledCases), named);

constexpr std::size_t limit = 32'768;

TEST(MarkdownLimit, readsUpTo32768Bytes) {
  const std::string filling = repeated("x", limit - 3);
  EXPECT_EQ(plainText(filling + "*y*"), filling + "y");
}

TEST(MarkdownLimit, appendsWhatFollowsAsItIs) {
  const std::string filling = repeated("x", limit - 3);
  EXPECT_EQ(plainText(filling + "*y**z*&amp;  "), filling + "y*z*&amp;  ");
  EXPECT_EQ(plainText(filling + "x*y*"), filling + "x*y*");  // the mark is beyond, its text stays
}

TEST(MarkdownLimit, cutsBetweenScalars) {
  const std::string filling = "*a*" + repeated("x", limit - 5);
  EXPECT_EQ(plainText(filling + "\u20AC&amp;"), "a" + repeated("x", limit - 5) + "\u20AC&amp;");
}

TEST(MarkdownLimit, cutsBetweenCharacters) {
  // The last star that would be read carries an accent that would not: one character, left alone.
  const std::string filling = "*a*" + repeated("x", limit - 6);
  EXPECT_EQ(plainText(filling + "*b*\u0301"), "a" + repeated("x", limit - 6) + "*b*\u0301");
  // One byte earlier, the limit falls within the accent.
  const std::string less = "*a*" + repeated("x", limit - 7);
  EXPECT_EQ(plainText(less + "*b*\u0301"), "a" + repeated("x", limit - 7) + "*b*\u0301");
  // A character that is longer than what is read leaves nothing to read.
  const std::string accents = repeated("\u0301", limit);
  EXPECT_EQ(plainText("*" + accents + "b* *c*"), "*" + accents + "b* *c*");
}

TEST(MarkdownLimit, keepsTheSpacesAtTheCut) {
  const std::string spaces = repeated(" ", limit);
  EXPECT_EQ(plainText("*a*" + spaces + "*b*"), "a" + spaces + "*b*");
}

struct HostileCase {
  const char* name;
  std::string_view piece;
};
const HostileCase hostileCases[] = {
    {"brackets", "["},
    {"closingBrackets", "]"},
    {"stars", "*"},
    {"lowLines", "_"},
    {"starsAndLowLines", "*_"},
    {"openingStars", " *a"},
    {"openingAndClosingStars", "*a **a "},
    {"backticks", "`"},
    {"pointedBrackets", "<"},
    {"images", "!["},
    {"instructions", "<?"},
    {"characterData", "<![CDATA["},
    {"declarations", "<!A"},
    {"comments", "<!--"},
    {"tags", "<a "},
    {"attributes", "<a b='"},
    {"tildes", "~"},
    {"tildesInPairs", " ~~a"},
    {"ampersands", "&"},
    {"entities", "&#x"},
    {"backslashes", "\\"},
    {"linksMixedWithEmphasis", "*a [b](c) _d "},
    {"linksWithoutEnd", "[a](b"},
    {"linksWithinLinks", "[a](<b"},
    {"parentheses", "[a]("},
    {"references", "[a][b]"},
    {"mixedMarks", "*_`[~!<&\\"},
    {"nuls", std::string_view("\0", 1)},
    {"accents", "\u0301*"},
};

class MarkdownHostile : public testing::TestWithParam<HostileCase> {};
TEST_P(MarkdownHostile, isReadNoFurtherThanTheLimit) {
  const std::string line = repeated(GetParam().piece, 100'000);
  const std::string plain = plainText(line);
  EXPECT_LE(plain.size(), line.size() + 2 * limit);  // a NUL becomes three bytes
  ASSERT_GE(plain.size(), line.size() - limit);
  EXPECT_EQ(plain.substr(plain.size() - (line.size() - limit)), line.substr(limit));
}
INSTANTIATE_TEST_SUITE_P(Markdown, MarkdownHostile, testing::ValuesIn(hostileCases), named);

TEST(MarkdownHostile, megabytesOfPlainTextStay) {
  const std::string line = repeated("plain text ", 1'000'000);
  EXPECT_EQ(plainText(line), line);
}

TEST(MarkdownHostile, cutAtEveryByteIsStillRead) {
  const std::string line = "*a* [b](c) `d` ~~e~~ <f@g.h> &amp; \\* ![i](j) <k l='m'>\u00E9 **n";
  for (std::size_t size = 0; size <= line.size(); ++size) {
    const std::string text = line.substr(0, size);
    EXPECT_LE(plainText(text).size(), 3 * text.size());  // no more than a NUL would give
  }
}

/// Reads a line with all the memory there is, then with none to be had, then again: in a process of
/// its own, which ends with 0 when that went well.
void runOutOfMemory(std::string_view piece) {
  const std::string line = repeated(piece, limit / piece.size());
  rlimit bound{};
  ::getrlimit(RLIMIT_AS, &bound);
  const rlim_t all = bound.rlim_cur;
  bound.rlim_cur = 1;
  ::setrlimit(RLIMIT_AS, &bound);
  bool threw = false;
  try {
    plainText(line);
  } catch (const std::bad_alloc&) {
    threw = true;
  }
  bound.rlim_cur = all;
  ::setrlimit(RLIMIT_AS, &bound);
  std::exit(threw && plainText(line) == plainText(line) && plainText("~~*a*~~") == "a" ? 0 : 1);
}

TEST(MarkdownMemory, runningOutOfItIsAnExceptionAndNoHarm) {
  if (!CorvaneTests::canBoundMemory) GTEST_SKIP() << "memory cannot be bounded here";
  for (const std::string_view piece : {" *a", "[a](", "~~a ", "`a", "<a>"}) {
    SCOPED_TRACE(piece);
    EXPECT_EXIT(runOutOfMemory(piece), testing::ExitedWithCode(0), "");
  }
}

TEST(MarkdownMemory, linesOfEverySizeFit) {
  // On both sides of what stands ready for a short line, and of each block that is added to it.
  std::string line;
  for (std::size_t count = 0; count < 600; ++count) {
    line += "*a* ";
    EXPECT_EQ(plainText(line), repeated("a ", count + 1));
  }
}

}  // namespace
