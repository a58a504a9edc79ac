#include "CorvaneControl/Platform/Text.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "Support/Repeated.h"

namespace {

namespace Text = CorvaneControl::Text;
using CorvaneTests::repeated;

constexpr std::size_t everything = std::numeric_limits<std::size_t>::max();
constexpr std::size_t tenMegabytes = 10'000'000;
constexpr std::size_t megabytes = 2'000'000;

const auto named = [](const auto& row) { return std::string(row.param.name); };

/// A text of up to `length` of the pieces, in any order.
std::string randomText(std::mt19937& random, const std::vector<std::string>& pieces,
                       std::size_t length) {
  std::string text;
  for (std::size_t count = random() % (length + 1); count > 0; --count) {
    text += pieces[random() % pieces.size()];
  }
  return text;
}

/// What joins others in every way that the rules know, among what joins nothing.
const std::vector<std::string> awkwardPieces = {
    "a",          "bcdefghijklmnop", " ",      "\t",         "\r",     "\n",     "\r\n",
    "\u0301",     "\u200D",          "\u0600", "\u0903",     "\u1100", "\u1161", "\u11A8",
    "\uAC00",     "\uFE0F",          "\u00E9", "\u2028",     "\u3000", "\u00A0", "\U0001F468",
    "\U0001F1E9", "\U0001F3FD",      "\u2764", "\U000E0067", "\u200B", "x",      "\x7F",
    "\U0001F9D1", "\u0E33",          "\u0300", "\uFFFD",     "\u4E2D", "\u00B2", "0",
};

// ---- Characters ---------------------------------------------------------------------------------

struct CharactersCase {
  const char* name;
  std::string text;
  std::vector<std::string> characters;
};
const CharactersCase charactersCases[] = {
    {"nothing", "", {}},
    {"oneLetter", "a", {"a"}},
    {"letters", "abc", {"a", "b", "c"}},
    {"sevenLetters", "abcdefg", {"a", "b", "c", "d", "e", "f", "g"}},
    {"eightLetters", "abcdefgh", {"a", "b", "c", "d", "e", "f", "g", "h"}},
    {"aNul", std::string("a\0b", 3), {"a", std::string(1, '\0'), "b"}},
    {"crLf", "\r\n", {"\r\n"}},
    {"lfCr", "\n\r", {"\n", "\r"}},
    {"crCrLfLf", "\r\r\n\n", {"\r", "\r\n", "\n"}},
    {"crAtTheEnd", "ab\r", {"a", "b", "\r"}},
    {"crLfAcrossAWord", "abcdefg\r\nh", {"a", "b", "c", "d", "e", "f", "g", "\r\n", "h"}},
    {"accentOnALetter", "e\u0301x", {"e\u0301", "x"}},
    {"accentAfterAsciiLetters", "abe\u0301", {"a", "b", "e\u0301"}},
    {"accentAfterEightLetters", "abcdefgh\u0301", {"a", "b", "c", "d", "e", "f", "g", "h\u0301"}},
    {"accentAfterSevenLetters", "abcdefg\u0301h", {"a", "b", "c", "d", "e", "f", "g\u0301", "h"}},
    {"accentsOnOneLetter", "a\u0301\u0302\u0303", {"a\u0301\u0302\u0303"}},
    {"accentOnASpace", " \u0301", {" \u0301"}},
    {"accentAlone", "\u0301a", {"\u0301", "a"}},
    {"accentAfterALineFeed", "\n\u0301", {"\n", "\u0301"}},
    {"accentAfterACarriageReturn", "\r\u0301\n", {"\r", "\u0301", "\n"}},
    {"precomposed", "\u00E9\u00E9", {"\u00E9", "\u00E9"}},
    {"hangulJamo", "\u1112\u1161\u11AB\u1100", {"\u1112\u1161\u11AB", "\u1100"}},
    {"hangulSyllables", "\uD55C\uAE00", {"\uD55C", "\uAE00"}},
    {"flags",
     "\U0001F1E9\U0001F1EA\U0001F1EB\U0001F1F7",
     {"\U0001F1E9\U0001F1EA", "\U0001F1EB\U0001F1F7"}},
    {"halfAFlagMore", "\U0001F1E9\U0001F1EA\U0001F1EB", {"\U0001F1E9\U0001F1EA", "\U0001F1EB"}},
    {"flagsApart", "\U0001F1E9a\U0001F1EA", {"\U0001F1E9", "a", "\U0001F1EA"}},
    {"flagOfTags",
     "\U0001F3F4\U000E0067\U000E0062\U000E007Fx",
     {"\U0001F3F4\U000E0067\U000E0062\U000E007F", "x"}},
    {"family",
     "\U0001F468\u200D\U0001F469\u200D\U0001F467!",
     {"\U0001F468\u200D\U0001F469\u200D\U0001F467", "!"}},
    {"skinTone", "\U0001F44D\U0001F3FD\U0001F44D", {"\U0001F44D\U0001F3FD", "\U0001F44D"}},
    {"heartWithVariation", "\u2764\uFE0F\u2764", {"\u2764\uFE0F", "\u2764"}},
    {"keycap", "1\uFE0F\u20E32", {"1\uFE0F\u20E3", "2"}},
    {"joinerThatJoinsLetters", "a\u200Db", {"a\u200D", "b"}},
    {"spacingMark", "\u0915\u0903", {"\u0915\u0903"}},
    {"prepended", "\u0600\u0661", {"\u0600\u0661"}},
    {"prependedToAscii", "a\u06001b", {"a", "\u06001", "b"}},
    {"chinese", "\u4E2D\u6587", {"\u4E2D", "\u6587"}},
    {"beyondTheFirstPlane", "\U00020000\U00020001", {"\U00020000", "\U00020001"}},
    {"noUTF8", "a\xFF\xC3", {"a", "\xFF", "\xC3"}},
};

class TextCharacters : public testing::TestWithParam<CharactersCase> {};
TEST_P(TextCharacters, areWhatPeopleSee) {
  const auto& [name, text, characters] = GetParam();
  EXPECT_EQ(Text::characters(text), characters.size());
  std::string start;
  for (std::size_t count = 0; count < characters.size(); ++count) {
    EXPECT_EQ(Text::prefix(text, count), start) << count;
    start += characters[count];
  }
  EXPECT_EQ(Text::prefix(text, characters.size()), text);
  EXPECT_EQ(Text::prefix(text, characters.size() + 1), text);
  EXPECT_EQ(Text::prefix(text, everything), text);
}
INSTANTIATE_TEST_SUITE_P(Text, TextCharacters, testing::ValuesIn(charactersCases), named);

TEST(TextCharacters, areTheSameCountedTogetherAndTakenOneByOne) {
  std::mt19937 random(1);
  for (int round = 0; round < 3000; ++round) {
    const std::string text = randomText(random, awkwardPieces, 30);
    std::string_view rest = text;
    std::size_t count = 0;
    while (!rest.empty()) {
      EXPECT_EQ(Text::prefix(text, count).size(), text.size() - rest.size()) << text;
      rest.remove_prefix(Text::prefix(rest, 1).size());
      ++count;
    }
    EXPECT_EQ(Text::characters(text), count) << text;
  }
}

TEST(TextCharacters, areBytesInASCIIExceptCRLF) {
  std::mt19937 random(2);
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    std::size_t pairs = 0;
    for (std::size_t size = random() % 60; text.size() < size;) {
      const char next = "\r\n\rabcdefgh"[random() % 11];
      if (text.ends_with('\r') && next == '\n') ++pairs;
      text += next;
    }
    EXPECT_EQ(Text::characters(text), text.size() - pairs);
  }
}

struct HugeCase {
  const char* name;
  std::string_view piece;         // of which ten megabytes are made
  std::size_t charactersOfPiece;  // 0: all of the text is one
};
const HugeCase hugeCases[] = {
    {"letters", "x", 1},
    {"lines", "a line of text\n", 15},
    {"carriageReturns", "\r", 1},
    {"linesOfCRLF", "text\r\n", 5},
    {"accents", "e\u0301", 1},
    {"lettersAndAccents", "some ordinary te\u0301xt ", 19},
    {"chinese", "\u4E2D", 1},
    {"families", "\U0001F468\u200D\U0001F469", 1},
    {"flags", "\U0001F1E9\U0001F1EA", 1},
    {"oneCharacter", "\u0301", 0},
    {"oneFamily", "\U0001F468\u200D", 0},
    {"noUTF8", "\xFF", 1},
};

class TextHuge : public testing::TestWithParam<HugeCase> {};
TEST_P(TextHuge, isCountedAndCut) {
  const auto& [name, piece, perPiece] = GetParam();
  const std::size_t pieces = tenMegabytes / piece.size();
  const std::string text = repeated(piece, pieces);
  const std::size_t total = perPiece == 0 ? 1 : pieces * perPiece;
  EXPECT_EQ(Text::characters(text), total);
  EXPECT_EQ(Text::prefix(text, 0), "");
  if (perPiece > 0) {
    EXPECT_EQ(Text::prefix(text, 10 * perPiece), repeated(piece, 10));
    bool cut = false;
    EXPECT_EQ(Text::shortened(text, 10 * perPiece, &cut), repeated(piece, 10) + "\u2026");
    EXPECT_TRUE(cut);
    EXPECT_EQ(Text::prefix(text, total - perPiece).size(), text.size() - piece.size());
  }
  bool cut = false;
  EXPECT_EQ(Text::shortened(text, total, &cut).size(), text.size());
  EXPECT_FALSE(cut);
}
INSTANTIATE_TEST_SUITE_P(Text, TextHuge, testing::ValuesIn(hugeCases), named);

// ---- Shortened ----------------------------------------------------------------------------------

struct ShortenedCase {
  const char* name;
  std::string text;
  std::size_t limit;
  std::string shortened;
  bool cut;
};
const ShortenedCase shortenedCases[] = {
    {"nothing", "", 5, "", false},
    {"nothingToNothing", "", 0, "", false},
    {"oneLess", repeated("x", 399), 400, repeated("x", 399), false},
    {"exactlyTheLimit", repeated("x", 400), 400, repeated("x", 400), false},
    {"oneMore", repeated("x", 401), 400, repeated("x", 400) + "\u2026", true},
    {"toNothing", "a", 0, "\u2026", true},
    {"countsCharacters", repeated("e\u0301", 3), 3, repeated("e\u0301", 3), false},
    {"cutsBetweenCharacters", repeated("e\u0301", 4), 3, repeated("e\u0301", 3) + "\u2026", true},
    {"keepsCRLFTogether", "a\r\nb", 2, "a\r\n\u2026", true},
    // The cut is decided by counting, not by looking at the text.
    {"keepsAnEllipsisOfItsOwn", "ab\u2026", 3, "ab\u2026", false},
    {"addsAnEllipsisToOne", "ab\u2026c", 3, "ab\u2026\u2026", true},
};

class TextShortened : public testing::TestWithParam<ShortenedCase> {};
TEST_P(TextShortened, hasTheLimitAndAnEllipsis) {
  const auto& [name, text, limit, shortened, isCut] = GetParam();
  bool cut = false;
  EXPECT_EQ(Text::shortened(text, limit, &cut), shortened);
  EXPECT_EQ(cut, isCut);
  EXPECT_EQ(Text::shortened(text, limit), shortened);
}
INSTANTIATE_TEST_SUITE_P(Text, TextShortened, testing::ValuesIn(shortenedCases), named);

TEST(TextCutAtScalar, keepsWholeScalarsUpToALimitInBytes) {
  const std::string text = "a\u00E9\u4E2D\U0001F468\u0301b";
  const std::size_t ends[] = {0, 1, 3, 6, 10, 12, 13};
  for (std::size_t limit = 0; limit <= text.size() + 1; ++limit) {
    std::size_t kept = 0;
    for (const std::size_t end : ends) kept = end <= limit ? end : kept;
    EXPECT_EQ(Text::cutAtScalar(text, limit), text.substr(0, kept)) << limit;
  }
  EXPECT_EQ(Text::cutAtScalar("", 0), "");
  EXPECT_EQ(Text::cutAtScalar(text, everything), text);
}

TEST(TextShortened, leavesAnEarlierCutMarked) {
  bool cut = true;
  EXPECT_EQ(Text::shortened("a", 1, &cut), "a");
  EXPECT_TRUE(cut);
}

// ---- Repaired -----------------------------------------------------------------------------------

struct RepairedCase {
  const char* name;
  std::string bytes;
  std::string text;
};
const std::string replaced = "\uFFFD";
const RepairedCase repairedCases[] = {
    {"nothing", "", ""},
    {"ascii", "plain", "plain"},
    {"aNul", std::string("a\0b", 3), std::string("a\0b", 3)},
    {"twoBytes", "\u0080\u07FF", "\u0080\u07FF"},
    {"threeBytes", "\u0800\uD7FF\uE000\uFFFF", "\u0800\uD7FF\uE000\uFFFF"},
    {"fourBytes", "\U00010000\U0010FFFF", "\U00010000\U0010FFFF"},
    {"byteOrderMark", "\uFEFFa", "\uFEFFa"},
    {"aReplacementAlready", "a\uFFFDb", "a\uFFFDb"},
    {"loneContinuation", "a\x80z", "a" + replaced + "z"},
    {"loneContinuations", "\x80\xBF", replaced + replaced},
    {"loneLeadAtTheEnd", "a\xC3", "a" + replaced},
    {"leadBeforeASCII", "\xC3(", replaced + "("},
    {"leadBeforeALead", "\xC3\xC3\xA9", replaced + "\u00E9"},
    {"overlongNul", "\xC0\x80", replaced + replaced},
    {"overlongSlash", "\xC1\xAF", replaced + replaced},
    {"overlongInThreeBytes", "\xE0\x9F\xBF", replaced + replaced + replaced},
    {"overlongInFourBytes", "\xF0\x8F\xBF\xBF", replaced + replaced + replaced + replaced},
    {"highSurrogate", "\xED\xA0\x80", replaced + replaced + replaced},
    {"lowSurrogate", "\xED\xBF\xBF", replaced + replaced + replaced},
    {"beyondTheLastScalar", "\xF4\x90\x80\x80", replaced + replaced + replaced + replaced},
    {"fiveBytes", "\xF8\x88\x80\x80\x80", repeated(replaced, 5)},
    {"bytesThatNeverOccur", "\xFE\xFF\xF5\xC0", repeated(replaced, 4)},
    {"threeBytesWithoutTheLast", "\xE2\x82z", replaced + "z"},
    {"threeBytesWithoutTheLastAtTheEnd", "\xE2\x82", replaced},
    {"fourBytesWithoutTheLast", "\xF0\x9F\x98z", replaced + "z"},
    {"fourBytesWithTwo", "\xF0\x9F", replaced},
    {"fourBytesWithOne", "\xF0z", replaced + "z"},
    // The example of the Unicode Standard (chapter 3, maximal subparts).
    {"maximalSubparts",
     "a\xF1\x80\x80\xE1\x80\xC2"
     "b\x80"
     "c\x80\xBF"
     "d",
     "a" + replaced + replaced + replaced + "b" + replaced + "c" + replaced + replaced + "d"},
    {"latin1", "caf\xE9 au lait", "caf" + replaced + " au lait"},
    {"afterLongASCII", repeated("x", 100) + "\xFF" + repeated("y", 100),
     repeated("x", 100) + replaced + repeated("y", 100)},
};

class TextRepaired : public testing::TestWithParam<RepairedCase> {};
TEST_P(TextRepaired, hasOneReplacementForEachMaximalPart) {
  EXPECT_EQ(Text::repaired(GetParam().bytes), GetParam().text);
}
INSTANTIATE_TEST_SUITE_P(Text, TextRepaired, testing::ValuesIn(repairedCases), named);

/// What is repaired, by the definition alone: the longest start that some sequence has, or one
/// byte.
class Repairer {
 public:
  Repairer() {
    for (char32_t scalar = 0; scalar <= 0x10FFFF; scalar += scalar < 0x80 ? 1 : 0x40) {
      if (scalar >= 0xD800 && scalar <= 0xDFFF) continue;
      const std::string sequence = encoded(scalar);
      for (std::size_t size = 1; size < sequence.size(); ++size) {
        starts_.insert(sequence.substr(0, size));
      }
      // Its last six bits are free, if it has more than one byte.
      leads_.insert(sequence.size() == 1 ? sequence : sequence.substr(0, sequence.size() - 1));
    }
  }

  std::string repaired(std::string_view bytes) const {
    std::string text;
    while (!bytes.empty()) {
      std::size_t size = 1;
      bool whole = static_cast<unsigned char>(bytes[0]) < 0x80;
      while (!whole && size < bytes.size() &&
             starts_.contains(std::string(bytes.substr(0, size)))) {
        const bool continues = (static_cast<unsigned char>(bytes[size]) & 0xC0) == 0x80;
        whole = continues && leads_.contains(std::string(bytes.substr(0, size)));
        if (!whole && !starts_.contains(std::string(bytes.substr(0, size + 1)))) break;
        ++size;
      }
      text += whole ? bytes.substr(0, size) : std::string_view(replaced);
      bytes.remove_prefix(size);
    }
    return text;
  }

 private:
  static std::string encoded(char32_t scalar) {
    std::string text;
    const auto add = [&text](char32_t bits) { text += static_cast<char>(bits); };
    if (scalar < 0x80) {
      add(scalar);
    } else if (scalar < 0x800) {
      add(0xC0 + scalar / 0x40);
    } else if (scalar < 0x10000) {
      add(0xE0 + scalar / 0x1000);
      add(0x80 + scalar / 0x40 % 0x40);
    } else {
      add(0xF0 + scalar / 0x40000);
      add(0x80 + scalar / 0x1000 % 0x40);
      add(0x80 + scalar / 0x40 % 0x40);
    }
    if (scalar >= 0x80) add(0x80 + scalar % 0x40);
    return text;
  }

  std::unordered_set<std::string> starts_;
  std::unordered_set<std::string> leads_;
};

TEST(TextRepaired, agreesWithTheDefinitionForEveryPairOfBytes) {
  const Repairer repairer;
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      const std::string bytes = {static_cast<char>(first), static_cast<char>(second)};
      ASSERT_EQ(Text::repaired(bytes), repairer.repaired(bytes)) << first << ' ' << second;
    }
  }
}

TEST(TextRepaired, agreesWithTheDefinitionForTheEdgesOfAllRanges) {
  const Repairer repairer;
  const std::string edges =
      "A\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4\xF5"
      "\xFF";
  std::mt19937 random(3);
  for (int round = 0; round < 100'000; ++round) {
    std::string bytes;
    for (std::size_t size = random() % 10; bytes.size() < size;) {
      bytes += edges[random() % edges.size()];
    }
    const std::string text = Text::repaired(bytes);
    ASSERT_EQ(text, repairer.repaired(bytes)) << testing::PrintToString(bytes);
    ASSERT_EQ(Text::repaired(text), text);
  }
}

TEST(TextRepaired, repairsMegabytes) {
  EXPECT_EQ(Text::repaired(std::string(tenMegabytes, '\xFF')).size(), 3 * tenMegabytes);
  const std::string good = repeated("caf\u00E9 ", tenMegabytes / 6);
  EXPECT_EQ(Text::repaired(good), good);
  EXPECT_EQ(Text::repaired(good + "\xC3"), good + replaced);
}

// ---- Ends and lines -----------------------------------------------------------------------------

struct TrimmedCase {
  const char* name;
  std::string text;
  std::string trimmed;
  std::string trimmedOfLines;
};
const TrimmedCase trimmedCases[] = {
    {"nothing", "", "", ""},
    {"nothingToTrim", "a b", "a b", "a b"},
    {"spaces", "  a b  ", "a b", "a b"},
    {"tabs", "\t\ta\t", "a", "a"},
    {"onlySpaces", " \t ", "", ""},
    {"spaceSeparators", "\u00A0\u1680\u2000\u200A\u202F\u205F\u3000a\u3000\u00A0", "a", "a"},
    {"lineFeeds", "\na\n", "\na\n", "a"},
    {"otherLineBreaks", "\v\f\r\u0085\u2028\u2029a\u2029\u2028\u0085\r\f\v",
     "\v\f\r\u0085\u2028\u2029a\u2029\u2028\u0085\r\f\v", "a"},
    {"spacesBehindLineBreaks", " \n a \r\n ", "\n a \r\n", "a"},
    {"onlyLineBreaks", "\n\r\n", "\n\r\n", ""},
    {"zeroWidthSpaceStays", "\u200Ba\u200B", "\u200Ba\u200B", "\u200Ba\u200B"},
    {"wordJoinerAndMarkStay", "\u2060a\uFEFF", "\u2060a\uFEFF", "\u2060a\uFEFF"},
    {"controlsStay",
     "\x1F"
     "a\x7F",
     "\x1F"
     "a\x7F",
     "\x1F"
     "a\x7F"},
    {"aNulStays", std::string(" \0 ", 3), std::string(1, '\0'), std::string(1, '\0')},
    {"lettersThatEndLikeSpaces", "\u0120\u0420", "\u0120\u0420", "\u0120\u0420"},
    {"noUTF8Stays", " \xFF\xC2 ", "\xFF\xC2", "\xFF\xC2"},
    {"looseContinuationsStay", "\x80\xA0", "\x80\xA0", "\x80\xA0"},
};

class TextTrimmed : public testing::TestWithParam<TrimmedCase> {};
TEST_P(TextTrimmed, losesBothEndsOnly) {
  const auto& [name, text, trimmed, trimmedOfLines] = GetParam();
  EXPECT_EQ(Text::trimmed(text), trimmed);
  EXPECT_EQ(Text::trimmedOfLines(text), trimmedOfLines);
  EXPECT_EQ(Text::isBlank(text), trimmed.empty());
}
INSTANTIATE_TEST_SUITE_P(Text, TextTrimmed, testing::ValuesIn(trimmedCases), named);

struct LinesCase {
  const char* name;
  std::string text;
  std::vector<std::string_view> lines;
  bool hasLineBreak;
};
const LinesCase linesCases[] = {
    {"nothing", "", {}, false},
    {"oneLine", "a b\t", {"a b\t"}, false},
    {"oneLineThatEnds", "a\n", {"a"}, true},
    {"twoLines", "a\nb", {"a", "b"}, true},
    {"crLf", "a\r\nb\r\n", {"a", "b"}, true},
    {"cr", "a\rb", {"a", "b"}, true},
    {"verticalTab", "a\vb", {"a", "b"}, true},
    {"formFeed", "a\fb", {"a", "b"}, true},
    {"nextLine", "a\u0085b", {"a", "b"}, true},
    {"lineSeparator", "a\u2028b", {"a", "b"}, true},
    {"paragraphSeparator", "a\u2029b", {"a", "b"}, true},
    {"emptyOnesAreLeftOut", "\n\na\n\r\n\nb\n\n", {"a", "b"}, true},
    {"blankOnesStay", " \n\t\n", {" ", "\t"}, true},
    {"onlyLineBreaks", "\n\r\n\u2029", {}, true},
    {"scalarsOfTheSameBytes",
     "a\u0084b\u00C5c\u2027d\u202Ae\u2068",
     {"a\u0084b\u00C5c\u2027d\u202Ae\u2068"},
     false},
    {"unitSeparatorsAreNone", "a\x1C\x1D\x1E\x1F", {"a\x1C\x1D\x1E\x1F"}, false},
    {"tabIsNone", "a\tb", {"a\tb"}, false},
    {"cutScalars", "a\xC2\nb\xE2\x80", {"a\xC2", "b\xE2\x80"}, true},
};

/// All lines, taken one by one.
std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (const auto line = Text::nextLine(text)) lines.push_back(*line);
  return lines;
}

class TextLines : public testing::TestWithParam<LinesCase> {};
TEST_P(TextLines, areThePiecesBetweenLineBreaks) {
  const auto& [name, text, lines, hasLineBreak] = GetParam();
  EXPECT_EQ(linesOf(text), lines);
  EXPECT_EQ(Text::firstLine(text),
            lines.empty() ? std::nullopt : std::optional<std::string_view>(lines.front()));
  std::string_view rest = text;
  for (const std::string_view line : lines) EXPECT_EQ(Text::nextLine(rest), line);
  EXPECT_EQ(Text::nextLine(rest), std::nullopt);
  EXPECT_EQ(rest, "");
  EXPECT_EQ(Text::hasLineBreak(text), hasLineBreak);
}
INSTANTIATE_TEST_SUITE_P(Text, TextLines, testing::ValuesIn(linesCases), named);

TEST(TextLines, endWhereverTheBreakStands) {
  for (const std::string_view lineBreak :
       {"\n", "\v", "\f", "\r", "\r\n", "\u0085", "\u2028", "\u2029"}) {
    for (std::size_t size = 1; size < 20; ++size) {
      const std::string first(size, 'x');
      const std::string second(20, 'y');
      const std::string both = first + std::string(lineBreak) + second;
      EXPECT_EQ(linesOf(both), (std::vector<std::string_view>{first, second}));
    }
  }
}

TEST(TextLines, ofMegabytes) {
  const std::string text = repeated("a\r\n\u2028", megabytes / 6);
  EXPECT_EQ(linesOf(text).size(), megabytes / 6);
  EXPECT_EQ(Text::firstLine(repeated("\n", megabytes) + "a"), "a");
  EXPECT_FALSE(Text::hasLineBreak(repeated("\xE2", megabytes)));
  EXPECT_EQ(Text::trimmedOfLines(repeated(" \n", megabytes / 2)), "");
  EXPECT_TRUE(Text::isBlank(repeated("\u3000", megabytes / 3)));
}

// ---- Collapsed ----------------------------------------------------------------------------------

struct CollapsedCase {
  const char* name;
  std::string text;
  std::string collapsed;
};
const CollapsedCase collapsedCases[] = {
    {"nothing", "", ""},
    {"oneWord", "word", "word"},
    {"words", "two  words", "two words"},
    {"endsAreTrimmed", " \n a b \t", "a b"},
    {"everyWhiteSpace",
     "a\t\n\v\f\r \u0085\u00A0\u1680\u2000\u2005\u200A\u2028\u2029\u202F\u205F\u3000b", "a b"},
    {"zeroWidthSpaceIsNone", "a\u200Bb \uFEFF", "a\u200Bb \uFEFF"},
    {"separatorsOfInformationAreNone",
     "a\x1F"
     "b",
     "a\x1F"
     "b"},
    {"onlyWhiteSpace", " \t\r\n\u2029", ""},
};

class TextCollapsed : public testing::TestWithParam<CollapsedCase> {};
TEST_P(TextCollapsed, hasSingleSpaces) {
  EXPECT_EQ(Text::collapsed(GetParam().text, 120), GetParam().collapsed);
  EXPECT_EQ(Text::collapsed(GetParam().text, everything), GetParam().collapsed);
}
INSTANTIATE_TEST_SUITE_P(Text, TextCollapsed, testing::ValuesIn(collapsedCases), named);

TEST(TextCollapsed, isWholeAtItsLimitAndLongerBeyond) {
  EXPECT_EQ(Text::collapsed(repeated("x", 119), 120), repeated("x", 119));
  EXPECT_EQ(Text::collapsed(repeated("x", 120), 120), repeated("x", 120));
  EXPECT_EQ(Text::collapsed(repeated("x", 120) + "  \n ", 120), repeated("x", 120));
  EXPECT_EQ(Text::characters(Text::collapsed(repeated("x", 121), 120)), 121U);
  EXPECT_GT(Text::characters(Text::collapsed(repeated("x ", 1000), 120)), 120U);
  EXPECT_EQ(Text::collapsed(repeated("e\u0301", 120), 120), repeated("e\u0301", 120));
  EXPECT_EQ(Text::collapsed(" ", 0), "");
  EXPECT_GT(Text::characters(Text::collapsed("a b", 0)), 0U);
}

TEST(TextCollapsed, stopsReadingMegabytes) {
  EXPECT_LT(Text::collapsed(repeated("word ", tenMegabytes / 5), 120).size(), 1000U);
  EXPECT_LT(Text::collapsed(repeated("e\u0301", tenMegabytes / 3), 120).size(), 1000U);
  // One character of megabytes, however small the limit.
  const std::string accents = "a" + repeated("\u0301", tenMegabytes / 2);
  EXPECT_EQ(Text::collapsed(accents, 1), accents);
  EXPECT_EQ(Text::collapsed(repeated(" ", tenMegabytes), 120), "");
  EXPECT_EQ(Text::collapsed(repeated("ab  ", tenMegabytes / 4), everything).size(),
            tenMegabytes / 4 * 3 - 1);
}

TEST(TextCollapsed, isAStartOfTheWhole) {
  std::mt19937 random(4);
  for (int round = 0; round < 2000; ++round) {
    const std::string text = randomText(random, awkwardPieces, 40);
    const std::string whole = Text::collapsed(text, everything);
    for (const std::size_t limit : {0U, 1U, 5U, 20U}) {
      const std::string collapsed = Text::collapsed(text, limit);
      EXPECT_TRUE(whole.starts_with(collapsed));
      if (Text::characters(whole) <= limit) {
        EXPECT_EQ(collapsed, whole);
      } else {
        EXPECT_GT(Text::characters(collapsed), limit);
        EXPECT_EQ(Text::prefix(collapsed, limit), Text::prefix(whole, limit));
      }
    }
  }
}

// ---- Case ---------------------------------------------------------------------------------------

TEST(TextJoined, hasOneSpaceBetweenTwoWords) {
  const auto joined = [](const std::vector<std::string>& words) { return Text::joined(words); };
  EXPECT_EQ(joined({}), "");
  EXPECT_EQ(joined({"a"}), "a");
  EXPECT_EQ(joined({"a", "b c", " d "}), "a b c  d ");
  EXPECT_EQ(joined({""}), "");
  EXPECT_EQ(joined({"", ""}), " ");
  EXPECT_EQ(joined({"", "a", ""}), " a ");
  EXPECT_EQ(Text::joined(std::vector<std::string_view>{"a", "b"}), "a b");
  EXPECT_EQ(Text::joined(std::vector<std::string_view>{"a", "", "b"}, ", "), "a, , b");
}

TEST(TextCase, lowercasesASCIIOnly) {
  EXPECT_EQ(Text::lowercasedASCII(""), "");
  EXPECT_EQ(Text::lowercasedASCII("@AZ[`az{ \u00C9\u0130\u212A"), "@az[`az{ \u00C9\u0130\u212A");
  EXPECT_EQ(Text::lowercasedASCII("NEEDS-Input"), "needs-input");
}

struct CaseCase {
  const char* name;
  std::string text;
  std::string mapped;
};
const CaseCase capitalizedCases[] = {
    {"nothing", "", ""},
    {"agent", "claude", "Claude"},
    {"restStays", "cLAUDE code", "CLAUDE code"},
    {"alreadyCapital", "Codex", "Codex"},
    {"oneLetter", "x", "X"},
    {"digit", "1a", "1a"},
    {"space", " a", " a"},
    {"lineBreak", "\r\na", "\r\na"},
    {"precomposed", "\u00E9a", "\u00C9a"},
    {"combined", "e\u0301a", "E\u0301a"},
    {"sharpS", "\u00DFa", "SSa"},
    {"capitalSharpS", "\u1E9Ea", "\u1E9Ea"},
    {"ligature", "\uFB03a", "FFIa"},
    {"digraph", "\u01C6a", "\u01C4a"},
    {"dottedCapitalI", "\u0130a", "\u0130a"},
    {"dotlessI", "\u0131a", "Ia"},
    {"finalSigma", "\u03C2a", "\u03A3a"},
    {"deseret", "\U00010428a", "\U00010400a"},
    {"georgian", "\u10D0", "\u1C90"},
    {"emoji", "\U0001F600a", "\U0001F600a"},
};
class TextCapitalized : public testing::TestWithParam<CaseCase> {};
TEST_P(TextCapitalized, hasItsFirstCharacterUpperCased) {
  EXPECT_EQ(Text::capitalized(GetParam().text), GetParam().mapped);
}
INSTANTIATE_TEST_SUITE_P(Text, TextCapitalized, testing::ValuesIn(capitalizedCases), named);

const CaseCase foldedCases[] = {
    {"nothing", "", ""},
    {"ascii", "@AZ[`az{19", "@az[`az{19"},
    {"latin", "\u00C9\u00C0", "\u00E9\u00E0"},
    {"longS", "\u017F", "s"},
    {"kelvin", "\u212A", "k"},
    {"angstrom", "\u212B", "\u00E5"},
    {"sigmas", "\u03A3\u03C3\u03C2", "\u03C3\u03C3\u03C3"},
    {"micro", "\u00B5", "\u03BC"},
    {"sharpSStays", "\u00DF", "\u00DF"},
    {"capitalSharpS", "\u1E9E", "\u00DF"},
    {"ligatureStays", "\uFB01", "\uFB01"},
    {"dottedCapitalIStays", "\u0130", "\u0130"},
    {"dotlessIStays", "\u0131", "\u0131"},
    {"greekWithIota", "\u1F88\u1FBC", "\u1F80\u1FB3"},
    {"cherokee", "\uAB70\u13A0", "\u13A0\u13A0"},
    {"deseret", "\U00010400", "\U00010428"},
    {"fullWidth", "\uFF21", "\uFF41"},
    {"others", "\u4E2D\U0001F600\u0301", "\u4E2D\U0001F600\u0301"},
};
class TextFolded : public testing::TestWithParam<CaseCase> {};
TEST_P(TextFolded, hasEveryScalarSimplyFolded) {
  EXPECT_EQ(Text::caseFolded(GetParam().text), GetParam().mapped);
}
INSTANTIATE_TEST_SUITE_P(Text, TextFolded, testing::ValuesIn(foldedCases), named);

TEST(TextFolded, foldsMegabytes) {
  EXPECT_EQ(Text::caseFolded(repeated("\u00C9a", tenMegabytes / 3)),
            repeated("\u00E9a", tenMegabytes / 3));
}

// ---- Canonical equivalence ----------------------------------------------------------------------

struct CanonicalCase {
  const char* name;
  std::string left;
  std::string right;
  bool equal;
};
const CanonicalCase canonicalCases[] = {
    {"nothing", "", "", true},
    {"same", "key", "key", true},
    {"other", "key", "Key", false},
    {"longer", "key", "keys", false},
    {"precomposed", "caf\u00E9", "cafe\u0301", true},
    {"withoutAccent", "caf\u00E9", "cafe", false},
    {"twoPrecomposed", "\u1E69", "\u1E63\u0307", true},
    {"orderOfClasses", "s\u0323\u0307", "s\u0307\u0323", true},
    {"orderWithinAClass", "a\u0301\u0300", "a\u0300\u0301", false},
    {"orderAcrossAStarter", "s\u0323a\u0307", "s\u0307a\u0323", false},
    {"blockedByAJoiner", "s\u034F\u0323", "s\u0323\u034F", false},
    {"angstrom", "\u212B", "A\u030A", true},
    {"asciiAndASingleton", ";", "\u037E", true},
    {"hangul", "\uAC01", "\u1100\u1161\u11A8", true},
    {"compatibilityIsOther", "\uFB01", "fi", false},
    {"caseIsOther", "\u00E9", "\u00C9", false},
    {"noUTF8", "\xFF\u00E9",
     "\xFF"
     "e\u0301",
     true},
    {"aNul", std::string("a\0\xC3\xA9", 4), std::string("a\0e\xCC\x81", 5), true},
    {"differentNul", std::string("\xC3\xA9\0a", 4), std::string("\xC3\xA9\0b", 4), false},
};
class TextCanonical : public testing::TestWithParam<CanonicalCase> {};
TEST_P(TextCanonical, equalsWhateverItsForm) {
  const auto& [name, left, right, equal] = GetParam();
  EXPECT_EQ(Text::canonicallyEqual(left, right), equal);
  EXPECT_EQ(Text::canonicallyEqual(right, left), equal);
}
INSTANTIATE_TEST_SUITE_P(Text, TextCanonical, testing::ValuesIn(canonicalCases), named);

TEST(TextCanonical, keepsTheOrderWithinAClassHoweverLong) {
  std::string mixed = "a";
  for (int round = 0; round < 50; ++round) mixed += "\u0301\u0323\u0300\u0316";
  EXPECT_TRUE(Text::canonicallyEqual(
      mixed, "a" + repeated("\u0323\u0316", 50) + repeated("\u0301\u0300", 50)));
  EXPECT_FALSE(Text::canonicallyEqual(
      mixed, "a" + repeated("\u0323\u0316", 50) + repeated("\u0300\u0301", 50)));
}

TEST(TextCanonical, comparesMegabytesOfAccentsInTheWrongOrder) {
  const std::size_t count = 500'000;
  const std::string below = repeated("\u0323", count);  // class 220
  const std::string above = repeated("\u0307", count);  // class 230
  EXPECT_TRUE(Text::canonicallyEqual("a" + above + below, "a" + below + above));
  EXPECT_FALSE(Text::canonicallyEqual("a" + above + below, "a" + below + above + above));
}

// ---- Scalars ------------------------------------------------------------------------------------

TEST(TextScalar, isFoundAtBothEnds) {
  for (const auto& [text, value] :
       std::vector<std::pair<std::string, char32_t>>{{"a", U'a'},
                                                     {std::string(1, '\0'), U'\0'},
                                                     {"\u0080", U'\u0080'},
                                                     {"\u07FF", U'\u07FF'},
                                                     {"\u0800", U'\u0800'},
                                                     {"\uFFFF", U'\uFFFF'},
                                                     {"\U00010000", U'\U00010000'},
                                                     {"\U0010FFFF", U'\U0010FFFF'}}) {
    EXPECT_EQ(Text::firstScalar(text + "\u00E9").value, value);
    EXPECT_EQ(Text::firstScalar(text + "\u00E9").size, text.size());
    EXPECT_EQ(Text::lastScalar("\u00E9" + text).value, value);
    EXPECT_EQ(Text::lastScalar("\u00E9" + text).size, text.size());
    EXPECT_EQ(Text::lastScalar(text).size, text.size());
    std::string appended = "x";
    Text::append(appended, value);
    EXPECT_EQ(appended, "x" + text);
  }
  EXPECT_EQ(Text::firstScalar("").size, 0U);
  EXPECT_EQ(Text::lastScalar("").size, 0U);
}

TEST(TextScalar, isAReplacementWhereThereIsNone) {
  EXPECT_EQ(Text::firstScalar("\xE2\x82z").value, 0xFFFDU);
  EXPECT_EQ(Text::firstScalar("\xE2\x82z").size, 2U);
  for (const std::string text : {"\xFF", "a\x80", "\xC3\xA9\x80", "\x80\x80\x80\x80", "\xE2\x82",
                                 "\xE2\x82\xAC\xAC", "\xF8\x88\x80\x80\x80"}) {
    EXPECT_EQ(Text::lastScalar(text).value, 0xFFFDU) << testing::PrintToString(text);
    EXPECT_GE(Text::lastScalar(text).size, 1U);
    EXPECT_LE(Text::lastScalar(text).size, text.size());
  }
}

TEST(TextScalar, isReplacedWhenAppendedThoughItIsNone) {
  for (const char32_t value : {0xD800U, 0xDFFFU, 0x110000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    std::string text;
    Text::append(text, value);
    EXPECT_EQ(text, replaced);
  }
}

TEST(TextScalar, isDeceptiveWhenATerminalWouldObeyIt) {
  for (const char32_t scalar : {U'\0',
                                U'\t',
                                U'\n',
                                U'\x1B',
                                U'\x7F',
                                U'\u0080',
                                U'\u009B',
                                U'\u009F',
                                U'\u00AD',
                                U'\u061C',
                                U'\u200B',
                                U'\u200C',
                                U'\u200E',
                                U'\u200F',
                                U'\u2028',
                                U'\u2029',
                                U'\u202A',
                                U'\u202E',
                                U'\u2060',
                                U'\u2066',
                                U'\u2069',
                                U'\uE000',
                                U'\uFEFF',
                                U'\uFFF9',
                                U'\uFFFF',
                                U'\U000E0001',
                                U'\U000E0041',
                                U'\U000F0000',
                                U'\U0010FFFF',
                                char32_t{0xD800},
                                char32_t{0x110000}}) {
    EXPECT_TRUE(Text::isDeceptive(scalar)) << std::hex << static_cast<std::uint32_t>(scalar);
  }
  for (const char32_t scalar :
       {U' ', U'a', U'~', U'\u00A0', U'\u00E9', U'\u0301', U'\u05D0', U'\u200D', U'\u3000',
        U'\u4E2D', U'\uFE0F', U'\uFFFD', U'\U0001F600', U'\U0001F1E9'}) {
    EXPECT_FALSE(Text::isDeceptive(scalar)) << std::hex << static_cast<std::uint32_t>(scalar);
  }
}

}  // namespace
