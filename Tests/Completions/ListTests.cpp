#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "CorvaneControl/Agent.h"
#include "CorvaneControl/ControlCommandLine.h"
#include "CorvaneControl/ControlProtocol.h"
#include "Documentation/Pages.h"
#include "Support/ChildProcess.h"
#include "Support/TemporaryFolder.h"
#include "corvane-headless/CommandLine.h"

namespace CorvaneControl {
namespace {

using Words = std::vector<std::string>;

/// What the list has for a place, such as "corvanectl notify": each word and what it is.
using Items = std::vector<std::pair<std::string, std::string>>;

std::map<std::string, Items> list() {
  std::map<std::string, Items> places;
  for (const std::string& line : CorvaneTests::linesOf(CorvaneTests::page("Completions/list"))) {
    if (line.empty() || line.starts_with('#')) continue;
    const auto cells = CorvaneTests::cellsOf("| " + line + " |");
    EXPECT_EQ(cells.size(), 3U) << line;
    if (cells.size() == 3) places[cells[0]].emplace_back(cells[1], cells[2]);
  }
  return places;
}

Words wordsOf(const std::string& place) {
  const Items items = list()[place];
  Words words;
  for (const auto& [word, what] : items) words.push_back(word);
  return words;
}

template <class Enumeration>
Words namesOf() {
  Words names;
  for (const auto& entry : wireNames(Enumeration{})) names.emplace_back(entry.name);
  return names;
}

/// "[a|b|c]" of three words.
std::string alternatives(const Words& words, std::string_view end) {
  std::string text = "[";
  for (const std::string& word : words) text += (text.size() > 1 ? "|" : "") + word;
  return text.append(end);
}

/// The part of a list's place that the usage of corvanectl tells on a line: its words, what they
/// take, and what they are.
struct UsageLine {
  std::string place{};  ///< "corvanectl" or "corvanectl notify".
  std::string word{};
  std::string takes{};  ///< As the usage has it: "[--json]", "<workspace>".
  std::string what{};
};

std::vector<UsageLine> usageLines() {
  std::vector<UsageLine> lines;
  std::string command;
  for (const std::string& line : CorvaneTests::linesOf(ControlCommandLine::usage)) {
    const std::size_t begin = line.find_first_not_of(' ');
    if (begin != 2 && begin != 4) continue;
    const std::size_t gap = line.find("  ", begin);
    const std::string left = line.substr(begin, gap - begin);
    const std::size_t blank = std::min(left.find(' '), left.size());
    UsageLine found;
    found.word = left.substr(0, blank);
    found.takes = blank < left.size() ? left.substr(blank + 1) : "";
    found.what = line.substr(line.find_first_not_of(' ', gap));
    if (begin == 2) command = found.word;
    found.place = begin == 2 ? "corvanectl" : "corvanectl " + command;
    lines.push_back(found);
  }
  return lines;
}

TEST(CompletionsList, hasTheCommandsAndOptionsOfTheUsageAndWhatItSaysOfThem) {
  std::map<std::string, Items> expected;
  for (const UsageLine& line : usageLines()) {
    expected[line.place].emplace_back(line.word, line.what);
  }
  ASSERT_EQ(expected.size(), 2U);
  for (const auto& [place, items] : expected) EXPECT_EQ(list()[place], items) << place;
}

TEST(CompletionsList, hasWhatTheCommandsAndOptionsTake) {
  const std::map<std::string, Words> known = {
      {"", {}},
      {"[options]", wordsOf("corvanectl notify")},
      {"[--json]", {"--json"}},
      {"<workspace>", {"@workspace"}},
      {"<folder>", {"@folder"}},
      {"<text>", {"@text"}},
      {"<name>", namesOf<Agent>()},
      {"<kind>", namesOf<AttentionKind>()},
  };
  std::set<std::string> expected{"corvanectl"};
  for (const UsageLine& line : usageLines()) {
    ASSERT_TRUE(known.contains(line.takes)) << line.takes;
    const std::string place = line.place + " " + line.word;
    EXPECT_EQ(wordsOf(place), known.at(line.takes)) << line.word;
    if (!line.takes.empty()) expected.insert(place);
  }
  std::set<std::string> found;
  for (const auto& [place, items] : list()) {
    if (!place.starts_with("corvane-headless")) found.insert(place);
  }
  EXPECT_EQ(found, expected);
}

TEST(CompletionsList, hasEveryOptionAndChoiceOfTheHeadlessCorvane) {
  const std::string_view help = Headless::CommandLine::help;
  std::set<std::string> options;
  for (const auto& [place, items] : list()) {
    if (!place.starts_with("corvane-headless")) continue;
    for (const auto& [word, what] : items) {
      if (word.starts_with("--")) options.insert(word);
    }
  }
  EXPECT_EQ(options, CorvaneTests::optionsIn(help));

  const std::string answers = alternatives(wordsOf("corvane-headless --answer"), "]");
  EXPECT_NE(help.find("[--answer " + answers.substr(1)), std::string_view::npos) << answers;

  Words actions = wordsOf("corvane-headless hooks");
  const auto agents = std::ranges::find(actions, "claude");
  const auto after = std::ranges::find(actions, "--home");
  EXPECT_EQ(Words(agents, after), namesOf<Agent>());
  EXPECT_EQ(Words(agents, actions.end()), wordsOf("corvane-headless hooks *"));
  EXPECT_NE(help.find("hooks " + alternatives(Words(actions.begin(), agents), "] ") +
                      alternatives(namesOf<Agent>(), " ...]")),
            std::string_view::npos);
}

// An option that waits for a value has a place of its own, and no other has.
TEST(CompletionsList, knowsWhichOptionsOfTheHeadlessCorvaneTakeAValue) {
  for (const auto& [place, words] : {std::pair<std::string, Words>{"corvane-headless", {}},
                                     {"corvane-headless hooks", {"hooks"}}}) {
    for (const std::string& option : wordsOf(place)) {
      if (!option.starts_with("--")) continue;
      Words given = words;
      given.push_back(option);
      const auto parsed = Headless::CommandLine::parse(given);
      const auto* const usage = std::get_if<Headless::CommandLine::Usage>(&parsed);
      EXPECT_EQ(usage != nullptr, !wordsOf(place + (words.empty() ? " " : "* ") + option).empty())
          << option;
      if (usage != nullptr) {
        EXPECT_EQ(usage->message, option + " needs a value.");
      }
    }
  }
}

TEST(CompletionsList, isWhatTheCompletionsAreWrittenFrom) {
  const CorvaneTests::TemporaryFolder folder;
  const auto ended = CorvaneTests::run(
      "/bin/sh", {.arguments = {"-c",
                                "'" CORVANE_SOURCE_DIR "/Scripts/completions' \"$1\" && "
                                "cd '" CORVANE_SOURCE_DIR "/Completions' && "
                                "for file in *.in; do cmp \"${file%.in}\" \"$1/${file%.in}\"; done",
                                "sh", folder.path()}});
  EXPECT_EQ(ended.output + ended.errors, "") << "Run Scripts/completions.";
  EXPECT_EQ(ended.status, 0);
  for (const char* const file : {"corvane.bash", "_corvane", "corvane.fish"}) {
    EXPECT_TRUE(folder.holds(file)) << file;
  }
}

}  // namespace
}  // namespace CorvaneControl
