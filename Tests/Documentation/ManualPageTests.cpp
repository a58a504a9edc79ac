#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>
#include <vector>

#include "CorvaneControl/Agent.h"
#include "CorvaneControl/ControlCommandLine.h"
#include "CorvaneControl/ControlProtocol.h"
#include "Documentation/Pages.h"
#include "Support/ChildProcess.h"
#include "corvane-headless/CommandLine.h"

namespace CorvaneControl {
namespace {

const std::string command = "Documentation/corvanectl.1";
const std::string headless = "Documentation/corvane-headless.1";
const std::string protocol = "Documentation/corvane-control.7";

std::string replaced(std::string text, std::string_view what, std::string_view with) {
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at)) {
    text.replace(at, what.size(), with);
    at += with.size();
  }
  return text;
}

/// The source of a page, with its dashes as they are read.
std::string source(const std::string& path) {
  return replaced(CorvaneTests::page(path), "\\-", "-");
}

/// A line of the source as text: `list [--json]` of `.BR list " [" --json ]`.
std::string withoutMacro(const std::string& line) {
  if (!line.starts_with('.')) return line;
  return replaced(line.substr(std::min(line.find(' '), line.size() - 1) + 1), "\"", "");
}

/// The entries of a section's lists, as text.
std::vector<std::string> entries(const std::string& path, std::string_view section) {
  std::vector<std::string> found;
  bool isInside = false;
  bool isEntry = false;
  for (const std::string& line : CorvaneTests::linesOf(source(path))) {
    if (line.starts_with(".SH ")) isInside = line.substr(4) == section;
    if (isInside && isEntry) found.push_back(withoutMacro(line));
    isEntry = line == ".TP";
  }
  return found;
}

std::string firstWord(std::string_view text) {
  return std::string(text.substr(0, text.find_first_of(" ,=")));
}

std::vector<std::string> firstWords(const std::vector<std::string>& texts) {
  std::vector<std::string> words;
  for (const std::string& text : texts) words.push_back(firstWord(text));
  return words;
}

/// The commands of the usage text, in its order: they stand behind two spaces.
std::vector<std::string> usageCommands() {
  std::vector<std::string> commands;
  for (const std::string& line : CorvaneTests::linesOf(ControlCommandLine::usage)) {
    if (line.starts_with("  ") && line[2] != ' ') commands.push_back(firstWord(line.substr(2)));
  }
  return commands;
}

std::set<std::string> asSet(const std::vector<std::string>& texts) {
  return {texts.begin(), texts.end()};
}

TEST(ManualPage, describesEveryCommandInTheOrderOfTheUsage) {
  EXPECT_EQ(usageCommands().size(), 9U);
  EXPECT_EQ(firstWords(entries(command, "COMMANDS")), usageCommands());
}

TEST(ManualPage, beginsWithASynopsisOfEveryCommand) {
  std::vector<std::string> commands;
  for (const std::string& line : CorvaneTests::linesOf(source(command))) {
    constexpr std::string_view start = ".B corvanectl ";
    if (line.starts_with(".SH DESCRIPTION")) break;
    if (line.starts_with(start)) commands.push_back(firstWord(line.substr(start.size())));
  }
  EXPECT_EQ(commands, usageCommands());
}

TEST(ManualPage, describesEveryOption) {
  EXPECT_EQ(asSet(firstWords(entries(command, "OPTIONS"))),
            CorvaneTests::optionsIn(ControlCommandLine::usage));
}

TEST(ManualPage, namesEveryAgentAsTheProtocolDoes) {
  for (const std::string& path : {command, headless, std::string("Documentation/protocol.md")}) {
    for (const Agent agent : allAgents) {
      EXPECT_NE(source(path).find(wireName(agent)), std::string::npos) << path << wireName(agent);
    }
  }
}

// Beside the options of the usage, only words that stand for a whole command by themselves, and the
// options of the other program.
TEST(ManualPage, namesNoOptionThatDoesNotExist) {
  const std::set<std::string> known = CorvaneTests::optionsIn(ControlCommandLine::usage);
  for (const std::string& option : CorvaneTests::optionsIn(source(command))) {
    if (known.contains(option)) continue;
    const auto parsed = ControlCommandLine::parse({option}, {});
    EXPECT_TRUE(std::holds_alternative<ControlCommandLine::Help>(parsed) ||
                std::holds_alternative<ControlCommandLine::Version>(parsed))
        << option;
  }
}

TEST(ManualPage, describesEveryOptionOfTheHeadlessCorvane) {
  const auto isOption = [](const std::string& word) { return word.starts_with("--"); };
  std::set<std::string> described;
  for (const char* const section : {"OPTIONS", "HOOKS"}) {
    for (const std::string& word : firstWords(entries(headless, section))) {
      if (isOption(word)) described.insert(word);
    }
  }
  const std::set<std::string> known = CorvaneTests::optionsIn(Headless::CommandLine::help);
  EXPECT_GE(known.size(), 8U);
  EXPECT_EQ(described, known);
}

TEST(ManualPage, describesEveryActionOnHooks) {
  // The help has them as "hooks [status|add|...]".
  constexpr std::string_view start = "hooks [";
  const std::string_view help = Headless::CommandLine::help;
  ASSERT_NE(help.find(start), std::string_view::npos);
  const std::string_view behind = help.substr(help.find(start) + start.size());
  const std::string actions = replaced(std::string(behind.substr(0, behind.find(']'))), "|", "\n");

  std::vector<std::string> described = firstWords(entries(headless, "HOOKS"));
  std::erase_if(described, [](const std::string& word) { return word.starts_with("--"); });
  EXPECT_EQ(described, CorvaneTests::linesOf(actions));
}

TEST(ManualPage, namesNoOptionThatTheHeadlessCorvaneDoesNotHave) {
  std::set<std::string> known = CorvaneTests::optionsIn(Headless::CommandLine::help);
  known.merge(CorvaneTests::optionsIn(ControlCommandLine::usage));
  for (const std::string& option : CorvaneTests::optionsIn(source(headless))) {
    EXPECT_TRUE(known.contains(option)) << option;
  }
}

// So none is missing where misspelt words are compared with what there is.
TEST(HeadlessUsage, namesTheOptionThatAMisspeltOneIsNearestTo) {
  for (const std::string& option : CorvaneTests::optionsIn(Headless::CommandLine::help)) {
    SCOPED_TRACE(option);
    const std::string misspelt = option.substr(0, option.size() - 1);
    const auto answered = [&](const std::vector<std::string>& words) {
      const auto parsed = Headless::CommandLine::parse(words);
      const auto* const usage = std::get_if<Headless::CommandLine::Usage>(&parsed);
      return usage != nullptr &&
             usage->message == "There is no option " + misspelt + ". Did you mean " + option + "?";
    };
    EXPECT_TRUE(answered({misspelt}) || answered({"hooks", misspelt}));
  }
}

// What the process is told, and what it tells.

/// The sources of these folders, one behind the other.
std::string sourcesOf(const std::vector<std::string>& folders) {
  std::string text;
  for (const std::string& folder : folders) {
    for (const auto& entry : std::filesystem::directory_iterator(CORVANE_SOURCE_DIR "/" + folder)) {
      if (entry.path().extension() == ".cpp") {
        text += CorvaneTests::page(folder + "/" + entry.path().filename().string());
      }
    }
  }
  return text;
}

/// Every run of capital letters and "_" that stands behind `before` and ahead of `after`, once.
std::set<std::string> namesBetween(std::string_view text, std::string_view before,
                                   std::string_view after) {
  constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ_";
  std::set<std::string> names;
  for (std::size_t at = text.find(before); at != text.npos; at = text.find(before, at)) {
    at += before.size();
    const std::size_t end = std::min(text.find_first_not_of(letters, at), text.size());
    if (end > at && text.substr(end).starts_with(after)) names.emplace(text.substr(at, end - at));
  }
  return names;
}

/// The variables that a section's lists are about: ".BR HOME ", " XDG_DATA_HOME" has two.
std::set<std::string> variablesIn(const std::string& path) {
  std::set<std::string> names;
  for (const std::string& entry : entries(path, "ENVIRONMENT")) {
    names.merge(namesBetween(" " + replaced(entry, ",", "") + " ", " ", " "));
  }
  return names;
}

/// The variables that the sources of these folders and the library's ask for.
std::set<std::string> variablesAskedFor(const std::string& folder) {
  const std::string library = "Sources/CorvaneControl";
  return namesBetween(sourcesOf({folder, library, library + "/Platform"}), "(\"", "\")");
}

TEST(ManualPage, namesEveryVariableThatIsAskedFor) {
  const std::set<std::string> asked = variablesAskedFor("Sources/corvanectl");
  EXPECT_GE(asked.size(), 5U);
  EXPECT_EQ(variablesIn(command), asked);
}

TEST(ManualPage, namesEveryVariableThatTheHeadlessCorvaneAsksFor) {
  std::set<std::string> asked = variablesAskedFor("Sources/corvane-headless");
  // Only `notify` has a pane to tell of.
  std::erase_if(asked, [](const std::string& name) { return name.starts_with("CMUX_"); });
  EXPECT_GE(asked.size(), 5U);
  EXPECT_EQ(variablesIn(headless), asked);
}

TEST(ManualPage, namesEverySignalThatEndsTheHeadlessCorvane) {
  EXPECT_EQ(namesBetween(replaced(source(headless), "\n", "  "), " SIG", " "),
            namesBetween(CorvaneTests::page("Sources/corvane-headless/EndSignals.cpp"),
                         "handle(SIG", ", tell)"));
}

/// The statuses of a README's table and of a page's section.
std::vector<std::string> statusesOfReadme() {
  std::vector<std::string> statuses;
  for (const auto& line : CorvaneTests::Markdown(CorvaneTests::page("README.md")).lines) {
    const auto cells = CorvaneTests::cellsOf(line.text);
    if (line.section != "### Exit statuses" || cells.empty()) continue;
    if (cells[0].find_first_not_of("0123456789") == std::string::npos) statuses.push_back(cells[0]);
  }
  return statuses;
}

TEST(ManualPage, hasTheExitStatusesOfTheReadme) {
  EXPECT_EQ(entries(command, "EXIT STATUS"), statusesOfReadme());
}

class ManualPages : public testing::TestWithParam<std::string> {};

TEST_P(ManualPages, areOfThisVersion) {
  EXPECT_NE(source(GetParam()).find("\"Corvane " CORVANE_VERSION "\""), std::string::npos);
}

CorvaneTests::Ended shell(const std::string& script) {
  return CorvaneTests::run("/bin/sh", {.arguments = {"-c", script}});
}

bool isThere(const std::string& script) { return shell(script + " </dev/null").status == 0; }

TEST_P(ManualPages, areSetWithoutAWarning) {
  if (!isThere("command -v groff && groff -man")) {
    GTEST_SKIP() << "there is no groff with the macros for manual pages";
  }
  const auto ended = shell("exec groff -man -Tutf8 -ww " CORVANE_SOURCE_DIR "/" + GetParam());
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.errors, "");
  EXPECT_NE(ended.output, "");
}

// A hyphen at the end of a line would look like a part of the option or path that it is in.
TEST_P(ManualPages, breakNoWord) {
  if (!isThere("command -v groff && groff -man")) {
    GTEST_SKIP() << "there is no groff with the macros for manual pages";
  }
  for (const char* const width : {"50n", "61n", "72n", "78n"}) {
    const auto ended = shell("exec groff -man -Tutf8 -P-c -rLL=" + std::string(width) +
                             " " CORVANE_SOURCE_DIR "/" + GetParam());
    EXPECT_EQ(ended.output.find("\u2010\n"), std::string::npos) << ended.output;
  }
}

TEST_P(ManualPages, haveNothingThatMandocWarnsOf) {
  if (!isThere("command -v mandoc")) GTEST_SKIP() << "there is no mandoc";
  const auto ended = shell("exec mandoc -T lint -W warning " CORVANE_SOURCE_DIR "/" + GetParam());
  EXPECT_EQ(ended.output + ended.errors, "");
  EXPECT_EQ(ended.status, 0);
}

TEST(ManualPageOfTheProtocol, isWrittenFromTheProtocolsDescription) {
  const auto ended = shell("exec " CORVANE_SOURCE_DIR "/Scripts/manual");
  EXPECT_EQ(ended.errors, "");
  EXPECT_TRUE(ended.output == CorvaneTests::page(protocol))
      << "Run Scripts/manual > Documentation/corvane-control.7";
}

TEST(ManualPageOfTheProtocol, showsNothingOfTheTables) {
  for (const std::string& line : CorvaneTests::linesOf(source(protocol))) {
    EXPECT_FALSE(line.ends_with("|.")) << line;
    EXPECT_EQ(line.find("absent never"), std::string::npos) << line;
  }
}

TEST(ManualPageOfTheProtocol, hasEveryFieldAndMessage) {
  const std::string text = source(protocol);
  const auto blocks =
      CorvaneTests::Markdown(CorvaneTests::page("Documentation/protocol.md")).blocks;
  EXPECT_EQ(std::ranges::count(CorvaneTests::linesOf(text), ".nf"),
            static_cast<std::ptrdiff_t>(blocks.size()));
  for (const auto& entry : wireNames(ControlRequest::Command{})) {
    EXPECT_NE(text.find("\"command\":\"" + std::string(entry.name) + "\""), std::string::npos);
  }
  const auto expectFields = [&](const auto& fields) {
    std::apply(
        [&](const auto&... field) {
          for (const std::string_view key : {field.key...}) {
            EXPECT_NE(text.find(".TP\n\\fB" + std::string(key) + "\\fP\n"), std::string::npos)
                << key;
          }
        },
        fields);
  };
  expectFields(ControlRequest::fields);
  expectFields(ControlResponse::fields);
  expectFields(WorkspaceSummary::fields);
  expectFields(Attention::fields);
  expectFields(AgentPermission::fields);
}

constexpr auto named = [](const auto& info) {
  return std::string(info.param == command    ? "corvanectl"
                     : info.param == headless ? "headless"
                                              : "protocol");
};
INSTANTIATE_TEST_SUITE_P(, ManualPages, testing::Values(command, headless, protocol), named);

}  // namespace
}  // namespace CorvaneControl
