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
using CorvaneTests::ChildOptions;
using CorvaneTests::ChildProcess;
using CorvaneTests::ControlClient;
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

/// The one block of its kind on the page, with its last line break.
std::string onlyBlock(const std::string& kind) {
  const std::vector<Block> blocks = blocksOf(kind);
  EXPECT_EQ(blocks.size(), 1U) << kind;
  return blocks.empty() ? "" : blocks[0].text + "\n";
}

TEST(ReadmeExamples, areTheFilesAmongTheExamples) {
  EXPECT_EQ(onlyBlock("cpp"), CorvaneTests::page("Examples/names.cpp"));
  EXPECT_EQ(onlyBlock("python"), CorvaneTests::page("Examples/names.py"));
  const std::string project = CorvaneTests::page("Examples/CMakeLists.txt");
  EXPECT_NE(project.find("\n" + onlyBlock("cmake")), std::string::npos);
}

/// A user whose application, where there is one, serves in the usual place.
class User {
 public:
  explicit User(const std::string& application = "Corvane") {
    const std::string support = home_.path("Library/Application Support");
    socket_ = support + "/" + application + "/control.sock";
    std::filesystem::create_directories(std::filesystem::path(socket_).parent_path());
  }
  const std::string& socket() const { return socket_; }

  /// How a program of this user ends, with nothing that says where the socket is.
  Ended runs(const std::string& program, ChildOptions options = {}) const {
    options.environment.insert({"HOME", home_.path()});
    options.withoutEnvironment.insert("CORVANE_SOCKET");
    return CorvaneTests::run(program, std::move(options));
  }
  Ended runsPython() const {
    return runs("/bin/sh", {.arguments = {"-c", "exec python3 -"}, .input = onlyBlock("python")});
  }

 private:
  CorvaneTests::TemporaryFolder home_{};
  std::string socket_{};
};

bool hasPython() {
  const Ended found = CorvaneTests::run(
      "/bin/sh", {.arguments = {"-c", "command -v python3 && python3 -c 'import json, socket'"}});
  return found.status == 0;
}

TEST(ReadmeExamples, thePythonClientWorks) {
  if (!hasPython()) GTEST_SKIP() << "there is no python3";
  HeadlessCorvane corvane;
  ASSERT_TRUE(corvane.process().waitForOutput("Serving"));
  const Ended ended =
      CorvaneTests::run("/bin/sh", {.arguments = {"-c", "exec python3 -"},
                                    .environment = {{"CORVANE_SOCKET", corvane.socketPath()}},
                                    .input = onlyBlock("python")});
  EXPECT_EQ(ended.errors, "");
  EXPECT_EQ(ended.output, "Site 3\nStore 2\nMail 1\nNotes 0\n");
}

TEST(ReadmeExamples, theProgramOnTheLibraryWorks) {
  HeadlessCorvane corvane;
  ASSERT_TRUE(corvane.process().waitForOutput("Serving"));
  const Ended ended = CorvaneTests::run(
      CORVANE_EXAMPLE_NAMES, {.environment = {{"CORVANE_SOCKET", corvane.socketPath()}}});
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.errors, "");
  EXPECT_EQ(ended.output, names);
}

TEST(ReadmeExamples, theProgramOnTheLibrarySaysWhenNobodyIsThere) {
  const Ended ended = CorvaneTests::run(CORVANE_EXAMPLE_NAMES,
                                        {.environment = {{"CORVANE_SOCKET", "/nowhere.sock"}}});
  EXPECT_EQ(ended.status, 3);
  EXPECT_EQ(ended.output, "");
}

TEST(ReadmeExamples, findTheApplicationByThemselves) {
  for (const char* const application : {"Corvane", "Corvane Dev"}) {
    const User user(application);
    ChildProcess corvane(CORVANE_HEADLESS, HeadlessCorvane::served({}, user.socket()));
    ASSERT_TRUE(corvane.waitForOutput("Serving"));
    EXPECT_EQ(user.runs(CORVANE_EXAMPLE_NAMES).output, names);
    if (!hasPython()) continue;
    EXPECT_EQ(user.runsPython().output, "Site 3\nStore 2\nMail 1\nNotes 0\n");
  }
}

TEST(ReadmeExamples, sayWhenNoApplicationIsFound) {
  const User user;
  const Ended program = user.runs(CORVANE_EXAMPLE_NAMES);
  EXPECT_EQ(program.status, 3);
  EXPECT_EQ(program.output, "");
  EXPECT_EQ(program.errors, "Corvane isn't running.\n");
  if (!hasPython()) GTEST_SKIP() << "there is no python3";
  const Ended python = user.runsPython();
  EXPECT_EQ(python.status, 1);
  EXPECT_EQ(python.output, "");
  EXPECT_EQ(python.errors, "Corvane isn't running.\n");
}

TEST(Examples, theApplicationAnswersWhatItCan) {
  const User user;
  ChildProcess application(CORVANE_EXAMPLE_APPLICATION, {.arguments = {user.socket()}});
  ASSERT_TRUE(application.waitForOutput("Serving at " + user.socket() + "\n"));
  EXPECT_EQ(user.runs(CORVANE_EXAMPLE_NAMES).output, "Garden\nKitchen\n");
  EXPECT_EQ(user.runs(CORVANECTL, {.arguments = {"list"}}).output,
            "* Garden   2 windows\n  Kitchen  1 window\n");
  const Ended refused = user.runs(CORVANECTL, {.arguments = {"switch", "garden"}});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.errors, "This example can only list.\n");
  if (!hasPython()) GTEST_SKIP() << "there is no python3";
  EXPECT_EQ(user.runsPython().output, "Garden 2\nKitchen 1\n");
}

TEST(Examples, theApplicationSurvivesClientsThatAskForNothingItKnows) {
  const User user;
  ChildProcess application(CORVANE_EXAMPLE_APPLICATION, {.arguments = {user.socket()}});
  ASSERT_TRUE(application.waitForOutput("Serving"));
  {
    ControlClient client(user.socket());
    client.send("nonsense\n");
    EXPECT_NE(client.line().value_or("").find("\"ok\":false"), std::string::npos);
    client.send("{\"command\":\"list\"}\n");  // and is gone before the answer
  }
  EXPECT_EQ(user.runs(CORVANE_EXAMPLE_NAMES).output, "Garden\nKitchen\n");
}

TEST(Examples, theApplicationNeedsASocket) {
  const Ended ended = CorvaneTests::run(CORVANE_EXAMPLE_APPLICATION);
  EXPECT_EQ(ended.status, 2);
  EXPECT_EQ(ended.errors, "usage: application SOCKET\n");
}

}  // namespace
