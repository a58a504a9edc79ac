#include "CorvaneControl/Transfer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

namespace Transfer = CorvaneControl::Transfer;

/// What a call is to do, one after the other: take or give so many bytes, or fail with an error.
struct Step {
  std::size_t bytes = 0;
  int code = 0;
};

class Script {
 public:
  explicit Script(std::vector<Step> steps) : steps_(std::move(steps)) {}

  ssize_t write(const char* bytes, std::size_t count) {
    const ssize_t taken = next(count);
    if (taken > 0) text.append(bytes, static_cast<std::size_t>(taken));
    return taken;
  }
  ssize_t read(char* bytes, std::size_t count) {
    const ssize_t given = next(count);
    if (given > 0) std::memset(bytes, 'x', static_cast<std::size_t>(given));
    return given;
  }
  bool isOver() const { return made_ == steps_.size(); }

  std::string text{};

 private:
  ssize_t next(std::size_t most) {
    if (isOver()) {
      ADD_FAILURE() << "one call too many";
      errno = EBADF;
      return -1;
    }
    const Step step = steps_[made_++];
    errno = step.code;
    return step.code != 0 ? -1 : static_cast<ssize_t>(std::min(step.bytes, most));
  }

  std::vector<Step> steps_;
  std::size_t made_ = 0;
};

bool writeAll(std::string_view bytes, Script& script) {
  return Transfer::writeAll(
      bytes, [&](const char* part, std::size_t count) { return script.write(part, count); });
}

TEST(Transfer, writesOnAfterPartsAndSignals) {
  Script script({{.bytes = 2}, {.code = EINTR}, {.bytes = 1}, {.bytes = 100}});
  EXPECT_TRUE(writeAll("abcdef", script));
  EXPECT_EQ(script.text, "abcdef");
  EXPECT_TRUE(script.isOver());
}

TEST(Transfer, writesNothingWithoutACall) {
  Script script(std::vector<Step>{});
  EXPECT_TRUE(writeAll("", script));
}

TEST(Transfer, endsAtTheFirstFailure) {
  Script script({{.bytes = 2}, {.code = ENOSPC}});
  EXPECT_FALSE(writeAll("abcdef", script));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(script.text, "ab");
}

TEST(Transfer, takingNothingIsAFailureAndNotALoop) {
  Script script(std::vector{Step{.bytes = 0}});
  EXPECT_FALSE(writeAll("a", script));
  EXPECT_EQ(errno, EIO);
}

struct ReadCase {
  const char* name;
  std::vector<Step> steps;
  ssize_t result;
};
const ReadCase readCases[] = {
    {"untilAllIsThere", {{.bytes = 2}, {.code = EINTR}, {.bytes = 9}}, 5},
    {"untilTheEnd", {{.bytes = 2}, {.bytes = 0}}, 2},
    {"untilAFailure", {{.bytes = 2}, {.code = EIO}}, -1},
};
class Reading : public testing::TestWithParam<ReadCase> {};
TEST_P(Reading, goesOn) {
  Script script(GetParam().steps);
  std::string bytes(5, '.');
  EXPECT_EQ(
      Transfer::readAll(bytes.data(), bytes.size(),
                        [&](char* part, std::size_t count) { return script.read(part, count); }),
      GetParam().result);
  EXPECT_TRUE(script.isOver());
}
INSTANTIATE_TEST_SUITE_P(Transfer, Reading, testing::ValuesIn(readCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(Transfer, makesACallAgainAsOftenAsItIsInterrupted) {
  Script writing({{.code = EINTR}, {.code = EINTR}, {.code = EINTR}, {.bytes = 2}, {.bytes = 1}});
  EXPECT_TRUE(writeAll("abc", writing));
  EXPECT_EQ(writing.text, "abc");
  EXPECT_TRUE(writing.isOver());
}

}  // namespace
