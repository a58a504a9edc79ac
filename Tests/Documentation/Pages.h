#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace CorvaneTests {

/// The text of a document, by its path in the repository.
inline std::string page(const std::string& path) {
  std::ifstream stream(CORVANE_SOURCE_DIR "/" + path, std::ios::binary);
  EXPECT_TRUE(stream) << "cannot read " << path;
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

inline std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

/// A fenced block of a Markdown page.
struct Block {
  std::string kind{};     ///< What stands behind the opening fence: "json request".
  std::string text{};     ///< With its line breaks, but for the last.
  std::string section{};  ///< The heading above it: "## list".
  std::size_t line = 0;   ///< Where it begins; the first line of the page is 1.
};

/// A Markdown page, taken apart.
struct Markdown {
  std::vector<Block> blocks{};
  /// The lines outside of blocks, each with the heading that it stands under.
  struct Line {
    std::string text{};
    std::string section{};
  };
  std::vector<Line> lines{};

  explicit Markdown(std::string_view text) {
    constexpr std::string_view fence = "```";
    std::string section;
    bool isInside = false;
    std::size_t number = 0;
    for (const std::string& line : linesOf(text)) {
      ++number;
      if (line.starts_with(fence)) {
        if (!isInside) blocks.push_back({line.substr(fence.size()), {}, section, number});
        isInside = !isInside;
      } else if (isInside) {
        std::string& block = blocks.back().text;
        block.append(block.empty() ? "" : "\n").append(line);
      } else {
        if (line.starts_with('#')) section = line;
        lines.push_back({line, section});
      }
    }
    EXPECT_FALSE(isInside) << "the last fence is not closed";
  }
};

/// The cells of a row of a Markdown table, trimmed; none for any other line.
inline std::vector<std::string> cellsOf(std::string_view line) {
  std::vector<std::string> cells;
  if (!line.starts_with("| ")) return cells;
  line.remove_prefix(1);
  while (!line.empty()) {
    const std::string_view cell = line.substr(0, line.find('|'));
    line.remove_prefix(std::min(cell.size() + 1, line.size()));
    const std::size_t begin = std::min(cell.find_first_not_of(' '), cell.size());
    cells.emplace_back(cell.substr(begin, cell.find_last_not_of(' ') + 1 - begin));
  }
  return cells;
}

/// Every "--option" in a text, once.
inline std::set<std::string> optionsIn(std::string_view text) {
  constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz-";
  std::set<std::string> options;
  for (std::size_t at = text.find("--"); at != std::string_view::npos; at = text.find("--", at)) {
    const std::size_t end = std::min(text.find_first_not_of(letters, at), text.size());
    options.emplace(text.substr(at, end - at));
    at = end;
  }
  return options;
}

/// The pieces of `text` that stand between two of the same mark: "a" and "b" of `"a" or "b"`.
inline std::vector<std::string> between(std::string_view text, char mark) {
  std::vector<std::string> pieces;
  for (std::size_t begin = text.find(mark); begin != std::string_view::npos;) {
    const std::size_t end = text.find(mark, begin + 1);
    if (end == std::string_view::npos) break;
    pieces.emplace_back(text.substr(begin + 1, end - begin - 1));
    begin = text.find(mark, end + 1);
  }
  return pieces;
}

}  // namespace CorvaneTests
