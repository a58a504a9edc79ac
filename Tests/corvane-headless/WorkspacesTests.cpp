#include "corvane-headless/Workspaces.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace CorvaneControl::Headless {
namespace {

std::vector<WorkspaceSummary> named(const std::vector<std::string>& names) {
  std::vector<WorkspaceSummary> all;
  for (const std::string& name : names) all.push_back({.name = name});
  return all;
}

Workspaces fourWorkspaces() {
  auto all = named({"Site", "Store", "Mail", "Notes"});
  all[0].active = true;
  all[0].windows = 3;
  all[1].windows = 2;
  return Workspaces(std::move(all));
}

/// What `find` answers: the name of the workspace, or the refusal.
std::string found(const Workspaces& workspaces, std::string_view name) {
  const auto position = workspaces.find(name);
  return position ? workspaces[*position].name : position.failure().message;
}

struct FindCase {
  const char* name;
  std::vector<std::string> names;
  std::string wanted;
  std::string answer;
};

const FindCase findCases[] = {
    {"anExactName", {"Mail", "Site"}, "Site", "Site"},
    {"anExactNameThatBeginsAnother", {"Site 2", "Site"}, "Site", "Site"},
    {"aStart", {"Mail", "Site"}, "Si", "Site"},
    {"aStartInAnotherCase", {"Mail", "Site"}, "sI", "Site"},
    {"aStartOfAnotherScript", {"ÉTUDES", "Mail"}, "ét", "ÉTUDES"},
    {"noMiddle", {"Mail"}, "ail", "No workspace is called \"ail\". There is Mail."},
    {"noUnknownName",
     {"Mail", "Site", "Notes"},
     "x",
     "No workspace is called \"x\". There are Mail, Site and Notes."},
    {"noAmbiguousStart", {"Site", "Mail", "Store"}, "s", "\"s\" could be Site or Store."},
    {"noAmbiguousStartOfThree", {"Sa", "Sb", "Sc"}, "S", "\"S\" could be Sa, Sb or Sc."},
    {"noNameInAnotherCaseThatBeginsAnother",
     {"Site", "Site 2"},
     "site",
     "\"site\" could be Site or Site 2."},
    {"noEmptyName", {"Mail"}, "", "Which workspace? There is Mail."},
    {"nothingAmongNone", {}, "Mail", "No workspace is called \"Mail\". There are none."},
    {"noPreviousOneYet", {"Mail"}, "-", "There is no previous workspace yet."},
    {"aWorkspaceCalledMinus", {"Mail", "-"}, "-", "-"},
    {"nothingThatDrivesATerminal",
     {"Mail"},
     "\x1b[2J",
     "No workspace is called \"\\u{1B}[2J\". There is Mail."},
};

class WorkspacesFind : public testing::TestWithParam<FindCase> {};
TEST_P(WorkspacesFind, finds) {
  const Workspaces workspaces(named(GetParam().names));
  EXPECT_EQ(found(workspaces, GetParam().wanted), GetParam().answer);
}
INSTANTIATE_TEST_SUITE_P(Headless, WorkspacesFind, testing::ValuesIn(findCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(Workspaces, listsTwentyCandidatesAtMost) {
  std::vector<std::string> names;
  for (int number = 10; number < 32; ++number) names.push_back("W" + std::to_string(number));
  EXPECT_EQ(found(Workspaces(named(names)), "w"),
            "\"w\" could be W10, W11, W12, W13, W14, W15, W16, W17, W18, W19, W20, W21, W22, W23, "
            "W24, W25, W26, W27, W28, W29 and 2 more.");
}

TEST(Workspaces, repeatsOnlyTheStartOfALongName) {
  const std::string message = found(fourWorkspaces(), std::string(1'000'000, 'x'));
  EXPECT_LT(message.size(), 300U);
}

TEST(Workspaces, switchAndRememberThePreviousOne) {
  Workspaces workspaces = fourWorkspaces();
  EXPECT_EQ(workspaces.current(), 0U);
  EXPECT_TRUE(workspaces.switchTo(2));
  EXPECT_EQ(workspaces.current(), 2U);
  EXPECT_FALSE(workspaces[0].active);
  EXPECT_TRUE(workspaces[2].active);
  EXPECT_EQ(found(workspaces, "-"), "Site");
  EXPECT_TRUE(workspaces.switchTo(0));
  EXPECT_EQ(found(workspaces, "-"), "Mail");
}

TEST(Workspaces, keepThePreviousOneWhenNothingChanges) {
  Workspaces workspaces = fourWorkspaces();
  workspaces.switchTo(1);
  EXPECT_FALSE(workspaces.switchTo(1));
  EXPECT_EQ(found(workspaces, "-"), "Site");
}

TEST(Workspaces, haveNoPreviousOneAfterTheFirstSwitchFromNone) {
  Workspaces workspaces(named({"Mail"}));
  EXPECT_EQ(workspaces.current(), std::nullopt);
  EXPECT_TRUE(workspaces.switchTo(0));
  EXPECT_EQ(found(workspaces, "-"), "There is no previous workspace yet.");
}

TEST(Workspaces, openAgainWhatWasStopped) {
  Workspaces workspaces = fourWorkspaces();
  EXPECT_EQ(workspaces.stop(0), 3);
  EXPECT_EQ(workspaces[0].windows, 0);
  EXPECT_EQ(workspaces.stop(0), 0) << "nothing is left to close";
  EXPECT_EQ(workspaces.launch(0), 0);
  EXPECT_EQ(workspaces[0].windows, 3);
  EXPECT_EQ(workspaces.launch(0), 3);
  EXPECT_EQ(workspaces[0].windows, 4);
}

TEST(Workspaces, openOneWindowAtLeast) {
  Workspaces workspaces = fourWorkspaces();
  EXPECT_EQ(workspaces.launch(3), 0);
  EXPECT_EQ(workspaces[3].windows, 1);
}

struct HoldingCase {
  const char* name;
  std::vector<std::string> projects;  // "" for none
  std::string folder;
  std::optional<std::size_t> position;
};

const HoldingCase holdingCases[] = {
    {"theFolderItself", {"/a/site"}, "/a/site", 0},
    {"aFolderInside", {"/a/site"}, "/a/site/src/x", 0},
    {"notAFolderThatBeginsAlike", {"/a/site"}, "/a/site-2", std::nullopt},
    {"notTheFolderAbove", {"/a/site"}, "/a", std::nullopt},
    {"theDeepest", {"/a", "/a/b/c", "/a/b"}, "/a/b/c/d", 1},
    {"theDeepestThatContainsIt", {"/a", "/a/b/c", "/a/b"}, "/a/b/x", 2},
    {"theFirstOfEquals", {"/a/b", "/a/b"}, "/a/b", 0},
    {"theRoot", {"/"}, "/anywhere", 0},
    {"theRootItself", {"/"}, "/", 0},
    {"whatEndsInASlash", {"/a/site/"}, "/a/site", 0},
    {"aFolderThatEndsInASlash", {"/a/site"}, "/a/site//", 0},
    {"noFolderThatLeavesItAgain", {"/a/site"}, "/a/site/../other", std::nullopt},
    {"aFolderThatComesBack", {"/a/site"}, "/a/other/./../site", 0},
    {"noWorkspaceWithoutAProject", {""}, "/a", std::nullopt},
    {"noRelativeFolder", {"/a"}, "a", std::nullopt},
    {"noEmptyFolder", {"/"}, "", std::nullopt},
    {"noOtherCase", {"/a/Site"}, "/a/site", std::nullopt},
};

class WorkspacesHolding : public testing::TestWithParam<HoldingCase> {};
TEST_P(WorkspacesHolding, contains) {
  std::vector<WorkspaceSummary> all;
  for (const std::string& project : GetParam().projects) {
    WorkspaceSummary& workspace = all.emplace_back();
    workspace.name = std::to_string(all.size());
    if (!project.empty()) workspace.project = project;
  }
  EXPECT_EQ(Workspaces(std::move(all)).holding(GetParam().folder), GetParam().position);
}
INSTANTIATE_TEST_SUITE_P(Headless, WorkspacesHolding, testing::ValuesIn(holdingCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(Workspaces, keepAMarkUntilItIsCleared) {
  Workspaces workspaces = fourWorkspaces();
  EXPECT_FALSE(workspaces.clearMark(1));
  workspaces.mark(1, {.agent = "claude"});
  workspaces.mark(1, {.agent = "codex"});
  ASSERT_TRUE(workspaces[1].attention);
  EXPECT_EQ(workspaces[1].attention->agent, "codex");
  EXPECT_TRUE(workspaces.clearMark(1));
  EXPECT_FALSE(workspaces[1].attention);
}

TEST(Workspaces, switchingToTheCurrentOneMakesNoneThePrevious) {
  Workspaces workspaces = fourWorkspaces();
  EXPECT_FALSE(workspaces.switchTo(0));
  EXPECT_EQ(found(workspaces, "-"), "There is no previous workspace yet.");
}

TEST(Workspaces, aPathMayLeadBackToTheRoot) {
  EXPECT_EQ(normalizedPath("/a/.."), "/");
  EXPECT_EQ(normalizedPath("/a/../../b"), "/b");
}

}  // namespace
}  // namespace CorvaneControl::Headless
