#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "CorvaneControl/ControlCommandLine.h"
#include "Documentation/Pages.h"

namespace CorvaneControl {
namespace {

using CorvaneTests::Block;
using CorvaneTests::Markdown;

TEST(Readme, showsTheUsageText) {
  const std::vector<Block> blocks = Markdown(CorvaneTests::page("README.md")).blocks;
  EXPECT_EQ(std::ranges::count(blocks, ControlCommandLine::usage, &Block::text), 1);
}

}  // namespace
}  // namespace CorvaneControl
