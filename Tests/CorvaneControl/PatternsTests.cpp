#include "CorvaneControl/Patterns.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CorvaneControl/Platform/Text.h"
#include "Support/Repeated.h"

namespace {

namespace Patterns = CorvaneControl::Patterns;
namespace Text = CorvaneControl::Text;
using CorvaneTests::repeated;

const auto named = [](const auto& row) { return std::string(row.param.name); };

// ---- Marks at the start of a line ---------------------------------------------------------------

struct MarkCase {
  const char* name;
  std::string line;
  std::size_t heading;          // bytes of the mark; 0: none
  std::size_t indentedHeading;  // the same
  std::size_t block;            // the same
};
const MarkCase markCases[] = {
    {"nothing", "", 0, 0, 0},
    {"words", "words", 0, 0, 0},
    {"space", " ", 0, 0, 0},

    {"heading", "# Title", 2, 2, 2},
    {"headingOf6", "###### x", 7, 7, 7},
    {"headingOf7", "####### x", 0, 0, 0},
    {"headingOfManySpaces", "##  \t x", 6, 6, 6},
    {"headingWithoutSpace", "#x", 0, 0, 0},
    {"headingWithoutText", "# ", 2, 2, 2},
    {"headingThatIsOnlyAMark", "#", 0, 0, 0},
    {"headingOf6ThatIsOnlyAMark", "######", 0, 0, 0},
    {"headingAndATab", "#\tx", 2, 2, 2},
    {"headingAndANoBreakSpace", "#\u00A0x", 3, 3, 3},
    {"headingAndAnIdeographicSpace", "#\u3000x", 4, 4, 4},
    {"headingAndALineBreak", "#\r\n x", 4, 4, 4},
    {"headingAndALineSeparator", "#\u2028x", 4, 4, 4},
    {"headingAndAZeroWidthSpace", "#\u200Bx", 0, 0, 0},
    {"headingAndASeparatorOfInformation", "#\x1Fx", 0, 0, 0},
    {"headingMarksApart", "# # x", 2, 2, 2},
    {"indentedHeading", "   ## x", 0, 6, 0},
    {"headingIndentedByATab", "\t# x", 0, 3, 0},
    {"headingIndentedByWhiteSpace", "\u00A0\n# x", 0, 5, 0},
    {"indentedHeadingOf7", " ####### x", 0, 0, 0},
    {"indentedHeadingWithoutSpace", " #x", 0, 0, 0},
    {"headingBehindAWord", "a # x", 0, 0, 0},
    {"wideNumberSign", "\uFF03 x", 0, 0, 0},

    {"dash", "- x", 0, 0, 2},
    {"star", "* x", 0, 0, 2},
    {"plus", "+ x", 0, 0, 2},
    {"dashAndSpaces", "-  \u2003x", 0, 0, 6},
    {"dashWithoutSpace", "-x", 0, 0, 0},
    {"dashAlone", "-", 0, 0, 0},
    {"twoDashes", "-- x", 0, 0, 0},
    {"indentedDash", " - x", 0, 0, 0},
    {"enDash", "\u2013 x", 0, 0, 0},
    {"strong", "**x** y", 0, 0, 0},
    {"taskItem", "- [ ] x", 0, 0, 2},
    {"dashBeforeADash", "- - x", 0, 0, 2},

    {"number", "1. x", 0, 0, 3},
    {"numberInParenthesis", "2) x", 0, 0, 3},
    {"longNumber", "1234567890123. x", 0, 0, 15},
    {"numberWithoutSpace", "1.x", 0, 0, 0},
    {"version", "1.2.3 x", 0, 0, 0},
    {"numberAlone", "1", 0, 0, 0},
    {"numberAndMarkAlone", "1.", 0, 0, 0},
    {"numberAndColon", "1: x", 0, 0, 0},
    {"numberAndSpace", "1 . x", 0, 0, 0},
    {"indentedNumber", " 1. x", 0, 0, 0},
    {"negativeNumber", "-1. x", 0, 0, 0},
    {"arabicDigits", "\u0661\u0662. x", 0, 0, 6},
    {"devanagariDigit", "\u0967) x", 0, 0, 5},
    {"mathematicalDigit", "\U0001D7D8. x", 0, 0, 6},
    {"mixedDigits", "1\u0661. x", 0, 0, 5},
    {"superscript", "\u00B2. x", 0, 0, 0},
    {"romanNumeral", "\u2163. x", 0, 0, 0},
    {"circledDigit", "\u2460. x", 0, 0, 0},
    {"fullWidthStop", "1\uFF0E x", 0, 0, 0},

    {"quote", "> x", 0, 0, 2},
    {"quoteWithoutSpace", ">x", 0, 0, 1},
    {"quoteAlone", ">", 0, 0, 1},
    {"quoteTakesOneSpace", ">  x", 0, 0, 2},
    {"quoteTakesOneWideSpace", ">\u3000\u3000x", 0, 0, 4},
    {"quoteInAQuote", ">> x", 0, 0, 1},
    {"indentedQuote", " > x", 0, 0, 0},

    {"noUTF8", "\xFF# x", 0, 0, 0},
    {"noUTF8BehindTheMark", "#\xC2", 0, 0, 0},
    {"aNul", std::string("#\0x", 3), 0, 0, 0},
};

class PatternsMark : public testing::TestWithParam<MarkCase> {};
TEST_P(PatternsMark, isMeasuredInBytes) {
  EXPECT_EQ(Patterns::headingMark(GetParam().line), GetParam().heading);
  EXPECT_EQ(Patterns::indentedHeadingMark(GetParam().line), GetParam().indentedHeading);
  EXPECT_EQ(Patterns::blockMark(GetParam().line), GetParam().block);
}
INSTANTIATE_TEST_SUITE_P(Patterns, PatternsMark, testing::ValuesIn(markCases), named);

struct StepCase {
  const char* name;
  std::string line;
  bool isStep;
};
const StepCase stepCases[] = {
    {"nothing", "", false},
    {"words", "words", false},
    {"stop", "1. Add the parser", true},
    {"parenthesis", "2) Test it", true},
    {"manyDigits", "10000000000000000000. x", true},
    {"indented", "   3. x", true},
    {"indentedByWhiteSpace", "\t\u00A0\u2028 3. x", true},
    {"nothingBehindTheSpace", "1. ", true},
    {"nothingBehindTheMark", "1.", false},
    {"noSpace", "1.x", false},
    {"noMark", "1 x", false},
    {"noNumber", ". x", false},
    {"secondMark", "1.) x", false},
    {"version", "1.2 x", false},
    {"tab", "1.\tx", true},
    {"wideSpace", "1.\u3000x", true},
    {"lineBreak", "1.\nx", true},
    {"zeroWidthSpace", "1.\u200Bx", false},
    {"arabicDigit", "\u0661. x", true},
    {"superscript", "\u00B9. x", false},
    {"behindAWord", "a 1. x", false},
    {"bullet", "- 1. x", false},
};
class PatternsStep : public testing::TestWithParam<StepCase> {};
TEST_P(PatternsStep, isANumberAMarkAndWhiteSpace) {
  EXPECT_EQ(Patterns::isNumberedStep(GetParam().line), GetParam().isStep);
}
INSTANTIATE_TEST_SUITE_P(Patterns, PatternsStep, testing::ValuesIn(stepCases), named);

// ---- Tags ---------------------------------------------------------------------------------------

struct TagCase {
  const char* name;
  std::string text;
  bool begins;
  std::optional<std::size_t> opening;  // bytes of the tag and the white space behind it
};
const TagCase tagCases[] = {
    {"nothing", "", false, std::nullopt},
    {"otherText", "tag>", false, std::nullopt},
    {"anotherTag", "<gat>", false, std::nullopt},
    {"onlyTheStart", "<ta", false, std::nullopt},
    {"withoutEnd", "<tag", true, std::nullopt},
    {"withoutEndButALineBreak", "<tag\n", true, std::nullopt},
    {"withoutEndButAPair", "<tag\r\n", true, std::nullopt},
    {"plain", "<tag>", true, 5},
    {"withText", "<tag>text", true, 5},
    {"withSpacesAndText", "<tag> \n\u00A0text", true, 9},
    {"withASpaceInside", "<tag >x", true, 6},
    {"withAnAttribute", "<tag a=\"b\">x", true, 11},
    {"withALineBreakInside", "<tag\na='b'>x", true, 11},
    {"withAnEndInDoubleQuotes", "<tag a=\"b>c\">x", true, 13},
    {"withAnEndInSingleQuotes", "<tag a='b>c'>x", true, 13},
    {"withQuotesInQuotes", "<tag a=\"'>\" b='\">'>x", true, 19},
    {"withAQuoteThatDoesNotEnd", "<tag a=\"b>c", true, std::nullopt},
    {"withAQuoteThatEndsBehind", "<tag a='b>c'", true, std::nullopt},
    {"withTwoQuotesButNoEnd", "<tag a='b' ", true, std::nullopt},
    {"withEmptyQuotes", "<tag a=''>", true, 10},
    {"withAStartInside", "<tag <tag>x", true, 10},
    {"closingItself", "<tag/>x", false, 6},
    {"ofALongerName", "<tags>", false, 6},
    {"withADash", "<tag-a>", false, 7},
    {"withAnotherLineBreak", "<tag\u2029>", true, 8},
    {"withAZeroWidthSpace", "<tag\u200B>", false, 8},
    {"inUpperCase", "<TAG>", false, std::nullopt},
    {"behindASpace", " <tag>", false, std::nullopt},
    {"closing", "</tag>", false, std::nullopt},
    {"twice", "<tag><tag>", true, 5},
    {"withNoUTF8", "<tag \xFF>\xC2", true, 7},
    {"withANul", std::string("<tag\0>", 6), false, 6},
};
class PatternsTag : public testing::TestWithParam<TagCase> {};
TEST_P(PatternsTag, isRecognisedAndMeasured) {
  EXPECT_EQ(Patterns::beginsWithTag(GetParam().text, "tag"), GetParam().begins);
  EXPECT_EQ(Patterns::openingTag(GetParam().text, "tag"), GetParam().opening);
}
INSTANTIATE_TEST_SUITE_P(Patterns, PatternsTag, testing::ValuesIn(tagCases), named);

// ---- The recommendation suffix ------------------------------------------------------------------

struct SuffixCase {
  const char* name;
  std::string label;
  std::optional<std::string> before;  // the label without it; absent: it has none
};
const SuffixCase suffixCases[] = {
    {"nothing", "", std::nullopt},
    {"words", "Use SQLite", std::nullopt},
    {"english", "Use SQLite (Recommended)", "Use SQLite"},
    {"lowerCase", "Use SQLite (recommended)", "Use SQLite"},
    {"upperCase", "Use SQLite (RECOMMENDED)", "Use SQLite"},
    {"frenchMasculine", "a (recommand\u00E9)", "a"},
    {"frenchFeminine", "a (recommand\u00E9e)", "a"},
    {"frenchInUpperCase", "a (RECOMMAND\u00C9E)", "a"},
    {"frenchWithoutAccent", "a (recommande)", "a"},
    {"frenchFeminineWithoutAccent", "a (recommandee)", "a"},
    {"frenchWithACombiningAccent", "a (recommande\u0301)", std::nullopt},
    {"frenchPlural", "a (recommand\u00E9s)", std::nullopt},
    {"frenchStem", "a (recommand)", std::nullopt},
    {"frenchWithThreeEnds", "a (recommand\u00E9ee)", std::nullopt},
    {"spanish", "a (recomendado)", "a"},
    {"portuguese", "a (Recomendada)", "a"},
    {"spanishWithTwoM", "a (recommendado)", std::nullopt},
    {"german", "a (empfohlen)", "a"},
    {"italianMasculine", "a (consigliato)", "a"},
    {"italianFeminine", "a (Consigliata)", "a"},
    {"italianPlural", "a (consigliati)", std::nullopt},
    {"longS", "a (con\u017Figliato)", "a"},
    {"fullWidthParentheses", "Option \uFF08empfohlen\uFF09", "Option"},
    {"mixedParentheses", "Option \uFF08empfohlen)", "Option"},
    {"mixedParenthesesTheOtherWay", "Option (empfohlen\uFF09", "Option"},
    {"otherBrackets", "a [recommended]", std::nullopt},
    {"noSpaceBefore", "a(recommended)", "a"},
    {"spacesEverywhere", "a \t\u3000( \u00A0recommended\n ) \t", "a"},
    {"lineBreakBehind", "a (recommended)\n", "a"},
    {"linesBehind", "a (recommended) \n\r\n\u2028", "a"},
    {"onlyTheSuffix", "(recommended)", ""},
    {"onlyTheSuffixAndSpaces", "  (recommended) ", ""},
    {"atTheStart", "(recommended) first", std::nullopt},
    {"stopBehind", "a (recommended).", std::nullopt},
    {"anotherWordInside", "a (highly recommended)", std::nullopt},
    {"wordWithALetterInFront", "a (xrecommended)", std::nullopt},
    {"spaceWithinTheWord", "a (recom mended)", std::nullopt},
    {"nothingInside", "a ()", std::nullopt},
    {"spacesInside", "a (  )", std::nullopt},
    {"withoutOpening", "a recommended)", std::nullopt},
    {"withoutClosing", "a (recommended", std::nullopt},
    {"withoutAnything", ")", std::nullopt},
    {"twice", "a (recommended) (empfohlen)", "a (recommended)"},
    {"twiceOpened", "a ((recommended)", "a ("},
    {"twiceClosed", "a (recommended))", std::nullopt},
    {"zeroWidthSpaceBehind", "a (recommended)\u200B", std::nullopt},
    {"noUTF8InFront", "\xFF(recommended)", "\xFF"},
    {"noUTF8Inside", "a (recommended\xFF)", std::nullopt},
    {"aNulBehind", std::string("a (recommended)\0", 16), std::nullopt},
};
class PatternsSuffix : public testing::TestWithParam<SuffixCase> {};
TEST_P(PatternsSuffix, isFoundAtTheEndOnly) {
  const auto& [name, label, before] = GetParam();
  const auto suffix = Patterns::recommendationSuffix(label);
  ASSERT_EQ(suffix.has_value(), before.has_value());
  if (suffix) {
    EXPECT_EQ(label.substr(0, *suffix), *before);
  }
}
INSTANTIATE_TEST_SUITE_P(Patterns, PatternsSuffix, testing::ValuesIn(suffixCases), named);

// ---- Hostile texts ------------------------------------------------------------------------------

constexpr std::size_t megabyte = 1'000'000;

struct HostileCase {
  const char* name;
  std::string_view piece;
};
const HostileCase hostileCases[] = {
    {"spaces", " "},
    {"wideSpaces", "\u3000"},
    {"digits", "1"},
    {"otherDigits", "\u0661"},
    {"doubleQuotes", "\""},
    {"singleQuotes", "'"},
    {"quotesInTurn", "\"'"},
    {"opening", "("},
    {"closing", ")"},
    {"openingAndSpaces", "( "},
    {"closingAndSpaces", ") "},
    {"numberSigns", "#"},
    {"numberSignsAndSpaces", "# "},
    {"pointedBrackets", "<"},
    {"ends", ">"},
    {"suffixes", " (recommended)"},
    {"letters", "e"},
    {"continuations", "\x80"},
};
class PatternsHostile : public testing::TestWithParam<HostileCase> {};
TEST_P(PatternsHostile, neitherOverflowsNorHangs) {
  const std::string text = repeated(GetParam().piece, megabyte / 4 / GetParam().piece.size());
  for (const std::string_view start :
       {"", "# ", "1", "1. ", "- ", "> ", "<tag", "<tag a=\"", " "}) {
    for (const std::string_view end :
         {"", ".", "x", " x", ">", ")", "recommended)", "(recommended)"}) {
      const std::string line = std::string(start) + text + std::string(end);
      EXPECT_LE(Patterns::headingMark(line), line.size());
      EXPECT_LE(Patterns::indentedHeadingMark(line), line.size());
      EXPECT_LE(Patterns::blockMark(line), line.size());
      EXPECT_EQ(Patterns::isNumberedStep(line) && line.starts_with("<"), false);
      EXPECT_EQ(Patterns::beginsWithTag(line, "gat"), false);
      EXPECT_LE(Patterns::openingTag(line, "tag").value_or(0), line.size());
      EXPECT_LE(Patterns::recommendationSuffix(line).value_or(0), line.size());
    }
  }
}
INSTANTIATE_TEST_SUITE_P(Patterns, PatternsHostile, testing::ValuesIn(hostileCases), named);

TEST(PatternsHostile, measuresMegabytes) {
  const std::string spaces = repeated(" ", megabyte);
  const std::string digits = repeated("1", megabyte);
  EXPECT_EQ(Patterns::headingMark("#" + spaces + "x"), 1 + megabyte);
  EXPECT_EQ(Patterns::indentedHeadingMark(spaces + "# x"), megabyte + 2);
  EXPECT_EQ(Patterns::blockMark(digits + ") x"), megabyte + 2);
  EXPECT_TRUE(Patterns::isNumberedStep(spaces + digits + ". "));
  EXPECT_EQ(Patterns::openingTag("<tag '" + spaces + "'>" + spaces, "tag"), 8 + 2 * megabyte);
  EXPECT_EQ(Patterns::recommendationSuffix("a" + spaces + "(" + spaces + "empfohlen" + spaces +
                                           ")" + spaces),
            1U);
  EXPECT_FALSE(Patterns::recommendationSuffix(spaces));
}

// ---- Against the regular expressions themselves -------------------------------------------------

/// A regular expression, matched in the plain way: try, and go back. Knows what the patterns use:
/// classes, groups, look-ahead, alternatives, `*`, `+`, `?`, `{n,m}`, `^` and `$`.
class RegularExpression {
 public:
  RegularExpression(std::u32string_view pattern, bool ignoresCase)
      : rest_(pattern), ignoresCase_(ignoresCase), matcher_(alternatives()) {}

  /// Where the leftmost match begins and ends.
  std::optional<std::pair<std::size_t, std::size_t>> search(std::u32string_view text) {
    text_ = text;
    for (std::size_t start = 0; start <= text.size(); ++start) {
      std::size_t end = 0;
      const auto finish = [&end](std::size_t at) {
        end = at;
        return true;
      };
      if (matcher_(start, finish)) return std::pair(start, end);
    }
    return std::nullopt;
  }

 private:
  using Next = std::function<bool(std::size_t)>;
  using Matcher = std::function<bool(std::size_t, const Next&)>;
  using Class = std::function<bool(char32_t)>;

  char32_t take() {
    const char32_t first = rest_.front();
    rest_.remove_prefix(1);
    return first;
  }
  bool takes(std::u32string_view expected) {
    if (!rest_.starts_with(expected)) return false;
    rest_.remove_prefix(expected.size());
    return true;
  }

  Matcher alternatives() {
    std::vector<Matcher> branches{sequence()};
    while (takes(U"|")) branches.push_back(sequence());
    return [branches](std::size_t at, const Next& next) {
      for (const Matcher& branch : branches) {
        if (branch(at, next)) return true;
      }
      return false;
    };
  }

  Matcher sequence() {
    Matcher whole = [](std::size_t at, const Next& next) { return next(at); };
    while (!rest_.empty() && rest_.front() != U'|' && rest_.front() != U')') {
      whole = [first = whole, second = term()](std::size_t at, const Next& next) {
        return first(at, [&](std::size_t middle) { return second(middle, next); });
      };
    }
    return whole;
  }

  Matcher term() {
    Matcher once = atom();
    if (takes(U"*")) return repetition(once, 0, 1000);
    if (takes(U"+")) return repetition(once, 1, 1000);
    if (takes(U"?")) return repetition(once, 0, 1);
    if (takes(U"{1,6}")) return repetition(once, 1, 6);
    return once;
  }

  static Matcher repetition(const Matcher& once, int least, int most) {
    return [=](std::size_t at, const Next& next) {
      const std::function<bool(std::size_t, int)> more = [&](std::size_t from, int count) {
        const auto again = [&](std::size_t to) { return to > from && more(to, count + 1); };
        if (count < most && once(from, again)) return true;
        return count >= least && next(from);
      };
      return more(at, 0);
    };
  }

  Matcher atom() {
    if (takes(U"(?=")) {
      const Matcher inside = group();
      return [inside](std::size_t at, const Next& next) {
        return inside(at, [](std::size_t) { return true; }) && next(at);
      };
    }
    if (takes(U"(?:") || takes(U"(")) return group();
    if (takes(U"^")) {
      return [](std::size_t at, const Next& next) { return at == 0 && next(at); };
    }
    if (takes(U"$")) {
      return [this](std::size_t at, const Next& next) { return endsAt(at) && next(at); };
    }
    return [this, matches = takes(U"[") ? bracket() : single()](std::size_t at, const Next& next) {
      return at < text_.size() && matches(text_[at]) && next(at + 1);
    };
  }

  Matcher group() {
    Matcher inside = alternatives();
    take();  // ")"
    return inside;
  }

  Class bracket() {
    const bool negated = takes(U"^");
    std::vector<Class> members;
    while (!takes(U"]")) members.push_back(single());
    return [negated, members](char32_t scalar) {
      for (const Class& member : members) {
        if (member(scalar)) return !negated;
      }
      return negated;
    };
  }

  Class single() {
    if (takes(U"\\s")) {
      return [](char32_t scalar) {
        return std::u32string_view(U" \t\n\v\f\r\u0085\u00A0\u2003\u2028\u2029\u3000")
                   .find(scalar) != std::u32string_view::npos;
      };
    }
    if (takes(U"\\d")) {
      return [](char32_t scalar) {
        return std::u32string_view(U"0123456789\u0661\u0967").find(scalar) !=
               std::u32string_view::npos;
      };
    }
    return [this, expected = take()](char32_t scalar) {
      return scalar == expected || (ignoresCase_ && folded(scalar) == folded(expected));
    };
  }

  static char32_t folded(char32_t scalar) {
    if (scalar >= U'A' && scalar <= U'Z') return scalar + 32;
    if (scalar == U'\u00C9') return U'\u00E9';
    if (scalar == U'\u017F') return U's';
    if (scalar == U'\u212A') return U'k';
    return scalar;
  }

  bool endsAt(std::size_t at) const {
    const std::u32string_view end = text_.substr(at);
    if (end.empty() || end == U"\r\n") return true;
    return end.size() == 1 &&
           std::u32string_view(U"\n\v\f\r\u0085\u2028\u2029").find(end[0]) != end.npos;
  }

  std::u32string_view rest_;
  bool ignoresCase_;
  std::u32string_view text_;
  Matcher matcher_;
};

/// A random text of the pieces, with the pattern's answer in bytes.
class Oracle {
 public:
  Oracle(std::u32string_view pattern, std::vector<std::u32string> pieces, bool ignoresCase = false)
      : expression_(pattern, ignoresCase), pieces_(std::move(pieces)) {}

  struct Answer {
    std::string text;
    std::optional<std::size_t> start;
    std::optional<std::size_t> end;
  };

  Answer next() {
    std::u32string text;
    for (std::size_t count = random_() % 12; count > 0; --count) {
      text += pieces_[random_() % pieces_.size()];
    }
    const auto found = expression_.search(text);
    Answer answer{.text = encoded(text), .start = {}, .end = {}};
    if (found) {
      answer.start = encoded(text.substr(0, found->first)).size();
      answer.end = encoded(text.substr(0, found->second)).size();
      ++matches_;
    }
    return answer;
  }

  /// How many of the texts matched: an oracle that never says yes shows nothing.
  int matches() const { return matches_; }

 private:
  static std::string encoded(std::u32string_view scalars) {
    std::string text;
    for (const char32_t scalar : scalars) Text::append(text, scalar);
    return text;
  }

  RegularExpression expression_;
  std::vector<std::u32string> pieces_;
  std::mt19937 random_{1};
  int matches_ = 0;
};

constexpr int rounds = 20'000;
const std::vector<std::u32string> marks = {
    U"#",      U"#",      U"##", U" ",   U" ",      U"\t",     U"\u00A0", U"\u3000", U"\n",
    U"\r\n",   U"x",      U">",  U"-",   U"*",      U"+",      U".",      U")",      U"1",
    U"\u0661", U"\u2028", U"e",  U"1. ", U"\u00B2", U"\u200B", U"\u0967"};
const std::vector<std::u32string> tags = {U"<a", U"<a", U"<",      U">",      U"\"",
                                          U"'",  U" ",  U"x",      U"a",      U"\n",
                                          U"\r", U"/",  U"\u3000", U"\u2029", U"\u00E9"};
const std::vector<std::u32string> labels = {U"(",
                                            U"\uFF08",
                                            U" (",
                                            U")",
                                            U"\uFF09",
                                            U")",
                                            U" ",
                                            U"\n",
                                            U"\u00A0",
                                            U"x",
                                            U"recommended",
                                            U"Recommended",
                                            U"(recommended)",
                                            U"RECOMMAND\u00C9E",
                                            U"recommand",
                                            U"\u00E9",
                                            U"e",
                                            U"e\u0301",
                                            U"empfohlen",
                                            U"con\u017Figliato",
                                            U"recomendad",
                                            U"o",
                                            U"a"};

TEST(PatternsOracle, agreesOnHeadings) {
  Oracle oracle(U"^#{1,6}\\s+", marks);
  for (int round = 0; round < rounds; ++round) {
    const auto answer = oracle.next();
    ASSERT_EQ(Patterns::headingMark(answer.text), answer.end.value_or(0)) << answer.text;
  }
  EXPECT_GT(oracle.matches(), 100);
}

TEST(PatternsOracle, agreesOnIndentedHeadings) {
  Oracle oracle(U"^\\s*#{1,6}\\s+", marks);
  for (int round = 0; round < rounds; ++round) {
    const auto answer = oracle.next();
    ASSERT_EQ(Patterns::indentedHeadingMark(answer.text), answer.end.value_or(0)) << answer.text;
  }
  EXPECT_GT(oracle.matches(), 100);
}

TEST(PatternsOracle, agreesOnBlocks) {
  Oracle oracle(U"^(?:#{1,6}\\s+|(?:[-*+]|\\d+[.)])\\s+|>\\s?)", marks);
  for (int round = 0; round < rounds; ++round) {
    const auto answer = oracle.next();
    ASSERT_EQ(Patterns::blockMark(answer.text), answer.end.value_or(0)) << answer.text;
  }
  EXPECT_GT(oracle.matches(), 100);
}

TEST(PatternsOracle, agreesOnSteps) {
  Oracle oracle(U"^\\s*\\d+[.)]\\s", marks);
  for (int round = 0; round < rounds; ++round) {
    const auto answer = oracle.next();
    ASSERT_EQ(Patterns::isNumberedStep(answer.text), answer.end.has_value()) << answer.text;
  }
  EXPECT_GT(oracle.matches(), 100);
}

TEST(PatternsOracle, agreesOnTheStartOfTags) {
  Oracle oracle(U"^<a(?=[\\s>]|$)", tags);
  for (int round = 0; round < rounds; ++round) {
    const auto answer = oracle.next();
    ASSERT_EQ(Patterns::beginsWithTag(answer.text, "a"), answer.end.has_value()) << answer.text;
  }
  EXPECT_GT(oracle.matches(), 100);
}

TEST(PatternsOracle, agreesOnOpeningTags) {
  Oracle oracle(U"^<a(?:[^>\"']|\"[^\"]*\"|'[^']*')*>\\s*", tags);
  for (int round = 0; round < rounds; ++round) {
    const auto answer = oracle.next();
    ASSERT_EQ(Patterns::openingTag(answer.text, "a"), answer.end) << answer.text;
  }
  EXPECT_GT(oracle.matches(), 100);
}

TEST(PatternsOracle, agreesOnRecommendations) {
  Oracle oracle(
      U"\\s*[(\uFF08]\\s*(recommended|recommand[\u00E9e]e?|recomendad[oa]|empfohlen|consigliat[oa])"
      U"\\s*[)\uFF09]\\s*$",
      labels, true);
  for (int round = 0; round < rounds; ++round) {
    const auto answer = oracle.next();
    ASSERT_EQ(Patterns::recommendationSuffix(answer.text), answer.start) << answer.text;
  }
  EXPECT_GT(oracle.matches(), 100);
}

}  // namespace
