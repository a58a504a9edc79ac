#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneControl/AgentNotification.h"
#include "CorvaneControl/AgentProgress.h"
#include "CorvaneControl/CodexTranscript.h"
#include "Support/CountedMemory.h"
#include "Support/TemporaryFolder.h"

namespace CorvaneControl {
namespace {

constexpr std::size_t megabytes = std::size_t{1} << 20;

const auto named = [](const auto& row) { return std::string(row.param.name); };

std::string repeated(std::size_t size, std::string_view piece) {
  std::string text;
  text.reserve(size + piece.size());
  while (text.size() < size) text += piece;
  return text;
}

/// The bytes that a call takes from the free store.
template <class Call>
std::size_t taken(Call call) {
  const std::size_t before = CorvaneTests::allocatedBytes();
  call();
  return CorvaneTests::allocatedBytes() - before;
}

JSON::Value object(std::span<const JSON::Member> members) { return JSON::Value::ofObject(members); }

struct CostCase {
  const char* name;
  const char* piece;  ///< What megabytes are made of.
};
const CostCase costCases[] = {
    {"words", "word "},
    {"oneWord", "x"},
    {"lines", "line\n"},
    {"listItems", "- **item**\n"},
    {"headings", "# heading\n"},
    {"wideCharacters", "漢"},
    {"fences", "```\n"},
    {"blankLines", " \n"},
    {"tags", "<cross-session-message>"},
    {"objects", "{\"a\":1}"},
};

/// Megabytes come in and kilobytes are taken: no text is copied to be cut.
class EventCost : public testing::TestWithParam<CostCase> {
 protected:
  const std::string text_ = repeated(8 * megabytes, GetParam().piece);
  const JSON::Value value_ = JSON::Value::ofString(text_);
};

TEST_P(EventCost, ofAPromptStaysSmall) {
  const std::array members{
      JSON::Member{"cwd", JSON::Value::ofString("/home/user/project")},
      JSON::Member{"hook_event_name", JSON::Value::ofString("UserPromptSubmit")},
      JSON::Member{"prompt", value_},
      JSON::Member{"session_id", JSON::Value::ofString("session-1")}};
  for (const Agent agent : {Agent::claude, Agent::codex}) {
    std::optional<AgentProgress> progress;
    EXPECT_LT(taken([&] { progress = AgentProgress::parse(agent, object(members)); }), 10'000U);
    EXPECT_TRUE(progress);
  }
}

TEST_P(EventCost, ofAMessageStaysSmall) {
  const std::array members{JSON::Member{"hook_event_name", JSON::Value::ofString("Stop")},
                           JSON::Member{"last_assistant_message", value_}};
  std::optional<AgentNotification::Event> event;
  EXPECT_LT(taken([&] { event = AgentNotification::claude(object(members), {}); }), 600'000U);
  EXPECT_TRUE(event);
  EXPECT_LT(taken([&] { event = AgentNotification::codex(object(members), {}); }), 600'000U);
  EXPECT_TRUE(event);
}

TEST_P(EventCost, ofACommandStaysSmall) {
  const std::vector words(100'000, JSON::Value::ofString("word"));
  const std::array several{value_, JSON::Value::ofString("last")};
  for (const JSON::Value& command :
       {value_, JSON::Value::ofArray(words), JSON::Value::ofArray(several)}) {
    const std::array input{JSON::Member{"command", command}};
    const std::array members{JSON::Member{"tool_input", object(input)}};
    std::string message;
    EXPECT_LT(taken([&] { message = AgentNotification::approval(object(members)); }), 20'000U);
    EXPECT_TRUE(message.starts_with("Needs your approval"));
  }
}

INSTANTIATE_TEST_SUITE_P(AgentEvents, EventCost, testing::ValuesIn(costCases), named);

/// A transcript takes one window and the lines that are looked at, however long it is.
TEST(TranscriptCost, staysAWindow) {
  const CorvaneTests::TemporaryFolder folder;
  const std::string first = R"({"type":"turn_context","payload":{"approval_policy":"on-request",)"
                            R"("approvals_reviewer":"auto_review"}})";
  const std::string line =
      R"({"type":"response_item","text":")" + repeated(9000, "text ") + "\"}\n";
  const std::string name =
      folder.write("transcript.jsonl", first + "\n" + repeated(20 * megabytes, line));
  bool reviewed = false;
  EXPECT_LT(taken([&] { reviewed = CodexTranscript::autoReviewed(name); }), 300'000U);
  EXPECT_TRUE(reviewed);
}

}  // namespace
}  // namespace CorvaneControl
