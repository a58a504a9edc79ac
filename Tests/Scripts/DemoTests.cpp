#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CorvaneControl/Platform/Text.h"
#include "Documentation/Pages.h"
#include "Support/ChildProcess.h"
#include "Support/PseudoTerminal.h"
#include "Support/TemporaryFolder.h"

namespace {

using CorvaneTests::ChildOptions;
using CorvaneTests::ChildProcess;
using CorvaneTests::PseudoTerminal;
using CorvaneTests::TemporaryFolder;

constexpr std::string_view question = "Enter goes on, Ctrl-C ends. ";
constexpr std::string_view clear = "\x1b[H\x1b[2J";

/// The demonstration in a terminal, with the programs of this build and a temporary folder of its
/// own.
class Demonstration {
 public:
  PseudoTerminal& terminal() { return terminal_; }
  ChildProcess& process() { return process_; }
  const TemporaryFolder& folder() const { return folder_; }

  /// Presses Enter whenever that is asked for, and gives what was shown in between.
  std::vector<std::string> screens() {
    std::vector<std::string> found;
    // The screen behind that of the removal is the last one, and asks nothing.
    for (std::size_t from = 0; terminal_.waitFor(question, from);) {
      const std::string& all = terminal_.screen();
      const std::size_t end = all.find(question, from);
      found.push_back(all.substr(from, end + question.size() - from));
      from = end + question.size();
      terminal_.type("\n");
      if (found.back().find("Removing the hooks") != std::string::npos) break;
    }
    return found;
  }

 private:
  ChildOptions options() const {
    const std::filesystem::path build = std::filesystem::path(CORVANECTL).parent_path() / "../..";
    ChildOptions options = terminal_.lentTo({.environment = {{"CORVANE_DEMO_BUILD", build.string()},
                                                             {"TMPDIR", folder_.path()},
                                                             {"NO_COLOR", "1"},
                                                             {"LC_ALL", "C.UTF-8"},
                                                             {"TERM", "xterm"}}});
    return options;
  }

  TemporaryFolder folder_{};
  PseudoTerminal terminal_{};
  ChildProcess process_{CORVANE_SOURCE_DIR "/Scripts/demo", options()};
};

class DemoTest : public CorvaneTests::InATerminal {};

TEST_F(DemoTest, showsAScreenAtATimeToSomebodyWhoReads) {
  Demonstration demo;
  std::vector<std::string> screens = demo.screens();
  EXPECT_GT(screens.size(), 10U);
  EXPECT_TRUE(demo.terminal().waitFor("runs every test."));  // the end of the last one
  const auto ended = demo.process().wait();
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.errors, "");
  const std::string& all = demo.terminal().screen();
  screens.push_back(all.substr(all.rfind(clear)));

  bool isFirst = true;
  for (const std::string& screen : screens) {
    EXPECT_EQ(screen.starts_with(clear), !std::exchange(isFirst, false));
    const auto lines = CorvaneTests::linesOf(screen);
    EXPECT_LE(lines.size(), 24U) << screen;
    for (const std::string& line : lines) {
      const std::string shown = line.starts_with(clear) ? line.substr(clear.size()) : line;
      EXPECT_LE(CorvaneControl::Text::characters(shown), 80U) << line;
    }
  }
}

TEST_F(DemoTest, leavesNothingBehindWhenItIsLeft) {
  Demonstration demo;
  ASSERT_TRUE(demo.terminal().waitFor(question));
  demo.terminal().type("\x03");
  EXPECT_EQ(demo.process().wait().status, 130);
  EXPECT_TRUE(std::filesystem::is_empty(demo.folder().path()));
}

TEST_F(DemoTest, runsThroughWhenNobodyTypesAnyMore) {
  Demonstration demo;
  ASSERT_TRUE(demo.terminal().waitFor(question));
  demo.terminal().typeEndOfInput();
  EXPECT_TRUE(demo.terminal().waitFor("is removed again"));
  EXPECT_EQ(demo.process().wait().status, 0);
}

}  // namespace
