#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace CorvaneTests {

/// Ends the process when a promise is broken, which is what a fuzzer looks for.
inline void require(bool promise) {
  if (!promise) std::abort();
}

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
