#include "corvane-headless/WorkspacesFile.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "Support/TemporaryFolder.h"

namespace CorvaneControl::Headless {
namespace {

const std::optional<std::string> home = "/home/ada";

auto parsed(const std::string& text) { return WorkspacesFile::parse(text, "w.json", home); }

TEST(WorkspacesFile, needsNoMoreThanNames) {
  const auto workspaces = parsed(R"([{"name": "Mail"}])");
  ASSERT_TRUE(workspaces) << workspaces.failure().description;
  ASSERT_EQ(workspaces->size(), 1U);
  const WorkspaceSummary& mail = workspaces->front();
  EXPECT_EQ(mail.name, "Mail");
  EXPECT_EQ(mail.section, "Workspaces");
  EXPECT_EQ(mail.windows, 0);
  EXPECT_FALSE(mail.active);
  EXPECT_FALSE(mail.shortcut || mail.project || mail.attention);
}

TEST(WorkspacesFile, readsEveryKey) {
  const auto workspaces = parsed(R"([{
    "id": "11111111-2222-3333-4444-55555555abcd", "name": "Site", "section": "Work",
    "active": true, "shortcut": "⌥1", "windows": 3, "project": "~/Projects/site",
    "attention": {"agent": "claude", "kind": "done", "since": "2026-11-20T10:00:00Z"}}])");
  ASSERT_TRUE(workspaces) << workspaces.failure().description;
  const WorkspaceSummary expected{
      .id = *UUID::parse("11111111-2222-3333-4444-55555555ABCD"),
      .name = "Site",
      .section = "Work",
      .active = true,
      .shortcut = "⌥1",
      .windows = 3,
      .project = "/home/ada/Projects/site",
      .attention = Attention{.agent = "claude",
                             .kind = AttentionKind::done,
                             .since = *Date::parse("2026-11-20T10:00:00Z")}};
  EXPECT_EQ(*workspaces, std::vector{expected});
}

TEST(WorkspacesFile, takesNullForAbsent) {
  EXPECT_TRUE(parsed(R"([{"name": "Mail", "id": null, "section": null, "active": null,
    "shortcut": null, "windows": null, "project": null, "attention": null}])"));
}

TEST(WorkspacesFile, acceptsNoWorkspaces) {
  const auto workspaces = parsed("[]");
  ASSERT_TRUE(workspaces);
  EXPECT_TRUE(workspaces->empty());
}

TEST(WorkspacesFile, acceptsWhatListPrints) {
  ControlResponse response;
  response.ok = true;
  response.workspaces = WorkspacesFile::sample(home);
  const auto again = parsed(ControlCoding::line(response));
  ASSERT_TRUE(again) << again.failure().description;
  EXPECT_EQ(*again, *response.workspaces);
}

TEST(WorkspacesFile, givesANameTheSameIdentifierEachTime) {
  const auto first = parsed(R"([{"name": "Mail"}, {"name": "Site"}])");
  const auto second = parsed(R"([{"name": "Site", "windows": 2}])");
  ASSERT_TRUE(first && second);
  EXPECT_EQ((*first)[1].id, (*second)[0].id);
  EXPECT_NE((*first)[0].id, (*first)[1].id);
  const std::string text = (*first)[0].id.text();
  EXPECT_EQ(text[14], '8') << text;
  EXPECT_NE(std::string("89AB").find(text[19]), std::string::npos) << text;
}

TEST(WorkspacesFile, hasASampleWithOneActiveWorkspace) {
  const auto sample = WorkspacesFile::sample(home);
  ASSERT_EQ(sample.size(), 4U);
  EXPECT_EQ(sample[0].name, "Site");
  EXPECT_TRUE(sample[0].active);
  EXPECT_EQ(sample[0].project, "/home/ada/Projects/site");
  EXPECT_EQ(WorkspacesFile::sample(std::nullopt).size(), 4U) << "also without a home folder";
}

struct BadFileCase {
  const char* name;
  std::string text;
  std::string problem;
};

const BadFileCase badFileCases[] = {
    {"anObject", R"({"name": "Mail"})", "w.json: not an array of workspaces"},
    {"aWrongList", R"({"workspaces": 3})", "w.json: not an array of workspaces"},
    {"aText", R"("Mail")", "w.json: not an array of workspaces"},
    {"anElementThatIsNoObject", R"([{"name": "Mail"}, "Site"])", "w.json: [1]: not an object"},
    {"anElementInAnObject", R"({"workspaces": [1]})", "w.json: workspaces[0]: not an object"},
    {"noName", R"([{"windows": 1}])", "w.json: [0].name: missing"},
    {"anEmptyName", R"([{"name": ""}])", "w.json: [0].name: empty"},
    {"aBlankName", R"([{"name": "  "}])", "w.json: [0].name: empty"},
    {"aNameThatIsNoText", R"([{"name": 3}])", "w.json: [0].name: not a string"},
    {"aNameOfTwoLines", R"([{"name": "a\nb"}])",
     "w.json: [0].name: holds a character that can't be shown"},
    {"aNameThatTurnsRound", R"([{"name": "a\u202Eb"}])",
     "w.json: [0].name: holds a character that can't be shown"},
    {"aWrongSection", R"([{"name": "a", "section": []}])", "w.json: [0].section: not a string"},
    {"aWrongShortcut", R"([{"name": "a", "shortcut": 1}])", "w.json: [0].shortcut: not a string"},
    {"wrongWindows", R"([{"name": "a", "windows": "3"}])",
     "w.json: [0].windows: not a whole number from 0 to 1000000"},
    {"negativeWindows", R"([{"name": "a", "windows": -1}])",
     "w.json: [0].windows: not a whole number from 0 to 1000000"},
    {"halfAWindow", R"([{"name": "a", "windows": 0.5}])",
     "w.json: [0].windows: not a whole number from 0 to 1000000"},
    {"tooManyWindows", R"([{"name": "a", "windows": 1000001}])",
     "w.json: [0].windows: not a whole number from 0 to 1000000"},
    {"aWrongActive", R"([{"name": "a", "active": 1}])",
     "w.json: [0].active: neither true nor false"},
    {"twoActive", R"([{"name": "a", "active": true}, {"name": "b", "active": true}])",
     "w.json: [1].active: [0] is active already"},
    {"aNameTwice", R"([{"name": "a"}, {"name": "b"}, {"name": "a"}])",
     "w.json: [2].name: the same as that of [0]"},
    {"aWrongIdentifier", R"([{"name": "a", "id": "7"}])", "w.json: [0].id: not a UUID"},
    {"anIdentifierTwice",
     R"([{"name": "a", "id": "11111111-2222-3333-4444-555555555555"},
         {"name": "b", "id": "11111111-2222-3333-4444-555555555555"}])",
     "w.json: [1].id: the same as that of [0]"},
    {"aRelativeProject", R"([{"name": "a", "project": "site"}])",
     "w.json: [0].project: not an absolute path (it may begin with \"~\")"},
    {"anotherUsersHome", R"([{"name": "a", "project": "~bob/site"}])",
     "w.json: [0].project: not an absolute path (it may begin with \"~\")"},
    {"aWrongMark", R"([{"name": "a", "attention": {"agent": "x"}}])",
     "w.json: [0].attention: kind: missing"},
    {"aMisspelledKey", R"([{"name": "a", "windws": 2}])",
     "w.json: [0].windws: no such key; a workspace has name, section, shortcut, windows, active, "
     "project, id and attention"},
};

class BadWorkspacesFile : public testing::TestWithParam<BadFileCase> {};
TEST_P(BadWorkspacesFile, isRefusedWithItsPlace) {
  const auto workspaces = parsed(GetParam().text);
  ASSERT_FALSE(workspaces);
  EXPECT_EQ(workspaces.failure().description, GetParam().problem);
}
INSTANTIATE_TEST_SUITE_P(Headless, BadWorkspacesFile, testing::ValuesIn(badFileCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(WorkspacesFile, namesTheLineOfWhatIsNoJSON) {
  const auto lineOf = [](const std::string& text) {
    const auto workspaces = parsed(text);
    EXPECT_FALSE(workspaces);
    const std::string description = workspaces ? "" : workspaces.failure().description;
    return description.substr(0, description.find(" not JSON: "));
  };
  EXPECT_EQ(lineOf(""), "w.json:1:");
  EXPECT_EQ(lineOf("[\n  {\"name\": \"a\"},\n  {\"name\": \"b\",}\n]"), "w.json:3:");
  EXPECT_EQ(lineOf("[{\"name\": \"a\\n\\n\\n\"},\n\nx]"), "w.json:3:")
      << "an escape is no line feed";
  EXPECT_EQ(lineOf("[\n]\n\nx"), "w.json:4:");
}

TEST(WorkspacesFile, refusesEveryBeginningOfAGoodFile) {
  const std::string text = R"([{"name": "Site", "windows": 3, "active": true}, {"name": "é"}])";
  ASSERT_TRUE(parsed(text));
  for (std::size_t size = 0; size < text.size(); ++size) {
    EXPECT_FALSE(parsed(text.substr(0, size))) << text.substr(0, size);
  }
}

TEST(WorkspacesFile, refusesATildeWithoutAHome) {
  const auto workspaces =
      WorkspacesFile::parse(R"([{"name": "a", "project": "~"}])", "w.json", std::nullopt);
  ASSERT_FALSE(workspaces);
  EXPECT_EQ(workspaces.failure().description,
            "w.json: [0].project: begins with \"~\", but there is no home folder");
}

TEST(WorkspacesFile, makesItsNameVisible) {
  const auto workspaces = WorkspacesFile::parse("3", "a\x1b.json", home);
  ASSERT_FALSE(workspaces);
  EXPECT_EQ(workspaces.failure().description, "a\\u{1B}.json: not an array of workspaces");
}

TEST(WorkspacesFile, staysQuickWithManyWorkspaces) {
  std::string text = "[";
  for (int number = 0; number < 50'000; ++number) {
    text +=
        (number == 0 ? "" : ",") + std::string("{\"name\":\"w") + std::to_string(number) + "\"}";
  }
  const auto workspaces = parsed(text + "]");
  ASSERT_TRUE(workspaces);
  EXPECT_EQ(workspaces->size(), 50'000U);
}

TEST(WorkspacesFile, isReadFromDisk) {
  const CorvaneTests::TemporaryFolder folder;
  const auto workspaces =
      WorkspacesFile::read(folder.write("w.json", "\xEF\xBB\xBF[{\"name\": \"Mail\"}]"), home);
  ASSERT_TRUE(workspaces) << workspaces.failure().description;
  EXPECT_EQ(workspaces->front().name, "Mail");
}

TEST(WorkspacesFile, tellsWhyItCannotBeRead) {
  const CorvaneTests::TemporaryFolder folder;
  const auto problem = [](const std::string& path) {
    const auto workspaces = WorkspacesFile::read(path, home);
    return workspaces ? "none" : workspaces.failure().description;
  };
  EXPECT_EQ(problem(folder.path("none")), folder.path("none") + ": No such file or directory");
  EXPECT_EQ(problem(folder.path()), folder.path() + ": Is a directory");
  const std::string large = folder.write("large", std::string((16U << 20U) + 1, ' '));
  EXPECT_EQ(problem(large), large + ": larger than 16 MiB");
}

TEST(WorkspacesFile, takesTheMostWindowsAndNoMore) {
  const auto most = parsed(R"([{"name": "Mail", "windows": 1000000}])");
  ASSERT_TRUE(most) << most.failure().description;
  EXPECT_EQ(most->front().windows, 1'000'000);
  EXPECT_FALSE(parsed(R"([{"name": "Mail", "windows": 1000001}])"));
}

TEST(WorkspacesFile, readsAFileOfTheLargestSize) {
  const CorvaneTests::TemporaryFolder folder;
  std::string text = R"([{"name": "Mail"}])";
  text.resize(16U << 20U, ' ');
  const auto workspaces = WorkspacesFile::read(folder.write("largest", text), home);
  ASSERT_TRUE(workspaces) << workspaces.failure().description;
  EXPECT_EQ(workspaces->size(), 1U);
}

}  // namespace
}  // namespace CorvaneControl::Headless
