#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "CorvaneControl/AgentHooks.h"
#include "CorvaneControl/JSON.h"
#include "CorvaneControl/OrderedJSON.h"
#include "Support/CountedMemory.h"

namespace {

namespace AgentHooks = CorvaneControl::AgentHooks;
namespace JSON = CorvaneControl::JSON;
using CorvaneControl::Agent;
using CorvaneControl::OrderedJSON;

constexpr std::string_view tool = "/usr/bin/corvanectl";

/// An object with `element` two hundred thousand times in a list.
std::string listOf(std::string_view element) {
  std::string text = R"({"list":[)";
  for (int count = 0; count < 200'000; ++count) text.append(element).append(",");
  return text.append(element).append("]}");
}

/// The most memory that is held at a time while `work` runs, and the text itself.
template <class Work>
std::size_t mostHeldWith(const std::string& text, const Work& work) {
  const std::size_t before = CorvaneTests::heldBytes();
  CorvaneTests::forgetMostHeld();
  work();
  return text.size() + CorvaneTests::mostHeldBytes() - before;
}

TEST(OrderedJSONCost, aValueTakesEightBytes) {
  EXPECT_EQ(sizeof(OrderedJSON), 8U);
  EXPECT_EQ(sizeof(OrderedJSON::Member), 16U);
}

TEST(OrderedJSONCost, hooksOfAFileOfNumbersTakeNoMoreThanTenTimesTheFile) {
  const std::string text = listOf("1");
  const std::size_t most = 10 * text.size();
  EXPECT_LE(mostHeldWith(text, [&] { EXPECT_TRUE(AgentHooks::adding(text, Agent::claude, tool)); }),
            most);
  EXPECT_LE(mostHeldWith(text, [&] { EXPECT_TRUE(AgentHooks::removing(text, Agent::claude)); }),
            most);
  EXPECT_LE(mostHeldWith(text, [&] { EXPECT_TRUE(AgentHooks::state(text, Agent::claude, tool)); }),
            most);
  const auto added = AgentHooks::adding(text, Agent::claude, tool);
  ASSERT_TRUE(added);
  EXPECT_LE(mostHeldWith(*added,
                         [&] {
                           EXPECT_EQ(*AgentHooks::state(*added, Agent::claude, tool),
                                     AgentHooks::State::added);
                         }),
            10 * added->size());
}

TEST(OrderedJSONCost, otherShortValuesTakeNoMoreThanTenTimesTheFile) {
  for (const char* element : {"true", "\"a\"", "12345678", "\"a longer string\"", "{}", "[]"}) {
    const std::string text = listOf(element);
    EXPECT_LE(mostHeldWith(text, [&] { EXPECT_TRUE(OrderedJSON::parse(text)); }), 10 * text.size())
        << element;
  }
}

TEST(OrderedJSONCost, theWrittenTextTakesNoMoreThanItsSize) {
  const auto value = OrderedJSON::parse(listOf("1"));
  ASSERT_TRUE(value);
  std::size_t size = 0;
  const std::size_t held = mostHeldWith("", [&] { size = value->text("  ").size(); });
  EXPECT_LE(held, size + 100);
}

TEST(JSONCost, aSmallDocumentTakesOneAllocation) {
  std::string text =
      R"({"session_id":"s","cwd":"/tmp","tool_input":{"command":"ls","list":[1,2]},)";
  text += R"("content":")" + std::string(4000, 'x') + "\\n\"}";
  const std::size_t before = CorvaneTests::allocations();
  const auto document = JSON::Document::parse(text);
  ASSERT_TRUE(document);
  EXPECT_EQ(CorvaneTests::allocations() - before, 1U);
}

TEST(JSONCost, anUnusedMemberTakesNoMemory) {
  std::string text = R"({"unused":[)";
  for (int count = 0; count < 100'000; ++count) text += R"({"a":["b\n",1]},)";
  text += R"(0],"cwd":"/tmp"})";
  const std::size_t before = CorvaneTests::allocatedBytes();
  ASSERT_TRUE(JSON::Document::parse(text, "unused"));
  EXPECT_LE(CorvaneTests::allocatedBytes() - before, 100'000U);
}

}  // namespace
