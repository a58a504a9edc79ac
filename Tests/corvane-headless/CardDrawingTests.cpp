#include "corvane-headless/CardDrawing.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "CorvaneControl/Platform/Text.h"
#include "Support/Repeated.h"
#include "corvane-headless/Visible.h"

namespace CorvaneControl::Headless {
namespace {

using Action = AgentPermission::Action;
using CorvaneTests::repeated;
using Kind = AgentPermission::Line::Kind;

std::string drawn(const AgentPermission& card, const Style& style = {},
                  const std::string& place = "Site", std::size_t waiting = 0) {
  CardDialog dialog(card);
  return draw(dialog, "Claude", place, waiting, style);
}

std::vector<AgentPermission::Line> lines(std::size_t count) {
  std::vector<AgentPermission::Line> result;
  for (std::size_t number = 1; number <= count; ++number) {
    result.push_back({.text = "line " + std::to_string(number)});
  }
  return result;
}

TEST(CardDrawing, showsACommand) {
  EXPECT_EQ(drawn({.action = Action::run,
                   .subject = "npm test",
                   .note = "Runs the tests",
                   .lines = {{.text = "npm test"}, {.text = ""}, {.text = "echo done"}},
                   .folder = "~/Projects/site"}),
            "\n"
            "Claude · Wants to run a command\n"
            "  npm test\n"
            "  Runs the tests\n"
            "  in ~/Projects/site\n"
            "  workspace Site\n"
            "    1   npm test\n"
            "    2   \n"
            "    3   echo done\n"
            "[a] allow  [d] deny  [l] leave it to Claude\n");
}

TEST(CardDrawing, signsAddedAndRemovedLines) {
  EXPECT_EQ(drawn({.action = Action::edit,
                   .subject = "a.c",
                   .lines = {{.text = "int a;", .kind = Kind::removed},
                             {.text = "\tint b;", .kind = Kind::added},
                             {.text = "⋯"}}}),
            "\n"
            "Claude · Wants to edit a file\n"
            "  a.c\n"
            "  workspace Site\n"
            "    1 - int a;\n"
            "    2 + ⇥ int b;\n"
            "    3   ⋯\n"
            "[a] allow  [d] deny  [l] leave it to Claude\n");
}

TEST(CardDrawing, coloursOnlyWhatIsOurs) {
  const std::string card = drawn({.action = Action::edit,
                                  .subject = "a.c",
                                  .lines = {{.text = "old", .kind = Kind::removed},
                                            {.text = "new", .kind = Kind::added},
                                            {.text = "\x1b[32mfake"}}},
                                 {.colours = true});
  EXPECT_NE(card.find("\x1b[1mClaude · Wants to edit a file\x1b[m\n"), std::string::npos);
  EXPECT_NE(card.find("  \x1b[2m  1\x1b[m \x1b[31m-\x1b[m \x1b[31mold\x1b[m\n"), std::string::npos)
      << card;
  EXPECT_NE(card.find("  \x1b[2m  2\x1b[m \x1b[32m+\x1b[m \x1b[32mnew\x1b[m\n"), std::string::npos);
  EXPECT_NE(card.find("   \\u{1B}[32mfake\n"), std::string::npos) << card;
}

TEST(CardDrawing, tellsHowMuchIsHidden) {
  AgentPermission card{.action = Action::write, .subject = "a", .lines = lines(15)};
  const std::string folded = drawn(card);
  EXPECT_NE(folded.find("    8   line 8\n  … 7 more lines (s shows all)\n"), std::string::npos)
      << folded;
  EXPECT_EQ(folded.find("line 9"), std::string::npos);
  CardDialog dialog(card);
  dialog.typed("s");
  const std::string whole = draw(dialog, "Claude", "", 0, {});
  EXPECT_NE(whole.find("   15   line 15\n[a]"), std::string::npos) << whole;
}

TEST(CardDrawing, showsACardThatFitsAtOnce) {
  const std::string card =
      drawn({.action = Action::write, .subject = "a", .lines = lines(AgentPermission::rows)});
  EXPECT_NE(card.find("   14   line 14\n[a]"), std::string::npos) << card;
}

TEST(CardDrawing, tellsWhatWasCut) {
  const std::string card =
      drawn({.action = Action::write, .subject = "a", .lines = lines(9), .complete = false});
  EXPECT_NE(card.find("  … 1 more line (s shows all)\n  (cut: the agent sent more)\n"
                      "Not all of it can be shown here; l shows it at the agent\n[allow] "),
            std::string::npos)
      << card;
}

TEST(CardDrawing, showsOnlyTheStartOfALongTextUntilAsked) {
  AgentPermission card{.action = Action::run,
                       .subject = "a",
                       .lines = {{.text = std::string(longestDrawn, 'x') + "; rm -rf /"}}};
  EXPECT_NE(drawn(card, {.columns = 5000}).find("x… (10 more bytes)\n"), std::string::npos);
  CardDialog dialog(card);
  dialog.typed("s");
  EXPECT_NE(draw(dialog, "Claude", "", 0, {.columns = 5000}).find("x; rm -rf /\n"),
            std::string::npos);
}

TEST(CardDrawing, asksForTheWholeWordUntilAllIsShown) {
  AgentPermission card{.action = Action::write, .subject = "a", .lines = lines(15)};
  EXPECT_TRUE(
      drawn(card).ends_with("Not all of it is shown yet; s shows it\n"
                            "[allow] allow  [d] deny  [s] show all  [l] leave it to Claude\n"))
      << drawn(card);
  card = {.action = Action::run,
          .subject = "a",
          .note = std::string(longestDrawn + 1, 'x'),
          .lines = {{.text = "a"}}};
  EXPECT_NE(drawn(card).find("\n[allow] allow  [d] deny  [s] show all"), std::string::npos);
  card.note->pop_back();
  EXPECT_NE(drawn(card).find("\n[a] allow  [d] deny  [l] leave"), std::string::npos);
  card.note->assign(longestDrawn, '\x1b');
  EXPECT_NE(drawn(card).find("\n[a] allow  [d] deny  [l] leave"), std::string::npos);
}

TEST(CardDrawing, asksForTheWholeWordWhenTheTerminalHasTooFewRows) {
  const AgentPermission card{.action = Action::write, .subject = "a", .lines = lines(5)};
  // The agent, the file, the workspace, five lines, the prompt, and where the user types.
  EXPECT_TRUE(drawn(card, {.rows = 10})
                  .ends_with("line 5\n[a] allow  [d] deny  [l] leave it to "
                             "Claude\n"))
      << drawn(card, {.rows = 10});
  EXPECT_TRUE(drawn(card, {.rows = 9})
                  .ends_with("line 5\n"
                             "Not all of it can be shown here; l shows it at the agent\n"
                             "[allow] allow  [d] deny  [l] leave it to Claude\n"))
      << drawn(card, {.rows = 9});
}

TEST(CardDrawing, offersToShowWhatIsThereOfACutCard) {
  const std::string card =
      drawn({.action = Action::write, .subject = "a", .lines = lines(15), .complete = false});
  EXPECT_TRUE(
      card.ends_with("Not all of it can be shown here; l shows it at the agent\n"
                     "[allow] allow  [d] deny  [s] show all  [l] leave it to Claude\n"))
      << card;
}

TEST(CardDrawing, saysWhatIsSaidTwiceOnce) {
  EXPECT_EQ(drawn({.action = Action::run, .subject = "npm test", .lines = {{.text = " npm test"}}}),
            "\n"
            "Claude · Wants to run a command\n"
            "  workspace Site\n"
            "    1    npm test\n"
            "[a] allow  [d] deny  [l] leave it to Claude\n");
  EXPECT_EQ(drawn({.action = Action::edit,
                   .subject = "a.c",
                   .note = "a.c",
                   .lines = {{.text = "a.c", .kind = Kind::added}}}),
            "\n"
            "Claude · Wants to edit a file\n"
            "  a.c\n"
            "  workspace Site\n"
            "    1 + a.c\n"
            "[a] allow  [d] deny  [l] leave it to Claude\n");
}

TEST(CardDrawing, showsBlanksThatHideACommand) {
  const std::string card =
      drawn({.action = Action::run,
             .subject = "ls",
             .lines = {{.text = "ls" + std::string(300, ' ') + "; touch made.txt "}}});
  EXPECT_NE(card.find("\n    1   ls⟨300 blanks⟩; touch made.txt⟨1 blank⟩\n"), std::string::npos)
      << card;
}

/// The rows of a drawing.
std::vector<std::string> rowsOf(const std::string& drawing) {
  std::vector<std::string> result;
  for (std::size_t begin = 0; begin < drawing.size();) {
    const std::size_t end = drawing.find('\n', begin);
    result.push_back(drawing.substr(begin, end - begin));
    begin = end + 1;
  }
  return result;
}

TEST(CardDrawing, breaksItsOwnWordsBetweenWords) {
  const AgentPermission::Question question{
      .text = "x", .options = {{.label = "y"}, {.label = "z"}}, .multiSelect = true};
  for (const Action action : {Action::run, Action::edit, Action::plan, Action::ask}) {
    AgentPermission card{.action = action, .subject = "x"};
    if (action == Action::ask) card.questions = {question};
    for (const bool complete : {true, false}) {
      card.complete = complete;
      std::string atEase;  // with room for everything
      for (const std::string& row : rowsOf(drawn(card, {.columns = 1000}, "", 3)))
        atEase += row + " ";
      for (std::size_t columns = 40; columns <= 120; ++columns) {
        std::string together;
        for (const std::string& row : rowsOf(drawn(card, {.columns = columns}, "", 3))) {
          EXPECT_LT(columnsOf(row), columns) << row;
          together += row + " ";
        }
        const auto words = [](const std::string& text) { return Text::collapsed(text, 10'000); };
        EXPECT_EQ(words(together), words(atEase)) << columns;
      }
    }
  }
}

TEST(CardDrawing, keepsPiecesOfThePromptWhole) {
  EXPECT_NE(drawn({.action = Action::plan, .subject = "x"}, {.columns = 40})
                .find("\n[a] approve, and go on without asking\n"
                      "[m] approve, and go on asking\n"
                      "[k] keep planning\n"
                      "[l] leave it to Claude\n"),
            std::string::npos);
}

TEST(CardDrawing, countsTheCardsThatWait) {
  const std::string card = drawn({.subject = "ls"}, {}, "", 2);
  EXPECT_TRUE(card.ends_with("leave it to Claude  (2 more waiting)\n")) << card;
}

TEST(CardDrawing, showsOneQuestionAfterTheOther) {
  AgentPermission card{
      .action = Action::ask,
      .subject = "Which database?",
      .questions = std::vector<AgentPermission::Question>{
          {.header = "Storage",
           .text = "Which database?",
           .options = {{.label = "SQLite", .detail = "One file", .recommended = true},
                       {.label = "Postgres"}}},
          {.text = "Which tests?", .options = {{.label = "All"}}, .multiSelect = true}}};
  CardDialog dialog(card);
  EXPECT_EQ(draw(dialog, "Claude", "", 0, {}),
            "\n"
            "Claude · Asks you a question\n"
            "  Question 1 of 2\n"
            "  # Storage\n"
            "  Which database?\n"
            "   1  SQLite\n"
            "      (the agent recommends this)\n"
            "      - One file\n"
            "   2  Postgres\n"
            "[1-2] choose one  [d] decline to answer  [l] leave it to Claude\n");
  dialog.typed("1");
  EXPECT_EQ(draw(dialog, "Claude", "", 0, {}),
            "\n"
            "Claude · Asks you a question\n"
            "  Question 2 of 2\n"
            "  Which tests?\n"
            "   1  All\n"
            "[1] choose one or more, such as 1,2  [d] decline to answer\n"
            "[l] leave it to Claude\n");
}

TEST(CardDrawing, showsAllQuestionsThatCannotBeAnswered) {
  const std::string card =
      drawn({.action = Action::ask,
             .subject = "a",
             .complete = false,
             .questions = std::vector<AgentPermission::Question>{
                 {.text = "First?", .options = {{.label = "x"}}}, {.text = "Second?"}}});
  EXPECT_NE(card.find("  First?\n"), std::string::npos);
  EXPECT_NE(card.find("  Second?\n"
                      "  (cut: the agent sent more, so it can only be answered there)\n"
                      "[d] decline to answer  [l] leave it to Claude\n"),
            std::string::npos)
      << card;
}

/// Each row of a card that the agent had a part in, with the text as every member of the card.
std::vector<std::string> rowsWith(const std::string& text, std::size_t columns) {
  const AgentPermission::Question question{
      .header = text, .text = text, .options = {{.label = text, .detail = text}}};
  std::string all;
  for (const Action action : {Action::run, Action::plan, Action::ask}) {
    AgentPermission card{.action = action,
                         .subject = text,
                         .note = text,
                         .lines = {{.text = text}, {.text = text, .kind = Kind::added}},
                         .folder = text};
    if (action == Action::ask) card.questions = {question};
    all += drawn(card, {.columns = columns}, "");
  }
  std::vector<std::string> result;
  for (std::size_t begin = 0; begin < all.size();) {
    const std::size_t end = all.find('\n', begin);
    const std::string row = all.substr(begin, end - begin);
    if (!row.empty() && !row.starts_with("Claude · ") && !row.starts_with("[")) {
      result.push_back(row);
    }
    begin = end + 1;
  }
  return result;
}

TEST(CardDrawing, keepsTheAgentAwayFromTheEdge) {
  const std::string texts[] = {
      "a\n[a] allow  [d] deny",
      "a\r[a] allow",
      "safe" + std::string(75, ' ') + "[a] allow",
      "safe" + std::string(71, ' ') + "    2   echo harmless",
      "\x1b[1G[a]",
      "a\u2028[a]",
      std::string(40, '\t') + "[a]",
      "日本語日本語日本語日本語日本語日本語日本語日本語日本語日本語日本語[a]",
      repeated("\u0903", 300) + "[a]",
      repeated("\u1100", 300) + "[a]",
      repeated("\u0D4E", 300) + "[a]",
      repeated("\u0301", 300) + "[a]",
      repeated("👩\u200D", 300) + "[a]",
  };
  for (const std::string& text : texts) {
    for (const std::size_t columns : {20U, 40U, 80U}) {
      for (const std::string& row : rowsWith(text, columns)) {
        EXPECT_TRUE(row.starts_with("  ")) << row;
        // The terminal itself goes on with what does not fit, at the edge.
        EXPECT_LT(columnsOf(row), columns) << row;
      }
    }
  }
}

/// Whether a row begins with blanks and a number, as only lines and options may.
bool isNumbered(const std::string& row) {
  const std::size_t number = row.find_first_not_of(' ');
  if (number == std::string::npos || number < 3) return false;
  const std::size_t end = row.find_first_not_of("0123456789", number);
  return end != number && end != std::string::npos && row[end] == ' ';
}

TEST(CardDrawing, lendsItsNumbersToNobody) {
  const std::string texts[] = {
      "1   echo harmless",
      "   1   echo harmless",
      "100   echo harmless",
      "\t 2   echo harmless",
      std::string(14, 'x') + "    2   echo harmless",
      std::string(15, 'x') + "   2   echo harmless",
      std::string(17, 'x') + " 2   echo harmless",
      "x" + std::string(200, ' ') + "2   echo harmless",
  };
  for (const std::string& text : texts) {
    for (const std::size_t columns : {20U, 21U, 40U, 80U}) {
      std::size_t numbered = 0;
      for (const std::string& row : rowsWith(text, columns)) numbered += isNumbered(row) ? 1U : 0U;
      // Of a command and of a plan two lines each, of a card that asks two lines and an option.
      EXPECT_EQ(numbered, 7U) << text << " in " << columns;
    }
  }
}

TEST(CardDrawing, keepsItsNumbersApartBeyondAHundred) {
  AgentPermission card{.action = Action::write, .subject = "1000   a", .lines = lines(1000)};
  CardDialog dialog(card);
  dialog.typed("s");
  const std::string whole = draw(dialog, "Claude", "", 0, {});
  EXPECT_NE(whole.find("\n  1000   a\n"), std::string::npos);
  EXPECT_NE(whole.find("\n      1   line 1\n"), std::string::npos) << whole.substr(0, 200);
  EXPECT_NE(whole.find("\n   1000   line 1000\n"), std::string::npos);
}

TEST(CardDrawing, numbersOnlyWhatIsALine) {
  // Where the row ends, the text goes on as if it were line 2.
  const std::string text = std::string(71, 'x') + "    2   echo harmless";
  const std::string card =
      drawn({.action = Action::run, .subject = "x", .lines = {{.text = text}}});
  EXPECT_NE(card.find("\n    1   xxx"), std::string::npos);
  EXPECT_EQ(card.find("\n    2"), std::string::npos) << card;
  EXPECT_NE(card.find("\n      ╎     2   echo harmless\n"), std::string::npos) << card;
}

}  // namespace
}  // namespace CorvaneControl::Headless
