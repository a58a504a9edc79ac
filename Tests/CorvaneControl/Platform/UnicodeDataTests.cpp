// The library's answers against the published data of Unicode, where they are on this machine (on
// Debian the package unicode-data; elsewhere set CORVANE_UNICODE_DATA).

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneControl/Platform/Text.h"

namespace {

namespace Text = CorvaneControl::Text;

const std::string folder = CORVANE_UNICODE_DATA;

std::vector<std::string> linesOfFile(const std::string& name) {
  std::ifstream file(folder + "/" + name);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

/// The parts between `separator`, without spaces at their ends.
std::vector<std::string> parts(std::string_view line, char separator) {
  std::vector<std::string> result;
  while (true) {
    const std::size_t end = line.find(separator);
    result.emplace_back(Text::trimmed(line.substr(0, end)));
    if (end == std::string_view::npos) return result;
    line.remove_prefix(end + 1);
  }
}

std::vector<std::string> fields(std::string_view line) {
  return parts(line.substr(0, line.find('#')), ';');
}

char32_t scalarOf(const std::string& hexadecimal) {
  return static_cast<char32_t>(std::stoul(hexadecimal, nullptr, 16));
}

/// The text of scalars such as "0041 0301".
std::string textOf(std::string_view scalars) {
  std::string text;
  for (const std::string& scalar : parts(scalars, ' ')) {
    if (!scalar.empty()) Text::append(text, scalarOf(scalar));
  }
  return text;
}

std::string textOf(char32_t scalar) {
  std::string text;
  Text::append(text, scalar);
  return text;
}

/// Case and categories grow with every version, so they only compare with the library's own.
bool isOfVersion15() {
  const auto lines = linesOfFile("CaseFolding.txt");
  return !lines.empty() && lines.front() == "# CaseFolding-15.0.0.txt";
}

TEST(UnicodeData, graphemeBreaks) {
  const auto lines = linesOfFile("auxiliary/GraphemeBreakTest.txt");
  if (lines.empty()) GTEST_SKIP() << "no GraphemeBreakTest.txt in " << folder;
  std::size_t tested = 0;
  for (const std::string& line : lines) {
    const std::string row = line.substr(0, line.find('#'));
    // Conjuncts of Indic scripts (rule 9c, since Unicode 15.1) are not known to every utf8proc.
    if (row.empty() || line.find("[9.3]") != std::string::npos) continue;
    const std::string breakMark = "\u00F7";
    const std::string joinMark = "\u00D7";
    std::vector<std::string> characters;
    for (const std::string& part : parts(row, ' ')) {
      if (part.empty() || part == joinMark) continue;
      if (part == breakMark) {
        characters.emplace_back();
      } else {
        Text::append(characters.back(), scalarOf(part));
      }
    }
    ASSERT_TRUE(characters.back().empty()) << line;
    characters.pop_back();
    // Also behind a stretch of ASCII that nothing can join, where counting takes another road.
    for (const std::size_t feeds : {0U, 1U, 7U, 8U, 9U}) {
      std::string start(feeds, '\n');
      std::string text = start;
      for (const std::string& character : characters) text += character;
      EXPECT_EQ(Text::characters(text), feeds + characters.size()) << line;
      for (std::size_t count = 0; count <= characters.size(); ++count) {
        EXPECT_EQ(Text::prefix(text, feeds + count), start) << line;
        if (count < characters.size()) start += characters[count];
      }
    }
    ++tested;
  }
  EXPECT_GE(tested, 600U);
}

/// What a program prints; nothing when there is no such program.
std::string outputOf(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::string output;
  char buffer[65536];
  while (pipe) {
    const std::size_t size = std::fread(buffer, 1, sizeof buffer, pipe.get());
    if (size == 0) break;
    output.append(buffer, size);
  }
  return output;
}

TEST(UnicodeData, canonicalEquivalence) {
  const std::string data = outputOf("bzip2 -dc '" + folder + "/NormalizationTest.txt.bz2' 2>&-");
  if (data.empty()) GTEST_SKIP() << "no NormalizationTest.txt.bz2 in " << folder << ", or no bzip2";
  std::size_t tested = 0;
  std::string_view rest = data;
  while (const auto next = Text::nextLine(rest)) {
    const std::string_view line = *next;
    if (line.starts_with('#') || line.starts_with('@')) continue;
    const auto columns = fields(line);
    ASSERT_GE(columns.size(), 5U) << line;
    const std::string source = textOf(columns[0]);
    const std::string decomposed = textOf(columns[2]);
    const std::string compatible = textOf(columns[4]);
    EXPECT_TRUE(Text::canonicallyEqual(source, textOf(columns[1]))) << line;
    EXPECT_TRUE(Text::canonicallyEqual(source, decomposed)) << line;
    EXPECT_TRUE(Text::canonicallyEqual(textOf(columns[3]), compatible)) << line;
    EXPECT_EQ(Text::canonicallyEqual(source, compatible), decomposed == compatible) << line;
    ++tested;
  }
  EXPECT_GE(tested, 19'000U);
}

TEST(UnicodeData, simpleCaseFolding) {
  if (!isOfVersion15()) GTEST_SKIP() << "no data of Unicode 15.0 in " << folder;
  std::map<char32_t, char32_t> foldings;
  for (const std::string& line : linesOfFile("CaseFolding.txt")) {
    const auto columns = fields(line);
    if (columns.size() < 3 || (columns[1] != "C" && columns[1] != "S")) continue;
    foldings[scalarOf(columns[0])] = scalarOf(columns[2]);
  }
  EXPECT_GE(foldings.size(), 1400U);
  for (char32_t scalar = 0; scalar <= 0x10FFFF; ++scalar) {
    if (scalar >= 0xD800 && scalar <= 0xDFFF) continue;
    const auto folding = foldings.find(scalar);
    const char32_t folded = folding == foldings.end() ? scalar : folding->second;
    ASSERT_EQ(Text::caseFolded(textOf(scalar)), textOf(folded)) << std::hex << +scalar;
  }
}

/// The general category of every assigned scalar, and its simple upper-case mapping.
struct Assigned {
  std::string category;
  char32_t upper = 0;
};

std::map<char32_t, Assigned> assignedScalars() {
  std::map<char32_t, Assigned> result;
  char32_t first = 0;
  for (const std::string& line : linesOfFile("UnicodeData.txt")) {
    const auto columns = parts(line, ';');
    if (columns.size() < 15) continue;
    const char32_t scalar = scalarOf(columns[0]);
    if (columns[1].ends_with(", First>")) first = scalar;
    if (!columns[1].ends_with(", Last>")) first = scalar;
    for (char32_t member = first; member <= scalar; ++member) {
      result[member] = {columns[2], columns[12].empty() ? member : scalarOf(columns[12])};
    }
  }
  return result;
}

TEST(UnicodeData, upperCaseOfTheFirstCharacter) {
  if (!isOfVersion15()) GTEST_SKIP() << "no data of Unicode 15.0 in " << folder;
  std::map<char32_t, std::string> several;
  for (const std::string& line : linesOfFile("SpecialCasing.txt")) {
    const auto columns = fields(line);
    // Rows with a condition (a language, a place in the word) have a column more.
    if (columns.size() != 5) continue;
    several[scalarOf(columns[0])] = textOf(columns[3]);
  }
  EXPECT_GE(several.size(), 100U);
  for (const auto& [scalar, assigned] : assignedScalars()) {
    if (assigned.category == "Cs") continue;
    const auto special = several.find(scalar);
    const std::string upper = special == several.end() ? textOf(assigned.upper) : special->second;
    ASSERT_EQ(Text::capitalized(textOf(scalar)), upper) << std::hex << +scalar;
  }
}

TEST(UnicodeData, kindsOfScalars) {
  if (!isOfVersion15()) GTEST_SKIP() << "no data of Unicode 15.0 in " << folder;
  const auto assigned = assignedScalars();
  std::set<char32_t> whiteSpace;
  for (const std::string& line : linesOfFile("PropList.txt")) {
    const auto columns = fields(line);
    if (columns.size() < 2 || columns[1] != "White_Space") continue;
    const std::string& range = columns[0];
    const std::size_t dots = range.find("..");
    const char32_t last = scalarOf(dots == std::string::npos ? range : range.substr(dots + 2));
    for (char32_t scalar = scalarOf(range); scalar <= last; ++scalar) whiteSpace.insert(scalar);
  }
  EXPECT_EQ(whiteSpace.size(), 25U);
  const std::set<std::string> deceptive = {"Cc", "Cf", "Zl", "Zp", "Cs", "Co", "Cn"};
  for (char32_t scalar = 0; scalar <= 0x10FFFF; ++scalar) {
    const auto found = assigned.find(scalar);
    const std::string category = found == assigned.end() ? "Cn" : found->second.category;
    ASSERT_EQ(Text::isSpace(scalar), category == "Zs" || scalar == '\t') << std::hex << +scalar;
    ASSERT_EQ(Text::isDigit(scalar), category == "Nd") << std::hex << +scalar;
    ASSERT_EQ(Text::isPatternSpace(scalar), whiteSpace.contains(scalar)) << std::hex << +scalar;
    ASSERT_EQ(Text::isLineBreak(scalar), Text::isPatternSpace(scalar) && !Text::isSpace(scalar));
    ASSERT_EQ(Text::isDeceptive(scalar), deceptive.contains(category) && scalar != 0x200D)
        << std::hex << +scalar;
  }
}

}  // namespace
