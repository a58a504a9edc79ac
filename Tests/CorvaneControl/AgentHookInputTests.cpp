#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>

#include "CorvaneControl/Agent.h"
#include "CorvaneControl/AgentNotification.h"
#include "CorvaneControl/AgentProgress.h"
#include "CorvaneControl/CodexTranscript.h"
#include "CorvaneControl/Platform/Text.h"

// What agents really send, from the bytes to a mark, progress or a permission card.

namespace CorvaneControl {
namespace {

const std::filesystem::path fixtures = CORVANE_SOURCE_DIR "/Tests/Fixtures/hooks";

std::string contents(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  EXPECT_TRUE(stream) << "cannot read " << path;
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

/// What an input comes to. Progress comes first, as in the command.
struct Outcome {
  std::optional<AgentProgress> progress{};
  std::optional<AgentNotification::Event> event{};

  bool operator==(const Outcome&) const = default;
};

Outcome outcome(Agent agent, const JSON::Value& input) {
  Outcome result{.progress = AgentProgress::parse(agent, input)};
  if (!result.progress) result.event = AgentNotification::event(agent, input, {});
  return result;
}

/// From bytes, as the command reads them: what a tool answered is not kept.
Outcome outcome(Agent agent, std::string bytes) {
  const auto document = JSON::Document::parse(bytes, "tool_response");
  return document ? outcome(agent, document->root()) : Outcome();
}

/// The outcome in a line, such as "needs-input Asks you a question [ask Which?] #1a2b".
std::string described(const Outcome& outcome) {
  std::string text;
  const auto add = [&text](std::string_view before, const std::optional<std::string>& part) {
    if (part) text.append(before).append(*part);
  };
  if (outcome.progress) {
    text = wireName(outcome.progress->activity);
    add(" ", outcome.progress->task);
    add(" #", outcome.progress->toolCall);
    return text;
  }
  if (!outcome.event) return "nothing";
  text = wireName(outcome.event->kind);
  add(" ", outcome.event->message);
  if (const auto& card = outcome.event->permission) {
    text.append(" [").append(wireName(card->action)).append(" ").append(card->subject).append("]");
  }
  add(" #", outcome.event->toolCall);
  return text;
}

// The fixtures

struct HookCase {
  const char* file;
  const char* outcome;
};

/// The numbers are 64-bit FNV-1a of the tool's name, a zero byte and its input, computed elsewhere.
const HookCase hookCases[] = {
    {"claude/Notification-agent_completed", "done Agent \"Tests\" completed"},
    {"claude/Notification-agent_needs_input",
     "needs-input Auto mode can't check actions in this session and needs your choice"},
    {"claude/Notification-auth_success", "nothing"},
    {"claude/Notification-elicitation_dialog", "needs-input Claude Code needs your input"},
    {"claude/Notification-elicitation_response", "nothing"},
    {"claude/Notification-elicitation_url_dialog", "needs-input Claude Code needs your input"},
    {"claude/Notification-idle_prompt", "needs-input Claude is waiting for your input"},
    {"claude/Notification-permission_prompt",
     "needs-input Claude Code needs your approval for the plan"},
    {"claude/Notification-untyped", "needs-input Claude needs your permission to use Bash"},
    {"claude/PermissionRequest-AskUserQuestion",
     "needs-input Asks you a question [ask Which database?] #e36f2e1e6c7cd99"},
    {"claude/PermissionRequest-Bash",
     "needs-input Needs your approval: touch made.txt; echo bad >&2; exit 3 [run touch made.txt; "
     "echo bad >&2; exit 3] #8cce371e26adf89a"},
    {"claude/PermissionRequest-Bash-subagent",
     "needs-input Needs your approval: touch made.txt && echo 'one/two' [run touch made.txt && "
     "echo 'one/two'] #28cb2d81362787c3"},
    {"claude/PermissionRequest-Edit",
     "needs-input Needs your approval: Edit a.c [edit a.c] #5f9e51b2b0060c52"},
    {"claude/PermissionRequest-EnterPlanMode",
     "needs-input Needs your approval for EnterPlanMode #734daa3cabcd815f"},
    {"claude/PermissionRequest-ExitPlanMode",
     "needs-input Waits for you to approve its plan [plan The plan] #381b952156b7fe47"},
    {"claude/PermissionRequest-MultiEdit",
     "needs-input Needs your approval: Edit a.c [edit a.c] #298ee1e3a14b4872"},
    {"claude/PermissionRequest-NotebookEdit",
     "needs-input Needs your approval: Edit n.ipynb [edit n.ipynb] #eddf1ac77a520c89"},
    {"claude/PermissionRequest-Read",
     "needs-input Needs your approval: Use Read [tool Read] #857d1e06d4f85468"},
    {"claude/PermissionRequest-WebFetch",
     "needs-input Needs your approval: Fetch example.org/docs/parser [fetch "
     "example.org/docs/parser] #dc063f27cc8646a0"},
    {"claude/PermissionRequest-WebSearch",
     "needs-input Needs your approval: Search c++ json parser [search c++ json parser] "
     "#48c9e70497a87a8b"},
    {"claude/PermissionRequest-Write",
     "needs-input Needs your approval: Write out.txt [write out.txt] #51bb8ffc22388b37"},
    {"claude/PermissionRequest-mcp",
     "needs-input Needs your approval: Use files · read_all [tool files · read_all] "
     "#a01fb2b55fd16879"},
    {"claude/PostToolUse-Agent", "working #26e1ff4b0e3fe629"},
    {"claude/PostToolUse-AskUserQuestion", "working #e36f2e1e6c7cd99"},
    {"claude/PostToolUse-Bash", "working #28cb2d81362787c3"},
    {"claude/PostToolUse-Bash-subagent", "nothing"},
    {"claude/PostToolUse-Edit", "working #5f9e51b2b0060c52"},
    {"claude/PostToolUse-ExitPlanMode", "working #381b952156b7fe47"},
    {"claude/PostToolUse-NotebookEdit", "working #eddf1ac77a520c89"},
    {"claude/PostToolUse-Read", "working #857d1e06d4f85468"},
    {"claude/PostToolUse-WebSearch", "working #48c9e70497a87a8b"},
    {"claude/PostToolUse-Write", "working #51bb8ffc22388b37"},
    {"claude/PostToolUse-mcp", "working #a01fb2b55fd16879"},
    {"claude/PostToolUseFailure-Bash", "nothing"},
    {"claude/PreToolUse-Bash", "nothing"},
    {"claude/SessionEnd-clear", "ended"},
    {"claude/SessionEnd-other", "ended"},
    {"claude/SessionStart", "nothing"},
    {"claude/Stop", "done All done: see a.c. first second make test"},
    {"claude/Stop-background", "done All done: see a.c. first second make test"},
    {"claude/Stop-cross-session", "done Hello there"},
    {"claude/Stop-silent", "done"},
    {"claude/StopFailure", "nothing"},
    {"claude/SubagentStop", "nothing"},
    {"claude/UserPromptSubmit", "started Please do this."},
    {"claude/UserPromptSubmit-cross-session", "started Please look at the tests."},
    {"claude/UserPromptSubmit-lines", "started First line second \"line\" é 漢 😀 \\ / </x>"},
    {"claude/UserPromptSubmit-task-notification",
     "started <task-notification> <task-id>b00000001</task-id> <status>completed</status> "
     "<summary>Background command \"Background\" co…"},
    {"codex/Interrupt", "nothing"},
    {"codex/PermissionRequest-AskUserQuestion",
     "needs-input Asks you a question #26a584367e31c357"},
    {"codex/PermissionRequest-Bash",
     "needs-input Needs your approval: touch made.txt && echo 'one/two' [run touch made.txt && "
     "echo 'one/two'] #6cabbb4cfd72b0b0"},
    {"codex/PermissionRequest-Bash-subagent",
     "needs-input Needs your approval: touch made.txt && echo 'one/two' [run touch made.txt && "
     "echo 'one/two'] #6cabbb4cfd72b0b0"},
    {"codex/PermissionRequest-Bash-unexplained",
     "needs-input Needs your approval: touch made.txt [run touch made.txt] #59d8f5a6d6ffdb46"},
    {"codex/PermissionRequest-apply_patch",
     "needs-input Needs your approval: Edit a.c [edit a.c] #45560c6e5cc5a644"},
    {"codex/PermissionRequest-apply_patch-outside",
     "needs-input Needs your approval: Edit new.txt and 2 more [edit new.txt and 2 more] "
     "#d50e5995cc9d656"},
    {"codex/PermissionRequest-apply_patch-several",
     "needs-input Needs your approval: Edit new.txt and 2 more [edit new.txt and 2 more] "
     "#85de136418942527"},
    {"codex/PermissionRequest-mcp",
     "needs-input Needs your approval: Use echo · say__again [tool echo · say__again] "
     "#6b91937645f4009c"},
    {"codex/PermissionRequest-write_stdin",
     "needs-input Needs your approval for write_stdin [run hello] #50681a82934188a7"},
    {"codex/PostToolUse-Bash", "working #9bf8b73930204b6a"},
    {"codex/PostToolUse-Bash-subagent", "nothing"},
    {"codex/PostToolUse-apply_patch", "working #5175fcaf820683ba"},
    {"codex/PostToolUse-mcp", "working #6b91937645f4009c"},
    {"codex/PostToolUse-request_user_input", "working #c10c44ec807bb6fd"},
    {"codex/PostToolUse-spawn_agent", "working #e2e7db87425ef828"},
    {"codex/SessionEnd", "ended"},
    {"codex/Stop", "done All done: see a.c. first second make test"},
    {"codex/Stop-plan", "done <proposed_plan> Add the parser Test it </proposed_plan>"},
    {"codex/Stop-silent", "done"},
    {"codex/Stop-suggestions", "nothing"},
    {"codex/UserPromptSubmit", "started Implement the plan."},
    {"codex/UserPromptSubmit-question-reply", "started"},
    {"codex/UserPromptSubmit-subagent", "nothing"},
    {"cursor/afterFileEdit", "nothing"},
    {"cursor/beforeShellExecution", "nothing"},
    {"cursor/beforeSubmitPrompt", "started Please do this. - first - second"},
    {"cursor/postToolUse-Shell", "working #a1ca615572dc9625"},
    {"cursor/postToolUse-Write", "working #81ae5b8daac93625"},
    {"cursor/postToolUse-nameless", "working"},
    {"cursor/postToolUse-subagent", "nothing"},
    {"cursor/sessionEnd", "ended"},
    {"cursor/stop-aborted", "ended"},
    {"cursor/stop-completed", "done"},
    {"cursor/stop-error", "needs-input Stopped with an error"},
    {"cursor/stop-relative-roots", "nothing"},
    {"cursor/stop-several-roots", "done"},
    {"cursor/stop-unknown", "nothing"},
};

class HookInput : public testing::TestWithParam<HookCase> {
 protected:
  std::filesystem::path path_ = fixtures / (std::string(GetParam().file) + ".json");
  Agent agent_ = wireValue<Agent>(path_.parent_path().filename().string()).value();
  std::string bytes_ = contents(path_);
};

TEST_P(HookInput, comesToItsOutcome) {
  const Outcome result = outcome(agent_, bytes_);
  EXPECT_EQ(described(result), GetParam().outcome);
  if (result.progress) {
    EXPECT_EQ(result.progress->cwd, "/home/user/project");
    EXPECT_TRUE(result.progress->session.starts_with("00000000-"));
  }
  if (result.event) {
    EXPECT_EQ(result.event->cwd, "/home/user/project");
    EXPECT_TRUE(result.event->session && result.event->session->starts_with("00000000-"));
    const auto& card = result.event->permission;
    EXPECT_TRUE(!card || card->folder == "/home/user/project") << *card->folder;
    EXPECT_TRUE(!card || card->complete);
  }
}

TEST_P(HookInput, isReadTheSameWithWhatTheToolAnswered) {
  std::string scratch = bytes_;
  const auto document = JSON::Document::parse(scratch);
  ASSERT_TRUE(document);
  EXPECT_EQ(outcome(agent_, document->root()), outcome(agent_, bytes_));
}

TEST_P(HookInput, ofCursorMeansNothingToTheOthersAndTheirsNothingToCursor) {
  if (agent_ == Agent::cursor) {
    EXPECT_EQ(outcome(Agent::claude, bytes_), Outcome());
    EXPECT_EQ(outcome(Agent::codex, bytes_), Outcome());
  } else {
    EXPECT_EQ(outcome(Agent::cursor, bytes_), Outcome());
  }
}

TEST_P(HookInput, meansNothingWhenCutShort) {
  const std::size_t whole = bytes_.find_last_of('}') + 1;
  EXPECT_EQ(outcome(agent_, bytes_.substr(0, whole)), outcome(agent_, bytes_));
  for (std::size_t size = 0; size < whole; ++size) {
    EXPECT_EQ(outcome(agent_, bytes_.substr(0, size)), Outcome()) << size;
  }
}

/// An input with one member replaced, or taken out.
std::string with(const JSON::Value& input, std::string_view key,
                 const std::optional<JSON::Value>& value) {
  std::vector<JSON::Member> members;
  for (const JSON::Member& member : input.members()) {
    if (member.key != key) {
      members.push_back(member);
    } else if (value) {
      members.push_back({member.key, *value});
    }
  }
  std::string text;
  JSON::write(JSON::Value::ofObject(members), JSON::Slashes::plain, text);
  return text;
}

/// A value of every JSON type.
std::vector<JSON::Value> everyType() {
  static const JSON::Value elements[] = {JSON::Value::ofString("text")};
  static const JSON::Member members[] = {{"key", JSON::Value::ofString("text")}};
  return {JSON::Value(),
          JSON::Value::ofBoolean(true),
          JSON::Value::ofInteger(7),
          JSON::Value::ofUnsignedInteger(UINT64_MAX),
          JSON::Value::ofReal(0.5),
          JSON::Value::ofString("text"),
          JSON::Value::ofArray(elements),
          JSON::Value::ofObject(members)};
}

TEST_P(HookInput, aMemberOfAnotherTypeCountsAsMissing) {
  std::string scratch = bytes_;
  const auto document = JSON::Document::parse(scratch);
  ASSERT_TRUE(document);
  for (const JSON::Member& member : document->root().members()) {
    // Whether these are there is what counts, whatever they are.
    if (member.key == "agent_id" || member.key == "parent_tool_call_id") continue;
    if (member.value.type() == JSON::Value::Type::null) continue;  // no type to differ from
    const Outcome missing = outcome(agent_, with(document->root(), member.key, std::nullopt));
    for (const JSON::Value& other : everyType()) {
      if (member.value.type() == other.type()) continue;
      EXPECT_EQ(described(outcome(agent_, with(document->root(), member.key, other))),
                described(missing))
          << member.key;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AgentHookInput, HookInput, testing::ValuesIn(hookCases),
                         [](const auto& row) {
                           std::string name = row.param.file;
                           std::ranges::replace_if(
                               name, [](char letter) { return letter == '/' || letter == '-'; },
                               '_');
                           return name;
                         });

TEST(AgentHookInput, everyFixtureHasARow) {
  std::set<std::string> rows;
  for (const HookCase& row : hookCases) rows.insert(std::string(row.file) + ".json");
  std::set<std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(fixtures)) {
    if (entry.path().extension() != ".json") continue;
    files.insert(std::filesystem::relative(entry.path(), fixtures).generic_string());
  }
  EXPECT_EQ(rows, files);
}

TEST(AgentHookInput, aReviewedSessionOfCodexAsksNobody) {
  std::string bytes = contents(fixtures / "codex/PermissionRequest-Bash.json");
  const auto document = JSON::Document::parse(bytes);
  ASSERT_TRUE(document);
  const auto eventWith = [&document](const char* transcript) {
    return AgentNotification::codex(
        document->root(), {.autoReviewed = [transcript](const std::string&) {
          return CodexTranscript::autoReviewed((fixtures / "codex" / transcript).string());
        }});
  };
  EXPECT_FALSE(eventWith("transcript-auto-review.jsonl"));
  EXPECT_TRUE(eventWith("transcript-user.jsonl"));
  EXPECT_TRUE(eventWith("transcript-older.jsonl"));
  EXPECT_TRUE(eventWith("transcript-missing.jsonl"));
}

// Hostile input

bool isFingerprint(const std::string& text) {
  return !text.empty() && text.size() <= 16 && text.front() != '0' &&
         text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

/// Whatever was sent, what comes of it keeps within its limits.
void expectLimits(const Outcome& outcome) {
  if (const auto& progress = outcome.progress) {
    EXPECT_TRUE(AgentNotification::validFolder(progress->cwd));
    EXPECT_TRUE(!progress->session.empty() && progress->session.size() <= 128);
    EXPECT_TRUE(!progress->task || Text::characters(*progress->task) <= 120);
    EXPECT_TRUE(!progress->task || !Text::hasLineBreak(*progress->task));
    EXPECT_TRUE(!progress->toolCall || isFingerprint(*progress->toolCall));
  }
  if (const auto& event = outcome.event) {
    EXPECT_TRUE(!event->session || (!event->session->empty() && event->session->size() <= 128));
    if (!event->toolCall) {
      EXPECT_FALSE(event->permission);
      EXPECT_TRUE(!event->message || Text::characters(*event->message) <= 120);
      EXPECT_TRUE(!event->message || !Text::hasLineBreak(*event->message));
      return;
    }
    EXPECT_TRUE(isFingerprint(*event->toolCall));
    EXPECT_TRUE(event->message && !event->message->empty());
    if (const auto& card = event->permission) {
      EXPECT_LE(Text::characters(card->subject), 401U);
      EXPECT_LE(card->lines.size(), 300U);
      for (const auto& line : card->lines) EXPECT_LE(Text::characters(line.text), 401U);
    }
  }
}

void expectLimits(const std::string& bytes) {
  for (const Agent agent : allAgents) {
    const Outcome result = outcome(agent, bytes);
    expectLimits(result);
    if (testing::Test::HasFailure()) {
      FAIL() << wireName(agent) << ": " << bytes;
    }
  }
  std::string text = bytes;
  const auto document = JSON::Document::parse(text, "tool_response");
  if (!document) return;
  // The doors that a progress event does not come to.
  for (const Agent agent : allAgents) {
    expectLimits(Outcome{.event = AgentNotification::event(agent, document->root(), {})});
  }
}

class HostileInput : public testing::Test {
 protected:
  HostileInput() {
    for (const HookCase& row : hookCases) {
      inputs_.push_back(contents(fixtures / (std::string(row.file) + ".json")));
    }
  }
  std::size_t below(std::size_t limit) { return random_() % limit; }
  const std::string& anyInput() { return inputs_[below(inputs_.size())]; }

  std::mt19937 random_{20261120};
  std::vector<std::string> inputs_{};
};

TEST_F(HostileInput, flippedBytesKeepTheLimits) {
  for (int round = 0; round < 4000; ++round) {
    std::string bytes = anyInput();
    for (std::size_t count = 1 + below(3); count > 0; --count) {
      const auto flip = static_cast<unsigned char>(1U << below(8));
      char& byte = bytes[below(bytes.size())];
      byte = static_cast<char>(static_cast<unsigned char>(byte) ^ flip);
    }
    ASSERT_NO_FATAL_FAILURE(expectLimits(bytes));
  }
}

/// Pieces that mean something somewhere.
const std::string tellingPieces[] = {"\"",
                                     "\\",
                                     "\\u0000",
                                     "\\ud83d",
                                     "\\ud83d\\ude00",
                                     "\\n",
                                     "\\u2028",
                                     "{",
                                     "}",
                                     "[",
                                     "]",
                                     ",",
                                     ":",
                                     "null",
                                     "true",
                                     "-1",
                                     "1e308",
                                     "1e400",
                                     "18446744073709551616",
                                     "0.1",
                                     "\xFF",
                                     "\xC3",
                                     std::string(1, '\0'),
                                     "\xEF\xBB\xBF",
                                     "\u0301",
                                     "\U0001F468\u200D\U0001F469",
                                     "\u202E",
                                     "**",
                                     "`",
                                     "[x](y)",
                                     "<cross-session-message a='>",
                                     "</cross-session-message>",
                                     "<send_user_message_question_reply>",
                                     "*** Update File: a\\n",
                                     "/",
                                     "~",
                                     "\"agent_id\":1,",
                                     "\"cwd\":\"\",",
                                     std::string(200, 'x'),
                                     std::string(600, '['),
                                     std::string(5000, ' ')};

TEST_F(HostileInput, insertedPiecesKeepTheLimits) {
  for (int round = 0; round < 4000; ++round) {
    std::string bytes = anyInput();
    for (std::size_t count = 1 + below(2); count > 0; --count) {
      bytes.insert(below(bytes.size() + 1), tellingPieces[below(std::size(tellingPieces))]);
    }
    ASSERT_NO_FATAL_FAILURE(expectLimits(bytes));
  }
}

TEST_F(HostileInput, splicedInputsKeepTheLimits) {
  for (int round = 0; round < 1000; ++round) {
    const std::string& first = anyInput();
    const std::string& second = anyInput();
    ASSERT_NO_FATAL_FAILURE(
        expectLimits(first.substr(0, below(first.size())) + second.substr(below(second.size()))));
  }
}

/// Any JSON value, nested `depth` deep at most.
std::string anyValue(std::mt19937& random, int depth) {
  const auto below = [&random](std::size_t limit) { return random() % limit; };
  switch (below(depth > 0 ? 8 : 6)) {
    case 0:
      return "null";
    case 1:
      return below(2) == 0 ? "true" : "false";
    case 2:
      return std::to_string(static_cast<std::int64_t>(random()) - 2'000'000'000);
    case 3:
      return "2.5e-3";
    case 4:
      return "\"\"";
    case 5: {
      std::string text = "\"";
      for (std::size_t count = below(5); count > 0; --count) {
        const std::string& piece = tellingPieces[below(std::size(tellingPieces))];
        if (piece.find_first_of("\"\xFF\xC3") == std::string::npos && piece != "\\" &&
            piece != "\\ud83d" && piece.find('\0') == std::string::npos) {
          text += piece;
        }
      }
      return text + "\"";
    }
    case 6: {
      std::string list = "[";
      for (std::size_t count = below(4); count > 0; --count) {
        list += anyValue(random, depth - 1) + (count > 1 ? "," : "");
      }
      return list + "]";
    }
    default: {
      const char* keys[] = {"command", "file_path", "questions", "plan", "options", "label"};
      std::string object = "{";
      for (std::size_t count = below(4); count > 0; --count) {
        object += '"' + std::string(keys[below(std::size(keys))]) +
                  "\":" + anyValue(random, depth - 1) + (count > 1 ? "," : "");
      }
      return object + "}";
    }
  }
}

TEST_F(HostileInput, replacedMembersKeepTheLimits) {
  for (int round = 0; round < 4000; ++round) {
    std::string bytes = anyInput();
    std::string scratch = bytes;
    const auto document = JSON::Document::parse(scratch);
    ASSERT_TRUE(document);
    const auto members = document->root().members();
    std::string value = anyValue(random_, 3);
    const auto replacement = JSON::Document::parse(value);
    ASSERT_TRUE(replacement) << value;
    const JSON::Member& outer = members[below(members.size())];
    std::string changed = with(document->root(), outer.key, replacement->root());
    // Or one level deeper, inside a tool's input.
    if (const auto inner = outer.value.members(); !inner.empty() && below(3) > 0) {
      std::string innerText =
          with(outer.value, inner[below(inner.size())].key, replacement->root());
      const auto innerDocument = JSON::Document::parse(innerText);
      ASSERT_TRUE(innerDocument);
      changed = with(document->root(), outer.key, innerDocument->root());
    }
    ASSERT_NO_FATAL_FAILURE(expectLimits(changed));
  }
}

TEST_F(HostileInput, largeAndDeepInputsKeepTheLimits) {
  const std::string begin = R"({"hook_event_name":"PermissionRequest","tool_name":"Bash",)"
                            R"("cwd":"/a","session_id":"s","tool_input":)";
  const std::string inputs[] = {
      begin + std::string(100'000, '[') + "}",
      begin + R"({"a":)" + std::string(505, '[') + std::string(505, ']') + "}}",
      begin + R"({"a":)" + std::string(515, '[') + std::string(515, ']') + "}}",
      begin + R"({"command":")" + std::string(5'000'000, 'x') + "\"}}",
      begin + R"({"command":")" + std::string(5'000'000, ' ') + "\"}}",
      begin + R"({"command":["a)" + std::string(1'000'000, '\\') + "\"]}}",
      std::string(5'000'000, ' '),
      std::string(5'000'000, '\0'),
      std::string(1'000'000, '{'),
  };
  for (const std::string& bytes : inputs) {
    for (const Agent agent : allAgents) expectLimits(outcome(agent, bytes));
  }
}

}  // namespace
}  // namespace CorvaneControl
