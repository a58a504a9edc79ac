#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

#include "CorvaneControl/AgentPermission.h"
#include "CorvaneControl/AgentPermissionTesting.h"
#include "Support/CountedMemory.h"

namespace CorvaneControl {
namespace {

using Kind = AgentPermission::Line::Kind;
using Permission = AgentPermission;

constexpr std::size_t megabytes = std::size_t{1} << 20;
constexpr std::size_t mostTaken = 200'000;  // bytes; 300 lines of 400 characters take 130,000

/// The input of a tool: one member's text, of which there is a lot, and others.
struct CostCase {
  const char* name;
  const char* tool;
  const char* member;
  const char* repeated;
  const char* first = "";
  const char* last = "";
};

const CostCase costCases[] = {
    {"manyLinesWritten", "Write", "content", "x\n"},
    {"emptyLinesWritten", "Write", "content", "\n"},
    {"oneLineWritten", "Write", "content", "x"},
    {"oneLineOfWideCharactersWritten", "Write", "content", "é漢"},
    {"carriageReturnsWritten", "Write", "content", "\r"},
    {"manyLinesOfACommand", "Bash", "command", "x\n"},
    {"blankLinesBeforeACommand", "Bash", "command", " \n", "", "ls"},
    {"blanksBeforeACommand", "Bash", "command", " ", "", "ls"},
    {"oneLineOfACommand", "Bash", "command", "x"},
    {"manyLinesRemoved", "Edit", "old_string", "x\n"},
    {"manyLinesAdded", "Edit", "new_string", "x\n"},
    {"manyFilesPatched", "apply_patch", "command", "*** Add File: a\n"},
    {"manyLinesPatched", "apply_patch", "command", "+x\n", "", "*** Add File: a"},
    {"oneLinePatched", "apply_patch", "command", "x", "*** Add File: a\n+"},
    {"oneQuery", "WebSearch", "query", "x"},
    {"oneURL", "WebFetch", "url", "x", "http://h/"},
    {"oneThatIsNoURL", "WebFetch", "url", "x "},
    {"manyLinesOfAnArgument", "T", "a", "x\n"},
    {"oneLineOfAnArgument", "T", "a", "x"},
};

class Cost : public testing::TestWithParam<CostCase> {};

/// Megabytes come in, and the card takes kilobytes: no line is made to be thrown away, and none is
/// copied to be cut.
TEST_P(Cost, staysSmall) {
  const auto& row = GetParam();
  const auto count = 8 * megabytes / std::string_view(row.repeated).size();
  const auto text = row.first + repeated(row.repeated, count) + row.last;
  const std::array members{
      JSON::Member{"file_path", JSON::Value::ofString("/p/a")},
      JSON::Member{row.member, JSON::Value::ofString(text)},
  };
  const bool sorted = members[0].key < members[1].key;
  const std::array reversed{members[1], members[0]};
  const auto input = JSON::Value::ofObject(sorted ? members : reversed);

  const auto before = CorvaneTests::allocatedBytes();
  const auto card = Permission::parse(row.tool, input, {.cwd = "/p"});
  const auto fingerprint = Permission::fingerprint(row.tool, &input);
  EXPECT_LT(CorvaneTests::allocatedBytes() - before, mostTaken);
  ASSERT_TRUE(card);
  EXPECT_LE(card->lines.size(), 300U);
  EXPECT_TRUE(fingerprint);
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, Cost, testing::ValuesIn(costCases), named);

TEST(Cost, ofFiftyMegabytesIsNoLarger) {
  const auto text = repeated("0123456789\n", 50 * megabytes / 11);
  const std::array members{JSON::Member{"content", JSON::Value::ofString(text)},
                           JSON::Member{"file_path", JSON::Value::ofString("/p/a")}};
  const auto before = CorvaneTests::allocatedBytes();
  const auto card = Permission::parse("Write", JSON::Value::ofObject(members), {.cwd = "/p"});
  EXPECT_LT(CorvaneTests::allocatedBytes() - before, mostTaken);
  ASSERT_TRUE(card);
  EXPECT_FALSE(card->complete);
  auto kept = linesOf(300, "0123456789");
  for (auto& line : kept) line.kind = Kind::added;
  EXPECT_EQ(card->lines, kept);
}

TEST(Cost, ofALargeValueStaysSmall) {
  const auto text = repeated("\"x\"/", 2 * megabytes);
  const std::vector elements(1000, JSON::Value::ofString("x/y"));
  const std::array values{JSON::Value::ofString(text), JSON::Value::ofArray(elements)};
  const std::array members{JSON::Member{"a", JSON::Value::ofArray(values)}};
  const auto before = CorvaneTests::allocatedBytes();
  const auto card = Permission::parse("T", JSON::Value::ofObject(members), {});
  EXPECT_LT(CorvaneTests::allocatedBytes() - before, mostTaken);
  EXPECT_EQ(card->lines, linesOf(1, "a: [\"" + repeated(R"(\"x\"\/)", 56) + "\\\"x…"));
}

TEST(Cost, ofManyEditsStaysSmall) {
  const std::array edit{JSON::Member{"new_string", JSON::Value::ofString("x")}};
  const std::vector edits(100'000, JSON::Value::ofObject(edit));
  const std::array members{JSON::Member{"edits", JSON::Value::ofArray(edits)},
                           JSON::Member{"file_path", JSON::Value::ofString("/p/a")}};
  const auto before = CorvaneTests::allocatedBytes();
  const auto card = Permission::parse("MultiEdit", JSON::Value::ofObject(members), {});
  EXPECT_LT(CorvaneTests::allocatedBytes() - before, mostTaken);
  EXPECT_EQ(card->lines.size(), 300U);
}

TEST(Cost, ofALargePlanStaysSmall) {
  for (const auto& text : {repeated("x\n", 4 * megabytes), repeated("x", 8 * megabytes),
                           repeated("\n", 4 * megabytes) + "x" + repeated(" \n", 4 * megabytes),
                           "*x* " + repeated("y", 8 * megabytes)}) {
    const std::array members{JSON::Member{"plan", JSON::Value::ofString(text)}};
    const auto before = CorvaneTests::allocatedBytes();
    const auto card = Permission::plan(JSON::Value::ofObject(members), {});
    EXPECT_LT(CorvaneTests::allocatedBytes() - before, mostTaken);
    EXPECT_TRUE(card);
  }
}

}  // namespace
}  // namespace CorvaneControl
