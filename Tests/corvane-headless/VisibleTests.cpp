#include "corvane-headless/Visible.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl::Headless {
namespace {

struct VisibleCase {
  const char* name;
  std::string text;
  std::string visible;
};

const VisibleCase visibleCases[] = {
    {"keepsOrdinaryText", "npm run build && echo 'done' # 100%",
     "npm run build && echo 'done' # 100%"},
    {"keepsTheEmptyText", "", ""},
    {"keepsOtherScripts", "größe 日本語 עברית", "größe 日本語 עברית"},
    {"keepsEmoji", "👩‍👩‍👧 ❤️", "👩‍👩‍👧 ❤️"},
    {"keepsCombiningAccents", "e\u0301", "e\u0301"},
    {"writesOutEscape", "a\x1b[2Jb", "a\\u{1B}[2Jb"},
    {"writesOutNul", std::string("a\0b", 3), "a\\u{0}b"},
    {"writesOutDelete", "a\x7f", "a\\u{7F}"},
    {"writesOutBackspace", "rm\b\bls", "rm\\u{8}\\u{8}ls"},
    {"writesOutLineFeeds", "a\nb\r\n", "a\\u{A}b\\u{D}\\u{A}"},
    {"writesOutTheC1Controls", "\u009b31m", "\\u{9B}31m"},
    {"writesOutLineSeparators", "a\u2028b\u2029c\u0085", "a\\u{2028}b\\u{2029}c\\u{85}"},
    {"writesOutBidirectionalOverrides", "\u202Etxt.exe\u202C", "\\u{202E}txt.exe\\u{202C}"},
    {"writesOutBidirectionalIsolates", "\u2066a\u2069", "\\u{2066}a\\u{2069}"},
    {"writesOutZeroWidthSpaces", "r\u200Bm \uFEFFx", "r\\u{200B}m \\u{FEFF}x"},
    {"writesOutAJoinerAmongLetters", "r\u200Dm", "r\\u{200D}m"},
    {"writesOutJoinersInARow", "é\u200D\u200Dé", "é\\u{200D}\\u{200D}é"},
    {"writesOutAJoinerAfterALetter", "é\u200Dé", "é\\u{200D}é"},
    {"writesOutAJoinerBehindAnEmoji", "👩\u200Dx", "👩\\u{200D}x"},
    {"writesOutAJoinerAtTheEnd", "👩\u200D", "👩\\u{200D}"},
    {"writesOutAJoinerBeforeAnEmoji", "日\u200D👩", "日\\u{200D}👩"},
    {"writesOutSelectorsAfterLetters", "é\uFE0E日\uFE0F", "é\\u{FE0E}日\\u{FE0F}"},
    {"writesOutTheSecondSelector", "❤\uFE0F\uFE0F", "❤\uFE0F\\u{FE0F}"},
    {"keepsSkinTonesInEmoji", "👩🏽\u200D🚀", "👩🏽\u200D🚀"},
    {"keepsSelectorsInEmoji", "🏳\uFE0F\u200D🌈 ☎\uFE0E", "🏳\uFE0F\u200D🌈 ☎\uFE0E"},
    {"writesOutSpacesThatAreNone", "rm\u00A0-rf\u3000/", "rm\\u{A0}-rf\\u{3000}/"},
    {"writesOutBlankLetters", "a\u3164b\u2800", "a\\u{3164}b\\u{2800}"},
    {"writesOutTags", "\U000E0041", "\\u{E0041}"},
    {"writesOutPrivateAndUnassignedScalars", "\uE000\U000F0000\uFFFF",
     "\\u{E000}\\u{F0000}\\u{FFFF}"},
    {"showsTabs", "a\tb\t\tc", "a⇥ b⇥ ⇥ c"},
    {"writesOutTheSignForTabs", "a⇥ b", "a\\u{21E5} b"},
    {"keepsAFewBlanks", "a    b", "a    b"},
    {"countsBlanksBeyondAFew", "ls     ; touch", "ls⟨5 blanks⟩; touch"},
    {"countsHundredsOfBlanks", "ls" + std::string(400, ' ') + "; touch", "ls⟨400 blanks⟩; touch"},
    {"countsTabsBeyondAFew", "ls\t\t\t\t\t; touch", "ls⟨5 tabs⟩; touch"},
    {"countsBlanksAndTabsTogether", "ls  \t\t \t\t; touch",
     "ls⟨2 blanks⟩⟨2 tabs⟩⟨1 blank⟩⟨2 tabs⟩; touch"},
    {"countsBlanksAtTheEnd", "ls ", "ls⟨1 blank⟩"},
    {"countsTabsAtTheEnd", "ls \t", "ls⟨1 blank⟩⟨1 tab⟩"},
    {"countsBlanksAlone", "   ", "⟨3 blanks⟩"},
    {"keepsIndentation", std::string(16, ' ') + "x", std::string(16, ' ') + "x"},
    {"countsAnIndentationOutOfSight", std::string(17, ' ') + "x", "⟨17 blanks⟩x"},
    {"writesOutTheSignForCounts", "ls⟨400 blanks⟩", "ls\\u{27E8}400 blanks⟩"},
    {"keepsBackslashesBeforeACount", "\\\\     x", "\\\\⟨5 blanks⟩x"},
    {"repairsMalformedText", "a\xff\xc3z", "a\uFFFD\uFFFDz"},
    {"keepsBackslashes", "grep '\\.' a\\b \\\\host\\", "grep '\\.' a\\b \\\\host\\"},
    {"doublesBackslashesOfALookalike", "a\\u{1B}b", "a\\\\u{1B}b"},
    {"doublesAllBackslashesOfALookalike", "\\\\u{1B}", "\\\\\\\\u{1B}"},
    {"doublesBackslashesBeforeWhatIsWrittenOut", "\\\x1b", "\\\\\\u{1B}"},
    {"keepsBackslashesBeforeATab", "\\\tx", "\\⇥ x"},
    {"keepsAUOfItsOwn", "u{1B} \\ u{1B} \\u1B", "u{1B} \\ u{1B} \\u1B"},
};

class Visible : public testing::TestWithParam<VisibleCase> {};
TEST_P(Visible, isWhatATerminalMayShow) { EXPECT_EQ(visible(GetParam().text), GetParam().visible); }
INSTANTIATE_TEST_SUITE_P(Headless, Visible, testing::ValuesIn(visibleCases),
                         [](const auto& row) { return std::string(row.param.name); });

/// The text that a visible one was made from.
std::string original(std::string_view shown) {
  std::string text;
  std::size_t backslashes = 0;
  for (std::size_t at = 0; at < shown.size();) {
    const std::string_view rest = shown.substr(at);
    if (rest.starts_with("\\")) {
      ++backslashes;
      ++at;
      continue;
    }
    const bool isNumber = rest.starts_with("u{") && backslashes > 0;
    text.append(isNumber ? backslashes / 2 : backslashes, '\\');
    if (isNumber && backslashes % 2 == 1) {
      const std::size_t end = rest.find('}');
      const auto scalar =
          static_cast<char32_t>(std::stoul(std::string(rest.substr(2, end - 2)), nullptr, 16));
      std::string bytes;
      if (scalar < 0x80) {
        bytes = {static_cast<char>(scalar)};
      } else if (scalar < 0x800) {
        bytes = {static_cast<char>(0xC0 | scalar >> 6), static_cast<char>(0x80 | (scalar & 0x3F))};
      } else if (scalar < 0x10000) {
        bytes = {static_cast<char>(0xE0 | scalar >> 12),
                 static_cast<char>(0x80 | (scalar >> 6 & 0x3F)),
                 static_cast<char>(0x80 | (scalar & 0x3F))};
      }
      text += bytes;
      at += end + 1;
    } else if (rest.starts_with("⟨")) {
      const std::string number(rest.substr(std::string_view("⟨").size()));
      const bool isTabs = number.find("tab") < number.find("blank");
      text.append(std::stoul(number), isTabs ? '\t' : ' ');
      at += rest.find("⟩") + std::string_view("⟩").size();
    } else if (rest.starts_with("⇥ ")) {
      text += '\t';
      at += std::string_view("⇥ ").size();
    } else {
      text += rest.front();
      ++at;
    }
    backslashes = 0;
  }
  return text.append(backslashes, '\\');
}

TEST(Visible, differsForDifferentTexts) {
  const std::vector<std::string> pieces{
      "\\",     "u{", "1B",     "}", "\x1b",   "\t",    "⇥", " ",        "a", "u", "{",
      "\u202E", "\n", "\u00A0", "é", "\u200D", "     ", "⟨", "5 blanks", "⟩", "👩", "\uFE0F"};
  std::mt19937 random(20);
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    for (auto count = random() % 9; count > 0; --count) text += pieces[random() % pieces.size()];
    const std::string shown = visible(text);
    ASSERT_EQ(original(shown), text) << shown;
  }
}

TEST(Visible, holdsNothingThatATerminalObeys) {
  std::mt19937 random(21);
  for (int round = 0; round < 2000; ++round) {
    std::string bytes;
    for (auto count = random() % 40; count > 0; --count) bytes += static_cast<char>(random());
    std::string shown = visible(bytes);
    ASSERT_EQ(Text::repaired(shown), shown);
    for (std::string_view rest = shown; !rest.empty();) {
      const Text::Scalar scalar = Text::firstScalar(rest);
      ASSERT_FALSE(Text::isDeceptive(scalar.value)) << shown;
      rest.remove_prefix(scalar.size);
    }
  }
}

TEST(VisibleStart, tellsWhatIsLeftOut) {
  EXPECT_EQ(visibleStart("abc", 3), "abc");
  EXPECT_EQ(visibleStart("abcd", 3), "abc… (1 more bytes)");
  EXPECT_EQ(visibleStart("ab\ncde", 3), "ab\\u{A}… (3 more bytes)");
  EXPECT_EQ(visibleStart("", 0), "");
  EXPECT_EQ(visibleStart("é", 0), "… (2 more bytes)");
}

TEST(VisibleLine, dropsWhatSurroundsTheText) {
  EXPECT_EQ(visibleLine(" \n a\nb \r\n"), "a\\u{A}b");
  EXPECT_EQ(visibleLine("\n"), "");
}

TEST(Rows, holdNoMoreThanFits) {
  using Rows = std::vector<std::string_view>;
  EXPECT_EQ(rows("", 4), Rows{""});
  EXPECT_EQ(rows("abcd", 4), Rows{"abcd"});
  EXPECT_EQ(rows("abcde", 4), (Rows{"abcd", "e"}));
  EXPECT_EQ(rows("日本語", 4), (Rows{"日本", "語"}));
  EXPECT_EQ(rows("abc日", 4), (Rows{"abc", "日"}));
  EXPECT_EQ(rows("日本", 1), (Rows{"日", "本"})) << "a row holds at least one character";
  EXPECT_EQ(rows("abe\u0301d", 4), (Rows{"ab", "e\u0301d"})) << "an accent stays with its letter";
}

TEST(Rows, holdNoMoreThanFitsOfACharacterWithoutEnd) {
  for (const char* const mark : {"\u0903", "\u1100", "\u0D4E", "\u0301"}) {
    std::string text = "x";
    for (int count = 0; count < 200; ++count) text += mark;
    for (const std::size_t columns : {20U, 40U, 80U}) {
      std::string together;
      for (const std::string_view row : rows(text, columns)) {
        EXPECT_LE(columnsOf(row), columns);
        together += row;
      }
      EXPECT_EQ(together, text);
    }
  }
}

TEST(IsVisible, looksAtEverythingButBlanks) {
  for (const char* const text : {"", "Mail", "Mail ", "a      b", "größe 👩‍👩‍👧"}) {
    EXPECT_TRUE(isVisible(text)) << text;
  }
  for (const char* const text : {"a\tb", "a\n", "\u202E", "\xff", "a\\u{1B}", "⟨"}) {
    EXPECT_FALSE(isVisible(text)) << text;
  }
}

TEST(ColumnsOf, countsEveryScalarBeyondASCIIAsTwo) {
  EXPECT_EQ(columnsOf(""), 0U);
  EXPECT_EQ(columnsOf("abc"), 3U);
  EXPECT_EQ(columnsOf("é日👩e\u0301"), 9U);
}

TEST(Flowed, breaksBetweenPieces) {
  EXPECT_EQ(flowed({"[a] allow", "[d] deny"}, "  ", 19), "[a] allow  [d] deny\n");
  EXPECT_EQ(flowed({"[a] allow", "[d] deny"}, "  ", 18), "[a] allow\n[d] deny\n");
  EXPECT_EQ(flowed({"[a] yes, and go on", "[d] no"}, "  ", 12),
            "[a] yes, and\n    go on\n[d] no\n");
  EXPECT_EQ(flowed({}, "  ", 12), "\n");
}

TEST(Flowed, breaksAWordThatIsWiderThanARow) {
  EXPECT_EQ(flowed({"abcdefghijklmnop runs"}, "  ", 12), "abcdefgh\n    ijklmnop\n    runs\n");
  EXPECT_EQ(flowed({"日日日日日日日日日日"}, "  ", 12), "日日日日\n    日日日日\n    日日\n");
  EXPECT_EQ(flowed({"go on, abcdefghij"}, "  ", 12), "go on,\n    abcdefgh\n    ij\n");
}

TEST(Flowed, breaksASentenceBetweenItsWords) {
  EXPECT_EQ(flowed("That is no answer.", 80), "That is no answer.\n");
  EXPECT_EQ(flowed("That is no answer.", 10), "That is no\nanswer.\n");
}

TEST(Rows, makeUpTheText) {
  std::string text;
  for (int count = 0; count < 10000; ++count) text += count % 7 == 0 ? "日" : "ab";
  std::string together;
  for (const std::string_view row : rows(text, 37)) {
    EXPECT_LE(Text::characters(row), 37U);
    together += row;
  }
  EXPECT_EQ(together, text);
}

}  // namespace
}  // namespace CorvaneControl::Headless
