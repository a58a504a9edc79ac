#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "CorvaneControl/AgentHooks.h"
#include "Support/ChildProcess.h"
#include "Support/TemporaryFolder.h"

namespace CorvaneTests {
namespace {

using CorvaneControl::Agent;

/// A home folder with agents in it, and a tool for their hooks.
class Home {
 public:
  explicit Home(const std::vector<std::string>& folders = {".claude", ".codex", ".cursor"}) {
    for (const std::string& name : folders) ::mkdir(folder.path(name).c_str(), 0700);
    ::chmod(folder.write("bin/corvanectl", "#!/bin/sh\n").c_str(), 0700);
  }

  Ended hooks(std::vector<std::string> words) const {
    words.insert(words.begin(), "hooks");
    words.insert(words.end(), {"--home", folder.path(), "--tool", tool()});
    return run(CORVANE_HEADLESS, {.arguments = std::move(words)});
  }
  std::string tool() const { return folder.path("bin/corvanectl"); }
  std::string backup(const std::string& file) const {
    return "(as it was before: " + folder.path(file) + ".corvane-backup)";
  }

  TemporaryFolder folder{};
};

const std::string claudeSettings = ".claude/settings.json";
const std::string ownSettings = "{\n  \"model\": \"opus\",\n  \"n\": 1.50\n}\n";

TEST(HooksCommand, showsATableOfAllAgents) {
  Home home({".claude", ".cursor"});
  home.folder.write(claudeSettings, ownSettings);
  const std::string table =
      "AGENT   HERE  FILE                     HOOKS\n"
      "claude  yes   ~/.claude/settings.json  absent\n"
      "codex   no    ~/.codex/hooks.json      absent\n"
      "cursor  yes   ~/.cursor/hooks.json     absent\n";
  for (const auto& words : {std::vector<std::string>{}, std::vector<std::string>{"status"}}) {
    const Ended ended = home.hooks(words);
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.output, table);
    EXPECT_EQ(ended.errors, "");
  }
  EXPECT_EQ(home.folder.read(claudeSettings), ownSettings);
}

TEST(HooksCommand, showsTheAgentsThatAreNamed) {
  const Home home;
  EXPECT_EQ(home.hooks({"cursor", "claude"}).output,
            "AGENT   HERE  FILE                     HOOKS\n"
            "cursor  yes   ~/.cursor/hooks.json     absent\n"
            "claude  yes   ~/.claude/settings.json  absent\n");
}

TEST(HooksCommand, addsUpdatesAndRemoves) {
  Home home({".claude", ".codex"});
  home.folder.write(claudeSettings, ownSettings);
  const Ended added = home.hooks({"add"});
  EXPECT_EQ(added.status, 0);
  EXPECT_EQ(added.errors, "");
  EXPECT_EQ(added.output, "claude: hooks added to ~/.claude/settings.json " +
                              home.backup(claudeSettings) +
                              "\n"
                              "codex: hooks added to ~/.codex/hooks.json (a new file)\n"
                              "cursor: not on this machine (there is no ~/.cursor), skipped\n");
  EXPECT_FALSE(home.folder.holds(".cursor"));
  EXPECT_EQ(home.folder.read(claudeSettings + ".corvane-backup"), ownSettings);
  EXPECT_EQ(home.folder.read(".codex/hooks.json"),
            CorvaneControl::AgentHooks::snippet(Agent::codex, home.tool()));
  EXPECT_NE(home.hooks({"status"}).output.find("claude  yes   ~/.claude/settings.json  added\n"),
            std::string::npos);

  EXPECT_EQ(home.hooks({"add", "claude"}).output,
            "claude: the hooks are in ~/.claude/settings.json already\n");

  ASSERT_EQ(::rename(home.folder.path("bin").c_str(), home.folder.path("b in").c_str()), 0);
  const std::string moved = home.folder.path("b in/corvanectl");
  const auto withMoved = [&](const std::string& action) {
    return run(CORVANE_HEADLESS, {.arguments = {"hooks", action, "claude", "--tool", moved,
                                                "--home", home.folder.path()}});
  };
  EXPECT_NE(withMoved("status").output.find(" outdated\n"), std::string::npos);
  EXPECT_EQ(withMoved("add").output, "claude: hooks updated in ~/.claude/settings.json " +
                                         home.backup(claudeSettings) + "\n");
  EXPECT_NE(withMoved("status").output.find(" added\n"), std::string::npos);

  const Ended removed = home.hooks({"remove", "claude"});
  EXPECT_EQ(removed.status, 0);
  EXPECT_EQ(removed.output, "claude: hooks removed from ~/.claude/settings.json " +
                                home.backup(claudeSettings) + "\n");
  EXPECT_EQ(home.folder.read(claudeSettings),
            "{\n  \"model\": \"opus\",\n  \"n\": 1.50,\n  \"hooks\": {}\n}\n");
}

TEST(HooksCommand, removesNothingFromWhatHasNone) {
  Home home;
  const std::string untidy = "{ \"model\" :1 }";
  home.folder.write(claudeSettings, untidy);
  const Ended ended = home.hooks({"remove", "claude", "codex"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.output,
            "claude: there are no hooks in ~/.claude/settings.json\n"
            "codex: there are no hooks in ~/.codex/hooks.json\n");
  EXPECT_EQ(home.folder.read(claudeSettings), untidy);
  EXPECT_FALSE(home.folder.holds(".codex/hooks.json"));
}

TEST(HooksCommand, changesTheFileBehindASymbolicLink) {
  Home home({".claude"});
  const std::string real = home.folder.write("dotfiles/claude.json", ownSettings);
  ASSERT_EQ(::symlink(real.c_str(), home.folder.path(claudeSettings).c_str()), 0);
  EXPECT_EQ(home.hooks({"add", "claude"}).output,
            "claude: hooks added to ~/.claude/settings.json, which is " + real +
                " (as it was before: " + real + ".corvane-backup)\n");
  struct stat status {};
  ASSERT_EQ(::lstat(home.folder.path(claudeSettings).c_str(), &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
}

struct ProblemCase {
  const char* name;
  std::string settings;
  std::string problem;
};

const ProblemCase problemCases[] = {
    {"noJSON", "{\n  \"a\": 1,\n  b\n}\n", "~/.claude/settings.json:3: not JSON"},
    {"noUTF8", "{\"a\": \"\xff\"}\n", "~/.claude/settings.json:1: not JSON"},
    {"anArray", "[]\n",
     "~/.claude/settings.json: JSON, but not of the shape that hooks are kept in"},
    {"hooksOfAnotherShape", "{\"hooks\": []}\n",
     "~/.claude/settings.json: JSON, but not of the shape that hooks are kept in"},
};

class HooksProblem : public testing::TestWithParam<ProblemCase> {};
TEST_P(HooksProblem, leavesEverythingAsItIs) {
  Home home;
  home.folder.write(claudeSettings, GetParam().settings);
  for (const char* const action : {"add", "remove"}) {
    const Ended ended = home.hooks({action});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.errors, "corvane-headless: " + GetParam().problem + "; nothing is changed\n");
  }
  EXPECT_EQ(home.folder.read(claudeSettings), GetParam().settings);
  EXPECT_FALSE(home.folder.holds(claudeSettings + ".corvane-backup"));
  EXPECT_FALSE(home.folder.holds(".codex/hooks.json"));

  const Ended status = home.hooks({"status"});
  EXPECT_EQ(status.status, 1);
  EXPECT_EQ(status.errors, "corvane-headless: " + GetParam().problem + "\n");
  EXPECT_NE(status.output.find("claude  yes   ~/.claude/settings.json  unknown\n"),
            std::string::npos)
      << status.output;
  EXPECT_EQ(home.hooks({"add", "codex"}).status, 0) << "the others can be named";
}
INSTANTIATE_TEST_SUITE_P(Headless, HooksProblem, testing::ValuesIn(problemCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(HooksCommand, tellsWhyAFileCannotBeRead) {
  Home home;
  ::mkdir(home.folder.path(claudeSettings).c_str(), 0700);
  const Ended ended = home.hooks({"add"});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.errors,
            "corvane-headless: ~/.claude/settings.json: not a regular file; nothing is changed\n");
}

TEST(HooksCommand, printsASnippetAlone) {
  const Home home;
  const Ended ended = home.hooks({"show", "codex"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.output, CorvaneControl::AgentHooks::snippet(Agent::codex, home.tool()));
  const Ended all = home.hooks({"show"});
  EXPECT_EQ(all.output, "~/.claude/settings.json:\n" +
                            CorvaneControl::AgentHooks::snippet(Agent::claude, home.tool()) +
                            "~/.codex/hooks.json:\n" +
                            CorvaneControl::AgentHooks::snippet(Agent::codex, home.tool()) +
                            "~/.cursor/hooks.json:\n" +
                            CorvaneControl::AgentHooks::snippet(Agent::cursor, home.tool()));
}

TEST(HooksCommand, makesARelativeToolAbsolute) {
  const Home home;
  for (const char* const tool : {"bin/corvanectl", "./bin/corvanectl"}) {
    const Ended ended = run(
        CORVANE_HEADLESS,
        {.arguments = {"hooks", "show", "codex", "--tool", tool}, .folder = home.folder.path()});
    EXPECT_EQ(ended.output, CorvaneControl::AgentHooks::snippet(Agent::codex, home.tool()));
  }
}

TEST(HooksCommand, takesTheToolBesideItself) {
  const std::string program = CORVANE_HEADLESS;
  const Ended ended = run(program, {.arguments = {"hooks", "show", "cursor"}});
  const std::string beside = program.substr(0, program.rfind('/') + 1) + "corvanectl";
  EXPECT_EQ(ended.output, CorvaneControl::AgentHooks::snippet(Agent::cursor, beside));
}

TEST(HooksCommand, looksIntoTheUsersHome) {
  Home home({".claude"});
  const Ended ended =
      run(CORVANE_HEADLESS, {.arguments = {"hooks", "add", "claude", "--tool", home.tool()},
                             .environment = {{"HOME", home.folder.path()}}});
  EXPECT_EQ(ended.status, 0);
  EXPECT_TRUE(home.folder.holds(claudeSettings));
}

TEST(HooksCommand, warnsOfAToolThatIsNotThere) {
  const Home home({".codex"});
  const Ended ended =
      run(CORVANE_HEADLESS, {.arguments = {"hooks", "add", "--tool", "/none/corvanectl", "--home",
                                           home.folder.path(), "codex"}});
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.errors, "corvane-headless: warning: there is no program at /none/corvanectl\n");
  EXPECT_EQ(ended.output, "codex: hooks added to ~/.codex/hooks.json (a new file)\n");
}

TEST(HooksCommand, refusesAToolThatItWouldNotRecognise) {
  const Home home;
  const Ended ended =
      run(CORVANE_HEADLESS,
          {.arguments = {"hooks", "add", "--tool", "/opt/other", "--home", home.folder.path()}});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.errors,
            "corvane-headless: the tool's path has no \"corvanectl\" in it, so its hooks could not "
            "be recognised and removed again: /opt/other\n");
  EXPECT_FALSE(home.folder.holds(".codex/hooks.json"));
}

TEST(HooksCommand, refusesBadWords) {
  const Ended ended = run(CORVANE_HEADLESS, {.arguments = {"hooks", "add", "gemini"}});
  EXPECT_EQ(ended.status, 2);
  EXPECT_EQ(ended.errors,
            "corvane-headless: hooks takes status, add, remove or show, then claude, codex or "
            "cursor, not \"gemini\". See corvane-headless --help.\n");
}

}  // namespace
}  // namespace CorvaneTests
