#include "corvane-headless/CommandLine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CorvaneControl/Platform/Text.h"

namespace CorvaneControl::Headless {
namespace {

using CommandLine::Answering;
using CommandLine::Hooks;
using CommandLine::Serve;
using CommandLine::Usage;

struct WordsCase {
  const char* name;
  std::vector<std::string> words;
  CommandLine::Parsed parsed;
};

const WordsCase wordsCases[] = {
    {"noWords", {}, Serve{}},
    {"everyOption",
     {"--socket", "/s", "--workspaces", "w.json", "--answer", "deny", "--quiet"},
     Serve{.socket = "/s", .workspaces = "w.json", .answering = Answering::deny, .quiet = true}},
    {"valuesBehindEqualsSigns",
     {"--socket=/a=b", "--answer=ask"},
     Serve{.socket = "/a=b", .answering = Answering::ask}},
    {"theLastOfTwo", {"--socket", "/a", "--socket", "/b"}, Serve{.socket = "/b"}},
    {"aValueThatLooksLikeAnOption", {"--socket", "--quiet"}, Serve{.socket = "--quiet"}},
    {"help", {"--help"}, CommandLine::Help{}},
    {"helpInShort", {"-h"}, CommandLine::Help{}},
    {"helpAfterOptions", {"--quiet", "--help"}, CommandLine::Help{}},
    {"version", {"--version"}, CommandLine::Version{}},
    {"versionInShort", {"-v"}, CommandLine::Version{}},
    {"versionOfHooks", {"hooks", "-v"}, CommandLine::Version{}},
    {"anUnknownOption", {"--frob"}, Usage{"There is no option --frob."}},
    {"anUnknownOptionWithAValue", {"--frob=1"}, Usage{"There is no option --frob."}},
    {"aValueForAnOptionWithout", {"--quiet=1"}, Usage{"There is no option --quiet."}},
    {"aValueForHelp", {"--help=1"}, Usage{"There is no option --help."}},
    {"anUnknownOptionBeforeHelp", {"--frob", "--help"}, Usage{"There is no option --frob."}},
    {"aWord", {"serve"}, Usage{"What is \"serve\"?"}},
    {"anEmptyWord", {""}, Usage{"What is \"\"?"}},
    {"hooksThatComeLater", {"--quiet", "hooks"}, Usage{"What is \"hooks\"?"}},
    {"aMissingValue", {"--socket"}, Usage{"--socket needs a value."}},
    {"anEmptyValue", {"--workspaces", ""}, Usage{"--workspaces needs a value."}},
    {"anEmptyValueBehindAnEqualsSign", {"--socket="}, Usage{"--socket needs a value."}},
    {"aMissingAnswer", {"--answer"}, Usage{"--answer needs a value."}},
    {"aWrongAnswer",
     {"--answer", "Allow"},
     Usage{"--answer is allow, deny or ask, not \"Allow\"."}},
    {"aWordThatDrivesTheTerminal", {"\x1b[2J"}, Usage{"What is \"\\u{1B}[2J\"?"}},
    {"hooksAlone", {"hooks"}, Hooks{}},
    {"hooksOfOneAgent", {"hooks", "claude"}, Hooks{.agents = {Agent::claude}}},
    {"hooksToAdd", {"hooks", "add"}, Hooks{.action = Hooks::Action::add}},
    {"hooksToRemove",
     {"hooks", "remove", "cursor", "codex"},
     Hooks{.action = Hooks::Action::remove, .agents = {Agent::cursor, Agent::codex}}},
    {"hooksOfAnAgentNamedTwice",
     {"hooks", "show", "codex", "codex"},
     Hooks{.action = Hooks::Action::show, .agents = {Agent::codex}}},
    {"hooksElsewhere",
     {"hooks", "--home", "/h", "status", "--tool=/t", "claude"},
     Hooks{.agents = {Agent::claude}, .home = "/h", .tool = "/t"}},
    {"hooksHelp", {"hooks", "--help"}, CommandLine::Help{}},
    {"hooksOfAnUnknownAgent",
     {"hooks", "add", "gemini"},
     Usage{"hooks takes status, add, remove or show, then claude, codex or cursor, not "
           "\"gemini\"."}},
    {"hooksToDoTwoThings",
     {"hooks", "add", "remove"},
     Usage{"hooks takes status, add, remove or show, then claude, codex or cursor, not "
           "\"remove\"."}},
    {"hooksToDoSomethingLate",
     {"hooks", "claude", "add"},
     Usage{"hooks takes status, add, remove or show, then claude, codex or cursor, not \"add\"."}},
    {"hooksWithAServersOption", {"hooks", "--quiet"}, Usage{"There is no option --quiet."}},
    {"hooksWithoutTheHome", {"hooks", "--home"}, Usage{"--home needs a value."}},
    {"anOptionWithALetterTooFew",
     {"--workspace", "w.json"},
     Usage{"There is no option --workspace. Did you mean --workspaces?"}},
    {"anOptionWithALetterTooMany",
     {"--sockets=/s"},
     Usage{"There is no option --sockets. Did you mean --socket?"}},
    {"anOptionWithAWrongLetter",
     {"--quist"},
     Usage{"There is no option --quist. Did you mean --quiet?"}},
    {"anOptionWithTwoLettersSwapped",
     {"--asnwre"},
     Usage{"There is no option --asnwre. Did you mean --answer?"}},
    {"anOptionWithOneDash", {"-help"}, Usage{"There is no option -help. Did you mean --help?"}},
    {"anOptionWithoutDashes", {"help"}, Usage{"What is \"help\"? Did you mean --help?"}},
    {"anOptionInUpperCase", {"--HELP"}, Usage{"There is no option --HELP. Did you mean --help?"}},
    {"aLetterThatIsNoOption", {"-q"}, Usage{"There is no option -q."}},
    {"dashesAlone", {"--"}, Usage{"There is no option --."}},
    {"aMisspeltCommand", {"hoks"}, Usage{"What is \"hoks\"? Did you mean hooks?"}},
    {"aMisspeltCommandThatComesLater", {"--quiet", "hoks"}, Usage{"What is \"hoks\"?"}},
    {"aWordTooLongToBeMeant",
     {"hooks" + std::string(1'000'000, 's')},
     Usage{"What is \"hooks" + std::string(95, 's') + "… (999905 more bytes)\"?"}},
    {"aMisspeltAction",
     {"hooks", "ad"},
     Usage{"hooks takes status, add, remove or show, then claude, codex or cursor, not \"ad\". "
           "Did you mean add?"}},
    {"aMisspeltAgent",
     {"hooks", "add", "cluade"},
     Usage{"hooks takes status, add, remove or show, then claude, codex or cursor, not "
           "\"cluade\". Did you mean claude?"}},
    {"aMisspeltActionThatComesLate",
     {"hooks", "codex", "shaw"},
     Usage{"hooks takes status, add, remove or show, then claude, codex or cursor, not "
           "\"shaw\"."}},
    {"aMisspeltOptionOfHooks",
     {"hooks", "--hom", "/h"},
     Usage{"There is no option --hom. Did you mean --home?"}},
    {"aServersOptionMisspeltWithHooks", {"hooks", "--socke"}, Usage{"There is no option --socke."}},
};

class HeadlessCommandLine : public testing::TestWithParam<WordsCase> {};
TEST_P(HeadlessCommandLine, understands) {
  EXPECT_TRUE(CommandLine::parse(GetParam().words) == GetParam().parsed);
  if (const auto* usage = std::get_if<Usage>(&GetParam().parsed)) {
    const auto parsed = CommandLine::parse(GetParam().words);
    ASSERT_TRUE(std::holds_alternative<Usage>(parsed));
    EXPECT_EQ(std::get<Usage>(parsed).message, usage->message);
  }
}
INSTANTIATE_TEST_SUITE_P(Headless, HeadlessCommandLine, testing::ValuesIn(wordsCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(HeadlessCommandLine, helpNamesEveryOption) {
  for (const char* option : {"--socket", "--workspaces", "--answer", "--quiet", "--help",
                             "--version", "--home", "--tool", "status", "add", "remove", "show",
                             "claude", "codex", "cursor", "allow", "deny", "ask"}) {
    EXPECT_NE(CommandLine::help.find(option), std::string_view::npos) << option;
  }
}

TEST(HeadlessCommandLine, helpFitsAnOrdinaryTerminal) {
  std::string_view rest = CommandLine::help;
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    ASSERT_NE(end, std::string_view::npos);
    EXPECT_LE(Text::characters(rest.substr(0, end)), 80U) << rest.substr(0, end);
    rest.remove_prefix(end + 1);
  }
}

}  // namespace
}  // namespace CorvaneControl::Headless
