#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace CorvaneTests {

/// Ends the process when a promise is broken, which is what a fuzzer looks for.
inline void require(bool promise) {
  if (!promise) std::abort();
}

/// A fuzzer's bytes in memory of exactly their size, so that the address sanitizer sees the first
/// byte read beyond them.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : bytes_(std::make_unique<char[]>(size)), size_(size) {
    if (size > 0) std::memcpy(bytes_.get(), data, size);
  }

  std::string_view text() const { return {bytes_.get(), size_}; }

 private:
  std::unique_ptr<char[]> bytes_;
  std::size_t size_;
};

}  // namespace CorvaneTests
