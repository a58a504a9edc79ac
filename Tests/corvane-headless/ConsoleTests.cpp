#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "HeadlessCorvane.h"
#include "Support/PseudoTerminal.h"

namespace CorvaneTests {
namespace {

/// A request for permission to run `command`.
std::string permission(const std::string& command, const std::string& more = "") {
  return R"({"command":"notify","agent":"claude","cwd":"/home/ada/Projects/site",)"
         R"("kind":"needs-input","session":"s","message":"Needs your approval",)" +
         more + R"("permission":{"action":"run","subject":")" + command +
         R"(","lines":[{"text":")" + command + R"(","kind":"plain"}],"complete":true}})";
}

std::string progress(const std::string& more) {
  return R"({"command":"notify","agent":"claude","cwd":"/home/ada/Projects/site","session":"s",)" +
         more + "}";
}

const std::string questionCard =
    R"({"command":"notify","agent":"claude","kind":"needs-input","permission":{"action":"ask",)"
    R"("subject":"Which?","lines":[],"complete":true,"questions":[)"
    R"({"header":"","text":"Which?","multiSelect":false,"options":[)"
    R"({"label":"A","recommended":false},{"label":"B","recommended":true}]},)"
    R"({"header":"","text":"What else?","multiSelect":true,"options":[)"
    R"({"label":"C","recommended":false},{"label":"D","recommended":false}]}]}})";

const std::string planCard =
    R"({"command":"notify","agent":"claude","kind":"needs-input","permission":{"action":"plan",)"
    R"("subject":"Rewrite it","lines":[{"text":"# Rewrite it","kind":"plain"},)"
    R"({"text":"1. Begin","kind":"plain"}],"complete":true}})";

/// A headless Corvane in a terminal, without colours unless a test wants them.
class Terminal {
 public:
  explicit Terminal(ChildOptions options = {.environment = {{"NO_COLOR", "1"}}},
                    unsigned short columns = 80)
      : terminal(columns),
        process(CORVANE_HEADLESS,
                terminal.lentTo(HeadlessCorvane::served(std::move(options), folder.path("s")))) {
    terminal.waitFor("Serving");
  }

  ControlClient client() const { return ControlClient(folder.path("s")); }
  /// A client that has asked something.
  ControlClient asking(const std::string& request) const {
    ControlClient client(folder.path("s"));
    client.send(request + "\n");
    return client;
  }
  bool waitFor(std::string_view text) { return terminal.waitFor(text); }
  std::size_t seen() const { return terminal.screen().size(); }
  /// Whether a text comes that was not there before `from`.
  bool waitAfter(std::size_t from, std::string_view text) { return terminal.waitFor(text, from); }
  void type(std::string_view line) const { terminal.type(std::string(line) + "\n"); }

  TemporaryFolder folder{};
  PseudoTerminal terminal;
  ChildProcess process;
};

class Console : public CorvaneTests::InATerminal {};

TEST_F(Console, asksAndSendsTheAnswer) {
  Terminal console;
  ControlClient agent = console.asking(permission("npm test"));
  ASSERT_TRUE(
      console.waitFor("\nClaude · Wants to run a command\n"
                      "  npm test\n"
                      "  workspace Site\n"
                      "    1   npm test\n"
                      "[a] allow  [d] deny  [s] show all  [l] leave it to Claude\n"));
  EXPECT_FALSE(agent.isReadable(std::chrono::milliseconds(50)));
  console.type("a");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
  EXPECT_TRUE(console.waitFor("Allowed, Claude: Run npm test"));
}

TEST_F(Console, denies) {
  Terminal console;
  ControlClient agent = console.asking(permission("rm"));
  ASSERT_TRUE(console.waitFor("[d] deny"));
  console.type("deny");
  EXPECT_EQ(agent.line(), R"({"decision":"denied","ok":true})");
  EXPECT_TRUE(console.waitFor("Denied, Claude: Run rm"));
}

TEST_F(Console, leavesACardToItsAgent) {
  Terminal console;
  ControlClient agent = console.asking(permission("ls"));
  ASSERT_TRUE(console.waitFor("[l] leave it to Claude"));
  console.type("l");
  EXPECT_EQ(agent.line(), R"({"ok":true})");
  EXPECT_TRUE(console.waitFor("Left to Claude: Run ls"));
}

TEST_F(Console, asksAgainAfterWhatIsNoAnswer) {
  Terminal console;
  ControlClient agent = console.asking(permission("ls"));
  ASSERT_TRUE(console.waitFor("[a] allow"));
  console.type("yes");
  ASSERT_TRUE(
      console.waitFor("That is no answer. Type a, d, s or l; Enter alone shows it again.\n"));
  const std::size_t from = console.seen();
  console.type("");
  ASSERT_TRUE(console.waitAfter(from, "[a] allow"));
  EXPECT_FALSE(agent.isReadable(std::chrono::milliseconds(50)));
  console.type("a");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
}

TEST_F(Console, showsAllLinesWhenAsked) {
  Terminal console;
  std::string lines;
  for (int number = 1; number <= 20; ++number) {
    lines += (number == 1 ? "" : ",") + std::string(R"({"kind":"added","text":"line )") +
             std::to_string(number) + "\"}";
  }
  ControlClient agent = console.asking(
      R"({"command":"notify","agent":"codex","kind":"needs-input","permission":{"action":"write",)"
      R"("subject":"a.c","lines":[)" +
      lines + "],\"complete\":false}}");
  ASSERT_TRUE(
      console.waitFor("    8 + line 8\n"
                      "  … 12 more lines (s shows all)\n"
                      "  (cut: the agent sent more)\n"
                      "[a] allow  [d] deny  [s] show all  [l] leave it to Codex\n"));
  console.type("s");
  ASSERT_TRUE(console.waitFor("   20 + line 20\n  (cut: the agent sent more)\n[a]"));
  console.type("d");
  EXPECT_EQ(agent.line(), R"({"decision":"denied","ok":true})");
}

TEST_F(Console, asksQuestionsOneByOne) {
  Terminal console;
  ControlClient agent = console.asking(questionCard);
  ASSERT_TRUE(console.waitFor("  Question 1 of 2\n  Which?\n   1  A\n   2  B\n"));
  console.type("2");
  ASSERT_TRUE(console.waitFor("  Question 2 of 2\n  What else?\n   1  C\n   2  D\n"));
  console.type("3");
  ASSERT_TRUE(console.waitFor("That is no answer. Type one or more of the numbers 1-2"));
  console.type("1, 2");
  EXPECT_EQ(agent.line(), R"({"choices":[[1],[0,1]],"decision":"allowed","ok":true})");
  EXPECT_TRUE(console.waitFor("Answered, Claude: Answer Which?"));
}

TEST_F(Console, declinesQuestions) {
  Terminal console;
  ControlClient agent = console.asking(questionCard);
  ASSERT_TRUE(console.waitFor("[d] decline to answer"));
  console.type("d");
  EXPECT_EQ(agent.line(), R"({"decision":"denied","ok":true})");
}

TEST_F(Console, approvesPlans) {
  const std::pair<const char*, const char*> answers[] = {
      {"a", R"({"approval":"auto","decision":"allowed","ok":true})"},
      {"m", R"({"approval":"manual","decision":"allowed","ok":true})"},
      {"k", R"({"decision":"denied","ok":true})"}};
  Terminal console;
  for (const auto& [key, answer] : answers) {
    const std::size_t from = console.seen();
    ControlClient agent = console.asking(planCard);
    ASSERT_TRUE(console.waitAfter(from, "    2   1. Begin\n[a] approve"));
    console.type(key);
    EXPECT_EQ(agent.line(), answer);
  }
}

TEST_F(Console, showsOneCardAfterTheOther) {
  Terminal console;
  ControlClient first = console.asking(permission("first"));
  ASSERT_TRUE(console.waitFor("    1   first\n"));
  ControlClient second = console.asking(permission("second"));
  ASSERT_TRUE(console.waitFor("(1 more waiting.)"));
  ControlClient third = console.asking(permission("third"));
  ASSERT_TRUE(console.waitFor("(2 more waiting.)"));
  EXPECT_EQ(console.terminal.screen().find("    1   second"), std::string::npos);
  console.type("a");
  EXPECT_EQ(first.line(), R"({"decision":"allowed","ok":true})");
  ASSERT_TRUE(
      console.waitFor("    1   second\n"
                      "[a] allow  [d] deny  [s] show all  [l] leave it to Claude  (1 more "
                      "waiting)\n"));
  console.type("d");
  EXPECT_EQ(second.line(), R"({"decision":"denied","ok":true})");
  ASSERT_TRUE(console.waitFor("    1   third\n"));
  console.type("a");
  EXPECT_EQ(third.line(), R"({"decision":"allowed","ok":true})");
}

TEST_F(Console, takesNoAnswerForACardThatWasNotShownYet) {
  Terminal console;
  ControlClient first = console.asking(permission("first"));
  ASSERT_TRUE(console.waitFor("    1   first\n"));
  ControlClient second = console.asking(permission("second"));
  ASSERT_TRUE(console.waitFor("(1 more waiting.)"));
  console.type("a\na");
  EXPECT_EQ(first.line(), R"({"decision":"allowed","ok":true})");
  ASSERT_TRUE(console.waitFor("    1   second\n"));
  EXPECT_FALSE(second.isReadable(std::chrono::milliseconds(200)));
  console.type("d");
  EXPECT_EQ(second.line(), R"({"decision":"denied","ok":true})");
}

TEST_F(Console, withdrawsTheCardOfAnAgentThatIsGone) {
  Terminal console;
  ControlClient first = console.asking(permission("first"));
  ASSERT_TRUE(console.waitFor("    1   first\n"));
  ControlClient second = console.asking(permission("second"));
  ASSERT_TRUE(console.waitFor("(1 more waiting.)"));
  ControlClient third = console.asking(permission("third"));
  ASSERT_TRUE(console.waitFor("(2 more waiting.)"));
  second.close();
  ASSERT_TRUE(console.waitFor("Withdrawn by Claude: Run second"));
  first.close();
  ASSERT_TRUE(console.waitFor("Withdrawn by Claude: Run first"));
  ASSERT_TRUE(console.waitFor("    1   third\n"));
  console.type("a");
  EXPECT_EQ(third.line(), R"({"decision":"allowed","ok":true})");
}

TEST_F(Console, answersAnAgentThatOnlyStoppedSending) {
  Terminal console;
  ControlClient agent = console.asking(permission("ls"));
  agent.finishSending();
  ASSERT_TRUE(console.waitFor("[a] allow"));
  console.type("a");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
  EXPECT_FALSE(agent.line());
}

TEST_F(Console, withdrawsTheCardOfAnAgentThatStoppedSendingAndLeft) {
  Terminal console;
  ControlClient agent = console.asking(permission("ls"));
  agent.finishSending();
  ASSERT_TRUE(console.waitFor("[a] allow"));
  agent.close();
  EXPECT_TRUE(console.waitFor("Withdrawn by Claude: Run ls"));
}

TEST_F(Console, withdrawsACardThatWasAnsweredAtTheAgent) {
  Terminal console;
  ControlClient agent = console.asking(permission("ls", R"("toolCall":"c1",)"));
  ASSERT_TRUE(console.waitFor("[a] allow"));
  ControlClient other = console.client();
  other.ask(progress(R"("activity":"working","toolCall":"c2")"));
  EXPECT_FALSE(agent.isReadable(std::chrono::milliseconds(50))) << "another tool call";
  other.ask(progress(R"("activity":"working","toolCall":"c1")"));
  EXPECT_EQ(agent.line(), R"({"ok":true})");
  EXPECT_TRUE(console.waitFor("Settled without you, Claude: Run ls"));
  EXPECT_EQ(other.ask(R"({"command":"current"})")->find("attention"), std::string::npos);
}

TEST_F(Console, keepsACardWhenAnEqualCallThatWasAllowedIsDone) {
  Terminal console;
  ControlClient first = console.asking(permission("ls", R"("toolCall":"c1",)"));
  ASSERT_TRUE(console.waitFor("[a] allow"));
  ControlClient second = console.asking(permission("ls", R"("toolCall":"c1",)"));
  ASSERT_TRUE(console.waitFor("(1 more waiting.)"));
  std::size_t from = console.seen();
  console.type("a");
  EXPECT_EQ(first.line(), R"({"decision":"allowed","ok":true})");
  ASSERT_TRUE(console.waitAfter(from, "[a] allow"));
  ControlClient other = console.client();
  other.ask(progress(R"("activity":"working","toolCall":"c1")"));
  EXPECT_FALSE(second.isReadable(std::chrono::milliseconds(50)));
  console.type("d");
  EXPECT_EQ(second.line(), R"({"decision":"denied","ok":true})");
}

TEST_F(Console, withdrawsTheCardsOfASessionThatEnds) {
  Terminal console;
  ControlClient first = console.asking(permission("first"));
  ASSERT_TRUE(console.waitFor("[a] allow"));
  ControlClient second = console.asking(permission("second"));
  ASSERT_TRUE(console.waitFor("(1 more waiting.)"));
  ControlClient other = console.asking(planCard);
  ASSERT_TRUE(console.waitFor("(2 more waiting.)"));
  console.client().ask(progress(R"("activity":"ended")"));
  EXPECT_EQ(first.line(), R"({"ok":true})");
  EXPECT_EQ(second.line(), R"({"ok":true})");
  ASSERT_TRUE(console.waitFor("1. Begin")) << "the one of another session is up";
}

TEST_F(Console, marksTheWorkspaceWhileACardWaits) {
  Terminal console;
  ControlClient agent = console.asking(permission("ls"));
  ASSERT_TRUE(console.waitFor("[a] allow"));
  ControlClient other = console.client();
  auto current = other.ask(R"({"command":"current"})");
  EXPECT_NE(current->find(R"("attention":{"agent":"claude")"), std::string::npos) << *current;
  console.type("a");
  agent.line();
  current = other.ask(R"({"command":"current"})");
  EXPECT_EQ(current->find("attention"), std::string::npos) << *current;
}

TEST_F(Console, answersARequestAfterTheCardOfItsConnection) {
  Terminal console;
  ControlClient agent = console.asking(permission("ls") + "\n{\"command\":\"current\"}");
  ASSERT_TRUE(console.waitFor("[a] allow"));
  EXPECT_FALSE(agent.isReadable(std::chrono::milliseconds(50)));
  console.type("a");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
  EXPECT_TRUE(agent.line().value_or("").find(R"("name":"Site")") != std::string::npos);
}

TEST_F(Console, leavesCardsToTheAgentsAtTheEndOfInput) {
  Terminal console;
  ControlClient first = console.asking(permission("first"));
  ControlClient second = console.asking(permission("second"));
  ASSERT_TRUE(console.waitFor("(1 more waiting.)"));
  console.terminal.typeEndOfInput();
  EXPECT_EQ(first.line(), R"({"ok":true})");
  EXPECT_EQ(second.line(), R"({"ok":true})");
  ASSERT_TRUE(console.waitFor("End of input"));
  ControlClient third = console.asking(permission("third"));
  EXPECT_EQ(third.line(), R"({"ok":true})");
  EXPECT_TRUE(console.process.running());
}

TEST_F(Console, saysThatNothingWaits) {
  Terminal console;
  console.type("a");
  EXPECT_TRUE(console.waitFor("Nothing waits for an answer."));
}

TEST_F(Console, endsWhenTheTerminalIsClosed) {
  Terminal console;
  ControlClient agent = console.asking(permission("ls"));
  ASSERT_TRUE(console.waitFor("[a] allow"));
  console.terminal.hangUp();
  EXPECT_EQ(console.process.wait().status, 0);
  // The end of the input may be seen before the signal; the agent asks by itself either way.
  EXPECT_EQ(agent.line().value_or(R"({"ok":true})"), R"({"ok":true})");
  EXPECT_FALSE(console.folder.holds("s"));
}

TEST_F(Console, endsWhileACardWaits) {
  Terminal console;
  ControlClient agent = console.asking(permission("ls"));
  ASSERT_TRUE(console.waitFor("[a] allow"));
  console.process.signal(SIGINT);
  EXPECT_FALSE(agent.line());
  EXPECT_EQ(console.process.wait().status, 0);
}

TEST_F(Console, goesOnAsAJobInTheBackground) {
  TemporaryFolder folder;
  PseudoTerminal terminal;
  const std::string socket = folder.path("s");
  ChildOptions options = HeadlessCorvane::served({}, socket);
  // An interactive shell: it has the terminal until it is told to bring the job to the front.
  options.arguments = {"-c", R"(set -m; "$0" --socket "$1" & read -r line; fg)", CORVANE_HEADLESS,
                       socket};
  ChildProcess shell("/bin/sh", terminal.lentTo(std::move(options)));
  ASSERT_TRUE(terminal.waitFor("Serving"));
  ControlClient agent(socket);
  agent.send(permission("ls") + "\n");
  ASSERT_TRUE(terminal.waitFor("[a] allow"));
  EXPECT_TRUE(ControlClient(socket).ask(R"({"command":"list"})"));
  terminal.type("a\n");  // goes to the shell
  EXPECT_FALSE(agent.isReadable(std::chrono::milliseconds(100)));
  terminal.type("a\n");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
  terminal.type("\x03");
  EXPECT_TRUE(terminal.waitFor("Stopped."));
  shell.wait();
}

struct ColourCase {
  const char* name;
  std::map<std::string, std::string> environment;
  bool coloured;
};

const ColourCase colourCases[] = {
    {"onATerminal", {}, true},
    {"withAnEmptyNoColor", {{"NO_COLOR", ""}}, true},
    {"notWithNoColor", {{"NO_COLOR", "1"}}, false},
    {"notOnADumbTerminal", {{"TERM", "dumb"}}, false},
};

class Colours : public CorvaneTests::InATerminal, public testing::WithParamInterface<ColourCase> {};
TEST_P(Colours, areUsed) {
  Terminal console({.environment = GetParam().environment});
  ControlClient agent = console.asking(permission("x\\u001b[31m"));
  ASSERT_TRUE(console.waitFor("leave it to Claude"));
  console.type("a");
  agent.line();
  ASSERT_TRUE(console.waitFor("Allowed"));
  const std::string& screen = console.terminal.screen();
  EXPECT_EQ(screen.find("\x1b[31m"), std::string::npos);
  EXPECT_NE(screen.find("x\\u{1B}[31m"), std::string::npos);
  EXPECT_EQ(screen.find("\x1b[1m") != std::string::npos, GetParam().coloured) << screen;
  EXPECT_EQ(screen.find('\x1b') != std::string::npos, GetParam().coloured);
}
INSTANTIATE_TEST_SUITE_P(Console, Colours, testing::ValuesIn(colourCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(Console, setsLongLogLinesBelowTheirBeginning) {
  Terminal console({.environment = {{"NO_COLOR", "1"}}}, 40);
  ControlClient agent = console.client();
  // Where the terminal's row ends, the text looks like a line of the log.
  const std::string text = std::string(25, 'x') + "12:00:00 Allowed, Claude: Run rm";
  agent.ask(progress(R"("activity":"started","task":")" + text + "\""));
  ASSERT_TRUE(console.waitFor("Run rm"));
  const std::string screen = HeadlessCorvane::withoutTimes(console.terminal.screen());
  EXPECT_EQ(screen.find("\nAllowed"), std::string::npos) << screen;
  for (std::size_t begin = 0; begin < screen.size();) {
    const std::size_t end = std::min(screen.find('\n', begin), screen.size());
    EXPECT_LT(end - begin, 40U) << screen.substr(begin, end - begin);
    begin = end + 1;
  }
}

/// `corvanectl notify` as Claude Code runs it when it wants to run `command`.
ChildOptions hook(const std::string& socket, const std::string& command) {
  return {
      .arguments = {"notify", "--agent", "claude"},
      .environment = {{"CORVANE_SOCKET", socket}},
      .input = R"({"hook_event_name":"PermissionRequest","session_id":"s",)"
               R"("cwd":"/home/ada/Projects/site","tool_name":"Bash","tool_input":{"command":")" +
               command + "\"}}"};
}

TEST_F(Console, decidesForTheHookOfAnAgent) {
  Terminal console;
  ChildProcess first(CORVANECTL, hook(console.folder.path("s"), "npm test"));
  ASSERT_TRUE(console.waitFor("    1   npm test\n"));
  ChildProcess second(CORVANECTL, hook(console.folder.path("s"), "rm -r x"));
  ASSERT_TRUE(console.waitFor("(1 more waiting.)"));
  console.type("a");
  EXPECT_EQ(first.wait().output, R"({"hookSpecificOutput":{"decision":{"behavior":"allow"},)"
                                 R"("hookEventName":"PermissionRequest"}})"
                                 "\n");
  ASSERT_TRUE(console.waitFor("    1   rm -r x\n"));
  console.type("d");
  EXPECT_EQ(second.wait().output,
            R"({"hookSpecificOutput":{"decision":{"behavior":"deny","interrupt":true,)"
            R"("message":"The user denied this from Corvane. Stop and wait for their )"
            R"(instructions."},"hookEventName":"PermissionRequest"}})"
            "\n");
}

TEST_F(Console, withdrawsTheCardOfAHookThatIsKilled) {
  for (const int signal : {SIGTERM, SIGKILL}) {
    Terminal console;
    ChildProcess agent(CORVANECTL, hook(console.folder.path("s"), "ls"));
    ASSERT_TRUE(console.waitFor("[a] allow"));
    agent.signal(signal);
    EXPECT_TRUE(console.waitFor("Withdrawn by Claude: Run ls"));
    EXPECT_EQ(agent.wait().output, "");
  }
}

TEST_F(Console, letsTheAgentAskWhenItEnds) {
  Terminal console;
  ChildProcess agent(CORVANECTL, hook(console.folder.path("s"), "ls"));
  ASSERT_TRUE(console.waitFor("[a] allow"));
  console.process.signal(SIGTERM);
  const Ended ended = agent.wait();
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.output + ended.errors, "");
}

TEST(ConsoleWithoutATerminal, readsAnswersFromAPipe) {
  HeadlessCorvane corvane({.arguments = {"--answer", "ask"}, .input = "a\nd\nx\nl"});
  const char* const answers[] = {R"({"decision":"allowed","ok":true})",
                                 R"({"decision":"denied","ok":true})", R"({"ok":true})",
                                 R"({"ok":true})"};
  for (const char* const answer : answers) {
    ControlClient agent = corvane.client();
    EXPECT_EQ(agent.ask(permission("ls")), answer);
  }
  const std::string log = corvane.log();
  EXPECT_NE(log.find("Allowed, Claude: Run ls\n"), std::string::npos);
  EXPECT_NE(log.find("That is no answer."), std::string::npos);
  EXPECT_NE(log.find("End of input: "), std::string::npos) << "after the answers, not before";
  EXPECT_LT(log.find("Left to Claude"), log.find("End of input: "));
}

TEST(ConsoleWithoutATerminal, keepsWhatAPipeHoldsForTheNextCard) {
  HeadlessCorvane corvane({.arguments = {"--answer", "ask"}, .keepInputOpen = true});
  ControlClient agent = corvane.client();
  corvane.process().write("a\nd\n");
  EXPECT_EQ(agent.ask(permission("ls")), R"({"decision":"allowed","ok":true})");
  EXPECT_EQ(agent.ask(permission("ls")), R"({"decision":"denied","ok":true})");
}

TEST(ConsoleWithoutATerminal, answersForScripts) {
  const std::pair<std::string, std::vector<std::string>> answers[] = {
      {"allow",
       {R"({"decision":"allowed","ok":true})",
        R"({"choices":[[1],[0]],"decision":"allowed","ok":true})",
        R"({"approval":"auto","decision":"allowed","ok":true})"}},
      {"deny",
       {R"({"decision":"denied","ok":true})", R"({"decision":"denied","ok":true})",
        R"({"decision":"denied","ok":true})"}}};
  for (const auto& [word, expected] : answers) {
    HeadlessCorvane corvane({.arguments = {"--answer", word}});
    ControlClient agent = corvane.client();
    EXPECT_EQ(agent.ask(permission("ls")), expected[0]);
    EXPECT_EQ(agent.ask(questionCard), expected[1]);
    EXPECT_EQ(agent.ask(planCard), expected[2]);
    EXPECT_NE(corvane.log().find(" (--answer " + word + "), Claude: Run ls\n"), std::string::npos);
  }
}

TEST(ConsoleWithoutATerminal, leavesCardsToTheAgents) {
  HeadlessCorvane corvane;
  ControlClient agent = corvane.client();
  EXPECT_EQ(agent.ask(permission("ls")), R"({"ok":true})");
  EXPECT_NE(agent.ask(R"({"command":"current"})")->find("attention"), std::string::npos)
      << "the user has to go to the agent";
}

TEST(ConsoleWithoutATerminal, drawsCardsEvenWhenQuiet) {
  HeadlessCorvane corvane({.arguments = {"--quiet", "--answer", "ask"}, .keepInputOpen = true});
  ControlClient agent = corvane.client();
  agent.send(permission("ls") + "\n");
  ASSERT_TRUE(corvane.process().waitForOutput("[a] allow"));
  corvane.process().write("a\n");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
  EXPECT_EQ(corvane.log().find("Allowed"), std::string::npos);
}

}  // namespace
}  // namespace CorvaneTests
