#include "CorvaneControl/ControlCommandLine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>

namespace CorvaneControl {

// What a failing comparison shows of a decision.
namespace ControlCommandLine {
void PrintTo(const Parsed& parsed, std::ostream* out) {
  if (const auto* run = std::get_if<Run>(&parsed)) {
    *out << (run->format == Format::json ? "json " : "text ") << ControlCoding::line(run->request);
  } else if (const auto* problem = std::get_if<Usage>(&parsed)) {
    *out << "usage: " << problem->message;
  } else {
    *out << "alternative " << parsed.index();
  }
}
}  // namespace ControlCommandLine

namespace {

using Command = ControlRequest::Command;
using ControlCommandLine::Format;
using ControlCommandLine::Parsed;

using Words = std::vector<std::string>;

constexpr auto named = [](const auto& info) { return std::string(info.param.name); };

/// A process of which the test knows everything, and which notes what it was asked for.
struct Surroundings {
  std::optional<std::string> input{};
  std::map<std::string, std::string, std::less<>> environment{};
  bool reviewed = false;

  std::optional<JSON::Document> document{};
  int inputCalls = 0;
  int folderCalls = 0;
  int parentCalls = 0;
  std::vector<std::string> transcripts{};

  Parsed parse(const Words& words) {
    return ControlCommandLine::parse(
        words, {.standardInput = [this]() -> const JSON::Value* {
                  ++inputCalls;
                  if (input && !document) document = JSON::Document::parse(*input);
                  return document ? &document->root() : nullptr;
                },
                .currentDirectory =
                    [this] {
                      ++folderCalls;
                      return std::string("/current");
                    },
                .parentProcess =
                    [this] {
                      ++parentCalls;
                      return std::optional<std::int32_t>(77);
                    },
                .autoReviewed =
                    [this](const std::string& path) {
                      transcripts.push_back(path);
                      return reviewed;
                    },
                .environment = [this](std::string_view name) -> std::optional<std::string> {
                  const auto found = environment.find(name);
                  if (found == environment.end()) return std::nullopt;
                  return found->second;
                }});
  }
};

Parsed usage(std::string message) { return ControlCommandLine::Usage{std::move(message)}; }

Parsed run(Command command, std::optional<std::string> workspace = {},
           Format format = Format::text) {
  return ControlCommandLine::Run{{.command = command, .workspace = std::move(workspace)}, format};
}

struct ParseCase {
  const char* name;
  Words words;
  Parsed parsed;
};
const ParseCase parseCases[] = {
    {"noWords", {}, usage("")},
    {"list", {"list"}, run(Command::list)},
    {"listAsJSON", {"list", "--json"}, run(Command::list, {}, Format::json)},
    {"listAsJSONTwice", {"list", "--json", "--json"}, run(Command::list, {}, Format::json)},
    {"theFirstWordIsTheCommand", {"--json", "list"}, usage("Unknown command: --json")},
    {"theSmallestFlagIsReported",
     {"list", "--verbose", "--all"},
     usage("Unknown option for list: --all")},
    {"valuedOptionsAreReportedFirst",
     {"list", "--all", "--kind", "done"},
     usage("Unknown option for list: --kind")},
    {"theSmallestValuedOptionIsReported",
     {"list", "--message", "x", "--agent", "y"},
     usage("Unknown option for list: --agent")},
    {"aValuedOptionTakesTheNextWord",
     {"list", "--cwd", "--json"},
     usage("Unknown option for list: --cwd")},
    {"jsonWithAnUnknownFlag", {"list", "--json", "--x"}, usage("Unknown option for list: --x")},
    {"aFlagWithAValueIsNotSplit", {"list", "--json=1"}, usage("Unknown option for list: --json=1")},
    {"twoDashesAlone", {"list", "--"}, usage("Unknown option for list: --")},
    {"help", {"help"}, ControlCommandLine::Help{}},
    {"helpFlag", {"--help"}, ControlCommandLine::Help{}},
    {"helpShort", {"-h"}, ControlCommandLine::Help{}},
    {"helpWithWords", {"help", "me"}, ControlCommandLine::Help{}},
    {"helpAsJSON", {"help", "--json"}, ControlCommandLine::Help{}},
    {"helpWithAFlag", {"help", "--foo"}, usage("Unknown option for help: --foo")},
    {"version", {"version"}, ControlCommandLine::Version{}},
    {"versionFlag", {"--version"}, ControlCommandLine::Version{}},
    {"versionShort", {"-v"}, ControlCommandLine::Version{}},
    {"versionWithWords", {"version", "x"}, ControlCommandLine::Version{}},
    {"versionWithAFlag", {"version", "--foo"}, usage("Unknown option for version: --foo")},
    {"unknown", {"frob"}, usage("Unknown command: frob")},
    {"unknownWithAFlag", {"frob", "--x"}, usage("Unknown option for frob: --x")},
    {"aMissingValueBeatsEverything",
     {"frob", "x", "--all", "--cwd"},
     usage("--cwd needs a value.")},
    {"theEmptyWord", {""}, usage("Unknown command: ")},
    {"caseMatters", {"List"}, usage("Unknown command: List")},
    {"optionsMatchExactly", {"list", "--Kind", "x"}, usage("Unknown option for list: --Kind")},
    {"current", {"current"}, run(Command::current)},
    {"currentAsJSON", {"current", "--json"}, run(Command::current, {}, Format::json)},
    {"currentTakesNone", {"current", "x"}, usage("current takes no workspace.")},
    {"listTakesNone", {"list", ""}, usage("list takes no workspace.")},
    {"subscribeTakesNone", {"subscribe", "-x"}, usage("subscribe takes no workspace.")},
    {"subscribe", {"subscribe"}, run(Command::subscribe)},
    {"subscribeAsJSON", {"subscribe", "--json"}, run(Command::subscribe, {}, Format::json)},
    {"switchByName", {"switch", "Mail"}, run(Command::switchTo, "Mail")},
    {"switchJoinsWords", {"switch", "My", "Project"}, run(Command::switchTo, "My Project")},
    {"switchToThePrevious", {"switch", "-"}, run(Command::switchTo, "-")},
    {"switchToAShortForm", {"switch", "-x"}, run(Command::switchTo, "-x")},
    {"switchNeedsOne", {"switch"}, usage("switch needs a workspace.")},
    {"switchNeedsMoreThanNothing", {"switch", ""}, usage("switch needs a workspace.")},
    {"switchTwoEmptyWords", {"switch", "", ""}, run(Command::switchTo, " ")},
    {"switchKeepsSpaces", {"switch", " a  b "}, run(Command::switchTo, " a  b ")},
    {"switchJSONAnywhere",
     {"switch", "a", "--json", "b"},
     run(Command::switchTo, "a b", Format::json)},
    {"launch", {"launch", "Mail"}, run(Command::launch, "Mail")},
    {"launchNeedsOne", {"launch", "--json"}, usage("launch needs a workspace.")},
    {"stop", {"stop", "Mail"}, run(Command::stop, "Mail")},
    {"stopNeedsOne", {"stop"}, usage("stop needs a workspace.")},
    {"notifyWithoutAValue", {"notify", "--message"}, usage("--message needs a value.")},
    {"notifyWithAnUnknownFlag",
     {"notify", "--quiet", "--agent", "claude"},
     usage("Unknown option for notify: --quiet")},
    {"notifyTheSmallestFlag",
     {"notify", "--z", "--a", "--json"},
     usage("Unknown option for notify: --a")},
    {"notifyTakesOptionsOnly",
     {"notify", "--kind", "done", "extra"},
     usage("notify takes options only.")},
    {"notifyWordsBeforeTheKind",
     {"notify", "--kind", "x", "extra"},
     usage("notify takes options only.")},
    {"notifyAWrongKind",
     {"notify", "--kind", "Done"},
     usage("--kind is needs-input or done, not Done.")},
    {"notifyAnEmptyKind", {"notify", "--kind", ""}, usage("--kind is needs-input or done, not .")},
    {"notifyAnUnknownAgent",
     {"notify", "--agent", "gemini"},
     usage("Unknown agent gemini: use claude, codex or cursor, or give --kind.")},
    {"notifyAnUnknownAgentWithWords",
     {"notify", "--agent", "gemini", "extra"},
     usage("Unknown agent gemini: use claude, codex or cursor, or give --kind.")},
    {"notifyAnUnknownAgentWithKindAndWords",
     {"notify", "--agent", "gemini", "--kind", "done", "extra"},
     usage("notify takes options only.")},
    {"notifyAnUnknownAgentWithAWrongKind",
     {"notify", "--agent", "gemini", "--kind", "x"},
     usage("--kind is needs-input or done, not x.")},
};

class ParsedWords : public testing::TestWithParam<ParseCase> {};
TEST_P(ParsedWords, giveOneDecisionAndAskTheProcessForNothing) {
  Surroundings process;
  EXPECT_EQ(process.parse(GetParam().words), GetParam().parsed);
  EXPECT_EQ(process.inputCalls, 0);
  if (!std::holds_alternative<ControlCommandLine::Run>(GetParam().parsed)) {
    EXPECT_EQ(process.parentCalls, 0);
  }
}
INSTANTIATE_TEST_SUITE_P(ControlCommandLine, ParsedWords, testing::ValuesIn(parseCases), named);

TEST(ControlCommandLine, theUsageTextHasNoLineFeedAtItsEnd) {
  EXPECT_TRUE(ControlCommandLine::usage.starts_with("Usage: corvanectl <command> [options]\n\n"));
  EXPECT_TRUE(ControlCommandLine::usage.ends_with("this command came with"));
  EXPECT_EQ(std::ranges::count(ControlCommandLine::usage, '\n'), 15);
}

/// The agents' names in a sentence.
std::string agentsInWords() {
  std::string words;
  for (const Agent agent : allAgents) {
    if (!words.empty()) words += agent == allAgents.back() ? " or " : ", ";
    words += wireName(agent);
  }
  return words;
}

TEST(ControlCommandLine, everyAgentIsNamedToTheUser) {
  EXPECT_NE(ControlCommandLine::usage.find("--agent <name>       " + agentsInWords() + ": reads"),
            std::string_view::npos);
  EXPECT_EQ(ControlCommandLine::parse({"notify", "--agent", "x"}, {}),
            usage("Unknown agent x: use " + agentsInWords() + ", or give --kind."));
}

const std::string stop =
    R"({"hook_event_name":"Stop","session_id":"s1","cwd":"/w","last_assistant_message":"Hi"})";
const std::string submit =
    R"({"hook_event_name":"UserPromptSubmit","session_id":"s1","cwd":"/w","prompt":"Do it"})";
const std::string permission =
    R"({"hook_event_name":"PermissionRequest","session_id":"s1","cwd":"/w","tool_name":"Bash",)"
    R"("tool_input":{"command":"ls"},"transcript_path":"/t.jsonl"})";

ControlRequest attention(std::string agent) {
  return {.command = Command::notify,
          .agent = std::move(agent),
          .cwd = "/current",
          .kind = AttentionKind::needsInput,
          .process = 77};
}

ControlRequest progress(std::string agent) {
  return {.command = Command::notify,
          .agent = std::move(agent),
          .cwd = "/w",
          .session = "s1",
          .process = 77,
          .activity = AgentActivity::started,
          .task = "Do it"};
}

TEST(Notify, byHandMarksTheCurrentFolder) {
  Surroundings process;
  EXPECT_EQ(process.parse({"notify"}), Parsed(ControlCommandLine::Run{attention("agent")}));
  EXPECT_EQ(process.inputCalls, 0);
  EXPECT_EQ(process.parentCalls, 1);
}

TEST(Notify, byHandTakesEveryOption) {
  Surroundings process;
  ControlRequest request = attention("agent");
  request.kind = AttentionKind::done;
  request.cwd = "/there";
  request.message = "--kind";
  EXPECT_EQ(process.parse(
                {"notify", "--kind", "done", "--cwd", "/there", "--message", "--kind", "--json"}),
            Parsed(ControlCommandLine::Run{request}));
  EXPECT_EQ(process.folderCalls, 0);
}

TEST(Notify, theLaterOfTwoEqualOptionsCounts) {
  Surroundings process;
  ControlRequest request = attention("agent");
  request.message = "b";
  EXPECT_EQ(process.parse({"notify", "--message", "a", "--message", "b"}),
            Parsed(ControlCommandLine::Run{request}));
}

TEST(Notify, anEmptyOptionIsAnOption) {
  Surroundings process;
  ControlRequest request = attention("agent");
  request.message = "";
  request.cwd = "";
  EXPECT_EQ(process.parse({"notify", "--message", "", "--cwd", ""}),
            Parsed(ControlCommandLine::Run{request}));
}

TEST(Notify, anUnknownAgentWithAKindIsSentByItsName) {
  Surroundings process;
  ControlRequest request = attention("gemini");
  request.kind = AttentionKind::done;
  EXPECT_EQ(process.parse({"notify", "--agent", "gemini", "--kind", "done"}),
            Parsed(ControlCommandLine::Run{request}));
  EXPECT_EQ(process.inputCalls, 0);
}

TEST(Notify, carriesTheCmuxPaneOfTheEnvironment) {
  Surroundings process;
  process.environment = {{"CMUX_WORKSPACE_ID", "00000000-0000-0000-0000-000000000001"},
                         {"CMUX_SURFACE_ID", "00000000-0000-0000-0000-000000000002"}};
  ControlRequest request = attention("agent");
  request.cmux = CmuxPane{*UUID::parse("00000000-0000-0000-0000-000000000001"),
                          *UUID::parse("00000000-0000-0000-0000-000000000002")};
  EXPECT_EQ(process.parse({"notify"}), Parsed(ControlCommandLine::Run{request}));
}

TEST(Notify, anEventBecomesAMark) {
  Surroundings process{.input = stop};
  ControlRequest request = attention("claude");
  request.kind = AttentionKind::done;
  request.cwd = "/w";
  request.message = "Hi";
  request.session = "s1";
  EXPECT_EQ(process.parse({"notify", "--agent", "claude"}),
            Parsed(ControlCommandLine::Run{request}));
  EXPECT_EQ(process.inputCalls, 1);
  EXPECT_EQ(process.parentCalls, 1);
}

TEST(Notify, optionsReplaceWhatTheEventSays) {
  Surroundings process{.input = stop};
  ControlRequest request = attention("claude");
  request.kind = AttentionKind::needsInput;
  request.cwd = "/there";
  request.message = std::string(300, 'x');  // not shortened
  request.session = "s1";
  EXPECT_EQ(process.parse({"notify", "--agent", "claude", "--kind", "needs-input", "--cwd",
                           "/there", "--message", std::string(300, 'x')}),
            Parsed(ControlCommandLine::Run{request}));
}

TEST(Notify, theCurrentFolderIsSentWhole) {
  const std::string folder = "/" + std::string(100'000, 'x');
  const auto parsed =
      ControlCommandLine::parse({"notify"}, {.currentDirectory = [&folder] { return folder; }});
  const auto* const decision = std::get_if<ControlCommandLine::Run>(&parsed);
  ASSERT_NE(decision, nullptr);
  EXPECT_EQ(decision->request.cwd, folder);
}

TEST(Notify, anEventWithoutAFolderMarksTheCurrentOne) {
  Surroundings process{.input = R"({"hook_event_name":"Stop"})"};
  ControlRequest request = attention("claude");
  request.kind = AttentionKind::done;
  EXPECT_EQ(process.parse({"notify", "--agent", "claude"}),
            Parsed(ControlCommandLine::Run{request}));
}

TEST(Notify, theAgentsNameIsReadInAnyCaseAndSentAsGiven) {
  Surroundings process{.input = submit};
  EXPECT_EQ(process.parse({"notify", "--agent", "CLAUDE"}),
            Parsed(ControlCommandLine::Run{progress("CLAUDE")}));
}

TEST(Notify, progressTakesOnlyTheFolderFromTheOptions) {
  Surroundings process{.input = submit};
  ControlRequest request = progress("codex");
  request.cwd = "/there";
  EXPECT_EQ(process.parse({"notify", "--agent", "codex", "--cwd", "/there", "--kind", "wrong",
                           "--message", "x", "extra"}),
            Parsed(ControlCommandLine::Run{request}));
}

TEST(Notify, everyAgentsInputIsRead) {
  for (const Agent agent : allAgents) {
    Surroundings process{.input = stop};
    process.parse({"notify", "--agent", std::string(wireName(agent))});
    EXPECT_EQ(process.inputCalls, 1) << wireName(agent);
  }
}

TEST(Notify, aProcessThatLendsNothingIsOneThatKnowsNothing) {
  const ControlRequest request{
      .command = Command::notify, .agent = "agent", .cwd = "", .kind = AttentionKind::needsInput};
  EXPECT_EQ(ControlCommandLine::parse({"notify"}, {}), Parsed(ControlCommandLine::Run{request}));
  for (const Agent agent : allAgents) {
    const std::string name(wireName(agent));
    EXPECT_EQ(ControlCommandLine::parse({"notify", "--agent", name}, {}),
              Parsed(ControlCommandLine::Nothing{}));
  }
}

TEST(Notify, aProcessThatLendsOnlyInputHasItsRequestsAsked) {
  std::string bytes = permission;
  const auto document = JSON::Document::parse(bytes);
  ASSERT_TRUE(document);
  const ControlCommandLine::Process process{.standardInput = [&] { return &document->root(); }};
  for (const char* const agent : {"claude", "codex"}) {
    const auto parsed = ControlCommandLine::parse({"notify", "--agent", agent}, process);
    const auto* const decision = std::get_if<ControlCommandLine::Run>(&parsed);
    ASSERT_NE(decision, nullptr);
    ASSERT_TRUE(decision->request.permission);
    EXPECT_EQ(decision->request.permission->subject, "ls");
  }
}

TEST(Notify, aKnownAgentTakesWords) {
  Surroundings process{.input = stop};
  EXPECT_TRUE(std::holds_alternative<ControlCommandLine::Run>(
      process.parse({"notify", "extra", "--agent", "claude"})));
}

TEST(Notify, nothingComesOfInputThatSaysNothing) {
  const std::optional<std::string> inputs[] = {std::nullopt,
                                               "",
                                               "{",
                                               "[]",
                                               "{}",
                                               R"({"hook_event_name":"Other","cwd":"/w"})",
                                               R"({"hook_event_name":"Stop","hook_event_name":1})"};
  for (const auto& input : inputs) {
    for (const char* const agent : {"claude", "codex", "cursor"}) {
      Surroundings process{.input = input};
      EXPECT_EQ(process.parse({"notify", "--agent", agent, "--kind", "wrong"}),
                Parsed(ControlCommandLine::Nothing{}))
          << agent << " " << input.value_or("(absent)");
      EXPECT_EQ(process.inputCalls, 1);
    }
  }
}

TEST(Notify, aWrongKindIsReportedOnceThereIsAnEvent) {
  Surroundings process{.input = stop};
  EXPECT_EQ(process.parse({"notify", "--agent", "claude", "--kind", "Done"}),
            usage("--kind is needs-input or done, not Done."));
}

TEST(Notify, aPermissionRequestCarriesItsCard) {
  Surroundings process{.input = permission};
  const auto parsed = process.parse({"notify", "--agent", "claude"});
  const auto* const decision = std::get_if<ControlCommandLine::Run>(&parsed);
  ASSERT_NE(decision, nullptr);
  ASSERT_TRUE(decision->request.permission);
  EXPECT_EQ(decision->request.permission->subject, "ls");
  EXPECT_EQ(decision->request.message, "Needs your approval: ls");
  EXPECT_TRUE(decision->request.toolCall);
  EXPECT_EQ(decision->request.kind, AttentionKind::needsInput);
  EXPECT_TRUE(process.transcripts.empty());
}

TEST(Notify, aCardShowsTheHomeFolderOfTheProcess) {
  std::string bytes = permission;
  const auto document = JSON::Document::parse(bytes);
  ASSERT_TRUE(document);
  const auto parsed =
      ControlCommandLine::parse({"notify", "--agent", "claude"},
                                {.standardInput = [&] { return &document->root(); },
                                 .homeFolder = [] { return std::optional<std::string>("/w"); }});
  const auto* const decision = std::get_if<ControlCommandLine::Run>(&parsed);
  ASSERT_NE(decision, nullptr);
  ASSERT_TRUE(decision->request.permission);
  EXPECT_EQ(decision->request.permission->folder, "~");
  EXPECT_EQ(decision->request.cwd, "/w");
}

TEST(Notify, codexRequestsThatAreReviewedAutomaticallyAreLeftToCodex) {
  Surroundings process{.input = permission, .reviewed = true};
  EXPECT_EQ(process.parse({"notify", "--agent", "codex"}), Parsed(ControlCommandLine::Nothing{}));
  EXPECT_EQ(process.transcripts, Words{"/t.jsonl"});

  Surroundings asking{.input = permission};
  EXPECT_TRUE(std::holds_alternative<ControlCommandLine::Run>(
      asking.parse({"notify", "--agent", "codex"})));
}

}  // namespace
}  // namespace CorvaneControl
