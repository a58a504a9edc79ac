#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>

#include "HeadlessCorvane.h"
#include "Support/PseudoTerminal.h"
#include "Support/Repeated.h"
#include "Support/SystemUnderTest.h"

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

/// Types a line when the user can have read what was asked last, once more when that was too early.
void answer(PseudoTerminal& terminal, std::string_view line) {
  for (;;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(550));
    const std::size_t from = terminal.screen().size();
    terminal.type(std::string(line) + "\n");
    if (!terminal.waitForFirstOf("was dropped; type it again", "\n", from)) return;
  }
}

const std::string dropped =
    "What was typed before the card could be read was dropped; type it again.\n";

const ChildOptions withoutColours{.environment = {{"NO_COLOR", "1"}}};

/// A headless Corvane in a terminal, without colours unless a test wants them.
class Terminal {
 public:
  explicit Terminal(ChildOptions options = withoutColours, unsigned short columns = 80,
                    bool showsTyping = false)
      : terminal(columns, showsTyping),
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
  void type(std::string_view line) { answer(terminal, line); }
  /// Types several lines in one go, when the user can have read the first card.
  void typeTogether(std::string_view lines) const {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    terminal.type(std::string(lines) + "\n");
  }

  TemporaryFolder folder{};
  PseudoTerminal terminal;
  ChildProcess process;
};

class Console : public CorvaneTests::InATerminal {};
class ConsoleIntoAFile : public CorvaneTests::InATerminal {};

TEST_F(Console, asksAndSendsTheAnswer) {
  Terminal console;
  ControlClient agent = console.asking(permission("npm test"));
  ASSERT_TRUE(
      console.waitFor("\nClaude · Wants to run a command\n"
                      "  workspace Site\n"
                      "    1   npm test\n"
                      "[a] allow  [d] deny  [l] leave it to Claude\n"));
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
  ASSERT_TRUE(console.waitFor("That is no answer. Type a, d or l; Enter alone shows it again.\n"));
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
                      "Not all of it can be shown here; l shows it at the agent\n"
                      "[allow] allow  [d] deny  [s] show all  [l] leave it to Codex\n"));
  console.type("s");
  ASSERT_TRUE(
      console.waitFor("   20 + line 20\n"
                      "  (cut: the agent sent more)\n"
                      "Not all of it can be shown here; l shows it at the agent\n"
                      "[allow]"));
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
                      "[a] allow  [d] deny  [l] leave it to Claude  (1 more waiting)\n"));
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
  console.typeTogether("a\na");
  EXPECT_EQ(first.line(), R"({"decision":"allowed","ok":true})");
  ASSERT_TRUE(console.waitFor("    1   second\n"));
  EXPECT_FALSE(second.isReadable(std::chrono::milliseconds(200)));
  console.type("d");
  EXPECT_EQ(second.line(), R"({"decision":"denied","ok":true})");
}

TEST_F(Console, takesNoLineThatWasTypedAhead) {
  Terminal console;
  ControlClient first = console.asking(permission("first"));
  ASSERT_TRUE(console.waitFor("    1   first\n"));
  ControlClient second = console.asking(permission("second"));
  ASSERT_TRUE(console.waitFor("(1 more waiting.)"));
  console.typeTogether("a\na\na");
  EXPECT_EQ(first.line(), R"({"decision":"allowed","ok":true})");
  ASSERT_TRUE(console.waitFor(dropped + "\nClaude · Wants to run a command\n"));
  ASSERT_TRUE(console.waitFor("    1   second\n"));
  EXPECT_FALSE(second.isReadable(std::chrono::milliseconds(200)));
  console.type("d");
  EXPECT_EQ(second.line(), R"({"decision":"denied","ok":true})");
}

/// Types as soon as the card is there that `show` puts up, for the agent that it gives. A machine
/// that is busy may let half a second pass between the card and the key, but not always.
template <class Show>
void dropsWhatComesWithTheCard(const Show& show, const std::string& answer,
                               const std::string& decision) {
  Terminal console;
  bool wasDropped = false;
  for (int attempt = 0; attempt < 20 && !wasDropped; ++attempt) {
    const std::size_t from = console.seen();
    ControlClient agent = show(console, from);
    console.terminal.type("a\n");
    wasDropped = console.terminal.waitForFirstOf(dropped, "Allowed, ", from);
    if (!wasDropped) continue;
    EXPECT_FALSE(agent.isReadable(std::chrono::milliseconds(50)));
    console.type(answer);
    EXPECT_EQ(agent.line(), R"({"decision":")" + decision + R"(","ok":true})");
  }
  EXPECT_TRUE(wasDropped);
}

TEST_F(Console, dropsAnAnswerThatComesWithTheCard) {
  const auto show = [](Terminal& console, std::size_t from) {
    ControlClient agent = console.asking(permission("ls"));
    EXPECT_TRUE(console.waitAfter(from, "leave it to Claude\n"));
    return agent;
  };
  dropsWhatComesWithTheCard(show, "a", "allowed");
}

TEST_F(Console, dropsAnAnswerForACardThatSlidAway) {
  const auto show = [](Terminal& console, std::size_t from) {
    ControlClient first = console.asking(permission("first"));
    EXPECT_TRUE(console.waitAfter(from, "    1   first\n"));
    ControlClient second = console.asking(permission("second"));
    EXPECT_TRUE(console.waitAfter(from, "(1 more waiting.)"));
    first.close();
    EXPECT_TRUE(console.waitAfter(from, "    1   second\n"));
    return second;
  };
  dropsWhatComesWithTheCard(show, "d", "denied");
}

TEST_F(Console, dropsWhatIsHalfTypedWhenTheCardChanges) {
  Terminal console(withoutColours, 80, true);
  ControlClient first = console.asking(permission("first"));
  ASSERT_TRUE(console.waitFor("leave it to Claude\n"));
  ControlClient second = console.asking(permission("second"));
  ASSERT_TRUE(console.waitFor("(1 more waiting.)"));
  const std::size_t from = console.seen();
  console.terminal.type("allo");
  ASSERT_TRUE(console.waitAfter(from, "allo"));
  first.close();
  ASSERT_TRUE(console.waitAfter(from, dropped));
  ASSERT_TRUE(console.waitAfter(from, "    1   second\n"));
  console.type("w");
  EXPECT_TRUE(console.waitAfter(from, "That is no answer."));
  EXPECT_FALSE(second.isReadable(std::chrono::milliseconds(50)));
}

TEST_F(Console, keepsLogLinesApartFromWhatIsHalfTyped) {
  Terminal console(withoutColours, 80, true);
  ControlClient other = console.client();
  std::size_t from = console.seen();
  console.terminal.type("al");
  ASSERT_TRUE(console.waitAfter(from, "al"));
  other.ask(R"({"command":"list"})");
  ASSERT_TRUE(console.waitAfter(from, "Listed 4 workspaces.\nal"));
  EXPECT_EQ(HeadlessCorvane::withoutTimes(console.terminal.screen().substr(from)),
            "al\nListed 4 workspaces.\nal");
  from = console.seen();
  console.terminal.type("x\x7flow\n");
  ASSERT_TRUE(console.waitAfter(from, "Nothing waits for an answer.\n"));
  EXPECT_TRUE(console.terminal.screen().substr(from).starts_with("x\b \blow\n"));
}

TEST_F(Console, takesTheLineThatALogLineCameIn) {
  Terminal console(withoutColours, 80, true);
  ControlClient agent = console.asking(permission("ls"));
  ASSERT_TRUE(console.waitFor("leave it to Claude\n"));
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const std::size_t from = console.seen();
  console.terminal.type("al");
  ASSERT_TRUE(console.waitAfter(from, "al"));
  console.client().ask(R"({"command":"list"})");
  ASSERT_TRUE(console.waitAfter(from, "Listed 4 workspaces.\nal"));
  console.terminal.type("low\n");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
}

// Ctrl-S stops the output, Ctrl-Q lets it go on.
TEST_F(Console, takesNoAnswerForACardThatTheTerminalDidNotShow) {
  Terminal console;
  ControlClient other = console.client();
  console.terminal.type("\x13");
  ControlClient agent = console.asking(permission("ls"));
  other.ask(R"({"command":"current"})");
  other.ask(R"({"command":"current"})");
  std::this_thread::sleep_for(std::chrono::seconds(1));
  console.terminal.type("a\na\n");
  EXPECT_FALSE(agent.isReadable(std::chrono::milliseconds(200)));
  EXPECT_TRUE(other.ask(R"({"command":"current"})")) << "everything else goes on";
  const std::size_t from = console.seen();
  console.terminal.type("\x11");
  ASSERT_TRUE(console.waitAfter(from, "leave it to Claude\n"));
  ASSERT_TRUE(console.waitAfter(from, dropped));
  EXPECT_FALSE(agent.isReadable(std::chrono::milliseconds(50)));
  const std::string& screen = console.terminal.screen();
  console.type("a");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
  EXPECT_EQ(screen.find(dropped), screen.rfind(dropped)) << "it is said once for all of it";
}

TEST_F(Console, allowsACutCardByTheWholeWordOnly) {
  Terminal console;
  const std::string request =
      R"({"command":"notify","agent":"claude","kind":"needs-input","permission":{"action":"run",)"
      R"("subject":"ls","lines":[{"text":"ls)" +
      std::string(398, ' ') + R"(…","kind":"plain"}],"complete":false}})";
  ControlClient agent = console.asking(request);
  ASSERT_TRUE(
      console.waitFor("    1   ls⟨398 blanks⟩…\n"
                      "  (cut: the agent sent more)\n"
                      "Not all of it can be shown here; l shows it at the agent\n"
                      "[allow] allow  [d] deny  [l] leave it to Claude\n"));
  console.type("a");
  ASSERT_TRUE(console.waitFor("To allow it anyway,\ntype the whole word allow.\n"));
  EXPECT_FALSE(agent.isReadable(std::chrono::milliseconds(50)));
  console.type("allow");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
  for (const auto& [key, answer] :
       {std::pair{"d", R"({"decision":"denied","ok":true})"}, std::pair{"l", R"({"ok":true})"}}) {
    const std::size_t from = console.seen();
    agent.send(request + "\n");
    ASSERT_TRUE(console.waitAfter(from, "[allow]"));
    console.type(key);
    EXPECT_EQ(agent.line(), answer);
  }
}

TEST_F(Console, allowsByOneLetterWhenAllIsShown) {
  Terminal console;
  std::string lines;
  for (int number = 1; number <= 20; ++number) {
    lines += (number == 1 ? "" : ",") + std::string(R"({"kind":"plain","text":"x"})");
  }
  ControlClient agent = console.asking(
      R"({"command":"notify","agent":"codex","kind":"needs-input","permission":{"action":"write",)"
      R"("subject":"a.c","lines":[)" +
      lines + "],\"complete\":true}}");
  ASSERT_TRUE(
      console.waitFor("Not all of it is shown yet; s shows it\n"
                      "[allow] allow  [d] deny  [s] show all  [l] leave it to Codex\n"));
  console.type("a");
  ASSERT_TRUE(console.waitFor("type the whole word\nallow.\n"));
  EXPECT_FALSE(agent.isReadable(std::chrono::milliseconds(50)));
  console.type("s");
  ASSERT_TRUE(console.waitFor("   20   x\n[a] allow  [d] deny  [l] leave it to Codex\n"));
  console.type("a");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
}

TEST_F(Console, recommendsTheAgentForAPatchWithoutLines) {
  Terminal console;
  ControlClient agent = console.asking(
      R"({"command":"notify","agent":"codex","kind":"needs-input","permission":{"action":"edit",)"
      R"("subject":"old.c","note":"src/old.c","lines":[],"complete":true}})");
  ASSERT_TRUE(
      console.waitFor("  old.c\n  src/old.c\n"
                      "It has no lines to show: it may delete or move files; l shows it at the "
                      "agent\n"
                      "[a] allow  [d] deny  [l] leave it to Codex (recommended)\n"));
}

/// Whether no row of a drawing is wider than a terminal surely has room for.
void expectRowsWithin(std::string_view drawing, std::size_t columns) {
  std::size_t width = 0;
  for (const char byte : drawing) {
    const auto value = static_cast<unsigned char>(byte);
    if (byte == '\n') {
      EXPECT_LT(width, columns) << drawing;
      width = 0;
    } else if ((value & 0xC0U) != 0x80) {
      width += value < 0x80 ? 1 : 2;
    }
  }
}

TEST_F(Console, drawsTheCardAnewWhenTheWindowShrinks) {
  Terminal console;
  ControlClient agent = console.asking(permission(std::string(70, 'x')));
  ASSERT_TRUE(console.waitFor("leave it to Claude\n"));
  std::size_t from = console.seen();
  console.terminal.resize(40);
  ASSERT_TRUE(console.waitAfter(from, "leave it to Claude\n"));
  expectRowsWithin(console.terminal.screen().substr(from), 40);
  from = console.seen();
  console.terminal.resize(40, 6);
  ASSERT_TRUE(console.waitAfter(from, "[allow] allow")) << "it does not fit any more";
  console.type("a");
  ASSERT_TRUE(console.waitAfter(from, "whole word"));
  console.type("allow");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
}

TEST_F(Console, drawsNothingWhenTheWindowShrinksWithoutACard) {
  Terminal console;
  ASSERT_TRUE(console.waitFor("\n"));
  const std::size_t from = console.seen();
  console.terminal.resize(40);
  console.client().ask(R"({"command":"switch","workspace":"Mail"})");
  ASSERT_TRUE(console.waitAfter(from, "Mail.\n"));
  EXPECT_EQ(HeadlessCorvane::withoutTimes(console.terminal.screen().substr(from)),
            "Switched to Mail.\n");
}

TEST_F(Console, keepsWhatIsHalfTypedWhenTheWindowShrinks) {
  Terminal console(withoutColours, 80, true);
  ControlClient agent = console.asking(permission("ls"));
  ASSERT_TRUE(console.waitFor("leave it to Claude\n"));
  std::this_thread::sleep_for(std::chrono::seconds(1));
  std::size_t from = console.seen();
  console.terminal.type("al");
  ASSERT_TRUE(console.waitAfter(from, "al"));
  from = console.seen();
  console.terminal.resize(60);
  ASSERT_TRUE(console.waitAfter(from, "leave it to Claude\nal"));
  console.terminal.type("low\n");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
}

TEST_F(Console, keepsTheLeftEdgeFromCharactersWithoutEnd) {
  for (const unsigned short columns : std::initializer_list<unsigned short>{20, 40, 80}) {
    Terminal console({.environment = {{"NO_COLOR", "1"}}}, columns);
    for (const char* const mark : {"\u0903", "\u1100", "\u0D4E", "\u0301"}) {
      const std::size_t from = console.seen();
      ControlClient agent = console.asking(permission(repeated(mark, 200) + "[a] allow"));
      ASSERT_TRUE(console.waitAfter(from, "Claude\n"));
      expectRowsWithin(console.terminal.screen().substr(from), columns);
      agent.close();
      ASSERT_TRUE(console.waitAfter(from, "Withdrawn"));
    }
  }
}

TEST_F(Console, leavesTheTerminalAsItWas) {
  const auto isOrdinary = [](const termios& modes) {
    return (modes.c_lflag & ICANON) != 0 && (modes.c_lflag & ECHO) != 0;
  };
  {
    Terminal console(withoutColours, 80, true);
    ControlClient agent = console.asking(permission("ls"));
    ASSERT_TRUE(console.waitFor("leave it to Claude"));
    console.process.signal(SIGTERM);
    EXPECT_EQ(console.process.wait().status, 0);
    EXPECT_TRUE(isOrdinary(console.terminal.modes()));
  }
  Terminal console(withoutColours, 80, true);
  ControlClient agent = console.asking(permission("ls"));
  ASSERT_TRUE(console.waitFor("leave it to Claude"));
  console.terminal.typeEndOfInput();
  ASSERT_TRUE(console.waitFor("End of input"));
  EXPECT_TRUE(isOrdinary(console.terminal.modes()));
}

TEST_F(Console, logsWhatWasChosen) {
  Terminal console;
  ControlClient agent = console.asking(
      R"({"command":"notify","agent":"claude","kind":"needs-input","permission":{"action":"ask",)"
      R"("subject":"Which database?","lines":[],"complete":true,"questions":[)"
      R"({"header":"","text":"Which database?","multiSelect":false,"options":[)"
      R"({"label":"SQLite","recommended":false},{"label":"B","recommended":true}]},)"
      R"({"header":"","text":"What else?","multiSelect":true,"options":[)"
      R"({"label":"C","recommended":false},{"label":"D\n","recommended":false}]}]}})");
  ASSERT_TRUE(console.waitFor("Question 1 of 2"));
  console.type("1");
  ASSERT_TRUE(console.waitFor("Question 2 of 2"));
  console.type("2,1");
  agent.line();
  ASSERT_TRUE(console.waitFor("Answered What else?: D, C\n"));
  EXPECT_NE(HeadlessCorvane::withoutTimes(console.terminal.screen())
                .find("Answered, Claude: Answer Which database?\n"
                      "Answered Which database?: SQLite\n"
                      "Answered What else?: D, C\n"),
            std::string::npos)
      << console.terminal.screen();
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

/// The mark of the workspace that is current: its message, or nothing.
std::string markIn(ControlClient& client) {
  const std::string current = client.ask(R"({"command":"current"})").value_or("");
  if (current.find("attention") == std::string::npos) return "none";
  const std::string key = R"("message":")";
  const std::size_t begin = current.find(key);
  if (begin == std::string::npos) return "without a message";
  const std::size_t end = current.find('"', begin + key.size());
  return current.substr(begin + key.size(), end - begin - key.size());
}

/// A notification of the session that `permission` is of, which has no card.
std::string notification(const std::string& kind, const std::string& message) {
  return progress(R"("kind":")" + kind + R"(","message":")" + message + "\"");
}

TEST_F(Console, keepsTheMarkWhileACardOfTheSessionWaits) {
  Terminal console;
  ControlClient agent = console.asking(permission("ls"));
  ASSERT_TRUE(console.waitFor("[a] allow"));
  ControlClient other = console.client();
  other.ask(notification("done", "A sub-agent ended"));
  EXPECT_EQ(markIn(other), "Needs your approval");
  other.ask(notification("needs-input", "Claude needs your permission"));
  EXPECT_EQ(markIn(other), "Needs your approval");
  other.ask(progress(R"("activity":"started","task":"<task-notification>")"));
  EXPECT_EQ(markIn(other), "Needs your approval");
  console.type("a");
  agent.line();
  EXPECT_EQ(markIn(other), "none");
  other.ask(notification("done", "Ready"));
  EXPECT_EQ(markIn(other), "Ready");
}

TEST_F(Console, takesTheMarkOfAnotherSessionWhileACardWaits) {
  Terminal console;
  ControlClient agent = console.asking(permission("ls"));
  ASSERT_TRUE(console.waitFor("[a] allow"));
  ControlClient other = console.client();
  other.ask(R"({"command":"notify","agent":"codex","cwd":"/home/ada/Projects/site","session":"t",)"
            R"("kind":"done","message":"Ready"})");
  EXPECT_EQ(markIn(other), "Ready");
  agent.close();
  ASSERT_TRUE(console.waitFor("Withdrawn"));
  EXPECT_EQ(markIn(other), "Ready") << "it is not the card's";
}

TEST_F(Console, leavesTheMarkOfACardThatIsLeftToItsAgent) {
  Terminal console;
  ControlClient agent = console.asking(permission("ls", R"("toolCall":"c1",)"));
  ASSERT_TRUE(console.waitFor("[a] allow"));
  console.type("l");
  EXPECT_EQ(agent.line(), R"({"ok":true})");
  ControlClient other = console.client();
  EXPECT_EQ(markIn(other), "Needs your approval");
  other.ask(notification("needs-input", "Claude needs your permission"));
  EXPECT_EQ(markIn(other), "Needs your approval");
  other.ask(progress(R"("activity":"working","toolCall":"c2")"));
  EXPECT_EQ(markIn(other), "Needs your approval");
  other.ask(progress(R"("activity":"working","toolCall":"c1")"));
  EXPECT_EQ(markIn(other), "none");
}

TEST_F(Console, putsTheAgentsEndInThePlaceOfACardThatWasLeftToIt) {
  Terminal console;
  ControlClient agent = console.asking(permission("ls"));
  ASSERT_TRUE(console.waitFor("[a] allow"));
  console.type("l");
  agent.line();
  ControlClient other = console.client();
  other.ask(notification("done", "Ready"));
  EXPECT_EQ(markIn(other), "Ready");
  other.ask(notification("needs-input", "Claude is waiting for your input"));
  EXPECT_EQ(markIn(other), "Claude is waiting for your input") << "the card's mark is gone";
}

TEST_F(Console, clearsTheMarkOfACardThatIsWithdrawn) {
  Terminal console;
  ControlClient other = console.client();
  {
    ControlClient agent = console.asking(permission("ls"));
    ASSERT_TRUE(console.waitFor("[a] allow"));
    EXPECT_EQ(markIn(other), "Needs your approval");
  }
  ASSERT_TRUE(console.waitFor("Withdrawn by Claude: Run ls"));
  EXPECT_EQ(markIn(other), "none");
}

TEST_F(Console, clearsTheMarkOfASessionThatEndsWithACard) {
  Terminal console;
  ControlClient agent = console.asking(permission("ls"));
  ASSERT_TRUE(console.waitFor("[a] allow"));
  ControlClient other = console.client();
  other.ask(progress(R"("activity":"ended")"));
  agent.line();
  EXPECT_EQ(markIn(other), "none");
  other.ask(notification("done", "Ready"));
  other.ask(progress(R"("activity":"ended")"));
  EXPECT_EQ(markIn(other), "Ready") << "the user has not seen it yet";
}

TEST_F(Console, marksForTheCardThatStillWaits) {
  Terminal console;
  const auto of = [](const std::string& session) {
    return R"({"command":"notify","agent":"claude","cwd":"/home/ada/Projects/site",)"
           R"("kind":"needs-input","session":")" +
           session + R"(","message":"From )" + session +
           R"(","permission":{"action":"run","subject":"ls","lines":[],"complete":true}})";
  };
  ControlClient first = console.asking(of("s1"));
  ASSERT_TRUE(console.waitFor("[a] allow"));
  ControlClient second = console.asking(of("s2"));
  ASSERT_TRUE(console.waitFor("(1 more waiting.)"));
  ControlClient other = console.client();
  EXPECT_EQ(markIn(other), "From s2");
  second.close();
  ASSERT_TRUE(console.waitFor("Withdrawn"));
  EXPECT_EQ(markIn(other), "From s1");
  const std::size_t from = console.seen();
  first.close();
  ASSERT_TRUE(console.waitAfter(from, "Withdrawn"));
  EXPECT_EQ(markIn(other), "none");
}

TEST_F(Console, forgetsAnAllowedCallThatIsAskedAgain) {
  Terminal console;
  ControlClient agent = console.asking(permission("ls", R"("toolCall":"c1",)"));
  ASSERT_TRUE(console.waitFor("[a] allow"));
  console.type("a");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
  const std::size_t from = console.seen();
  agent.send(permission("ls", R"("toolCall":"c1",)") + "\n");
  ASSERT_TRUE(console.waitAfter(from, "[a] allow"));
  console.client().ask(progress(R"("activity":"working","toolCall":"c1")"));
  EXPECT_EQ(agent.line(), R"({"ok":true})") << "the second was answered at the agent";
}

TEST_F(Console, takesADeniedCallForNoAllowedOne) {
  Terminal console;
  ControlClient first = console.asking(permission("ls", R"("toolCall":"c1",)"));
  ASSERT_TRUE(console.waitFor("[a] allow"));
  ControlClient second = console.asking(permission("ls", R"("toolCall":"c1",)"));
  ASSERT_TRUE(console.waitFor("(1 more waiting.)"));
  console.type("d");
  EXPECT_EQ(first.line(), R"({"decision":"denied","ok":true})");
  console.client().ask(progress(R"("activity":"working","toolCall":"c1")"));
  EXPECT_EQ(second.line(), R"({"ok":true})") << "it was answered at the agent";
}

TEST_F(Console, keepsTheCardsOfAgentsWithoutASessionWhenOneEnds) {
  Terminal console;
  const std::string withoutSession =
      R"({"command":"notify","agent":"claude","cwd":"/home/ada/Projects/site",)";
  ControlClient agent = console.asking(
      withoutSession +
      R"("kind":"needs-input","permission":{"action":"run","subject":"ls","lines":[],)"
      R"("complete":true}})");
  ASSERT_TRUE(console.waitFor("[a] allow"));
  console.client().ask(withoutSession + R"("activity":"ended"})");
  EXPECT_FALSE(agent.isReadable(std::chrono::milliseconds(50)));
  console.type("a");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
}

TEST_F(Console, withdrawsTheCardOfAClientThatSendsTooMuch) {
  Terminal console;
  ControlClient first = console.asking(permission("first"));
  ASSERT_TRUE(console.waitFor("    1   first\n"));
  ControlClient second = console.asking(permission("second"));
  ASSERT_TRUE(console.waitFor("(1 more waiting.)"));
  first.send(std::string((16U << 20U) + 1, 'x'));
  EXPECT_EQ(first.line(), R"({"error":"The request is too long.","ok":false})");
  ASSERT_TRUE(console.waitFor("Withdrawn by Claude: Run first"));
  ASSERT_TRUE(console.waitFor("    1   second\n"));
  console.type("a");
  EXPECT_EQ(second.line(), R"({"decision":"allowed","ok":true})");
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
  answer(terminal, "a");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
  terminal.type("\x03");
  EXPECT_TRUE(terminal.waitFor("Stopped."));
  shell.wait();
}

/// A headless Corvane that an interactive shell runs, in the foreground at first; `then` is what
/// the shell does when it has stopped.
class JobOfAShell {
 public:
  explicit JobOfAShell(const std::string& then)
      : terminal(80, true), shell("/bin/sh", terminal.lentTo(options(then))) {
    terminal.waitFor("Serving");
  }

  static bool isOrdinary(const termios& modes) {
    return (modes.c_lflag & ICANON) != 0 && (modes.c_lflag & ECHO) != 0;
  }
  bool becomes(bool ordinary) const {
    for (int attempt = 0; attempt < 500 && isOrdinary(terminal.modes()) != ordinary; ++attempt) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return isOrdinary(terminal.modes()) == ordinary;
  }
  /// Has the card of `agent`'s that is there allowed.
  void allows(ControlClient& agent) {
    answer(terminal, "a");
    EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
  }
  /// Types a key that stops or quits, and sees the shell take over.
  void leavesAt(std::string_view key) {
    terminal.type(key);
    ASSERT_TRUE(terminal.waitFor("Stopped by the user."));
    EXPECT_TRUE(isOrdinary(terminal.modes()));
    terminal.type("\n");
  }
  void ends() {
    terminal.type("\x03");
    shell.wait();
  }

  TemporaryFolder folder{};
  PseudoTerminal terminal;
  ChildProcess shell;

 private:
  ChildOptions options(const std::string& then) const {
    const std::string socket = folder.path("s");
    ChildOptions options = HeadlessCorvane::served(withoutColours, socket);
    options.arguments = {
        "-c", R"(ulimit -c 0; set -m; "$0" --socket "$1"; echo Stopped by the user.; )" + then,
        CORVANE_HEADLESS, socket};
    return options;
  }
};

TEST_F(Console, takesWhatIsTypedForAnotherJobForNoEndOfInput) {
  // The words lie there for a while, so that whoever waits for input is told of them.
  JobOfAShell job("bg; echo In the background.; sleep 1; read -r line; echo Read $line.; fg");
  ControlClient agent(job.folder.path("s"));
  agent.send(permission("ls") + "\n");
  ASSERT_TRUE(job.terminal.waitFor("[a] allow"));
  job.terminal.type("\x1a");
  ASSERT_TRUE(job.terminal.waitFor("In the background."));
  job.terminal.type("words\n");
  ASSERT_TRUE(job.terminal.waitFor("Read words."));
  EXPECT_FALSE(agent.isReadable(std::chrono::milliseconds(100)));
  job.allows(agent);
  job.ends();
}

TEST_F(Console, lendsTheTerminalToTheShellWhileItIsStopped) {
  JobOfAShell job("read -r line; fg");
  ASSERT_TRUE(job.becomes(false));
  for (const std::string_view card : {"ls", "pwd"}) {
    ControlClient agent(job.folder.path("s"));
    agent.send(permission(std::string(card)) + "\n");
    ASSERT_TRUE(job.terminal.waitFor("1   " + std::string(card)));
    if (card == "ls") {
      job.leavesAt("\x1a");
      EXPECT_TRUE(job.becomes(false));
    }
    job.allows(agent);
  }
  job.ends();
}

TEST_F(Console, leavesTheTerminalAsItWasWhenItQuits) {
  JobOfAShell job("read -r line");
  ASSERT_TRUE(job.becomes(false));
  job.leavesAt("\x1c");
  job.shell.wait();
}

TEST_F(Console, goesOnWhereNobodyCouldContinueIt) {
  Terminal console(withoutColours, 80, true);
  ControlClient agent = console.asking(permission("ls"));
  ASSERT_TRUE(console.waitFor("leave it to Claude"));
  console.terminal.type("\x1a");
  console.type("a");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
}

TEST_F(Console, asksForTheWholeWordOnATerminalThatIsTooNarrowForACard) {
  Terminal console(withoutColours, 19);
  ControlClient agent = console.asking(permission("ls"));
  ASSERT_TRUE(console.waitFor("[allow] allow"));
  console.type("a");
  EXPECT_FALSE(agent.isReadable(std::chrono::milliseconds(100)));
  console.type("allow");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
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

/// What is typed stays with the terminal until its line ends: half of one is dropped, too.
TEST_F(ConsoleIntoAFile, dropsWhatIsHalfTypedWhenACardComes) {
  const TemporaryFolder folder;
  const PseudoTerminal terminal(80);
  ChildOptions options =
      HeadlessCorvane::served({.arguments = {"--answer", "ask"}}, folder.path("s"));
  ChildOptions lent = terminal.lentTo(options);
  lent.given.erase(1);
  lent.given.erase(2);
  ChildProcess corvane(CORVANE_HEADLESS, lent);
  ASSERT_TRUE(corvane.waitForOutput("Serving"));
  terminal.type("a");
  ControlClient agent(folder.path("s"));
  agent.send(permission("ls") + "\n");
  ASSERT_TRUE(corvane.waitForOutput("[a] allow"));
  std::this_thread::sleep_for(std::chrono::seconds(1));
  terminal.type("d\n");
  EXPECT_EQ(agent.line(), R"({"decision":"denied","ok":true})");
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

TEST(ConsoleWithoutATerminal, keepsNoLineOfAPipeThatDoesNotEnd) {
  if (!canBoundMemory) GTEST_SKIP() << "memory cannot be bounded here";
  HeadlessCorvane corvane(
      {.arguments = {"--answer", "ask"}, .keepInputOpen = true, .beforeExec = [] {
         const rlimit bound{40 << 20, 40 << 20};
         ::setrlimit(RLIMIT_AS, &bound);
       }});
  ControlClient agent = corvane.client();
  agent.send(permission("ls") + "\n");
  ASSERT_TRUE(corvane.process().waitForOutput("[a] allow"));
  corvane.process().write(std::string(20 << 20, 'x'));
  corvane.process().write("\nno\n");
  ASSERT_TRUE(corvane.process().waitForOutput("That is no answer."));
  corvane.process().write("a\n");
  EXPECT_EQ(agent.line(), R"({"decision":"allowed","ok":true})");
}

TEST(ConsoleWithoutATerminal, keepsWhatAPipeHoldsForTheNextCard) {
  HeadlessCorvane corvane({.arguments = {"--answer", "ask"}, .keepInputOpen = true});
  ControlClient agent = corvane.client();
  corvane.process().write("a\nd\n");
  EXPECT_EQ(agent.ask(permission("ls")), R"({"decision":"allowed","ok":true})");
  EXPECT_EQ(agent.ask(permission("ls")), R"({"decision":"denied","ok":true})");
}

TEST(ConsoleWithoutATerminal, forgetsALineWithoutEnd) {
  HeadlessCorvane corvane({.arguments = {"--answer", "ask"}, .keepInputOpen = true});
  ControlClient agent = corvane.client();
  agent.send(permission("ls") + "\n");
  ASSERT_TRUE(corvane.process().waitForOutput("[a] allow"));
  corvane.process().write(std::string(300'000, 'a') + "\nd\n");
  ASSERT_TRUE(corvane.process().waitForOutput("That is no answer."));
  EXPECT_EQ(agent.line(), R"({"decision":"denied","ok":true})");
}

/// Has `others` calls allowed after the call c1, while another card of that call waits. Whether the
/// first is remembered then: a report of it leaves the card alone.
bool isRememberedAfter(int others) {
  HeadlessCorvane corvane({.arguments = {"--answer", "ask"}, .keepInputOpen = true});
  std::vector<ControlClient> agents;
  const auto asks = [&](const std::string& call) {
    agents.push_back(corvane.client());
    agents.back().send(permission("ls", R"("toolCall":")" + call + "\",") + "\n");
    const std::string waiting = "(" + std::to_string(agents.size() - 1) + " more waiting.)";
    corvane.process().waitForOutput(agents.size() == 1 ? "[a] allow" : waiting);
  };
  asks("c1");
  for (int number = 0; number < others; ++number) asks("other " + std::to_string(number));
  asks("c1");
  for (std::size_t index = 0; index + 1 < agents.size(); ++index) {
    corvane.process().write("a\n");
    EXPECT_EQ(agents[index].line(), R"({"decision":"allowed","ok":true})");
  }
  corvane.client().ask(progress(R"("activity":"working","toolCall":"c1")"));
  return !agents.back().isReadable(std::chrono::milliseconds(100));
}

TEST(ConsoleWithoutATerminal, remembersTheLast64AllowedCalls) {
  EXPECT_TRUE(isRememberedAfter(0));
  EXPECT_TRUE(isRememberedAfter(63));
  EXPECT_FALSE(isRememberedAfter(64));
}

TEST(ConsoleWithoutATerminal, leavesCardsWhenThereIsNoInput) {
  HeadlessCorvane corvane({.arguments = {"--answer", "ask"}});
  ControlClient agent = corvane.client();
  EXPECT_EQ(agent.ask(permission("ls")), R"({"ok":true})");
  const std::string log = corvane.log();
  EXPECT_NE(log.find("Serving 4 workspaces at " + corvane.socketPath() +
                     "\nAgents that ask for permission ask by themselves: there is no input to "
                     "read answers from.\n"),
            std::string::npos)
      << log;
}

TEST(ConsoleWithoutATerminal, leavesCardsThatNobodySees) {
  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  if (full < 0) GTEST_SKIP() << "there is no /dev/full";
  HeadlessCorvane corvane(
      {.arguments = {"--answer", "ask"}, .input = "a\na\na\n", .given = {{1, full}}});
  ::close(full);
  ControlClient agent = corvane.client();
  EXPECT_EQ(agent.ask(permission("ls")), R"({"ok":true})");
}

TEST(ConsoleWithoutATerminal, logsBackgroundTasksInWords) {
  HeadlessCorvane corvane;
  ControlClient agent = corvane.client();
  agent.ask(progress(R"("activity":"started","task":"<task-notification> <task-id>b1</task-id> )"
                     R"(<summary>Background command \"x\" completed</summary>")"));
  agent.ask(progress(R"("activity":"started","task":"<task-notification> <task-id>b1</task-id> )"
                     R"(<output-f…")"));
  const std::string log = corvane.log();
  EXPECT_NE(log.find("Claude works in Site: Background command \"x\" completed\n"
                     "Claude works in Site: A task in the background has ended\n"),
            std::string::npos)
      << log;
}

TEST(ConsoleWithoutATerminal, logsBackgroundTasksWithoutWordsAllTheSame) {
  for (const char* const words : {"<summary>Half a sen…", "</summary>", "</summary><summary>x"}) {
    HeadlessCorvane corvane;
    corvane.client().ask(progress(R"("activity":"started","task":"<task-notification> )" +
                                  std::string(words) + "\""));
    const std::string log = corvane.log();
    EXPECT_NE(log.find("Claude works in Site: A task in the background has ended\n"),
              std::string::npos)
        << log;
  }
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
