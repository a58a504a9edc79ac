#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "Documentation/Pages.h"

namespace {

using CorvaneTests::linesOf;
using CorvaneTests::page;

/// The sections of the notices: their headings stand between two rules.
std::map<std::string, std::string> sections() {
  const std::vector<std::string> lines = linesOf(page("THIRD-PARTY-NOTICES"));
  const std::string rule(98, '=');
  std::map<std::string, std::string> found;
  std::string heading;
  for (std::size_t index = 0; index < lines.size(); ++index) {
    if (lines[index] == rule && index + 2 < lines.size() && lines[index + 2] == rule) {
      heading = lines[index + 1];
      index += 2;
    } else if (!heading.empty()) {
      found[heading] += lines[index] + "\n";
    }
  }
  return found;
}

/// The name and the version of each library that the releases are built from.
std::vector<std::string> pinned() {
  std::vector<std::string> libraries;
  for (const std::string& line : linesOf(page("CMake/third-party-sources.txt"))) {
    std::istringstream words(line);
    std::string name;
    std::string version;
    if (line.starts_with('#') || !(words >> name >> version)) continue;
    libraries.push_back(name.append(" ").append(version));
  }
  return libraries;
}

void expectLicence(const std::string& library) {
  SCOPED_TRACE(library);
  const auto all = sections();
  const auto section = all.find(library);
  ASSERT_NE(section, all.end()) << "THIRD-PARTY-NOTICES has no section of this name";
  EXPECT_NE(section->second.find("Copyright"), std::string::npos);
  EXPECT_NE(section->second.find("\"AS IS\""), std::string::npos);
}

TEST(Notices, haveTheLicenceOfEveryPinnedLibraryInItsVersion) {
  const std::vector<std::string> libraries = pinned();
  EXPECT_GE(libraries.size(), 3U);
  for (const std::string& library : libraries) expectLicence(library);
}

TEST(Notices, haveTheLicencesOfWhatTheCompilerAddsToTheReleases) {
  for (const char* const library : {"musl", "libc++, libc++abi and libunwind", "Ryu, in libc++",
                                    "zig, in place of compiler-rt"}) {
    expectLicence(library);
  }
}

// Whatever is linked is found by CMake, in one place.
TEST(Notices, pinsAreOfEveryLibraryThatIsLinked) {
  const std::vector<std::string> libraries = pinned();
  std::size_t count = 0;
  for (const std::string& line : linesOf(page("CMake/CorvaneDependencies.cmake"))) {
    constexpr std::string_view call = "corvane_pkg(";
    if (!line.starts_with(call)) continue;
    ++count;
    const std::string name = line.substr(call.size(), line.find(' ') - call.size());
    EXPECT_TRUE(std::ranges::any_of(
        libraries, [&](const std::string& library) { return library.starts_with(name); }))
        << name << " has no pin";
  }
  EXPECT_GE(count, 3U);
}

}  // namespace
