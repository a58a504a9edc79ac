#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace CorvaneTests {

/// A file of the public JSON test suite. Its name begins with the verdict: "y_", "n_", or "i_"
/// where the suite leaves the choice.
struct SuiteFile {
  std::string name;
  std::string text;
};

/// All files of the suite, which lies outside the repository; none where it is not.
inline std::vector<SuiteFile> jsonTestSuite() {
  std::vector<SuiteFile> files;
  const std::filesystem::path folder = CORVANE_JSON_TEST_SUITE;
  if (!std::filesystem::is_directory(folder)) return files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::ifstream file(entry.path(), std::ios::binary);
    files.push_back({entry.path().filename().string(),
                     {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()}});
  }
  return files;
}

/// Why a test of the suite is skipped.
inline std::string withoutJSONTestSuite() {
  return "The JSON parsing test suite is not at \"" CORVANE_JSON_TEST_SUITE
         "\"; name its folder with -DCORVANE_JSON_TEST_SUITE=...";
}

/// Files with half of a surrogate pair, which names no character: the suite leaves them open, and
/// every reader of ours refuses them.
inline const std::set<std::string> halvesOfSurrogatePairs = {
    "i_object_key_lone_2nd_surrogate.json",
    "i_string_1st_surrogate_but_2nd_missing.json",
    "i_string_1st_valid_surrogate_2nd_invalid.json",
    "i_string_incomplete_surrogate_and_escape_valid.json",
    "i_string_incomplete_surrogate_pair.json",
    "i_string_incomplete_surrogates_escape_valid.json",
    "i_string_invalid_lonely_surrogate.json",
    "i_string_invalid_surrogate.json",
    "i_string_inverted_surrogates_U+1D11E.json",
    "i_string_lone_second_surrogate.json",
};

}  // namespace CorvaneTests
