#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CorvaneControl/AgentHooks.h"
#include "Support/ChildProcess.h"
#include "Support/ScriptedCalls.h"
#include "Support/SystemUnderTest.h"
#include "Support/TemporaryFolder.h"
#include "corvane-headless/HooksCommand.h"

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

TEST(HooksCommand, showsResolvedPaths) {
  Home home({".claude"});
  const std::string real = home.folder.write("dotfiles/claude.json", ownSettings);
  ASSERT_EQ(
      ::symlink("../dotfiles/../dotfiles/./claude.json", home.folder.path(claudeSettings).c_str()),
      0);
  EXPECT_EQ(home.hooks({"add", "claude"}).output,
            "claude: hooks added to ~/.claude/settings.json, which is " + real +
                " (as it was before: " + real + ".corvane-backup)\n");
}

TEST(HooksCommand, aHomeBehindALinkIsNoNews) {
  Home home({".codex"});
  ASSERT_EQ(::symlink(".", home.folder.path("home").c_str()), 0);
  const Ended ended =
      run(CORVANE_HEADLESS, {.arguments = {"hooks", "add", "codex", "--tool", home.tool(), "--home",
                                           home.folder.path("home/./home/")}});
  EXPECT_EQ(ended.output, "codex: hooks added to ~/.codex/hooks.json (a new file)\n");
}

struct ToolCase {
  const char* name;
  std::string tool;
  std::string shown;
};
const ToolCase toolCases[] = {
    {"LatinOne", "/opt/caf\xE9/corvanectl", "/opt/caf\xEF\xBF\xBD/corvanectl"},
    {"aLoneSurrogate", "/opt/\xED\xA0\x80/corvanectl",
     "/opt/\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD/corvanectl"},
};
class HooksToolThatIsNoUTF8 : public testing::TestWithParam<ToolCase> {};
TEST_P(HooksToolThatIsNoUTF8, isRefusedBeforeAnythingIsWritten) {
  const Home home;
  for (const char* const action : {"add", "status", "show"}) {
    const Ended ended = run(
        CORVANE_HEADLESS,
        {.arguments = {"hooks", action, "--tool", GetParam().tool, "--home", home.folder.path()}});
    EXPECT_EQ(ended.status, 1) << action;
    EXPECT_EQ(ended.output, "") << action;
    EXPECT_EQ(ended.errors,
              "corvane-headless: the tool's path is not UTF-8, so no hook can name it: " +
                  GetParam().shown + "\n");
  }
  EXPECT_FALSE(home.folder.holds(claudeSettings));
  EXPECT_FALSE(home.folder.holds(".codex/hooks.json"));
}
INSTANTIATE_TEST_SUITE_P(Headless, HooksToolThatIsNoUTF8, testing::ValuesIn(toolCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(HooksCommand, theToolBesideItselfMayBeNoUTF8) {
  Home home({".claude"});
  const std::string folder = home.folder.path("caf\xE9");
  if (::mkdir(folder.c_str(), 0700) != 0) GTEST_SKIP() << "no such names in this file system";
  std::filesystem::copy_file(CORVANE_HEADLESS, folder + "/corvane-headless");
  const auto hooks = [&](const std::string& action) {
    return run(folder + "/corvane-headless",
               {.arguments = {"hooks", action, "claude", "--home", home.folder.path()}});
  };
  const Ended added = hooks("add");
  EXPECT_EQ(added.status, 1);
  EXPECT_EQ(added.errors,
            "corvane-headless: the tool's path is not UTF-8, so no hook can name it: " +
                home.folder.path("caf\xEF\xBF\xBD/corvanectl") + "\n");
  EXPECT_FALSE(home.folder.holds(claudeSettings));
  ASSERT_EQ(home.hooks({"add", "claude"}).status, 0);
  EXPECT_EQ(hooks("remove").status, 0) << "names no tool";
}

TEST(HooksCommand, aHomeThatIsNoUTF8IsLookedInto) {
  const Home home;
  const std::string folder = home.folder.path("caf\xE9");
  if (::mkdir(folder.c_str(), 0700) != 0) GTEST_SKIP() << "no such names in this file system";
  ::mkdir((folder + "/.codex").c_str(), 0700);
  const Ended ended =
      run(CORVANE_HEADLESS,
          {.arguments = {"hooks", "add", "codex", "--tool", home.tool(), "--home=" + folder}});
  EXPECT_EQ(ended.status, 0);
  EXPECT_TRUE(std::filesystem::exists(folder + "/.codex/hooks.json"));
}

TEST(HooksCommand, anAgentsFolderThatIsAFileIsNoAgent) {
  Home home({".codex"});
  home.folder.write(".claude", "");
  const Ended status = home.hooks({"status", "claude"});
  EXPECT_EQ(status.status, 0);
  EXPECT_EQ(status.errors, "");
  EXPECT_EQ(status.output,
            "AGENT   HERE  FILE                     HOOKS\n"
            "claude  no    ~/.claude/settings.json  absent\n");
  const Ended added = home.hooks({"add", "claude", "codex"});
  EXPECT_EQ(added.status, 0);
  EXPECT_EQ(added.output,
            "claude: not on this machine (there is no ~/.claude), skipped\n"
            "codex: hooks added to ~/.codex/hooks.json (a new file)\n");
}

TEST(HooksCommand, tellsWhyItCannotLookForAnAgent) {
  Home home({".codex"});
  ASSERT_EQ(::symlink(".claude", home.folder.path(".claude").c_str()), 0);
  const std::string problem = "corvane-headless: ~/.claude: stat: " + CorvaneTests::linkLoopText();
  const Ended status = home.hooks({"status"});
  EXPECT_EQ(status.status, 1);
  EXPECT_EQ(status.errors, problem + "\n");
  EXPECT_EQ(status.output,
            "AGENT   HERE     FILE                     HOOKS\n"
            "claude  unknown  ~/.claude/settings.json  unknown\n"
            "codex   yes      ~/.codex/hooks.json      absent\n"
            "cursor  no       ~/.cursor/hooks.json     absent\n");
  for (const char* const action : {"add", "remove"}) {
    const Ended ended = home.hooks({action});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.errors, problem + "; nothing is changed\n");
    EXPECT_EQ(ended.output, "");
  }
  EXPECT_FALSE(home.folder.holds(".codex/hooks.json"));
}

/// In the child: becomes a user with no rights at all, when it is root.
void becomeNobody() {
  if (::geteuid() != 0) return;
  const bool isNobody =
      ::setgroups(0, nullptr) == 0 && ::setgid(65534) == 0 && ::setuid(65534) == 0;
  if (!isNobody) ::_exit(127);
}

/// A home folder of a user without rights, and the program where that user can run it.
struct NobodysHome : Home {
  explicit NobodysHome(const std::vector<std::string>& folders) : Home(folders) {
    std::filesystem::copy_file(CORVANE_HEADLESS, program);
    giveAway(folder.path());
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
      giveAway(entry.path());
    }
  }

  static void giveAway(const std::string& path) {
    if (::geteuid() == 0) {
      EXPECT_EQ(::lchown(path.c_str(), 65534, 65534), 0) << path;
    }
  }
  Ended hooks(const std::string& action, const std::string& homeFolder) const {
    return run(program,
               {.arguments = {"hooks", action, "claude", "--home", homeFolder, "--tool", tool()},
                .beforeExec = becomeNobody});
  }

  const std::string program = folder.path("bin/corvane-headless");
};

TEST(HooksCommand, namesTheFolderThatMayNotBeWritten) {
  const NobodysHome home({".claude"});
  ASSERT_EQ(::chmod(home.folder.path(".claude").c_str(), 0500), 0);
  const Ended ended = home.hooks("add", home.folder.path());
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.errors,
            "corvane-headless: ~/.claude: open: Permission denied; ~/.claude/settings.json is left "
            "as it was\n");
  EXPECT_EQ(ended.output, "");
}

TEST(HooksCommand, aHomeThatMayNotBeSearchedIsAProblem) {
  const NobodysHome home({"home"});
  const std::string inner = home.folder.path("home");
  ASSERT_EQ(::chmod(inner.c_str(), 0000), 0);
  const std::string problem = "corvane-headless: ~/.claude: stat: Permission denied";
  const Ended status = home.hooks("status", inner);
  EXPECT_EQ(status.status, 1);
  EXPECT_EQ(status.errors, problem + "\n");
  const Ended added = home.hooks("add", inner);
  EXPECT_EQ(added.status, 1);
  EXPECT_EQ(added.errors, problem + "; nothing is changed\n");
}

TEST(HooksCommand, aFolderInThePlaceOfTheBackupLeavesTheFileAsItWas) {
  const Home home({".claude"});
  home.folder.write(claudeSettings, ownSettings);
  ASSERT_EQ(::mkdir(home.folder.path(claudeSettings + ".corvane-backup").c_str(), 0700), 0);
  const Ended ended = home.hooks({"add", "claude"});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.errors,
            "corvane-headless: ~/.claude/settings.json.corvane-backup: rename: Is a directory; "
            "~/.claude/settings.json is left as it was\n");
  EXPECT_EQ(ended.output, "");
  EXPECT_EQ(home.folder.read(claudeSettings), ownSettings);
}

// One failure to look must not pass for "not on this machine" at one moment and be gone the next.
TEST(HooksCommand, looksForEachAgentOnceAndReadsEachFileOnce) {
  namespace Headless = CorvaneControl::Headless;
  using Action = Headless::CommandLine::Hooks::Action;
  Home home({".claude", ".codex"});
  home.folder.write(claudeSettings, ownSettings);
  const auto count = [&](Action action) {
    ScriptedCalls calls;
    std::map<std::string, int> made;
    calls.before = [&](std::string_view call) {
      ++made[std::string(call)];
      return 0;
    };
    EXPECT_FALSE(
        Headless::lookAfterHooks({.action = action}, home.folder.path(), home.tool(), calls)
            .hasProblem);
    return made;
  };
  auto made = count(Action::status);
  EXPECT_EQ(made["stat"], 3);
  EXPECT_EQ(made["fstat"], 1);
  made = count(Action::add);
  EXPECT_EQ(made["stat"], 3);
  EXPECT_EQ(made["fstat"], 2) << "read, and looked at right before it is replaced";
  made = count(Action::add);
  EXPECT_EQ(made["fstat"], 2) << "of two files, neither of which is replaced";
  made = count(Action::remove);
  EXPECT_EQ(made["stat"], 3);
  EXPECT_EQ(made["fstat"], 4);
}

TEST(HooksCommand, oneFailureToLookStopsEverything) {
  namespace Headless = CorvaneControl::Headless;
  const Home home;
  ScriptedCalls calls;
  calls.before = [looks = 0](std::string_view call) mutable {
    return call == "stat" && ++looks == 1 ? EIO : 0;
  };
  const auto report =
      Headless::lookAfterHooks({.action = Headless::CommandLine::Hooks::Action::add},
                               home.folder.path(), home.tool(), calls);
  EXPECT_TRUE(report.hasProblem);
  EXPECT_EQ(report.output, "");
  EXPECT_EQ(report.messages,
            std::vector<std::string>{"~/.claude: stat: Input/output error; nothing is changed"});
  EXPECT_FALSE(home.folder.holds(".codex/hooks.json"));
}

TEST(HooksCommand, twoAddsAtOnceBothSucceed) {
  for (int round = 0; round < 20; ++round) {
    Home home({".claude"});
    home.folder.write(claudeSettings, ownSettings);
    const ChildOptions options{.arguments = {"hooks", "add", "claude", "--home", home.folder.path(),
                                             "--tool", home.tool()}};
    ChildProcess first(CORVANE_HEADLESS, options);
    ChildProcess second(CORVANE_HEADLESS, options);
    for (auto* child : {&first, &second}) {
      const Ended ended = child->wait();
      ASSERT_EQ(ended.status, 0) << ended.errors;
    }
    EXPECT_EQ(home.folder.read(claudeSettings + ".corvane-backup"), ownSettings);
    const auto added = CorvaneControl::AgentHooks::adding(ownSettings, Agent::claude, home.tool());
    EXPECT_EQ(home.folder.read(claudeSettings), *added);
  }
}

std::vector<std::string> temporaryFiles(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    if (name.find(".corvane-new.") != std::string::npos) names.push_back(name);
  }
  return names;
}

TEST(HooksCommand, aFileSizeLimitIsAProblemThatIsNamed) {
  Home home({".claude"});
  const std::string large = "{\"a\": \"" + std::string(100'000, 'x') + "\"}\n";
  home.folder.write(claudeSettings, large);
  const Ended ended = run(
      CORVANE_HEADLESS,
      {.arguments = {"hooks", "add", "claude", "--home", home.folder.path(), "--tool", home.tool()},
       .beforeExec = [] {
         const rlimit limit{.rlim_cur = 50'000, .rlim_max = 50'000};
         ::setrlimit(RLIMIT_FSIZE, &limit);
       }});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.errors,
            "corvane-headless: ~/.claude/settings.json.corvane-backup: write: File too large; "
            "~/.claude/settings.json is left as it was\n");
  EXPECT_EQ(home.folder.read(claudeSettings), large);
  EXPECT_EQ(temporaryFiles(home.folder.path(".claude")), std::vector<std::string>{});
}

TEST(HooksCommand, aSignalWhileItWritesLeavesNothingStray) {
  const std::string large = "{\"a\": \"" + std::string(4'000'000, 'x') + "\"}\n";
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Home home({".claude"});
    home.folder.write(claudeSettings, large);
    ChildProcess child(CORVANE_HEADLESS,
                       {.arguments = {"hooks", "add", "claude", "--home", home.folder.path(),
                                      "--tool", home.tool()}});
    const std::string folder = home.folder.path(".claude");
    while (temporaryFiles(folder).empty() && child.running()) continue;
    child.signal(signal);
    const Ended ended = child.wait();
    EXPECT_TRUE(ended.signal == signal || ended.status == 0);
    EXPECT_EQ(temporaryFiles(folder), std::vector<std::string>{});
    const std::string now = home.folder.read(claudeSettings);
    const auto added = CorvaneControl::AgentHooks::adding(large, Agent::claude, home.tool());
    EXPECT_TRUE(now == large || now == *added);
  }
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

TEST(HooksCommand, showsAPathBesideTheAgentsFolderWhole) {
  Home home({".claude"});
  std::filesystem::create_directories(home.folder.path(".claude-shared/settings.json"));
  ASSERT_EQ(::symlink("../.claude-shared/settings.json", home.folder.path(claudeSettings).c_str()),
            0);
  EXPECT_EQ(home.hooks({"add", "claude"}).errors,
            "corvane-headless: " + home.folder.path(".claude-shared/settings.json") +
                ": not a regular file; nothing is changed\n");
}

}  // namespace
}  // namespace CorvaneTests
