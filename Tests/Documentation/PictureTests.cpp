#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Documentation/Pages.h"
#include "Documentation/TerminalPicture.h"
#include "Support/ChildProcess.h"
#include "Support/PseudoTerminal.h"
#include "corvane-headless/HeadlessCorvane.h"

namespace {

using CorvaneTests::ChildProcess;
using CorvaneTests::HeadlessCorvane;
using CorvaneTests::PseudoTerminal;
using CorvaneTests::terminalPicture;

constexpr std::string_view picturePath = "Documentation/card.svg";
constexpr unsigned short columns = 80;

/// The README's block of that kind.
std::string readmeBlock(std::string_view kind) {
  for (const auto& block : CorvaneTests::Markdown(CorvaneTests::page("README.md")).blocks) {
    if (block.kind == kind) return block.text + "\n";
  }
  ADD_FAILURE() << "README.md has no block \"" << kind << "\"";
  return {};
}

/// The first steps that the README tells: a headless Corvane in a terminal, and in another what
/// an agent says.
class Steps {
 public:
  PseudoTerminal terminal{columns};
  HeadlessCorvane corvane{terminal.lentTo({})};

  /// The agent's hook, once somebody serves it; it waits until it is answered.
  CorvaneTests::ChildOptions agent() {
    terminal.waitFor("Serving");
    const std::string programs = std::filesystem::path(CORVANECTL).parent_path();
    return {.arguments = {"-c", "PATH='" + programs + "':$PATH\n" + readmeBlock("sh card")},
            .environment = {{"CORVANE_SOCKET", corvane.socketPath()}, {"HOME", "/home/ada"}},
            .withoutEnvironment = {"CMUX_WORKSPACE_ID", "CMUX_SURFACE_ID"}};
  }

  /// Waits for the card, and gives what the terminal shows since the start, to the end of the row
  /// that tells the last key.
  std::string_view cardOnScreen() {
    if (!terminal.waitFor("[l]")) return {};
    const std::size_t key = terminal.screen().find("[l]");
    if (!terminal.waitFor("\n", key)) return {};
    return std::string_view(terminal.screen()).substr(0, terminal.screen().find('\n', key) + 1);
  }
};

using FirstSteps = CorvaneTests::InATerminal;

/// The rows without the first, which names a socket that is another one every time, and with one
/// and the same time of day.
std::string comparable(std::string_view screen) {
  std::string rows;
  for (const std::string& row : CorvaneTests::linesOf(screen)) {
    if (row.find(" Serving ") != std::string::npos) continue;
    const std::string without = HeadlessCorvane::withoutTimes(row + "\n");
    rows += (without.size() <= row.size() ? "14:05:09 " : "") + without;
  }
  return rows;
}

// Scripts/picture writes the picture, by way of this test.
TEST_F(FirstSteps, showTheCardOfThePicture) {
  Steps steps;
  const ChildProcess agent("/bin/sh", steps.agent());
  const auto picture =
      terminalPicture("corvane-headless", comparable(steps.cardOnScreen()), columns);
  ASSERT_TRUE(picture) << "a sequence that the picture can't show:\n" << steps.terminal.screen();
  if (std::getenv("CORVANE_WRITE_PICTURE") != nullptr) {
    std::ofstream(CORVANE_SOURCE_DIR "/" + std::string(picturePath), std::ios::binary) << *picture;
  }
  EXPECT_EQ(CorvaneTests::page(std::string(picturePath)), *picture)
      << "the picture shows something else; Scripts/picture draws it anew";
}

TEST_F(FirstSteps, endWithTheReplyThatThePageShows) {
  Steps steps;
  ChildProcess agent("/bin/sh", steps.agent());
  steps.cardOnScreen();
  // As somebody does who has read the card; what is typed too soon after it appeared may not count.
  while (agent.running()) {
    steps.terminal.type("a\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
  }
  const auto ended = agent.wait();
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.errors, "");
  EXPECT_EQ(ended.output, readmeBlock("json card"));
}

TEST(Picture, showsColoursAndKeepsBlanks) {
  const auto picture =
      terminalPicture("t", "  a <b>\x1b[1mc  d\x1b[m\n\x1b[2;32m+ \x1b[31m&\x1b[0me", 2);
  ASSERT_TRUE(picture);
  const std::size_t body = picture->find("<text x");
  EXPECT_EQ(picture->substr(body),
            "<text x=\"32.8\" y=\"62.0\" textLength=\"42.0\">a &lt;b&gt;</text>\n"
            "<text x=\"74.8\" y=\"62.0\" textLength=\"33.6\" class=\"bold\">c  d</text>\n"
            "<text x=\"16.0\" y=\"82.0\" textLength=\"8.4\" class=\"dim green\">+</text>\n"
            "<text x=\"32.8\" y=\"82.0\" textLength=\"8.4\" class=\"dim red\">&amp;</text>\n"
            "<text x=\"41.2\" y=\"82.0\" textLength=\"8.4\">e</text>\n"
            "<text x=\"49.6\" y=\"82.0\">\u2588</text>\n"
            "</svg>\n");
}

TEST(Picture, isNoneOfWhatItCannotShow) {
  for (const char* const unknown : {"\x1b[2J", "\x1b[44m", "\x1b[", "\x1b", "\r", "\x1b]0;t\x07"}) {
    EXPECT_FALSE(terminalPicture("t", unknown, 80)) << unknown + 1;
  }
}

}  // namespace
