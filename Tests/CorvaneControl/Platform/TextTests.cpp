#include "CorvaneControl/Platform/Text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

namespace Text = CorvaneControl::Text;

TEST(TextCharacters, areCountedAsPeopleSeeThem) {
  EXPECT_EQ(Text::characters(""), 0U);
  EXPECT_EQ(Text::characters("abc"), 3U);
  EXPECT_EQ(Text::characters("a\r\nb"), 3U);
  EXPECT_EQ(Text::characters("e\u0301"), 1U);
  EXPECT_EQ(Text::characters("\U0001F1E9\U0001F1EA\U0001F1EB\U0001F1F7"), 2U);
  EXPECT_EQ(Text::characters("\U0001F468\u200D\U0001F469\u200D\U0001F467"), 1U);
}

TEST(TextPrefix, endsBetweenCharacters) {
  EXPECT_EQ(Text::prefix("abc", 2), "ab");
  EXPECT_EQ(Text::prefix("abe\u0301d", 3), "abe\u0301");
  EXPECT_EQ(Text::prefix("ab", 3), "ab");
}

TEST(TextRepaired, replacesWhatIsNoUTF8) {
  EXPECT_EQ(Text::repaired("a\xFFz"), "a\uFFFDz");
  EXPECT_EQ(Text::repaired("caf\u00E9"), "caf\u00E9");
}

TEST(TextCollapsed, joinsPiecesWithSingleSpaces) {
  EXPECT_EQ(Text::collapsed(" \n a \t\u2003 b\r\n", 100), "a b");
}

TEST(TextLines, leaveEmptyOnesOut) {
  EXPECT_EQ(Text::lines("\r\na\n\nb\u2028c"), (std::vector<std::string_view>{"a", "b", "c"}));
}

TEST(TextCanonically, equalsItsDecomposition) {
  EXPECT_TRUE(Text::canonicallyEqual("\u00E9", "e\u0301"));
  EXPECT_FALSE(Text::canonicallyEqual("\u00E9", "e"));
}

}  // namespace
