#include "CorvaneControl/AgentProgress.h"

#include <gtest/gtest.h>

#include <array>

namespace CorvaneControl {
namespace {

const auto named = [](const auto& row) { return std::string(row.param.name); };

constexpr std::string_view ellipsis = "\xE2\x80\xA6";

std::string repeated(std::size_t count, std::string_view text) {
  std::string result;
  for (; count > 0; --count) result += text;
  return result;
}

/// A hook input with a folder and a session, as each agent names them, and more members.
std::string input(std::string_view agent, std::string_view event, std::string_view more = "") {
  const std::string place =
      agent == "cursor"
          ? R"("workspace_roots":["/home/user/project"],"conversation_id":"session-1")"
          : R"("cwd":"/home/user/project","session_id":"session-1")";
  std::string text = R"({"hook_event_name":")" + std::string(event) + "\"," + place;
  if (!more.empty()) text.append(",").append(more);
  return text + "}";
}

/// What a hook input, given as bytes, tells; absent for an agent that there is not.
std::optional<AgentProgress> progressOf(std::string_view agent, std::string bytes) {
  const auto known = wireValue<Agent>(agent);
  const auto document = JSON::Document::parse(bytes);
  if (!known || !document) return std::nullopt;
  return AgentProgress::parse(*known, document->root());
}

AgentProgress progress(AgentActivity activity, std::optional<std::string> task = {},
                       std::optional<std::string> toolCall = {}) {
  return {.activity = activity,
          .cwd = "/home/user/project",
          .session = "session-1",
          .task = std::move(task),
          .toolCall = std::move(toolCall)};
}

// Events

struct EventCase {
  const char* name;
  const char* agent;
  const char* event;
  const char* more;
  std::optional<AgentProgress> progress;
};

const EventCase eventCases[] = {
    {"claudesPrompt", "claude", "UserPromptSubmit", R"("prompt":"Please do this.")",
     progress(AgentActivity::started, "Please do this.")},
    {"codexPrompt", "codex", "UserPromptSubmit", R"("prompt":"Please do this.")",
     progress(AgentActivity::started, "Please do this.")},
    {"cursorsPrompt", "cursor", "beforeSubmitPrompt", R"("prompt":"Please do this.")",
     progress(AgentActivity::started, "Please do this.")},
    {"aPromptOfSeveralLines", "claude", "UserPromptSubmit",
     R"("prompt":" # One\r\n\n\ttwo \u2028 **three** ")",
     progress(AgentActivity::started, "# One two **three**")},
    {"noPrompt", "claude", "UserPromptSubmit", "", progress(AgentActivity::started)},
    {"noPromptForCodex", "codex", "UserPromptSubmit", "", progress(AgentActivity::started)},
    {"noPromptForCursor", "cursor", "beforeSubmitPrompt", "", progress(AgentActivity::started)},
    {"anEmptyPrompt", "claude", "UserPromptSubmit", R"("prompt":"")",
     progress(AgentActivity::started)},
    {"aBlankPrompt", "cursor", "beforeSubmitPrompt", R"("prompt":" \n\t ")",
     progress(AgentActivity::started)},
    {"aPromptThatIsNoText", "claude", "UserPromptSubmit", R"("prompt":["Please"])",
     progress(AgentActivity::started)},
    {"aPromptThatIsNull", "codex", "UserPromptSubmit", R"("prompt":null)",
     progress(AgentActivity::started)},
    {"aPromptFromAnotherSession", "claude", "UserPromptSubmit",
     R"("prompt":"<cross-session-message from=\"a\">\nPlease\n</cross-session-message>")",
     progress(AgentActivity::started, "Please")},
    {"anUnfinishedTagOfAnotherSession", "claude", "UserPromptSubmit",
     R"("prompt":"<cross-session-message from=\"a")", progress(AgentActivity::started)},
    {"anEmptyMessageOfAnotherSession", "claude", "UserPromptSubmit",
     R"("prompt":"<cross-session-message></cross-session-message>")",
     progress(AgentActivity::started)},
    {"theTagOfAnotherSessionForCodex", "codex", "UserPromptSubmit",
     R"("prompt":"<cross-session-message>Please</cross-session-message>")",
     progress(AgentActivity::started, "<cross-session-message>Please</cross-session-message>")},
    {"theTagOfAnotherSessionForCursor", "cursor", "beforeSubmitPrompt",
     R"("prompt":"<cross-session-message>Please</cross-session-message>")",
     progress(AgentActivity::started, "<cross-session-message>Please</cross-session-message>")},
    {"aReplyToCodexOwnQuestion", "codex", "UserPromptSubmit",
     R"("prompt":" <send_user_message_question_reply>SQLite")", progress(AgentActivity::started)},
    {"aReplyToAQuestionForClaude", "claude", "UserPromptSubmit",
     R"("prompt":"<send_user_message_question_reply>")",
     progress(AgentActivity::started, "<send_user_message_question_reply>")},
    {"claudesEnd", "claude", "SessionEnd", "", progress(AgentActivity::ended)},
    {"codexEnd", "codex", "SessionEnd", "", progress(AgentActivity::ended)},
    {"cursorsEnd", "cursor", "sessionEnd", "", progress(AgentActivity::ended)},
    {"anEndHasNoTaskAndNoCall", "claude", "SessionEnd",
     R"("prompt":"Please","tool_name":"Bash","tool_input":{})", progress(AgentActivity::ended)},
    {"cursorAborted", "cursor", "stop", R"("status":"aborted")", progress(AgentActivity::ended)},
    {"cursorCompleted", "cursor", "stop", R"("status":"completed")", std::nullopt},
    {"cursorFailed", "cursor", "stop", R"("status":"error")", std::nullopt},
    {"cursorStopped", "cursor", "stop", "", std::nullopt},
    {"cursorAbortedInCapitals", "cursor", "stop", R"("status":"Aborted")", std::nullopt},
    {"cursorAbortedInAList", "cursor", "stop", R"("status":["aborted"])", std::nullopt},
    {"aToolWithoutAName", "claude", "PostToolUse", R"("tool_input":{"command":"make"})",
     progress(AgentActivity::working)},
    {"aToolWhoseNameIsNoText", "codex", "PostToolUse", R"("tool_name":1,"tool_input":{})",
     progress(AgentActivity::working)},
    {"aToolHasNoTask", "cursor", "postToolUse", R"("prompt":"Please")",
     progress(AgentActivity::working)},
    // 64-bit FNV-1a of "Bash", a zero byte and {"command":"make"}; of "Bash", a zero byte and {}.
    {"claudesTool", "claude", "PostToolUse",
     R"("tool_name":"Bash","tool_input":{"command":"make"})",
     progress(AgentActivity::working, std::nullopt, "491e16a45c43f06a")},
    {"codexTool", "codex", "PostToolUse", R"("tool_name":"Bash","tool_input":{"command":"make"})",
     progress(AgentActivity::working, std::nullopt, "491e16a45c43f06a")},
    {"cursorsTool", "cursor", "postToolUse",
     R"("tool_name":"Bash","tool_input":{"command":"make"})",
     progress(AgentActivity::working, std::nullopt, "491e16a45c43f06a")},
    {"aToolWithoutInput", "claude", "PostToolUse", R"("tool_name":"Bash")",
     progress(AgentActivity::working, std::nullopt, "62e942a48133044d")},
    {"aToolWhoseInputIsNoObject", "claude", "PostToolUse",
     R"("tool_name":"Bash","tool_input":["make"])",
     progress(AgentActivity::working, std::nullopt, "62e942a48133044d")},
    {"aToolWithAnEmptyName", "claude", "PostToolUse", R"("tool_name":"")",
     progress(AgentActivity::working, std::nullopt, "d884b5186b651423")},
    {"claudesStop", "claude", "Stop", "", std::nullopt},
    {"codexStop", "codex", "Stop", "", std::nullopt},
    {"aPermissionRequest", "claude", "PermissionRequest", R"("tool_name":"Bash")", std::nullopt},
    {"aNotification", "claude", "Notification", "", std::nullopt},
    {"anUnknownEvent", "claude", "PreToolUse", "", std::nullopt},
    {"anEmptyEvent", "claude", "", "", std::nullopt},
    {"cursorsEventFromClaude", "claude", "sessionEnd", "", std::nullopt},
    {"cursorsPromptFromCodex", "codex", "beforeSubmitPrompt", "", std::nullopt},
    {"cursorsToolFromCodex", "codex", "postToolUse", "", std::nullopt},
    {"abortingFromClaude", "claude", "stop", R"("status":"aborted")", std::nullopt},
    {"claudesEventFromCursor", "cursor", "SessionEnd", "", std::nullopt},
    {"claudesPromptFromCursor", "cursor", "UserPromptSubmit", "", std::nullopt},
    {"claudesToolFromCursor", "cursor", "PostToolUse", "", std::nullopt},
    {"aNameWithABlank", "claude", "SessionEnd ", "", std::nullopt},
    {"aNameInOtherCase", "claude", "Sessionend", "", std::nullopt},
    {"anUnknownAgent", "other", "SessionEnd", "", std::nullopt},
    {"anAgentInCapitals", "Claude", "SessionEnd", "", std::nullopt},
    {"noAgent", "", "SessionEnd", "", std::nullopt},
};

class ProgressEvent : public testing::TestWithParam<EventCase> {};
TEST_P(ProgressEvent, tellsHowFarTheTurnIs) {
  const EventCase& row = GetParam();
  EXPECT_EQ(progressOf(row.agent, input(row.agent, row.event, row.more)), row.progress);
}
INSTANTIATE_TEST_SUITE_P(AgentProgress, ProgressEvent, testing::ValuesIn(eventCases), named);

/// For each agent and activity, an event that tells it.
struct Told {
  const char* agent;
  const char* event;
};
const Told told[] = {
    {"claude", "UserPromptSubmit"},   {"claude", "PostToolUse"}, {"claude", "SessionEnd"},
    {"codex", "UserPromptSubmit"},    {"codex", "PostToolUse"},  {"codex", "SessionEnd"},
    {"cursor", "beforeSubmitPrompt"}, {"cursor", "postToolUse"}, {"cursor", "sessionEnd"},
};

TEST(AgentProgress, aSubAgentsEventsTellNothing) {
  for (const auto& [agent, event] : told) {
    EXPECT_TRUE(progressOf(agent, input(agent, event))) << agent << event;
    for (const char* key : {"agent_id", "parent_tool_call_id"}) {
      for (const char* value : {R"("a1")", R"("")", "null", "false", "0", "[]", "{}"}) {
        const std::string member = '"' + std::string(key) + "\":" + value;
        EXPECT_FALSE(progressOf(agent, input(agent, event, member))) << agent << event << member;
      }
    }
    EXPECT_TRUE(progressOf(agent, input(agent, event, R"("agentid":1,"x":{"agent_id":1})")));
  }
}

// The task

struct TaskCase {
  const char* name;
  std::string prompt;
  std::string task;
};
const TaskCase taskCases[] = {
    {"of119Characters", repeated(119, "x"), repeated(119, "x")},
    {"of120Characters", repeated(120, "x"), repeated(120, "x")},
    {"of121Characters", repeated(121, "x"), repeated(119, "x") + std::string(ellipsis)},
    {"of300Characters", repeated(300, "x"), repeated(119, "x") + std::string(ellipsis)},
    {"of120CharactersOfSeveralBytes", repeated(120, "漢"), repeated(120, "漢")},
    {"of121CharactersOfSeveralBytes", repeated(121, "漢"),
     repeated(119, "漢") + std::string(ellipsis)},
    {"keepsItsMarkdown", "# **Title**", "# **Title**"},
};
class Task : public testing::TestWithParam<TaskCase> {};
TEST_P(Task, isThePromptInOneLine) {
  for (const auto& [agent, event] : {told[0], told[3], told[6]}) {
    const auto parsed =
        progressOf(agent, input(agent, event, R"("prompt":")" + GetParam().prompt + '"'));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->task, GetParam().task);
  }
}
INSTANTIATE_TEST_SUITE_P(AgentProgress, Task, testing::ValuesIn(taskCases), named);

// The folder and the session

struct PlaceCase {
  const char* name;
  const char* members;
  std::optional<std::string> cwd;
};

const PlaceCase folderCases[] = {
    {"absolute", R"("cwd":"/home/user")", "/home/user"},
    {"theRoot", R"("cwd":"/")", "/"},
    {"withBlanks", R"("cwd":"/a b\tc ")", "/a b\tc "},
    {"ofOtherLetters", R"("cwd":"/é/漢")", "/é/漢"},
    {"missing", R"("folder":"/home")", std::nullopt},
    {"empty", R"("cwd":"")", std::nullopt},
    {"relative", R"("cwd":"relative/path")", std::nullopt},
    {"inTheHomeFolder", R"("cwd":"~/project")", std::nullopt},
    {"behindABlank", R"("cwd":" /home")", std::nullopt},
    {"withALineFeed", R"("cwd":"/a\nb")", std::nullopt},
    {"withAVerticalTab", R"("cwd":"/a\u000bb")", std::nullopt},
    {"withAFormFeed", R"("cwd":"/a\fb")", std::nullopt},
    {"withACarriageReturn", R"("cwd":"/a\rb")", std::nullopt},
    {"withANextLine", R"("cwd":"/a\u0085b")", std::nullopt},
    {"withALineSeparator", R"("cwd":"/a\u2028b")", std::nullopt},
    {"withAParagraphSeparator", R"("cwd":"/a\u2029b")", std::nullopt},
    {"endingInALineFeed", R"("cwd":"/a\n")", std::nullopt},
    {"withANul", R"("cwd":"/a\u0000b")", std::nullopt},
    {"withOtherControls", R"("cwd":"/a\u0001\u001f\u007f\u0084\u0086")",
     "/a\x01\x1F\x7F\u0084\u0086"},
    {"null", R"("cwd":null)", std::nullopt},
    {"aBoolean", R"("cwd":true)", std::nullopt},
    {"aNumber", R"("cwd":1)", std::nullopt},
    {"aList", R"("cwd":["/home"])", std::nullopt},
    {"anObject", R"("cwd":{"/home":1})", std::nullopt},
    {"cursors", R"("workspace_roots":["/home"])", std::nullopt},
};
class ProgressFolder : public testing::TestWithParam<PlaceCase> {};
TEST_P(ProgressFolder, mustBeAWorkingFolder) {
  for (const char* agent : {"claude", "codex"}) {
    const auto parsed = progressOf(agent, R"({"hook_event_name":"SessionEnd","session_id":"s",)" +
                                              std::string(GetParam().members) + "}");
    EXPECT_EQ(parsed.has_value(), GetParam().cwd.has_value());
    if (parsed) {
      EXPECT_EQ(parsed->cwd, *GetParam().cwd);
    }
  }
}
INSTANTIATE_TEST_SUITE_P(AgentProgress, ProgressFolder, testing::ValuesIn(folderCases), named);

const PlaceCase rootsCases[] = {
    {"one", R"("workspace_roots":["/ok"])", "/ok"},
    {"theFirstOfSeveral", R"("workspace_roots":["/a","/b"])", "/a"},
    {"theFirstGoodOne", R"("workspace_roots":["","rel","/a\nb","/ok","/later"])", "/ok"},
    {"amongOtherTypes", R"("workspace_roots":[null,1,true,["/a"],{"a":"/a"},"/ok"])", "/ok"},
    {"behindANul", R"("workspace_roots":["/a\u0000","/ok"])", "/ok"},
    {"none", R"("workspace_roots":[])", std::nullopt},
    {"allRelative", R"("workspace_roots":["a","./b","~"])", std::nullopt},
    {"missing", R"("x":1)", std::nullopt},
    {"aText", R"("workspace_roots":"/ok")", std::nullopt},
    {"anObject", R"("workspace_roots":{"a":"/ok"})", std::nullopt},
    {"null", R"("workspace_roots":null)", std::nullopt},
    {"onlyAFolder", R"("cwd":"/ok")", std::nullopt},
};
class ProgressRoots : public testing::TestWithParam<PlaceCase> {};
TEST_P(ProgressRoots, giveTheFirstWorkingFolder) {
  const auto parsed =
      progressOf("cursor", R"({"hook_event_name":"sessionEnd","conversation_id":"s",)" +
                               std::string(GetParam().members) + "}");
  EXPECT_EQ(parsed.has_value(), GetParam().cwd.has_value());
  if (parsed) {
    EXPECT_EQ(parsed->cwd, *GetParam().cwd);
  }
}
INSTANTIATE_TEST_SUITE_P(AgentProgress, ProgressRoots, testing::ValuesIn(rootsCases), named);

struct SessionCase {
  const char* name;
  std::string value;  ///< As JSON.
  std::optional<std::string> session;
};
const SessionCase sessionCases[] = {
    {"ofOneCharacter", R"("s")", "s"},
    {"ofEveryKind", R"("aZ09_-")", "aZ09_-"},
    {"of128Characters", '"' + std::string(128, 'x') + '"', std::string(128, 'x')},
    {"of129Characters", '"' + std::string(129, 'x') + '"', std::nullopt},
    {"withABlank", R"("a b")", std::nullopt},
    {"withADot", R"("a.b")", std::nullopt},
    {"empty", R"("")", std::nullopt},
    {"aNumber", "1", std::nullopt},
    {"null", "null", std::nullopt},
};
class ProgressSession : public testing::TestWithParam<SessionCase> {};
TEST_P(ProgressSession, mustBeAnIdentifier) {
  const std::string folder = R"({"hook_event_name":"SessionEnd","cwd":"/a","session_id":)";
  const std::string roots =
      R"({"hook_event_name":"sessionEnd","workspace_roots":["/a"],"conversation_id":)";
  for (const auto& parsed : {progressOf("claude", folder + GetParam().value + "}"),
                             progressOf("codex", folder + GetParam().value + "}"),
                             progressOf("cursor", roots + GetParam().value + "}")}) {
    EXPECT_EQ(parsed.has_value(), GetParam().session.has_value());
    if (parsed) {
      EXPECT_EQ(parsed->session, *GetParam().session);
    }
  }
}
INSTANTIATE_TEST_SUITE_P(AgentProgress, ProgressSession, testing::ValuesIn(sessionCases), named);

TEST(AgentProgress, cursorsSessionIsItsConversation) {
  EXPECT_FALSE(progressOf(
      "cursor",
      R"({"hook_event_name":"sessionEnd","workspace_roots":["/a"],"session_id":"session-1"})"));
  EXPECT_FALSE(progressOf(
      "claude", R"({"hook_event_name":"SessionEnd","cwd":"/a","conversation_id":"session-1"})"));
}

// What is no hook input

TEST(AgentProgress, whatIsNoHookInputTellsNothing) {
  for (const char* bytes : {"", " ", "null", "true", "1", R"("SessionEnd")", "[]", "{}", "{",
                            R"({"hook_event_name":null})", R"({"hook_event_name":["SessionEnd"]})",
                            R"([{"hook_event_name":"SessionEnd","cwd":"/a","session_id":"s"}])",
                            R"({"hook_event_name":"SessionEnd","cwd":"/a","session_id":"s"} x)"}) {
    for (const char* agent : {"claude", "codex", "cursor"}) {
      EXPECT_FALSE(progressOf(agent, std::string(bytes))) << agent << ": " << bytes;
    }
  }
  EXPECT_FALSE(progressOf("claude", std::string(100'000, '[')));
}

TEST(AgentProgress, aLongPromptIsSummedUp) {
  const std::string prompt = repeated(10'000'000, "word ");
  const auto parsed =
      progressOf("claude", input("claude", "UserPromptSubmit", R"("prompt":")" + prompt + '"'));
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->task, prompt.substr(0, 119) + std::string(ellipsis));
}

}  // namespace
}  // namespace CorvaneControl
