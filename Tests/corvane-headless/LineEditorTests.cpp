#include "corvane-headless/LineEditor.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace CorvaneControl::Headless {
namespace {

struct KeysCase {
  const char* name;
  std::string keys;
  std::vector<std::string> lines;
  std::string echo;
  std::string shown;
  bool ended = false;
};

const KeysCase keysCases[] = {
    {"nothing", "", {}, "", ""},
    {"aLine", "allow\n", {"allow"}, "allow\n", ""},
    {"aCarriageReturn", "a\r", {"a"}, "a\n", ""},
    {"anEmptyLine", "\n", {""}, "\n", ""},
    {"halfALine", "al", {}, "al", "al"},
    {"twoLinesAndAHalf", "a\nd\nx", {"a", "d"}, "a\nd\nx", "x"},
    {"backspace", "as\x7f\n", {"a"}, "as\b \b\n", ""},
    {"theOtherBackspace", "as\b\n", {"a"}, "as\b \b\n", ""},
    {"backspaceInAnEmptyLine", "\x7f", {}, "", ""},
    {"backspaceOnlyInItsLine", "a\n\x7f", {"a"}, "a\n", ""},
    {"theWholeLineTakenBack", "ab\x15l\n", {"l"}, "ab\b \b\b \bl\n", ""},
    {"aWordTakenBack", "1, 23 \x17\n", {"1, "}, "1, 23 \b \b\b \b\b \b\n", ""},
    {"theOnlyWordTakenBack", "ab\x17l\n", {"l"}, "ab\b \b\b \bl\n", ""},
    {"aWordTakenBackWhereIsNone", "\x17", {}, "", ""},
    {"aTextThatTheTerminalWouldObey", "\x1b[A\n", {"\x1b[A"}, "?[A\n", ""},
    {"aTextBeyondASCII", "é\n", {"é"}, "??\n", ""},
    {"theEnd", "\x04", {}, "", "", true},
    {"theEndBehindALine", "a\n\x04", {"a"}, "a\n", "", true},
    {"noEndInALine", "a\x04", {}, "a", "a"},
};

class Keys : public testing::TestWithParam<KeysCase> {};
TEST_P(Keys, makeLines) {
  // All at once, and one by one.
  for (const bool isSlow : {false, true}) {
    LineEditor editor;
    std::string echo;
    if (isSlow) {
      for (const char key : GetParam().keys) echo += editor.take({&key, 1}, false);
    } else {
      echo = editor.take(GetParam().keys, false);
    }
    std::vector<std::string> lines;
    while (const auto line = editor.nextLine()) {
      lines.push_back(line->text);
      EXPECT_FALSE(line->tooEarly);
    }
    EXPECT_EQ(lines, GetParam().lines);
    EXPECT_EQ(echo, GetParam().echo);
    EXPECT_EQ(editor.shown(), GetParam().shown);
    EXPECT_EQ(editor.hasEnded(), GetParam().ended);
  }
}
INSTANTIATE_TEST_SUITE_P(Headless, Keys, testing::ValuesIn(keysCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(LineEditor, holdsAKeyThatCameTooEarlyAgainstItsLine) {
  LineEditor editor;
  editor.take("a", true);
  editor.take("\nd\n", false);
  EXPECT_EQ(editor.nextLine(), (TypedLine{.text = "a", .tooEarly = true}));
  EXPECT_EQ(editor.nextLine(), (TypedLine{.text = "d"}));
  editor.take("a", false);
  editor.take("\n", true);
  EXPECT_EQ(editor.nextLine(), (TypedLine{.text = "a", .tooEarly = true}));
}

TEST(LineEditor, forgivesAKeyThatWasTakenBack) {
  LineEditor editor;
  editor.take("a\x7f", true);
  editor.take("d\n", false);
  EXPECT_EQ(editor.nextLine(), (TypedLine{.text = "d"}));
  editor.take("ab\x15", true);
  editor.take("d\n", false);
  EXPECT_EQ(editor.nextLine(), (TypedLine{.text = "d"}));
  editor.take("ab\x7f", true);
  editor.take("\n", false);
  EXPECT_EQ(editor.nextLine(), (TypedLine{.text = "a", .tooEarly = true}));
}

TEST(LineEditor, forgets) {
  LineEditor editor;
  EXPECT_TRUE(editor.isEmpty());
  editor.take("a", true);
  EXPECT_FALSE(editor.isEmpty());
  editor.take("\n", true);
  EXPECT_FALSE(editor.isEmpty());
  editor.take("x", true);
  editor.forget();
  EXPECT_TRUE(editor.isEmpty());
  EXPECT_EQ(editor.shown(), "");
  EXPECT_EQ(editor.nextLine(), std::nullopt);
  editor.take("d\n", false);
  EXPECT_EQ(editor.nextLine(), (TypedLine{.text = "d"}));
}

TEST(LineEditor, keepsNoMoreThanItHasRoomFor) {
  LineEditor editor;
  editor.take(std::string(1'000'000, 'x'), false);
  EXPECT_EQ(editor.shown().size(), LineEditor::mostTyped);
  editor.take("\x7f\n", false);
  EXPECT_EQ(editor.nextLine()->text.size(), LineEditor::mostTyped - 1);
  editor.take(std::string(1'000'000, '\n'), false);
  std::size_t lines = 0;
  while (editor.nextLine()) ++lines;
  EXPECT_EQ(lines, LineEditor::mostTyped);
  editor.take("a\n", false);
  EXPECT_EQ(editor.nextLine(), (TypedLine{.text = "a"}));
}

}  // namespace
}  // namespace CorvaneControl::Headless
