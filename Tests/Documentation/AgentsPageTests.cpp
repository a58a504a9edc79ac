#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneControl/AgentHooks.h"
#include "Documentation/Pages.h"

namespace CorvaneControl {
namespace {

using CorvaneTests::Block;
using CorvaneTests::Markdown;

const std::string path = "Documentation/agents.md";

/// The tool that the page's hooks call.
constexpr std::string_view tool = "/usr/local/bin/corvanectl";

class AgentsPage : public testing::TestWithParam<Agent> {};

TEST_P(AgentsPage, areWhatWouldBeAddedToAnEmptyFile) {
  const std::vector<Block> blocks = Markdown(CorvaneTests::page(path)).blocks;
  std::string snippet = AgentHooks::snippet(GetParam(), tool);
  ASSERT_TRUE(snippet.ends_with('\n'));
  snippet.pop_back();
  EXPECT_EQ(std::ranges::count(blocks, snippet, &Block::text), 1);
}

TEST_P(AgentsPage, standInTheFileThatThePageNames) {
  const std::string file = AgentHookFile{.agent = GetParam(), .home = "/"}.displayPath();
  EXPECT_NE(CorvaneTests::page(path).find("<code>" + file + "</code>"), std::string::npos) << file;
}

TEST_P(AgentsPage, areAllInTheTableOfWhatBecomesOfThem) {
  const auto column = 1 + static_cast<std::size_t>(GetParam());
  std::vector<std::string> named;
  for (const Markdown::Line& line : Markdown(CorvaneTests::page(path)).lines) {
    const auto cells = CorvaneTests::cellsOf(line.text);
    if (line.section != "# Agents" || cells.size() <= column) continue;
    for (const auto& event : CorvaneTests::between(cells[column], '`')) {
      if (std::ranges::find(named, event) == named.end()) named.push_back(event);
    }
  }
  std::ranges::sort(named);
  const auto events = AgentHooks::events(GetParam());
  std::vector<std::string> expected(events.begin(), events.end());
  std::ranges::sort(expected);
  EXPECT_EQ(named, expected);
}

constexpr auto named = [](const auto& info) { return std::string(wireName(info.param)); };
INSTANTIATE_TEST_SUITE_P(, AgentsPage, testing::ValuesIn(allAgents), named);

}  // namespace
}  // namespace CorvaneControl
