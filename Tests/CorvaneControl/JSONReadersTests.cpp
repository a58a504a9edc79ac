// Both readers of JSON over the same texts: what agents sent, whole, cut and damaged.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneControl/JSON.h"
#include "CorvaneControl/OrderedJSON.h"

namespace {

using CorvaneControl::OrderedJSON;
namespace JSON = CorvaneControl::JSON;

/// The captured inputs of the agents' hooks, without the white space around them.
const std::vector<std::string>& hookInputs() {
  static const std::vector<std::string> inputs = [] {
    std::vector<std::filesystem::path> paths;
    const std::filesystem::path folder = CORVANE_SOURCE_DIR "/Tests/Fixtures/hooks";
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
      if (entry.path().extension() == ".json") paths.push_back(entry.path());
    }
    std::ranges::sort(paths);  // so that a seed means the same everywhere
    std::vector<std::string> texts;
    for (const auto& path : paths) {
      std::ifstream file(path, std::ios::binary);
      std::string text((std::istreambuf_iterator<char>(file)), {});
      text.erase(text.find_last_not_of(" \n") + 1);
      texts.push_back(std::move(text));
    }
    return texts;
  }();
  return inputs;
}

bool ordered(std::string_view text) { return bool(OrderedJSON::parse(text)); }

/// Parses a copy of exactly the text's size, so that the sanitizer sees what is read beyond it.
/// Checks what holds for every text, and says whether it is JSON.
bool document(std::string_view text) {
  std::vector<char> source(text.begin(), text.end());
  JSON::SyntaxError error;
  const auto document = JSON::Document::parse(source, "tool_response", &error);
  if (!document) {
    EXPECT_LE(error.offset, text.size()) << text;
    return false;
  }
  std::string written;
  JSON::write(document->root(), JSON::Slashes::plain, written);
  std::string copy = written;
  std::string again;
  const auto second = JSON::Document::parse(copy);
  if (second) JSON::write(second->root(), JSON::Slashes::plain, again);
  EXPECT_EQ(again, written) << text;
  return true;
}

TEST(JSONReaders, takeEveryHookInput) {
  EXPECT_GT(hookInputs().size(), 80U);
  for (const std::string& text : hookInputs()) {
    EXPECT_TRUE(document(text)) << text;
    EXPECT_TRUE(ordered(text)) << text;
  }
}

TEST(JSONReaders, refuseEveryPrefixOfAHookInput) {
  for (const std::string& text : hookInputs()) {
    for (std::size_t size = 0; size < text.size(); ++size) {
      const std::string_view prefix = std::string_view(text).substr(0, size);
      ASSERT_FALSE(document(prefix)) << prefix;
      ASSERT_FALSE(ordered(prefix)) << prefix;
    }
  }
}

/// Changes a text as an accident or an attacker might.
class Damage {
 public:
  explicit Damage(std::uint64_t seed) : random_(seed) {}

  std::string some() {
    std::string text = hookInputs()[below(hookInputs().size())];
    for (std::size_t count = 1 + below(3); count > 0 && !text.empty(); --count) change(text);
    return text;
  }

 private:
  std::size_t below(std::size_t bound) { return static_cast<std::size_t>(random_() % bound); }

  char byte() {
    constexpr std::string_view telling = "\"\\{}[],:0123456789-+.eEu/bfnrt \n\x80\xC3\xED\xF4\x1F";
    return below(3) == 0 ? static_cast<char>(below(256)) : telling[below(telling.size())];
  }

  void change(std::string& text) {
    const std::size_t place = below(text.size());
    switch (below(5)) {
      case 0:
        text[place] = byte();
        break;
      case 1:
        text.insert(place, 1, byte());
        break;
      case 2:
        text.erase(place, 1 + below(8));
        break;
      case 3:
        text.insert(place, text.substr(below(text.size()), 1 + below(40)));
        break;
      default:
        std::swap(text[place], text[below(text.size())]);
    }
  }

  std::mt19937_64 random_;  // the standard fixes its numbers
};

/// Several tests, so that they run beside each other. A million damaged inputs in all where the
/// programs are optimised for use; elsewhere, where that takes minutes, a tenth of them unless
/// CORVANE_DAMAGED_INPUTS names another number.
constexpr int shards = 10;
int damagedInEach() {
  if (const char* const wanted = std::getenv("CORVANE_DAMAGED_INPUTS")) {
    return std::atoi(wanted) / shards;
  }
#ifdef NDEBUG
  return 1'000'000 / shards;
#else
  return 100'000 / shards;
#endif
}

class Damaged : public testing::TestWithParam<int> {};
TEST_P(Damaged, hookInputsAreReadWellOrRefused) {
  Damage damage(20'261'121 + static_cast<std::uint64_t>(GetParam()));
  const int count = damagedInEach();
  for (int round = 0; round < count && !HasFailure(); ++round) {
    const std::string text = damage.some();
    // What the strict reader takes the other one takes as well: none nests deep here, or begins
    // with a byte-order mark.
    if (document(text)) {
      EXPECT_TRUE(ordered(text)) << text;
    } else if (round % 4 == 0) {
      ordered(text);
    }
  }
}
INSTANTIATE_TEST_SUITE_P(JSONReaders, Damaged, testing::Range(0, shards));

struct Nesting {
  const char* name;
  std::string opening;
  std::string closing;
  std::size_t levels;  // of each opening
};
const Nesting nestings[] = {
    {"arrays", "[", "]", 1},
    {"objects", "{\"a\":", "}", 1},
    {"arraysInObjects", "{\"a\":[", "]}", 2},
    {"objectsInArrays", "[{\"a\":", "}]", 2},
};
class Nested : public testing::TestWithParam<Nesting> {};
TEST_P(Nested, containersAreReadUpTo512Levels) {
  const auto& [name, opening, closing, levels] = GetParam();
  const auto nested = [&](std::size_t depth, std::string_view inner) {
    std::string text;
    for (std::size_t level = 0; level < depth; level += levels) text += opening;
    text += inner;
    for (std::size_t level = 0; level < depth; level += levels) text += closing;
    return text;
  };
  for (const char* empty : {"[]", "{}"}) {
    EXPECT_TRUE(document(nested(512 - levels, empty)));
    EXPECT_TRUE(ordered(nested(512 - levels, empty)));
    EXPECT_FALSE(document(nested(512, empty)));
    EXPECT_FALSE(ordered(nested(512, empty)));
  }
  EXPECT_TRUE(document(nested(512, "1")));  // the wire counts containers,
  EXPECT_FALSE(ordered(nested(512, "1")));  // users' files values
  EXPECT_TRUE(ordered(nested(512 - levels, "1")));
  EXPECT_FALSE(document(nested(512 + levels, "1")));
  EXPECT_FALSE(ordered(nested(512 + levels, "1")));
  EXPECT_FALSE(document(nested(512 * 400, "1")));
  EXPECT_FALSE(ordered(nested(512 * 400, "1")));
}
INSTANTIATE_TEST_SUITE_P(JSONReaders, Nested, testing::ValuesIn(nestings),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
