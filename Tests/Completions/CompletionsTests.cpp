#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Documentation/Pages.h"
#include "Support/ChildProcess.h"
#include "Support/PseudoTerminal.h"
#include "Support/TemporaryFolder.h"
#include "corvane-headless/HeadlessCorvane.h"

namespace {

using CorvaneTests::ChildOptions;
using CorvaneTests::ChildProcess;
using CorvaneTests::HeadlessCorvane;
using CorvaneTests::PseudoTerminal;
using CorvaneTests::TemporaryFolder;

/// Workspaces whose names say what the completions have to bear.
constexpr std::string_view workspaces = R"([
  {"name": "Site"}, {"name": "Store"},
  {"name": "My \"big\" projét's end"}, {"name": "Wide  $HOME `date` \\ !x & (y); #z"},
  {"name": "Zeit: 12:30=@noon"}, {"name": "Two  3 windows"}, {"name": "Übung"},
  {"name": "a\",\"name\":\"b"}, {"name": "back\\"}
])";

/// A shell, and how it is started with our completions. It says "@prompt@" before each prompt, so
/// that a prompt is told from one that is only drawn again.
struct Shell {
  const char* name;
  const char* package;
  const char* there;     ///< A command that fails where the shell is not.
  const char* command;   ///< Starts it; "$1" is the file with its settings.
  const char* settings;  ///< zsh reads them by itself.
};

#define COMPLETIONS CORVANE_SOURCE_DIR "/Completions"
const Shell shells[] = {
    {"bash", "bash", "command -v bash", R"(exec bash --noprofile --rcfile "$1" -i)",
     ". '" COMPLETIONS "/corvane.bash'\nPROMPT_COMMAND='echo @prompt@'\nPS1='ready> '\n"},
    // With the package that loads completions when they are first needed.
    {"bashThatLoadsThem", "bash-completion",
     "command -v bash && test -r /usr/share/bash-completion/bash_completion",
     R"(exec bash --noprofile --rcfile "$1" -i)",
     ". /usr/share/bash-completion/bash_completion\nPROMPT_COMMAND='echo @prompt@'\nPS1='ready> "
     "'\n"},
    {"zsh", "zsh", "command -v zsh", "exec zsh -d -i",
     "fpath=('" COMPLETIONS "' $fpath)\nautoload -Uz compinit && compinit -u -D\n"
     "precmd() { echo @prompt@; }\nPS1='ready> '\n"},
    {"fish", "fish", "command -v fish", R"(exec fish -i -C "source '$1'")",
     "source '" COMPLETIONS "/corvane.fish'\nset fish_greeting\n"
     "set fish_autosuggestion_enabled 0\nfunction prompted --on-event fish_prompt; echo @prompt@; "
     "end\n"
     "function fish_prompt; echo -n 'ready> '; end\n"},
};

/// Somebody at a shell, with both programs on the path. A command line that is entered is not run:
/// its words are kept. What the completions ask is answered by the real program.
class Person {
 public:
  explicit Person(const Shell& shell, bool isRunning = true) {
    if (isRunning) {
      const std::string file = folder_.write("workspaces.json", workspaces);
      corvane_.emplace(ChildOptions{.arguments = {"--workspaces", file}});
      EXPECT_TRUE(corvane_->process().waitForOutput("Serving"));
    }
    const std::string keep =
        "#!/bin/sh\n"
        "if [ \"$*\" = 'list --json' ]; then\n"
        "  cat '" +
        folder_.path("answer") +
        "' 2>/dev/null || exec '" CORVANECTL
        "' list --json\n"
        "  exit\n"
        "fi\n"
        "{ printf '%s\\n' \"${0##*/}\" \"$@\"; } >'" +
        folder_.path("kept.new") +
        "'\n"
        "mv '" +
        folder_.path("kept.new") + "' '" + folder_.path("kept") + "'\n";
    for (const char* const program : {"bin/corvanectl", "bin/corvane-headless"}) {
      std::filesystem::permissions(folder_.write(program, keep), std::filesystem::perms::owner_all);
    }
    std::filesystem::create_directories(folder_.path("home/Some folder"));
    folder_.write("home/some file", "");
    folder_.write("home/.zshrc", shell.settings);
    folder_.write("settings", shell.settings);
    for (const char* const program : {"corvanectl", "corvane-headless"}) {
      std::ifstream completions(COMPLETIONS "/corvane.bash");
      folder_.write(std::string("share/bash-completion/completions/") + program,
                    std::string(std::istreambuf_iterator<char>(completions), {}));
    }
    start(shell);
  }

  /// The words of the command line that the shell runs after `keys` and Enter.
  std::vector<std::string> enters(std::string_view keys) {
    std::filesystem::remove(folder_.path("kept"));
    const std::size_t seen = terminal_.screen().size();
    terminal_.type(std::string(keys) + "\r");
    if (!waitForPrompt(seen) || !folder_.holds("kept")) return {};
    return CorvaneTests::linesOf(folder_.read("kept"));
  }
  /// Makes this the application's answer, whatever it is.
  void answers(std::string_view json) const { folder_.write("answer", json); }
  const std::string& screen() const { return terminal_.screen(); }

 private:
  bool waitForPrompt(std::size_t from) {
    if (!terminal_.waitFor("@prompt@", from)) return false;
    return terminal_.waitFor("ready> ", terminal_.screen().find("@prompt@", from));
  }
  void start(const Shell& shell) {
    const char* const path = std::getenv("PATH");
    ChildOptions options;
    options.arguments = {"-c", std::string("cd && ") + shell.command, "sh",
                         folder_.path("settings")};
    options.environment = {
        {"PATH", folder_.path("bin:") + (path != nullptr ? path : "/usr/bin:/bin")},
        {"HOME", folder_.path("home")},
        {"ZDOTDIR", folder_.path("home")},
        {"XDG_DATA_HOME", folder_.path("share")},
        {"XDG_CONFIG_HOME", folder_.path("config")},
        {"XDG_CACHE_HOME", folder_.path("cache")},
        {"CORVANE_SOCKET", corvane_ ? corvane_->socketPath() : folder_.path("nobody")},
        {"LC_ALL", "C.UTF-8"},
        {"TERM", "xterm"}};
    options.withoutEnvironment = {"BASH_ENV", "ENV", "HISTFILE", "INPUTRC", "PROMPT_COMMAND"};
    options = terminal_.lentTo(std::move(options));
    options.given.insert({2, options.given.at(0)});  // where some shells write to the person
    process_.emplace("/bin/sh", std::move(options));
    waitForPrompt(0);
  }

  TemporaryFolder folder_{};
  std::optional<HeadlessCorvane> corvane_{};
  PseudoTerminal terminal_{200};
  std::optional<ChildProcess> process_{};
};

using Words = std::vector<std::string>;

class Completions : public CorvaneTests::InATerminal, public testing::WithParamInterface<Shell> {
 protected:
  void SetUp() override {
    InATerminal::SetUp();
    if (IsSkipped()) return;
    const auto there = CorvaneTests::run("/bin/sh", {.arguments = {"-c", GetParam().there}});
    if (there.status != 0) GTEST_SKIP() << GetParam().package << " is not here";
  }
};

struct Line {
  std::string keys;
  Words words;  ///< Without the program.
};

void expectLines(Person& person, const std::string& program, const std::vector<Line>& lines) {
  for (const auto& [keys, words] : lines) {
    Words expected{program};
    expected.insert(expected.end(), words.begin(), words.end());
    EXPECT_EQ(person.enters(program + " " + keys), expected) << keys << "\n" << person.screen();
  }
}

TEST_P(Completions, completeCommandsOptionsAgentsAndKinds) {
  Person person(GetParam());
  expectLines(
      person, "corvanectl",
      {{"cur\t", {"current"}},
       {"sub\t", {"subscribe"}},
       {"current --j\t", {"current", "--json"}},
       {"notify --me\tx", {"notify", "--message", "x"}},
       {"notify --agent cl\t", {"notify", "--agent", "claude"}},
       {"notify --agent claude --k\td\t", {"notify", "--agent", "claude", "--kind", "done"}},
       {"notify --cwd So\tx", {"notify", "--cwd", "Some folder/x"}}});
}

TEST_P(Completions, offerNothingWhereNothingFits) {
  Person person(GetParam());
  expectLines(person, "corvanectl",
              {{"frob\tx", {"frobx"}},
               {"frob cur\tx", {"frob", "curx"}},
               {"help cur\tx", {"help", "curx"}},
               {"subscribe --j\tx", {"subscribe", "--jx"}},
               {"notify --message cl\tx", {"notify", "--message", "clx"}},
               {"notify --message --kind d\tx", {"notify", "--message", "--kind", "dx"}},
               {"notify --kind done --ki\tx", {"notify", "--kind", "done", "--kix"}},
               {"switch Site St\tx", {"switch", "Site", "Stx"}}});
}

const std::vector<Line> namesWithoutQuotes = {
    {"switch St\t", {"switch", "Store"}},
    {"switch st\t", {"switch", "Store"}},
    {"switch My\t", {"switch", "My \"big\" projét's end"}},
    {"launch My\\ \\\"b\t", {"launch", "My \"big\" projét's end"}},
    {"stop Wi\t", {"stop", "Wide  $HOME `date` \\ !x & (y); #z"}},
    {"switch Ü\t", {"switch", "Übung"}},
    {"switch Two\t", {"switch", "Two  3 windows"}},
    {"switch a\t", {"switch", "a\",\"name\":\"b"}},
    {"switch ba\t", {"switch", "back\\"}},
    {"switch BA\t", {"switch", "back\\"}},
    {"switch Zei\t", {"switch", "Zeit: 12:30=@noon"}},
    {"switch Zeit:\\ 1\t", {"switch", "Zeit: 12:30=@noon"}},
};

TEST_P(Completions, completeTheNamesOfWorkspaces) {
  Person person(GetParam());
  expectLines(person, "corvanectl", namesWithoutQuotes);
}

TEST_P(Completions, completeANameInTheQuotesThatWereBegun) {
  Person person(GetParam());
  expectLines(person, "corvanectl",
              {{"switch \"My \t", {"switch", "My \"big\" projét's end"}},
               {"switch 'My \t", {"switch", "My \"big\" projét's end"}},
               {"switch \"Wide\t", {"switch", "Wide  $HOME `date` \\ !x & (y); #z"}},
               {"switch 'Wide\t", {"switch", "Wide  $HOME `date` \\ !x & (y); #z"}},
               {"switch \"Zeit: 1\t", {"switch", "Zeit: 12:30=@noon"}}});
}

TEST_P(Completions, leaveOutANameThatCannotBeShown) {
  Person person(GetParam());
  person.answers(
      R"({"ok":true,"workspaces":[{"active":true,"id":"1","name":"Tab\tbed"},)"
      R"({"active":false,"id":"2","name":""},{"active":false,"id":"3","name":"Line\nfeed"},)"
      R"({"active":false,"id":"4","name":"Last"}]})"
      "\n");
  expectLines(person, "corvanectl",
              {{"switch Ta\tx", {"switch", "Tax"}}, {"switch L\t", {"switch", "Last"}}});
}

TEST_P(Completions, takeNoAnswerForNoNames) {
  for (const char* const answer :
       {"", "\n", "{}", "{\"ok\":true,\"workspaces\":[]}\n", "S\n", "\"name\":\"\n"}) {
    Person person(GetParam());
    person.answers(answer);
    expectLines(person, "corvanectl", {{"switch S\tx", {"switch", "Sx"}}});
  }
}

TEST_P(Completions, areSilentWithoutTheApplication) {
  Person person(GetParam(), false);
  expectLines(person, "corvanectl", {{"switch St\tx", {"switch", "Stx"}}, {"sto\t", {"stop"}}});
  EXPECT_EQ(person.screen().find("running"), std::string::npos) << person.screen();
}

TEST_P(Completions, completeTheHeadlessCorvane) {
  Person person(GetParam());
  expectLines(
      person, "corvane-headless",
      {{"ho\t", {"hooks"}},
       {"--wo\tsome\t", {"--workspaces", "some file"}},
       {"--quiet --an\tde\t", {"--quiet", "--answer", "deny"}},
       {"--quiet ho\tx", {"--quiet", "hox"}},
       {"hooks ad\t", {"hooks", "add"}},
       {"hooks remove cl\tcu\t", {"hooks", "remove", "claude", "cursor"}},
       {"hooks remove claude cl\tx", {"hooks", "remove", "claude", "clx"}},
       {"hooks cod\t", {"hooks", "codex"}},
       {"hooks add remo\tx", {"hooks", "add", "remox"}},
       {"hooks show codex --ho\tSo\tx", {"hooks", "show", "codex", "--home", "Some folder/x"}}});
}

INSTANTIATE_TEST_SUITE_P(, Completions, testing::ValuesIn(shells),
                         [](const auto& shell) { return std::string(shell.param.name); });

}  // namespace
