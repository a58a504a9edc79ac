#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "Documentation/Pages.h"

// What stands for packagers and for a forge can't be run here; what it names can be looked for.
namespace {

const std::filesystem::path root = CORVANE_SOURCE_DIR;

constexpr std::string_view formula = "Packaging/homebrew/corvane.rb";

bool hasLine(const std::string& page, std::string_view line) {
  const auto lines = CorvaneTests::linesOf(CorvaneTests::page(page));
  return std::ranges::any_of(lines, [&](std::string_view each) {
    const std::size_t begin = each.find_first_not_of(' ');
    return begin != std::string_view::npos && each.substr(begin).starts_with(line);
  });
}

/// The text between `open` and the next `close` of a page.
std::string partOf(const std::string& path, std::string_view open, std::string_view close) {
  const std::string text = CorvaneTests::page(path);
  const std::size_t begin = text.find(open);
  if (begin == std::string::npos) return {};
  const std::size_t start = begin + open.size();
  return text.substr(start, text.find(close, start) - start);
}

std::vector<std::string> wordsOf(std::string_view text) {
  std::vector<std::string> words;
  constexpr std::string_view blanks = " \n\"'";
  for (std::size_t begin = text.find_first_not_of(blanks); begin != std::string_view::npos;) {
    const std::size_t end = std::min(text.find_first_of(blanks, begin), text.size());
    words.emplace_back(text.substr(begin, end - begin));
    begin = text.find_first_not_of(blanks, end);
  }
  return words;
}

TEST(HomebrewFormula, isOfThisVersion) {
  EXPECT_TRUE(
      hasLine(std::string(formula), "url \"#{address}/corvane-" CORVANE_VERSION ".tar.gz\""));
}

TEST(HomebrewFormula, dependsOnWhatScriptsBootstrapInstallsForThePrograms) {
  const auto formulae = wordsOf(partOf("Scripts/bootstrap", "brew_formulae=(", ")"));
  EXPECT_GE(formulae.size(), 5U);
  for (const std::string& name : formulae) {
    EXPECT_TRUE(hasLine(std::string(formula), "depends_on \"" + name + "\"")) << name;
  }
}

TEST(Workflows, runScriptsAndPresetsThatAreThere) {
  const std::string presets = CorvaneTests::page("CMakePresets.json");
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(root / ".github/workflows")) {
    const std::string path = entry.path().lexically_relative(root).string();
    const std::vector<std::string> words = wordsOf(CorvaneTests::page(path));
    for (std::size_t index = 0; index + 1 < words.size(); ++index) {
      const std::string& word = words[index];
      if (word.starts_with("Scripts/")) {
        ++count;
        EXPECT_TRUE(std::filesystem::exists(root / word)) << path << ": " << word;
      } else if (word == "--preset") {
        ++count;
        const std::string named = "\"name\": \"" + words[index + 1] + "\"";
        EXPECT_NE(presets.find(named), std::string::npos) << path << ": " << words[index + 1];
      }
    }
  }
  EXPECT_GE(count, 10U);
}

}  // namespace
