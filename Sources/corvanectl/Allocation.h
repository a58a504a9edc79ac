#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <iterator>

/// Memory that is given away in pieces, each behind the one before. Of what is taken back only the
/// piece that was given last is given again.
template <std::size_t capacity>
class MemoryBlock {
 public:
  /// As every `new` has it, so that a piece holds whatever has no stricter alignment of its own.
  static constexpr std::size_t alignment = __STDCPP_DEFAULT_NEW_ALIGNMENT__;
  static_assert(capacity % alignment == 0);

  /// A piece of `size` bytes, of no certain value; null when there is no room for it. No two pieces
  /// are at the same place, empty ones included.
  void* give(std::size_t size) {
    if (size > capacity - used_ || used_ == capacity) return nullptr;
    last_ = used_;
    used_ += (std::max(size, std::size_t{1}) + alignment - 1) / alignment * alignment;
    return memory_ + last_;
  }

  /// Takes a piece back; false when it is none of this block.
  bool take(const void* piece) {
    const std::less<const void*> isBefore;
    if (isBefore(piece, memory_) || !isBefore(piece, std::end(memory_))) return false;
    if (piece == memory_ + last_) used_ = last_;
    return true;
  }

 private:
  std::size_t used_ = 0;
  std::size_t last_ = 0;  // where the piece begins that was given last
  alignas(alignment) std::byte memory_[capacity] = {};
};
