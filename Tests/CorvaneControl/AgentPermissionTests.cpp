#include "CorvaneControl/AgentPermission.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>

#include "CorvaneControl/AgentPermissionTesting.h"

namespace CorvaneControl {
namespace {

using Action = AgentPermission::Action;
using Permission = AgentPermission;

struct ToolCase {
  const char* name;
  const char* tool;
  std::string input;
  std::optional<Permission> card;
  std::optional<std::string> cwd = std::nullopt;
};

const ToolCase toolCases[] = {
    // Without a card
    {"noNameGivesNoCard", "", "{}", std::nullopt},
    {"enteringPlanModeGivesNoCard", "EnterPlanMode", R"({"command":"x"})", std::nullopt},
    {"questionsAreMadeElsewhere", "AskUserQuestion", R"({"questions":[{"question":"A?"}]})",
     std::nullopt},
    {"plansAreMadeElsewhere", "ExitPlanMode", R"({"plan":"x"})", std::nullopt},

    // Bash and write_stdin
    {"aCommandIsItsOwnSubject", "Bash", R"({"command":"ls -l","description":"Lists"})",
     Permission{
         .action = Action::run, .subject = "ls -l", .note = "Lists", .lines = lines({" ls -l"})}},
    {"theSubjectIsTheFirstLineThatIsNotBlank", "Bash",
     R"({"command":"\n \t\u00a0\n\u3000 make all \t\ninstall\n"})",
     Permission{.subject = "make all",
                .lines = lines({" ", "  \t\u00A0", " \u3000 make all \t", " install"})}},
    {"aCommandOfWordsIsJoined", "Bash", R"({"command":["git","status"]})",
     Permission{.subject = "git status", .lines = lines({" git status"})}},
    {"oneWordStandsAlone", "Bash", R"({"command":["ls"]})",
     Permission{.subject = "ls", .lines = lines({" ls"})}},
    {"emptyWordsKeepTheirSpaces", "Bash", R"({"command":["","a","","b"]})",
     Permission{.subject = "a  b", .lines = lines({"  a  b"})}},
    {"noWordsAreAnEmptyCommand", "Bash", R"({"command":[],"chars":"x"})", std::nullopt},
    {"blankWordsAreABlankCommand", "Bash", R"({"command":[""," "]})", std::nullopt},
    {"wordsThatAreNoStringsAreNoCommand", "Bash", R"({"command":["ls",1]})", std::nullopt},
    {"aBlankCommandGivesNoCard", "Bash", R"({"command":" \n\t\r\n\u00a0"})", std::nullopt},
    {"anEmptyCommandGivesNoCard", "Bash", R"({"command":"","chars":"x"})", std::nullopt},
    {"aMissingCommandGivesNoCard", "Bash", "{}", std::nullopt},
    {"aCommandThatIsNoTextGivesNoCard", "Bash", R"({"command":{"a":"b"}})", std::nullopt},
    {"whatIsTypedCountsAsTheCommand", "Bash", R"({"chars":"q\n"})",
     Permission{.subject = "q", .lines = lines({" q"})}},
    {"whatIsTypedStandsInForAWrongCommand", "write_stdin", R"({"command":7,"chars":"y"})",
     Permission{
         .subject = "y", .note = "Wants to type into a running command", .lines = lines({" y"})}},
    {"typingExplainsItself", "write_stdin", R"({"session_id":4750,"chars":"hello\n","tty":true})",
     Permission{.subject = "hello",
                .note = "Wants to type into a running command",
                .lines = lines({" hello"})}},
    {"typingKeepsTheAgentsExplanation", "write_stdin",
     R"({"chars":"hello","description":" Says hello \nand more"})",
     Permission{.subject = "hello", .note = "Says hello", .lines = lines({" hello"})}},
    {"typingWithABlankExplanationExplainsItself", "write_stdin",
     R"({"chars":"hello","description":"  \nmore"})",
     Permission{.subject = "hello",
                .note = "Wants to type into a running command",
                .lines = lines({" hello"})}},
    {"anExplanationIsOneLine", "Bash",
     R"({"command":"touch made.txt","description":"Needs to write\nthe file"})",
     Permission{.subject = "touch made.txt",
                .note = "Needs to write",
                .lines = lines({" touch made.txt"})}},
    {"anExplanationThatIsNoTextIsNone", "Bash", R"({"command":"ls","description":["x"]})",
     Permission{.subject = "ls", .lines = lines({" ls"})}},
    {"carriageReturnsBeforeLineFeedsAreTakenOff", "Bash", "{\"command\":\"a\\r\\nb\\r\\n\"}",
     Permission{.subject = "a", .lines = lines({" a", " b"})}},
    {"toolNamesAreComparedExactly", "bash", R"({"command":"ls"})",
     Permission{.action = Action::tool, .subject = "bash", .lines = lines({" command: ls"})}},

    // Files
    {"anEditShowsWhatGoesAndWhatComes", "Edit",
     R"({"file_path":"/p/a.c","old_string":"return 0;","new_string":"return 1;\n  /* é 漢 */"})",
     Permission{.action = Action::edit,
                .subject = "a.c",
                .note = "a.c",
                .lines = lines({"-return 0;", "+return 1;", "+  /* é 漢 */"}),
                .folder = "/p"},
     "/p"},
    {"anInsertionOnlyAdds", "Edit", R"({"file_path":"/p/a.c","old_string":"","new_string":"x"})",
     Permission{
         .action = Action::edit, .subject = "a.c", .note = "/p/a.c", .lines = lines({"+x"})}},
    {"anEditWithoutTextsShowsNothing", "Edit",
     R"({"file_path":"/p/a.c","old_string":1,"new_string":null})",
     Permission{.action = Action::edit, .subject = "a.c", .note = "/p/a.c"}},
    {"aDeletionOnlyRemoves", "Edit", R"({"file_path":"/p/a.c","old_string":"a\n\nb"})",
     Permission{.action = Action::edit,
                .subject = "a.c",
                .note = "/p/a.c",
                .lines = lines({"-a", "-", "-b"})}},
    {"anEditToNothingAddsAnEmptyLine", "Edit",
     R"({"file_path":"/p/a.c","old_string":"a","new_string":""})",
     Permission{
         .action = Action::edit, .subject = "a.c", .note = "/p/a.c", .lines = lines({"-a", "+"})}},
    {"severalEditsAreSeparated", "MultiEdit",
     R"({"file_path":"/p/a.c","edits":[{"old_string":"a","new_string":"b"},
         {"old_string":"","new_string":"c"},{"old_string":"d"}]})",
     Permission{.action = Action::edit,
                .subject = "a.c",
                .note = "/p/a.c",
                .lines = lines({"-a", "+b", " ⋯", "+c", " ⋯", "-d"})}},
    {"editsThatShowNothingAreSeparatedToo", "MultiEdit",
     R"({"file_path":"/p/a.c","edits":[{},{"new_string":"x"},{"old_string":2}]})",
     Permission{.action = Action::edit,
                .subject = "a.c",
                .note = "/p/a.c",
                .lines = lines({" ⋯", "+x", " ⋯"})}},
    {"oneEditHasNoSeparator", "MultiEdit",
     R"({"file_path":"/p/a.c","edits":[{"old_string":"a","new_string":"b"}]})",
     Permission{
         .action = Action::edit, .subject = "a.c", .note = "/p/a.c", .lines = lines({"-a", "+b"})}},
    {"noEditsShowNothing", "MultiEdit", R"({"file_path":"/p/a.c","edits":[]})",
     Permission{.action = Action::edit, .subject = "a.c", .note = "/p/a.c"}},
    {"editsThatAreNoObjectsCountAsNone", "MultiEdit",
     R"({"file_path":"/p/a.c","edits":[{"new_string":"x"},"y"]})",
     Permission{.action = Action::edit, .subject = "a.c", .note = "/p/a.c"}},
    {"editsThatAreNoListCountAsNone", "MultiEdit",
     R"({"file_path":"/p/a.c","edits":{"old_string":"a"}})",
     Permission{.action = Action::edit, .subject = "a.c", .note = "/p/a.c"}},
    {"aNotebookShowsItsNewSource", "NotebookEdit",
     R"j({"notebook_path":"/p/n.ipynb","new_source":"print(2)\nprint(3)","edit_mode":"replace"})j",
     Permission{.action = Action::edit,
                .subject = "n.ipynb",
                .note = "n.ipynb",
                .lines = lines({"+print(2)", "+print(3)"}),
                .folder = "/p"},
     "/p"},
    {"aNotebookWithoutSourceAddsAnEmptyLine", "NotebookEdit", R"({"notebook_path":"/p/n.ipynb"})",
     Permission{.action = Action::edit,
                .subject = "n.ipynb",
                .note = "/p/n.ipynb",
                .lines = lines({"+"})}},
    {"aFileIsWritten", "Write", R"({"file_path":"/u/me/proj/src/a.c","content":"x\n"})",
     Permission{.action = Action::write,
                .subject = "a.c",
                .note = "src/a.c",
                .lines = lines({"+x"}),
                .folder = "~/proj"},
     "/u/me/proj"},
    {"aFileWithoutContentAddsAnEmptyLine", "Write", R"({"file_path":"/p/a.c","content":7})",
     Permission{
         .action = Action::write, .subject = "a.c", .note = "/p/a.c", .lines = lines({"+"})}},
    {"aFileElsewhereAtHomeIsAbbreviated", "Write",
     R"({"file_path":"/u/me/other/a.c","content":""})",
     Permission{.action = Action::write,
                .subject = "a.c",
                .note = "~/other/a.c",
                .lines = lines({"+"}),
                .folder = "~/proj"},
     "/u/me/proj"},
    {"theNotebookPathStandsInForAnEmptyFilePath", "Write",
     R"({"file_path":"","notebook_path":"/p/b","content":"x"})",
     Permission{.action = Action::write, .subject = "b", .note = "/p/b", .lines = lines({"+x"})}},
    {"theFilePathGoesFirst", "Edit", R"({"file_path":"/p/a","notebook_path":"/p/b"})",
     Permission{.action = Action::edit, .subject = "a", .note = "/p/a"}},
    {"noPathGivesNoCard", "Write", R"({"content":"x"})", std::nullopt},
    {"anEmptyPathGivesNoCard", "Edit", R"({"file_path":"","notebook_path":""})", std::nullopt},
    {"aPathThatIsNoTextGivesNoCard", "MultiEdit", R"({"file_path":["/p/a"],"notebook_path":null})",
     std::nullopt},

    // Searches
    {"aSearchIsItsQuery", "WebSearch", R"({"query":"c++ json parser","description":"no note"})",
     Permission{.action = Action::search,
                .subject = "c++ json parser",
                .lines = lines({" c++ json parser"})}},
    {"aQueryIsOneLine", "WebSearch", R"({"query":" a\nb "})",
     Permission{.action = Action::search, .subject = " a\nb ", .lines = lines({"  a\nb "})}},
    {"anEmptyQueryGivesNoCard", "WebSearch", R"({"query":""})", std::nullopt},
    {"aMissingQueryGivesNoCard", "WebSearch", "{}", std::nullopt},
    {"aQueryThatIsNoTextGivesNoCard", "WebSearch", R"({"query":1})", std::nullopt},

    // Pages
    {"aPageShowsItsPlaceAndItsPrompt", "WebFetch",
     R"({"url":"https://me@example.org:8443/a?q#f","prompt":"\n Sums it up \nx"})",
     Permission{.action = Action::fetch,
                .subject = "example.org/a",
                .note = "Sums it up",
                .lines = lines({" https://me@example.org:8443/a?q#f"})}},
    {"aPageWithABlankPromptHasNoNote", "WebFetch", R"({"url":"http://a.b","prompt":" \t"})",
     Permission{.action = Action::fetch, .subject = "a.b", .lines = lines({" http://a.b"})}},
    {"anEmptyURLGivesNoCard", "WebFetch", R"({"url":""})", std::nullopt},
    {"aMissingURLGivesNoCard", "WebFetch", R"({"prompt":"x"})", std::nullopt},
    {"aURLThatIsNoTextGivesNoCard", "WebFetch", R"({"url":{}})", std::nullopt},

    // Other tools
    {"anotherToolShowsItsArguments", "mcp__echo__say__again",
     R"({"text":"hello\nworld","times":2,"opts":{"b/c":[1,2.5,null,true],"a":"x"}})",
     Permission{.action = Action::tool,
                .subject = "echo · say__again",
                .lines = lines({R"( opts: {"a":"x","b\/c":[1,2.5,null,true]})", " text: hello",
                                " world", " times: 2"})}},
    {"anotherToolWithoutArguments", "mcp__echo__ask__form", "{}",
     Permission{.action = Action::tool, .subject = "echo · ask__form"}},
    {"anotherToolGivesItsReason", "Read", R"({"file_path":"/etc/hostname","reason":"To know\nit"})",
     Permission{.action = Action::tool,
                .subject = "Read",
                .note = "To know",
                .lines = lines({" file_path: /etc/hostname", " reason: To know", " it"}),
                .folder = "~"},
     "/u/me"},
};

class Tool : public testing::TestWithParam<ToolCase> {};

TEST_P(Tool, getsItsCard) {
  const Parsed input(GetParam().input);
  const Permission::Folders folders{.cwd = GetParam().cwd, .home = "/u/me"};
  EXPECT_EQ(Permission::parse(GetParam().tool, *input, folders), GetParam().card);
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, Tool, testing::ValuesIn(toolCases), named);

TEST(AgentPermission, inputThatIsNoObjectHasNoMembers) {
  for (const char* const text : {"null", "[]", "[\"command\"]", "\"command\"", "1", "true"}) {
    const Parsed input(text);
    EXPECT_EQ(Permission::parse("Bash", *input, {}), std::nullopt) << text;
    EXPECT_EQ(Permission::parse("Write", *input, {}), std::nullopt) << text;
    EXPECT_EQ(Permission::parse("T", *input, {}),
              (Permission{.action = Action::tool, .subject = "T"}))
        << text;
  }
}

/// Each member of each tool's input with a value of every JSON type: no type but the expected ones
/// shows in the card, and none of them is a failure.
TEST(AgentPermission, membersOfTheWrongTypeCountAsMissing) {
  const std::map<std::string, std::vector<std::string>> membersOfTools = {
      {"Bash", {"command", "chars", "description"}},
      {"write_stdin", {"command", "chars", "description"}},
      {"Edit", {"file_path", "notebook_path", "old_string", "new_string"}},
      {"MultiEdit", {"file_path", "notebook_path", "edits"}},
      {"NotebookEdit", {"file_path", "notebook_path", "new_source"}},
      {"Write", {"file_path", "notebook_path", "content"}},
      {"apply_patch", {"command", "input", "patch"}},
      {"WebFetch", {"url", "prompt"}},
      {"WebSearch", {"query"}}};
  const std::string rest = R"("chars":"c","file_path":"/p/f","url":"http://u","query":"q",)"
                           R"("patch":"*** Add File: a\n+x"})";
  for (const auto& [tool, members] : membersOfTools) {
    for (const auto& member : members) {
      auto without = rest;
      if (const auto at = without.find('"' + member + "\":"); at != std::string::npos) {
        without.insert(at + 1, "other_");
      }
      const Parsed missing("{" + without);
      const auto expected = Permission::parse(tool, *missing, {.cwd = "/p"});
      for (const char* const wrong : {"null", "true", "0", "1.5", "18446744073709551615", "{}",
                                      R"({"a":"b"})", "[1]", R"(["a",null])", R"([["a"]])"}) {
        const Parsed input("{\"" + member + "\":" + wrong + "," + without);
        EXPECT_EQ(Permission::parse(tool, *input, {.cwd = "/p"}), expected)
            << tool << " with " << wrong << " as " << member;
      }
    }
  }
}

struct PathCase {
  const char* name;
  std::string path;
  std::optional<std::string> cwd;
  std::string subject;
  std::string note;
};

const PathCase pathCases[] = {
    {"isSeenFromTheFolder", "/u/me/proj/src/a.c", "/u/me/proj", "a.c", "src/a.c"},
    {"isSeenFromAFolderWithASlash", "/u/me/proj/src/a.c", "/u/me/proj/", "a.c", "src/a.c"},
    {"isSeenFromTheRoot", "/etc/hosts", "/", "hosts", "etc/hosts"},
    {"isSeenFromAnEmptyFolder", "/etc/hosts", "", "hosts", "etc/hosts"},
    {"isNotInAFolderWhoseNameItBegins", "/u/me/project/a.c", "/u/me/proj", "a.c", "~/project/a.c"},
    {"isNotInAFolderWithOneSlashTooMany", "/p/a.c", "/p//", "a.c", "/p/a.c"},
    {"isTheFolderItself", "/p", "/p", "p", "/p"},
    {"isTheFolderItselfWithASlash", "/p/", "/p", "p", ""},
    {"isElsewhere", "/etc/hosts", "/u/me/proj", "hosts", "/etc/hosts"},
    {"isElsewhereAtHome", "/u/me/other/a.c", "/u/me/proj", "a.c", "~/other/a.c"},
    {"isTheHomeItself", "/u/me", "/p", "me", "~"},
    {"isTheHomeItselfWithASlash", "/u/me/", "/p", "me", "~/"},
    {"isNotInAHomeWhoseNameItBegins", "/u/mean/a.c", "/p", "a.c", "/u/mean/a.c"},
    {"isRelativeAlready", "src/a.c", "/p", "a.c", "src/a.c"},
    {"isInARelativeFolder", "src/a.c", "src", "a.c", "a.c"},
    {"withoutAFolderIsAbbreviated", "/u/me/a.c", std::nullopt, "a.c", "~/a.c"},
    {"withoutAFolderIsWhole", "/p/a.c", std::nullopt, "a.c", "/p/a.c"},
    {"isComparedByteForByte", "/P/a.c", "/p", "a.c", "/P/a.c"},
    {"isNotResolved", "/p/../a.c", "/p", "a.c", "../a.c"},
    {"endsInASlash", "/x/dir/", std::nullopt, "dir", "/x/dir/"},
    {"endsInSlashes", "/x/dir///", std::nullopt, "dir", "/x/dir///"},
    {"isTheRoot", "/", std::nullopt, "/", "/"},
    {"isSlashesOnly", "///", std::nullopt, "/", "///"},
    {"hasNoFolder", "a.c", std::nullopt, "a.c", "a.c"},
    {"hasNoFolderButASlash", "dir/", std::nullopt, "dir", "dir/"},
};

class Path : public testing::TestWithParam<PathCase> {};

TEST_P(Path, ofAFile) {
  const Parsed input(object({{"file_path", GetParam().path}, {"content", "x"}}));
  const auto card = Permission::parse("Write", *input, {.cwd = GetParam().cwd, .home = "/u/me"});
  ASSERT_TRUE(card);
  EXPECT_EQ(card->subject, GetParam().subject);
  EXPECT_EQ(card->note, GetParam().note);
}

TEST_P(Path, ofAPatch) {
  const Parsed input(object({{"patch", "*** Update File: " + GetParam().path + "\n+x\n"}}));
  const auto card =
      Permission::parse("apply_patch", *input, {.cwd = GetParam().cwd, .home = "/u/me"});
  ASSERT_TRUE(card);
  EXPECT_EQ(card->subject, GetParam().subject);
  EXPECT_EQ(card->note, GetParam().note);
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, Path, testing::ValuesIn(pathCases), named);

TEST(AgentPermission, knowsNoHomeButTheOneItIsGiven) {
  const Parsed input(R"({"file_path":"/u/me/a.c"})");
  const auto card = Permission::parse("Write", *input, {.cwd = "/u/me/x"});
  ASSERT_TRUE(card);
  EXPECT_EQ(card->note, "/u/me/a.c");
  EXPECT_EQ(card->folder, "/u/me/x");
}

struct PageCase {
  const char* name;
  std::string url;
  std::string subject;
};

const PageCase pageCases[] = {
    {"isHostAndPath", "https://example.org/a/b.html", "example.org/a/b.html"},
    {"isTheHostAlone", "https://example.org", "example.org"},
    {"losesTheSlashOfTheRoot", "https://example.org/", "example.org"},
    {"losesOneSlashAtTheEnd", "https://example.org/a//", "example.org/a/"},
    {"leavesThePortOut", "http://localhost:8080/x", "localhost/x"},
    {"leavesTheUserOut", "https://good.org@evil.org/login", "evil.org/login"},
    {"leavesTheQueryOut", "https://example.org/a?b=/c#d", "example.org/a"},
    {"leavesTheFragmentOut", "https://example.org/a#/b?c", "example.org/a"},
    {"keepsTheCase", "HTTPS://Example.ORG/A", "Example.ORG/A"},
    {"keepsPercentEscapes", "https://ex%61mple.org/a%2Fb%20c/%e9", "ex%61mple.org/a%2Fb%20c/%e9"},
    {"keepsAnEscapedSlashAtTheEnd", "https://example.org/a%2F", "example.org/a%2F"},
    {"hasAnIPv6Host", "http://[::1]:8080/x", "[::1]/x"},
    {"hasNoScheme", "//example.org/a", "example.org/a"},

    // No URL, or without a host: the raw text
    {"isNoURL", "not a URL", "not a URL"},
    {"hasNoHost", "mailto:me@example.org", "mailto:me@example.org"},
    {"isASlash", "/", "/"},
    {"hasASpace", "https://example.org/a b", "https://example.org/a b"},
    {"hasALineFeed", "https://example.org/\nx", "https://example.org/\nx"},
    {"hasANul", std::string("https://a\0.b/", 13), std::string("https://a\0.b/", 13)},
    {"hasABackslash", "https://good.org\\@evil.org/", "https://good.org\\@evil.org/"},
};

class Page : public testing::TestWithParam<PageCase> {};

TEST_P(Page, isTheSubject) {
  const Parsed input(object({{"url", GetParam().url}}));
  const auto card = Permission::parse("WebFetch", *input, {});
  ASSERT_TRUE(card);
  EXPECT_EQ(card->subject, GetParam().subject);
  EXPECT_EQ(card->lines, std::vector{Permission::Line{GetParam().url}});
  EXPECT_TRUE(card->complete);
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, Page, testing::ValuesIn(pageCases), named);

struct NameCase {
  const char* name;
  const char* tool;
  const char* subject;
};

const NameCase nameCases[] = {
    {"namesServerAndTool", "mcp__srv__tool", "srv · tool"},
    {"keepsFurtherSeparators", "mcp__files__read__all", "files · read__all"},
    {"keepsSeparatorsAtTheEnd", "mcp__files__read__", "files · read__"},
    {"keepsSingleUnderscores", "mcp__my_files__read_all", "my_files · read_all"},
    {"splitsThreeUnderscoresInFront", "mcp___files__read", "_files · read"},
    {"splitsThreeUnderscoresBehind", "mcp__files___read", "files · _read"},
    {"hasNoServer", "mcp____read", " · read"},
    {"hasNoServerAndNoTool", "mcp____", " · "},
    {"hasNoTool", "mcp__files__", "files · "},
    {"isTooShort", "mcp__x", "mcp__x"},
    {"isTooShortWithOneUnderscore", "mcp__x_y", "mcp__x_y"},
    {"isThePrefixAlone", "mcp__", "mcp__"},
    {"isAnotherPrefix", "MCP__files__read", "MCP__files__read"},
    {"isALongerPrefix", "xmcp__files__read", "xmcp__files__read"},
    {"isPlain", "Read", "Read"},
};

class Name : public testing::TestWithParam<NameCase> {};

TEST_P(Name, isTheSubject) {
  const Parsed input("{}");
  const auto card = Permission::parse(GetParam().tool, *input, {});
  EXPECT_EQ(card, (Permission{.action = Action::tool, .subject = GetParam().subject}));
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, Name, testing::ValuesIn(nameCases), named);

struct SentenceCase {
  const char* name;
  std::string text;
  std::optional<std::string> sentence;
};

const SentenceCase sentenceCases[] = {
    {"isALine", "Lists files", "Lists files"},
    {"isTrimmed", " \t\u00A0Lists files\u3000 ", "Lists files"},
    {"isTheFirstLine", "a\nb", "a"},
    {"isTheFirstLineThatIsNotEmpty", "\n\r\n\v\f\u0085\u2028\u2029a", "a"},
    {"endsAtACarriageReturn", "a\rb", "a"},
    {"endsAtAVerticalTab", "a\vb", "a"},
    {"endsAtAFormFeed", "a\fb", "a"},
    {"endsAtANextLine",
     "a\u0085"
     "b",
     "a"},
    {"endsAtALineSeparator", "a\u2028b", "a"},
    {"endsAtAParagraphSeparator", "a\u2029b", "a"},
    {"isAbsentWhenTheFirstLineIsBlank", "  \nfoo", std::nullopt},
    {"isAbsentWhenEmpty", "", std::nullopt},
    {"isAbsentWhenAllIsBlank", " \t\n ", std::nullopt},
    {"isAbsentWhenAllIsLineFeeds", "\n\n", std::nullopt},
    {"isNeverCut", std::string(5000, 'x'), std::string(5000, 'x')},
};

class Sentence : public testing::TestWithParam<SentenceCase> {};

TEST_P(Sentence, isTheFirstLineTrimmed) {
  const std::pair<const char*, const char*> explained[] = {
      {"Bash", "description"}, {"WebFetch", "prompt"}, {"T", "reason"}};
  for (const auto& [tool, key] : explained) {
    const Parsed input(object({{"command", "ls"}, {"url", "u"}, {key, GetParam().text}}));
    const auto card = Permission::parse(tool, *input, {});
    ASSERT_TRUE(card);
    EXPECT_EQ(card->note, GetParam().sentence) << tool;
  }
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, Sentence, testing::ValuesIn(sentenceCases), named);

TEST(AgentPermission, saysWhatTheUserAllows) {
  const std::map<Action, std::pair<std::string, std::string>> texts = {
      {Action::run, {"Run", "Wants to run a command"}},
      {Action::edit, {"Edit", "Wants to edit a file"}},
      {Action::write, {"Write", "Wants to write a file"}},
      {Action::fetch, {"Fetch", "Wants to fetch a page"}},
      {Action::search, {"Search", "Wants to search the web"}},
      {Action::tool, {"Use", "Wants to use a tool"}},
      {Action::ask, {"Answer", "Asks you a question"}},
      {Action::plan, {"Plan", "Wrote a plan and is ready to code"}}};
  EXPECT_EQ(texts.size(), wireNames(Action{}).size());
  for (const auto& [action, text] : texts) {
    EXPECT_EQ(verb(action), text.first);
    EXPECT_EQ(title(action), text.second);
  }
}

/// The published algorithm, for comparison.
std::uint64_t fnv1a(std::string_view bytes) {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char byte : bytes) {
    hash ^= static_cast<unsigned char>(byte);
    hash *= 0x100000001b3;
  }
  return hash;
}

std::string hexadecimal(std::uint64_t value) {
  std::string text;
  for (; value != 0; value >>= 4) text.insert(text.begin(), "0123456789abcdef"[value & 15]);
  return text;
}

TEST(Fingerprint, isComparedWithAHashThatMeetsThePublishedVectors) {
  EXPECT_EQ(fnv1a(""), 0xcbf29ce484222325);
  EXPECT_EQ(fnv1a("a"), 0xaf63dc4c8601ec8c);
  EXPECT_EQ(fnv1a("foobar"), 0x85944171f73967e8);
  EXPECT_EQ(fnv1a("chongo was here!\n"), 0x46810940eff5f915);
}

/// `written` is what gets hashed; `fingerprint` was calculated by another program from that.
struct FingerprintCase {
  const char* name;
  const char* tool;
  const char* input;
  const char* written;
  const char* fingerprint;
};

const FingerprintCase fingerprintCases[] = {
    {"escapesSlashes", "Bash", R"({"command":"ls /tmp"})", R"({"command":"ls \/tmp"})",
     "29bad62fecdf0813"},
    {"takesEscapedSlashes", "Bash", R"({"command":"ls \/tmp"})", R"({"command":"ls \/tmp"})",
     "29bad62fecdf0813"},
    {"escapesSlashesInKeys", "T", R"({"a/b":"/"})", R"({"a\/b":"\/"})", "e2055966494bd3f6"},
    {"keepsOtherAlphabets", "Bash", R"({"command":"echo é 漢 😀","description":"é"})",
     R"({"command":"echo é 漢 😀","description":"é"})", "841a3ce96ccf6b6e"},
    {"resolvesEscapesOfOtherAlphabets", "Bash",
     R"({"description":"\u00e9","command":"echo \u00E9 \u6f22 \ud83d\ude00"})",
     R"({"command":"echo é 漢 😀","description":"é"})", "841a3ce96ccf6b6e"},
    {"sortsKeysAtEveryLevel", "mcp__a__b",
     R"({ "b" : {"z":1, "a":[ true, null, 2.5 ]}, "a" : "x" })",
     R"({"a":"x","b":{"a":[true,null,2.5],"z":1}})", "c2d7569f83efcef9"},
    {"sortsKeysByTheirBytes", "T", R"({"😀":5,"漢":4,"é":3,"a":2,"Z":1})",
     R"({"Z":1,"a":2,"é":3,"漢":4,"😀":5})", "d4427f63a901cac0"},
    {"escapesControls", "T", R"({"k":"\u0022\\\b\f\n\r\t\u0001\u001F\u007f\u2028"})",
     "{\"k\":\"\\\"\\\\\\b\\f\\n\\r\\t\\u0001\\u001f\x7F\u2028\"}", "93d87fa70ea073db"},
    {"writesNumbersInOneWay", "T",
     R"({"n":[1.0,1e3,1e-1,-9223372036854775808,18446744073709551615,-5E-1]})",
     R"({"n":[1,1000,0.1,-9223372036854775808,18446744073709551615,-0.5]})", "b5f50facb65333e7"},
    {"takesLists", "T", R"([1,"a/b"])", R"([1,"a\/b"])", "8a93c418967eeaf2"},
    {"takesAnEmptyObject", "", "{}", "{}", "d884b5186b651423"},
    {"takesToolsOfOtherAlphabets", "Werkzeug é", "{}", "{}", "8e276af37095389f"},
    {"hasNoLeadingZero", "T", R"({"n":0})", R"({"n":0})", "be861f79a9755b1"},
    {"hasNoLeadingZeros", "T", R"({"n":950})", R"({"n":950})", "dd4538addb9adb"},
    {"ofAQuestionIsThatOfTheQuestions", "AskUserQuestion",
     R"({"questions":[{"question":"A?"}],"answers":{"A?":"b"}})",
     R"({"questions":[{"question":"A?"}]})", "92a62a15e131d28e"},
    {"ofAQuestionIgnoresWhatElseThereIs", "AskUserQuestion",
     R"({"metadata":1,"questions":[{"question":"A?"}]})", R"({"questions":[{"question":"A?"}]})",
     "92a62a15e131d28e"},
    {"ofNoQuestionsIsThatOfAnEmptyList", "AskUserQuestion", R"({"x":1})", R"({"questions":[]})",
     "7d61573dc5e2771e"},
    {"ofQuestionsThatAreNoListIsTheirOwn", "AskUserQuestion", R"({"questions":null})",
     R"({"questions":null})", "2f2a798771c16a69"},
    {"ofAPlanIsAlwaysTheSame", "ExitPlanMode", R"({"plan":"x"})", "{}", "381b952156b7fe47"},
    {"ofAnotherPlanIsTheSame", "ExitPlanMode", R"({"plan":"y","z":[1]})", "{}", "381b952156b7fe47"},
    {"ofAPlanThatIsAList", "ExitPlanMode", "[]", "{}", "381b952156b7fe47"},
    {"ofAPlanThatIsAText", "ExitPlanMode", "\"x\"", "{}", "381b952156b7fe47"},
    {"ofAPlanThatIsNull", "ExitPlanMode", "null", "{}", "381b952156b7fe47"},
};

class Fingerprint : public testing::TestWithParam<FingerprintCase> {};

TEST_P(Fingerprint, isTheHashOfNameAndInput) {
  const auto& row = GetParam();
  const Parsed input(row.input);
  EXPECT_EQ(Permission::fingerprint(row.tool, input.get()), row.fingerprint);
  EXPECT_EQ(hexadecimal(fnv1a(std::string(row.tool) + '\0' + row.written)), row.fingerprint);
}

INSTANTIATE_TEST_SUITE_P(AgentPermission, Fingerprint, testing::ValuesIn(fingerprintCases), named);

TEST(Fingerprint, isAbsentWithoutInput) {
  for (const char* const tool : {"Bash", "AskUserQuestion", "ExitPlanMode", ""}) {
    EXPECT_EQ(Permission::fingerprint(tool, nullptr), std::nullopt) << tool;
  }
}

TEST(Fingerprint, isAbsentForInputThatIsNoDocument) {
  for (const char* const text : {"null", "true", "1", "2.5", "\"x\""}) {
    const Parsed input(text);
    EXPECT_EQ(Permission::fingerprint("Bash", input.get()), std::nullopt) << text;
    EXPECT_EQ(Permission::fingerprint("AskUserQuestion", input.get()), std::nullopt) << text;
  }
  const Parsed list("[]");
  EXPECT_EQ(Permission::fingerprint("AskUserQuestion", list.get()), std::nullopt);
}

/// Pieces of every length reach the hash, in every alignment.
TEST(Fingerprint, takesTextsOfEveryLength) {
  std::string text;
  for (std::size_t length = 0; length < 200; ++length) {
    const Parsed input(object({{"k", text}}));
    EXPECT_EQ(Permission::fingerprint("T", input.get()),
              hexadecimal(fnv1a(std::string("T\0{\"k\":\"", 8) + text + "\"}")))
        << length;
    text += static_cast<char>('a' + length % 26);
  }
}

TEST(Fingerprint, tellsToolsAndInputsApart) {
  const Parsed first(R"({"a":"bc"})");
  const Parsed second(R"({"ab":"c"})");
  const auto fingerprint = Permission::fingerprint("T", first.get());
  EXPECT_NE(fingerprint, Permission::fingerprint("T", second.get()));
  EXPECT_NE(fingerprint, Permission::fingerprint("t", first.get()));
}

}  // namespace
}  // namespace CorvaneControl
