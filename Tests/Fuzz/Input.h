#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace CorvaneTests {

/// A fuzzer's bytes in memory of exactly their size, so that the address sanitizer sees the first
/// byte read beyond them.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : bytes_(data, data + size) {}

  std::string_view text() const { return {bytes_.data(), bytes_.size()}; }

 private:
  std::vector<char> bytes_;
};

}  // namespace CorvaneTests
