#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>

#include "Documentation/Pages.h"

namespace {

/// "UnixSocket.aReadTimesOut" of "TEST(UnixSocket, aReadTimesOut) {"; empty for any other line.
std::string testOn(std::string_view line) {
  const std::size_t open = line.find('(');
  if (!line.starts_with("TEST") || open == std::string_view::npos) return {};
  const std::string_view words = line.substr(open + 1, line.find(')') - open - 1);
  const std::size_t comma = words.find(", ");
  if (comma == std::string_view::npos) return {};
  return std::string(words.substr(0, comma)).append(".").append(words.substr(comma + 2));
}

/// The tests in the repository's sources, by their whole names.
std::set<std::string> tests() {
  std::set<std::string> names;
  const std::filesystem::path root = CORVANE_SOURCE_DIR;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root / "Tests")) {
    if (entry.path().extension() != ".cpp") continue;
    const std::string path = entry.path().lexically_relative(root).string();
    for (const std::string& line : CorvaneTests::linesOf(CorvaneTests::page(path))) {
      names.insert(testOn(line));
    }
  }
  names.erase("");
  return names;
}

/// Whether a code span of the page names a test: two words with a full stop between them, of which
/// the first begins with a capital letter.
bool namesATest(std::string_view span) {
  constexpr std::string_view letters =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  const std::size_t stop = span.find_first_not_of(letters);
  return stop != std::string_view::npos && span[stop] == '.' && span.front() >= 'A' &&
         span.front() <= 'Z' && !span.ends_with(".plist") &&
         span.find_first_not_of(letters, stop + 1) == std::string_view::npos;
}

TEST(SecurityPage, namesTestsThatAreThere) {
  const std::set<std::string> all = tests();
  EXPECT_GT(all.size(), 500U);
  std::size_t count = 0;
  for (const auto& line :
       CorvaneTests::Markdown(CorvaneTests::page("Documentation/security.md")).lines) {
    for (const std::string& span : CorvaneTests::between(line.text, '`')) {
      if (!namesATest(span)) continue;
      ++count;
      EXPECT_TRUE(all.contains(span)) << span;
    }
  }
  EXPECT_GT(count, 50U);
}

// A claim without one is a row of a table that ends without a name.
TEST(SecurityPage, namesATestForEveryClaim) {
  const std::set<std::string> withoutTests = {"## Who trusts whom", "## What the compiler adds"};
  for (const auto& line :
       CorvaneTests::Markdown(CorvaneTests::page("Documentation/security.md")).lines) {
    const auto cells = CorvaneTests::cellsOf(line.text);
    const bool isHead = !cells.empty() && cells.back() == "shown by";
    if (cells.empty() || isHead || withoutTests.contains(line.section)) continue;
    EXPECT_FALSE(CorvaneTests::between(cells.back(), '`').empty()) << line.text;
  }
}

}  // namespace
