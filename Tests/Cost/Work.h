#pragma once

#include <cstddef>
#include <functional>
#include <span>

namespace CorvaneTests {

/// Work that has to be linear in its input, whatever the input is.
struct Work {
  const char* name;
  /// Makes an input of about so many bytes and gives what is to be done with it, once.
  std::function<std::function<void()>(std::size_t bytes)> prepare;
};

/// One for each reader, for framing, cards, previews, fingerprints and writers.
std::span<const Work> allWork();

}  // namespace CorvaneTests
