#include "CorvaneControl/AgentHooks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CorvaneControl/OrderedJSON.h"
#include "Support/HookWalk.h"
#include "Support/RandomJSON.h"
#include "Support/ScriptedCalls.h"
#include "Support/TemporaryFolder.h"

namespace {

namespace AgentHooks = CorvaneControl::AgentHooks;
using AgentHooks::Problem;
using AgentHooks::State;
using CorvaneControl::Agent;
using CorvaneControl::AgentHookFile;
using CorvaneControl::allAgents;
using CorvaneControl::OrderedJSON;
using CorvaneControl::wireName;
using CorvaneControl::wireValue;
using CorvaneTests::HookWalk;
using CorvaneTests::RandomJSON;
using CorvaneTests::ScriptedCalls;
using CorvaneTests::TemporaryFolder;

const auto named = [](const auto& row) { return std::string(row.param.name); };

constexpr std::string_view tool = "/opt/bin/corvanectl";

OrderedJSON parsed(std::string_view text) {
  auto value = OrderedJSON::parse(text);
  EXPECT_TRUE(value) << text;
  return value ? *std::move(value) : OrderedJSON();
}

std::string tidied(std::string_view text) { return parsed(text).text("  "); }

std::string added(std::string_view text, Agent agent, std::string_view toolPath = tool) {
  const auto after = AgentHooks::adding(text, agent, toolPath);
  EXPECT_TRUE(after) << text;
  return after ? *after : "";
}

std::string removed(std::string_view text, Agent agent) {
  const auto after = AgentHooks::removing(text, agent);
  EXPECT_TRUE(after) << text;
  return after ? *after : "";
}

// The agents

TEST(AgentHooks, describesEachAgent) {
  using Events = std::vector<std::string_view>;
  const auto eventsOf = [](Agent agent) {
    const auto events = AgentHooks::events(agent);
    return Events(events.begin(), events.end());
  };
  EXPECT_EQ(allAgents, (std::array{Agent::claude, Agent::codex, Agent::cursor}));

  EXPECT_EQ(wireName(Agent::claude), "claude");
  EXPECT_EQ(AgentHooks::folder(Agent::claude), ".claude");
  EXPECT_EQ(AgentHooks::file(Agent::claude), "settings.json");
  EXPECT_EQ(AgentHooks::bundleID(Agent::claude), "com.anthropic.claudefordesktop");
  EXPECT_EQ(eventsOf(Agent::claude), (Events{"Notification", "PermissionRequest", "Stop",
                                             "UserPromptSubmit", "PostToolUse", "SessionEnd"}));

  EXPECT_EQ(wireName(Agent::codex), "codex");
  EXPECT_EQ(AgentHooks::folder(Agent::codex), ".codex");
  EXPECT_EQ(AgentHooks::file(Agent::codex), "hooks.json");
  EXPECT_EQ(AgentHooks::bundleID(Agent::codex), "com.openai.codex");
  EXPECT_EQ(eventsOf(Agent::codex),
            (Events{"PermissionRequest", "Stop", "UserPromptSubmit", "PostToolUse", "SessionEnd"}));

  EXPECT_EQ(wireName(Agent::cursor), "cursor");
  EXPECT_EQ(AgentHooks::folder(Agent::cursor), ".cursor");
  EXPECT_EQ(AgentHooks::file(Agent::cursor), "hooks.json");
  EXPECT_EQ(AgentHooks::bundleID(Agent::cursor), "com.todesktop.230313mzl4w4u92");
  EXPECT_EQ(eventsOf(Agent::cursor),
            (Events{"stop", "beforeSubmitPrompt", "postToolUse", "sessionEnd"}));
}

TEST(AgentHooks, findsAnAgentByItsNameOnly) {
  for (const Agent agent : allAgents) {
    EXPECT_EQ(wireValue<Agent>(wireName(agent)), agent);
  }
  for (const char* other : {"", "Claude", "claude ", "aider"}) {
    EXPECT_EQ(wireValue<Agent>(other), std::nullopt) << other;
  }
}

// The command

struct CommandCase {
  const char* name;
  std::string toolPath;
  std::string command;
};
const CommandCase commandCases[] = {
    {"anOrdinaryPath", "/opt/bin/corvanectl", "'/opt/bin/corvanectl' notify --agent claude"},
    {"spaces", "/My Apps/corvanectl", "'/My Apps/corvanectl' notify --agent claude"},
    {"aSingleQuote", "/it's/corvanectl", R"('/it'\''s/corvanectl' notify --agent claude)"},
    {"onlySingleQuotes", "''", R"(''\'''\''' notify --agent claude)"},
    {"whatAShellWouldExpand", "/$HOME/`x`/\"*\"/\\/corvanectl",
     "'/$HOME/`x`/\"*\"/\\/corvanectl' notify --agent claude"},
    {"nothing", "", "'' notify --agent claude"},
};
class Command : public testing::TestWithParam<CommandCase> {};
TEST_P(Command, quotesThePathForTheShell) {
  EXPECT_EQ(AgentHooks::command(Agent::claude, GetParam().toolPath), GetParam().command);
}
INSTANTIATE_TEST_SUITE_P(AgentHooks, Command, testing::ValuesIn(commandCases), named);

TEST(AgentHooks, aShellRunsTheCommandWhateverThePathHolds) {
  const TemporaryFolder folder;
  for (const char* name :
       {"plain", "with spaces", "it's", "$(touch gone)", "a\nb", "\"`\\*?[;&|"}) {
    const std::string toolPath = folder.write(std::string(name) + "/corvanectl",
                                              "#!/bin/sh\nprintf '%s ' \"$@\" >\"$0.out\"\n");
    ASSERT_EQ(::chmod(toolPath.c_str(), 0755), 0);
    EXPECT_EQ(std::system(AgentHooks::command(Agent::codex, toolPath).c_str()), 0) << name;
    EXPECT_EQ(folder.read(std::string(name) + "/corvanectl.out"), "notify --agent codex ") << name;
  }
}

TEST(AgentHooks, anEntryIsAHandlerAndForMostAgentsAGroupAroundIt) {
  EXPECT_EQ(AgentHooks::entry("c", Agent::claude),
            parsed(R"({"hooks":[{"type":"command","command":"c"}]})"));
  EXPECT_EQ(AgentHooks::entry("c", Agent::codex),
            parsed(R"({"hooks":[{"type":"command","command":"c"}]})"));
  EXPECT_EQ(AgentHooks::entry("c", Agent::cursor), parsed(R"({"type":"command","command":"c"})"));
}

// Adding to nothing

constexpr std::string_view claudeFile = R"({
  "hooks": {
    "Notification": [
      {
        "hooks": [
          {
            "type": "command",
            "command": "'/opt/bin/corvanectl' notify --agent claude"
          }
        ]
      }
    ],
    "PermissionRequest": [
      {
        "hooks": [
          {
            "type": "command",
            "command": "'/opt/bin/corvanectl' notify --agent claude"
          }
        ]
      }
    ],
    "Stop": [
      {
        "hooks": [
          {
            "type": "command",
            "command": "'/opt/bin/corvanectl' notify --agent claude"
          }
        ]
      }
    ],
    "UserPromptSubmit": [
      {
        "hooks": [
          {
            "type": "command",
            "command": "'/opt/bin/corvanectl' notify --agent claude"
          }
        ]
      }
    ],
    "PostToolUse": [
      {
        "hooks": [
          {
            "type": "command",
            "command": "'/opt/bin/corvanectl' notify --agent claude"
          }
        ]
      }
    ],
    "SessionEnd": [
      {
        "hooks": [
          {
            "type": "command",
            "command": "'/opt/bin/corvanectl' notify --agent claude"
          }
        ]
      }
    ]
  }
}
)";

constexpr std::string_view cursorFile = R"({
  "version": 1,
  "hooks": {
    "stop": [
      {
        "type": "command",
        "command": "'/opt/bin/corvanectl' notify --agent cursor"
      }
    ],
    "beforeSubmitPrompt": [
      {
        "type": "command",
        "command": "'/opt/bin/corvanectl' notify --agent cursor"
      }
    ],
    "postToolUse": [
      {
        "type": "command",
        "command": "'/opt/bin/corvanectl' notify --agent cursor"
      }
    ],
    "sessionEnd": [
      {
        "type": "command",
        "command": "'/opt/bin/corvanectl' notify --agent cursor"
      }
    ]
  }
}
)";

TEST(AgentHooks, makesAWholeFileOfAnEmptyText) {
  EXPECT_EQ(added("", Agent::claude), claudeFile);
  EXPECT_EQ(added("", Agent::cursor), cursorFile);
  EXPECT_EQ(added(" \t\r\n \n", Agent::claude), claudeFile);
  EXPECT_EQ(added("{}\n", Agent::claude), claudeFile);
  EXPECT_EQ(HookWalk(parsed(added("", Agent::codex)), "codex").ours().size(), 5U);
}

TEST(AgentHooks, aSnippetIsTheWholeFile) {
  EXPECT_EQ(AgentHooks::snippet(Agent::claude, tool), claudeFile);
  EXPECT_EQ(AgentHooks::snippet(Agent::cursor, tool), cursorFile);
  EXPECT_EQ(AgentHooks::snippet(Agent::codex, tool), added("", Agent::codex));
}

// Adding and removing

/// Settings of one event; "C" stands for a handler of this program, "O" for an outdated one, "U"
/// and "V" for handlers of the user. Events that the agent has besides are left out.
std::string expanded(std::string_view text, std::string_view agent) {
  const std::string end = "notify --agent " + std::string(agent);
  const std::pair<char, std::string> words[] = {
      {'C', R"({"type":"command","command":"'/opt/bin/corvanectl' )" + end + "\"}"},
      {'O', R"({"timeout":1.50,"command":"/old/corvanectl )" + end + R"(","async":true})"},
      {'P', R"({"timeout":1.50,"command":"'/opt/bin/corvanectl' )" + end + R"(","async":true})"},
      {'U', R"({"type":"command","command":"say done"})"},
      {'V', R"({"command":"corvanectl notify --agent other"})"},
  };
  std::string whole;
  for (const char letter : text) {
    const auto word = std::ranges::find(words, letter, &std::pair<char, std::string>::first);
    whole += word == std::end(words) ? std::string(1, letter) : word->second;
  }
  return whole;
}

struct EventCase {
  const char* name;
  std::string before;
  std::optional<std::string> added;  // absent: the event is gone
  std::optional<std::string> removed;
};
const EventCase groupCases[] = {
    {"anEmptyEvent", "[]", R"([{"hooks":[C]}])", "[]"},
    {"aCurrentEntry", R"([{"hooks":[C]}])", R"([{"hooks":[C]}])", std::nullopt},
    {"anOutdatedEntryKeepsItsOtherMembers", R"([{"hooks":[O]}])", R"([{"hooks":[P]}])",
     std::nullopt},
    {"aUsersHandlerComesFirst", R"([{"hooks":[U]}])", R"([{"hooks":[U]},{"hooks":[C]}])",
     R"([{"hooks":[U]}])"},
    {"aSharedGroup", R"([{"matcher":"x","hooks":[U,O,V],"n":-0}])",
     R"([{"matcher":"x","hooks":[U,P,V],"n":-0}])", R"([{"matcher":"x","hooks":[U,V],"n":-0}])"},
    {"aDuplicateInTheGroup", R"([{"hooks":[C,U,O]}])", R"([{"hooks":[C,U]}])",
     R"([{"hooks":[U]}])"},
    {"aDuplicateInAnotherGroup", R"([{"hooks":[O]},{"hooks":[U,C]},{"hooks":[C]}])",
     R"([{"hooks":[P]},{"hooks":[U]}])", R"([{"hooks":[U]}])"},
    {"aGroupOfOnlyDuplicatesGoesWithItsMatcher", R"([{"hooks":[C]},{"matcher":"x","hooks":[C,O]}])",
     R"([{"hooks":[C]}])", std::nullopt},
    {"anEmptyGroup", R"([{"matcher":"x","hooks":[]},{"hooks":[U]}])",
     R"([{"hooks":[U]},{"hooks":[C]}])", R"([{"matcher":"x","hooks":[]},{"hooks":[U]}])"},
    {"aGroupWithoutHandlers", R"([{"matcher":"x"}])", R"([{"hooks":[C]}])", R"([{"matcher":"x"}])"},
    {"handlersThatAreNoObjects", R"([{"hooks":[1.50,"x",null,[],O,true]}])",
     R"([{"hooks":[1.50,"x",null,[],P,true]}])", R"([{"hooks":[1.50,"x",null,[],true]}])"},
    {"anotherAgentsEntry", R"([{"hooks":[V]}])", R"([{"hooks":[V]},{"hooks":[C]}])",
     R"([{"hooks":[V]}])"},
    {"theLastOfTwoHandlerLists", R"([{"hooks":1,"hooks":[U,C]}])", R"([{"hooks":1,"hooks":[U,C]}])",
     R"([{"hooks":1,"hooks":[U]}])"},
};
const EventCase handlerCases[] = {
    {"anEmptyEvent", "[]", "[C]", "[]"},
    {"aCurrentEntry", "[C]", "[C]", std::nullopt},
    {"anOutdatedEntryKeepsItsOtherMembers", "[O]", "[P]", std::nullopt},
    {"aUsersHandlerComesFirst", "[U,V]", "[U,V,C]", "[U,V]"},
    {"anEntryStaysInItsPlace", "[U,O,V]", "[U,P,V]", "[U,V]"},
    {"duplicates", "[O,U,C,C]", "[P,U]", "[U]"},
    {"aHandlerWithoutCommand", "[{}]", "[{},C]", "[{}]"},
    {"aHandlerWithHandlersOfItsOwn", R"([{"hooks":[C]},{"hooks":1}])",
     R"([{"hooks":[C]},{"hooks":1},C])", R"([{"hooks":[C]},{"hooks":1}])"},
};

/// The value of one event in settings; absent when it is not there.
std::optional<std::string> event(std::string_view settings, std::string_view name) {
  const OrderedJSON root = parsed(settings);
  const OrderedJSON* const hooks = root.find("hooks");
  const OrderedJSON* const value = hooks == nullptr ? nullptr : hooks->find(name);
  if (value == nullptr) return std::nullopt;
  return value->text("  ");
}

void checkEvent(const EventCase& row, Agent agent, std::string_view name) {
  const auto whole = [&](const std::optional<std::string>& text) -> std::optional<std::string> {
    if (!text) return std::nullopt;
    return tidied(expanded(*text, wireName(agent)));
  };
  const std::string settings =
      "{\"hooks\":{\"" + std::string(name) + "\":" + *whole(row.before) + "}}";
  EXPECT_EQ(event(added(settings, agent), name), whole(row.added));
  EXPECT_EQ(event(removed(settings, agent), name), whole(row.removed));
}

class Groups : public testing::TestWithParam<EventCase> {};
TEST_P(Groups, areEditedForClaudeAndCodex) {
  checkEvent(GetParam(), Agent::claude, "Stop");
  checkEvent(GetParam(), Agent::claude, "PostToolUse");
  checkEvent(GetParam(), Agent::codex, "Stop");
}
INSTANTIATE_TEST_SUITE_P(AgentHooks, Groups, testing::ValuesIn(groupCases), named);

class Handlers : public testing::TestWithParam<EventCase> {};
TEST_P(Handlers, areEditedForCursor) { checkEvent(GetParam(), Agent::cursor, "stop"); }
INSTANTIATE_TEST_SUITE_P(AgentHooks, Handlers, testing::ValuesIn(handlerCases), named);

TEST(AgentHooks, anEventOfAnEarlierVersionLosesItsEntries) {
  const auto whole = [](std::string_view text) { return tidied(expanded(text, "claude")); };
  const std::string settings = whole(
      R"({"hooks":{"old":[{"hooks":[C]}],"mixed":[{"hooks":[U,C]},{"hooks":[]}],"empty":[]}})");
  for (const std::string& after :
       {added(settings, Agent::claude), removed(settings, Agent::claude)}) {
    EXPECT_EQ(event(after, "old"), std::nullopt);
    EXPECT_EQ(event(after, "mixed"), whole(R"([{"hooks":[U]},{"hooks":[]}])"));
    EXPECT_EQ(event(after, "empty"), "[]");
  }
}

TEST(AgentHooks, existingMembersKeepTheirPlacesAndNewOnesComeLast) {
  const std::string after =
      added(R"({"z":1.50,"hooks":{"Other":[],"SessionEnd":[],"Stop":[]},"a":1e2})", Agent::codex);
  const OrderedJSON root = parsed(after);
  const auto keys = [](const OrderedJSON& value) {
    std::vector<std::string> all;
    for (const auto& member : *value.object()) all.emplace_back(member.key());
    return all;
  };
  EXPECT_EQ(keys(root), (std::vector<std::string>{"z", "hooks", "a"}));
  EXPECT_EQ(keys(*root.find("hooks")),
            (std::vector<std::string>{"Other", "SessionEnd", "Stop", "PermissionRequest",
                                      "UserPromptSubmit", "PostToolUse"}));
  EXPECT_EQ(root.find("z")->number(), "1.50");
  EXPECT_EQ(root.find("a")->number(), "1e2");
}

TEST(AgentHooks, onlyCursorGetsAVersion) {
  EXPECT_EQ(parsed(added("{}", Agent::cursor)).object()->front().key(), "version");
  EXPECT_EQ(parsed(added(R"({"hooks":{}})", Agent::cursor)).object()->back().key(), "version");
  EXPECT_EQ(*parsed(added(R"({"version":2})", Agent::cursor)).find("version"), parsed("2"));
  EXPECT_EQ(*parsed(added(R"({"version":null})", Agent::cursor)).find("version"), parsed("null"));
  EXPECT_EQ(parsed(added("{}", Agent::claude)).find("version"), nullptr);
  EXPECT_EQ(parsed(removed("{}", Agent::cursor)).find("version"), nullptr);
}

TEST(AgentHooks, removingEverythingLeavesEmptyHooks) {
  EXPECT_EQ(removed(claudeFile, Agent::claude), "{\n  \"hooks\": {}\n}\n");
  EXPECT_EQ(removed(cursorFile, Agent::cursor), "{\n  \"version\": 1,\n  \"hooks\": {}\n}\n");
}

TEST(AgentHooks, removingNothingStillTidies) {
  EXPECT_EQ(removed("{ \"a\" : 1.50 }", Agent::claude), "{\n  \"a\": 1.50\n}");
  EXPECT_EQ(removed("", Agent::claude), "{}\n");
  EXPECT_EQ(removed("  ", Agent::claude), "{}\n");
}

TEST(AgentHooks, removingOneAgentsEntriesLeavesTheOthers) {
  EXPECT_EQ(removed(claudeFile, Agent::codex), claudeFile);
}

TEST(AgentHooks, ofDuplicateEventsTheLastCountsAndRemovingReachesAll) {
  const std::string settings = tidied(
      expanded(R"({"hooks":{"Stop":[{"hooks":[U,C]}],"x":[],"Stop":[{"hooks":[V]}]}})", "claude"));
  const OrderedJSON after = parsed(added(settings, Agent::claude));
  const auto& events = *after.find("hooks")->object();
  EXPECT_EQ(events[0].value.text("  "), tidied(expanded(R"([{"hooks":[U,C]}])", "claude")));
  EXPECT_EQ(events[2].value.text("  "),
            tidied(expanded(R"([{"hooks":[V]},{"hooks":[C]}])", "claude")));
  EXPECT_EQ(removed(settings, Agent::claude),
            tidied(expanded(R"({"hooks":{"Stop":[{"hooks":[U]}],"x":[],"Stop":[{"hooks":[V]}]}})",
                            "claude")));
}

// What is ours

struct RecognitionCase {
  const char* name;
  std::string handler;
  bool isOurs;
};
const RecognitionCase recognitionCases[] = {
    {"theEntry", R"({"command":"'/opt/bin/corvanectl' notify --agent claude"})", true},
    {"withoutPathOrQuotes", R"({"command":"corvanectl notify --agent claude"})", true},
    {"withWordsBefore", R"({"command":"env A=b nice corvanectl.sh notify --agent claude"})", true},
    {"ofAnotherType", R"({"type":"prompt","command":"corvanectl notify --agent claude"})", true},
    {"theLastOfTwoCommands", R"({"command":"x","command":"corvanectl notify --agent claude"})",
     true},
    {"theFirstOfTwoCommands", R"({"command":"corvanectl notify --agent claude","command":"x"})",
     false},
    {"ofAnotherAgent", R"({"command":"corvanectl notify --agent codex"})", false},
    {"ofAnAgentWithALongerName", R"({"command":"corvanectl notify --agent claude2"})", false},
    {"withWordsBehind", R"({"command":"corvanectl notify --agent claude --message x"})", false},
    {"withASpaceBehind", R"({"command":"corvanectl notify --agent claude "})", false},
    {"withTwoSpaces", R"({"command":"corvanectl  notify --agent claude"})", true},
    {"withTwoSpacesWithin", R"({"command":"corvanectl notify  --agent claude"})", false},
    {"ofAnotherProgram", R"({"command":"corvane notify --agent claude"})", false},
    {"inCapitals", R"({"command":"Corvanectl notify --agent claude"})", false},
    {"onlyTheEnd", R"({"command":" notify --agent claude"})", false},
    {"aCommandThatIsNoString", R"({"command":["corvanectl notify --agent claude"]})", false},
    {"noCommand", R"({"type":"corvanectl notify --agent claude"})", false},
};
class Recognition : public testing::TestWithParam<RecognitionCase> {};
TEST_P(Recognition, goesByTheCommandAlone) {
  const std::string settings = R"({"hooks":{"Stop":[{"hooks":[)" + GetParam().handler + "]}]}}";
  EXPECT_EQ(event(removed(settings, Agent::claude), "Stop").has_value(), !GetParam().isOurs);
  const auto state = AgentHooks::state(settings, Agent::claude, tool);
  ASSERT_TRUE(state);
  EXPECT_EQ(*state, GetParam().isOurs ? State::outdated : State::absent);
}
INSTANTIATE_TEST_SUITE_P(AgentHooks, Recognition, testing::ValuesIn(recognitionCases), named);

// The text around

struct LayoutCase {
  const char* name;
  std::string before;
  std::string start;
  std::string end;
};
const LayoutCase layoutCases[] = {
    {"tabs", "{\n\t\"a\": 1\n}\n", "{\n\t\"a\": 1,\n\t\"hooks\": {\n\t\t\"Not", "\n\t}\n}\n"},
    {"fourSpaces", "{\n    \"a\": 1\n}\n", "{\n    \"a\": 1,\n    \"hooks\": {\n        \"Not",
     "\n    }\n}\n"},
    {"noFinalLineFeed", "{\n  \"a\": 1\n}", "{\n  \"a\": 1,\n", "\n  }\n}"},
    {"severalFinalLineFeedsBecomeOne", "{\n  \"a\": 1\n}\n\n\n", "{\n  \"a\": 1,\n", "  }\n}\n"},
    {"aFinalSpaceGoes", "{\n  \"a\": 1\n} ", "{\n  \"a\": 1,\n", "\n  }\n}"},
    {"aFinalSpaceAfterTheLineFeedGoesWithIt", "{\n  \"a\": 1\n}\n ", "{\n  \"a\": 1,\n",
     "\n  }\n}"},
    {"oneLine", "{\"a\":1}", "{\n  \"a\": 1,\n  \"hooks\": {\n    \"Not", "\n  }\n}"},
    {"carriageReturnsGo", "{\r\n\t\"a\": 1\r\n}\r\n", "{\n  \"a\": 1,\n  \"hooks\": {\n    \"Not",
     "\n  }\n}\n"},
};
class Layout : public testing::TestWithParam<LayoutCase> {};
TEST_P(Layout, followsTheFile) {
  const std::string after = added(GetParam().before, Agent::claude);
  EXPECT_TRUE(after.starts_with(GetParam().start)) << after;
  EXPECT_TRUE(after.ends_with(GetParam().end)) << after;
  EXPECT_EQ(std::ranges::count(after, '\r'), 0);
}
INSTANTIATE_TEST_SUITE_P(AgentHooks, Layout, testing::ValuesIn(layoutCases), named);

// State

struct StateCase {
  const char* name;
  std::string text;
  State state;
};
std::string replaced(std::string_view text, std::string_view from, std::string_view with) {
  std::string after(text);
  after.replace(after.find(from), from.size(), with);
  return after;
}
const StateCase stateCases[] = {
    {"ofNothing", "", State::absent},
    {"ofBlanks", " \n", State::absent},
    {"ofNoHooks", "{\"a\":1}", State::absent},
    {"ofEmptyHooks", R"({"hooks":{}})", State::absent},
    {"ofUsersHandlers", R"({"hooks":{"Stop":[{"hooks":[{"command":"x"}]}],"Other":[]}})",
     State::absent},
    {"ofTheWholeFile", std::string(claudeFile), State::added},
    {"ofAFileWithMore", replaced(claudeFile, "{\n", "{\n  \"model\": \"opus\",\n"), State::added},
    {"withoutTheFinalLineFeed", std::string(claudeFile.substr(0, claudeFile.size() - 1)),
     State::added},
    {"withOneLineFeedMore", std::string(claudeFile) + "\n", State::outdated},
    {"withAnotherSpace", replaced(claudeFile, "\": {", "\":  {"), State::outdated},
    {"withAnotherTool", replaced(claudeFile, "/opt", "/old"), State::outdated},
    {"withAMissingEvent", replaced(claudeFile, "SessionEnd", "SubagentStop"), State::outdated},
    {"withADuplicate",
     replaced(claudeFile, "\"Stop\": [",
              "\"Stop\": [{\"hooks\": [{\"command\": \"corvanectl notify "
              "--agent claude\"}]},"),
     State::outdated},
    {"onlyAtAnEventOfAnEarlierVersion",
     R"({"hooks":{"Old":[{"hooks":[{"command":"corvanectl notify --agent claude"}]}]}})",
     State::outdated},
};
class States : public testing::TestWithParam<StateCase> {};
TEST_P(States, sayWhetherAddingWouldChangeAnything) {
  const auto state = AgentHooks::state(GetParam().text, Agent::claude, tool);
  ASSERT_TRUE(state);
  EXPECT_EQ(*state, GetParam().state);
}
INSTANTIATE_TEST_SUITE_P(AgentHooks, States, testing::ValuesIn(stateCases), named);

// Problems

struct ProblemCase {
  const char* name;
  std::string text;
  Problem problem = Problem::shape();
  std::optional<Agent> onlyFor{};
};
const ProblemCase problemCases[] = {
    {"noJSON", "x", Problem::syntax(1)},
    {"noJSONOnTheThirdLine", "{\n\"a\":1,\n}", Problem::syntax(3)},
    {"aComment", "{\n  // mine\n  \"a\": 1\n}\n", Problem::syntax(2)},
    {"aByteOrderMark", "\xEF\xBB\xBF{}", Problem::syntax(1)},
    {"aRootThatIsAnArray", "[]"},
    {"aRootThatIsNull", "null"},
    {"hooksThatAreAnArray", R"({"hooks":[]})"},
    {"hooksThatAreNull", R"({"hooks":null})"},
    {"hooksThatAreAText", R"({"hooks":"x"})"},
    {"anEventThatIsAnObject", R"({"hooks":{"Stop":{}}})"},
    {"anEventThatIsNull", R"({"hooks":{"stop":null,"Stop":null}})"},
    {"anotherEventThatIsAText", R"({"hooks":{"Other":"x"}})"},
    {"anEarlierDuplicateOfAnEvent", R"({"hooks":{"Stop":1,"Stop":[]}})"},
    {"anElementThatIsAText", R"({"hooks":{"Stop":["x"],"stop":["x"]}})"},
    {"anElementOfAnotherEventThatIsNull", R"({"hooks":{"Other":[null]}})"},
    {"handlersThatAreAnObject", R"({"hooks":{"Stop":[{"hooks":{}}]}})", Problem::shape(),
     Agent::claude},
    {"handlersThatAreNull", R"({"hooks":{"Other":[{"hooks":null}]}})", Problem::shape(),
     Agent::codex},
};
class Problems : public testing::TestWithParam<ProblemCase> {};
TEST_P(Problems, areTheSameWhateverIsAsked) {
  for (const Agent agent : allAgents) {
    if (GetParam().onlyFor && agent != *GetParam().onlyFor) continue;
    const auto added = AgentHooks::adding(GetParam().text, agent, tool);
    ASSERT_FALSE(added) << wireName(agent);
    EXPECT_EQ(added.failure(), GetParam().problem);
    const auto removed = AgentHooks::removing(GetParam().text, agent);
    ASSERT_FALSE(removed) << wireName(agent);
    EXPECT_EQ(removed.failure(), GetParam().problem);
    const auto state = AgentHooks::state(GetParam().text, agent, tool);
    ASSERT_FALSE(state) << wireName(agent);
    EXPECT_EQ(state.failure(), GetParam().problem);
  }
}
INSTANTIATE_TEST_SUITE_P(AgentHooks, Problems, testing::ValuesIn(problemCases), named);

TEST(AgentHooks, aToolPathThatIsNoUTF8GivesNoText) {
  for (const Agent agent : allAgents) {
    for (const std::string_view path :
         {"/opt/caf\xE9/corvanectl", "/opt/\xED\xA0\x80/corvanectl"}) {
      for (const std::string_view text : {"{}", "no JSON"}) {
        const auto added = AgentHooks::adding(text, agent, path);
        ASSERT_FALSE(added);
        EXPECT_EQ(added.failure(), Problem::toolPath());
        const auto state = AgentHooks::state(text, agent, path);
        ASSERT_FALSE(state);
        EXPECT_EQ(state.failure(), Problem::toolPath());
      }
      EXPECT_EQ(AgentHooks::snippet(agent, path), "");
    }
    EXPECT_TRUE(AgentHooks::adding("{}", agent, "/opt/caf\xC3\xA9/corvanectl"));
  }
}

// Properties

/// Settings as users may have them, entries of this program in them or not.
class RandomSettings {
 public:
  RandomSettings(std::uint64_t seed, Agent agent, bool withEmptyLists)
      : random_(seed), agent_(agent), withEmptyLists_(withEmptyLists) {}

  OrderedJSON root() {
    OrderedJSON::Object members = *random_.object(2).object();
    if (!random_.oneIn(6)) insert(members, {"hooks", hooks()});
    if (random_.oneIn(4)) insert(members, {"version", random_.value(0)});
    return OrderedJSON(std::move(members));
  }

  std::string text() {
    std::string written = root().text(random_.pick<std::string>({"  ", "    ", "\t", " "}));
    return random_.oneIn(2) ? written + "\n" : written;
  }

 private:
  void insert(OrderedJSON::Object& members, OrderedJSON::Member member) {
    const auto place = static_cast<std::ptrdiff_t>(random_.below(members.size() + 1));
    members.insert(members.begin() + place, std::move(member));
  }

  OrderedJSON hooks() {
    const auto names = AgentHooks::events(agent_);
    OrderedJSON::Object events;
    for (std::size_t count = random_.below(6); count > 0; --count) {
      std::string name = random_.oneIn(3) ? random_.pick<std::string>({"Other", "Old", "Ünsinn"})
                                          : std::string(names[random_.below(names.size())]);
      events.push_back({std::move(name), list([&] { return element(); })});
    }
    return OrderedJSON(std::move(events));
  }

  template <class Make>
  OrderedJSON list(Make make) {
    OrderedJSON::Array elements;
    for (std::size_t count = random_.below(4) + (withEmptyLists_ ? 0 : 1); count > 0; --count) {
      elements.push_back(make());
    }
    return OrderedJSON(std::move(elements));
  }

  OrderedJSON element() { return agent_ == Agent::cursor ? handler() : group(); }

  OrderedJSON group() {
    OrderedJSON::Object members;
    if (random_.oneIn(2)) members.push_back({"matcher", random_.value(1)});
    if (!withEmptyLists_ || !random_.oneIn(6)) {
      insert(members,
             {"hooks", list([&] { return random_.oneIn(6) ? random_.value(1) : handler(); })});
    }
    return OrderedJSON(std::move(members));
  }

  OrderedJSON handler() {
    const std::string end = " notify --agent " + std::string(wireName(agent_));
    OrderedJSON::Object members;
    if (random_.oneIn(2))
      members.push_back({"timeout", OrderedJSON(OrderedJSON::Number{random_.number()})});
    if (!random_.oneIn(6)) {
      insert(members, {"command", OrderedJSON(random_.pick<std::string>(
                                      {"/old/corvanectl" + end, "'/opt/bin/corvanectl'" + end,
                                       "corvanectl notify --agent other", "say done", end}))});
    }
    return OrderedJSON(std::move(members));
  }

  RandomJSON random_;
  Agent agent_;
  bool withEmptyLists_;
};

class Property : public testing::TestWithParam<Agent> {
 protected:
  template <class Check>
  void forAllSettings(bool withEmptyLists, Check check) {
    for (std::uint64_t seed = 0; seed < 400 && !HasFatalFailure(); ++seed) {
      const std::string text = RandomSettings(seed, GetParam(), withEmptyLists).text();
      SCOPED_TRACE(text);
      check(text);
    }
  }
  HookWalk walk(std::string_view text) const { return {parsed(text), wireName(GetParam())}; }
};

TEST_P(Property, addingTwiceIsAddingOnce) {
  forAllSettings(true, [&](const std::string& text) {
    const std::string once = added(text, GetParam());
    ASSERT_EQ(added(once, GetParam()), once);
    const auto state = AgentHooks::state(once, GetParam(), tool);
    ASSERT_TRUE(state);
    ASSERT_EQ(*state, State::added);
  });
}

TEST_P(Property, aUsersHandlerNeverChangesMovesOrDisappears) {
  forAllSettings(true, [&](const std::string& text) {
    const std::string after = added(text, GetParam());
    ASSERT_EQ(walk(after).users(), walk(text).users());
    ASSERT_EQ(walk(removed(text, GetParam())).all(), walk(text).users());
    ASSERT_EQ(walk(removed(after, GetParam())).all(), walk(text).users());
  });
}

TEST_P(Property, everyEventHasOneCurrentEntry) {
  const std::string current = AgentHooks::command(GetParam(), tool);
  forAllSettings(true, [&](const std::string& text) {
    const std::string after = added(text, GetParam());
    const OrderedJSON root = parsed(after);
    for (const std::string_view name : AgentHooks::events(GetParam())) {
      // The event alone: an earlier one of the same name is nobody's.
      OrderedJSON alone = parsed(R"({"hooks":{}})");
      alone.find("hooks")->set(name, *root.find("hooks")->find(name));
      const auto ours = HookWalk(alone, wireName(GetParam())).ours();
      ASSERT_EQ(ours.size(), 1U) << name;
      ASSERT_EQ(*parsed(ours.front().handler).find("command")->string(), current);
    }
    for (const auto& handler : walk(after).ours()) {
      ASSERT_TRUE(std::ranges::count(AgentHooks::events(GetParam()), handler.event) == 1)
          << handler.event;
    }
  });
}

/// Adding and then removing leaves what removing alone does, and what adding has to make: "hooks",
/// and Cursor's version. Lists that are empty to begin with are the exception: adding needs them.
TEST_P(Property, whatWasAddedIsRemovedWithoutATrace) {
  forAllSettings(false, [&](const std::string& text) {
    OrderedJSON expected = parsed(removed(text, GetParam()));
    if (GetParam() == Agent::cursor && expected.find("version") == nullptr) {
      expected.set("version", parsed("1"));
    }
    if (expected.find("hooks") == nullptr) expected.set("hooks", parsed("{}"));
    const std::string after = removed(added(text, GetParam()), GetParam());
    ASSERT_EQ(after.substr(0, after.find_last_not_of('\n') + 1),
              expected.text(OrderedJSON::indentation(text)));
    ASSERT_EQ(after.ends_with('\n'), text.ends_with('\n'));
  });
}

TEST_P(Property, everythingBesideTheHooksStaysAsItWas) {
  forAllSettings(true, [&](const std::string& text) {
    OrderedJSON before = parsed(text);
    for (OrderedJSON after : {parsed(added(text, GetParam())), parsed(removed(text, GetParam()))}) {
      if (before.find("version") == nullptr) after.set("version", std::nullopt);
      OrderedJSON same = before;
      same.set("hooks", std::nullopt);
      after.set("hooks", std::nullopt);
      if (before.find("hooks") == nullptr) {
        ASSERT_EQ(after, before);
      } else {
        ASSERT_EQ(after, same);
      }
    }
  });
}

INSTANTIATE_TEST_SUITE_P(AgentHooks, Property, testing::ValuesIn(allAgents),
                         [](const auto& row) { return std::string(wireName(row.param)); });

// Files

/// A home folder that all agents are set up in.
struct Home {
  Home() {
    for (const Agent agent : allAgents) {
      std::filesystem::create_directory(folder.path(AgentHooks::folder(agent)));
    }
  }
  AgentHookFile file(Agent agent) const { return {.agent = agent, .home = folder.path()}; }
  std::set<std::string> namesIn(std::string_view name) const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path(name))) {
      names.insert(entry.path().filename().string());
    }
    return names;
  }
  mode_t permissions(std::string_view name) const {
    struct stat status {};
    EXPECT_EQ(::lstat(folder.path(name).c_str(), &status), 0) << name;
    return status.st_mode & 07777;
  }

  const TemporaryFolder folder{};
};

TEST(AgentHookFile, knowsItsPlace) {
  const AgentHookFile claude{.agent = Agent::claude, .home = "/home/me"};
  EXPECT_EQ(claude.folder(), "/home/me/.claude");
  EXPECT_EQ(claude.url(), "/home/me/.claude/settings.json");
  EXPECT_EQ(claude.displayPath(), "~/.claude/settings.json");
  const AgentHookFile codex{.agent = Agent::codex, .home = "/"};
  EXPECT_EQ(codex.url(), "/.codex/hooks.json");
  EXPECT_EQ(codex.displayPath(), "~/.codex/hooks.json");
}

TEST(AgentHookFile, liesInTheUsersHomeByDefault) {
  const char* const before = std::getenv("HOME");
  const std::string home = before == nullptr ? "" : before;
  ::setenv("HOME", "/home/somebody", 1);
  EXPECT_EQ(AgentHookFile{.agent = Agent::cursor}.url(), "/home/somebody/.cursor/hooks.json");
  before == nullptr ? ::unsetenv("HOME") : ::setenv("HOME", home.c_str(), 1);
}

TEST(AgentHookFile, anAgentIsSetUpWhenItHasAFolder) {
  const TemporaryFolder folder;
  const AgentHookFile file{.agent = Agent::claude, .home = folder.path()};
  EXPECT_FALSE(file.isSetUp());
  folder.write(".claude", "");
  EXPECT_FALSE(file.isSetUp());
  std::filesystem::remove(folder.path(".claude"));
  folder.write("real/settings.json", "{}");
  std::filesystem::create_symlink("real", folder.path(".claude"));
  EXPECT_TRUE(file.isSetUp());
}

TEST(AgentHookFile, whatKeepsFromLookingForTheAgentIsAFailure) {
  const Home home;
  const AgentHookFile file = home.file(Agent::claude);
  const auto here = file.isHere();
  ASSERT_TRUE(here);
  EXPECT_TRUE(*here);
  ScriptedCalls calls;
  calls.before = [](std::string_view call) { return call == "stat" ? EACCES : 0; };
  const auto denied = file.isHere(calls);
  ASSERT_FALSE(denied);
  ASSERT_TRUE(denied.failure().file);
  EXPECT_EQ(denied.failure().file->description(), "stat: Permission denied");
  EXPECT_EQ(denied.failure().file->path, home.folder.path(".claude"));
}

TEST(AgentHookFile, aDraftTellsWhatItIsAboutAndWritesNothingByItself) {
  const Home home;
  const AgentHookFile file = home.file(Agent::claude);
  home.folder.write(".claude/settings.json", "{}\n");
  auto draft = file.adding(tool);
  ASSERT_TRUE(draft);
  EXPECT_FALSE(draft->hadEntries());
  EXPECT_TRUE(draft->changesText());
  EXPECT_EQ(home.folder.read(".claude/settings.json"), "{}\n");
  ASSERT_TRUE(draft->write());
  EXPECT_EQ(home.folder.read(".claude/settings.json"), claudeFile);

  const auto again = file.adding(tool);
  ASSERT_TRUE(again);
  EXPECT_TRUE(again->hadEntries());
  EXPECT_FALSE(again->changesText());
  const auto other = file.adding("/other/corvanectl");
  ASSERT_TRUE(other);
  EXPECT_TRUE(other->hadEntries());
  EXPECT_TRUE(other->changesText());
  const auto removal = file.removing();
  ASSERT_TRUE(removal);
  EXPECT_TRUE(removal->hadEntries());
}

TEST(AgentHookFile, aMissingFileIsMadeForItsOwnerAlone) {
  const Home home;
  const auto change = home.file(Agent::claude).add(tool);
  ASSERT_TRUE(change);
  EXPECT_TRUE(change->written);
  EXPECT_EQ(change->backup, std::nullopt);
  EXPECT_EQ(change->path, home.folder.path(".claude/settings.json"));
  EXPECT_EQ(home.folder.read(".claude/settings.json"), claudeFile);
  EXPECT_EQ(home.permissions(".claude/settings.json"), mode_t{0600});
  EXPECT_EQ(home.namesIn(".claude"), std::set<std::string>{"settings.json"});
}

TEST(AgentHookFile, theStateFollowsTheFile) {
  for (const Agent agent : allAgents) {
    const Home home;
    const AgentHookFile file = home.file(agent);
    const auto is = [&](State expected, std::string_view toolPath = tool) {
      const auto state = file.state(toolPath);
      return state && *state == expected;
    };
    EXPECT_TRUE(is(State::absent));
    ASSERT_TRUE(file.add(tool));
    EXPECT_TRUE(is(State::added));
    EXPECT_TRUE(is(State::outdated, "/other/corvanectl"));
    ASSERT_TRUE(file.remove());
    EXPECT_TRUE(is(State::absent));
  }
}

/// Without its folder in `home` an agent has no entries, and gets none for that reason.
void expectNoEntriesWithoutFolder(const TemporaryFolder& home, int reason) {
  const AgentHookFile file{.agent = Agent::codex, .home = home.path()};
  const auto state = file.state(tool);
  ASSERT_TRUE(state);
  EXPECT_EQ(*state, State::absent);
  const auto change = file.add(tool);
  ASSERT_FALSE(change);
  EXPECT_EQ(change.failure().problem, std::nullopt);
  ASSERT_TRUE(change.failure().file);
  EXPECT_EQ(change.failure().file->code, reason);
  EXPECT_EQ(change.failure().file->path, home.path(".codex"));
}

TEST(AgentHookFile, aMissingFolderHasNoEntriesAndTakesNone) {
  const TemporaryFolder folder;
  expectNoEntriesWithoutFolder(folder, ENOENT);
  EXPECT_FALSE(folder.holds(".codex"));
}

TEST(AgentHookFile, aToolPathThatIsNoUTF8WritesNothing) {
  const Home home;
  const auto change = home.file(Agent::claude).add("/opt/caf\xE9/corvanectl");
  ASSERT_FALSE(change);
  EXPECT_EQ(change.failure().problem, Problem::toolPath());
  const auto state = home.file(Agent::claude).state("/opt/caf\xE9/corvanectl");
  ASSERT_FALSE(state);
  EXPECT_EQ(state.failure().problem, Problem::toolPath());
  EXPECT_EQ(home.namesIn(".claude"), std::set<std::string>{});
}

TEST(AgentHookFile, aFolderThatIsAFileHasNoEntriesAndTakesNone) {
  const TemporaryFolder folder;
  folder.write(".codex", "");
  expectNoEntriesWithoutFolder(folder, ENOTDIR);
}

TEST(AgentHookFile, twoAddsAtOnceBothSucceed) {
  const Home home;
  home.folder.write(".claude/settings.json", "{}");
  ScriptedCalls calls;
  bool isSecond = true;
  calls.before = [&](std::string_view call) {
    if (call == "write" && std::exchange(isSecond, false)) {
      EXPECT_TRUE(home.file(Agent::claude).add(tool));
    }
    return 0;
  };
  const auto change = home.file(Agent::claude).add(tool, calls);
  ASSERT_TRUE(change) << change.failure().file->description();
  EXPECT_TRUE(change->written);
  EXPECT_EQ(home.folder.read(".claude/settings.json"), added("{}", Agent::claude));
  EXPECT_EQ(home.folder.read(".claude/settings.json.corvane-backup"), "{}");
}

TEST(AgentHookFile, addingAgainWritesNothing) {
  const Home home;
  const AgentHookFile file = home.file(Agent::cursor);
  home.folder.write(".cursor/hooks.json", "{}");
  ASSERT_TRUE(file.add(tool));
  home.folder.write(".cursor/hooks.json.corvane-backup", "untouched");
  ScriptedCalls calls;
  std::set<std::string> made;
  calls.before = [&](std::string_view call) {
    made.emplace(call);
    return 0;
  };
  const auto change = file.add(tool, calls);
  ASSERT_TRUE(change);
  EXPECT_FALSE(change->written);
  EXPECT_EQ(change->backup, std::nullopt);
  EXPECT_EQ(home.folder.read(".cursor/hooks.json.corvane-backup"), "untouched");
  EXPECT_EQ(made.count("rename") + made.count("write"), 0U);
}

TEST(AgentHookFile, theBackupHoldsTheTextBeforeAtEveryChange) {
  const Home home;
  const AgentHookFile file = home.file(Agent::claude);
  const std::string original = "{\"secret\": \"x\"}";
  home.folder.write(".claude/settings.json", original);
  ASSERT_EQ(::chmod(home.folder.path(".claude/settings.json").c_str(), 0640), 0);
  const auto first = file.add(tool);
  ASSERT_TRUE(first);
  EXPECT_TRUE(first->written);
  EXPECT_EQ(first->backup, home.folder.path(".claude/settings.json.corvane-backup"));
  EXPECT_EQ(home.folder.read(".claude/settings.json.corvane-backup"), original);
  EXPECT_EQ(home.permissions(".claude/settings.json.corvane-backup"), mode_t{0640});
  EXPECT_EQ(home.permissions(".claude/settings.json"), mode_t{0640});
  const std::string between = home.folder.read(".claude/settings.json");
  ASSERT_TRUE(file.remove());
  EXPECT_EQ(home.folder.read(".claude/settings.json.corvane-backup"), between);
  EXPECT_EQ(home.folder.read(".claude/settings.json"),
            "{\n  \"secret\": \"x\",\n  \"hooks\": {}\n}");
}

TEST(AgentHookFile, aLinkStillPointsToTheChangedFile) {
  const Home home;
  home.folder.write("dotfiles/claude.json", "{}\n");
  std::filesystem::create_symlink("../dotfiles/claude.json",
                                  home.folder.path(".claude/settings.json"));
  const auto change = home.file(Agent::claude).add(tool);
  ASSERT_TRUE(change);
  EXPECT_EQ(home.folder.read("dotfiles/claude.json"), claudeFile);
  EXPECT_TRUE(std::filesystem::is_symlink(home.folder.path(".claude/settings.json")));
  EXPECT_EQ(home.folder.read(".claude/settings.json"), claudeFile);
  EXPECT_EQ(home.namesIn("dotfiles"),
            (std::set<std::string>{"claude.json", "claude.json.corvane-backup"}));
  EXPECT_EQ(home.namesIn(".claude"), std::set<std::string>{"settings.json"});
  EXPECT_EQ(std::filesystem::canonical(*change->backup),
            home.folder.path("dotfiles/claude.json.corvane-backup"));
}

TEST(AgentHookFile, removingFromAMissingFileMakesAnEmptyOne) {
  const Home home;
  const auto change = home.file(Agent::claude).remove();
  ASSERT_TRUE(change);
  EXPECT_TRUE(change->written);
  EXPECT_EQ(home.folder.read(".claude/settings.json"), "{}\n");
}

struct UntouchedCase {
  const char* name;
  std::string text;
  Problem problem;
};
const UntouchedCase untouchedCases[] = {
    {"noJSON", "{\n  \"a\": 1,\n}\n", Problem::syntax(3)},
    {"noUTF8InAString", "{\n  \"a\": \"\xFF\"\n}\n", Problem::syntax(1)},
    {"noUTF8AfterAnError", "{\n\nx\xE2\x82", Problem::syntax(1)},
    {"anEncodedSurrogate", "{\"a\":\"\xED\xA0\x80\"}", Problem::syntax(1)},
    {"sixteenBitText", std::string("{\0}\0", 4), Problem::syntax(1)},
    {"wrongShape", "[]", Problem::shape()},
};
class Untouched : public testing::TestWithParam<UntouchedCase> {};
TEST_P(Untouched, isAFileWithAProblem) {
  const Home home;
  const AgentHookFile file = home.file(Agent::codex);
  home.folder.write(".codex/hooks.json", GetParam().text);
  const auto state = file.state(tool);
  ASSERT_FALSE(state);
  EXPECT_EQ(state.failure().problem, GetParam().problem);
  for (const auto& change : {file.add(tool), file.remove()}) {
    ASSERT_FALSE(change);
    EXPECT_EQ(change.failure().problem, GetParam().problem);
    EXPECT_EQ(change.failure().file, std::nullopt);
  }
  EXPECT_EQ(home.folder.read(".codex/hooks.json"), GetParam().text);
  EXPECT_EQ(home.namesIn(".codex"), std::set<std::string>{"hooks.json"});
}
INSTANTIATE_TEST_SUITE_P(AgentHookFile, Untouched, testing::ValuesIn(untouchedCases), named);

TEST(AgentHookFile, aPipeInItsPlaceFailsAtOnce) {
  const Home home;
  ASSERT_EQ(::mkfifo(home.folder.path(".codex/hooks.json").c_str(), 0600), 0);
  const auto state = home.file(Agent::codex).state(tool);
  ASSERT_FALSE(state);
  EXPECT_EQ(state.failure().file->description(), "not a regular file");
  const auto change = home.file(Agent::codex).add(tool);
  ASSERT_FALSE(change);
  EXPECT_EQ(change.failure().file->description(), "not a regular file");
}

TEST(AgentHookFile, anUnreadableFileIsAFailure) {
  const Home home;
  home.folder.write(".codex/hooks.json", "{}");
  ScriptedCalls calls;
  calls.before = [](std::string_view call) { return call == "read" ? EIO : 0; };
  const auto state = home.file(Agent::codex).state(tool, calls);
  ASSERT_FALSE(state);
  EXPECT_EQ(state.failure().file->description(), "read: Input/output error");
  EXPECT_EQ(state.failure().file->path, home.folder.path(".codex/hooks.json"));
}

TEST(AgentHookFile, whatTheAgentWroteMeanwhileIsNotLost) {
  const Home home;
  home.folder.write(".claude/settings.json", "{}");
  ScriptedCalls calls;
  calls.before = [&](std::string_view call) {
    // From here on the new text is made of what was read.
    if (call == "write") home.folder.write(".claude/settings.json", "{\"theirs\":1}");
    return 0;
  };
  const auto change = home.file(Agent::claude).add(tool, calls);
  ASSERT_FALSE(change);
  EXPECT_EQ(change.failure().file->description(), "changed by another program meanwhile");
  EXPECT_EQ(home.folder.read(".claude/settings.json"), "{\"theirs\":1}");
}

TEST(AgentHookFile, aFullDiskLeavesTheFileAndNothingStray) {
  const Home home;
  home.folder.write(".claude/settings.json", "{}");
  for (int writes = 0; writes < 2; ++writes) {  // of the backup, of the file
    ScriptedCalls calls;
    calls.before = [left = writes](std::string_view call) mutable {
      return call == "write" && left-- == 0 ? ENOSPC : 0;
    };
    const auto change = home.file(Agent::claude).add(tool, calls);
    ASSERT_FALSE(change);
    EXPECT_EQ(change.failure().file->code, ENOSPC);
    EXPECT_EQ(home.folder.read(".claude/settings.json"), "{}");
    for (const std::string& name : home.namesIn(".claude")) {
      EXPECT_EQ(name.find(".corvane-new."), std::string::npos) << name;
    }
  }
}

TEST(AgentHookFile, killsAtAnyMomentLeaveWholeSettings) {
  const Home home;
  const AgentHookFile file = home.file(Agent::claude);
  home.folder.write(".claude/settings.json", "{\n  \"model\": \"opus\",\n  \"hooks\": {}\n}\n");
  const std::string without = home.folder.read(".claude/settings.json");
  const std::string with = added(without, Agent::claude);
  std::mt19937 random(4711);
  for (int round = 0; round < 50; ++round) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      while (file.add(tool) && file.remove()) continue;
      ::_exit(1);
    }
    ::usleep(static_cast<useconds_t>(random() % 20'000));
    ASSERT_EQ(::kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "a change failed";
    const std::string now = home.folder.read(".claude/settings.json");
    ASSERT_TRUE(now == with || now == without) << now;
    if (home.folder.holds(".claude/settings.json.corvane-backup")) {
      const std::string backup = home.folder.read(".claude/settings.json.corvane-backup");
      ASSERT_TRUE(backup == with || backup == without) << backup;
    }
  }
  ASSERT_TRUE(file.add(tool));
  EXPECT_EQ(home.folder.read(".claude/settings.json"), with);
}

}  // namespace
