#include "corvanectl/Allocation.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <utility>
#include <vector>

/// What the address sanitizer asks a program for; without this it ends one that wants too much.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

namespace {

TEST(Allocation, givesPiecesOneBehindTheOtherUntilThereIsNoRoom) {
  const auto block = std::make_unique<MemoryBlock<256>>();
  std::vector<char*> pieces;
  while (char* const piece = static_cast<char*>(block->give(30))) {
    std::memset(piece, static_cast<int>(pieces.size()), 30);
    pieces.push_back(piece);
  }
  ASSERT_EQ(pieces.size(), 8U);
  for (std::size_t number = 0; number < pieces.size(); ++number) {
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(pieces[number]) % MemoryBlock<256>::alignment, 0U);
    EXPECT_EQ(pieces[number], pieces[0] + 32 * number);
    for (int index = 0; index < 30; ++index)
      EXPECT_EQ(pieces[number][index], static_cast<char>(number));
  }
  EXPECT_EQ(block->give(1), nullptr);
  EXPECT_EQ(block->give(0), nullptr);
}

TEST(Allocation, fillsTheBlockToItsLastByte) {
  const auto whole = std::make_unique<MemoryBlock<256>>();
  EXPECT_EQ(whole->give(257), nullptr);
  EXPECT_NE(whole->give(256), nullptr);
  EXPECT_EQ(whole->give(0), nullptr);
  const auto inTwo = std::make_unique<MemoryBlock<256>>();
  EXPECT_NE(inTwo->give(240), nullptr);
  EXPECT_EQ(inTwo->give(17), nullptr);
  EXPECT_NE(inTwo->give(16), nullptr);
  EXPECT_EQ(inTwo->give(1), nullptr);
}

TEST(Allocation, isNotMisledByASizeThatNoSumHolds) {
  const auto block = std::make_unique<MemoryBlock<256>>();
  for (std::size_t less = 0; less < 64; ++less) {
    EXPECT_EQ(block->give(std::numeric_limits<std::size_t>::max() - less), nullptr);
  }
  EXPECT_NE(block->give(256), nullptr);
}

TEST(Allocation, givesEmptyPiecesPlacesOfTheirOwn) {
  const auto block = std::make_unique<MemoryBlock<256>>();
  void* const first = block->give(0);
  EXPECT_NE(block->give(0), first);
}

TEST(Allocation, givesAgainWhatWasGivenLast) {
  const auto block = std::make_unique<MemoryBlock<256>>();
  void* const first = block->give(100);
  void* const second = block->give(100);
  EXPECT_TRUE(block->take(second));
  EXPECT_EQ(block->give(50), second);
  EXPECT_TRUE(block->take(first));  // is not given again
  EXPECT_NE(block->give(50), first);
}

TEST(Allocation, takesBackNothingThatIsNotItsOwn) {
  struct {
    char before[16];
    MemoryBlock<64> block;
    char behind[16];
  } memory{};
  char* const piece = static_cast<char*>(memory.block.give(64));
  ASSERT_NE(piece, nullptr);
  EXPECT_FALSE(memory.block.take(nullptr));
  EXPECT_FALSE(memory.block.take(memory.before));
  EXPECT_FALSE(memory.block.take(piece - 1));
  EXPECT_FALSE(memory.block.take(piece + 64));
  EXPECT_FALSE(memory.block.take(memory.behind));
  EXPECT_TRUE(memory.block.take(piece + 63));
  EXPECT_EQ(memory.block.give(1), nullptr);  // that was not the piece
  EXPECT_TRUE(memory.block.take(piece));
  EXPECT_EQ(memory.block.give(64), piece);
}

// What follows goes through the `new` of the command, which this program is linked with.

// What is not given back is a leak, which the sanitizers tell.
TEST(Allocation, goesToTheHeapForWhatFindsNoRoom) {
  using Piece = std::array<char, 10'000>;
  std::vector<Piece*> pieces;
  for (int number = 0; number < 100; ++number) {
    pieces.push_back(new Piece);
    pieces.back()->fill(static_cast<char>(number));
  }
  for (std::size_t number = 0; number < 100; ++number) {
    Piece* const piece = std::exchange(pieces[number], nullptr);  // else it would still be known
    EXPECT_EQ(piece->front(), static_cast<char>(number));
    EXPECT_EQ(piece->back(), static_cast<char>(number));
    if (number % 2 == 0) {
      delete piece;
    } else {
      ::operator delete(piece);
    }
  }
}

TEST(Allocation, throwsWhatEveryNewThrows) {
  const volatile std::size_t tooMuch = std::numeric_limits<std::size_t>::max() / 2;
  EXPECT_THROW(::operator delete(::operator new(tooMuch)), std::bad_alloc);
  EXPECT_EQ(::operator new(tooMuch, std::nothrow), nullptr);
}

TEST(Allocation, asksTheHandlerForRoomFirst) {
  static int asked;
  asked = 0;
  const std::new_handler before = std::set_new_handler([] {
    if (++asked == 3) std::set_new_handler(nullptr);
  });
  const volatile std::size_t tooMuch = std::numeric_limits<std::size_t>::max() / 2;
  EXPECT_THROW(::operator delete(::operator new(tooMuch)), std::bad_alloc);
  EXPECT_EQ(asked, 3);
  std::set_new_handler(before);
}

}  // namespace
