#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneControl/UnixSocket.h"
#include "Cost/Work.h"
#include "Support/ChildProcess.h"
#include "Support/CountedMemory.h"
#include "Support/Repeated.h"
#include "Support/TemporaryFolder.h"

namespace {

using CorvaneTests::allWork;
using CorvaneTests::Work;

constexpr std::size_t smallest = 8 * 1024;  // bytes of input
constexpr std::array<std::size_t, 3> sizes = {smallest, 4 * smallest, 16 * smallest};

/// Whatever is counted, at each of the sizes.
using Costs = std::array<std::uint64_t, sizes.size()>;

/// Work that is quadratic costs 256 times as much at the largest size as at the smallest. What
/// sorts costs a little more than sixteen times as much.
void expectLinear(const Costs& costs, double margin, std::uint64_t constant) {
  for (std::size_t index = 1; index < sizes.size(); ++index) {
    const auto times = static_cast<double>(sizes[index]) / static_cast<double>(sizes[0]);
    EXPECT_LE(static_cast<double>(costs[index]),
              times * margin * static_cast<double>(costs[0]) + static_cast<double>(constant))
        << "at " << sizes[index] << " bytes, and " << costs[0] << " at " << sizes[0];
  }
}

class Cost : public testing::TestWithParam<Work> {};

TEST_P(Cost, inMemoryIsLinear) {
  Costs costs{};
  for (std::size_t index = 0; index < sizes.size(); ++index) {
    const auto task = GetParam().prepare(sizes[index]);
    const std::size_t before = CorvaneTests::allocatedBytes();
    task();
    costs[index] = CorvaneTests::allocatedBytes() - before;
  }
  // What grows by doubling may have just doubled.
  expectLinear(costs, 2, 4096);
}

TEST_P(Cost, inAllocationsIsLinear) {
  Costs costs{};
  for (std::size_t index = 0; index < sizes.size(); ++index) {
    const auto task = GetParam().prepare(sizes[index]);
    const std::size_t before = CorvaneTests::allocations();
    task();
    costs[index] = CorvaneTests::allocations() - before;
  }
  expectLinear(costs, 1.1, 20);
}

/// What valgrind's callgrind counts between entering and leaving `countedWork`, one call after the
/// other.
std::vector<std::uint64_t> instructions(const std::string& name) {
  const CorvaneTests::TemporaryFolder folder;
  CorvaneTests::ChildOptions options{
      .arguments = {"--tool=callgrind", "--toggle-collect=countedWork", "--dump-after=countedWork",
                    "--callgrind-out-file=" + folder.path("counts"), COUNTED_WORK, name}};
  // glibc copies large blocks with one instruction, which valgrind counts once for each byte; small
  // ones it copies 32 bytes at a time.
  options.environment["GLIBC_TUNABLES"] =
      "glibc.cpu.x86_rep_movsb_threshold=1073741824:glibc.cpu.x86_rep_stosb_threshold=1073741824";
  for (const std::size_t size : sizes) options.arguments.push_back(std::to_string(size));
  const auto ended = CorvaneTests::run(VALGRIND, options);
  EXPECT_EQ(ended.status, 0) << ended.errors;
  std::vector<std::uint64_t> counts;
  for (std::size_t dump = 1; dump <= sizes.size(); ++dump) {
    std::ifstream file(folder.path("counts." + std::to_string(dump)));
    constexpr std::string_view total = "totals: ";
    for (std::string line; std::getline(file, line);) {
      if (line.starts_with(total)) counts.push_back(std::stoull(line.substr(total.size())));
    }
  }
  return counts;
}

TEST_P(Cost, inInstructionsIsLinear) {
  if (std::string_view(VALGRIND).empty()) GTEST_SKIP() << WITHOUT_VALGRIND;
  const auto counts = instructions(GetParam().name);
  ASSERT_EQ(counts.size(), sizes.size());
  Costs costs{};
  std::ranges::copy(counts, costs.begin());
  EXPECT_GT(costs[0], 0U);
  expectLinear(costs, 1.4, 0);
}

INSTANTIATE_TEST_SUITE_P(All, Cost, testing::ValuesIn(allWork()),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(LineBufferCost, whatWasTakenIsNotHeld) {
  const std::string piece = CorvaneTests::repeated("a short line\n", 300) + "half a line ";
  CorvaneControl::LineBuffer buffer;
  const std::size_t before = CorvaneTests::heldBytes();
  CorvaneTests::forgetMostHeld();
  for (int count = 0; count < 1000; ++count) {
    buffer.append(piece);
    while (buffer.nextLine()) {
    }
  }
  EXPECT_LE(CorvaneTests::mostHeldBytes() - before, 10 * piece.size());
}

}  // namespace
