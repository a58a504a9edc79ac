#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CorvaneControl/Platform/Text.h"
#include "Documentation/Pages.h"

namespace {

using CorvaneTests::Markdown;

const std::filesystem::path root = CORVANE_SOURCE_DIR;

/// The Markdown pages of the repository, by their paths in it.
std::vector<std::string> pages() {
  std::vector<std::string> paths{"README.md", "CONTRIBUTING.md", "CHANGELOG.md"};
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root / "Documentation")) {
    if (entry.path().extension() == ".md") {
      paths.push_back(entry.path().lexically_relative(root).string());
    }
  }
  return paths;
}

/// What a heading is linked by: "#where-the-socket-is" of "## Where the socket is".
std::string anchorOf(std::string_view heading) {
  std::string anchor = "#";
  for (const char character : heading.substr(heading.find_first_not_of("# "))) {
    const char small = CorvaneControl::Text::lowercasedASCII({&character, 1}).front();
    const bool isKept = (small >= 'a' && small <= 'z') || (small >= '0' && small <= '9') ||
                        small == '-' || small == '_';
    if (small == ' ') anchor += '-';
    if (isKept) anchor += small;
  }
  return anchor;
}

bool hasAnchor(const std::string& page, const std::string& anchor) {
  const Markdown markdown(CorvaneTests::page(page));
  return std::ranges::any_of(markdown.lines, [&](const Markdown::Line& line) {
    return line.text.starts_with('#') && anchorOf(line.text) == anchor;
  });
}

/// The targets of a line's links: "b.md#c" of "[a](b.md#c)".
std::vector<std::string> targetsOf(std::string_view line) {
  constexpr std::string_view opening = "](";
  std::vector<std::string> targets;
  for (std::size_t begin = line.find(opening); begin != std::string_view::npos;
       begin = line.find(opening, begin + 1)) {
    const std::size_t start = begin + opening.size();
    targets.emplace_back(line.substr(start, line.find(')', start) - start));
  }
  return targets;
}

TEST(Links, leadToFilesAndHeadingsThatExist) {
  std::size_t count = 0;
  for (const std::string& page : pages()) {
    for (const Markdown::Line& line : Markdown(CorvaneTests::page(page)).lines) {
      for (const std::string& target : targetsOf(line.text)) {
        if (target.starts_with("https://")) continue;
        SCOPED_TRACE(page + ": " + target);
        ++count;
        const std::size_t hash = std::min(target.find('#'), target.size());
        const std::filesystem::path file =
            std::filesystem::path(page).parent_path() / target.substr(0, hash);
        const std::string name = hash == 0 ? page : file.lexically_normal().string();
        ASSERT_TRUE(std::filesystem::exists(root / name));
        if (hash == target.size()) continue;
        EXPECT_TRUE(hasAnchor(name, target.substr(hash)));
      }
    }
  }
  EXPECT_GT(count, 10U);
}

/// The code spans of a page, and the words of its shell commands.
std::vector<std::string> codeOf(const Markdown& page) {
  std::vector<std::string> code;
  for (const Markdown::Line& line : page.lines) {
    for (std::string& span : CorvaneTests::between(line.text, '`')) code.push_back(std::move(span));
  }
  for (const CorvaneTests::Block& block : page.blocks) {
    if (block.kind == "sh") code.push_back(block.text);
  }
  return code;
}

TEST(Links, namedFilesExist) {
  constexpr std::array<std::string_view, 9> folders{"Benchmarks/",    "CMake/",    "Completions/",
                                                    "Documentation/", "Examples/", "Packaging/",
                                                    "Scripts/",       "Sources/",  "Tests/"};
  std::size_t count = 0;
  for (const std::string& page : pages()) {
    for (const std::string& code : codeOf(Markdown(CorvaneTests::page(page)))) {
      std::istringstream words(code);
      for (std::string word; words >> word;) {
        const bool isPath = std::ranges::any_of(
            folders, [&](std::string_view folder) { return word.starts_with(folder); });
        if (!isPath || word.find_first_of("*<{(") != std::string::npos) continue;
        ++count;
        EXPECT_TRUE(std::filesystem::exists(root / word)) << page << ": " << word;
      }
    }
  }
  EXPECT_GT(count, 10U);
}

}  // namespace
