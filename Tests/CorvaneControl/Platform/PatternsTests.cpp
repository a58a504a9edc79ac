#include "CorvaneControl/Platform/Patterns.h"

#include <gtest/gtest.h>

namespace {

namespace Patterns = CorvaneControl::Patterns;

TEST(PatternsBasics, recogniseMarks) {
  EXPECT_EQ(Patterns::headingMark("## a"), 3U);
  EXPECT_EQ(Patterns::indentedHeadingMark(" ## a"), 4U);
  EXPECT_EQ(Patterns::blockMark("12) a"), 4U);
  EXPECT_TRUE(Patterns::isNumberedStep(" 1. a"));
  EXPECT_TRUE(Patterns::beginsWithTag("<a>", "a"));
  EXPECT_EQ(Patterns::openingTag("<a b='>'> c", "a"), 10U);
  EXPECT_EQ(Patterns::recommendationSuffix("Use it (Recommended)"), 6U);
}

}  // namespace
