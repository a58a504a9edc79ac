#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Documentation/Pages.h"
#include "Support/ChildProcess.h"
#include "corvane-headless/HeadlessCorvane.h"

namespace {

using CorvaneTests::Block;
using CorvaneTests::Ended;
using CorvaneTests::HeadlessCorvane;
using CorvaneTests::Markdown;

std::vector<Block> blocksOf(const std::string& kind, const std::string& page = "README.md") {
  std::vector<Block> found;
  for (Block& block : Markdown(CorvaneTests::page(page)).blocks) {
    if (block.kind == kind) found.push_back(std::move(block));
  }
  return found;
}

/// The workspaces that a headless Corvane begins with, in order.
const std::string names = "Site\nStore\nMail\nNotes\n";

/// A person with a home folder, two of the agents, the two programs beside each other, and a
/// running headless Corvane.
class Person {
 public:
  Person() {
    for (const char* const name : {"home/.claude", "home/.codex", "bin"}) {
      std::filesystem::create_directories(folder_.path(name));
    }
    std::filesystem::copy(CORVANECTL, folder_.path("bin/corvanectl"));
    std::filesystem::copy(CORVANE_HEADLESS, folder_.path("bin/corvane-headless"));
    EXPECT_TRUE(corvane_.process().waitForOutput("Serving"));
  }

  /// What the person's shell shows of a command, errors included.
  std::string sees(const std::string& command) {
    const Ended ended = CorvaneTests::run(
        "/bin/sh",
        {.arguments = {"-c", "exec 2>&1; PATH=" + folder_.path("bin:") + "$PATH; " + command},
         .environment = {{"CORVANE_SOCKET", corvane_.socketPath()},
                         {"HOME", folder_.path("home")}}});
    EXPECT_EQ(ended.errors, "");
    return ended.output;
  }

 private:
  CorvaneTests::TemporaryFolder folder_{};
  HeadlessCorvane corvane_{};
};

/// Types each command of the page's transcripts, one after the other, as somebody does who reads
/// the page from its beginning.
void replayTranscripts(const std::string& page) {
  Person person;
  for (const Block& transcript : blocksOf("console", page)) {
    SCOPED_TRACE(page + ":" + std::to_string(transcript.line));
    std::string replayed;
    for (const std::string& line : CorvaneTests::linesOf(transcript.text)) {
      if (line.starts_with("$ ")) replayed += line + "\n" + person.sees(line.substr(2));
    }
    EXPECT_EQ(replayed, transcript.text + "\n");
  }
}

TEST(ReadmeExamples, transcriptsAreWhatHappens) {
  EXPECT_GE(blocksOf("console").size(), 2U);
  replayTranscripts("README.md");
}

TEST(ReadmeExamples, transcriptsOfThePageOnAgentsAreWhatHappens) {
  EXPECT_GE(blocksOf("console", "Documentation/agents.md").size(), 1U);
  replayTranscripts("Documentation/agents.md");
}

/// The lines of what the demonstration prints, each without its time of day.
std::vector<std::string> demonstrated(const std::string& output) {
  constexpr std::string_view mark = "  Corvane   | ";
  std::vector<std::string> lines;
  for (const std::string& line : CorvaneTests::linesOf(output)) {
    lines.push_back(line.starts_with(mark) ? HeadlessCorvane::withoutTimes(line.substr(mark.size()))
                                           : line);
  }
  return lines;
}

// The page leaves out what it marks with "...", and nothing else.
TEST(ReadmeExamples, theDemonstrationPrintsWhatIsShown) {
  const std::vector<Block> excerpts = blocksOf("text demo");
  ASSERT_EQ(excerpts.size(), 1U);
  const std::string build = std::filesystem::path(CORVANECTL).parent_path() / "../..";
  const Ended ended = CorvaneTests::run(CORVANE_SOURCE_DIR "/Scripts/demo",
                                        {.environment = {{"CORVANE_DEMO_BUILD", build}}});
  ASSERT_EQ(ended.status, 0) << ended.errors;
  const std::vector<std::string> printed = demonstrated(ended.output);

  auto place = printed.begin();
  bool isGap = true;
  for (const std::string& line : demonstrated(excerpts[0].text)) {
    if (line == "...") {
      isGap = true;
      continue;
    }
    if (std::exchange(isGap, false)) place = std::find(place, printed.end(), line);
    ASSERT_NE(place, printed.end()) << "is not printed here: " << line;
    ASSERT_EQ(*place++, line);
  }
}

TEST(ReadmeExamples, thePythonClientWorks) {
  const std::vector<Block> programs = blocksOf("python");
  ASSERT_EQ(programs.size(), 1U);
  const Ended found = CorvaneTests::run(
      "/bin/sh", {.arguments = {"-c", "command -v python3 && python3 -c 'import json, socket'"}});
  if (found.status != 0) GTEST_SKIP() << "there is no python3";
  HeadlessCorvane corvane;
  ASSERT_TRUE(corvane.process().waitForOutput("Serving"));
  const Ended ended =
      CorvaneTests::run("/bin/sh", {.arguments = {"-c", "exec python3 -"},
                                    .environment = {{"CORVANE_SOCKET", corvane.socketPath()}},
                                    .input = programs[0].text + "\n"});
  EXPECT_EQ(ended.errors, "");
  EXPECT_EQ(ended.output, "Site 3\nStore 2\nMail 1\nNotes 0\n");
}

// Built by the build of the tests, from the page.
TEST(ReadmeExamples, theProgramOnTheLibraryWorks) {
  HeadlessCorvane corvane;
  ASSERT_TRUE(corvane.process().waitForOutput("Serving"));
  const Ended ended =
      CorvaneTests::run(CORVANE_README_PROGRAM, {.arguments = {corvane.socketPath()}});
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.errors, "");
  EXPECT_EQ(ended.output, names);
}

TEST(ReadmeExamples, theProgramOnTheLibrarySaysWhenNobodyIsThere) {
  const Ended ended = CorvaneTests::run(CORVANE_README_PROGRAM, {.arguments = {"/nowhere.sock"}});
  EXPECT_EQ(ended.status, 3);
  EXPECT_EQ(ended.output, "");
}

}  // namespace
