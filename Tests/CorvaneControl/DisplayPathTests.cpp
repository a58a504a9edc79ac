#include "CorvaneControl/DisplayPath.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

namespace CorvaneControl::DisplayPath {
namespace {

struct HomeCase {
  const char* name;
  std::optional<std::string_view> home;
  std::string_view path;
  std::string_view shown;
};

const HomeCase homeCases[] = {
    {"theHome", "/u/me", "/u/me", "~"},
    {"theHomeWithASlash", "/u/me", "/u/me/", "~/"},
    {"aPathInTheHome", "/u/me", "/u/me/x", "~/x"},
    {"aPathWithTwoSlashesBehindTheHome", "/u/me", "/u/me//x", "~//x"},
    {"aLongerName", "/u/me", "/u/men", "/u/men"},
    {"aShorterName", "/u/me", "/u/m", "/u/m"},
    {"aFolderAboveTheHome", "/u/me", "/u", "/u"},
    {"aPathThatHoldsTheHome", "/u/me", "/x/u/me", "/x/u/me"},
    {"aRelativePath", "/u/me", "u/me", "u/me"},
    {"aTilde", "/u/me", "~", "~"},
    {"nothing", "/u/me", "", ""},
    {"aPathWithAnotherCase", "/u/me", "/U/me/x", "/U/me/x"},
    {"aPathWithASlashTooMany", "/u/me", "/u//me/x", "/u//me/x"},

    {"theHomeThatEndsInASlash", "/u/me/", "/u/me", "~"},
    {"theHomeThatEndsInASlashWithASlash", "/u/me/", "/u/me/", "~/"},
    {"aPathInAHomeThatEndsInASlash", "/u/me/", "/u/me/x", "~/x"},
    {"aPathInAHomeThatEndsInSlashes", "/u/me///", "/u/me/x", "~/x"},
    {"aLongerNameThanAHomeThatEndsInASlash", "/u/me/", "/u/men", "/u/men"},
    {"aPathInAHomeWithADoubledSlash", "/u//me", "/u/me/x", "~/x"},
    {"aPathInAHomeWithADoubledSlashAsItIsWritten", "/u//me", "/u//me/x", "~/x"},
    {"aPathInAHomeWithSlashesEverywhere", "//u///me//", "/u/me/x", "~/x"},
    {"aLongerNameThanAHomeWithADoubledSlash", "/u//me", "/u/men", "/u/men"},
    {"aPathWithoutTheSlashOfAHomeWithADoubledOne", "/u//me", "/ume/x", "/ume/x"},

    {"theRootAsTheHome", "/", "/", "~"},
    {"aPathInTheRoot", "/", "/x", "/x"},
    {"aPathInTheRootWrittenTwice", "//", "/x", "/x"},
    {"theRootWrittenTwice", "//", "/", "~"},
    {"aPathWithAnEmptyHome", "", "/x", "/x"},
    {"nothingWithAnEmptyHome", "", "", ""},
    {"aPathWithoutAHome", std::nullopt, "/u/me/x", "/u/me/x"},
};

class Abbreviated : public testing::TestWithParam<HomeCase> {};

TEST_P(Abbreviated, writesTheHomeFolderAsATilde) {
  EXPECT_EQ(abbreviated(GetParam().path, GetParam().home), GetParam().shown);
}

INSTANTIATE_TEST_SUITE_P(DisplayPath, Abbreviated, testing::ValuesIn(homeCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(DisplayPath, isSeenFromTheFolderBeforeTheHome) {
  EXPECT_EQ(relative("/u/me/p/a", "/u/me/p", "/u/me"), "a");
  EXPECT_EQ(relative("/u/me/p/a", "/u/me/p/", "/u/me"), "a");
  EXPECT_EQ(relative("/u/me/p/a", "/u/me/q", "/u/me/"), "~/p/a");
  EXPECT_EQ(relative("/u/me/p/a", std::nullopt, std::nullopt), "/u/me/p/a");
}

TEST(DisplayPath, endsInAName) {
  EXPECT_EQ(lastComponent("/a/b.c"), "b.c");
  EXPECT_EQ(lastComponent("b.c"), "b.c");
  EXPECT_EQ(lastComponent("/a/b//"), "b");
  EXPECT_EQ(lastComponent("//"), "/");
  EXPECT_EQ(lastComponent(""), "");
}

TEST(DisplayPath, aPathThatBeginsLikeTheFolderIsNotInIt) {
  EXPECT_EQ(relative("/p/app-2/a", "/p/app", std::nullopt), "/p/app-2/a");
  EXPECT_EQ(relative("/p/application", "/p/app", "/p"), "~/application");
}

}  // namespace
}  // namespace CorvaneControl::DisplayPath
